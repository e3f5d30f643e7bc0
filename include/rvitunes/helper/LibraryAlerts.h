// The two modal alerts about the library file. Both run through platform::Dialogs::current().
#pragma once

#include <string_view>

namespace rvitunes {

// The name of the notification posted after the missing-library alert; its object is an
// integer number holding the pressed button's code.
inline constexpr std::string_view kLoadiTunesMusicLibraryErrorNotification =
    "LoadiTunesMusicLibraryError";

// Tells the user that the library file cannot be found, with the buttons "Locate File" (1)
// and "Cancel" (0); posts the notification above with the answer and returns it.
int LoadiTunesMusicLibraryErrorAlertMessage();

// Tells the user that the library yielded no tracks, with one button "OK"; returns its code.
// Nothing in the framework calls it: the host shows it when a loaded library has no tracks.
int ReadiTunesMusicLibraryTrackErrorAlertMessage();

}  // namespace rvitunes
