// URLs as the library file and the player's replies carry them ("file://localhost/Users/...").
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace rvitunes {

// A parsed URL or relative reference (RFC 3986 syntax). Immutable value type; copies are
// independent; thread-compatible. Accessors answer views into the URL's own text, valid while
// the Url lives and is not assigned to.
class Url {
 public:
  // Parses `text` strictly, as the platform's URL-from-string constructor does: every byte must
  // be a URL character. Answers nullopt for the empty text and for text holding a space, a
  // control character, DEL, a byte above 0x7F, one of < > " { } | \ ^ `, a '%' not followed by
  // two hex digits, or a second '#'. Text without a scheme is accepted as a relative reference
  // ("Music/a.mp3"). '[' and ']' are accepted anywhere.
  static std::optional<Url> parse(std::string_view text);

  // The file URL of `absolutePath`: "file://" followed by the path with every byte outside
  // letters, digits and - . _ ~ ! $ & ' ( ) * + , = : @ / percent-escaped (upper-case hex), so
  // "/tmp/My Song.mp3" gives "file:///tmp/My%20Song.mp3". A path not starting with '/' gets one
  // prepended. With `isDirectory` the URL ends with '/'. The result always parses back.
  static Url fileUrlWithPath(std::string_view absolutePath, bool isDirectory = false);

  // The URL text exactly as given to parse() or made by fileUrlWithPath().
  const std::string& string() const { return text_; }

  // The scheme as written ("file", "HTTP"); empty for a relative reference.
  std::string_view scheme() const { return view(scheme_); }
  // The host of the authority without user info, port or IPv6 brackets, escapes not decoded;
  // empty when there is none ("file:///tmp/x.mp3" has an empty host).
  std::string_view host() const { return view(host_); }
  // The path as written, escapes not decoded: "/Music/My%20Song.MP3".
  std::string_view rawPath() const { return view(path_); }
  // The query after '?' and the fragment after '#', as written; empty when absent.
  std::string_view query() const { return view(query_); }
  std::string_view fragment() const { return view(fragment_); }

  // True when the scheme is "file", in any letter case.
  bool isFileUrl() const;

  // The path with escapes decoded into bytes ("/Music/My Song.MP3"); a trailing slash is
  // dropped unless the path is "/" alone. nullopt when the decoded bytes are not valid UTF-8
  // ("%FF"), as the platform answers nil for such a path. "%2F" decodes to '/'.
  std::optional<std::string> path() const;

  // The last path segment, decoded: "/a/b.mp3" gives "b.mp3", "/a/b/" gives "b", "/" gives "/"
  // and an empty path "". Segments are split at the slashes as written, so in "/a%2Fb" the last
  // segment is "a/b". "" when the segment does not decode to valid UTF-8.
  std::string lastPathComponent() const;

  // The extension of lastPathComponent() without its dot ("MP3"); "" when there is none,
  // including names like ".hidden" (a leading dot only) and "a." (nothing after the dot).
  std::string pathExtension() const;

  friend bool operator==(const Url& a, const Url& b) { return a.text_ == b.text_; }

 private:
  struct Span {
    size_t begin = 0;
    size_t size = 0;
  };
  Url() = default;
  std::string_view view(Span span) const {
    return std::string_view(text_).substr(span.begin, span.size);
  }
  // Splits text_ into its components; text_ has already been checked character by character.
  void split();

  std::string text_;
  Span scheme_;
  Span host_;
  Span path_;
  Span query_;
  Span fragment_;
};

// Decodes every "%HH" escape of `text` into its byte; other bytes are copied. nullopt when a '%'
// is not followed by two hex digits. The result may hold any byte, including NUL and invalid
// UTF-8.
std::optional<std::string> percentDecode(std::string_view text);

// Escapes `path` for use as a URL path: bytes outside letters, digits and
// - . _ ~ ! $ & ' ( ) * + , = : @ / become "%HH" with upper-case hex.
std::string percentEncodePath(std::string_view path);

}  // namespace rvitunes
