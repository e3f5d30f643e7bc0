// Conversions between the player's values and the descriptors of events, shared by the
// getters and setters of Library and PlayerModel.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Date.h"
#include "rvitunes/base/Result.h"
#include "rvitunes/player/PlayerCodes.h"
#include "rvitunes/player/PlayerVersion.h"

namespace rvitunes::player {

// 'long' when the value fits 32 bits, 'comp' otherwise.
ae::Descriptor makeIntegerValue(int64_t value);
// 'comp', or 16-digit hexadecimal 'utxt' on players that answer persistent IDs as text.
ae::Descriptor persistentIdValue(PersistentId id, const PlayerVersion& version);
// 'doub' seconds, or whole seconds as 'long' before 7.0.
ae::Descriptor secondsValue(double seconds, const PlayerVersion& version);
// errAECoercionFail naming the property.
Status coercionFailed(OSType code);
// The date of an 'ldt ' descriptor. errAECoercionFail for anything else.
Result<Date> dateOf(const ae::Descriptor& value);
// The absolute path of a file descriptor ('furl', 'alis', 'fsrf', or file URL text).
// errAECoercionFail when it names no file path.
Result<std::string> filePathOf(const ae::Descriptor& value);
// The picture format the bytes start with: 'JPEG', 'PNG ', 'GIFf', 'TIFF'; 'PICT' otherwise.
OSType pictureFormatOf(std::span<const uint8_t> bytes);

}  // namespace rvitunes::player
