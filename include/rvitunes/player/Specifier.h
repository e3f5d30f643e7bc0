// Object specifiers as the player reads and writes them: the four fields of an 'obj ' record
// ('want' class, 'form' key form, 'seld' key data, 'from' container), the readers for the value
// kinds that appear in them (codes, integers, texts) and the makers of the specifiers the
// player hands out. The player names every object it hands out by unique ID with its whole
// container chain, e.g.
//   file track id 2703 of user playlist id 2425 of source id 46 of application
// which stays valid while the object exists, whatever happens to the positions around it.
//
// Thread-safe: no state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::player {

// The fields of one 'obj ' record, borrowed from it: valid while the record lives unchanged.
struct ObjectSpecifier {
  OSType desiredClass = 0;                    // 'want'
  OSType keyForm = 0;                         // 'form'
  const ae::Descriptor* keyData = nullptr;    // 'seld', never null
  const ae::Descriptor* container = nullptr;  // 'from', never null (the null descriptor if absent)
};

// Reads the fields of `desc`. errAENotAnObjSpec when `desc` is not a record of type 'obj ';
// errAEDescNotFound when 'want', 'form' or 'seld' is missing; errAEWrongDataType when 'want'
// or 'form' is not a four-character code ('type', 'enum', 'keyw' and 'prop' are all accepted,
// as senders differ in which one they write). A missing 'from' reads as the application.
Result<ObjectSpecifier> readObjectSpecifier(const ae::Descriptor& desc);

// The code held by a descriptor of type 'type', 'enum', 'keyw', 'prop' or 'abso' (4 bytes).
std::optional<OSType> codeOf(const ae::Descriptor& desc);

// The integer a descriptor holds: 'shor', 'long', 'comp', 'magn', 'ushr', 'ucom' as they are,
// and every other type the default coercions turn into a 64-bit integer (a whole-valued 'doub',
// decimal text). nullopt when there is none.
std::optional<int64_t> integerOf(const ae::Descriptor& desc);

// The text of a descriptor as UTF-8: 'TEXT', 'utf8', 'utxt', 'ut16', and what the default
// coercions turn into text (numbers, codes). nullopt when there is none.
std::optional<std::string> textOf(const ae::Descriptor& desc);

// ---- Makers ------------------------------------------------------------------------------

// An 'obj ' record with the fields in the order want, form, seld, from.
ae::Descriptor makeObjectSpecifier(OSType desiredClass, OSType keyForm, ae::Descriptor keyData,
                                   ae::Descriptor container);
// <class> id <id> of <container>; the ID is a 'long'.
ae::Descriptor makeUniqueIDSpecifier(OSType desiredClass, int32_t id, ae::Descriptor container);
// <class> <index> of <container>; the index is a 'long' (1 is the first element).
ae::Descriptor makeIndexSpecifier(OSType desiredClass, int32_t index, ae::Descriptor container);
// <property> of <container>.
ae::Descriptor makePropertySpecifier(OSType property, ae::Descriptor container);

// "Can't get <what>." texts for error replies: a short description of a specifier chain such as
// "cFlT id 2703 of cUsP id 2425 of application". Unknown shapes are described as "object".
std::string describeSpecifier(const ae::Descriptor& desc);

}  // namespace rvitunes::player
