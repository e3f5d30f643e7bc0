#include "rvitunes/base/Url.h"

#include "rvitunes/base/Utf8.h"

namespace rvitunes {
namespace {

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Characters that may appear literally in a URL: unreserved, reserved and the escape mark.
bool isUrlCharacter(char c) {
  if (isAlpha(c) || isDigit(c)) return true;
  constexpr std::string_view kOthers = "-._~:/?#[]@!$&'()*+,;=%";
  return kOthers.find(c) != std::string_view::npos;
}

bool isSchemeCharacter(char c) {
  return isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
}

// Characters fileUrlWithPath and percentEncodePath leave as they are.
bool isPathCharacter(char c) {
  if (isAlpha(c) || isDigit(c)) return true;
  constexpr std::string_view kOthers = "-._~!$&'()*+,=:@/";
  return kOthers.find(c) != std::string_view::npos;
}

std::string_view dropTrailingSlashes(std::string_view path) {
  while (!path.empty() && path.back() == '/')
    path.remove_suffix(1);
  return path;
}

// Decodes a piece of an already validated URL and checks the bytes are text.
std::optional<std::string> decodeText(std::string_view raw) {
  auto decoded = percentDecode(raw);
  if (!decoded || !isValidUtf8(*decoded)) return std::nullopt;
  return decoded;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  bool sawFragment = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!isUrlCharacter(c)) return std::nullopt;
    if (c == '%' &&
        (i + 2 >= text.size() || hexValue(text[i + 1]) < 0 || hexValue(text[i + 2]) < 0)) {
      return std::nullopt;
    }
    if (c == '#') {
      if (sawFragment) return std::nullopt;
      sawFragment = true;
    }
  }
  Url url;
  url.text_ = std::string(text);
  url.split();
  return url;
}

void Url::split() {
  const std::string_view text = text_;
  size_t pos = 0;

  size_t schemeEnd = 0;
  while (schemeEnd < text.size() && isSchemeCharacter(text[schemeEnd]))
    ++schemeEnd;
  if (schemeEnd > 0 && isAlpha(text[0]) && schemeEnd < text.size() && text[schemeEnd] == ':') {
    scheme_ = {0, schemeEnd};
    pos = schemeEnd + 1;
  }

  if (text.substr(pos, 2) == "//") {
    const size_t authorityBegin = pos + 2;
    size_t authorityEnd = text.find_first_of("/?#", authorityBegin);
    if (authorityEnd == std::string_view::npos) authorityEnd = text.size();
    std::string_view authority = text.substr(authorityBegin, authorityEnd - authorityBegin);
    size_t hostBegin = authorityBegin;
    if (const size_t at = authority.rfind('@'); at != std::string_view::npos) {
      hostBegin += at + 1;
      authority.remove_prefix(at + 1);
    }
    size_t hostSize = authority.size();
    if (!authority.empty() && authority.front() == '[') {
      if (const size_t close = authority.find(']'); close != std::string_view::npos) {
        hostBegin += 1;
        hostSize = close - 1;
      }
    } else if (const size_t colon = authority.find(':'); colon != std::string_view::npos) {
      hostSize = colon;
    }
    host_ = {hostBegin, hostSize};
    pos = authorityEnd;
  }

  size_t pathEnd = text.find_first_of("?#", pos);
  if (pathEnd == std::string_view::npos) pathEnd = text.size();
  path_ = {pos, pathEnd - pos};
  pos = pathEnd;

  if (pos < text.size() && text[pos] == '?') {
    size_t queryEnd = text.find('#', pos);
    if (queryEnd == std::string_view::npos) queryEnd = text.size();
    query_ = {pos + 1, queryEnd - pos - 1};
    pos = queryEnd;
  }
  if (pos < text.size() && text[pos] == '#') fragment_ = {pos + 1, text.size() - pos - 1};
}

Url Url::fileUrlWithPath(std::string_view absolutePath, bool isDirectory) {
  std::string text = "file://";
  if (absolutePath.empty() || absolutePath.front() != '/') text += '/';
  text += percentEncodePath(absolutePath);
  if (isDirectory && text.back() != '/') text += '/';
  Url url;
  url.text_ = std::move(text);
  url.split();
  return url;
}

bool Url::isFileUrl() const {
  const std::string_view s = scheme();
  if (s.size() != 4) return false;
  constexpr std::string_view kFile = "file";
  for (size_t i = 0; i < 4; ++i) {
    if ((s[i] | 0x20) != kFile[i]) return false;
  }
  return true;
}

std::optional<std::string> Url::path() const {
  std::string_view raw = rawPath();
  if (raw.size() > 1 && raw.back() == '/') raw.remove_suffix(1);
  return decodeText(raw);
}

std::string Url::lastPathComponent() const {
  const std::string_view raw = rawPath();
  const std::string_view trimmed = dropTrailingSlashes(raw);
  if (trimmed.empty()) return raw.empty() ? "" : "/";
  const size_t slash = trimmed.rfind('/');
  const std::string_view segment =
      slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1);
  return decodeText(segment).value_or("");
}

std::string Url::pathExtension() const {
  const std::string name = lastPathComponent();
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  return name.substr(dot + 1);
}

std::optional<std::string> percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexValue(text[i + 1]);
    const int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

std::string percentEncodePath(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(path.size());
  for (const char c : path) {
    if (isPathCharacter(c)) {
      out += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 0xF];
    }
  }
  return out;
}

}  // namespace rvitunes
