#include "rvitunes/plist/Dictionary.h"

#include <bit>

#include "plist/Blob.h"

namespace rvitunes::plist {

namespace {

// Up to this many entries a scan is cheaper than hashing; above it the table is kept.
constexpr size_t kLinearLimit = 8;

inline bool stringKeyIs(const Value& key, std::string_view s) noexcept {
  return key.isString() && key.stringView() == s;
}

}  // namespace

ptrdiff_t Dictionary::indexOf(std::string_view key, uint64_t hash) const noexcept {
  if (index_.empty()) {
    for (size_t i = 0; i < entries_.size(); ++i) {
      if (stringKeyIs(entries_[i].key, key)) return static_cast<ptrdiff_t>(i);
    }
    return -1;
  }
  const size_t mask = index_.size() - 1;
  for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    uint32_t e = index_[slot];
    if (e == 0) return -1;
    const Value& k = entries_[e - 1].key;
    if (k.isString() && k.blob()->cachedHash() == hash && k.stringView() == key) {
      return static_cast<ptrdiff_t>(e - 1);
    }
  }
}

ptrdiff_t Dictionary::indexOf(const Value& key, uint64_t hash) const noexcept {
  if (index_.empty()) {
    for (size_t i = 0; i < entries_.size(); ++i) {
      if (entries_[i].key.keyEquals(key)) return static_cast<ptrdiff_t>(i);
    }
    return -1;
  }
  const size_t mask = index_.size() - 1;
  for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    uint32_t e = index_[slot];
    if (e == 0) return -1;
    if (entries_[e - 1].key.keyEquals(key)) return static_cast<ptrdiff_t>(e - 1);
  }
}

void Dictionary::indexInsert(uint32_t entry, uint64_t hash) {
  const size_t mask = index_.size() - 1;
  size_t slot = hash & mask;
  while (index_[slot] != 0)
    slot = (slot + 1) & mask;
  index_[slot] = entry + 1;
}

void Dictionary::rebuildIndex() {
  index_.clear();
  if (entries_.size() <= kLinearLimit) {
    index_.shrink_to_fit();
    return;
  }
  // Load factor at most one half keeps probe runs short.
  index_.assign(std::bit_ceil(entries_.size() * 2), 0);
  for (size_t i = 0; i < entries_.size(); ++i) {
    indexInsert(static_cast<uint32_t>(i), entries_[i].key.keyHash());
  }
}

const Value* Dictionary::find(std::string_view key) const noexcept {
  ptrdiff_t i = indexOf(key, index_.empty() ? 0 : hashString(key));
  return i < 0 ? nullptr : &entries_[static_cast<size_t>(i)].value;
}

Value* Dictionary::find(std::string_view key) noexcept {
  return const_cast<Value*>(static_cast<const Dictionary*>(this)->find(key));
}

const Value* Dictionary::find(const Value& key) const noexcept {
  ptrdiff_t i = indexOf(key, index_.empty() ? 0 : key.keyHash());
  return i < 0 ? nullptr : &entries_[static_cast<size_t>(i)].value;
}

Value* Dictionary::find(const Value& key) noexcept {
  return const_cast<Value*>(static_cast<const Dictionary*>(this)->find(key));
}

Value Dictionary::get(std::string_view key) const {
  const Value* v = find(key);
  return v ? *v : Value();
}

Value Dictionary::get(const Value& key) const {
  const Value* v = find(key);
  return v ? *v : Value();
}

void Dictionary::set(std::string_view key, Value value) {
  if (Value* v = find(key)) {
    *v = std::move(value);
    return;
  }
  set(Value::string(key), std::move(value));
}

void Dictionary::set(Value key, Value value) {
  const uint64_t hash = key.keyHash();
  ptrdiff_t i = indexOf(key, hash);
  if (i >= 0) {
    entries_[static_cast<size_t>(i)].value = std::move(value);
    return;
  }
  entries_.push_back(Entry{std::move(key), std::move(value)});
  if (entries_.size() <= kLinearLimit) return;
  if (index_.empty() || entries_.size() * 2 > index_.size()) {
    rebuildIndex();
  } else {
    indexInsert(static_cast<uint32_t>(entries_.size() - 1), hash);
  }
}

bool Dictionary::remove(std::string_view key) {
  ptrdiff_t i = indexOf(key, index_.empty() ? 0 : hashString(key));
  if (i < 0) return false;
  entries_.erase(entries_.begin() + i);
  rebuildIndex();
  return true;
}

bool Dictionary::remove(const Value& key) {
  ptrdiff_t i = indexOf(key, index_.empty() ? 0 : key.keyHash());
  if (i < 0) return false;
  entries_.erase(entries_.begin() + i);
  rebuildIndex();
  return true;
}

void Dictionary::clear() noexcept {
  entries_.clear();
  index_.clear();
}

void Dictionary::reserve(size_t n) {
  entries_.reserve(n);
}

size_t Dictionary::adopt(std::vector<Entry>&& entries) {
  entries_ = std::move(entries);
  index_.clear();
  size_t duplicates = 0;
  if (entries_.size() <= kLinearLimit) {
    for (size_t i = 1; i < entries_.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        if (entries_[j].key.keyEquals(entries_[i].key)) {
          entries_[j].value = std::move(entries_[i].value);
          entries_.erase(entries_.begin() + static_cast<ptrdiff_t>(i));
          --i;
          ++duplicates;
          break;
        }
      }
    }
    return duplicates;
  }
  index_.assign(std::bit_ceil(entries_.size() * 2), 0);
  const size_t mask = index_.size() - 1;
  size_t out = 0;
  for (size_t in = 0; in < entries_.size(); ++in) {
    const uint64_t hash = entries_[in].key.keyHash();
    size_t slot = hash & mask;
    bool merged = false;
    for (; index_[slot] != 0; slot = (slot + 1) & mask) {
      Entry& seen = entries_[index_[slot] - 1];
      if (seen.key.keyEquals(entries_[in].key)) {
        seen.value = std::move(entries_[in].value);
        merged = true;
        break;
      }
    }
    if (merged) {
      ++duplicates;
      continue;
    }
    if (out != in) entries_[out] = std::move(entries_[in]);
    index_[slot] = static_cast<uint32_t>(out + 1);
    ++out;
  }
  if (duplicates) {
    entries_.resize(out);
    rebuildIndex();
  }
  return duplicates;
}

}  // namespace rvitunes::plist
