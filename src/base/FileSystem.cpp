#include "rvitunes/base/FileSystem.h"

#include <errno.h>

namespace rvitunes {
namespace {

// Long names still leave room for the prefix dot and the random suffix within NAME_MAX.
constexpr size_t kMaxTemporaryNameStem = 200;

}  // namespace

OSStatus osStatusForErrno(int error) {
  switch (error) {
    case 0:
      return noErr;
    case ENOSPC:
    case EDQUOT:
      return dskFulErr;
    case EACCES:
    case EPERM:
    case EROFS:
      return wrPermErr;
    case ENOENT:
      return fnfErr;
    default:
      return ioErr;
  }
}

Status writeFileAtomically(FileSystem& fs, const std::string& path, std::string_view bytes) {
  const size_t slash = path.rfind('/');
  const std::string dir =
      slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const auto failed = [&path](const Status& step) {
    return Status::error(step.code(), "cannot save \"" + path + "\": " + step.message());
  };
  if (name.empty()) return failed(Status::error(paramErr, "the path names no file"));

  auto created = fs.createTemporary(dir, "." + name.substr(0, kMaxTemporaryNameStem) + ".",
                                    fs.permissions(path));
  if (!created) return failed(created.status());
  const FileSystem::TemporaryFile temporary = std::move(created).value();

  Status status = fs.writeAll(temporary.fd, bytes);
  if (status.ok()) status = fs.syncFile(temporary.fd);
  // Closed on every path; its own error matters only if everything before succeeded.
  const Status closed = fs.closeFile(temporary.fd);
  if (status.ok()) status = closed;
  if (status.ok()) status = fs.rename(temporary.path, path);
  if (!status.ok()) {
    fs.removeFile(temporary.path);
    return failed(status);
  }
  status = fs.syncDirectory(dir);
  if (!status.ok()) return failed(status);
  return Status::success();
}

}  // namespace rvitunes
