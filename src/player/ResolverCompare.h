// The comparisons of whose-tests ('cmpd' records): one operator applied to two values, as the
// player evaluates "every track whose <property> <operator> <value>".
#pragma once

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::player {

// Applies `op` ('=   ', '>   ', '>=  ', '<   ', '<=  ', 'bgwt', 'ends', 'cont') to `a` (the
// examined value, obj1) and `b` (obj2). The value kind of `a` decides how `b` is read:
//   - integers ('shor' 'long' 'comp' ...) compare exactly as 64-bit integers with integers, as
//     reals with reals; dates ('ldt ') as integers;
//   - reals compare as doubles;
//   - texts compare ignoring ASCII case (the player's default "ignoring case"); 'bgwt', 'ends'
//     and 'cont' look for `b` as text inside `a`;
//   - booleans and codes ('enum', 'type') compare for equality only;
//   - a list contains `b` when one item equals it; lists are equal item by item;
//   - anything else is equal when type and bytes are.
// A value of `b` that cannot be read as the kind of `a`, or an operator that does not apply to
// the kind, is "false", not an error. errAENoSuchLogical for an unknown operator code.
Result<bool> compareValues(OSType op, const ae::Descriptor& a, const ae::Descriptor& b);

}  // namespace rvitunes::player
