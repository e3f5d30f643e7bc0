#include <gtest/gtest.h>

#include "PlayerTestSupport.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/PersistentIdText.h"

namespace rvitunes::player {
namespace {

// A WAV file of `seconds` of 8 kHz 8-bit mono silence.
std::string wave(int seconds) {
  const uint32_t rate = 8000;
  const uint32_t dataSize = rate * static_cast<uint32_t>(seconds);
  std::string out;
  auto put32 = [&](uint32_t v) {
    for (int i = 0; i < 4; ++i)
      out.push_back(static_cast<char>(v >> (8 * i)));
  };
  auto put16 = [&](uint16_t v) {
    out.push_back(static_cast<char>(v));
    out.push_back(static_cast<char>(v >> 8));
  };
  out += "RIFF";
  put32(36 + dataSize);
  out += "WAVEfmt ";
  put32(16);
  put16(1);     // PCM
  put16(1);     // mono
  put32(rate);  // sample rate
  put32(rate);  // byte rate
  put16(1);     // block align
  put16(8);     // bits per sample
  out += "data";
  put32(dataSize);
  out.append(dataSize, '\x80');
  return out;
}

class LibraryEditsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(library_.load(testing::copySampleLibrary(folder_)).ok());
    library_.setChangeListener([this] { ++changes_; });
  }
  std::vector<std::string> names(const Result<std::vector<const Track*>>& tracks) {
    std::vector<std::string> out;
    for (const Track* track : tracks.value())
      out.push_back(track->name());
    return out;
  }

  testing::ScratchFolder folder_;
  Library library_;
  int changes_ = 0;
};

TEST_F(LibraryEditsTest, AddFileMakesATrackOnceOnly) {
  const std::string file = folder_.write("Music/Quiet Song.wav", wave(3));
  Result<const Track*> added = library_.addFile(file);
  ASSERT_TRUE(added.ok()) << added.status().toString();
  const Track& track = **added;
  EXPECT_EQ(track.name(), "Quiet Song");
  EXPECT_EQ(track.text("Kind"), "WAV audio file");
  EXPECT_EQ(track.integer("Size"), 36 + 8 + 24000);
  EXPECT_EQ(track.integer("Total Time"), 3000);
  EXPECT_EQ(track.integer("Sample Rate"), 8000);
  EXPECT_EQ(track.classCode(), kClassFileTrack);
  EXPECT_EQ(track.locationPath(), file);
  EXPECT_GT(track.id(), 2640);  // above every ID of the file
  EXPECT_EQ(track.text("Persistent ID"), formatPersistentId(track.persistentId()));
  EXPECT_EQ(library_.trackByPersistentId(track.persistentId()), &track);
  EXPECT_EQ(library_.libraryPlaylist().trackIds().back(), track.id());
  EXPECT_EQ(library_.libraryPlaylist().trackIds().size(), 31u);
  EXPECT_GT(changes_, 0);

  // The same file again (by another spelling of its path) answers the same track.
  Result<const Track*> again = library_.addFile(folder_.path() + "/Music/../Music/Quiet Song.wav");
  ASSERT_TRUE(again.ok());
  EXPECT_EQ(*again, &track);
  EXPECT_EQ(library_.tracks().size(), 31u);

  // The new record is in the tree that is written back.
  EXPECT_NE(library_.serialize()->find("Quiet%20Song.wav"), std::string::npos);

  EXPECT_EQ(library_.addFile(folder_ / "missing.mp3").status().code(), fnfErr);
  EXPECT_EQ(library_.addFile(folder_.write("notes.txt")).status().code(), paramErr);
  EXPECT_EQ(library_.addFile(folder_.path()).status().code(), paramErr);
}

TEST_F(LibraryEditsTest, AddFolderAndPlaylistItems) {
  folder_.write("Album/02 Two.mp3");
  folder_.write("Album/01 One.mp3");
  folder_.write("Album/cover.jpg");
  Result<std::vector<const Track*>> added = library_.addFiles(folder_ / "Album");
  ASSERT_TRUE(added.ok());
  EXPECT_EQ(names(added), (std::vector<std::string>{"01 One", "02 Two"}));

  const DatabaseId focus = 2968;
  const size_t before = library_.playlistById(focus)->trackIds().size();
  ASSERT_TRUE(library_.addTrackToPlaylist(added->at(0)->id(), focus).ok());
  EXPECT_EQ(library_.playlistById(focus)->trackIds().size(), before + 1);
  EXPECT_EQ(library_.addTrackToPlaylist(added->at(0)->id(), 2950).code(),  // smart
            errAECantPutThatThere);
  EXPECT_EQ(library_.addTrackToPlaylist(added->at(0)->id(), 2942).code(),  // folder
            errAECantPutThatThere);
  EXPECT_EQ(library_.addTrackToPlaylist(1, focus).code(), errAENoSuchObject);
}

TEST_F(LibraryEditsTest, SearchByArea) {
  const Playlist& all = library_.libraryPlaylist();
  // Every word must match some field; case does not matter.
  EXPECT_EQ(names(library_.search(all, "kate SEÑORITA")), (std::vector<std::string>{"Señorita"}));
  EXPECT_EQ(names(library_.search(all, "Senorita", kSearchSongs)), std::vector<std::string>{});
  const size_t byArtist = library_.search(all, "Kate Petrov", kSearchArtists)->size();
  EXPECT_GE(byArtist, 2u);
  EXPECT_TRUE(library_.search(all, "Kate Petrov", kSearchSongs)->empty());
  EXPECT_EQ(library_.search(all, "motel shadow", kSearchAlbums)->size(),
            library_.search(all, "Motel Shadow", 0)->size());
  EXPECT_TRUE(library_.search(all, "   ")->empty());
  EXPECT_EQ(library_.search(all, "x", fourCharCode("kSrQ")).status().code(), errAENotAnEnumMember);
  // Only the tracks of the playlist searched.
  EXPECT_TRUE(library_.search(*library_.playlistById(2922), "Kate")->empty());
}

TEST_F(LibraryEditsTest, ArtworkElements) {
  // A cover beside the file is the track's artwork when the record counts one.
  const std::string jpeg("\xFF\xD8\xFF\xE0 fake jpeg", 15);
  folder_.write("Art/cover.jpg", jpeg);
  const std::string song = folder_.write("Art/Song.mp3");
  Result<const Track*> added = library_.addFile(song);
  ASSERT_TRUE(added.ok());
  const DatabaseId id = (*added)->id();
  EXPECT_TRUE(library_.artwork(**added).empty());  // "Artwork Count" is absent

  const std::vector<uint8_t> pict(600, 0x11);
  ASSERT_TRUE(
      library_
          .setArtworkProperty(id, 0, kPropPicture, ae::Descriptor::fromBytes(ae::typePict, pict))
          .ok());
  ASSERT_EQ(library_.artwork(**added).size(), 1u);
  EXPECT_EQ((*added)->integer("Artwork Count"), 1);
  ae::Descriptor picture = library_.artworkProperty(**added, 0, kPropPicture).value();
  EXPECT_EQ(picture.type(), ae::typePict);
  EXPECT_EQ(std::vector<uint8_t>(picture.data().begin(), picture.data().end()), pict);
  EXPECT_EQ(ae::codeValue(library_.artworkProperty(**added, 0, kPropFormat).value()).value(),
            ae::typePict);

  // Raw bytes are recognised by their signature; a second picture appends.
  ASSERT_TRUE(
      library_
          .setArtworkProperty(id, 1, kPropRawData,
                              ae::Descriptor::fromBytes(
                                  fourCharCode("tdta"),
                                  {reinterpret_cast<const uint8_t*>(jpeg.data()), jpeg.size()}))
          .ok());
  EXPECT_EQ(library_.artwork(**added)[1].format, ae::typeJPEG);
  EXPECT_EQ(
      library_
          .setArtworkProperty(id, 5, kPropPicture, ae::Descriptor::fromBytes(ae::typePict, pict))
          .code(),
      errAEIllegalIndex);
  EXPECT_EQ(library_.setArtworkProperty(id, 0, kPropFormat, ae::Descriptor::makeType(ae::typeJPEG))
                .code(),
            errAEWriteDenied);
  EXPECT_EQ(library_.artworkProperty(**added, 2, kPropPicture).status().code(), errAEIllegalIndex);

  ASSERT_TRUE(library_.deleteArtwork(id, 0).ok());
  EXPECT_EQ((*added)->integer("Artwork Count"), 1);
  ASSERT_TRUE(library_.deleteAllArtwork(id).ok());
  EXPECT_FALSE((*added)->record().contains("Artwork Count"));

  // A track whose record counts artwork finds the cover beside its file.
  Library fresh;
  ASSERT_TRUE(fresh.load(testing::sampleLibraryPath()).ok());
  ASSERT_TRUE(fresh.setTrackProperty(2582, kPropLocation, ae::makeFileURLDesc(song)).ok());
  ASSERT_EQ(fresh.artwork(*fresh.trackById(2582)).size(), 1u);
  EXPECT_EQ(fresh.artwork(*fresh.trackById(2582))[0].format, ae::typeJPEG);
}

}  // namespace
}  // namespace rvitunes::player
