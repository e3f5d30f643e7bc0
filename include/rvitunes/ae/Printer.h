// Descriptors as text (the platform's AEPrintDescToHandle), in the platform's modern style:
//   'core'\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pnam'),
//   'from':null() }, &'csig':65536 }
// In the default style everything but an Apple event reads back through buildDesc as an equal
// descriptor, with one exception: 'shor' and 'long' both print as bare decimals, as on the
// platform, so a 'long' whose value fits 16 bits reads back as a 'shor' of the same value.
// 'type' prints as type('xxxx'), 'enum' as the bare quoted code, other numbers carry their type
// ('magn'(5), 'doub'(3)), and values without a readable literal ('utxt', non-integral floats,
// text with a '"') print their bytes as hex ('utxt'($4100$)). Printing what was read back gives
// the same text again.
// The display style shows 'utxt', 'utf8' and 'ut16' as readable text ('utxt'("Abc")), as the
// platform does; that text does not read back as the same bytes. Every rule is listed in
// docs/formats/descriptors.md. Thread-safe.
#pragma once

#include <string>

#include "rvitunes/ae/Descriptor.h"

namespace rvitunes::ae {

enum class PrintStyle { kReadBack, kDisplay };

std::string printDesc(const Descriptor& desc, PrintStyle style = PrintStyle::kReadBack);

}  // namespace rvitunes::ae
