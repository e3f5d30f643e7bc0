// The rule shared by the open panels: which chosen paths a request allows.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/platform/Dialogs.h"

namespace rvitunes::platform {

class PanelRules {
 public:
  // Why `path` cannot be chosen for `request` (a sentence for the user), or nullopt when it
  // can: it must exist and be a regular file (a folder only when the request allows folders),
  // and a file needs one of the allowed extensions, in any case.
  static std::optional<std::string> refusal(const std::string& path,
                                            const OpenPanelRequest& request);
  // True when the extension of `path`'s file name (after its last dot; a leading dot does not
  // start one) is in `types`, ASCII case ignored; a leading dot in a type is ignored. An empty
  // list allows everything.
  static bool hasAllowedExtension(std::string_view path, const std::vector<std::string>& types);
  // The allowed extensions as "xml, itl" for messages.
  static std::string describeTypes(const std::vector<std::string>& types);
  // `path` made absolute against the current folder, "." and ".." parts removed.
  static std::string absolute(const std::string& path);
};

}  // namespace rvitunes::platform
