// Where the framework's own files (the playlist icons) are found on this platform.
//
// The host application ships the framework inside its own bundle: the framework bundle is the
// main bundle's path followed by "/Contents/Frameworks/RVITunesHelper.framework", and its
// resources are the files in that bundle's "Resources" folder, looked up by name and type
// ("lumo-books" of type "icns" is Resources/lumo-books.icns). Here the main bundle of a program
// installed as <prefix>/bin/<program> is <prefix>/share/rvitunes, so an installed framework's
// resources are in <prefix>/share/rvitunes/Contents/Frameworks/RVITunesHelper.framework/
// Resources. Details and the search order: docs/icons.md.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace rvitunes {

// The environment variable that names the framework's resource folder directly (the folder
// holding the .icns files), for tests and for running from anywhere.
inline constexpr const char* kResourceDirVariable = "RVITUNES_RESOURCE_DIR";

class FrameworkBundle {
 public:
  // <prefix>/share/rvitunes for the running executable <prefix>/bin/<program> (the folder
  // need not exist); "" when the executable's path cannot be read.
  static std::string mainBundlePath();
  // mainBundlePath() + "/Contents/Frameworks/" + "RVITunesHelper.framework".
  static std::string frameworkBundlePath();
  // The resource folder searched, in this order: $RVITUNES_RESOURCE_DIR when set and not
  // empty (used even when it does not exist, so that a test can point it at nothing); else the
  // installed bundle's Resources folder when it exists; else the resources/icons folder of the
  // source tree the framework was built from (so that the build tree works uninstalled).
  static std::string resourceDirectory();
  // The full path of the resource `name` of type `type` (<folder>/<name>.<type>) when it is a
  // regular file (or a link to one); nullopt otherwise.
  static std::optional<std::string> pathForResource(std::string_view name, std::string_view type);
};

}  // namespace rvitunes
