// Test support for the track items: an icon dictionary installed for one test, records built
// in memory, and the reference player's live library behind a tap that can refuse events and
// measures how many of them are handled at once.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "TappedPlayer.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::track_item_testing {

// Installs an icon dictionary holding a 1×1 image under each of `names` while it lives.
class IconsInstalled {
 public:
  explicit IconsInstalled(const std::vector<std::string>& names) {
    auto icons = plist::Dictionary::create();
    for (const std::string& name : names) {
      icons->set(name, IconImage::makeValue(std::make_shared<const image::Image>(1, 1), name));
    }
    setRVITunesIcons(icons);
  }
  ~IconsInstalled() { setRVITunesIcons(nullptr); }
  IconsInstalled(const IconsInstalled&) = delete;
  IconsInstalled& operator=(const IconsInstalled&) = delete;

  // The entry's image source, which is its name; "" for a null image.
  static std::string nameOf(const plist::Ref<IconImage>& icon) {
    return icon ? icon->source() : std::string();
  }
};

// A record of the library file built key by key.
class Record {
 public:
  Record() : dict_(plist::Dictionary::create()) {}
  Record& with(std::string_view key, plist::Value value) {
    dict_->set(key, std::move(value));
    return *this;
  }
  Record& with(std::string_view key, int value) { return with(key, int64_t{value}); }
  Record& with(std::string_view key, int64_t value) {
    return with(key, plist::Value::integer(value));
  }
  Record& with(std::string_view key, const char* text) {
    return with(key, plist::Value::string(text));
  }
  const plist::Ref<plist::Dictionary>& dict() const { return dict_; }

 private:
  plist::Ref<plist::Dictionary> dict_;
};

// The reference player with the live library of TappedPlayer.h (Aria 301, Bolero 302, coda 303
// in Library 400, Music 401, Chill 411 and focus 420), in a private event manager, behind an
// application under 'hook' that forwards every event unless `refuse` says otherwise. Each
// forwarded event is held for `delay`, so that work running side by side would interleave.
class FilteringPlayer {
 public:
  using Refuse = std::function<bool(const std::string& printed)>;

  explicit FilteringPlayer(Refuse refuse = nullptr,
                           std::chrono::milliseconds delay = std::chrono::milliseconds(0))
      : refuse_(std::move(refuse)), delay_(delay) {
    cadenza_testing::CleanControllerState::reset();
    library_ = cadenza_testing::writeLiveLibrary(directory_.path());
    player::PlayerServerOptions options;
    options.version = *player::PlayerVersion::parse("7.7.1");
    options.eventManager = &manager_;
    options.writeBack = false;
    options.tickInterval = std::chrono::milliseconds(0);
    auto server = player::PlayerServer::startInProcess(library_, std::move(options));
    EXPECT_TRUE(server.ok()) << server.status().toString();
    if (server.ok()) server_ = std::move(*server);
    tap_.respondWith([this](const ae::Descriptor& event, ae::Descriptor& reply) {
      return forward(event, reply);
    });
  }
  ~FilteringPlayer() { cadenza_testing::CleanControllerState::reset(); }
  FilteringPlayer(const FilteringPlayer&) = delete;
  FilteringPlayer& operator=(const FilteringPlayer&) = delete;

  size_t mark() const { return tap_.count(); }
  std::vector<std::string> eventsSince(size_t mark) const {
    const std::vector<std::string> all = tap_.printed();
    return std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(mark), all.end());
  }
  // How many events since `mark` contain `text`.
  size_t countSince(size_t mark, std::string_view text) const {
    const auto events = eventsSince(mark);
    return static_cast<size_t>(std::count_if(events.begin(), events.end(), [&](const auto& e) {
      return e.find(text) != std::string::npos;
    }));
  }

 private:
  OSStatus forward(const ae::Descriptor& event, ae::Descriptor& reply) {
    if (refuse_ && refuse_(ae::printDesc(event))) return -1728;  // no such object
    if (delay_.count() > 0) std::this_thread::sleep_for(delay_);
    OSStatus status = noErr;
    if (reply.isNull()) {
      status = manager_.send(event, nullptr, ae::kAENoReply | ae::kAENeverInteract,
                             ae::kAEDefaultTimeout);
    } else {
      ae::Descriptor answer;
      status = manager_.send(event, &answer, ae::kAEWaitReply | ae::kAENeverInteract,
                             ae::kAEDefaultTimeout);
      if (status == noErr) {
        for (const ae::AEKeyword key : {ae::keyDirectObject, ae::keyErrorString}) {
          if (const ae::Descriptor* value = answer.findParam(key)) {
            (void)reply.putParamDesc(key, value->duplicate());
          }
        }
        int32_t error = noErr;
        (void)answer.getParamPtr(ae::keyErrorNumber, ae::typeSInt32, nullptr, &error, sizeof error,
                                 nullptr);
        status = error;
      }
    }
    return status;
  }

  Refuse refuse_;
  std::chrono::milliseconds delay_;
  cadenza_testing::ScratchDirectory directory_;
  std::string library_;
  ae::EventManager manager_;
  std::unique_ptr<player::PlayerServer> server_;
  cadenza_testing::RecordingPlayer tap_;
};

}  // namespace rvitunes::track_item_testing
