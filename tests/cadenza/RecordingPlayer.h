// Test support for the player-control classes: a stand-in player registered in this process
// that records every event it receives and answers with canned replies, and a NullLog capture.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/base/CapturingLogSink.h"
#include "rvitunes/base/Log.h"

namespace rvitunes::cadenza_testing {

// Registers an application under `signature` with the process-wide event manager for the
// lifetime of the object. Each event it receives is kept (a copy, its printed form, and whether
// the sender wanted a reply); the responder fills the reply.
class RecordingPlayer {
 public:
  // Answers one event: may put '----' into `reply` (null when no reply was wanted) and returns
  // the handler status (non-zero becomes the reply's 'errn').
  using Responder = std::function<OSStatus(const ae::Descriptor& event, ae::Descriptor& reply)>;

  explicit RecordingPlayer(OSType signature = fourCharCode("hook"), std::string name = "iTunes")
      : signature_(signature) {
    auto app = ae::EventManager::shared().registerApplication(signature, std::move(name));
    EXPECT_TRUE(app.ok()) << app.status().toString();
    if (!app.ok()) return;
    (*app)->installEventHandler(ae::typeWildCard, ae::typeWildCard,
                                [this](const ae::Descriptor& event, ae::Descriptor& reply) {
                                  return handle(event, reply);
                                });
  }
  ~RecordingPlayer() { (void)ae::EventManager::shared().unregisterApplication(signature_); }
  RecordingPlayer(const RecordingPlayer&) = delete;
  RecordingPlayer& operator=(const RecordingPlayer&) = delete;

  void respondWith(Responder responder) {
    std::lock_guard lock(mutex_);
    responder_ = std::move(responder);
  }
  // Every later event is answered with a copy of `result` as '----'.
  void answer(ae::Descriptor result) {
    auto shared = std::make_shared<const ae::Descriptor>(std::move(result));
    respondWith([shared](const ae::Descriptor&, ae::Descriptor& reply) {
      if (!reply.isNull()) (void)reply.putParamDesc(ae::keyDirectObject, shared->duplicate());
      return noErr;
    });
  }
  // Every later event is answered with the error `status` and no result.
  void fail(OSStatus status) {
    respondWith([status](const ae::Descriptor&, ae::Descriptor&) { return status; });
  }

  size_t count() const {
    std::lock_guard lock(mutex_);
    return printed_.size();
  }
  // The printed form of every event received, oldest first.
  std::vector<std::string> printed() const {
    std::lock_guard lock(mutex_);
    return printed_;
  }
  // The last event received (the null descriptor when none came).
  ae::Descriptor last() const {
    std::lock_guard lock(mutex_);
    return events_.empty() ? ae::Descriptor() : events_.back().duplicate();
  }
  // Whether the sender of the last event asked for a reply.
  bool lastWantedReply() const {
    std::lock_guard lock(mutex_);
    return !wantedReply_.empty() && wantedReply_.back();
  }

 private:
  OSStatus handle(const ae::Descriptor& event, ae::Descriptor& reply) {
    Responder responder;
    {
      std::lock_guard lock(mutex_);
      printed_.push_back(ae::printDesc(event));
      events_.push_back(event.duplicate());
      wantedReply_.push_back(!reply.isNull());
      responder = responder_;
    }
    return responder ? responder(event, reply) : noErr;
  }

  const OSType signature_;
  mutable std::mutex mutex_;
  Responder responder_;
  std::vector<std::string> printed_;
  std::vector<ae::Descriptor> events_;
  std::vector<bool> wantedReply_;
};

// Captures the NullLog channel while it lives.
class LogCapture {
 public:
  LogCapture() : sink_(std::make_shared<CapturingLogSink>()), previous_(setNullLogSink(sink_)) {}
  ~LogCapture() { setNullLogSink(previous_); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const { return sink_->lines(); }
  bool contains(std::string_view text) const { return sink_->contains(text); }

 private:
  std::shared_ptr<CapturingLogSink> sink_;
  std::shared_ptr<LogSink> previous_;
};

// A scratch directory removed with everything in it.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = "/tmp/czobj-XXXXXX";
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
    EXPECT_FALSE(path_.empty());
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Points the event bus and the file-reference registry of this test program at private
// directories, before anything uses them, so that no other program's applications or
// references are seen.
struct PrivateRuntimeDirectories {
  PrivateRuntimeDirectories() {
    std::string pattern = "/tmp/czrun-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) return;
    path = pattern;
    ::setenv("XDG_RUNTIME_DIR", path.c_str(), 1);
    ::setenv("RVITUNES_FILEREF_DIR", (path + "/file-references").c_str(), 1);
  }
  ~PrivateRuntimeDirectories() {
    std::error_code ignored;
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
  std::string path;
};
inline const PrivateRuntimeDirectories kPrivateRuntimeDirectories;

// The item under `key` of a record or event; the null descriptor (and a failure) when absent.
inline const ae::Descriptor& item(const ae::Descriptor& desc, const char (&key)[5]) {
  const ae::Descriptor* found = desc.findParam(fourCharCode(key));
  EXPECT_NE(found, nullptr) << "no item " << key << " in " << ae::printDesc(desc);
  return found != nullptr ? *found : ae::nullDescriptor();
}

template <class T>
T valueOf(const ae::Descriptor& desc) {
  T value{};
  EXPECT_EQ(desc.dataSize(), sizeof(T)) << ae::printDesc(desc);
  if (desc.dataSize() == sizeof(T)) std::memcpy(&value, desc.data().data(), sizeof(T));
  return value;
}

inline ae::Descriptor bytesDesc(ae::DescType type, std::string_view bytes) {
  return ae::Descriptor::fromBytes(
      type, std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

}  // namespace rvitunes::cadenza_testing
