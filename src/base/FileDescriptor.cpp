#include "rvitunes/base/FileDescriptor.h"

#include <unistd.h>

namespace rvitunes {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) reset(other.release());
  return *this;
}

FileDescriptor::~FileDescriptor() {
  reset();
}

int FileDescriptor::release() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

void FileDescriptor::reset(int fd) {
  // close() is not retried on EINTR: on Linux the descriptor is released either way, and a
  // retry could close a descriptor another thread has just been given.
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

}  // namespace rvitunes
