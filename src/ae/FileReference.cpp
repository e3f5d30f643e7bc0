// Alias records and 80-byte file references. Both record the file's identity (device, inode,
// birth time when the file system keeps one) and its path; resolving finds the path and accepts
// it only when the identity still matches. The 80 bytes hold a path of up to 44 bytes
// themselves; a longer path is kept in the per-user registry, one small file per file identity.
#include "rvitunes/ae/FileReference.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Url.h"

namespace rvitunes::ae {

namespace {

constexpr uint8_t kReferenceMagic[4] = {'R', 'V', 'f', 'r'};
constexpr uint8_t kAliasMagic[4] = {'R', 'V', 'a', 'l'};
constexpr uint8_t kVersion = 1;
constexpr uint8_t kFlagRegistry = 0x01;
constexpr uint8_t kFlagBirthTime = 0x02;
constexpr size_t kInlinePathOffset = 36;
constexpr size_t kInlinePathMax = kFileReferenceSize - kInlinePathOffset;  // 44
constexpr size_t kAliasHeaderSize = 40;
constexpr size_t kMaxPathLength = 4096;

struct Identity {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool hasBirthTime = false;
  int64_t birthSeconds = 0;
  uint32_t birthNanoseconds = 0;

  bool sameFileAs(const Identity& other) const {
    if (device != other.device || inode != other.inode) return false;
    if (hasBirthTime && other.hasBirthTime) {
      return birthSeconds == other.birthSeconds && birthNanoseconds == other.birthNanoseconds;
    }
    return true;
  }
};

void putBE(uint8_t* p, uint64_t value, size_t width) {
  for (size_t i = 0; i < width; ++i) {
    p[i] = static_cast<uint8_t>(value >> (8 * (width - 1 - i)));
  }
}

uint64_t getBE(const uint8_t* p, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i)
    value = (value << 8) | p[i];
  return value;
}

Result<Identity> identityOf(const std::string& path) {
  struct statx info {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &info) != 0) {
    const int error = errno;
    return Status::error(error == ENOENT || error == ENOTDIR ? fnfErr : osStatusForErrno(error),
                         "cannot find \"" + path + "\"");
  }
  Identity id;
  id.device = makedev(info.stx_dev_major, info.stx_dev_minor);
  id.inode = info.stx_ino;
  if (info.stx_mask & STATX_BTIME) {
    id.hasBirthTime = true;
    id.birthSeconds = info.stx_btime.tv_sec;
    id.birthNanoseconds = info.stx_btime.tv_nsec;
  }
  return id;
}

Result<std::string> absolutePath(const std::string& path) {
  if (path.empty() || path.find('\0') != std::string::npos) {
    return Status::error(paramErr, "a file reference needs a path without NUL bytes");
  }
  std::string absolute = path;
  if (path[0] != '/') {
    char buffer[kMaxPathLength];
    if (!::getcwd(buffer, sizeof buffer)) {
      return Status::error(ioErr, "cannot find the current directory");
    }
    absolute = std::string(buffer) + "/" + path;
  }
  if (absolute.size() > kMaxPathLength) {
    return Status::error(paramErr, "the path is longer than 4096 bytes");
  }
  return absolute;
}

// Checks that `path` still names the file of `expected`.
Result<std::string> confirm(std::string path, const Identity& expected) {
  Result<Identity> now = identityOf(path);
  if (!now.ok() || !now->sameFileAs(expected)) {
    return Status::error(fnfErr, "the file \"" + path + "\" is gone or was replaced");
  }
  return path;
}

// ---- Registry -------------------------------------------------------------------------------

std::mutex& cacheMutex() {
  static std::mutex mutex;
  return mutex;
}
std::map<std::pair<uint64_t, uint64_t>, std::string>& cache() {
  static std::map<std::pair<uint64_t, uint64_t>, std::string> paths;
  return paths;
}

std::string registryEntry(const Identity& id) {
  char name[40];
  std::snprintf(name, sizeof name, "%016llx-%016llx", static_cast<unsigned long long>(id.device),
                static_cast<unsigned long long>(id.inode));
  return fileReferenceRegistryDirectory() + "/" + name;
}

Status remember(const Identity& id, const std::string& path) {
  {
    std::lock_guard<std::mutex> lock(cacheMutex());
    auto& paths = cache();
    const auto it = paths.find({id.device, id.inode});
    if (it != paths.end() && it->second == path) return Status();
  }
  FileSystem& fs = FileSystem::defaultFileSystem();
  const std::string entry = registryEntry(id);
  Result<std::string> existing = fs.readFile(entry, kMaxPathLength);
  if (!existing.ok() || *existing != path) {
    if (Status s = fs.makeDirectories(fileReferenceRegistryDirectory(), 0700); !s.ok()) {
      return Status::error(ioErr, "cannot record a file reference: " + s.message());
    }
    if (Status s = writeFileAtomically(fs, entry, path); !s.ok()) {
      return Status::error(ioErr, "cannot record a file reference: " + s.message());
    }
  }
  std::lock_guard<std::mutex> lock(cacheMutex());
  cache()[{id.device, id.inode}] = path;
  return Status();
}

std::optional<std::string> cached(const Identity& id) {
  std::lock_guard<std::mutex> lock(cacheMutex());
  const auto it = cache().find({id.device, id.inode});
  if (it == cache().end()) return std::nullopt;
  return it->second;
}

std::optional<std::string> readRegistry(const Identity& id) {
  Result<std::string> stored =
      FileSystem::defaultFileSystem().readFile(registryEntry(id), kMaxPathLength);
  if (!stored.ok() || stored->empty() || (*stored)[0] != '/' ||
      stored->find('\0') != std::string::npos) {
    return std::nullopt;
  }
  return std::move(stored).value();
}

void writeIdentity(uint8_t* p, const Identity& id) {
  putBE(p, id.device, 8);
  putBE(p + 8, id.inode, 8);
  putBE(p + 16, static_cast<uint64_t>(id.birthSeconds), 8);
  putBE(p + 24, id.birthNanoseconds, 4);
}

Identity readIdentity(const uint8_t* p, bool hasBirthTime) {
  Identity id;
  id.device = getBE(p, 8);
  id.inode = getBE(p + 8, 8);
  id.hasBirthTime = hasBirthTime;
  id.birthSeconds = static_cast<int64_t>(getBE(p + 16, 8));
  id.birthNanoseconds = static_cast<uint32_t>(getBE(p + 24, 4));
  return id;
}

}  // namespace

Result<FileReference> makeFileReference(const std::string& path) {
  Result<std::string> absolute = absolutePath(path);
  if (!absolute.ok()) return absolute.status();
  Result<Identity> id = identityOf(*absolute);
  if (!id.ok()) return id.status();

  FileReference ref;
  uint8_t* p = ref.bytes.data();
  std::copy(std::begin(kReferenceMagic), std::end(kReferenceMagic), p);
  p[4] = kVersion;
  uint8_t flags = id->hasBirthTime ? kFlagBirthTime : 0;
  putBE(p + 6, absolute->size(), 2);
  writeIdentity(p + 8, *id);
  if (absolute->size() <= kInlinePathMax) {
    std::copy(absolute->begin(), absolute->end(), p + kInlinePathOffset);
  } else {
    flags |= kFlagRegistry;
    if (Status s = remember(*id, *absolute); !s.ok()) return s;
  }
  p[5] = flags;
  return ref;
}

Result<std::string> resolveFileReference(std::span<const uint8_t> bytes) {
  if (bytes.size() != kFileReferenceSize ||
      !std::equal(std::begin(kReferenceMagic), std::end(kReferenceMagic), bytes.begin()) ||
      bytes[4] != kVersion) {
    return Status::error(paramErr, "not a file reference");
  }
  const uint8_t flags = bytes[5];
  const size_t length = getBE(bytes.data() + 6, 2);
  const Identity id = readIdentity(bytes.data() + 8, (flags & kFlagBirthTime) != 0);
  if (flags & kFlagRegistry) {
    // This process's memory first; another process may have recorded a newer path since.
    if (std::optional<std::string> path = cached(id)) {
      Result<std::string> confirmed = confirm(std::move(*path), id);
      if (confirmed.ok()) return confirmed;
    }
    std::optional<std::string> path = readRegistry(id);
    if (!path) return Status::error(fnfErr, "the file reference is not in the registry");
    Result<std::string> confirmed = confirm(*path, id);
    if (confirmed.ok()) {
      std::lock_guard<std::mutex> lock(cacheMutex());
      cache()[{id.device, id.inode}] = *path;
    }
    return confirmed;
  }
  if (length == 0 || length > kInlinePathMax) {
    return Status::error(paramErr, "file reference with a bad path length");
  }
  std::string path(reinterpret_cast<const char*>(bytes.data()) + kInlinePathOffset, length);
  if (path.find('\0') != std::string::npos) {
    return Status::error(paramErr, "file reference with a NUL in its path");
  }
  return confirm(std::move(path), id);
}

Result<std::vector<uint8_t>> makeAliasRecord(const std::string& path) {
  Result<std::string> absolute = absolutePath(path);
  if (!absolute.ok()) return absolute.status();
  Result<Identity> id = identityOf(*absolute);
  if (!id.ok()) return id.status();
  std::vector<uint8_t> record(kAliasHeaderSize + absolute->size());
  uint8_t* p = record.data();
  std::copy(std::begin(kAliasMagic), std::end(kAliasMagic), p);
  putBE(p + 4, kVersion, 2);
  putBE(p + 6, id->hasBirthTime ? kFlagBirthTime : 0, 2);
  writeIdentity(p + 8, *id);
  putBE(p + 36, absolute->size(), 4);
  std::copy(absolute->begin(), absolute->end(), p + kAliasHeaderSize);
  return record;
}

Result<std::string> resolveAliasRecord(std::span<const uint8_t> bytes) {
  if (bytes.size() < kAliasHeaderSize ||
      !std::equal(std::begin(kAliasMagic), std::end(kAliasMagic), bytes.begin()) ||
      getBE(bytes.data() + 4, 2) != kVersion) {
    return Status::error(paramErr, "not an alias record");
  }
  const uint64_t length = getBE(bytes.data() + 36, 4);
  if (length == 0 || length > kMaxPathLength || length != bytes.size() - kAliasHeaderSize) {
    return Status::error(paramErr, "alias record with a bad path length");
  }
  std::string path(reinterpret_cast<const char*>(bytes.data()) + kAliasHeaderSize, length);
  if (path.find('\0') != std::string::npos || path[0] != '/') {
    return Status::error(paramErr, "alias record with a bad path");
  }
  const Identity id = readIdentity(bytes.data() + 8, (getBE(bytes.data() + 6, 2) & 2) != 0);
  return confirm(std::move(path), id);
}

Result<Descriptor> makeFileReferenceDesc(const std::string& path) {
  Result<FileReference> ref = makeFileReference(path);
  if (!ref.ok()) return ref.status();
  return Descriptor::fromBytes(typeFSRef, ref->bytes);
}

Result<Descriptor> makeAliasDesc(const std::string& path) {
  Result<std::vector<uint8_t>> record = makeAliasRecord(path);
  if (!record.ok()) return record.status();
  return Descriptor::fromBytes(typeAlias, *record);
}

Descriptor makeFileURLDesc(const std::string& path) {
  const std::string url = Url::fileUrlWithPath(path).string();
  return Descriptor::fromBytes(typeFileURL,
                               {reinterpret_cast<const uint8_t*>(url.data()), url.size()});
}

std::string fileReferenceRegistryDirectory() {
  if (const char* dir = std::getenv("RVITUNES_FILEREF_DIR"); dir && *dir) return dir;
  if (const char* cacheHome = std::getenv("XDG_CACHE_HOME"); cacheHome && *cacheHome == '/') {
    return std::string(cacheHome) + "/rvitunes/file-references";
  }
  std::string home;
  if (const char* env = std::getenv("HOME"); env && *env == '/') {
    home = env;
  } else {
    char buffer[4096];
    struct passwd entry {};
    struct passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found &&
        found->pw_dir && found->pw_dir[0] == '/') {
      home = found->pw_dir;
    } else {
      home = "/tmp/rvitunes-" + std::to_string(::getuid());
    }
  }
  return home + "/.cache/rvitunes/file-references";
}

void clearFileReferenceCache() {
  std::lock_guard<std::mutex> lock(cacheMutex());
  cache().clear();
}

}  // namespace rvitunes::ae
