// Scratch folders, environment overrides and small library trees for the helper tests.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Object.h"
#include "rvitunes/plist/Value.h"
#include "support/ScratchFolder.h"

namespace rvitunes::testing {

// Scratch folders of this suite carry its name.
class ScratchFolder : public support::ScratchFolder {
 public:
  ScratchFolder() : support::ScratchFolder("rvitunes-helper") {}
};

// Sets an environment variable for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    if (const char* old = getenv(name)) old_ = old;
    setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() { old_ ? (void)setenv(name_, old_->c_str(), 1) : (void)unsetenv(name_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> old_;
};

// A stand-in for an image in the icon dictionary.
class FakeImage final : public plist::Object {
 public:
  explicit FakeImage(std::string name) : name_(std::move(name)) {}
  std::string_view typeName() const override { return "image"; }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

inline plist::Value dict(std::initializer_list<std::pair<std::string_view, plist::Value>> items) {
  plist::Value d = plist::Value::newDictionary();
  for (const auto& [key, value] : items)
    d.asDictionary()->set(key, value);
  return d;
}
inline plist::Value array(std::initializer_list<plist::Value> items) {
  return plist::Value(plist::Array::create(std::vector<plist::Value>(items)));
}
inline plist::Value yes() {
  return plist::Value::boolean(true);
}
inline plist::Value no() {
  return plist::Value::boolean(false);
}
inline plist::Value num(int64_t n) {
  return plist::Value::integer(n);
}
inline plist::Value str(std::string_view s) {
  return plist::Value::string(s);
}

// "Playlist Items" naming the given track IDs.
inline plist::Value items(std::initializer_list<int64_t> ids) {
  plist::Value a = plist::Value::newArray();
  for (int64_t id : ids)
    a.asArray()->push_back(dict({{"Track ID", num(id)}}));
  return a;
}

// An index over a tree holding the given "Tracks" and "Playlists" (nil: key absent).
inline std::shared_ptr<RVITunesInfo> libraryWith(plist::Value tracks, plist::Value playlists) {
  plist::Value root = dict({});
  if (!tracks.isNil()) root.asDictionary()->set("Tracks", tracks);
  if (!playlists.isNil()) root.asDictionary()->set("Playlists", playlists);
  return RVITunesInfo::infoWithLibrary(root.dictionaryRef());
}

}  // namespace rvitunes::testing
