#include "rvitunes/base/Log.h"

#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace rvitunes {
namespace {

std::string formatLogV(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

std::string formatLogV(const char* format, va_list args) {
  char small[256];
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (length < 0) return format;
  if (static_cast<size_t>(length) < sizeof small) return std::string(small, length);
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  text.resize(length);
  return text;
}

// Writes the way the platform's system log does on a terminal: local time with milliseconds,
// the short process name and the pid.
class StderrLogSink : public LogSink {
 public:
  void write(std::string_view message) override {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d.%03ld", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<long>(now.tv_nsec / 1000000));
    std::string line = stamp;
    line += ' ';
    line += program_invocation_short_name;
    line += '[' + std::to_string(getpid()) + "] ";
    line += message;
    if (line.back() != '\n') line += '\n';
    // One write per line keeps lines from concurrent threads and processes whole.
    size_t done = 0;
    while (done < line.size()) {
      const ssize_t n = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      done += static_cast<size_t>(n);
    }
  }
};

struct Channel {
  std::mutex mutex;
  std::shared_ptr<LogSink> sink;
};

Channel& nullChannel() {
  static Channel channel;
  return channel;
}

const std::shared_ptr<LogSink>& defaultSystemSink() {
  static const std::shared_ptr<LogSink> sink = std::make_shared<StderrLogSink>();
  return sink;
}

Channel& systemChannel() {
  static Channel channel{{}, defaultSystemSink()};
  return channel;
}

std::shared_ptr<LogSink> currentSink(Channel& channel) {
  std::lock_guard lock(channel.mutex);
  return channel.sink;
}

}  // namespace

std::string formatLog(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = formatLogV(format, args);
  va_end(args);
  return text;
}

std::shared_ptr<LogSink> setNullLogSink(std::shared_ptr<LogSink> sink) {
  Channel& channel = nullChannel();
  std::lock_guard lock(channel.mutex);
  detail::nullLogCapturing.store(sink != nullptr, std::memory_order_relaxed);
  channel.sink.swap(sink);
  return sink;
}

std::shared_ptr<LogSink> setSystemLogSink(std::shared_ptr<LogSink> sink) {
  if (!sink) sink = defaultSystemSink();
  Channel& channel = systemChannel();
  std::lock_guard lock(channel.mutex);
  channel.sink.swap(sink);
  return sink;
}

namespace detail {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void writeNullLog(const char* format, ...) {
  // The flag that let the caller in may be stale; the sink under the lock decides.
  auto sink = currentSink(nullChannel());
  if (!sink) return;
  va_list args;
  va_start(args, format);
  const std::string line = formatLogV(format, args);
  va_end(args);
  sink->write(line);
}
#pragma GCC diagnostic pop
}  // namespace detail

void SystemLog(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::string message = formatLogV(format, args);
  va_end(args);
  if (auto sink = currentSink(systemChannel())) sink->write(message);
}

}  // namespace rvitunes
