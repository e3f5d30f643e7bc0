// CZAppleEventObject: the requests. Each turns one parameter text into one 'core' event to the
// target application, sends it and hands back the reply (or tells whether it went out).
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"

namespace rvitunes {

namespace {

using ae::BuildArg;
using ae::Descriptor;
using Reply = CZAppleEventObject::Reply;

// Requests that answer a reply never let the player ask the user anything.
constexpr ae::AESendMode kWaitForReply = ae::kAEWaitReply | ae::kAENeverInteract;  // 19
constexpr ae::AESendMode kFireAndForget = ae::kAENoReply;                          // 1

// Player positions count from 1, ours from 0. Wraps at the top of the range rather than
// overflowing.
int32_t playerIndex(int32_t index) {
  return static_cast<int32_t>(static_cast<uint32_t>(index) + 1u);
}

// Builds the event `eventID` of the core suite to `target`; nullopt (logged) when the text or
// its arguments are refused.
std::optional<Descriptor> buildRequest(const OSType& target, ae::AEEventID eventID,
                                       const std::string& params,
                                       std::initializer_list<BuildArg> args) {
  Descriptor event;
  const OSStatus status =
      ae::buildAppleEvent(ae::kAECoreSuite, eventID, ae::typeApplSignature,
                          std::span(reinterpret_cast<const uint8_t*>(&target), sizeof target),
                          ae::kAutoGenerateReturnID, ae::kAnyTransactionID, &event, nullptr, params,
                          std::span<const BuildArg>(args.begin(), args.size()));
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return std::nullopt;
  }
  return event;
}

Reply sendForReply(const Descriptor& event) {
  auto reply = std::make_unique<Descriptor>();
  const OSStatus status =
      ae::EventManager::shared().send(event, reply.get(), kWaitForReply, ae::kAEDefaultTimeout);
  if (status != noErr) {
    NullLog("Error sending Apple Event: %d", status);
    return nullptr;
  }
  return reply;
}

bool sendWithoutReply(const Descriptor& event) {
  const OSStatus status =
      ae::EventManager::shared().send(event, nullptr, kFireAndForget, ae::kAEDefaultTimeout);
  if (status != noErr) {
    NullLog("Error sending Apple Event: %d", status);
    return false;
  }
  return true;
}

Reply getRequest(const OSType& target, ae::AEEventID eventID, const std::string& params,
                 std::initializer_list<BuildArg> args) {
  const auto event = buildRequest(target, eventID, params, args);
  if (!event) return nullptr;
  return sendForReply(*event);
}

bool setRequest(const OSType& target, const std::string& params,
                std::initializer_list<BuildArg> args) {
  const auto event = buildRequest(target, ae::kAESetData, params, args);
  if (!event) return false;
  return sendWithoutReply(*event);
}

}  // namespace

bool CZAppleEventObject::setPropertyWithValueOfTypeForObject(const ae::Descriptor& value,
                                                             OSType property,
                                                             const ae::Descriptor& object) {
  return setRequest(targetApplCode_, eventParameterStringForSettingProperty(property),
                    {value, object});
}

Reply CZAppleEventObject::getPropertyOfTypeForObject(OSType property,
                                                     const ae::Descriptor& object) {
  return getRequest(targetApplCode_, ae::kAEGetData, eventParameterStringForProperty(property),
                    {object});
}

Reply CZAppleEventObject::getPropertyOfType(OSType property) {
  return getPropertyOfTypeForObject(property, refDescriptor_);
}

bool CZAppleEventObject::setPropertyWithValueOfType(const ae::Descriptor& value, OSType property) {
  return setPropertyWithValueOfTypeForObject(value, property, refDescriptor_);
}

int32_t CZAppleEventObject::getCountOfElementsOfClass(OSType elementClass) {
  const Reply reply =
      getRequest(targetApplCode_, ae::kAECountElements,
                 eventParameterStringForCountElementsOfClass(elementClass), {refDescriptor_});
  if (!reply) return -1;
  int32_t count = 0;
  const OSStatus status = reply->getParamPtr(ae::keyDirectObject, ae::typeSInt32, nullptr, &count,
                                             sizeof count, nullptr);
  if (status != noErr) {
    NullLog("Unable to get parameter of reply: %d", status);
    return -1;
  }
  return count;
}

Reply CZAppleEventObject::deleteAllElementsOfClass(OSType elementClass) {
  return getRequest(targetApplCode_, ae::kAEDelete,
                    eventParameterStringForDeleteElementsOfClass(elementClass), {refDescriptor_});
}

Reply CZAppleEventObject::deleteElementOfClass(int32_t index, OSType elementClass) {
  return getRequest(targetApplCode_, ae::kAEDelete,
                    eventParameterStringForElementOfClassAtIndex(elementClass, playerIndex(index)),
                    {refDescriptor_});
}

Reply CZAppleEventObject::getElementOfClassAtIndex(OSType elementClass, int32_t index) {
  return getRequest(targetApplCode_, ae::kAEGetData,
                    eventParameterStringForElementOfClassAtIndex(elementClass, playerIndex(index)),
                    {refDescriptor_});
}

Reply CZAppleEventObject::getElementOfClassByKeyWithIntValue(OSType elementClass, OSType property,
                                                             int32_t value) {
  const std::string test =
      eventParameterStringForTestObjectForPropertyForIntValue(elementClass, property, value);
  return getRequest(targetApplCode_, ae::kAEGetData,
                    eventParameterStringForSearchingTypeWithTest(elementClass, test),
                    {refDescriptor_});
}

Reply CZAppleEventObject::getElementOfClassByKeyWithLongIntValue(OSType elementClass,
                                                                 OSType property, int64_t value) {
  std::optional<Descriptor> event;
  {
    // The key lives only until the event holds its copy.
    Descriptor key;
    const OSStatus status = Descriptor::create(ae::typeSInt64, &value, sizeof value, &key);
    if (status != noErr) {
      NullLog("Error constructing 64 bit integer descriptor: %d", status);
      return nullptr;
    }
    const std::string test = eventParameterStringForTestObjectForProperty(elementClass, property);
    event = buildRequest(targetApplCode_, ae::kAEGetData,
                         eventParameterStringForSearchingTypeWithTest(elementClass, test),
                         {refDescriptor_, key});
  }
  if (!event) return nullptr;
  return sendForReply(*event);
}

Reply CZAppleEventObject::getElementOfClassByKeyWithStringValue(OSType elementClass,
                                                                OSType property,
                                                                std::string_view value) {
  const std::string test =
      eventParameterStringForTestObjectForPropertyForStringValue(elementClass, property, value);
  return getRequest(targetApplCode_, ae::kAEGetData,
                    eventParameterStringForSearchingTypeWithTest(elementClass, test),
                    {refDescriptor_});
}

bool CZAppleEventObject::setElementOfClassAtIndexWithValue(OSType elementClass, int32_t index,
                                                           const ae::Descriptor& value) {
  return setRequest(
      targetApplCode_,
      eventParameterStringForSettingElementOfClassAtIndex(elementClass, playerIndex(index)),
      {value, refDescriptor_});
}

bool CZAppleEventObject::setPropertyOfElementOfClassAtIndexWithValue(OSType property,
                                                                     OSType elementClass,
                                                                     int32_t index,
                                                                     const ae::Descriptor& value) {
  return setRequest(targetApplCode_,
                    eventParameterStringForSettingPropertyOfElementOfClassAtIndex(
                        property, elementClass, playerIndex(index)),
                    {value, refDescriptor_});
}

}  // namespace rvitunes
