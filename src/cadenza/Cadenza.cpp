// Cadenza: the shared instance, commands and transport, playing, and the application's
// properties.
#include "rvitunes/cadenza/Cadenza.h"

#include <mutex>
#include <utility>

#include "CadenzaEvents.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZTrack.h"

namespace rvitunes {

namespace cadenza_detail {

OSStatus buildPlayerEvent(ae::AEEventClass eventClass, ae::AEEventID eventID,
                          std::string_view params, std::initializer_list<ae::BuildArg> args,
                          ae::Descriptor* event) {
  const OSType signature = iTunesSignature;
  return ae::buildAppleEvent(
      eventClass, eventID, ae::typeApplSignature,
      std::span(reinterpret_cast<const uint8_t*>(&signature), sizeof signature),
      ae::kAutoGenerateReturnID, ae::kAnyTransactionID, event, nullptr, params,
      std::span<const ae::BuildArg>(args.begin(), args.size()));
}

void sendCommandEvent(const ae::Descriptor& event) {
  const OSStatus status =
      ae::EventManager::shared().send(event, nullptr, kCommandMode, ae::kAEDefaultTimeout);
  if (status != noErr) NullLog("Error sending AppleEvent: %d", status);
}

std::optional<ae::Descriptor> sendReadEvent(const ae::Descriptor& event) {
  ae::Descriptor reply;
  const OSStatus status =
      ae::EventManager::shared().send(event, &reply, kReadMode, ae::kAEDefaultTimeout);
  if (status != noErr) {
    NullLog("Error sending AppleEvent: %d", status);
    return std::nullopt;
  }
  return reply;
}

std::optional<ae::Descriptor> directObject(const ae::Descriptor& reply) {
  ae::Descriptor object;
  const OSStatus status = reply.getParamDesc(ae::keyDirectObject, ae::typeWildCard, &object);
  if (status != noErr) {
    NullLog("Error extracting from reply event: %d", status);
    return std::nullopt;
  }
  return object;
}

}  // namespace cadenza_detail

using namespace cadenza_detail;

namespace {

constexpr OSType kPlayerSuite = fourCharCode("hook");

// The shared controller. A function-local static, so that it exists before any caller.
struct SharedSlot {
  std::mutex mutex;
  std::shared_ptr<Cadenza> instance;
};
SharedSlot& sharedSlot() {
  static SharedSlot slot;
  return slot;
}

// The integer properties that stand for a flag count only their lowest byte.
bool lowByteSet(int32_t value) {
  return static_cast<uint8_t>(static_cast<uint32_t>(value) & 0xFFu) != 0;
}

}  // namespace

Cadenza::Cadenza() = default;
Cadenza::~Cadenza() = default;

std::shared_ptr<Cadenza> Cadenza::sharedInstance() {
  SharedSlot& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  if (!slot.instance) slot.instance = std::make_shared<Cadenza>();
  return slot.instance;
}

void Cadenza::unSharedInstance() {
  std::shared_ptr<Cadenza> dropped;
  SharedSlot& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  dropped = std::move(slot.instance);
}

std::shared_ptr<Cadenza> Cadenza::reSharedInstance() {
  unSharedInstance();
  CZPlaylistCache::releaseSharedInstance();
  return sharedInstance();
}

// ---- Commands ---------------------------------------------------------------------------------

std::unique_ptr<ae::Descriptor> Cadenza::newCommandEvent(OSType eventID) {
  auto event = std::make_unique<ae::Descriptor>();
  const OSStatus status =
      buildPlayerEvent(kPlayerSuite, eventID, "'----':'null'()", {}, event.get());
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return nullptr;
  }
  return event;
}

void Cadenza::sendCommand(OSType eventID) {
  const std::unique_ptr<ae::Descriptor> event = newCommandEvent(eventID);
  // A command that could not be built still goes out, as the null event, and fails to send.
  sendCommandEvent(event ? *event : ae::nullDescriptor());
}

void Cadenza::backTrack() {
  sendCommand(fourCharCode("Back"));
}
void Cadenza::fastForward() {
  sendCommand(fourCharCode("Fast"));
}
void Cadenza::nextTrack() {
  sendCommand(fourCharCode("Next"));
}
void Cadenza::pause() {
  sendCommand(fourCharCode("Paus"));
}
void Cadenza::play() {
  sendCommand(fourCharCode("Play"));
}
void Cadenza::playPause() {
  sendCommand(fourCharCode("PlPs"));
}
void Cadenza::previousTrack() {
  sendCommand(fourCharCode("Prev"));
}
void Cadenza::resume() {
  sendCommand(fourCharCode("Resu"));
}
void Cadenza::rewind() {
  sendCommand(fourCharCode("Rwnd"));
}
void Cadenza::stop() {
  sendCommand(fourCharCode("Stop"));
}

void Cadenza::playTrackWithPath(std::string_view path) {
  ae::Descriptor event;
  OSStatus status = noErr;
  {
    // The alias lives only until the event holds its copy.
    const std::optional<std::vector<uint8_t>> alias = newAliasHandleWithPath(path);
    if (!alias) {
      NullLog("Unable to resolve path to alias");
      return;
    }
    status = buildPlayerEvent(kPlayerSuite, fourCharCode("Play"), "'----':alis(@@)",
                              {ae::BuildArg::handle(*alias)}, &event);
  }
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return;
  }
  sendCommandEvent(event);
}

void Cadenza::playTrack(const CZAppleEventObject& track) {
  ae::Descriptor event;
  const OSStatus status = buildPlayerEvent(kPlayerSuite, fourCharCode("Play"), "'----':@",
                                           {track.descriptor()}, &event);
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return;
  }
  sendCommandEvent(event);
}

// ---- Application properties -------------------------------------------------------------------

int32_t Cadenza::playerPosition() {
  return getPropertyAsIntegerForDesc(fourCharCode("pPos"));
}

OSType Cadenza::playerState() {
  return getPropertyAsEnumForDesc(fourCharCode("pPlS"));
}

int32_t Cadenza::soundVolume() {
  return getPropertyAsIntegerForDesc(fourCharCode("pVol"));
}

void Cadenza::setSoundVolume(int32_t volume) {
  (void)setPropertyWithIntegerForDesc(volume, fourCharCode("pVol"));
}

bool Cadenza::eqEnabled() {
  return lowByteSet(getPropertyAsIntegerForDesc(fourCharCode("pEQ ")));
}

void Cadenza::setEqEnable(bool enabled) {
  (void)setPropertyWithIntegerForDesc(enabled ? 1 : 0, fourCharCode("pEQ "));
}

bool Cadenza::fixedIndexing() {
  return lowByteSet(getPropertyAsIntegerForDesc(fourCharCode("pFix")));
}

void Cadenza::setFixedIndexing(bool fixed) {
  (void)setPropertyWithIntegerForDesc(fixed ? 1 : 0, fourCharCode("pFix"));
}

namespace {

// Reads an object-valued property of the application with a literal template (no slots) and
// answers the specifier the player sent.
std::optional<ae::Descriptor> applicationObject(std::string_view params) {
  ae::Descriptor event;
  const OSStatus status = buildPlayerEvent(ae::kAECoreSuite, ae::kAEGetData, params, {}, &event);
  if (status != noErr) {
    NullLog("Error creating AppleEvent: %d", status);
    return std::nullopt;
  }
  const std::optional<ae::Descriptor> reply = sendReadEvent(event);
  if (!reply) return std::nullopt;
  return directObject(*reply);
}

}  // namespace

std::shared_ptr<CZTrack> Cadenza::currentTrack() {
  std::optional<ae::Descriptor> track = applicationObject(
      "'----':obj { form:prop, want:type(prop), seld:type(pTrk), from:'null'() }");
  if (!track) return nullptr;
  return std::make_shared<CZTrack>(std::move(*track));
}

std::shared_ptr<CZPlaylist> Cadenza::currentPlaylist() {
  // The container is written without quotes here, unlike in currentTrack; both read the same.
  std::optional<ae::Descriptor> playlist =
      applicationObject("'----':obj { form:prop, want:type(prop), seld:type(pPla), from:null() }");
  if (!playlist) return nullptr;
  return std::make_shared<CZPlaylist>(std::move(*playlist));
}

std::shared_ptr<CZPlaylist> Cadenza::libraryPlaylist() {
  const Reply reply = getElementOfClassAtIndex(fourCharCode("cLiP"), 0);
  if (!reply) {
    NullLog("Unable to get Library Playlist");
    return nullptr;
  }
  std::optional<ae::Descriptor> playlist = directObject(*reply);
  if (!playlist) return nullptr;
  return std::make_shared<CZPlaylist>(std::move(*playlist));
}

}  // namespace rvitunes
