// One running application, as RVITunesHelper::applicationInfoByName answers it: the
// counterpart of the platform's information dictionary of a launched application.
#pragma once

#include <cstdint>
#include <string>

#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes {

// Keys of the dictionary form.
inline constexpr const char* kNSApplicationName = "NSApplicationName";
inline constexpr const char* kNSApplicationProcessIdentifier = "NSApplicationProcessIdentifier";
inline constexpr const char* kRVApplicationSignature = "RVApplicationSignature";

struct ApplicationInfo {
  std::string name;               // the name it registered under on the event bus
  int32_t processIdentifier = 0;  // its process id
  OSType signature = 0;           // its four-character signature
  bool inProcess = false;         // registered in this process

  // { "NSApplicationName": name, "NSApplicationProcessIdentifier": pid,
  //   "RVApplicationSignature": the signature's four characters }.
  plist::Value dictionary() const;
};

}  // namespace rvitunes
