// RVITunesTrackItem's images: the file-type image chosen from RVITunesIcons, and the track's
// artwork fetched from the running player once, one fetch at a time in the process.
#include <array>
#include <string_view>

#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesTrackItem.h"

namespace rvitunes {
namespace {

struct TypeImageName {
  std::string_view type;
  std::string_view image;
};

// Checked in order; the first equal word decides. "mpeg4" pairs with "iTunes_mpeg4p".
constexpr std::array<TypeImageName, 29> kTypeImages = {{
    {"aac", "iTunes_aac"},
    {"aacp", "iTunes_aacp"},
    {"aiff", "iTunes_aiff"},
    {"audible", "iTunes_audible"},
    {"cd", "iTunes_cd"},
    {"database", "iTunes_database"},
    {"ipa", "iTunes_ipa"},
    {"ipg", "iTunes_ipg"},
    {"ipsw", "iTunes_ipsw"},
    {"ite", "iTunes_ite"},
    {"itlp", "iTunes_itlp"},
    {"itms", "iTunes_itms"},
    {"mov", "iTunes_movie"},
    {"avi", "iTunes_movie"},
    {"movie", "iTunes_movie"},
    {"mp2", "iTunes_mp2"},
    {"mp3", "iTunes_mp3"},
    {"mp4", "iTunes_mpeg4"},
    {"m4a", "iTunes_mpeg4"},
    {"mpeg", "iTunes_mpeg4"},
    {"mpeg4", "iTunes_mpeg4p"},
    {"mpeg4p", "iTunes_mpeg4p"},
    {"mpg", "iTunes_mpg"},
    {"nvf", "iTunes_nvf"},
    {"playlist", "iTunes_playlist"},
    {"ringtone", "iTunes_ringtone"},
    {"sd2", "iTunes_sd2"},
    {"visual", "iTunes_visual"},
    {"wav", "iTunes_wav"},
}};

constexpr std::string_view kGenericImage = "iTunes_generic";

std::string lowerAscii(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string_view imageNameForType(const std::optional<std::string>& type) {
  if (!type) return kGenericImage;
  const std::string lower = lowerAscii(*type);
  for (const TypeImageName& row : kTypeImages) {
    if (row.type == lower) return row.image;
  }
  return kGenericImage;
}

constexpr int kArtworkRetries = 4;

}  // namespace

std::mutex& metaImageLock() {
  static std::mutex lock;  // made once, race-free, never destroyed before exit
  return lock;
}

void RVITunesTrackItem::assignFileTypeImage(const std::optional<std::string>& type) {
  plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  if (!icons) return;
  // No second try with the generic image when a known type's image is missing.
  typeImage_ = iconImageRef(icons->get(imageNameForType(type)));
}

void RVITunesTrackItem::takeFirstArtwork(CZTrack& track) {
  std::vector<image::Image> artwork = track.artwork();
  if (!artwork.empty()) {
    metaImage_ = std::make_shared<const image::Image>(std::move(artwork.front()));
  }
}

std::shared_ptr<const image::Image> RVITunesTrackItem::metaImageArtWork() {
  if (metaImage_) return metaImage_;
  std::shared_ptr<CZTrack> track = czTrackPtr();
  if (!track) {
    // The direct look-up failed: walk every playlist's tracks. Each playlist's first match
    // replaces the candidate, so the last playlist holding the track supplies it.
    std::shared_ptr<Cadenza> cadenza = Cadenza::sharedInstance();
    if (!cadenza) return nullptr;
    for (const std::shared_ptr<CZPlaylist>& playlist : cadenza->playlists()) {
      if (!playlist) continue;
      for (const std::shared_ptr<CZTrack>& candidate : playlist->tracks()) {
        if (candidate && candidate->databaseId() == trackId_) {
          track = candidate;
          break;
        }
      }
    }
    if (!track) return nullptr;
  }
  takeFirstArtwork(*track);
  if (metaImage_) return metaImage_;
  if (artworkCount_ == 0) return nullptr;  // the library says there is none

  // The library says there is artwork: the controller may be stale. Replace it and ask again.
  (void)Cadenza::reSharedInstance();
  std::shared_ptr<CZTrack> fresh = czTrackPtr();
  for (int attempt = 0; attempt < kArtworkRetries; ++attempt) {
    if (metaImage_) return metaImage_;
    if (fresh) takeFirstArtwork(*fresh);
  }
  return metaImage_;
}

std::shared_ptr<const image::Image> RVITunesTrackItem::metaImage() {
  // The field is read while the lock is still held: another thread's fetch of this item may
  // write it as soon as the lock is released.
  std::lock_guard guard(metaImageLock());
  (void)metaImageArtWork();
  return metaImage_;
}

}  // namespace rvitunes
