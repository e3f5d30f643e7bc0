// The two diagnostic channels: NullLog, the debug channel that discards by default, and
// SystemLog, the system log (stderr with a timestamp and process prefix). Each writes to a
// replaceable sink so that tests can capture what is logged.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

namespace rvitunes {

// Receives formatted log messages, one call per message, without a trailing newline added.
// write() may be called from several threads at once; implementations must be thread-safe.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(std::string_view line) = 0;
};

// printf-style formatting with vsnprintf semantics into a std::string of any length. A format
// the C library rejects (an encoding error) gives the format text unchanged.
std::string formatLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Installs the sink of the debug channel and answers the previous one; nullptr restores
// discarding. Thread-safe; a message being written keeps the sink it started with alive.
std::shared_ptr<LogSink> setNullLogSink(std::shared_ptr<LogSink> sink);

// Installs the sink of the system log and answers the previous one; nullptr restores the
// default sink, which writes "<local time> <process>[<pid>] <message>\n" to stderr in one
// write. Thread-safe.
std::shared_ptr<LogSink> setSystemLogSink(std::shared_ptr<LogSink> sink);

namespace detail {
// True while a debug sink is installed; read without locking so discarding costs one load.
inline std::atomic<bool> nullLogCapturing{false};
// Formats and writes to the debug sink. Deliberately without the format attribute: the format
// reaches it through the NullLog template, where the compiler cannot see the literal and would
// warn at every call.
void writeNullLog(const char* format, ...);
}  // namespace detail

// The debug channel. Without a sink the call returns at once and the arguments are never
// formatted; with one, the message is formatted as printf would and passed as one line.
// Arguments go through C varargs, so pass C strings (s.c_str()), not std::string.
template <class... A>
void NullLog(const char* format, A... args) {
  if (!detail::nullLogCapturing.load(std::memory_order_relaxed)) return;
  detail::writeNullLog(format, args...);
}

// The system log (the platform's NSLog): formats as printf would and passes the message to the
// system-log sink. Thread-safe.
void SystemLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace rvitunes
