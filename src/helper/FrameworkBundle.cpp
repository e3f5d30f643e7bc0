#include "rvitunes/helper/FrameworkBundle.h"

#include <sys/stat.h>

#include <filesystem>

#include "platform/Environment.h"

// Set by the build: the data folder relative to the installation prefix, and the icons of the
// source tree for programs run from the build tree.
#ifndef RVITUNES_INSTALL_DATADIR
#define RVITUNES_INSTALL_DATADIR "share"
#endif
#ifndef RVITUNES_BUILD_RESOURCE_DIR
#define RVITUNES_BUILD_RESOURCE_DIR ""
#endif

namespace rvitunes {
namespace {

constexpr const char* kFrameworksFolder = "/Contents/Frameworks/";
constexpr const char* kFrameworkName = "RVITunesHelper.framework";
constexpr const char* kResourcesFolder = "/Resources";

bool isDirectory(const std::string& path) {
  struct stat st {};
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isRegularFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

std::string FrameworkBundle::mainBundlePath() {
  std::error_code error;
  std::string exe = std::filesystem::read_symlink("/proc/self/exe", error).string();
  // The kernel marks an executable replaced or removed since it started.
  constexpr std::string_view kDeleted = " (deleted)";
  if (exe.ends_with(kDeleted)) exe.resize(exe.size() - kDeleted.size());
  if (error || exe.empty() || exe.front() != '/') return {};
  const std::filesystem::path prefix = std::filesystem::path(exe).parent_path().parent_path();
  const std::filesystem::path dataDir(RVITUNES_INSTALL_DATADIR);
  const std::filesystem::path bundle =
      (dataDir.is_absolute() ? dataDir : prefix / dataDir) / "rvitunes";
  return bundle.lexically_normal().string();
}

std::string FrameworkBundle::frameworkBundlePath() {
  // The layout the host application ships: main bundle, frameworks folder, framework name
  // and an empty last part, joined as they are.
  return mainBundlePath() + kFrameworksFolder + kFrameworkName + "";
}

std::string FrameworkBundle::resourceDirectory() {
  if (std::optional<std::string> dir = platform::Environment::variable(kResourceDirVariable)) {
    return *dir;
  }
  const std::string installed = frameworkBundlePath() + kResourcesFolder;
  if (isDirectory(installed)) return installed;
  return RVITUNES_BUILD_RESOURCE_DIR;
}

std::optional<std::string> FrameworkBundle::pathForResource(std::string_view name,
                                                            std::string_view type) {
  const std::string dir = resourceDirectory();
  if (dir.empty() || name.empty() || name.find('/') != std::string_view::npos) return std::nullopt;
  std::string path = dir + "/" + std::string(name);
  if (!type.empty()) path += "." + std::string(type);
  if (!isRegularFile(path)) return std::nullopt;
  return path;
}

}  // namespace rvitunes
