#include "rvitunes/helper/LibraryAlerts.h"

#include <cstdint>
#include <string>

#include "rvitunes/platform/Dialogs.h"
#include "rvitunes/platform/NotificationCenter.h"

namespace rvitunes {

// The wording of both alerts is the product's own, grammar included; hosts and their
// translators match on it, so it stays exactly as it is.

int LoadiTunesMusicLibraryErrorAlertMessage() {
  platform::AlertRequest alert;
  alert.messageText = "Load \"iTunes Music Library.xml\" Error";
  alert.informativeText =
      "Application need read information from iTunes Music library location for iTunes, this "
      "location can change in iTunes Preferences.";
  alert.defaultButton = "Locate File";
  alert.alternateButton = "Cancel";
  int result = platform::Dialogs::current()->runAlert(alert);
  platform::NotificationCenter::defaultCenter().postNotification(
      std::string(kLoadiTunesMusicLibraryErrorNotification),
      plist::Value::integer(static_cast<int32_t>(result)));
  return result;
}

int ReadiTunesMusicLibraryTrackErrorAlertMessage() {
  platform::AlertRequest alert;
  alert.messageText = "No tracks for iTunes Music Library";
  alert.informativeText =
      "Read track info Error, maybe you hide library playlist in iTunes Preferences.";
  alert.defaultButton = "OK";
  return platform::Dialogs::current()->runAlert(alert);
}

}  // namespace rvitunes
