#include "DemoSample.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <filesystem>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"
#include "rvitunes/plist/XmlWriter.h"

namespace rvitunes::cli {

namespace {

namespace fs = std::filesystem;

std::span<const uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// A relative path that stays inside the folder it is taken against.
bool staysInside(std::string_view path) {
  const fs::path relative(path);
  if (path.empty() || relative.is_absolute()) return false;
  for (const fs::path& part : relative) {
    if (part == "..") return false;
  }
  return true;
}

// The file URL of the folder `path`, in the style of `like` ("file://localhost/..." or
// "file:///...").
std::string folderUrl(const std::string& path, std::string_view like) {
  std::string url = Url::fileUrlWithPath(path, true).string();
  if (url.empty() || url.back() != '/') url += '/';
  constexpr std::string_view kLocalhost = "file://localhost/";
  if (like.substr(0, kLocalhost.size()) == kLocalhost && url.rfind("file:///", 0) == 0) {
    url.insert(7, "localhost");
  }
  return url;
}

Status setModificationTime(const std::string& path, const Date& date) {
  const double seconds = date.unixTime();
  timespec times[2];
  times[0].tv_sec = 0;
  times[0].tv_nsec = UTIME_OMIT;  // access time stays
  times[1].tv_sec = static_cast<time_t>(std::floor(seconds));
  times[1].tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
    return Status::error(osStatusForErrno(errno), "cannot set the date of " + path);
  }
  return Status::success();
}

}  // namespace

Result<RebasedLibrary> rebaseMusicFolder(std::string_view xml, const std::string& mediaFolder) {
  plist::ParseResult parsed = plist::PropertyList::read(bytesOf(xml));
  if (!parsed.ok()) {
    return Status::error(ioErr, "the library file does not read: " + parsed.describe());
  }
  plist::Dictionary* root = parsed.root.asDictionary();
  if (root == nullptr) return Status::error(paramErr, "the library file holds no dictionary");
  const plist::Value* folder = root->find("Music Folder");
  if (folder == nullptr || !folder->isString()) {
    return Status::error(paramErr, "the library file names no Music Folder");
  }

  RebasedLibrary out;
  out.oldMusicFolder = folder->stringValue();
  out.newMusicFolder = folderUrl(mediaFolder, out.oldMusicFolder);
  root->set("Music Folder", plist::Value::string(out.newMusicFolder));
  if (const plist::Value* date = root->find("Date"); date && date->isDate()) {
    out.date = date->dateValue();
  }
  if (const plist::Value* tracks = root->find("Tracks"); tracks && tracks->asDictionary()) {
    for (auto& entry : *tracks->asDictionary()) {
      plist::Dictionary* track = entry.value.asDictionary();
      plist::Value* location = track ? track->find("Location") : nullptr;
      if (location == nullptr || !location->isString()) continue;
      const std::string_view text = location->stringView();
      if (text.substr(0, out.oldMusicFolder.size()) != out.oldMusicFolder) continue;
      *location = plist::Value::string(out.newMusicFolder +
                                       std::string(text.substr(out.oldMusicFolder.size())));
      ++out.locationsMoved;
    }
  }
  Result<std::string> written = plist::XmlWriter::write(parsed.root, parsed.entityStyle);
  if (!written) return written.status();
  out.bytes = std::move(*written);
  return out;
}

Result<SampleLayout> layOutSample(std::span<const EmbeddedFile> files, const std::string& folder) {
  SampleLayout layout;
  layout.libraryPath = (fs::path(folder) / kSampleLibraryName).string();
  layout.mediaFolder = (fs::path(folder) / kSampleMediaFolder).string();
  FileSystem& disk = FileSystem::defaultFileSystem();

  const EmbeddedFile* library = nullptr;
  for (const EmbeddedFile& file : files) {
    if (!staysInside(file.path)) {
      return Status::error(paramErr,
                           "the sample holds a path outside its folder: " + std::string(file.path));
    }
    if (file.path == kSampleLibraryName) library = &file;
  }
  if (library == nullptr) return Status::error(paramErr, "the sample holds no library file");

  const std::string_view libraryText(reinterpret_cast<const char*>(library->bytes.data()),
                                     library->bytes.size());
  Result<RebasedLibrary> rebased = rebaseMusicFolder(libraryText, layout.mediaFolder);
  if (!rebased) return rebased.status();
  layout.locationsMoved = rebased->locationsMoved;

  for (const EmbeddedFile& file : files) {
    const fs::path target = fs::path(folder) / file.path;
    if (Status made = disk.makeDirectories(target.parent_path().string(), 0755); !made.ok()) {
      return made;
    }
    const std::string_view bytes =
        &file == library
            ? std::string_view(rebased->bytes)
            : std::string_view(reinterpret_cast<const char*>(file.bytes.data()), file.bytes.size());
    if (Status written = writeFileAtomically(disk, target.string(), bytes); !written.ok()) {
      return written;
    }
    layout.bytes += bytes.size();
    if (&file != library) ++layout.mediaFiles;
  }

  // The file date a host compares with is when the player last wrote the library.
  if (rebased->date) {
    if (Status dated = setModificationTime(layout.libraryPath, *rebased->date); !dated.ok()) {
      return dated;
    }
  }
  return layout;
}

}  // namespace rvitunes::cli
