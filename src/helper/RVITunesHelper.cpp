#include "rvitunes/helper/RVITunesHelper.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/helper/LibraryAlerts.h"
#include "rvitunes/platform/Dialogs.h"
#include "rvitunes/platform/SharedPreferences.h"
#include "rvitunes/platform/UserDefaults.h"
#include "rvitunes/plist/Array.h"

namespace rvitunes {

namespace {

// The user's home folder without a trailing separator: $HOME, else the password database.
std::string homeFolder() {
  std::string home;
  if (const char* env = std::getenv("HOME"); env != nullptr && *env != '\0') {
    home = env;
  } else if (const passwd* pw = getpwuid(getuid()); pw != nullptr && pw->pw_dir != nullptr) {
    home = pw->pw_dir;
  }
  while (!home.empty() && home.back() == '/')
    home.pop_back();
  return home;
}

std::optional<std::string> storedLibraryPath() {
  return platform::UserDefaults::standardUserDefaults()->stringForKey(kiTunesLibraryXMLPathKey);
}

void storeLibraryPath(const std::string& path) {
  // A default that cannot be written only means the user is asked again next time; the
  // settings file reports its own trouble through lastLoadProblem().
  (void)platform::UserDefaults::standardUserDefaults()->setStringForKey(path,
                                                                        kiTunesLibraryXMLPathKey);
}

bool fileExists(const std::string& path) {
  return FileSystem::defaultFileSystem().fileExists(path);
}

}  // namespace

std::shared_ptr<RVITunesHelper> RVITunesHelper::sharediTunesHelper() {
  static const std::shared_ptr<RVITunesHelper> shared = std::make_shared<RVITunesHelper>();
  return shared;
}

RVITunesHelper::RVITunesHelper() : xmlInfodate_(Date::fromUnixTime(0.0)) {}

RVITunesHelper::~RVITunesHelper() = default;

std::string RVITunesHelper::defaultiTunesXmlPath() const {
  return homeFolder() + "/Music/iTunes/iTunes Music Library.xml";
}

std::optional<std::string> RVITunesHelper::enumeratorPropertyList() const {
  plist::Value recent =
      platform::SharedPreferences::copyAppValue(kiTunesRecentDatabasesKey, kiAppsDomain);
  const plist::Array* list = recent.asArray();
  if (list == nullptr) return std::nullopt;
  for (const plist::Value& element : *list) {
    if (!element.isString()) continue;
    std::optional<Url> url = Url::parse(element.stringView());
    if (!url) continue;
    std::optional<std::string> path = url->path();
    if (!path) continue;
    if (fileExists(*path)) return path;
  }
  return std::nullopt;
}

std::optional<std::string> RVITunesHelper::playlistLibraryFilePath() {
  std::optional<std::string> candidate;
  if (std::optional<std::string> stored = storedLibraryPath(); stored && fileExists(*stored)) {
    candidate = std::move(stored);
  } else {
    candidate = enumeratorPropertyList();
    if (!candidate) candidate = defaultiTunesXmlPath();
  }

  if (!candidate || !fileExists(*candidate)) {
    int answer = LoadiTunesMusicLibraryErrorAlertMessage();
    if (answer == platform::kAlertAlternateReturn) return std::nullopt;
    if (answer == platform::kAlertDefaultReturn) {
      platform::OpenPanelRequest panel;
      panel.allowsMultipleSelection = false;
      panel.canChooseDirectories = false;
      panel.allowedFileTypes = {"xml"};
      std::optional<std::vector<std::string>> chosen =
          platform::Dialogs::current()->runOpenPanel(panel);
      if (!chosen) return std::nullopt;
      if (chosen->empty()) {
        candidate.reset();
      } else {
        candidate = chosen->front();
      }
    }
    // Any other answer keeps the candidate found so far.
  }
  if (!candidate) return std::nullopt;

  if (fileExists(*candidate)) {
    std::optional<std::string> stored = storedLibraryPath();
    if (!stored || *stored != *candidate) storeLibraryPath(*candidate);
  }
  return candidate;
}

void RVITunesHelper::setPlaylistLibraryFilePath(const std::optional<std::string>& path) {
  if (path && fileExists(*path)) storeLibraryPath(*path);
}

bool RVITunesHelper::isiTunesLibraryFileUpdate() {
  std::optional<std::string> path = playlistLibraryFilePath();
  if (!path) return false;
  return isLibraryFileUpdatedAtPath(*path);
}

bool RVITunesHelper::isLibraryFileUpdatedAtPath(const std::string& path) const {
  std::optional<Date> modified = FileSystem::defaultFileSystem().modificationDate(path);
  if (!xmlInfodate_) return true;
  if (!modified) return false;
  return *xmlInfodate_ < *modified;
}

}  // namespace rvitunes
