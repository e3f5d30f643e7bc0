// Rv_ExecuteLock: the process-wide lock published for hosts that run scripts from several
// threads. The framework creates it on the first call of
// RVITunesHelper::executeAppleScriptWithThreadLock and never takes it itself; a host that must
// keep script runs apart holds it around each call:
//
//   if (std::mutex* lock = Rv_ExecuteLock()) {
//     std::lock_guard guard(*lock);
//     RVITunesHelper::executeAppleScriptWithThreadLock(source);
//   }
//
// A plain, non-recursive mutex. Once created it lives until the process ends.
#pragma once

#include <mutex>

namespace rvitunes {

// The lock, or nullptr before it was created. Thread-safe.
std::mutex* Rv_ExecuteLock();

}  // namespace rvitunes
