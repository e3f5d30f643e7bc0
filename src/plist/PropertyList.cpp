#include "rvitunes/plist/PropertyList.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/plist/BinaryReader.h"
#include "rvitunes/plist/BinaryWriter.h"
#include "rvitunes/plist/JsonWriter.h"
#include "rvitunes/plist/XmlReader.h"
#include "rvitunes/plist/XmlWriter.h"

namespace rvitunes::plist {

std::string ParseResult::describe() const {
  if (!error) return "OK";
  return "offset " + std::to_string(error->offset) + ": " + error->message;
}

namespace {

ParseResult failure(std::string message) {
  ParseResult r;
  r.error = Diagnostic{0, std::move(message)};
  return r;
}

// A read-only private mapping of a whole file, unmapped on destruction.
class Mapping {
 public:
  Mapping(void* base, size_t size) : base_(base), size_(size) {}
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping() {
    if (base_ != MAP_FAILED && base_ != nullptr) munmap(base_, size_);
  }
  bool valid() const { return base_ != MAP_FAILED && base_ != nullptr; }
  const char* data() const { return static_cast<const char*>(base_); }
  size_t size() const { return size_; }

  // Gives back the pages wholly before `offset`; they are read again from the file if touched.
  void release(size_t offset) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t upTo = offset / page * page;
    if (upTo > released_) {
      madvise(static_cast<char*>(base_) + released_, upTo - released_, MADV_DONTNEED);
      released_ = upTo;
    }
  }

 private:
  void* base_;
  size_t size_;
  size_t released_ = 0;
};

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

ParseResult PropertyList::read(std::span<const uint8_t> bytes, const ReadOptions& options) {
  if (BinaryReader::looksBinary(bytes)) return BinaryReader::read(bytes, options);
  return XmlReader::read(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), options);
}

ParseResult PropertyList::readFile(const std::string& path, const ReadOptions& options) {
  Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return failure("cannot open " + path + ": " + std::strerror(errno));
  struct stat st;
  if (fstat(fd.get(), &st) != 0)
    return failure("cannot stat " + path + ": " + std::strerror(errno));
  if (S_ISDIR(st.st_mode)) return failure(path + " is a directory");

  if (!S_ISREG(st.st_mode) || st.st_size == 0) {
    // Pipes and special files: read what comes, within the limit.
    std::string bytes;
    char buf[1 << 16];
    while (true) {
      ssize_t n = ::read(fd.get(), buf, sizeof buf);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return failure("cannot read " + path + ": " + std::strerror(errno));
      if (n == 0) break;
      if (bytes.size() + static_cast<size_t>(n) > options.maxInputBytes) {
        return failure(path + " is larger than the limit of " +
                       std::to_string(options.maxInputBytes) + " bytes");
      }
      bytes.append(buf, static_cast<size_t>(n));
    }
    return read(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
        options);
  }

  const uint64_t size = static_cast<uint64_t>(st.st_size);
  if (size > options.maxInputBytes) {
    return failure(path + " is " + std::to_string(size) + " bytes, over the limit of " +
                   std::to_string(options.maxInputBytes));
  }
  Mapping map(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd.get(), 0), size);
  if (!map.valid()) return failure("cannot map " + path + ": " + std::strerror(errno));
  madvise(const_cast<char*>(map.data()), size, MADV_SEQUENTIAL);
  std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(map.data()), size);
  if (BinaryReader::looksBinary(bytes)) return BinaryReader::read(bytes, options);

  // The XML reader walks forward once: pages it has passed are given back as it goes, so a
  // large library costs its tree in memory, not its tree plus its text.
  ReadOptions streaming = options;
  streaming.progress = [&map, &options](uint64_t done, uint64_t total) {
    map.release(static_cast<size_t>(done));
    if (options.progress) options.progress(done, total);
  };
  return XmlReader::read(std::string_view(map.data(), size), streaming);
}

Result<std::string> PropertyList::encode(const Value& root, OutputFormat format,
                                         EntityStyle entities) {
  switch (format) {
    case OutputFormat::kXml1:
      return XmlWriter::write(root, entities);
    case OutputFormat::kBinary1:
      return BinaryWriter::write(root);
    case OutputFormat::kJson: {
      auto r = JsonWriter::write(root, 2);
      if (r.ok()) r.value().push_back('\n');
      return r;
    }
  }
  return Status::error(paramErr, "unknown output format");
}

Status PropertyList::writeFile(const std::string& path, const Value& root, OutputFormat format,
                               EntityStyle entities) {
  auto bytes = encode(root, format, entities);
  if (!bytes.ok()) return bytes.status();
  return writeFileAtomically(FileSystem::defaultFileSystem(), path, bytes.value());
}

}  // namespace rvitunes::plist
