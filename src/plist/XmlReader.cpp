#include "rvitunes/plist/XmlReader.h"
#include "rvitunes/base/Utf8.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "plist/Base64.h"
#include "plist/StringInterner.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::plist {

namespace {

// How often (in input bytes) the progress callback is offered a safe point.
constexpr uint64_t kProgressStep = uint64_t{4} << 20;

enum class Tag : uint8_t {
  kUnknown,
  kPlist,
  kDict,
  kArray,
  kKey,
  kString,
  kInteger,
  kReal,
  kDate,
  kData,
  kTrue,
  kFalse,
};

Tag tagOf(std::string_view n) noexcept {
  switch (n.size()) {
    case 3:
      if (n == "key") return Tag::kKey;
      break;
    case 4:
      if (n == "dict") return Tag::kDict;
      if (n == "data") return Tag::kData;
      if (n == "date") return Tag::kDate;
      if (n == "real") return Tag::kReal;
      if (n == "true") return Tag::kTrue;
      break;
    case 5:
      if (n == "array") return Tag::kArray;
      if (n == "false") return Tag::kFalse;
      if (n == "plist") return Tag::kPlist;
      break;
    case 6:
      if (n == "string") return Tag::kString;
      break;
    case 7:
      if (n == "integer") return Tag::kInteger;
      break;
    default:
      break;
  }
  return Tag::kUnknown;
}

inline bool isSpace(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

inline bool isNameChar(unsigned char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == ':' || c == '-' || c == '.' || c >= 0x80;
}

// True when one of 8 bytes is below 0x20, is '&' or has its high bit set: the bytes that need
// more than a copy.
inline bool wordNeedsCare(uint64_t w) noexcept {
  constexpr uint64_t kOnes = 0x0101010101010101ULL;
  constexpr uint64_t kHigh = 0x8080808080808080ULL;
  uint64_t below20 = (w - kOnes * 0x20) & ~w & kHigh;
  uint64_t x = w ^ (kOnes * '&');
  uint64_t amp = (x - kOnes) & ~x & kHigh;
  return ((below20 | amp) | (w & kHigh)) != 0;
}

// Length of the valid UTF-8 sequence at p (1-4), or 0 when the bytes there are not one.
size_t utf8SequenceLength(const unsigned char* p, const unsigned char* end) noexcept {
  unsigned char c = p[0];
  if (c < 0x80) return 1;
  size_t n;
  uint32_t min;
  uint32_t cp;
  if ((c & 0xE0) == 0xC0) {
    n = 2, min = 0x80, cp = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    n = 3, min = 0x800, cp = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    n = 4, min = 0x10000, cp = c & 0x07;
  } else {
    return 0;
  }
  if (static_cast<size_t>(end - p) < n) return 0;
  for (size_t i = 1; i < n; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (p[i] & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return n;
}

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

class Parser {
 public:
  // `transcoded` tells that `text` is already the UTF-8 form of another encoding, so the
  // declaration's encoding name is not checked again.
  Parser(std::string_view text, const ReadOptions& options, bool transcoded = false)
      : begin_(text.data()),
        p_(text.data()),
        end_(text.data() + text.size()),
        options_(options),
        transcoded_(transcoded) {}

  ParseResult run();

 private:
  struct Frame {
    Tag tag;               // kDict or kArray
    size_t start;          // first scratch slot of this container
    uint64_t openOffset;   // where its start tag began
    bool haveKey = false;  // dict: a key waits for its value
    uint64_t keyOffset = 0;
    Value key;
  };

  // A start or end tag as read.
  struct TagToken {
    Tag tag = Tag::kUnknown;
    std::string_view name;
    bool closing = false;
    bool selfClosing = false;
    uint64_t offset = 0;
  };

  uint64_t offset(const char* at) const { return static_cast<uint64_t>(at - begin_); }
  uint64_t here() const { return offset(p_); }

  bool fail(uint64_t at, std::string message) {
    if (!error_) error_ = Diagnostic{at, std::move(message)};
    return false;
  }
  void warn(uint64_t at, std::string message) {
    if (result_.warnings.size() < options_.maxWarnings) {
      result_.warnings.push_back(Diagnostic{at, std::move(message)});
    } else {
      ++droppedWarnings_;
    }
  }

  bool skipProlog();
  bool skipMisc(bool allowText, bool* sawText);
  bool skipComment();
  bool skipProcessingInstruction();
  bool skipDoctype();
  bool readTag(TagToken& t);
  bool readCommonTag(TagToken& t);
  bool readText(Tag element, std::string_view* out, std::string& scratch, bool* usedScratch);
  bool decodeText(const char* from, const char* to, std::string& out);
  bool readElementText(const TagToken& open, std::string_view* text, std::string& scratch);
  bool scalar(const TagToken& open, Value* out);
  bool parseInteger(std::string_view text, uint64_t at, Value* out);
  bool parseReal(std::string_view text, uint64_t at, Value* out);
  bool parseDate(std::string_view text, uint64_t at, Value* out);
  bool parseData(std::string_view text, uint64_t at, Value* out);
  bool addValue(Value v, uint64_t at);
  bool closeContainer(const TagToken& t);
  bool parseValues();
  void maybeReportProgress();

  const char* begin_;
  const char* p_;
  const char* end_;
  const ReadOptions& options_;
  const bool transcoded_;
  ParseResult result_;
  std::optional<Diagnostic> error_;
  size_t droppedWarnings_ = 0;
  std::vector<Frame> stack_;
  std::vector<Value> items_;                // open arrays' elements
  std::vector<Dictionary::Entry> entries_;  // open dictionaries' entries
  Value root_;
  bool haveRoot_ = false;
  StringInterner interner_;
  std::string textScratch_;
  uint64_t nextProgress_ = kProgressStep;
};

bool Parser::skipComment() {
  // p_ at "<!--"
  const char* start = p_;
  const char* q = p_ + 4;
  while (true) {
    const void* dash = std::memchr(q, '-', static_cast<size_t>(end_ - q));
    if (!dash) return fail(offset(start), "unterminated comment");
    q = static_cast<const char*>(dash);
    if (end_ - q >= 3 && q[1] == '-' && q[2] == '>') {
      p_ = q + 3;
      return true;
    }
    ++q;
  }
}

bool Parser::skipProcessingInstruction() {
  const char* start = p_;
  const char* q = p_ + 2;
  while (true) {
    const void* qm = std::memchr(q, '?', static_cast<size_t>(end_ - q));
    if (!qm) return fail(offset(start), "unterminated processing instruction");
    q = static_cast<const char*>(qm);
    if (end_ - q >= 2 && q[1] == '>') {
      p_ = q + 2;
      return true;
    }
    ++q;
  }
}

bool Parser::skipDoctype() {
  // p_ at "<!DOCTYPE"; skip to the matching '>', stepping over quoted text and an internal
  // subset in brackets.
  const char* start = p_;
  const char* q = p_ + 9;
  int bracket = 0;
  while (q < end_) {
    char c = *q;
    if (c == '"' || c == '\'') {
      const void* close = std::memchr(q + 1, c, static_cast<size_t>(end_ - q - 1));
      if (!close) break;
      q = static_cast<const char*>(close) + 1;
      continue;
    }
    if (c == '[') ++bracket;
    if (c == ']') --bracket;
    if (c == '>' && bracket <= 0) {
      p_ = q + 1;
      return true;
    }
    ++q;
  }
  return fail(offset(start), "unterminated DOCTYPE declaration");
}

// Skips white space, comments and processing instructions. Other text is an error unless
// allowText, where it is skipped and reported through *sawText.
bool Parser::skipMisc(bool allowText, bool* sawText) {
  while (p_ < end_) {
    char c = *p_;
    if (isSpace(c)) {
      ++p_;
      continue;
    }
    if (c == '<') {
      if (end_ - p_ >= 4 && p_[1] == '!' && p_[2] == '-' && p_[3] == '-') {
        if (!skipComment()) return false;
        continue;
      }
      if (end_ - p_ >= 2 && p_[1] == '?') {
        if (!skipProcessingInstruction()) return false;
        continue;
      }
      return true;
    }
    if (!allowText) return fail(here(), "unexpected text outside of an element");
    if (sawText) *sawText = true;
    const void* lt = std::memchr(p_, '<', static_cast<size_t>(end_ - p_));
    p_ = lt ? static_cast<const char*>(lt) : end_;
  }
  return true;
}

bool Parser::skipProlog() {
  // A UTF-8 byte-order mark may lead.
  if (end_ - p_ >= 3 && static_cast<unsigned char>(p_[0]) == 0xEF &&
      static_cast<unsigned char>(p_[1]) == 0xBB && static_cast<unsigned char>(p_[2]) == 0xBF) {
    p_ += 3;
  }
  if (end_ - p_ >= 5 && std::memcmp(p_, "<?xml", 5) == 0) {
    const char* decl = p_;
    if (!skipProcessingInstruction()) return false;
    std::string_view text(decl, static_cast<size_t>(p_ - decl));
    size_t enc = text.find("encoding");
    if (enc != std::string_view::npos) {
      size_t q = text.find_first_of("\"'", enc);
      if (q != std::string_view::npos) {
        size_t qe = text.find(text[q], q + 1);
        std::string name(text.substr(q + 1, qe == std::string_view::npos ? 0 : qe - q - 1));
        for (char& ch : name)
          ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        if (!transcoded_ && name != "utf-8" && name != "utf8" && name != "us-ascii" &&
            name != "ascii") {
          return fail(offset(decl) + enc, "unsupported encoding \"" + name + "\"");
        }
      }
    }
  }
  while (true) {
    if (!skipMisc(false, nullptr)) return false;
    if (end_ - p_ >= 9 && std::memcmp(p_, "<!DOCTYPE", 9) == 0) {
      if (!skipDoctype()) return false;
      continue;
    }
    return true;
  }
}

// Reads a start or end tag at p_ (which points at '<'). Attributes are checked for form and
// skipped.
bool Parser::readTag(TagToken& t) {
  t.offset = here();
  t.closing = false;
  t.selfClosing = false;
  if (readCommonTag(t)) return true;
  const char* q = p_ + 1;
  if (q < end_ && *q == '/') {
    t.closing = true;
    ++q;
  }
  const char* nameStart = q;
  while (q < end_ && isNameChar(static_cast<unsigned char>(*q)))
    ++q;
  if (q == nameStart) {
    if (q >= end_) return fail(t.offset, "truncated tag");
    if (end_ - p_ >= 9 && std::memcmp(p_, "<![CDATA[", 9) == 0) {
      return fail(t.offset, "CDATA section outside of a string");
    }
    return fail(t.offset, "malformed tag");
  }
  t.name = std::string_view(nameStart, static_cast<size_t>(q - nameStart));
  t.tag = tagOf(t.name);
  // Fast path for the overwhelmingly common "<name>".
  if (q < end_ && *q == '>') {
    p_ = q + 1;
    return true;
  }
  while (true) {
    while (q < end_ && isSpace(*q))
      ++q;
    if (q >= end_) return fail(t.offset, "truncated tag <" + std::string(t.name) + ">");
    if (*q == '>') {
      p_ = q + 1;
      return true;
    }
    if (*q == '/' && !t.closing) {
      if (end_ - q >= 2 && q[1] == '>') {
        t.selfClosing = true;
        p_ = q + 2;
        return true;
      }
      return fail(offset(q), "malformed tag <" + std::string(t.name) + ">");
    }
    if (t.closing) return fail(offset(q), "unexpected text in end tag");
    // An attribute: name = "value".
    const char* an = q;
    while (q < end_ && isNameChar(static_cast<unsigned char>(*q)))
      ++q;
    if (q == an) return fail(offset(q), "malformed attribute in <" + std::string(t.name) + ">");
    while (q < end_ && isSpace(*q))
      ++q;
    if (q >= end_ || *q != '=') return fail(offset(q), "attribute without a value");
    ++q;
    while (q < end_ && isSpace(*q))
      ++q;
    if (q >= end_ || (*q != '"' && *q != '\''))
      return fail(offset(q), "attribute value not quoted");
    const void* close = std::memchr(q + 1, *q, static_cast<size_t>(end_ - q - 1));
    if (!close) return fail(offset(q), "unterminated attribute value");
    q = static_cast<const char*>(close) + 1;
  }
}

// Recognises, by their exact bytes, the few tags that make up nearly all of a library file.
bool Parser::readCommonTag(TagToken& t) {
  const size_t left = static_cast<size_t>(end_ - p_);
  if (left < 8) return false;  // the slow path handles the last few bytes
  auto match = [&]<size_t N>(const char(&lit)[N], Tag tag, std::string_view name, bool closing,
                             bool selfClosing) {
    if (left < N - 1 || std::memcmp(p_, lit, N - 1) != 0) return false;
    t.tag = tag;
    t.name = name;
    t.closing = closing;
    t.selfClosing = selfClosing;
    p_ += N - 1;
    return true;
  };
  switch (p_[1]) {
    case 'k':
      return match("<key>", Tag::kKey, "key", false, false);
    case 'i':
      return match("<integer>", Tag::kInteger, "integer", false, false);
    case 's':
      return match("<string>", Tag::kString, "string", false, false);
    case 'd':
      return match("<dict>", Tag::kDict, "dict", false, false) ||
             match("<date>", Tag::kDate, "date", false, false) ||
             match("<data>", Tag::kData, "data", false, false);
    case 't':
      return match("<true/>", Tag::kTrue, "true", false, true);
    case 'f':
      return match("<false/>", Tag::kFalse, "false", false, true);
    case 'a':
      return match("<array>", Tag::kArray, "array", false, false);
    case 'r':
      return match("<real>", Tag::kReal, "real", false, false);
    case '/':
      return match("</dict>", Tag::kDict, "dict", true, false) ||
             match("</array>", Tag::kArray, "array", true, false);
    default:
      return false;
  }
}

// Appends the decoded form of [from, to) to out: references resolved, line ends normalised,
// defects repaired with warnings.
bool Parser::decodeText(const char* from, const char* to, std::string& out) {
  const char* q = from;
  while (q < to) {
    unsigned char c = static_cast<unsigned char>(*q);
    if (c == '&') {
      const char* semi = static_cast<const char*>(
          std::memchr(q, ';', static_cast<size_t>(std::min<ptrdiff_t>(to - q, 12))));
      std::string_view ref =
          semi ? std::string_view(q + 1, static_cast<size_t>(semi - q - 1)) : std::string_view();
      if (semi && !ref.empty() && ref[0] == '#') {
        uint32_t cp = 0;
        bool hex = ref.size() > 1 && (ref[1] == 'x' || ref[1] == 'X');
        std::string_view digits = ref.substr(hex ? 2 : 1);
        auto r = std::from_chars(digits.data(), digits.data() + digits.size(), cp, hex ? 16 : 10);
        if (digits.empty() || r.ec != std::errc() || r.ptr != digits.data() + digits.size() ||
            cp > 0x10FFFF) {
          // Only the '&' is taken here; what follows is read again as ordinary text, so bad
          // bytes inside the would-be reference are repaired like any others.
          warn(offset(q), "bad character reference; '&' kept as text");
          out.push_back('&');
          ++q;
          continue;
        }
        {
          if (cp == 38 || cp == 60 || cp == 62) {
            if (result_.entityStyle == EntityStyle::kNone)
              result_.entityStyle = EntityStyle::kNumeric;
          }
          if (cp >= 0xD800 && cp <= 0xDFFF) {
            warn(offset(q),
                 "reference to a lone surrogate &" + std::string(ref) + "; replaced by U+FFFD");
            out.append(kReplacement);
          } else {
            if (cp < 0x20 && cp != '\t' && cp != '\n' && cp != '\r') {
              warn(offset(q), "reference to control character &" + std::string(ref) + "; kept");
            }
            appendUtf8(out, cp);
          }
        }
        q = semi + 1;
        continue;
      }
      char named = 0;
      if (semi) {
        if (ref == "amp")
          named = '&';
        else if (ref == "lt")
          named = '<';
        else if (ref == "gt")
          named = '>';
        else if (ref == "quot")
          named = '"';
        else if (ref == "apos")
          named = '\'';
      }
      if (!named) {
        warn(offset(q), "'&' that starts no known reference; kept as text");
        out.push_back('&');
        ++q;
        continue;
      }
      if ((named == '&' || named == '<' || named == '>') &&
          result_.entityStyle == EntityStyle::kNone) {
        result_.entityStyle = EntityStyle::kNamed;
      }
      out.push_back(named);
      q = semi + 1;
      continue;
    }
    if (c == '\r') {
      // XML reads CR LF and a lone CR as one LF.
      out.push_back('\n');
      q += (q + 1 < to && q[1] == '\n') ? 2 : 1;
      continue;
    }
    if (c < 0x20 && c != '\t' && c != '\n') {
      warn(offset(q), "raw control character 0x" + std::string(1, "0123456789ABCDEF"[c >> 4]) +
                          std::string(1, "0123456789ABCDEF"[c & 15]) + "; kept");
      out.push_back(static_cast<char>(c));
      ++q;
      continue;
    }
    if (c >= 0x80) {
      size_t n = utf8SequenceLength(reinterpret_cast<const unsigned char*>(q),
                                    reinterpret_cast<const unsigned char*>(to));
      if (n == 0) {
        warn(offset(q), "invalid UTF-8 byte; replaced by U+FFFD");
        out.append(kReplacement);
        ++q;
        continue;
      }
      out.append(q, n);
      q += n;
      continue;
    }
    // A run of plain bytes.
    const char* run = q;
    while (q < to) {
      unsigned char d = static_cast<unsigned char>(*q);
      if (d == '&' || d == '\r' || d >= 0x80 || (d < 0x20 && d != '\t' && d != '\n')) break;
      ++q;
    }
    out.append(run, static_cast<size_t>(q - run));
  }
  return true;
}

// Reads character content up to the end tag of `open` and consumes that end tag. The text is
// handed out as a view into the input when it needs no decoding, else decoded into `scratch`.
bool Parser::readElementText(const TagToken& open, std::string_view* text, std::string& scratch) {
  if (open.selfClosing) {
    *text = std::string_view();
    return true;
  }
  bool decoded = false;
  const char* start = p_;
  while (true) {
    const void* lt = std::memchr(p_, '<', static_cast<size_t>(end_ - p_));
    if (!lt) {
      return fail(open.offset, "unexpected end of input inside <" + std::string(open.name) + ">");
    }
    const char* segEnd = static_cast<const char*>(lt);
    // Does the segment need more than a copy? Whole words of plain ASCII are skipped at once;
    // the byte loop then looks closer (tabs, line feeds and valid UTF-8 need nothing).
    bool care = false;
    const char* s = p_;
    while (s < segEnd) {
      for (; segEnd - s >= 8; s += 8) {
        uint64_t w;
        std::memcpy(&w, s, 8);
        if (wordNeedsCare(w)) break;
      }
      if (s >= segEnd) break;
      unsigned char c = static_cast<unsigned char>(*s);
      if (c >= 0x80) {
        size_t n = utf8SequenceLength(reinterpret_cast<const unsigned char*>(s),
                                      reinterpret_cast<const unsigned char*>(segEnd));
        if (n == 0) {
          care = true;
          break;
        }
        s += n;
        continue;
      }
      if (c == '&' || c == '\r' || (c < 0x20 && c != '\t' && c != '\n')) {
        care = true;
        break;
      }
      ++s;
    }
    if (care || decoded) {
      if (!decoded) {
        scratch.clear();
        decoded = true;
        // Earlier plain segments (before a comment or CDATA) were views; copy them first.
        if (start != p_) decodeText(start, p_, scratch);
      }
      decodeText(p_, segEnd, scratch);
    }
    p_ = segEnd;
    // What follows the '<'? Most often exactly our own end tag.
    const size_t nameLength = open.name.size();
    if (static_cast<size_t>(end_ - p_) >= nameLength + 3 && p_[1] == '/' &&
        std::memcmp(p_ + 2, open.name.data(), nameLength) == 0 && p_[2 + nameLength] == '>') {
      *text = decoded ? std::string_view(scratch)
                      : std::string_view(start, static_cast<size_t>(p_ - start));
      p_ += nameLength + 3;
      return true;
    }
    if (end_ - p_ >= 2 && p_[1] == '/') {
      TagToken close;
      if (!readTag(close)) return false;
      if (close.name != open.name) {
        return fail(close.offset, "expected </" + std::string(open.name) + "> but found </" +
                                      std::string(close.name) + ">");
      }
      if (decoded) {
        *text = scratch;
      } else {
        *text = std::string_view(start, static_cast<size_t>(close.offset - offset(start)));
      }
      return true;
    }
    if (end_ - p_ >= 4 && std::memcmp(p_, "<!--", 4) == 0) {
      const char* before = p_;
      if (!decoded) {
        scratch.clear();
        decoded = true;
        decodeText(start, before, scratch);
      }
      if (!skipComment()) return false;
      continue;
    }
    if (end_ - p_ >= 9 && std::memcmp(p_, "<![CDATA[", 9) == 0) {
      if (!decoded) {
        scratch.clear();
        decoded = true;
        decodeText(start, p_, scratch);
      }
      const char* body = p_ + 9;
      const char* q = body;
      const char* close = nullptr;
      while (q < end_) {
        const void* b = std::memchr(q, ']', static_cast<size_t>(end_ - q));
        if (!b) break;
        q = static_cast<const char*>(b);
        if (end_ - q >= 3 && q[1] == ']' && q[2] == '>') {
          close = q;
          break;
        }
        ++q;
      }
      if (!close) return fail(offset(p_), "unterminated CDATA section");
      // CDATA content is literal: only line ends and encoding defects are normalised.
      for (const char* c = body; c < close;) {
        unsigned char ch = static_cast<unsigned char>(*c);
        if (ch == '\r') {
          scratch.push_back('\n');
          c += (c + 1 < close && c[1] == '\n') ? 2 : 1;
        } else if (ch >= 0x80) {
          size_t n = utf8SequenceLength(reinterpret_cast<const unsigned char*>(c),
                                        reinterpret_cast<const unsigned char*>(close));
          if (n == 0) {
            warn(offset(c), "invalid UTF-8 byte; replaced by U+FFFD");
            scratch.append(kReplacement);
            ++c;
          } else {
            scratch.append(c, n);
            c += n;
          }
        } else {
          if (ch < 0x20 && ch != '\t' && ch != '\n')
            warn(offset(c), "raw control character in CDATA; kept");
          scratch.push_back(static_cast<char>(ch));
          ++c;
        }
      }
      p_ = close + 3;
      continue;
    }
    if (end_ - p_ >= 2 && p_[1] == '?') {
      if (!decoded) {
        scratch.clear();
        decoded = true;
        decodeText(start, p_, scratch);
      }
      if (!skipProcessingInstruction()) return false;
      continue;
    }
    TagToken inner;
    if (!readTag(inner)) return false;
    return fail(inner.offset, "unexpected element <" + std::string(inner.name) + "> inside <" +
                                  std::string(open.name) + ">");
  }
}

bool Parser::parseInteger(std::string_view text, uint64_t at, Value* out) {
  std::string_view t = text;
  while (!t.empty() && isSpace(t.front()))
    t.remove_prefix(1);
  while (!t.empty() && isSpace(t.back()))
    t.remove_suffix(1);
  bool negative = false;
  if (!t.empty() && (t[0] == '-' || t[0] == '+')) {
    negative = t[0] == '-';
    t.remove_prefix(1);
  }
  int base = 10;
  if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
    base = 16;
    t.remove_prefix(2);
  }
  uint64_t magnitude = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), magnitude, base);
  if (t.empty() || r.ptr != t.data() + t.size()) {
    return fail(at, "malformed integer \"" + std::string(text.substr(0, 40)) + "\"");
  }
  if (r.ec == std::errc::result_out_of_range) {
    return fail(at, "integer out of range \"" + std::string(text.substr(0, 40)) + "\"");
  }
  if (negative) {
    if (magnitude > uint64_t{1} << 63) {
      return fail(at, "integer out of range \"" + std::string(text.substr(0, 40)) + "\"");
    }
    *out = Value::integer(static_cast<int64_t>(0 - magnitude));
  } else {
    *out = Value::unsignedInteger(magnitude);
  }
  return true;
}

bool Parser::parseReal(std::string_view text, uint64_t at, Value* out) {
  std::string_view t = text;
  while (!t.empty() && isSpace(t.front()))
    t.remove_prefix(1);
  while (!t.empty() && isSpace(t.back()))
    t.remove_suffix(1);
  std::string_view body = t;
  bool plus = !body.empty() && body[0] == '+';
  if (plus) body.remove_prefix(1);
  double d = 0;
  auto r = std::from_chars(body.data(), body.data() + body.size(), d);
  if (body.empty() || r.ptr != body.data() + body.size() ||
      (r.ec != std::errc() && r.ec != std::errc::result_out_of_range)) {
    return fail(at, "malformed real \"" + std::string(text.substr(0, 40)) + "\"");
  }
  if (r.ec == std::errc::result_out_of_range) {
    // from_chars leaves d untouched here; the text's magnitude decides between 0 and infinity.
    d = std::strtod(std::string(body).c_str(), nullptr);
  }
  *out = Value::real(d);
  return true;
}

bool Parser::parseDate(std::string_view text, uint64_t at, Value* out) {
  std::string_view t = text;
  while (!t.empty() && isSpace(t.front()))
    t.remove_prefix(1);
  while (!t.empty() && isSpace(t.back()))
    t.remove_suffix(1);
  bool zoneMissing = false;
  auto d = Date::parseIso8601(t, &zoneMissing);
  if (!d) return fail(at, "malformed date \"" + std::string(text.substr(0, 40)) + "\"");
  if (zoneMissing) warn(at, "date without the trailing 'Z'; read as UTC");
  // The XML form carries whole seconds and that is all the writer puts back; keeping a fraction
  // here would make the tree read differ from the one the same file gives after a save.
  const double whole = std::floor(d->absoluteTime());
  if (whole != d->absoluteTime()) {
    warn(at, "date with fractional seconds; kept to the whole second");
    d = Date::fromAbsoluteTime(whole);
  }
  *out = Value::date(*d);
  return true;
}

bool Parser::parseData(std::string_view text, uint64_t at, Value* out) {
  std::string bytes;
  uint64_t bad = 0;
  if (!base64Decode(text, &bytes, &bad)) {
    return fail(at, "malformed base64 in <data>");
  }
  if (bad != 0) warn(at, "characters outside base64 in <data> ignored");
  *out = Value::data(std::string_view(bytes));
  return true;
}

bool Parser::scalar(const TagToken& open, Value* out) {
  const uint64_t at = open.offset;
  std::string_view text;
  switch (open.tag) {
    case Tag::kTrue:
    case Tag::kFalse:
      if (!open.selfClosing) {
        if (!readElementText(open, &text, textScratch_)) return false;
        for (char c : text) {
          if (!isSpace(c)) return fail(at, "text inside <" + std::string(open.name) + ">");
        }
      }
      *out = Value::boolean(open.tag == Tag::kTrue);
      return true;
    case Tag::kString:
    case Tag::kKey:
      if (!readElementText(open, &text, textScratch_)) return false;
      *out = interner_.make(text);
      return true;
    case Tag::kInteger:
      if (!readElementText(open, &text, textScratch_)) return false;
      return parseInteger(text, at, out);
    case Tag::kReal:
      if (!readElementText(open, &text, textScratch_)) return false;
      return parseReal(text, at, out);
    case Tag::kDate:
      if (!readElementText(open, &text, textScratch_)) return false;
      return parseDate(text, at, out);
    case Tag::kData:
      if (!readElementText(open, &text, textScratch_)) return false;
      return parseData(text, at, out);
    default:
      return fail(at, "unknown element <" + std::string(open.name) + ">");
  }
}

bool Parser::addValue(Value v, uint64_t at) {
  if (stack_.empty()) {
    if (haveRoot_) return fail(at, "more than one value at the top level");
    root_ = std::move(v);
    haveRoot_ = true;
    return true;
  }
  Frame& f = stack_.back();
  if (f.tag == Tag::kArray) {
    items_.push_back(std::move(v));
    return true;
  }
  if (!f.haveKey) return fail(at, "value without a key in <dict>");
  entries_.push_back(Dictionary::Entry{std::move(f.key), std::move(v)});
  f.haveKey = false;
  return true;
}

bool Parser::closeContainer(const TagToken& t) {
  if (stack_.empty()) return fail(t.offset, "</" + std::string(t.name) + "> closes nothing");
  Frame& f = stack_.back();
  if (t.tag != f.tag) {
    return fail(t.offset, "</" + std::string(t.name) + "> does not close <" +
                              std::string(f.tag == Tag::kDict ? "dict" : "array") +
                              "> opened at offset " + std::to_string(f.openOffset));
  }
  Value made;
  if (f.tag == Tag::kDict) {
    if (f.haveKey) return fail(f.keyOffset, "key without a value");
    std::vector<Dictionary::Entry> mine(
        std::make_move_iterator(entries_.begin() + static_cast<ptrdiff_t>(f.start)),
        std::make_move_iterator(entries_.end()));
    entries_.resize(f.start);
    auto d = Dictionary::create();
    if (size_t dup = d->adopt(std::move(mine))) {
      warn(f.openOffset, std::to_string(dup) + " duplicate key(s) in <dict>; the last value kept");
    }
    made = Value(std::move(d));
  } else {
    std::vector<Value> mine(
        std::make_move_iterator(items_.begin() + static_cast<ptrdiff_t>(f.start)),
        std::make_move_iterator(items_.end()));
    items_.resize(f.start);
    made = Value(Array::create(std::move(mine)));
  }
  uint64_t at = f.openOffset;
  stack_.pop_back();
  return addValue(std::move(made), at);
}

void Parser::maybeReportProgress() {
  if (here() >= nextProgress_) {
    nextProgress_ = here() + kProgressStep;
    // Nothing before p_ is referenced any more, so the caller may release those pages.
    options_.progress(here(), static_cast<uint64_t>(end_ - begin_));
  }
}

bool Parser::parseValues() {
  TagToken t;
  const bool reportProgress = static_cast<bool>(options_.progress);
  while (true) {
    // The usual gap between elements is a line feed and a few tabs.
    while (p_ < end_ && (*p_ == '\n' || *p_ == '\t'))
      ++p_;
    if (p_ + 1 >= end_ || p_[0] != '<' || p_[1] == '!' || p_[1] == '?') {
      bool sawText = false;
      if (!skipMisc(true, &sawText)) return false;
      if (sawText) warn(here(), "text between elements ignored");
    }
    if (p_ >= end_) {
      if (!stack_.empty()) {
        const Frame& f = stack_.back();
        return fail(f.openOffset, std::string("unexpected end of input inside <") +
                                      (f.tag == Tag::kDict ? "dict" : "array") + ">");
      }
      return fail(here(), "unexpected end of input: no value");
    }
    if (reportProgress) maybeReportProgress();
    if (!readTag(t)) return false;
    if (t.closing) {
      if (t.tag == Tag::kDict || t.tag == Tag::kArray) {
        if (!closeContainer(t)) return false;
        if (stack_.empty()) return true;
        continue;
      }
      if (t.tag == Tag::kPlist && stack_.empty()) {
        return fail(t.offset, "</plist> before any value");
      }
      return fail(t.offset, "unexpected </" + std::string(t.name) + ">");
    }
    switch (t.tag) {
      case Tag::kDict:
      case Tag::kArray: {
        if (t.selfClosing) {
          if (!addValue(t.tag == Tag::kDict ? Value::newDictionary() : Value::newArray(), t.offset))
            return false;
          if (stack_.empty()) return true;
          continue;
        }
        if (!stack_.empty() && stack_.back().tag == Tag::kDict && !stack_.back().haveKey) {
          return fail(t.offset, "value without a key in <dict>");
        }
        if (stack_.size() >= options_.maxDepth) {
          return fail(t.offset, "nesting deeper than " + std::to_string(options_.maxDepth));
        }
        Frame f;
        f.tag = t.tag;
        f.start = t.tag == Tag::kDict ? entries_.size() : items_.size();
        f.openOffset = t.offset;
        stack_.push_back(std::move(f));
        continue;
      }
      case Tag::kKey: {
        if (stack_.empty() || stack_.back().tag != Tag::kDict) {
          return fail(t.offset, "<key> outside of a <dict>");
        }
        Frame& f = stack_.back();
        if (f.haveKey) return fail(f.keyOffset, "key without a value");
        std::string_view text;
        if (!readElementText(t, &text, textScratch_)) return false;
        Frame& g = stack_.back();
        g.key = interner_.make(text);
        g.haveKey = true;
        g.keyOffset = t.offset;
        continue;
      }
      case Tag::kPlist:
        return fail(t.offset, "<plist> inside a property list");
      case Tag::kUnknown:
        return fail(t.offset, "unknown element <" + std::string(t.name) + ">");
      default: {
        Value v;
        if (!scalar(t, &v)) return false;
        if (!addValue(std::move(v), t.offset)) return false;
        if (stack_.empty()) return true;
        continue;
      }
    }
  }
}

ParseResult Parser::run() {
  result_.format = Format::kXml;
  if (static_cast<uint64_t>(end_ - begin_) > options_.maxInputBytes) {
    result_.error =
        Diagnostic{0, "input of " + std::to_string(end_ - begin_) + " bytes exceeds the limit of " +
                          std::to_string(options_.maxInputBytes)};
    return std::move(result_);
  }
  bool ok = skipProlog();
  if (ok && p_ >= end_) ok = fail(here(), "empty input: no property list");
  bool wrapped = false;
  TagToken t;
  if (ok && end_ - p_ >= 6 && std::memcmp(p_, "<plist", 6) == 0 &&
      (p_ + 6 == end_ || !isNameChar(static_cast<unsigned char>(p_[6])))) {
    ok = readTag(t);
    if (ok && t.selfClosing) ok = fail(t.offset, "empty <plist/>: no value");
    wrapped = true;
  }
  if (ok) ok = parseValues();
  if (ok && wrapped) {
    bool sawText = false;
    ok = skipMisc(true, &sawText);
    if (ok && sawText) warn(here(), "text between elements ignored");
    if (ok) {
      if (p_ >= end_) {
        ok = fail(t.offset, "unexpected end of input: <plist> not closed");
      } else {
        TagToken close;
        ok = readTag(close);
        if (ok && !(close.closing && close.tag == Tag::kPlist)) {
          ok = fail(close.offset, close.closing ? "unexpected </" + std::string(close.name) + ">"
                                                : "more than one value in <plist>");
        }
      }
    }
  }
  if (ok) {
    ok = skipMisc(false, nullptr);
    if (ok && p_ < end_) ok = fail(here(), "content after the end of the property list");
  }
  if (droppedWarnings_ > 0) {
    result_.warnings.push_back(
        Diagnostic{here(), std::to_string(droppedWarnings_) + " more warnings not shown"});
  }
  if (!ok || error_) {
    result_.error = error_ ? error_ : Diagnostic{here(), "malformed property list"};
    result_.root = Value();
    return std::move(result_);
  }
  result_.root = std::move(root_);
  if (options_.progress)
    options_.progress(static_cast<uint64_t>(end_ - begin_), static_cast<uint64_t>(end_ - begin_));
  return std::move(result_);
}

}  // namespace

namespace {

enum class SourceEncoding { kUtf8, kUtf16LE, kUtf16BE, kLatin1 };

// UTF-16 shows itself by a byte-order mark or by the zero bytes around "<?"; Latin-1 only by
// its declaration.
SourceEncoding detectEncoding(std::string_view t) {
  auto byte = [&](size_t i) { return i < t.size() ? static_cast<unsigned char>(t[i]) : 0x100u; };
  if (byte(0) == 0xFF && byte(1) == 0xFE) return SourceEncoding::kUtf16LE;
  if (byte(0) == 0xFE && byte(1) == 0xFF) return SourceEncoding::kUtf16BE;
  if (byte(0) == '<' && byte(1) == 0 && byte(2) == '?' && byte(3) == 0)
    return SourceEncoding::kUtf16LE;
  if (byte(0) == 0 && byte(1) == '<' && byte(2) == 0 && byte(3) == '?')
    return SourceEncoding::kUtf16BE;
  if (t.substr(0, 5) == "<?xml") {
    std::string decl(t.substr(0, std::min<size_t>(t.find("?>"), 200)));
    for (char& c : decl)
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* name : {"iso-8859-1", "latin1", "latin-1", "iso_8859-1"}) {
      if (decl.find(std::string("\"") + name + "\"") != std::string::npos ||
          decl.find(std::string("'") + name + "'") != std::string::npos) {
        return SourceEncoding::kLatin1;
      }
    }
  }
  return SourceEncoding::kUtf8;
}

// The UTF-8 form of UTF-16 or Latin-1 text. Unpaired surrogates become U+FFFD.
std::string toUtf8(std::string_view t, SourceEncoding enc) {
  std::string out;
  if (enc == SourceEncoding::kLatin1) {
    out.reserve(t.size() + t.size() / 8);
    for (unsigned char c : t)
      appendUtf8(out, c);
    return out;
  }
  const bool le = enc == SourceEncoding::kUtf16LE;
  size_t i = (t.size() >= 2 && ((le && static_cast<unsigned char>(t[0]) == 0xFF) ||
                                (!le && static_cast<unsigned char>(t[0]) == 0xFE)))
                 ? 2
                 : 0;
  auto unit = [&](size_t at) -> uint32_t {
    unsigned a = static_cast<unsigned char>(t[at]);
    unsigned b = static_cast<unsigned char>(t[at + 1]);
    return le ? (a | (b << 8)) : ((a << 8) | b);
  };
  out.reserve(t.size() / 2 + 16);
  for (; i + 1 < t.size(); i += 2) {
    uint32_t u = unit(i);
    if (u >= 0xD800 && u <= 0xDBFF && i + 3 < t.size()) {
      uint32_t lo = unit(i + 2);
      if (lo >= 0xDC00 && lo <= 0xDFFF) {
        appendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00));
        i += 2;
        continue;
      }
    }
    if (u >= 0xD800 && u <= 0xDFFF) {
      out.append(kReplacement);
    } else {
      appendUtf8(out, u);
    }
  }
  return out;
}

}  // namespace

ParseResult XmlReader::read(std::string_view text, const ReadOptions& options) {
  const SourceEncoding enc = detectEncoding(text);
  if (enc == SourceEncoding::kUtf8 || text.size() > options.maxInputBytes) {
    Parser parser(text, options);
    return parser.run();
  }
  // Offsets then count bytes of the UTF-8 form, not of the file.
  std::string utf8 = toUtf8(text, enc);
  Parser parser(utf8, options, true);
  return parser.run();
}

}  // namespace rvitunes::plist
