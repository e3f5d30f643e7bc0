// Named pasteboards inside the process (the platform's NSPasteboard pasteboardWithName:), kept
// for the one service the system uses: put TIFF data on a pasteboard and read it back as PICT.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace rvitunes::image {

// A pasteboard: a list of declared types and the data put on it for some of them. When "TIFF"
// data is on it, "PICT" is offered as well and made on demand with our PICT encoder (a version-2
// picture without file header, see encodePict); the result is kept until the contents change.
//
// Pasteboards are shared: withName() answers the same object for the same name until
// releaseGlobally() removes it from the registry. All operations are thread-safe.
class Pasteboard {
 public:
  static constexpr const char* kTypeTIFF = "TIFF";
  static constexpr const char* kTypePICT = "PICT";

  // The pasteboard called `name`, created empty on first use. Never null.
  static std::shared_ptr<Pasteboard> withName(const std::string& name);

  const std::string& name() const { return name_; }

  // Clears the pasteboard and declares `types` (duplicates kept once, order kept). Answers the
  // new change count, which grows by one with every declaration. There is no owner: data is
  // always given with setData().
  int64_t declareTypes(const std::vector<std::string>& types);
  // Puts `data` on the pasteboard for a declared `type`, replacing earlier data of that type.
  // False (and nothing changes) when `type` was not declared.
  bool setData(std::span<const uint8_t> data, const std::string& type);
  // The declared types in order, followed by "PICT" when "TIFF" data is present and "PICT" was
  // not declared.
  std::vector<std::string> types() const;
  // The data for `type`: what setData() put there, or for "PICT" the conversion of the TIFF data
  // when no PICT data was set. nullopt when there is no such data or the TIFF cannot be decoded
  // or encoded (the reason goes to NullLog).
  std::optional<std::vector<uint8_t>> dataForType(const std::string& type);
  // Empties the pasteboard and removes it from the registry: a later withName() with the same
  // name makes a fresh one. Holders of this object may go on using it as a private pasteboard.
  void releaseGlobally();

  int64_t changeCount() const;

  explicit Pasteboard(std::string name) : name_(std::move(name)) {}

 private:
  struct Entry {
    std::string type;
    std::optional<std::vector<uint8_t>> data;
  };
  Entry* find(const std::string& type);
  const Entry* find(const std::string& type) const;

  const std::string name_;
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  std::optional<std::vector<uint8_t>> convertedPict_;
  int64_t changeCount_ = 0;
};

}  // namespace rvitunes::image
