#include "rvitunes/image/Pasteboard.h"

#include <map>

#include "rvitunes/base/Log.h"
#include "rvitunes/image/Image.h"
#include "rvitunes/image/Pict.h"

namespace rvitunes::image {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<Pasteboard>> boards;
};

// Never destroyed, so that pasteboards may be used from static destructors of the host.
Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

}  // namespace

std::shared_ptr<Pasteboard> Pasteboard::withName(const std::string& name) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto& board = r.boards[name];
  if (!board) board = std::make_shared<Pasteboard>(name);
  return board;
}

Pasteboard::Entry* Pasteboard::find(const std::string& type) {
  for (Entry& e : entries_) {
    if (e.type == type) return &e;
  }
  return nullptr;
}

const Pasteboard::Entry* Pasteboard::find(const std::string& type) const {
  return const_cast<Pasteboard*>(this)->find(type);
}

int64_t Pasteboard::declareTypes(const std::vector<std::string>& types) {
  std::lock_guard lock(mutex_);
  entries_.clear();
  convertedPict_.reset();
  for (const std::string& type : types) {
    if (!find(type)) entries_.push_back(Entry{type, std::nullopt});
  }
  return ++changeCount_;
}

bool Pasteboard::setData(std::span<const uint8_t> data, const std::string& type) {
  std::lock_guard lock(mutex_);
  Entry* entry = find(type);
  if (!entry) return false;
  entry->data.emplace(data.begin(), data.end());
  if (type == kTypeTIFF) convertedPict_.reset();
  return true;
}

std::vector<std::string> Pasteboard::types() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const Entry& e : entries_)
    out.push_back(e.type);
  const Entry* tiff = find(kTypeTIFF);
  if (tiff && tiff->data && !find(kTypePICT)) out.emplace_back(kTypePICT);
  return out;
}

std::optional<std::vector<uint8_t>> Pasteboard::dataForType(const std::string& type) {
  std::lock_guard lock(mutex_);
  if (const Entry* entry = find(type); entry && entry->data) return entry->data;
  if (type != kTypePICT) return std::nullopt;
  if (convertedPict_) return convertedPict_;
  const Entry* tiff = find(kTypeTIFF);
  if (!tiff || !tiff->data) return std::nullopt;
  auto image = Image::fromData(std::span<const uint8_t>(*tiff->data));
  if (!image) {
    NullLog("Pasteboard %s: cannot read the TIFF data: %s", name_.c_str(),
            image.status().toString().c_str());
    return std::nullopt;
  }
  auto pict = encodePict(*image);
  if (!pict) {
    NullLog("Pasteboard %s: cannot make a PICT: %s", name_.c_str(),
            pict.status().toString().c_str());
    return std::nullopt;
  }
  convertedPict_ = std::move(pict).value();
  return convertedPict_;
}

void Pasteboard::releaseGlobally() {
  {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    auto it = r.boards.find(name_);
    if (it != r.boards.end() && it->second.get() == this) r.boards.erase(it);
  }
  std::lock_guard lock(mutex_);
  entries_.clear();
  convertedPict_.reset();
  ++changeCount_;
}

int64_t Pasteboard::changeCount() const {
  std::lock_guard lock(mutex_);
  return changeCount_;
}

}  // namespace rvitunes::image
