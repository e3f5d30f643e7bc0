#include "rvitunes/platform/SharedPreferences.h"

#include <span>

#include "platform/Environment.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/platform/UserDefaults.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::platform {

std::vector<std::string> SharedPreferences::candidatePaths(std::string_view domain) {
  if (!Environment::isPlainFileName(domain)) return {};
  const std::string file = "/" + std::string(domain) + ".plist";
  return {Environment::homeDirectory() + "/Library/Preferences" + file,
          UserDefaults::defaultDirectory() + file};
}

plist::Value SharedPreferences::copyAppValue(std::string_view key, std::string_view domain,
                                             FileSystem& fs) {
  for (const std::string& path : candidatePaths(domain)) {
    Result<std::string> bytes = fs.readFile(path, kMaxFileBytes);
    if (!bytes) {
      if (bytes.status().code() != fnfErr) NullLog("%s", bytes.status().message().c_str());
      continue;
    }
    const auto* data = reinterpret_cast<const uint8_t*>(bytes->data());
    // Every value comes out of a tree made for this call, so nobody else shares it.
    const plist::ParseResult parsed = plist::PropertyList::read(std::span(data, bytes->size()));
    if (!parsed.ok()) {
      NullLog("cannot read \"%s\": %s", path.c_str(), parsed.describe().c_str());
      continue;
    }
    const plist::Dictionary* root = parsed.root.asDictionary();
    if (root == nullptr) continue;
    if (const plist::Value* found = root->find(key)) return *found;
  }
  return plist::Value();
}

}  // namespace rvitunes::platform
