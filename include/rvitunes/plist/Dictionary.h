// A mutable, shared dictionary that keeps its keys in insertion order and finds them in O(1).
//
// Keys are Values: strings (as every property list has them) or numbers (hosts key some of
// their own tables by number). Key equality is Value::keyEquals: strings by bytes, numbers by
// numeric value, a string never equal to a number. Setting an existing key replaces the value in
// place and keeps the key's position. Removing a key keeps the order of the rest.
//
// Made with Dictionary::create() and held through Ref<Dictionary> or a Value; every holder sees
// the same dictionary. Not synchronised: callers that share one across threads must lock around
// changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "rvitunes/plist/Ref.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

class Dictionary final : public RefCounted {
 public:
  struct Entry {
    Value key;
    Value value;
  };

  static Ref<Dictionary> create() { return makeRef<Dictionary>(); }

  Dictionary() = default;

  size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }

  // The value under `key`, or null when absent. The pointer stays valid until the dictionary
  // is next changed.
  const Value* find(std::string_view key) const noexcept;
  const Value* find(const Value& key) const noexcept;
  Value* find(std::string_view key) noexcept;
  Value* find(const Value& key) noexcept;
  bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  // A copy of the value under `key`; nil when absent.
  Value get(std::string_view key) const;
  Value get(const Value& key) const;

  // Inserts at the end, or replaces the value of an existing key in place.
  void set(std::string_view key, Value value);
  void set(Value key, Value value);
  // Removes `key`; answers whether it was there.
  bool remove(std::string_view key);
  bool remove(const Value& key);
  void clear() noexcept;
  void reserve(size_t n);

  // Replaces the whole contents with `entries`, in their order. A key that occurs twice keeps
  // its first position and its last value (as setting it twice would). Answers how many
  // duplicates were merged. The readers fill dictionaries this way.
  size_t adopt(std::vector<Entry>&& entries);

  // Entries in insertion order.
  const Entry& entryAt(size_t i) const noexcept { return entries_[i]; }
  Entry& entryAt(size_t i) noexcept { return entries_[i]; }
  std::vector<Entry>::const_iterator begin() const noexcept { return entries_.begin(); }
  std::vector<Entry>::const_iterator end() const noexcept { return entries_.end(); }
  // Mutable iteration may change values but must never change keys.
  std::vector<Entry>::iterator begin() noexcept { return entries_.begin(); }
  std::vector<Entry>::iterator end() noexcept { return entries_.end(); }

 private:
  ptrdiff_t indexOf(const Value& key, uint64_t hash) const noexcept;
  ptrdiff_t indexOf(std::string_view key, uint64_t hash) const noexcept;
  void rebuildIndex();
  void indexInsert(uint32_t entry, uint64_t hash);

  std::vector<Entry> entries_;
  // Open-addressing table of entry positions + 1 (0 = empty); only for larger dictionaries,
  // where a linear scan would cost more than the table.
  std::vector<uint32_t> index_;
};

}  // namespace rvitunes::plist
