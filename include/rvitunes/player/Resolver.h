// The object-specifier resolver of the reference player: turns the 'obj ' records of incoming
// events into the objects and properties of the player's model, reads and writes the values
// they name, and makes the specifiers the player hands out.
//
// Object model (elements by container):
//   application  'cSrc' the library source; playlists ('cPly', 'cLiP', 'cUsP', 'cFoP')
//   source       playlists, as the application
//   playlist     tracks ('cTrk', 'cFlT', 'cURT')
//   track        artwork ('cArt')
// Key forms: 'prop'; 'indx' with an integer (any integer type, or a whole real; negative counts
// from the end) or an ordinal 'abso' ('firs' 'last' 'midd' 'any ' 'all '); 'ID  '; 'name'
// (ignoring ASCII case); 'test' with 'cmpd' and 'logi' records, 'exmn' standing for the element
// under test; 'rang' with boundaries relative to 'ccnt'; 'rele' ('next' / 'prev'). Containers
// chain through 'from'; the null descriptor is the application. A form applied to a container
// that is itself a set of objects of the same kind (the result of 'all', a test or a range)
// picks from that set, as the platform's whose-descriptors do: "any playlist of (playlists
// whose pPID = x)" is one of the matches, or -1728 when there is none.
//
// Specifiers handed out name objects by unique ID with the container chain:
//   file track id T of user playlist id P of source id S of application
// (artwork, which has no ID, by index of its track). A track remembers the playlist it was
// reached through; the current track is reached through the current playlist, the selection
// through the library playlist.
//
// Errors (Status codes): errAENoSuchObject (-1728) for anything that does not exist (an index
// out of range, an unknown ID or name, an empty set under an ordinal, a property the object or
// this player version lacks, the parent of a top-level playlist); errAEBadKeyForm (-10002) for
// an unknown key form; errAENotAnObjSpec (-1727) for a key datum or container of the wrong
// kind; errAEBadTestKey (-1726), errAENoSuchLogical (-1725), errAEWrongNumberArgs (-1721) for
// malformed tests; errAEImpossibleRange (-1720) for a backward range; errAEWriteDenied
// (-10006) when writing a read-only property; the model's errors for values it refuses. The
// message is the text for the reply's 'errs'.
//
// Threads: a Resolver belongs to the player's event thread, like the model it works on.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"
#include "rvitunes/player/PlayerCodes.h"

namespace rvitunes::player {

class PlayerModel;
class Library;

// One object of the model.
struct ObjectRef {
  enum class Kind : uint8_t { kApplication, kSource, kPlaylist, kTrack, kArtwork };
  Kind kind = Kind::kApplication;
  // kPlaylist: the playlist. kTrack, kArtwork: the playlist the track was reached through.
  DatabaseId playlist = 0;
  DatabaseId track = 0;  // kTrack, kArtwork
  int32_t artwork = 0;   // kArtwork: position among the track's artwork, from 0

  static ObjectRef application() { return {}; }
  static ObjectRef source() { return {Kind::kSource, 0, 0, 0}; }
  static ObjectRef playlistRef(DatabaseId id) { return {Kind::kPlaylist, id, 0, 0}; }
  static ObjectRef trackRef(DatabaseId id, DatabaseId playlist) {
    return {Kind::kTrack, playlist, id, 0};
  }
  static ObjectRef artworkRef(DatabaseId track, DatabaseId playlist, int32_t index) {
    return {Kind::kArtwork, playlist, track, index};
  }
  friend bool operator==(const ObjectRef&, const ObjectRef&) = default;
};

// What a specifier names: an object, or one property of an object.
struct Token {
  ObjectRef object;
  OSType property = 0;  // 0: the object itself
  bool isProperty() const { return property != 0; }
  friend bool operator==(const Token&, const Token&) = default;
};

struct Resolution {
  std::vector<Token> tokens;
  // The specifier names a set ('all', a test, a range, or anything of several containers):
  // its value is a list even when the set holds one member or none.
  bool multiple = false;
};

class Resolver {
 public:
  // `applicationName` answers the application's 'pnam'. The model must outlive the resolver.
  explicit Resolver(PlayerModel& model, std::string applicationName = kPlayerName);

  // Resolves an object specifier ('obj '), or the null descriptor (the application).
  Result<Resolution> resolve(const ae::Descriptor& specifier);

  // The value 'core'/'getd' answers: a property's value, or an object's specifier.
  Result<ae::Descriptor> value(const Token& token);
  // The values of a resolution: one value, or a list for a set.
  Result<ae::Descriptor> value(const Resolution& resolution);
  // Writes a property (an artwork element itself takes its picture data).
  Status setValue(const Token& token, const ae::Descriptor& value);

  // The objects a token stands for when used as a container or a command's object: the object
  // itself, or what an object-valued property names ('pTrk', 'pPla', 'sele', 'pPlP', 'ctnr').
  // errAENoSuchObject for a property with a plain value.
  Result<std::vector<ObjectRef>> objectsOf(const Token& token);

  // The elements of class `classCode` (or of its subclasses) of `container`, in order; empty
  // for a class the container has no elements of.
  std::vector<ObjectRef> elements(const ObjectRef& container, OSType classCode);

  // The specifier the player hands out for `object` (by unique ID with its container chain).
  ae::Descriptor specifierFor(const ObjectRef& object) const;
  // The class code of `object` ('capp', 'cSrc', 'cLiP', 'cFlT', ...).
  OSType classOf(const ObjectRef& object) const;

 private:
  Result<Resolution> resolveIn(const ae::Descriptor& specifier, const ObjectRef* examined,
                               int depth);
  Result<std::vector<ObjectRef>> select(const std::vector<ObjectRef>& candidates, OSType form,
                                        const ae::Descriptor& keyData, const ObjectRef* examined,
                                        bool* multiple, int depth);
  Result<size_t> rangeBoundary(const std::vector<ObjectRef>& candidates,
                               const ae::Descriptor& boundary, const ObjectRef* examined,
                               int depth);
  Result<bool> test(const ae::Descriptor& test, const ObjectRef& element, int depth);
  Result<ae::Descriptor> operand(const ae::Descriptor& desc, const ObjectRef& element, int depth);
  Result<std::vector<ObjectRef>> relative(const ObjectRef& reference, OSType desiredClass,
                                          OSType direction);
  std::string nameOf(const ObjectRef& object) const;

  PlayerModel& model_;
  Library& library_;
  std::string applicationName_;
  std::minstd_rand random_;
};

}  // namespace rvitunes::player
