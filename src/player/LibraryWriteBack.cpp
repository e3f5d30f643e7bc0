#include "rvitunes/player/LibraryWriteBack.h"

#include <algorithm>

#include "rvitunes/base/Log.h"

namespace rvitunes::player {

LibraryWriteBack::LibraryWriteBack(FileSystem& fs, std::string path, Snapshot snapshot,
                                   Options options)
    : fs_(fs), path_(std::move(path)), snapshot_(std::move(snapshot)), options_(options) {
  thread_ = std::thread([this] { run(); });
}

LibraryWriteBack::~LibraryWriteBack() {
  stop();
}

void LibraryWriteBack::markChanged() {
  std::lock_guard lock(mutex_);
  const Clock::time_point now = Clock::now();
  if (!dirty_) {
    dirty_ = true;
    firstChange_ = now;
  }
  deadline_ = now + options_.delay;
  wake_.notify_one();
}

void LibraryWriteBack::run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    if (!dirty_ || writing_) {
      wake_.wait(lock);
      continue;
    }
    const Clock::time_point due = std::min(deadline_, firstChange_ + options_.maxDelay);
    if (Clock::now() < due) {
      wake_.wait_until(lock, due);
      continue;
    }
    writeLocked(lock);
  }
}

Status LibraryWriteBack::writeLocked(std::unique_lock<std::mutex>& lock) {
  written_.wait(lock, [this] { return !writing_; });
  if (!dirty_) return Status::success();
  dirty_ = false;
  writing_ = true;
  lock.unlock();
  Result<std::string> bytes = snapshot_();
  Status status = bytes ? writeFileAtomically(fs_, path_, *bytes) : bytes.status();
  lock.lock();
  writing_ = false;
  lastStatus_ = status;
  if (status.ok()) {
    ++writeCount_;
  } else {
    SystemLog("Unable to write the library file: %s", status.toString().c_str());
    const Clock::time_point now = Clock::now();
    if (!dirty_) {
      dirty_ = true;
      firstChange_ = now;
    }
    deadline_ = now + options_.maxDelay;
  }
  written_.notify_all();
  wake_.notify_all();
  return status;
}

Status LibraryWriteBack::flush() {
  std::unique_lock lock(mutex_);
  return writeLocked(lock);
}

void LibraryWriteBack::stop() {
  if (!thread_.joinable()) return;
  flush();
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

bool LibraryWriteBack::pending() const {
  std::lock_guard lock(mutex_);
  return dirty_ || writing_;
}

uint64_t LibraryWriteBack::writeCount() const {
  std::lock_guard lock(mutex_);
  return writeCount_;
}

Status LibraryWriteBack::lastStatus() const {
  std::lock_guard lock(mutex_);
  return lastStatus_;
}

}  // namespace rvitunes::player
