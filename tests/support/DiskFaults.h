// Disk faults for the suites that save files: a file system that fails a chosen operation or
// "dies" at a chosen call, the table of faults an atomic replacement can meet, and helpers that
// run a scenario in a forked child (as an unprivileged user, or on a tiny tmpfs of its own).
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/base/FileSystem.h"

namespace rvitunes::testing::support {

// The operations of the FileSystem seam.
enum class FsOp {
  kReadFile,
  kFileExists,
  kIsDirectory,
  kModificationDate,
  kPermissions,
  kCreateTemporary,
  kWriteAll,
  kSyncFile,
  kCloseFile,
  kRename,
  kRemoveFile,
  kSyncDirectory,
  kMakeDirectories,
};

inline const char* fsOpName(FsOp op) {
  switch (op) {
    case FsOp::kReadFile:
      return "readFile";
    case FsOp::kFileExists:
      return "fileExists";
    case FsOp::kIsDirectory:
      return "isDirectory";
    case FsOp::kModificationDate:
      return "modificationDate";
    case FsOp::kPermissions:
      return "permissions";
    case FsOp::kCreateTemporary:
      return "createTemporary";
    case FsOp::kWriteAll:
      return "writeAll";
    case FsOp::kSyncFile:
      return "syncFile";
    case FsOp::kCloseFile:
      return "closeFile";
    case FsOp::kRename:
      return "rename";
    case FsOp::kRemoveFile:
      return "removeFile";
    case FsOp::kSyncDirectory:
      return "syncDirectory";
    case FsOp::kMakeDirectories:
      return "makeDirectories";
  }
  return "?";
}

// How much of its buffer a failing writeAll puts in the file before it reports the error: a
// full disk or an exhausted quota usually takes part of a write first.
enum class ShortWrite { kNothing, kOneByte, kHalf, kAllButOne };

inline size_t shortWriteLength(ShortWrite kind, size_t size) {
  switch (kind) {
    case ShortWrite::kNothing:
      return 0;
    case ShortWrite::kOneByte:
      return size > 0 ? 1 : 0;
    case ShortWrite::kHalf:
      return size / 2;
    case ShortWrite::kAllButOne:
      return size > 0 ? size - 1 : 0;
  }
  return 0;
}

struct DiskFault {
  FsOp op;
  int error;                                  // the errno the operation reports
  ShortWrite written = ShortWrite::kNothing;  // writeAll only

  std::string describe() const {
    std::string text = std::string(fsOpName(op)) + " " + std::strerror(error);
    if (op == FsOp::kWriteAll) {
      static const char* const kWritten[] = {"nothing", "one byte", "half", "all but one byte"};
      text += std::string(" after writing ") + kWritten[static_cast<int>(written)];
    }
    return text;
  }
};

// The status a caller must see for `error`: a full disk or quota is dskFulErr, a refused
// permission or a read-only mount wrPermErr, anything else ioErr. Written out here rather than
// taken from osStatusForErrno, so that a wrong mapping there is caught.
inline OSStatus expectedStatusFor(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return dskFulErr;
    case EACCES:
    case EPERM:
    case EROFS:
      return wrPermErr;
    default:
      return ioErr;
  }
}

// Every fault an atomic replacement can meet at each of its steps, with the errors a real
// system reports there: permissions and read-only mounts where a name is made or changed, a
// full disk or quota wherever blocks may be allocated (delayed allocation and network file
// systems report them as late as fsync and close), I/O errors anywhere.
inline std::vector<DiskFault> atomicWriteFaults() {
  using enum FsOp;
  std::vector<DiskFault> faults = {
      {kCreateTemporary, EACCES}, {kCreateTemporary, EROFS}, {kCreateTemporary, ENOSPC},
      {kCreateTemporary, EDQUOT}, {kCreateTemporary, EIO},
  };
  for (ShortWrite written :
       {ShortWrite::kNothing, ShortWrite::kOneByte, ShortWrite::kHalf, ShortWrite::kAllButOne}) {
    faults.push_back({kWriteAll, ENOSPC, written});
    faults.push_back({kWriteAll, EDQUOT, written});
  }
  faults.push_back({kWriteAll, EIO, ShortWrite::kHalf});
  for (int error : {EIO, ENOSPC, EDQUOT}) {
    faults.push_back({kSyncFile, error});
    faults.push_back({kCloseFile, error});
  }
  for (int error : {EROFS, EACCES, ENOSPC, EDQUOT, EIO})
    faults.push_back({kRename, error});
  faults.push_back({kSyncDirectory, EIO});
  return faults;
}

// The real file system with faults on top. Records every call. A fault fails the first call of
// its operation (a failing close still releases the descriptor, as close does). Dying at call k
// stops everything from call k on as a killed process would: nothing more reaches the disk, so
// a temporary stays where it is, possibly half written (`tornWrite` lets a dying writeAll put
// half its bytes in first). Descriptors are still closed, as the kernel does for a dead
// process. Thread-safe.
class FaultInjectingFileSystem : public FileSystem {
 public:
  FaultInjectingFileSystem() = default;
  explicit FaultInjectingFileSystem(DiskFault fault) { faults_.push_back(fault); }

  void addFault(DiskFault fault) {
    std::lock_guard lock(mutex_);
    faults_.push_back(fault);
  }
  void clearFaults() {
    std::lock_guard lock(mutex_);
    faults_.clear();
  }
  void dieAtCall(size_t call, bool tornWrite = false) {
    std::lock_guard lock(mutex_);
    dieAt_ = call;
    tornWrite_ = tornWrite;
  }
  std::vector<FsOp> calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  bool dead() const {
    std::lock_guard lock(mutex_);
    return dead_;
  }
  int injected() const {
    std::lock_guard lock(mutex_);
    return injected_;
  }

  Result<std::string> readFile(const std::string& path, uint64_t maxBytes) override {
    if (const auto fault = enter(FsOp::kReadFile)) return *fault;
    return real().readFile(path, maxBytes);
  }
  bool fileExists(const std::string& path) override {
    (void)enter(FsOp::kFileExists);
    return real().fileExists(path);
  }
  bool isDirectory(const std::string& path) override {
    (void)enter(FsOp::kIsDirectory);
    return real().isDirectory(path);
  }
  std::optional<Date> modificationDate(const std::string& path) override {
    (void)enter(FsOp::kModificationDate);
    return real().modificationDate(path);
  }
  std::optional<uint32_t> permissions(const std::string& path) override {
    (void)enter(FsOp::kPermissions);
    return real().permissions(path);
  }
  Result<TemporaryFile> createTemporary(const std::string& dir, const std::string& prefix,
                                        std::optional<uint32_t> mode) override {
    if (const auto fault = enter(FsOp::kCreateTemporary)) return *fault;
    return real().createTemporary(dir, prefix, mode);
  }
  Status writeAll(int fd, std::string_view bytes) override {
    ShortWrite written = ShortWrite::kNothing;
    if (const auto fault = enter(FsOp::kWriteAll, &written)) {
      (void)real().writeAll(fd, bytes.substr(0, shortWriteLength(written, bytes.size())));
      return *fault;
    }
    return real().writeAll(fd, bytes);
  }
  Status syncFile(int fd) override {
    if (const auto fault = enter(FsOp::kSyncFile)) return *fault;
    return real().syncFile(fd);
  }
  Status closeFile(int fd) override {
    const auto fault = enter(FsOp::kCloseFile);
    const Status closed = real().closeFile(fd);
    return fault ? *fault : closed;
  }
  Status rename(const std::string& from, const std::string& to) override {
    if (const auto fault = enter(FsOp::kRename)) return *fault;
    return real().rename(from, to);
  }
  Status removeFile(const std::string& path) override {
    if (const auto fault = enter(FsOp::kRemoveFile)) return *fault;
    return real().removeFile(path);
  }
  Status syncDirectory(const std::string& dir) override {
    if (const auto fault = enter(FsOp::kSyncDirectory)) return *fault;
    return real().syncDirectory(dir);
  }
  Status makeDirectories(const std::string& path, uint32_t mode) override {
    if (const auto fault = enter(FsOp::kMakeDirectories)) return *fault;
    return real().makeDirectories(path, mode);
  }

 private:
  static FileSystem& real() { return FileSystem::defaultFileSystem(); }

  // Records the call; answers the failure it must report instead of doing its work, if any.
  // For a failing writeAll, `written` receives how much to write first.
  std::optional<Status> enter(FsOp op, ShortWrite* written = nullptr) {
    std::lock_guard lock(mutex_);
    calls_.push_back(op);
    if (!dead_ && dieAt_ && calls_.size() >= *dieAt_) {
      dead_ = true;
      if (written && tornWrite_) *written = ShortWrite::kHalf;
      return Status::error(ioErr, std::string("the process died at ") + fsOpName(op));
    }
    if (dead_) return Status::error(ioErr, std::string("the process is dead: ") + fsOpName(op));
    for (auto it = faults_.begin(); it != faults_.end(); ++it) {
      if (it->op != op) continue;
      const DiskFault fault = *it;
      faults_.erase(it);
      ++injected_;
      if (written) *written = fault.written;
      return Status::error(
          osStatusForErrno(fault.error),
          std::string("injected failure of ") + fsOpName(op) + ": " + std::strerror(fault.error));
    }
    return std::nullopt;
  }

  mutable std::mutex mutex_;
  std::vector<DiskFault> faults_;
  std::vector<FsOp> calls_;
  std::optional<size_t> dieAt_;
  bool tornWrite_ = false;
  bool dead_ = false;
  int injected_ = 0;
};

// One place to kill a writer: at call number `call` (1-based) of a recorded run, for a write
// call also half way through it (`torn`). `afterRename` tells whether the rename had already
// happened, so the target must hold the new bytes; `label` names the point for a trace.
struct KillPoint {
  size_t call = 0;
  bool torn = false;
  bool afterRename = false;
  std::string label;
};

// Every kill point of the calls a successful run made, in order. Empty when those calls hold no
// rename, which a test of an atomic replacement should treat as a failure of its recording.
inline std::vector<KillPoint> killPoints(const std::vector<FsOp>& calls) {
  std::vector<KillPoint> points;
  const auto rename = std::find(calls.begin(), calls.end(), FsOp::kRename);
  if (rename == calls.end()) return points;
  const size_t renameCall = static_cast<size_t>(rename - calls.begin()) + 1;
  for (size_t call = 1; call <= calls.size(); ++call) {
    for (bool torn : {false, true}) {
      if (torn && calls[call - 1] != FsOp::kWriteAll) continue;
      points.push_back({call, torn, call > renameCall,
                        "killed at call " + std::to_string(call) + ", " +
                            fsOpName(calls[call - 1]) + (torn ? " (half written)" : "")});
    }
  }
  return points;
}

// The names in `dir`.
inline std::set<std::string> entriesOf(const std::string& dir) {
  std::set<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ignored))
    names.insert(entry.path().filename().string());
  return names;
}

// What a scenario run in a child process reported.
struct ChildOutcome {
  bool skipped = false;
  std::string failure;  // empty when the child passed; the reason to skip when skipped
};

// Runs `scenario` in a forked child and collects what it answers: "" for success, text starting
// with "SKIP: " to skip, anything else as a failure. A child that crashes or hangs past
// `seconds` is a failure.
inline ChildOutcome runInChild(const std::function<std::string()>& scenario,
                               unsigned seconds = 60) {
  int fds[2];
  if (::pipe(fds) != 0) return {false, "pipe failed"};
  const pid_t child = ::fork();
  if (child < 0) {
    ::close(fds[0]);
    ::close(fds[1]);
    return {false, "fork failed"};
  }
  if (child == 0) {
    ::close(fds[0]);
    ::alarm(seconds);
    const std::string report = scenario();
    for (size_t done = 0; done < report.size();) {
      const ssize_t n = ::write(fds[1], report.data() + done, report.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    ::_exit(0);  // no atexit handlers of the test program in the child
  }
  ::close(fds[1]);
  std::string report;
  char buffer[4096];
  for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    report.append(buffer, static_cast<size_t>(n));
  }
  ::close(fds[0]);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    return {false, "the child ended abnormally (status " + std::to_string(status) + ") " + report};
  }
  if (report.starts_with("SKIP: ")) return {true, report.substr(6)};
  return {false, report};
}

// The user that read-only scenarios run as when the tests run as root, for whom permission
// bits mean nothing.
inline constexpr uid_t kUnprivilegedId = 65534;

// Prepares `tree` for a child that gives up root: hands it to the unprivileged user. Nothing to
// do when not root. Answers an error text, "" on success.
inline std::string handOverToUnprivileged(const std::string& tree) {
  if (::geteuid() != 0) return "";
  std::error_code error;
  if (::chown(tree.c_str(), kUnprivilegedId, kUnprivilegedId) != 0) return "chown failed";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(tree, error)) {
    if (::lchown(entry.path().c_str(), kUnprivilegedId, kUnprivilegedId) != 0) {
      return "chown failed";
    }
  }
  return error ? error.message() : "";
}

// In a child: drops root for the unprivileged user, then checks that a folder with mode 0500
// really refuses new files. Answers "" when permissions now bind, else a "SKIP: " reason.
inline std::string dropPrivilegesAndProbe(const std::string& probeFolder) {
  if (::geteuid() == 0) {
    if (::setgroups(0, nullptr) != 0 || ::setgid(kUnprivilegedId) != 0 ||
        ::setuid(kUnprivilegedId) != 0) {
      return "SKIP: cannot drop root privileges: " + std::string(std::strerror(errno));
    }
  }
  if (::chmod(probeFolder.c_str(), 0500) != 0) {
    return "SKIP: cannot make the folder read-only: " + std::string(std::strerror(errno));
  }
  const std::string probe = probeFolder + "/.probe";
  const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const int error = errno;
  ::chmod(probeFolder.c_str(), 0700);
  if (fd >= 0) {
    ::close(fd);
    ::unlink(probe.c_str());
    return "SKIP: permission bits do not bind this process";
  }
  if (error != EACCES) return "SKIP: unexpected probe error " + std::string(std::strerror(error));
  return "";
}

// In a child: mounts a tmpfs of `size` (e.g. "64k") on `folder` in a mount namespace of the
// child's own, so nothing is seen outside it and it vanishes with the child. Answers "" on
// success, else a "SKIP: " reason (not root, no namespaces, no tmpfs).
inline std::string mountPrivateTmpfs(const std::string& folder, const std::string& size) {
  if (::unshare(CLONE_NEWNS) != 0) {
    return "SKIP: no private mount namespace: " + std::string(std::strerror(errno));
  }
  // Without this, a mount under a shared "/" would show up in the parent's namespace too.
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return "SKIP: cannot make the mounts private: " + std::string(std::strerror(errno));
  }
  const std::string options = "size=" + size + ",mode=0700";
  if (::mount("rvitunes-test", folder.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) !=
      0) {
    return "SKIP: cannot mount a tmpfs: " + std::string(std::strerror(errno));
  }
  return "";
}

// Fills the file system holding `path` by writing to it until the device reports it full.
// Answers the bytes written, or nullopt when the write failed for another reason.
inline std::optional<size_t> fillDisk(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return std::nullopt;
  const std::string block(4096, 'f');
  size_t total = 0;
  for (;;) {
    const ssize_t n = ::write(fd, block.data(), block.size());
    if (n > 0) {
      total += static_cast<size_t>(n);
      continue;
    }
    const int error = n < 0 ? errno : ENOSPC;
    if (error == EINTR) continue;
    ::close(fd);
    if (error != ENOSPC) return std::nullopt;
    return total;
  }
}

}  // namespace rvitunes::testing::support
