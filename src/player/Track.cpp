#include "rvitunes/player/Track.h"

#include "rvitunes/base/Url.h"

namespace rvitunes::player {

Track::Track(DatabaseId id, PersistentId persistentId, plist::Ref<plist::Dictionary> record)
    : id_(id), persistentId_(persistentId), record_(std::move(record)) {}

OSType Track::classCode() const {
  const std::string type = text("Track Type");
  return type == "URL" || type == "Remote" ? kClassUrlTrack : kClassFileTrack;
}

bool Track::isKindOf(OSType classCode) const {
  return classCode == kClassTrack || classCode == kClassItem || classCode == this->classCode();
}

std::string Track::text(std::string_view key) const {
  const plist::Value* value = record_->find(key);
  return value && value->isString() ? std::string(value->stringView()) : std::string();
}

std::optional<int64_t> Track::integer(std::string_view key) const {
  const plist::Value* value = record_->find(key);
  if (!value || !value->isNumber()) return std::nullopt;
  return value->longLongValue();
}

bool Track::flag(std::string_view key) const {
  const plist::Value* value = record_->find(key);
  return value && value->boolValue();
}

std::optional<Date> Track::date(std::string_view key) const {
  const plist::Value* value = record_->find(key);
  if (!value || !value->isDate()) return std::nullopt;
  return value->dateValue();
}

double Track::durationSeconds() const {
  return static_cast<double>(integer("Total Time").value_or(0)) / 1000.0;
}

std::optional<std::string> Track::locationPath() const {
  if (classCode() != kClassFileTrack) return std::nullopt;
  const std::optional<Url> url = Url::parse(text("Location"));
  if (!url || !url->isFileUrl()) return std::nullopt;
  return url->path();
}

}  // namespace rvitunes::player
