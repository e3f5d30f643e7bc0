// The controller's own events: built from a template and addressed to the player's signature,
// sent in the controller's two modes, and the walk of a reply that lists tracks.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"
#include "rvitunes/cadenza/CZTrack.h"

namespace rvitunes::cadenza_detail {

// Commands and plays: no reply wanted, never interact (17). Reads: wait, never interact (19).
inline constexpr ae::AESendMode kCommandMode = ae::kAENoReply | ae::kAENeverInteract;
inline constexpr ae::AESendMode kReadMode = ae::kAEWaitReply | ae::kAENeverInteract;

// Builds `eventClass`/`eventID` to the application whose signature iTunesSignature holds.
// Answers the build status; `*event` is the null descriptor on failure.
OSStatus buildPlayerEvent(ae::AEEventClass eventClass, ae::AEEventID eventID,
                          std::string_view params, std::initializer_list<ae::BuildArg> args,
                          ae::Descriptor* event);

// Sends without a reply; logs "Error sending AppleEvent: %d" on failure.
void sendCommandEvent(const ae::Descriptor& event);

// Sends and waits; the reply, or nullopt after "Error sending AppleEvent: %d".
std::optional<ae::Descriptor> sendReadEvent(const ae::Descriptor& event);

// The direct object of `reply` as it is; nullopt after "Error extracting from reply event: %d".
std::optional<ae::Descriptor> directObject(const ae::Descriptor& reply);

// The tracks of a list, one per item in order. A list that cannot be counted gives nullopt
// ("Unable to access Reply List: %d"); an item that cannot be read ends the walk ("Error
// rextracting from List: %d") and the tracks before it are the result. `List` offers
// ae::Descriptor's countItems and getNthDesc.
template <class List>
std::optional<std::vector<std::shared_ptr<CZTrack>>> tracksOfList(const List& list) {
  int32_t count = 0;
  if (const OSStatus status = list.countItems(&count); status != noErr) {
    NullLog("Unable to access Reply List: %d", status);
    return std::nullopt;
  }
  std::vector<std::shared_ptr<CZTrack>> tracks;
  tracks.reserve(static_cast<size_t>(count > 0 ? count : 0));
  for (int32_t number = 1; number <= count; ++number) {
    ae::Descriptor item;
    const OSStatus status = list.getNthDesc(number, ae::typeWildCard, nullptr, &item);
    if (status != noErr) {
      NullLog("Error rextracting from List: %d", status);
      break;
    }
    tracks.push_back(std::make_shared<CZTrack>(std::move(item)));
  }
  return tracks;
}

// The tracks of the list that is the direct object of `reply` (read as 'list'); nullopt after
// "Error extracting from reply event: %d" when there is none.
std::optional<std::vector<std::shared_ptr<CZTrack>>> tracksOfReply(const ae::Descriptor& reply);

// Sends a read event and walks the list of its reply.
std::optional<std::vector<std::shared_ptr<CZTrack>>> sendForTrackList(const ae::Descriptor& event);

}  // namespace rvitunes::cadenza_detail
