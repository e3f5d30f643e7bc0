// CZTrack: the property accessors that bind one player property code to one conversion of
// CZAppleEventObject, one request per call. The version-gated and persistent-ID accessors are in
// CZTrack.cpp.
#include "rvitunes/cadenza/CZTrack.h"

namespace rvitunes {

std::optional<std::string> CZTrack::name() {
  return getPropertyAsStringForDesc(fourCharCode("pnam"));
}

void CZTrack::setName(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pnam"));
}

std::optional<std::string> CZTrack::album() {
  return getPropertyAsStringForDesc(fourCharCode("pAlb"));
}

void CZTrack::setAlbum(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pAlb"));
}

std::optional<std::string> CZTrack::artist() {
  return getPropertyAsStringForDesc(fourCharCode("pArt"));
}

void CZTrack::setArtist(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pArt"));
}

std::optional<std::string> CZTrack::albumArtist() {
  return getPropertyAsStringForDesc(fourCharCode("pAlA"));
}

void CZTrack::setAlbumArtist(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pAlA"));
}

int32_t CZTrack::bitrate() {
  return getPropertyAsIntegerForDesc(fourCharCode("pBRt"));
}

int32_t CZTrack::bpm() {
  return getPropertyAsIntegerForDesc(fourCharCode("pBPM"));
}

void CZTrack::setBpm(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pBPM"));
}

int32_t CZTrack::bookmark() {
  return getPropertyAsIntegerForDesc(fourCharCode("pBkt"));
}

void CZTrack::setBookmark(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pBkt"));
}

bool CZTrack::bookmarkable() {
  return flag(fourCharCode("pBkm"));
}

void CZTrack::setBookmarkable(bool value) {
  setPropertyWithIntegerForDesc(value ? 1 : 0, fourCharCode("pBkm"));
}

std::optional<std::string> CZTrack::category() {
  return getPropertyAsStringForDesc(fourCharCode("pCat"));
}

void CZTrack::setCategory(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pCat"));
}

std::optional<std::string> CZTrack::comment() {
  return getPropertyAsStringForDesc(fourCharCode("pCmt"));
}

void CZTrack::setComment(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pCmt"));
}

bool CZTrack::compilation() {
  return flag(fourCharCode("pAnt"));
}

void CZTrack::setCompilation(bool value) {
  setPropertyWithIntegerForDesc(value ? 1 : 0, fourCharCode("pAnt"));
}

std::optional<std::string> CZTrack::composer() {
  return getPropertyAsStringForDesc(fourCharCode("pCmp"));
}

void CZTrack::setComposer(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pCmp"));
}

int32_t CZTrack::databaseId() {
  return getPropertyAsIntegerForDesc(fourCharCode("pDID"));
}

std::optional<Date> CZTrack::dateAdded() {
  return getPropertyAsDateForDesc(fourCharCode("pAdd"));
}

std::optional<std::string> CZTrack::description() {
  return getPropertyAsStringForDesc(fourCharCode("pDes"));
}

void CZTrack::setDescription(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pDes"));
}

int32_t CZTrack::discCount() {
  return getPropertyAsIntegerForDesc(fourCharCode("pDsC"));
}

void CZTrack::setDiscCount(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pDsC"));
}

int32_t CZTrack::discNumber() {
  return getPropertyAsIntegerForDesc(fourCharCode("pDsN"));
}

void CZTrack::setDiscNumber(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pDsN"));
}

int32_t CZTrack::duration() {
  return getPropertyAsIntegerForDesc(fourCharCode("pDur"));
}

std::optional<std::string> CZTrack::episodeId() {
  return getPropertyAsStringForDesc(fourCharCode("pEpD"));
}

void CZTrack::setEpisodeId(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pEpD"));
}

int32_t CZTrack::episodeNumber() {
  return getPropertyAsIntegerForDesc(fourCharCode("pEpN"));
}

void CZTrack::setEpisodeNumber(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pEpN"));
}

bool CZTrack::enabled() {
  return flag(fourCharCode("enbl"));
}

void CZTrack::setEnabled(bool value) {
  setPropertyWithIntegerForDesc(value ? 1 : 0, fourCharCode("enbl"));
}

std::optional<std::string> CZTrack::eq() {
  return getPropertyAsStringForDesc(fourCharCode("pEQp"));
}

void CZTrack::setEq(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pEQp"));
}

int32_t CZTrack::finish() {
  return getPropertyAsIntegerForDesc(fourCharCode("pStp"));
}

void CZTrack::setFinish(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pStp"));
}

bool CZTrack::gapless() {
  return flag(fourCharCode("pGpl"));
}

void CZTrack::setGapless(bool value) {
  setPropertyWithIntegerForDesc(value ? 1 : 0, fourCharCode("pGpl"));
}

std::optional<std::string> CZTrack::genre() {
  return getPropertyAsStringForDesc(fourCharCode("pGen"));
}

void CZTrack::setGenre(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pGen"));
}

std::optional<std::string> CZTrack::grouping() {
  return getPropertyAsStringForDesc(fourCharCode("pGrp"));
}

void CZTrack::setGrouping(std::string_view value) {
  setPropertyWithStringForDesc(value, fourCharCode("pGrp"));
}

std::optional<std::string> CZTrack::kind() {
  return getPropertyAsStringForDesc(fourCharCode("pKnd"));
}

std::optional<std::string> CZTrack::location() {
  return getPropertyAsPathURLForDesc(fourCharCode("pLoc"));
}

std::optional<Date> CZTrack::modificationDate() {
  return getPropertyAsDateForDesc(fourCharCode("asmo"));
}

int32_t CZTrack::playedCount() {
  return getPropertyAsIntegerForDesc(fourCharCode("pPlC"));
}

void CZTrack::setPlayedCount(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pPlC"));
}

std::optional<Date> CZTrack::playedDate() {
  return getPropertyAsDateForDesc(fourCharCode("pPlD"));
}

void CZTrack::setPlayedDate(const Date& value) {
  setPropertyWithDateForDesc(value, fourCharCode("pPlD"));
}

bool CZTrack::podcast() {
  return flag(fourCharCode("pTPc"));
}

int32_t CZTrack::rating() {
  return getPropertyAsIntegerForDesc(fourCharCode("pRte"));
}

void CZTrack::setRating(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pRte"));
}

int32_t CZTrack::sampleRate() {
  return getPropertyAsIntegerForDesc(fourCharCode("pSRt"));
}

int32_t CZTrack::seasonNumber() {
  return getPropertyAsIntegerForDesc(fourCharCode("pSeN"));
}

void CZTrack::setSeasonNumber(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pSeN"));
}

int32_t CZTrack::size() {
  return getPropertyAsIntegerForDesc(fourCharCode("pSiz"));
}

std::optional<std::string> CZTrack::show() {
  return getPropertyAsStringForDesc(fourCharCode("pShw"));
}

int32_t CZTrack::skippedCount() {
  return getPropertyAsIntegerForDesc(fourCharCode("pSkC"));
}

void CZTrack::setSkippedCount(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pSkC"));
}

std::optional<Date> CZTrack::skippedDate() {
  return getPropertyAsDateForDesc(fourCharCode("pSkD"));
}

void CZTrack::setSkippedDate(const Date& value) {
  setPropertyWithDateForDesc(value, fourCharCode("pSkD"));
}

int32_t CZTrack::start() {
  return getPropertyAsIntegerForDesc(fourCharCode("pStr"));
}

void CZTrack::setStart(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pStr"));
}

std::optional<std::string> CZTrack::time() {
  return getPropertyAsStringForDesc(fourCharCode("pTim"));
}

int32_t CZTrack::trackCount() {
  return getPropertyAsIntegerForDesc(fourCharCode("pTrC"));
}

void CZTrack::setTrackCount(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pTrC"));
}

int32_t CZTrack::trackNumber() {
  return getPropertyAsIntegerForDesc(fourCharCode("pTrN"));
}

void CZTrack::setTrackNumber(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pTrN"));
}

// The whole integer counts here, unlike the other flags.
bool CZTrack::unplayed() {
  return getPropertyAsIntegerForDesc(fourCharCode("pUnp")) != 0;
}

void CZTrack::setUnplayed(bool value) {
  setPropertyWithIntegerForDesc(value ? 1 : 0, fourCharCode("pUnp"));
}

int32_t CZTrack::volumeAdjustment() {
  return getPropertyAsIntegerForDesc(fourCharCode("pAdj"));
}

void CZTrack::setVolumeAdjustment(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pAdj"));
}

int32_t CZTrack::year() {
  return getPropertyAsIntegerForDesc(fourCharCode("pYr "));
}

void CZTrack::setYear(int32_t value) {
  setPropertyWithIntegerForDesc(value, fourCharCode("pYr "));
}

}  // namespace rvitunes
