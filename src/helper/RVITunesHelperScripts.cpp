// RVITunesHelper's script operations: scripts composed from fixed pieces, run with a retry
// loop, and the look-up of running applications that guards the ones needing a running
// application.
#include <unistd.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <utility>

#include "rvitunes/ae/EventManager.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/AppleScript.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RvExecuteLock.h"

namespace rvitunes {

namespace {

// The pieces scripts are made of; "%@" stands for the argument, inserted as it is.
constexpr std::string_view kTelliTunes = "tell application \"iTunes\"\n";
constexpr std::string_view kPlayFile = "play POSIX file \"%@\" with once\n";
constexpr std::string_view kRewind = "set player position to 0\n";
constexpr std::string_view kEnd = "end tell\n";
constexpr std::string_view kStop = "stop\n";
constexpr std::string_view kActivate = "tell application \"%@\" to activate\n";
constexpr std::string_view kTellSystemEvents = "tell application \"System Events\"\n";
constexpr std::string_view kMakeVisible = "set visible of process \"%@\" to true\n";
constexpr std::string_view kTellSystemEventsInline = "tell application \"System Events\" ";
constexpr std::string_view kHideProcess = " to tell process \"%@\" to set visible to false\n";
constexpr std::string_view kTellApplication = "tell application \"%@\"\n";
constexpr std::string_view kQuit = "quit\n";

constexpr std::string_view kDefaultApplication = "iTunes";

// A failing script runs once and then up to this many times again.
constexpr int kMaxRetries = 50;
constexpr useconds_t kRetryPauseMicroseconds = 100;

void append(std::string& script, std::string_view piece, std::string_view argument = {}) {
  const size_t slot = piece.find("%@");
  if (slot == std::string_view::npos) {
    script += piece;
    return;
  }
  script += piece.substr(0, slot);
  script += argument;
  script += piece.substr(slot + 2);
}

std::mutex executorMutex;
std::shared_ptr<const RVITunesHelper::AppleScriptExecutor> installedExecutor;

std::shared_ptr<ae::Descriptor> runBuiltIn(const std::string& source, AppleScriptError* error) {
  AppleScript script(source);
  return script.executeAndReturnError(error);
}

// The executor in use, taken once per operation so that a replacement never meets a run
// halfway.
std::shared_ptr<const RVITunesHelper::AppleScriptExecutor> currentExecutor() {
  std::lock_guard lock(executorMutex);
  if (installedExecutor) return installedExecutor;
  static const auto builtIn =
      std::make_shared<const RVITunesHelper::AppleScriptExecutor>(&runBuiltIn);
  return builtIn;
}

std::atomic<bool> executeLockCreated{false};

std::mutex& executeLockStorage() {
  static std::mutex lock;
  return lock;
}

}  // namespace

std::mutex* Rv_ExecuteLock() {
  return executeLockCreated.load(std::memory_order_acquire) ? &executeLockStorage() : nullptr;
}

RVITunesHelper::AppleScriptExecutor RVITunesHelper::setAppleScriptExecutor(
    AppleScriptExecutor executor) {
  std::shared_ptr<const AppleScriptExecutor> replacement;
  if (executor) replacement = std::make_shared<const AppleScriptExecutor>(std::move(executor));
  std::lock_guard lock(executorMutex);
  std::shared_ptr<const AppleScriptExecutor> previous =
      std::exchange(installedExecutor, std::move(replacement));
  return previous ? *previous : AppleScriptExecutor();
}

int32_t RVITunesHelper::executeAppleScriptWithString(std::string_view source) {
  const auto executor = currentExecutor();
  const std::string text(source);
  int32_t result = 0;
  try {
    int attempts = 0;
    while (true) {
      AppleScriptError error;
      if ((*executor)(text, &error) != nullptr) break;
      if (++attempts > kMaxRetries) {
        result = -1;
        break;
      }
      ::usleep(kRetryPauseMicroseconds);
    }
  } catch (const std::exception&) {
    // Swallowed: the result stays what it was.
  }
  return result;
}

std::shared_ptr<ae::Descriptor> RVITunesHelper::executeAppleScriptBackDesc(
    std::string_view source) {
  const auto executor = currentExecutor();
  try {
    AppleScriptError error;
    return (*executor)(std::string(source), &error);
  } catch (const std::exception&) {
    return nullptr;
  }
}

int32_t RVITunesHelper::executeAppleScriptWithThreadLock(std::optional<std::string_view> source) {
  if (!source) return -1;
  if (!executeLockCreated.load(std::memory_order_acquire)) {
    (void)executeLockStorage();
    executeLockCreated.store(true, std::memory_order_release);
  }
  return executeAppleScriptWithString(*source);
}

int32_t RVITunesHelper::startPlayTracksByAppleScriptFlag(std::optional<std::string_view> path,
                                                         std::optional<bool> /*flag*/) {
  if (!path) return -1;
  std::string script;
  append(script, kTelliTunes);
  append(script, kPlayFile, *path);
  append(script, kRewind);
  append(script, kEnd);
  return executeAppleScriptWithThreadLock(script);
}

int32_t RVITunesHelper::stopPlayTracksByAppleScript(const void* /*sender*/) {
  if (!applicationInfoByName(kDefaultApplication)) return -1;
  std::string script;
  append(script, kTelliTunes);
  append(script, kStop);
  append(script, kEnd);
  Cadenza::sharedInstance()->stop();
  const int32_t result = executeAppleScriptWithThreadLock(script);
  if (result < 0) Cadenza::sharedInstance()->stop();
  return result;
}

int32_t RVITunesHelper::showApplicationByAppleScript(std::optional<std::string_view> name) {
  const std::string_view application = name.value_or(kDefaultApplication);
  if (!applicationInfoByName(application)) return -1;
  std::string script;
  append(script, kActivate, application);
  append(script, kTellSystemEvents);
  append(script, kMakeVisible, application);
  append(script, kEnd);
  return executeAppleScriptWithThreadLock(script);
}

int32_t RVITunesHelper::hideApplicationByAppleScript(std::optional<std::string_view> name) {
  const std::string_view application = name.value_or(kDefaultApplication);
  if (!applicationInfoByName(application)) return -1;
  std::string script;
  append(script, kTellSystemEventsInline);
  append(script, kHideProcess, application);
  return executeAppleScriptWithThreadLock(script);
}

int32_t RVITunesHelper::quitApplicationByAppleScript(std::optional<std::string_view> name) {
  const std::string_view application = name.value_or(kDefaultApplication);
  if (!applicationInfoByName(application)) return -1;
  std::string script;
  append(script, kTellApplication, application);
  append(script, kQuit);
  append(script, kEnd);
  return executeAppleScriptWithThreadLock(script);
}

std::optional<ApplicationInfo> RVITunesHelper::applicationInfoByName(
    std::optional<std::string_view> name) {
  if (!name) return std::nullopt;
  for (const ae::RunningApplication& app : ae::EventManager::shared().runningApplications()) {
    if (app.name == *name) {
      return ApplicationInfo{app.name, app.pid, app.signature, app.inProcess};
    }
  }
  return std::nullopt;
}

plist::Value ApplicationInfo::dictionary() const {
  plist::Value info = plist::Value::newDictionary();
  info.asDictionary()->set(kNSApplicationName, plist::Value::string(name));
  info.asDictionary()->set(kNSApplicationProcessIdentifier,
                           plist::Value::integer(processIdentifier));
  info.asDictionary()->set(kRVApplicationSignature,
                           plist::Value::string(fourCharString(signature)));
  return info;
}

}  // namespace rvitunes
