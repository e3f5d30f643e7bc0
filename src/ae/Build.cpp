// The descriptor-building language: a tokenizer and a recursive-descent parser that builds the
// descriptor while it reads. Grammar and error numbering follow docs/formats/descriptors.md.
#include "rvitunes/ae/Build.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/ae/Coercion.h"

namespace rvitunes::ae {

namespace {

// Legacy delimiters of the old single-byte encoding: “ ” ‘ ’ « ».
constexpr unsigned char kOpenString = 0xD2, kCloseString = 0xD3;
constexpr unsigned char kOpenQuote = 0xD4, kCloseQuote = 0xD5;
constexpr unsigned char kOpenHex = 0xC7, kCloseHex = 0xC8;

enum class Tok {
  kEnd,
  kComma,
  kColon,
  kAt,
  kDoubleAt,
  kLParen,
  kRParen,
  kLBracket,
  kRBracket,
  kLBrace,
  kRBrace,
  kTilde,
  kInteger,
  kIdent,
  kString,
  kHex,
};

struct Token {
  Tok kind = Tok::kEnd;
  size_t position = 0;
  int64_t integer = 0;  // kInteger (saturates far beyond the 32-bit range)
  OSType code = 0;      // kIdent
  std::string bytes;    // kString, kHex
};

bool isSpace(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

bool isSyntax(unsigned char c) {
  switch (c) {
    case ',':
    case ':':
    case '@':
    case '(':
    case ')':
    case '[':
    case ']':
    case '{':
    case '}':
    case '~':
    case '\'':
    case '"':
    case '$':
    case kOpenString:
    case kCloseString:
    case kOpenQuote:
    case kCloseQuote:
    case kOpenHex:
    case kCloseHex:
      return true;
    default:
      return false;
  }
}

bool isPrintable(unsigned char c) {
  return c >= 0x21 && c != 0x7F;
}

int hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

OSType codeFromBytes(std::string_view bytes) {
  OSType code = 0;
  for (size_t i = 0; i < 4; ++i) {
    const unsigned char b = i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : ' ';
    code = (code << 8) | b;
  }
  return code;
}

// A syntax error: the platform's code and where it was noticed.
struct Failure {
  OSStatus status = noErr;
  uint32_t code = aeBuildSyntaxNoErr;
  size_t position = 0;
};

class Parser {
 public:
  Parser(std::string_view text, std::span<const BuildArg> args) : text_(text), args_(args) {}

  const Failure& failure() const { return failure_; }

  // object, then the end of the text.
  bool parseWhole(Descriptor* out) {
    if (!next() || !parseObject(out, 0)) return false;
    if (tok_.kind != Tok::kEnd) return syntax(aeBuildSyntaxNoEOF, tok_.position);
    return checkArgsUsed();
  }

  // [ ['~'] ident ':' object { ',' ['~'] ident ':' object } ] into `event`.
  bool parseParameters(Descriptor* event) {
    if (!next()) return false;
    if (tok_.kind == Tok::kEnd) return checkArgsUsed();
    while (true) {
      bool optional = false;
      if (tok_.kind == Tok::kTilde) {
        optional = true;
        if (!next()) return false;
      }
      AEKeyword key = 0;
      if (!parseKey(&key)) return false;
      Descriptor value;
      if (!parseObject(&value, 1)) return false;
      if (!put(event->putParamDesc(key, std::move(value)))) return false;
      if (optional && !addOptionalKey(event, key)) return false;
      if (tok_.kind == Tok::kEnd) break;
      if (tok_.kind != Tok::kComma) return syntax(aeBuildSyntaxNoEOF, tok_.position);
      if (!next()) return false;
    }
    return checkArgsUsed();
  }

 private:
  bool syntax(uint32_t code, size_t position) {
    if (failure_.status == noErr) failure_ = Failure{errAEBuildSyntaxError, code, position};
    return false;
  }
  bool fail(OSStatus status, size_t position) {
    if (failure_.status == noErr) failure_ = Failure{status, aeBuildSyntaxNoErr, position};
    return false;
  }
  bool put(OSStatus status) { return status == noErr || fail(status, tok_.position); }

  unsigned char at(size_t i) const { return static_cast<unsigned char>(text_[i]); }

  // Reads the next token into tok_.
  bool next() {
    while (pos_ < text_.size() && isSpace(at(pos_)))
      ++pos_;
    tok_ = Token();
    tok_.position = pos_;
    if (pos_ >= text_.size()) {
      tok_.kind = Tok::kEnd;
      return true;
    }
    const unsigned char c = at(pos_);
    switch (c) {
      case ',':
        return single(Tok::kComma);
      case ':':
        return single(Tok::kColon);
      case '(':
        return single(Tok::kLParen);
      case ')':
        return single(Tok::kRParen);
      case '[':
        return single(Tok::kLBracket);
      case ']':
        return single(Tok::kRBracket);
      case '{':
        return single(Tok::kLBrace);
      case '}':
        return single(Tok::kRBrace);
      case '~':
        return single(Tok::kTilde);
      case '@':
        if (pos_ + 1 < text_.size() && at(pos_ + 1) == '@') {
          pos_ += 2;
          tok_.kind = Tok::kDoubleAt;
          return true;
        }
        return single(Tok::kAt);
      case '\'':
        return quoted('\'');
      case kOpenQuote:
        return quoted(kCloseQuote);
      case '"':
        return string('"');
      case kOpenString:
        return string(kCloseString);
      case '$':
        return hex('$');
      case kOpenHex:
        return hex(kCloseHex);
      default:
        break;
    }
    if (c == '-' || (c >= '0' && c <= '9')) return integer();
    if (!isPrintable(c) || isSyntax(c)) return syntax(aeBuildSyntaxBadToken, pos_);
    const size_t start = pos_;
    while (pos_ < text_.size() && isPrintable(at(pos_)) && !isSyntax(at(pos_)))
      ++pos_;
    tok_.kind = Tok::kIdent;
    tok_.code = codeFromBytes(text_.substr(start, pos_ - start));
    return true;
  }

  bool single(Tok kind) {
    tok_.kind = kind;
    ++pos_;
    return true;
  }

  bool quoted(unsigned char close) {
    std::string bytes;
    ++pos_;
    while (true) {
      if (pos_ >= text_.size()) return syntax(aeBuildSyntaxMissingQuote, pos_);
      unsigned char c = at(pos_++);
      if (c == close) break;
      if (c == '\\') {
        if (pos_ >= text_.size()) return syntax(aeBuildSyntaxMissingQuote, pos_);
        c = at(pos_++);
      }
      if (bytes.size() < 4) bytes += static_cast<char>(c);
    }
    tok_.kind = Tok::kIdent;
    tok_.code = codeFromBytes(bytes);
    return true;
  }

  bool string(unsigned char close) {
    const size_t start = ++pos_;
    while (pos_ < text_.size() && at(pos_) != close)
      ++pos_;
    if (pos_ >= text_.size()) return syntax(aeBuildSyntaxNoCloseString, pos_);
    tok_.kind = Tok::kString;
    tok_.bytes.assign(text_.substr(start, pos_ - start));
    ++pos_;
    return true;
  }

  bool hex(unsigned char close) {
    ++pos_;
    int pending = -1;
    while (true) {
      if (pos_ >= text_.size()) return syntax(aeBuildSyntaxNoCloseHex, pos_);
      const unsigned char c = at(pos_);
      if (c == close) break;
      if (!isSpace(c)) {
        const int v = hexValue(c);
        if (v < 0) return syntax(aeBuildSyntaxBadHex, pos_);
        if (pending < 0) {
          pending = v;
        } else {
          tok_.bytes += static_cast<char>(pending << 4 | v);
          pending = -1;
        }
      }
      ++pos_;
    }
    if (pending >= 0) return syntax(aeBuildSyntaxOddHex, pos_);
    ++pos_;
    tok_.kind = Tok::kHex;
    return true;
  }

  bool integer() {
    bool negative = false;
    if (at(pos_) == '-') {
      negative = true;
      ++pos_;
      if (pos_ >= text_.size() || at(pos_) < '0' || at(pos_) > '9') {
        return syntax(aeBuildSyntaxBadNegative, pos_);
      }
    }
    int64_t value = 0;
    while (pos_ < text_.size() && at(pos_) >= '0' && at(pos_) <= '9') {
      if (value < (int64_t{1} << 40)) value = value * 10 + (at(pos_) - '0');
      ++pos_;
    }
    tok_.kind = Tok::kInteger;
    tok_.integer = negative ? -value : value;
    return true;
  }

  // ---- Arguments ----------------------------------------------------------------------------

  const BuildArg* takeArg(size_t position) {
    if (nextArg_ >= args_.size()) {
      fail(paramErr, position);
      return nullptr;
    }
    return &args_[nextArg_++];
  }

  bool checkArgsUsed() {
    if (nextArg_ != args_.size()) return fail(paramErr, text_.size());
    return true;
  }

  // ---- Grammar ------------------------------------------------------------------------------

  bool parseKey(AEKeyword* key) {
    if (tok_.kind == Tok::kEnd) return syntax(aeBuildSyntaxBadEOF, tok_.position);
    if (tok_.kind != Tok::kIdent) return syntax(aeBuildSyntaxNoKey, tok_.position);
    *key = tok_.code;
    if (!next()) return false;
    if (tok_.kind == Tok::kEnd) return syntax(aeBuildSyntaxBadEOF, tok_.position);
    if (tok_.kind != Tok::kColon) return syntax(aeBuildSyntaxNoColon, tok_.position);
    return next();
  }

  bool addOptionalKey(Descriptor* event, AEKeyword key) {
    Descriptor keys;
    if (event->getAttributeDesc(keyOptionalKeywordAttr, typeAEList, &keys) != noErr) {
      keys = Descriptor::makeList();
    }
    if (!put(keys.putDesc(0, Descriptor::makeCode(typeKeyword, key)))) return false;
    return put(event->putAttributeDesc(keyOptionalKeywordAttr, keys));
  }

  // Integer literal: 'shor' in -32768...32767, 'long' in the 32-bit range.
  bool integerDesc(const Token& t, Descriptor* out) {
    if (t.integer >= INT16_MIN && t.integer <= INT16_MAX) {
      *out = Descriptor::makeSInt16(static_cast<int16_t>(t.integer));
    } else if (t.integer >= INT32_MIN && t.integer <= INT32_MAX) {
      *out = Descriptor::makeSInt32(static_cast<int32_t>(t.integer));
    } else {
      return fail(errAECoercionFail, t.position);
    }
    return true;
  }

  bool parseObject(Descriptor* out, uint32_t depth) {
    if (depth >= kMaxDescriptorDepth) return fail(memFullErr, tok_.position);
    const Token t = tok_;
    switch (t.kind) {
      case Tok::kAt: {
        const BuildArg* arg = takeArg(t.position);
        if (!arg) return false;
        if (arg->kind() != BuildArg::Kind::kDescriptor || !arg->desc()) {
          return fail(paramErr, t.position);
        }
        if (arg->desc()->depth() + depth > kMaxDescriptorDepth) {
          return fail(memFullErr, t.position);
        }
        *out = arg->desc()->duplicate();
        return next();
      }
      case Tok::kDoubleAt:
        return syntax(aeBuildSyntaxUncoercedDoubleAt, t.position);
      case Tok::kInteger:
        return integerDesc(t, out) && next();
      case Tok::kString:
        *out = Descriptor::fromBytes(
            typeChar, {reinterpret_cast<const uint8_t*>(t.bytes.data()), t.bytes.size()});
        if (t.bytes.size() > kMaxDescriptorDataSize) return fail(memFullErr, t.position);
        return next();
      case Tok::kHex:
        return syntax(aeBuildSyntaxUncoercedHex, t.position);
      case Tok::kIdent: {
        if (!next()) return false;
        switch (tok_.kind) {
          case Tok::kLParen:
            return parseParen(std::optional<OSType>(t.code), out);
          case Tok::kLBracket:
            if (t.code != typeAEList) return syntax(aeBuildSyntaxCoercedList, t.position);
            return parseList(out, depth);
          case Tok::kLBrace:
            if (t.code == typeAEList) return syntax(aeBuildSyntaxCoercedList, t.position);
            if (t.code == typeAppleEvent) return syntax(aeBuildSyntaxBadDesc, t.position);
            return parseRecord(t.code, out, depth);
          default:
            *out = Descriptor::makeEnum(t.code);
            return true;
        }
      }
      case Tok::kLParen:
        return parseParen(std::nullopt, out);
      case Tok::kLBracket:
        return parseList(out, depth);
      case Tok::kLBrace:
        return parseRecord(typeAERecord, out, depth);
      case Tok::kEnd:
        return syntax(aeBuildSyntaxBadEOF, t.position);
      default:
        return syntax(aeBuildSyntaxBadDesc, t.position);
    }
  }

  // '(' data ')' with an optional type prefix; tok_ is the '('.
  bool parseParen(std::optional<OSType> type, Descriptor* out) {
    if (!next()) return false;
    const Token t = tok_;
    switch (t.kind) {
      case Tok::kRParen:
        if (!type) {
          *out = Descriptor();
        } else if (*type == typeAEList) {
          *out = Descriptor::makeList();
        } else if (*type == typeAERecord) {
          *out = Descriptor::makeRecord();
        } else if (*type == typeAppleEvent) {
          return fail(errAECoercionFail, t.position);
        } else {
          *out = Descriptor::fromBytes(*type, {});
        }
        return next();
      case Tok::kAt:
        if (!substitute(type, t.position, out)) return false;
        break;
      case Tok::kDoubleAt:
        if (!type) return syntax(aeBuildSyntaxUncoercedDoubleAt, t.position);
        if (!substituteHandle(*type, t.position, out)) return false;
        break;
      case Tok::kInteger: {
        Descriptor number;
        if (!integerDesc(t, &number)) return false;
        if (type && *type != number.type()) {
          // The literal is a 'long' converted by the numeric coercion.
          const Descriptor asLong = Descriptor::makeSInt32(static_cast<int32_t>(t.integer));
          if (const OSStatus s = coerceDesc(asLong, *type, out); s != noErr) {
            return fail(s, t.position);
          }
        } else {
          *out = std::move(number);
        }
        break;
      }
      case Tok::kIdent: {
        if (!type) {
          *out = Descriptor::makeEnum(t.code);
        } else if (!relabel(*type, &t.code, sizeof t.code, t.position, out)) {
          return false;
        }
        break;
      }
      case Tok::kString:
      case Tok::kHex:
        if (!type) {
          if (t.kind == Tok::kHex) return syntax(aeBuildSyntaxUncoercedHex, t.position);
          if (!relabel(typeChar, t.bytes.data(), t.bytes.size(), t.position, out)) return false;
        } else if (!relabel(*type, t.bytes.data(), t.bytes.size(), t.position, out)) {
          return false;
        }
        break;
      case Tok::kEnd:
        return syntax(aeBuildSyntaxBadEOF, t.position);
      default:
        return syntax(aeBuildSyntaxBadData, t.position);
    }
    if (!next()) return false;
    if (tok_.kind == Tok::kEnd) return syntax(aeBuildSyntaxBadEOF, tok_.position);
    if (tok_.kind != Tok::kRParen) return syntax(aeBuildSyntaxNoCloseParen, tok_.position);
    return next();
  }

  // Bytes labelled with `type`, no conversion.
  bool relabel(DescType type, const void* data, size_t size, size_t position, Descriptor* out) {
    if (type == typeAEList || type == typeAERecord || type == typeAppleEvent) {
      return fail(errAECoercionFail, position);
    }
    const OSStatus status = Descriptor::create(type, data, size, out);
    return status == noErr || fail(status, position);
  }

  // type(@): what the argument means depends on the type.
  bool substitute(std::optional<OSType> type, size_t position, Descriptor* out) {
    const BuildArg* arg = takeArg(position);
    if (!arg) return false;
    using Kind = BuildArg::Kind;
    if (!type) {
      if (arg->kind() != Kind::kDescriptor || !arg->desc()) return fail(paramErr, position);
      *out = arg->desc()->duplicate();
      return true;
    }
    switch (*type) {
      case typeSInt32:
      case typeSInt16:
      case typeBoolean: {
        if (arg->kind() != Kind::kInt32) return fail(paramErr, position);
        const int32_t v = arg->int32Value();
        if (*type == typeSInt32) {
          *out = Descriptor::makeSInt32(v);
        } else if (*type == typeBoolean) {
          *out = Descriptor::makeBoolean(v != 0);
        } else {
          if (v < INT16_MIN || v > INT16_MAX) return fail(errAECoercionFail, position);
          *out = Descriptor::makeSInt16(static_cast<int16_t>(v));
        }
        return true;
      }
      case typeIEEE32BitFloatingPoint:
      case typeIEEE64BitFloatingPoint: {
        double v = 0.0;
        if (arg->kind() == Kind::kDouble) {
          v = arg->doubleValue();
        } else if (arg->kind() == Kind::kInt32) {
          v = arg->int32Value();
        } else {
          return fail(paramErr, position);
        }
        if (*type == typeIEEE64BitFloatingPoint) {
          *out = Descriptor::makeFloat64(v);
        } else {
          if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<float>::max()) {
            return fail(errAECoercionFail, position);
          }
          *out = Descriptor::makeFloat32(static_cast<float>(v));
        }
        return true;
      }
      default:
        if (arg->kind() != Kind::kBytes && arg->kind() != Kind::kText) {
          return fail(paramErr, position);
        }
        if (arg->byteSpan().data() == nullptr && !arg->byteSpan().empty()) {
          return fail(paramErr, position);
        }
        return relabel(*type, arg->byteSpan().data(), arg->byteSpan().size(), position, out);
    }
  }

  // type(@@): a handle's bytes.
  bool substituteHandle(OSType type, size_t position, Descriptor* out) {
    const BuildArg* arg = takeArg(position);
    if (!arg) return false;
    if (arg->kind() != BuildArg::Kind::kHandle && arg->kind() != BuildArg::Kind::kBytes) {
      return fail(paramErr, position);
    }
    return relabel(type, arg->byteSpan().data(), arg->byteSpan().size(), position, out);
  }

  // '[' [object {',' object}] ']'; tok_ is the '['.
  bool parseList(Descriptor* out, uint32_t depth) {
    Descriptor list = Descriptor::makeList();
    if (!next()) return false;
    if (tok_.kind != Tok::kRBracket) {
      while (true) {
        Descriptor item;
        if (!parseObject(&item, depth + 1)) return false;
        if (!put(list.putDesc(0, std::move(item)))) return false;
        if (tok_.kind == Tok::kRBracket) break;
        if (tok_.kind == Tok::kEnd) return syntax(aeBuildSyntaxBadEOF, tok_.position);
        if (tok_.kind != Tok::kComma) return syntax(aeBuildSyntaxNoCloseBracket, tok_.position);
        if (!next()) return false;
      }
    }
    *out = std::move(list);
    return next();
  }

  // '{' [ident ':' object {',' ident ':' object}] '}'; tok_ is the '{'.
  bool parseRecord(DescType type, Descriptor* out, uint32_t depth) {
    Descriptor record = Descriptor::makeRecord(type);
    if (!next()) return false;
    if (tok_.kind != Tok::kRBrace) {
      while (true) {
        AEKeyword key = 0;
        if (!parseKey(&key)) return false;
        Descriptor value;
        if (!parseObject(&value, depth + 1)) return false;
        if (!put(record.putParamDesc(key, std::move(value)))) return false;
        if (tok_.kind == Tok::kRBrace) break;
        if (tok_.kind == Tok::kEnd) return syntax(aeBuildSyntaxBadEOF, tok_.position);
        if (tok_.kind != Tok::kComma) return syntax(aeBuildSyntaxNoCloseBrace, tok_.position);
        if (!next()) return false;
      }
    }
    *out = std::move(record);
    return next();
  }

  std::string_view text_;
  std::span<const BuildArg> args_;
  size_t nextArg_ = 0;
  size_t pos_ = 0;
  Token tok_;
  Failure failure_;
};

OSStatus report(const Failure& failure, BuildError* err) {
  if (err) {
    err->code = failure.code;
    err->position = static_cast<uint32_t>(
        std::min<size_t>(failure.position, std::numeric_limits<uint32_t>::max()));
  }
  return failure.status == noErr ? paramErr : failure.status;
}

}  // namespace

std::string_view buildErrorName(uint32_t code) {
  static constexpr std::string_view kNames[] = {
      "aeBuildSyntaxNoErr",          "aeBuildSyntaxBadToken",
      "aeBuildSyntaxBadEOF",         "aeBuildSyntaxNoEOF",
      "aeBuildSyntaxBadNegative",    "aeBuildSyntaxMissingQuote",
      "aeBuildSyntaxBadHex",         "aeBuildSyntaxOddHex",
      "aeBuildSyntaxNoCloseHex",     "aeBuildSyntaxUncoercedHex",
      "aeBuildSyntaxNoCloseString",  "aeBuildSyntaxBadDesc",
      "aeBuildSyntaxBadData",        "aeBuildSyntaxNoCloseParen",
      "aeBuildSyntaxNoCloseBracket", "aeBuildSyntaxNoCloseBrace",
      "aeBuildSyntaxNoKey",          "aeBuildSyntaxNoColon",
      "aeBuildSyntaxCoercedList",    "aeBuildSyntaxUncoercedDoubleAt",
  };
  return code < std::size(kNames) ? kNames[code] : std::string_view();
}

OSStatus buildDesc(Descriptor* out, BuildError* err, std::string_view format,
                   std::span<const BuildArg> args) {
  if (err) *err = BuildError();
  Descriptor result;
  Parser parser(format, args);
  if (!parser.parseWhole(&result)) {
    *out = Descriptor();
    return report(parser.failure(), err);
  }
  *out = std::move(result);
  return noErr;
}

OSStatus buildParameters(Descriptor* event, BuildError* err, std::string_view paramsFormat,
                         std::span<const BuildArg> args) {
  if (err) *err = BuildError();
  if (!event->isAppleEvent()) return errAENotAppleEvent;
  Descriptor working = event->duplicate();
  Parser parser(paramsFormat, args);
  if (!parser.parseParameters(&working)) return report(parser.failure(), err);
  *event = std::move(working);
  return noErr;
}

OSStatus buildAppleEvent(AEEventClass eventClass, AEEventID eventID, DescType addressType,
                         std::span<const uint8_t> address, AEReturnID returnID,
                         AETransactionID transactionID, Descriptor* out, BuildError* err,
                         std::string_view paramsFormat, std::span<const BuildArg> args) {
  *out = Descriptor();
  if (err) *err = BuildError();
  Descriptor target;
  if (const OSStatus status =
          Descriptor::create(addressType, address.data(), address.size(), &target);
      status != noErr) {
    return status;
  }
  Descriptor event =
      Descriptor::makeAppleEvent(eventClass, eventID, target, returnID, transactionID);
  Parser parser(paramsFormat, args);
  if (!parser.parseParameters(&event)) return report(parser.failure(), err);
  *out = std::move(event);
  return noErr;
}

}  // namespace rvitunes::ae
