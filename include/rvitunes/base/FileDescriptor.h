// Ownership of a POSIX file descriptor.
#pragma once

namespace rvitunes {

// Owns one open descriptor and closes it on destruction. Move-only; -1 means none. Not
// thread-safe; the descriptor itself may be used from any thread.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  // Takes ownership of `fd` (-1 for none).
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  // Gives up ownership without closing and answers the descriptor.
  int release();
  // Closes the owned descriptor, if any, and takes `fd`. Errors from close are ignored; callers
  // that must see them release() and close themselves.
  void reset(int fd = -1);

 private:
  int fd_ = -1;
};

}  // namespace rvitunes
