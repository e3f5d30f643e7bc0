// Expected failures as values: a Status (platform error number plus a readable reason) and
// Result<T>, which holds either a T or the Status that explains why there is none.
#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <variant>

#include "rvitunes/base/OSStatus.h"

namespace rvitunes {

// Status is noErr with an empty message, or a non-zero platform error number with a reason.
// Copyable value type; thread-compatible.
class Status {
 public:
  Status() = default;
  static Status success() { return Status(); }
  // `code` must be non-zero; a zero code is turned into paramErr so that an error never reads
  // as success.
  static Status error(OSStatus code, std::string message) {
    return Status(code == noErr ? paramErr : code, std::move(message));
  }

  bool ok() const { return code_ == noErr; }
  OSStatus code() const { return code_; }
  const std::string& message() const { return message_; }

  // "message (code)" for error output; "OK" for success.
  std::string toString() const {
    if (ok()) return "OK";
    return message_ + " (" + std::to_string(code_) + ")";
  }

 private:
  Status(OSStatus code, std::string message) : code_(code), message_(std::move(message)) {}
  OSStatus code_ = noErr;
  std::string message_;
};

// Either a value or the Status of the failure. Accessing value() on an error is a bug (asserted).
template <class T>
class Result {
 public:
  Result(T value) : v_(std::move(value)) {}        // NOLINT(google-explicit-constructor)
  Result(Status status) : v_(std::move(status)) {  // NOLINT(google-explicit-constructor)
    assert(!std::get<Status>(v_).ok());
  }

  bool ok() const { return std::holds_alternative<T>(v_); }
  explicit operator bool() const { return ok(); }

  T& value() & {
    assert(ok());
    return std::get<T>(v_);
  }
  const T& value() const& {
    assert(ok());
    return std::get<T>(v_);
  }
  T&& value() && {
    assert(ok());
    return std::get<T>(std::move(v_));
  }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }

  // The failure; Status::success() when a value is held.
  Status status() const { return ok() ? Status() : std::get<Status>(v_); }

 private:
  std::variant<T, Status> v_;
};

}  // namespace rvitunes
