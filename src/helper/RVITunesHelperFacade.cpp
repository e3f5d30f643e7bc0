// RVITunesHelper's player facade: each operation takes the shared controller anew and forwards
// one call to it, answering what the controller answers.
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/RVITunesHelper.h"

namespace rvitunes {

std::shared_ptr<CZPlaylist> RVITunesHelper::libraryPlaylist() {
  return Cadenza::sharedInstance()->libraryPlaylist();
}

std::shared_ptr<CZPlaylist> RVITunesHelper::currentPlaylist() {
  return Cadenza::sharedInstance()->currentPlaylist();
}

std::shared_ptr<CZTrack> RVITunesHelper::currentTrack() {
  return Cadenza::sharedInstance()->currentTrack();
}

uint32_t RVITunesHelper::versionNumber() {
  return Cadenza::sharedInstance()->versionNumber();
}

std::optional<std::string> RVITunesHelper::versionString() {
  return Cadenza::sharedInstance()->versionString();
}

void RVITunesHelper::setSoundVolume(int32_t volume) {
  Cadenza::sharedInstance()->setSoundVolume(volume);
}

int32_t RVITunesHelper::soundVolume() {
  return Cadenza::sharedInstance()->soundVolume();
}

void RVITunesHelper::setEqEnable(bool enabled) {
  Cadenza::sharedInstance()->setEqEnable(enabled);
}

bool RVITunesHelper::eqEnabled() {
  return Cadenza::sharedInstance()->eqEnabled();
}

void RVITunesHelper::previousTrack() {
  Cadenza::sharedInstance()->previousTrack();
}

void RVITunesHelper::backTrack() {
  Cadenza::sharedInstance()->backTrack();
}

void RVITunesHelper::nextTrack() {
  Cadenza::sharedInstance()->nextTrack();
}

void RVITunesHelper::playPause() {
  Cadenza::sharedInstance()->playPause();
}

void RVITunesHelper::resume() {
  Cadenza::sharedInstance()->resume();
}

void RVITunesHelper::play() {
  Cadenza::sharedInstance()->play();
}

void RVITunesHelper::pause() {
  Cadenza::sharedInstance()->pause();
}

void RVITunesHelper::stop() {
  Cadenza::sharedInstance()->stop();
}

}  // namespace rvitunes
