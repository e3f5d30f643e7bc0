// The per-user bus directory: where applications that accept events over a Unix socket
// register. Each registered application has a socket "<signature as 8 hex digits>.sock" (mode
// 0600) and a registration record "<hex>.app" giving its name, signature and process id.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

// One application registered on the bus.
struct BusRegistration {
  OSType signature = 0;
  std::string name;
  int32_t pid = 0;
  std::string socketPath;
};

// A verified bus directory. The directory must be a real directory (not a symbolic link) owned
// by the effective user, with no permission bits for group or others; every operation that
// relies on it checks this again, so a directory changed behind our back is refused rather
// than trusted. Copyable value; all members are thread-safe.
class BusDirectory {
 public:
  // The path the environment selects: "$XDG_RUNTIME_DIR/rvitunes" when XDG_RUNTIME_DIR holds an
  // absolute path, else "/tmp/rvitunes-<uid>". Nothing is created or checked.
  static std::string defaultPath();

  // Creates `path` (mode 0700; its parent must exist) when it is missing, then verifies it.
  // wrPermErr when it is a symbolic link or not a directory, belongs to another user, or grants
  // group or other access; the errno mapping when it cannot be created or examined. paramErr
  // for a relative path or one too long for a socket address below it.
  static Result<BusDirectory> open(const std::string& path);
  // open(defaultPath()).
  static Result<BusDirectory> openDefault();

  const std::string& path() const { return path_; }
  // Checks owner, type and mode again (as open does, without creating).
  Status verify() const;

  std::string socketPath(OSType signature) const;
  std::string recordPath(OSType signature) const;

  // The registration of `signature` when its record is readable and its socket has a listener;
  // nullopt otherwise (nothing registered, or a stale entry left by a process that died).
  std::optional<BusRegistration> find(OSType signature) const;
  // The live registration whose process id is `pid`, if any.
  std::optional<BusRegistration> findByPid(int32_t pid) const;
  // Every live registration, ordered by name then signature. Stale entries are skipped, not
  // removed (removal is left to the next registration of that signature).
  std::vector<BusRegistration> applications() const;

  // Writes the record of `registration` atomically with mode 0600. paramErr when the name is
  // empty, longer than kMaxNameLength bytes or holds a control character.
  Status writeRecord(const BusRegistration& registration) const;
  // Reads and checks the record of `signature` (at most 4 KiB); fnfErr when there is none,
  // errAECorruptData when it is malformed, names another signature, or is not a regular file
  // of the effective user. A symbolic link is not followed (the errno mapping of ELOOP).
  // socketPath is filled in.
  Result<BusRegistration> readRecord(OSType signature) const;

  static constexpr size_t kMaxNameLength = 255;

 private:
  explicit BusDirectory(std::string path) : path_(std::move(path)) {}
  std::string path_;
};

// True when something accepts connections on the Unix socket at `path`, and it runs as the
// effective user as far as can be told (a listener whose backlog is full cannot be asked).
bool busSocketHasListener(const std::string& path);

// Both ends of every bus connection read the other end's user id from the kernel (SO_PEERCRED)
// right after connecting and refuse a peer whose id is not the effective uid, or whose id
// cannot be read. For tests that need such a peer on a machine without a second user, a reader
// installed here answers in the kernel's place (nullopt: the id cannot be read); nullptr
// restores the kernel. Answers the reader installed before. Process-wide and thread-safe; the
// reader runs on the bus threads of both ends.
using BusPeerUidReader = std::optional<uid_t> (*)(int fd);
BusPeerUidReader setBusPeerUidReaderForTesting(BusPeerUidReader reader);

}  // namespace rvitunes::ae
