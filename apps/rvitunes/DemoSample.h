// The sample library that rvitunes carries inside itself (the files of examples/library, built
// in by cmake/EmbedFiles.cmake), and how the demo lays it out in a folder of its own.
//
// The sample's track locations are file URLs below its "Music Folder", and its media files sit
// below "iTunes Media/" of the sample. Laying it out writes every file below a folder and moves
// the music folder there, so that the locations name the files just written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "rvitunes/base/Date.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::cli {

// One file built into the program: its path relative to the sample folder, and its bytes.
struct EmbeddedFile {
  std::string_view path;
  std::span<const unsigned char> bytes;
};

// The sample's files, the library file among them; generated at build time. Never empty.
std::span<const EmbeddedFile> embeddedSampleFiles();

inline constexpr std::string_view kSampleLibraryName = "iTunes Music Library.xml";
inline constexpr std::string_view kSampleMediaFolder = "iTunes Media";

struct RebasedLibrary {
  std::string bytes;           // the library file, rewritten
  size_t locationsMoved = 0;   // track locations that were below the old music folder
  std::string oldMusicFolder;  // the URLs, as the file writes them
  std::string newMusicFolder;
  std::optional<Date> date;  // the library's "Date": when the player last wrote it
};

// Moves the music folder of the library file `xml` to the folder `mediaFolder` (an absolute
// path): "Music Folder" becomes its file URL (ending in '/', "file://localhost/..." when the
// old one was written that way), and every track "Location" that starts with the old URL gets
// the new one in its place. Other locations and every other key stay as they were; the file is
// written back in the player's own layout and entity style. Fails with the parser's reason for
// a file that does not read, and with paramErr when the root is not a dictionary or there is
// no "Music Folder" string.
Result<RebasedLibrary> rebaseMusicFolder(std::string_view xml, const std::string& mediaFolder);

struct SampleLayout {
  std::string libraryPath;  // <folder>/iTunes Music Library.xml
  std::string mediaFolder;  // <folder>/iTunes Media
  size_t mediaFiles = 0;    // files written besides the library file
  uint64_t bytes = 0;       // bytes written in all
  size_t locationsMoved = 0;
};

// Writes `files` below `folder` (which must exist), each at its relative path, with the
// library file rebased onto <folder>/iTunes Media (rebaseMusicFolder). The library file's
// modification time becomes its "Date" (when the player last wrote it), when it has one.
// Fails with paramErr for a path that is absolute or climbs out with "..", or when there is no
// library file among `files`; with the error of the failing write otherwise (files already
// written stay).
Result<SampleLayout> layOutSample(std::span<const EmbeddedFile> files, const std::string& folder);

}  // namespace rvitunes::cli
