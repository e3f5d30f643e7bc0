#include "rvitunes/platform/UserDefaults.h"

#include <cmath>
#include <span>

#include "platform/Environment.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::platform {
namespace {

using plist::Value;

// File systems stamp times from a coarse clock (a few milliseconds on Linux, one or two
// seconds on some), so a file changed this soon after its stamp may change again without a new
// one. Such a file is read again instead of being trusted by its time.
constexpr double kRacyStampSeconds = 2.0;
// How many "-N" variants of a corrupt file's new name are tried before giving up.
constexpr int kAsideNameAttempts = 1000;

// A copy that shares no container with `value`, so neither side sees the other's changes.
Value deepCopy(const Value& value) {
  if (const plist::Array* array = value.asArray()) {
    auto copy = plist::Array::create();
    copy->reserve(array->size());
    for (const Value& item : *array)
      copy->push_back(deepCopy(item));
    return Value(copy);
  }
  if (const plist::Dictionary* dict = value.asDictionary()) {
    auto copy = plist::Dictionary::create();
    copy->reserve(dict->size());
    for (const auto& entry : *dict)
      copy->set(entry.key, deepCopy(entry.value));
    return Value(copy);
  }
  return value;
}

struct StandardInstance {
  std::mutex mutex;
  std::string chosenDomain;  // empty: the executable's name
  std::shared_ptr<UserDefaults> instance;
};

StandardInstance& standardInstance() {
  static StandardInstance state;
  return state;
}

}  // namespace

UserDefaults::UserDefaults(std::string domain, std::string directory, FileSystem& fs)
    : domain_(std::move(domain)),
      directory_(std::move(directory)),
      usable_(Environment::isPlainFileName(domain_)),
      fs_(fs),
      values_(Value::newDictionary()) {}

std::shared_ptr<UserDefaults> UserDefaults::standardUserDefaults() {
  StandardInstance& state = standardInstance();
  std::lock_guard lock(state.mutex);
  std::string domain = state.chosenDomain;
  if (domain.empty()) domain = Environment::executableName().value_or("rvitunes");
  std::string directory = defaultDirectory();
  if (!state.instance || state.instance->domain_ != domain ||
      state.instance->directory_ != directory) {
    state.instance = std::make_shared<UserDefaults>(std::move(domain), std::move(directory));
  }
  return state.instance;
}

void UserDefaults::setStandardDomain(std::string domain) {
  StandardInstance& state = standardInstance();
  std::lock_guard lock(state.mutex);
  state.chosenDomain = std::move(domain);
}

std::string UserDefaults::defaultDirectory() {
  std::optional<std::string> config = Environment::variable("XDG_CONFIG_HOME");
  if (!config || config->front() != '/') config = Environment::homeDirectory() + "/.config";
  return *config + "/rvitunes";
}

std::string UserDefaults::path() const {
  return directory_ + "/" + domain_ + ".plist";
}

Value UserDefaults::objectForKey(std::string_view key) {
  std::lock_guard lock(mutex_);
  loadIfChanged();
  return deepCopy(values_.asDictionary()->get(key));
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) {
  const Value value = objectForKey(key);
  if (!value.isString()) return std::nullopt;
  return std::string(value.stringView());
}

Status UserDefaults::setObjectForKey(Value value, std::string_view key) {
  std::lock_guard lock(mutex_);
  if (!usable_) {
    return Status::error(
        paramErr, "cannot save settings: \"" + domain_ + "\" is not usable as a settings domain");
  }
  // Changes apply to what is on disk now, so another process's settings are kept.
  loadIfChanged();
  if (writeBlock_) return *writeBlock_;

  // A new dictionary: values_ stays as it is until the file holds the change.
  auto updated = plist::Dictionary::create();
  for (const auto& entry : *values_.asDictionary())
    updated->set(entry.key, entry.value);
  if (value.isNil()) {
    if (!updated->remove(key)) return Status::success();
  } else {
    updated->set(key, deepCopy(value));
  }
  Result<std::string> bytes =
      plist::PropertyList::encode(Value(updated), plist::OutputFormat::kXml1);
  if (!bytes) {
    return Status::error(paramErr, "cannot save the setting \"" + std::string(key) +
                                       "\": " + bytes.status().message());
  }

  if (!fs_.isDirectory(directory_)) {
    const Status made = fs_.makeDirectories(directory_, 0700);
    if (!made.ok()) return made;
  }
  const std::string file = path();
  const Status written = writeFileAtomically(fs_, file, *bytes);
  if (!written.ok()) {
    // Usually the file is untouched; after a failed directory flush it already holds the
    // change. Reading it again on the next access keeps memory and disk in agreement.
    loaded_ = false;
    return written;
  }
  values_ = Value(updated);
  loadedDate_ = fs_.modificationDate(file);
  loadedAt_ = Date::now();
  return Status::success();
}

Status UserDefaults::setStringForKey(std::string_view value, std::string_view key) {
  return setObjectForKey(Value::string(value), key);
}

Status UserDefaults::removeObjectForKey(std::string_view key) {
  return setObjectForKey(Value(), key);
}

std::optional<std::string> UserDefaults::lastLoadProblem() const {
  std::lock_guard lock(mutex_);
  return loadProblem_;
}

void UserDefaults::loadIfChanged() {
  if (!usable_) return;
  const std::string file = path();
  const std::optional<Date> stamp = fs_.modificationDate(file);
  const bool racy = stamp && loadedAt_.absoluteTime() - stamp->absoluteTime() < kRacyStampSeconds;
  if (loaded_ && stamp == loadedDate_ && !racy) return;

  const Date readAt = Date::now();
  const auto settle = [&](Value values, std::optional<std::string> problem) {
    values_ = std::move(values);
    loadProblem_ = std::move(problem);
    writeBlock_.reset();
    loadedDate_ = stamp;
    loadedAt_ = readAt;
    loaded_ = true;
  };
  if (!stamp) {
    settle(Value::newDictionary(), std::nullopt);
    return;
  }

  Result<std::string> bytes = fs_.readFile(file, kMaxFileBytes);
  if (!bytes) {
    const Status& failure = bytes.status();
    if (failure.code() == fnfErr) {  // removed since it was stamped
      settle(Value::newDictionary(), std::nullopt);
    } else if (failure.code() == memFullErr) {
      setAside("it is larger than " + std::to_string(kMaxFileBytes) + " bytes", stamp);
    } else {
      // Settings that cannot be read now may read later; they must not be replaced meanwhile.
      // The values last read stay in use and the file is tried again on the next access.
      loadProblem_ = failure.message();
      writeBlock_ = Status::error(failure.code(), "cannot save settings: " + failure.message());
      loaded_ = false;
    }
    return;
  }

  const auto* data = reinterpret_cast<const uint8_t*>(bytes->data());
  plist::ParseResult parsed = plist::PropertyList::read(std::span(data, bytes->size()));
  if (!parsed.ok()) {
    setAside("it is not a property list (" + parsed.describe() + ")", stamp);
  } else if (!parsed.root.isDictionary()) {
    setAside(
        "its root is " + std::string(plist::typeName(parsed.root.type())) + ", not a dictionary",
        stamp);
  } else {
    settle(std::move(parsed.root), std::nullopt);
  }
}

void UserDefaults::setAside(const std::string& reason, std::optional<Date> stamp) {
  const std::string file = path();
  std::string problem = "the settings file \"" + file + "\" is corrupt: " + reason;
  values_ = Value::newDictionary();
  loadedAt_ = Date::now();

  // Another process may have replaced the file since it was read. That one is not judged yet,
  // so it is neither moved nor overwritten now; the next access reads it.
  if (fs_.modificationDate(file) != stamp) {
    loadProblem_ = std::move(problem);
    writeBlock_ = Status::error(
        ioErr, "cannot save settings: \"" + file + "\" changed while it was being read; try again");
    loaded_ = false;
    return;
  }

  const auto seconds = static_cast<long long>(std::floor(Date::now().unixTime()));
  const std::string base = file + ".corrupt-" + std::to_string(seconds);
  std::string aside = base;
  for (int n = 1; fs_.fileExists(aside); ++n) {
    if (n == kAsideNameAttempts) {
      aside.clear();
      break;
    }
    aside = base + "-" + std::to_string(n);
  }
  const Status moved =
      aside.empty() ? Status::error(ioErr, "no free name beside it") : fs_.rename(file, aside);
  if (!moved.ok()) {
    problem += "; it could not be moved aside (" + moved.message() + ")";
    loadProblem_ = problem;
    writeBlock_ = Status::error(moved.code(), "cannot save settings: " + problem);
    loaded_ = false;
    SystemLog("%s", problem.c_str());
    return;
  }
  // Best effort: the settings themselves are safe either way.
  (void)fs_.syncDirectory(directory_);
  problem += "; it was moved to \"" + aside + "\"";
  SystemLog("%s", problem.c_str());
  loadProblem_ = std::move(problem);
  writeBlock_.reset();
  loadedDate_ = std::nullopt;
  loaded_ = true;
}

}  // namespace rvitunes::platform
