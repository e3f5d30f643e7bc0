// CZAppleEventObject: one object inside the running player, seen from this side of the event
// bus. It holds the object specifier the player handed out for it (or the null descriptor for
// the application itself) and the signature of the application its events go to. Every live
// object of the control side (the controller, playlists, tracks) derives from it.
//
// The class does three jobs:
//   - it writes the parameter texts of every request in the descriptor-building language
//     (eventParameterStringFor...); these texts are our wire format and never change;
//   - it builds one event from such a text, sends it through the process-wide event manager and
//     hands back the reply or tells whether the event went out (the requests);
//   - it reads and writes single properties of itself as plain values (the conversions).
//
// Results on failure. Nothing here throws and nothing reports an error but through its result:
// a request answers a null Reply, false or -1; a conversion answers its preset value or nullopt
// (each function says which). The reason goes to NullLog with a fixed text, e.g.
// "Error sending Apple Event: -600".
//
// Sending. Every event is addressed by signature ('sign', the four bytes of the target code),
// with an automatically generated return ID and transaction ID 0. Requests that answer a reply
// send with kAEWaitReply | kAENeverInteract (19), the set requests with kAENoReply (1); the
// timeout is always kAEDefaultTimeout. A request blocks its thread until the reply arrives or
// the timeout expires. Indexes on this interface count from 0: a request adds 1 before it
// writes the index, so the player receives its own one-based positions.
//
// Thread safety: the descriptor and target code are fixed at construction and only read
// afterwards, and each request works on its own event and reply, so any number of threads may
// call any operation on one object at once.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Date.h"
#include "rvitunes/base/FourCharCode.h"

namespace rvitunes {

// The player application's signature, 'hook'. Defined once in the framework library so that
// every user shares one object (the controller addresses its events with this variable).
extern const OSType iTunesSignature;

class CZAppleEventObject {
 public:
  // A reply event of the player ('aevt'/'ansr'), owned by the caller; its direct result is the
  // parameter '----'. Null when the request failed.
  using Reply = std::unique_ptr<ae::Descriptor>;

  // The application object itself: the null descriptor, events to 'hook'.
  CZAppleEventObject();
  // Takes over `descriptor` (an object specifier the player returned); the caller's descriptor
  // is left null. Events go to `applCode`.
  CZAppleEventObject(ae::Descriptor&& descriptor, OSType applCode);
  CZAppleEventObject(const CZAppleEventObject&) = delete;
  CZAppleEventObject& operator=(const CZAppleEventObject&) = delete;
  virtual ~CZAppleEventObject();

  // The object specifier, to put this object into another object's event. Borrowed: valid as
  // long as this object lives.
  virtual const ae::Descriptor& descriptor() const;
  // The signature of the application this object's events go to.
  OSType targetApplCode() const { return targetApplCode_; }

  // The four characters of `code` as they are, trailing blanks kept ("pEQ ").
  virtual std::string stringForOSType(OSType code) const;

  // ---- Parameter texts --------------------------------------------------------------------
  // Each writes its codes (through stringForOSType) and numbers (signed decimal) into one fixed
  // text and checks nothing. The bare @ slots are filled when the event is built: `from:@` and
  // the count's '----':@ with the container, `data:@` with the new value, `obj2:@` with a key
  // descriptor. Indexes are written as given.

  // "kocl:type(<class>) , '----':@"
  virtual std::string eventParameterStringForCountElementsOfClass(OSType elementClass) const;
  // Every element of <class> in the container (ordinal 'all ').
  virtual std::string eventParameterStringForDeleteElementsOfClass(OSType elementClass) const;
  // Element <index> of <class> in the container.
  virtual std::string eventParameterStringForElementOfClassAtIndex(OSType elementClass,
                                                                   int32_t index) const;
  // Property <property> of the container.
  virtual std::string eventParameterStringForProperty(OSType property) const;
  // As eventParameterStringForProperty, preceded by the value slot "data:@, ".
  virtual std::string eventParameterStringForSettingProperty(OSType property) const;
  // As eventParameterStringForElementOfClassAtIndex, preceded by "data:@, ".
  virtual std::string eventParameterStringForSettingElementOfClassAtIndex(OSType elementClass,
                                                                          int32_t index) const;
  // Property <property> of element <index> of <class>, preceded by "data:@, ".
  virtual std::string eventParameterStringForSettingPropertyOfElementOfClassAtIndex(
      OSType property, OSType elementClass, int32_t index) const;
  // Test specifiers: the elements of <class> in the container (from:@) whose <property> equals
  // the value. The value is an integer, a text placed between double quotes as it is (a '"'
  // inside ends it early, and building the event then fails), or a slot obj2:@.
  virtual std::string eventParameterStringForTestObjectForPropertyForIntValue(OSType elementClass,
                                                                              OSType property,
                                                                              int32_t value) const;
  virtual std::string eventParameterStringForTestObjectForPropertyForStringValue(
      OSType elementClass, OSType property, std::string_view value) const;
  virtual std::string eventParameterStringForTestObjectForProperty(OSType elementClass,
                                                                   OSType property) const;
  // Any one element of <class> out of `test` (one of the three texts above), as the direct
  // parameter.
  virtual std::string eventParameterStringForSearchingTypeWithTest(OSType elementClass,
                                                                   std::string_view test) const;

  // ---- Requests ---------------------------------------------------------------------------
  // Descriptor arguments are only read during the call. A Reply is null when building or
  // sending failed ("Error creating Apple Event: %d", "Error sending Apple Event: %d"); a reply
  // that arrived is returned even when the player answered an error (its 'errn'). The set
  // requests answer true once the event was handed over; the player's own refusal is not seen.

  // Writes `value` to property `property` of `object` ('core'/'setd').
  virtual bool setPropertyWithValueOfTypeForObject(const ae::Descriptor& value, OSType property,
                                                   const ae::Descriptor& object);
  // Reads property `property` of `object` ('core'/'getd').
  virtual Reply getPropertyOfTypeForObject(OSType property, const ae::Descriptor& object);
  // The two above for this object's own descriptor.
  virtual Reply getPropertyOfType(OSType property);
  virtual bool setPropertyWithValueOfType(const ae::Descriptor& value, OSType property);
  // The number of elements of `elementClass` in this object ('core'/'cnte'); -1 when the
  // request failed or the reply holds no integer ("Unable to get parameter of reply: %d").
  virtual int32_t getCountOfElementsOfClass(OSType elementClass);
  // Deletes every element of `elementClass` in this object ('core'/'delo').
  virtual Reply deleteAllElementsOfClass(OSType elementClass);
  // Deletes element `index` of `elementClass` ('core'/'delo'). Note the order: index first.
  virtual Reply deleteElementOfClass(int32_t index, OSType elementClass);
  // Fetches element `index` of `elementClass`: the reply's '----' is its specifier.
  virtual Reply getElementOfClassAtIndex(OSType elementClass, int32_t index);
  // Fetches any one element of `elementClass` whose `property` equals the key.
  virtual Reply getElementOfClassByKeyWithIntValue(OSType elementClass, OSType property,
                                                   int32_t value);
  // The key travels as a 'comp' descriptor (obj2:@). A key that cannot be made answers null
  // ("Error constructing 64 bit integer descriptor: %d").
  virtual Reply getElementOfClassByKeyWithLongIntValue(OSType elementClass, OSType property,
                                                       int64_t value);
  // The key is written into the text as it is; one holding '"' answers null.
  virtual Reply getElementOfClassByKeyWithStringValue(OSType elementClass, OSType property,
                                                      std::string_view value);
  // Replaces element `index` of `elementClass` with `value`.
  virtual bool setElementOfClassAtIndexWithValue(OSType elementClass, int32_t index,
                                                 const ae::Descriptor& value);
  // Writes `value` to `property` of element `index` of `elementClass`.
  virtual bool setPropertyOfElementOfClassAtIndexWithValue(OSType property, OSType elementClass,
                                                           int32_t index,
                                                           const ae::Descriptor& value);

  // ---- Conversions ------------------------------------------------------------------------
  // Each reads or writes property `property` of this object with one request above. A value
  // that cannot be extracted from a reply logs "Error extracting parameters from reply: %d".

  // 'enum'. 0xFFFFFFFF when the request failed; 'kPSS' when the reply holds no code.
  virtual OSType getPropertyAsEnumForDesc(OSType property);
  // 'long' / 'comp'. -1 when the request failed or the reply holds no such number.
  virtual int32_t getPropertyAsIntegerForDesc(OSType property);
  virtual int64_t getPropertyAsLongIntegerForDesc(OSType property);
  // A 'TEXT' reply (ASCII only: other bytes give nullopt) or a 'utxt' reply (UTF-16 in host
  // byte order; an odd last byte is ignored, unpaired surrogates become U+FFFD), also a 'vers'
  // reply read as 'utxt'. nullopt when the request failed, the reply has no '----' ("Unable to
  // find length of reply string: %d"), it cannot be read as that type ("Unable to get coerce
  // type of reply: %d"), or it is of any other type (no log line).
  virtual std::optional<std::string> getPropertyAsStringForDesc(OSType property);
  // The short version string of the player's 'vers' property: the bytes from offset 7 of the
  // version record up to its first zero byte (or its end), so a long version string that
  // follows may be carried along; a record of 7 bytes or fewer gives "". `property` is
  // ignored: always 'vers' is read. nullopt when the request fails, the reply holds nothing
  // readable as a version ("Unable to find length of reply string: %d", "Unable to get
  // parameter of reply: %d"), or for bytes outside ASCII.
  virtual std::optional<std::string> getPropertyAsVersionForDesc(OSType property);
  // An 'fsrf' property as the file URL text ("file:///Music/a%20b.mp3"; a directory ends with
  // '/'). nullopt when the request failed or the reference does not resolve to a file.
  virtual std::optional<std::string> getPropertyAsPathURLForDesc(OSType property);
  // The path of getPropertyAsPathURLForDesc's URL; nullopt when that is nullopt or not a file
  // URL.
  virtual std::optional<std::string> getPropertyAsPathForDesc(OSType property);
  // An 'ldt ' property (seconds since 1904) as a Date. nullopt only when the request failed; a
  // reply without a date reads as the 1904 origin.
  virtual std::optional<Date> getPropertyAsDateForDesc(OSType property);

  // Writes the value as 'long', 'comp', 'utxt' (UTF-16 in host order, no byte-order mark; an
  // empty text is a 'utxt' without bytes) or 'ldt '. True when the write was sent; false when
  // the value could not be made ("Error constructing parameters for set command: %d"; a date
  // that is not finite: "Error converting Date: %d") or the request failed.
  virtual bool setPropertyWithIntegerForDesc(int32_t value, OSType property);
  virtual bool setPropertyWithLongIntegerForDesc(int64_t value, OSType property);
  virtual bool setPropertyWithStringForDesc(std::string_view value, OSType property);
  virtual bool setPropertyWithDateForDesc(const Date& value, OSType property);

  // ---- Alias records ----------------------------------------------------------------------

  // An alias record ('alis' bytes) for the existing file at `path` (a relative path is taken
  // against the current directory), to be carried by an event as alis(@@). nullopt when the
  // file cannot be referenced (missing, empty path).
  static std::optional<std::vector<uint8_t>> newAliasHandleWithPath(std::string_view path);

 protected:
  const ae::Descriptor refDescriptor_;
  const OSType targetApplCode_;
};

}  // namespace rvitunes
