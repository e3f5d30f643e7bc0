// Intrusive reference counting for the shared containers of the property-list tree.
//
// Arrays, dictionaries and host objects stored in a tree are shared by reference: copying a
// Ref (or a Value holding one) shares the same container, so a record changed through one
// holder is changed for every holder. Counts are atomic, so Refs may be copied and dropped on
// any thread; the containers themselves are not synchronised (see Array.h, Dictionary.h).
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace rvitunes::plist {

class RefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  void retain() const noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
  void release() const noexcept {
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  // The number of holders; for tests and diagnostics only.
  uint32_t useCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

 protected:
  RefCounted() = default;
  virtual ~RefCounted() = default;

 private:
  mutable std::atomic<uint32_t> refs_{0};
};

// A strong reference to a RefCounted T; null when default-constructed.
template <class T>
class Ref {
 public:
  Ref() noexcept = default;
  Ref(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  // Adopts nothing: takes a new reference to `p` (which may be null).
  explicit Ref(T* p) noexcept : p_(p) {
    if (p_) p_->retain();
  }
  Ref(const Ref& o) noexcept : Ref(o.p_) {}
  Ref(Ref&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  Ref(const Ref<U>& o) noexcept : Ref(o.get()) {}  // NOLINT(google-explicit-constructor)
  ~Ref() {
    if (p_) p_->release();
  }
  Ref& operator=(Ref o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.p_ == b.p_; }

 private:
  T* p_ = nullptr;
};

// Creates a T and answers the first reference to it.
template <class T, class... Args>
Ref<T> makeRef(Args&&... args) {
  return Ref<T>(new T(std::forward<Args>(args)...));  // owned by the Ref from here on
}

}  // namespace rvitunes::plist
