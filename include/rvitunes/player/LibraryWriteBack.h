// Writes the library file back a moment after it changed, as the player does, so that a host
// watching the file sees the change.
//
// markChanged() starts (or extends) a short delay; a burst of changes within the delay makes one
// write. A stream of changes that never pauses is still written at least every `maxDelay`. The
// write asks the snapshot function for the file's bytes (on the writer thread) and replaces the
// file with writeFileAtomically, so a reader, or a process killed at any moment, sees either the
// old file or the new one, never a mixture. A failed write is logged to the system log, kept as
// lastStatus() and tried again after maxDelay; meanwhile the change stays pending() and the file
// keeps its previous content (after a failed flush of the folder alone, the new content is
// already in place and is written again). After stop() nothing retries by itself: a change
// whose last write failed stays pending() until a flush() succeeds, and the file stays as it
// was. A process killed mid-write may leave a hidden temporary beside the file
// (".<file name>.XXXXXX"); later writes ignore it.
//
// Threads: one writer thread per object, started by the constructor. markChanged(), flush(),
// pending(), writeCount() and lastStatus() may be called from any thread. The snapshot
// function runs on the writer thread or in flush()'s caller, never twice at once; it must be
// safe against the changes it reports (Library::serialize() locks the tree). stop() and the
// destructor write a pending change before the thread ends.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::player {

class LibraryWriteBack {
 public:
  using Snapshot = std::function<Result<std::string>()>;

  struct Options {
    std::chrono::milliseconds delay{500};
    std::chrono::milliseconds maxDelay{5000};
  };

  // `fs` must outlive the object.
  LibraryWriteBack(FileSystem& fs, std::string path, Snapshot snapshot, Options options);
  LibraryWriteBack(FileSystem& fs, std::string path, Snapshot snapshot)
      : LibraryWriteBack(fs, std::move(path), std::move(snapshot), Options{}) {}
  ~LibraryWriteBack();
  LibraryWriteBack(const LibraryWriteBack&) = delete;
  LibraryWriteBack& operator=(const LibraryWriteBack&) = delete;

  const std::string& path() const { return path_; }

  // Notes a change; the file is written `delay` after the last of a burst.
  void markChanged();
  // Writes a pending change now, in the caller's thread, and answers that write's status;
  // success when nothing was pending.
  Status flush();
  // Flushes, then ends the writer thread. Later changes are written only by flush().
  void stop();

  bool pending() const;
  // Successful writes so far.
  uint64_t writeCount() const;
  // The status of the last write attempt (success before the first).
  Status lastStatus() const;

 private:
  using Clock = std::chrono::steady_clock;
  void run();
  // Writes when dirty. `lock` holds mutex_ and is released around the snapshot and the write.
  Status writeLocked(std::unique_lock<std::mutex>& lock);

  FileSystem& fs_;
  const std::string path_;
  const Snapshot snapshot_;
  const Options options_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable written_;
  bool dirty_ = false;
  bool writing_ = false;
  bool stopping_ = false;
  Clock::time_point firstChange_{};
  Clock::time_point deadline_{};
  uint64_t writeCount_ = 0;
  Status lastStatus_;
  std::thread thread_;
};

}  // namespace rvitunes::player
