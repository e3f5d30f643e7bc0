// A mutable, shared, ordered list of Values.
//
// Made with Array::create() and held through Ref<Array> or a Value; every holder sees the same
// list. Not synchronised: callers that share an array across threads must lock around changes.
#pragma once

#include <cstddef>
#include <vector>

#include "rvitunes/plist/Ref.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

class Array final : public RefCounted {
 public:
  static Ref<Array> create() { return makeRef<Array>(); }
  static Ref<Array> create(std::vector<Value> items) { return makeRef<Array>(std::move(items)); }

  Array() = default;
  explicit Array(std::vector<Value> items) : items_(std::move(items)) {}

  size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }

  // Bounds are the caller's duty (asserted in debug builds); at() answers nil out of range.
  const Value& operator[](size_t i) const noexcept { return items_[i]; }
  Value& operator[](size_t i) noexcept { return items_[i]; }
  Value at(size_t i) const { return i < items_.size() ? items_[i] : Value(); }

  void push_back(Value v) { items_.push_back(std::move(v)); }
  // Inserts before position `i`; `i` == size() appends. Out of range is ignored (answers false).
  bool insert(size_t i, Value v);
  // Removes position `i`; out of range answers false.
  bool erase(size_t i);
  void clear() noexcept { items_.clear(); }
  void reserve(size_t n) { items_.reserve(n); }

  std::vector<Value>::const_iterator begin() const noexcept { return items_.begin(); }
  std::vector<Value>::const_iterator end() const noexcept { return items_.end(); }
  std::vector<Value>::iterator begin() noexcept { return items_.begin(); }
  std::vector<Value>::iterator end() noexcept { return items_.end(); }

  const std::vector<Value>& items() const noexcept { return items_; }

 private:
  std::vector<Value> items_;
};

}  // namespace rvitunes::plist
