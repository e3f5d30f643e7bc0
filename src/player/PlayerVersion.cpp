#include "rvitunes/player/PlayerVersion.h"

#include <charconv>

#include "rvitunes/ae/AECodes.h"

namespace rvitunes::player {
namespace {

uint8_t bcd(int value) {
  return static_cast<uint8_t>(((value / 10) % 10) << 4 | (value % 10));
}

}  // namespace

PlayerVersion::PlayerVersion() : PlayerVersion(std::string(kDefaultText), 7, 7, 1) {}

PlayerVersion::PlayerVersion(std::string text, int major, int minor, int bugFix)
    : text_(std::move(text)), major_(major), minor_(minor), bugFix_(bugFix) {
  // The clients' packing: 8 bits of each component, shifted by 8, 4 and 0, overlapping.
  packed_ = (static_cast<uint32_t>(major & 0xFF) << 8) |
            (static_cast<uint32_t>(minor & 0xFF) << 4) | static_cast<uint32_t>(bugFix & 0xFF);
}

std::optional<PlayerVersion> PlayerVersion::parse(std::string_view text) {
  int parts[3] = {0, 0, 0};
  size_t count = 0;
  size_t pos = 0;
  while (true) {
    const size_t dot = text.find('.', pos);
    const std::string_view part = text.substr(pos, dot == std::string_view::npos ? dot : dot - pos);
    int value = 0;
    const auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), value);
    if (part.empty() || ec != std::errc() || end != part.data() + part.size() || value < 0 ||
        value > 255) {
      return std::nullopt;
    }
    if (count < 3) parts[count] = value;
    ++count;
    if (dot == std::string_view::npos) break;
    pos = dot + 1;
  }
  return PlayerVersion(std::string(text), parts[0], parts[1], parts[2]);
}

PlayerVersion PlayerVersion::fromPacked(uint32_t packed) {
  const int major = static_cast<int>((packed >> 8) & 0xFF);
  const int minor = static_cast<int>((packed >> 4) & 0xF);
  const int bugFix = static_cast<int>(packed & 0xF);
  return PlayerVersion(
      std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(bugFix), major,
      minor, bugFix);
}

std::vector<uint8_t> PlayerVersion::versRecord() const {
  std::vector<uint8_t> out;
  const std::string shortText = text_.substr(0, 255);
  out.reserve(8 + shortText.size());
  out.push_back(bcd(major_));
  out.push_back(static_cast<uint8_t>((minor_ % 10) << 4 | (bugFix_ % 10)));
  out.push_back(0x80);  // final release
  out.push_back(0);     // non-release revision
  out.push_back(0);     // region code, 2 bytes
  out.push_back(0);
  out.push_back(static_cast<uint8_t>(shortText.size()));
  out.insert(out.end(), shortText.begin(), shortText.end());
  out.push_back(0);  // empty long version string
  return out;
}

ae::Descriptor PlayerVersion::versDescriptor() const {
  return ae::Descriptor::fromBytes(ae::typeVersion, versRecord());
}

}  // namespace rvitunes::player
