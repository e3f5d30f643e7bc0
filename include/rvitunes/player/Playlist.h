// One playlist of the library: the library playlist, a folder, a smart or ordinary user
// playlist or one of the special playlists, with its record in the library file's "Playlists"
// array.
//
// Kind from the record's flags: "Master" is the library playlist ('cLiP'); "Folder" a folder
// ('cFoP', 'kSpF'); "Music" 'kSpZ', "Movies" 'kSpI', "TV Shows" 'kSpT', "Podcasts" 'kSpP',
// "Audiobooks" or "Books" 'kSpA', "Purchased Music" 'kSpM', "Party Shuffle" or "iTunes DJ"
// 'kSpS', "Videos" 'kSpV'; without a flag "Distinguished Kind" decides where it names one of
// those; everything else (smart playlists too) is an ordinary user playlist 'kSpN'. The Genius
// playlist answers 'kSpG' on players from 8.0, 'kSpN' before.
//
// Owned by its Library; never moves while the Library lives. Read from the event thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "rvitunes/player/PlayerCodes.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::player {

class Library;

class Playlist {
 public:
  Playlist(DatabaseId id, PersistentId persistentId, plist::Ref<plist::Dictionary> record);

  // "Playlist ID" (a new one when the file had none).
  DatabaseId id() const { return id_; }
  // "Playlist Persistent ID" (a new random one when the file had none).
  PersistentId persistentId() const { return persistentId_; }
  // 'cLiP', 'cFoP' or 'cUsP'.
  OSType classCode() const { return classCode_; }
  // True for the own class and its superclasses: a folder is also a 'cUsP', every playlist a
  // 'cPly' and 'cobj'.
  bool isKindOf(OSType classCode) const;
  // The 'pSpK' code.
  OSType specialKind() const { return specialKind_; }
  bool isLibrary() const { return classCode_ == kClassLibraryPlaylist; }
  bool isFolder() const { return classCode_ == kClassFolderPlaylist; }
  // "Smart Info" present.
  bool isSmart() const;
  // "Visible" (true when absent).
  bool isVisible() const;
  // The playlists the player shows without letting them be renamed: the library and the
  // special kinds (not folders, not ordinary playlists).
  bool isSpecial() const;

  std::string name() const;
  // "Parent Persistent ID": the folder this playlist sits in; nullopt at the top level.
  std::optional<PersistentId> parentPersistentId() const { return parent_; }
  // The persistent IDs of the playlists whose parent this is, in file order.
  const std::vector<PersistentId>& childPersistentIds() const { return children_; }
  // "Playlist Items" in order, duplicates kept; items naming no track are left out.
  const std::vector<DatabaseId>& trackIds() const { return trackIds_; }
  // Playback settings, kept while the player runs (the library file has no place for them).
  bool shuffle() const { return shuffle_; }
  OSType songRepeat() const { return repeat_; }  // 'kRpO', 'kRp1' or 'kRpA'
  bool shared() const { return shared_; }

  const plist::Dictionary& record() const { return *record_; }

 private:
  friend class Library;
  DatabaseId id_;
  PersistentId persistentId_;
  plist::Ref<plist::Dictionary> record_;
  OSType classCode_ = kClassUserPlaylist;
  OSType specialKind_ = kSpecialNone;
  bool genius_ = false;
  std::optional<PersistentId> parent_;
  std::vector<PersistentId> children_;
  std::vector<DatabaseId> trackIds_;
  bool shuffle_ = false;
  OSType repeat_ = kRepeatOff;
  bool shared_ = false;
};

}  // namespace rvitunes::player
