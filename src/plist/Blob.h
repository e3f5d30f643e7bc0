// Immutable, reference-counted bytes shared by string and data values. One allocation holds the
// header and the bytes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rvitunes::plist::detail {

struct Blob {
  std::atomic<uint32_t> refs{1};
  // Hash of the bytes once someone asked for it (0 = not yet computed).
  mutable std::atomic<uint64_t> hash{0};
  size_t size = 0;

  // A new blob with one reference holding a copy of `n` bytes at `p`.
  static Blob* create(const void* p, size_t n);

  const char* bytes() const noexcept { return reinterpret_cast<const char*>(this + 1); }
  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
  std::string_view view() const noexcept { return {bytes(), size}; }

  void retain() noexcept { refs.fetch_add(1, std::memory_order_relaxed); }
  void release() noexcept;
  uint64_t cachedHash() const noexcept;
};

}  // namespace rvitunes::plist::detail
