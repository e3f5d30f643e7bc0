// The object-specifier resolver on the test library: key forms, ordinals, whose-tests, ranges,
// object-valued properties, the specifiers it hands out, and the comparisons of tests.

#include "rvitunes/player/Resolver.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "HandlerTestSupport.h"
#include "player/ResolverCompare.h"
#include "rvitunes/player/PlayerModel.h"
#include "rvitunes/player/Specifier.h"

namespace rvitunes::player {
namespace {

using testing::kChillId;
using testing::kEmptyId;
using testing::kFocusId;
using testing::kLibraryId;
using testing::kYearsId;
using Kind = ObjectRef::Kind;

ae::Descriptor desc(const std::string& text) {
  ae::Descriptor out;
  ae::BuildError error;
  const OSStatus status = ae::buildDesc(&out, &error, text);
  EXPECT_EQ(status, noErr) << text << " (syntax " << error.code << " at " << error.position << ")";
  return out;
}

std::string focusTrack(const std::string& seld) {
  return "obj { form:indx, want:type(cTrk), seld:" + seld +
         ", from:" + testing::playlistSpecifier(kFocusId) + " }";
}

// "every <class> of <container> whose <property> <op> <value>"
std::string whose(const std::string& cls, const std::string& container, const std::string& test) {
  return "obj { form:test, want:type(" + cls + "), from:" + container + ", seld:" + test + " }";
}

std::string compare(const std::string& op, const std::string& property, const std::string& value) {
  return "cmpd{relo:" + op + ", 'obj1':obj{ form:prop, want:type(prop), seld:type(" + property +
         "), from:exmn()}, obj2:" + value + "}";
}

class ResolverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    PlayerOptions options;
    options.writeBack = false;
    model_ = std::make_unique<PlayerModel>(std::move(options));
    ASSERT_TRUE(model_->load(testing::writeTestLibrary(folder_)).ok());
    resolver_ = std::make_unique<Resolver>(*model_);
  }

  Result<Resolution> resolve(const std::string& text) { return resolver_->resolve(desc(text)); }

  // The objects a specifier names (as tracks' or playlists' IDs); fails the test on an error.
  std::vector<int64_t> ids(const std::string& text) {
    auto resolved = resolve(text);
    EXPECT_TRUE(resolved.ok()) << text << ": " << resolved.status().toString();
    std::vector<int64_t> out;
    if (!resolved) return out;
    for (const Token& token : resolved->tokens) {
      out.push_back(token.object.kind == Kind::kTrack ? token.object.track : token.object.playlist);
    }
    return out;
  }

  OSStatus errorOf(const std::string& text) {
    auto resolved = resolve(text);
    return resolved.ok() ? noErr : resolved.status().code();
  }

  testing::ScratchFolder folder_;
  std::unique_ptr<PlayerModel> model_;
  std::unique_ptr<Resolver> resolver_;
};

TEST_F(ResolverTest, IndexesCountFromEitherEndAndAcceptEveryIntegerType) {
  EXPECT_EQ(ids(focusTrack("1")), std::vector<int64_t>{102});  // 'shor'
  EXPECT_EQ(ids(focusTrack("long(2)")), std::vector<int64_t>{104});
  EXPECT_EQ(ids(focusTrack("comp(3)")), std::vector<int64_t>{106});
  EXPECT_EQ(ids(focusTrack("doub(2)")), std::vector<int64_t>{104});
  EXPECT_EQ(ids(focusTrack("-1")), std::vector<int64_t>{106});
  EXPECT_EQ(ids(focusTrack("-3")), std::vector<int64_t>{102});
  for (const char* outside : {"0", "4", "-4", "100000"}) {
    EXPECT_EQ(errorOf(focusTrack(outside)), errAENoSuchObject) << outside;
  }
  EXPECT_EQ(errorOf(focusTrack("\"two\"")), errAECoercionFail);
  // The framework's first library playlist: cLiP 1 of the application.
  EXPECT_EQ(ids("obj { form:indx, want:type(cLiP), seld:1, from:null() }"),
            std::vector<int64_t>{kLibraryId});
}

TEST_F(ResolverTest, OrdinalsPickFirstLastMiddleAnyAndAll) {
  EXPECT_EQ(ids(focusTrack("abso('firs')")), std::vector<int64_t>{102});
  EXPECT_EQ(ids(focusTrack("abso('last')")), std::vector<int64_t>{106});
  EXPECT_EQ(ids(focusTrack("abso('midd')")), std::vector<int64_t>{104});
  // An even count rounds the middle down.
  EXPECT_EQ(ids("obj { form:indx, want:type(cTrk), seld:abso('midd'), from:" +
                testing::playlistSpecifier(kChillId) + " }"),
            std::vector<int64_t>{101});
  const auto any = ids(focusTrack("'abso'('any ')"));
  ASSERT_EQ(any.size(), 1u);
  EXPECT_TRUE(any[0] == 102 || any[0] == 104 || any[0] == 106);

  auto all = resolve(focusTrack("abso('all ')"));
  ASSERT_TRUE(all.ok());
  EXPECT_TRUE(all->multiple);
  EXPECT_EQ(all->tokens.size(), 3u);

  const std::string empty = testing::playlistSpecifier(kEmptyId);
  auto none = resolve("obj { form:indx, want:type(cTrk), seld:abso('all '), from:" + empty + " }");
  ASSERT_TRUE(none.ok());
  EXPECT_TRUE(none->multiple);
  EXPECT_TRUE(none->tokens.empty());
  for (const char* ordinal : {"firs", "last", "midd", "any "}) {
    EXPECT_EQ(errorOf("obj { form:indx, want:type(cTrk), seld:abso('" + std::string(ordinal) +
                      "'), from:" + empty + " }"),
              errAENoSuchObject)
        << ordinal;
  }
  // Subclasses count as their class; other classes are not elements.
  EXPECT_EQ(ids("obj { form:indx, want:type(cURT), seld:abso('all '), from:" +
                testing::playlistSpecifier(kLibraryId) + " }"),
            std::vector<int64_t>{105});
  EXPECT_EQ(ids("obj { form:indx, want:type(cFoP), seld:abso('all '), from:null() }"),
            std::vector<int64_t>{kYearsId});
  EXPECT_EQ(errorOf("obj { form:indx, want:type(cArt), seld:1, from:null() }"), errAENoSuchObject);
}

TEST_F(ResolverTest, UniqueIdsAndNamesFollowTheContainerChain) {
  EXPECT_EQ(ids(testing::trackSpecifier(104, kFocusId)), std::vector<int64_t>{104});
  EXPECT_EQ(ids("obj { form:'ID  ', want:type(cTrk), seld:comp(104), from:" +
                testing::playlistSpecifier(kFocusId) + " }"),
            std::vector<int64_t>{104});
  // A track that is not in the container is not found there.
  EXPECT_EQ(errorOf(testing::trackSpecifier(101, kFocusId)), errAENoSuchObject);
  EXPECT_EQ(errorOf(testing::playlistSpecifier(999)), errAENoSuchObject);
  // Names ignore case.
  EXPECT_EQ(ids("obj { form:name, want:type(cPly), seld:\"chill\", from:null() }"),
            std::vector<int64_t>{kChillId});
  EXPECT_EQ(ids("obj { form:name, want:type(cTrk), seld:\"zeta\", from:" +
                testing::playlistSpecifier(kFocusId) + " }"),
            std::vector<int64_t>{106});
  EXPECT_EQ(errorOf("obj { form:name, want:type(cPly), seld:\"Nothing\", from:null() }"),
            errAENoSuchObject);
  EXPECT_EQ(errorOf("obj { form:usrp, want:type(cPly), seld:\"x\", from:null() }"),
            errAEBadKeyForm);
  EXPECT_EQ(errorOf("obj { form:prop, want:type(prop), seld:type(pnam), from:\"text\" }"),
            errAENotAnObjSpec);
  // Properties chain through the objects they name: the name of the parent of Chill.
  auto name = resolve(testing::propertyOf(
      "pnam", testing::propertyOf("pPlP", testing::playlistSpecifier(kChillId))));
  ASSERT_TRUE(name.ok());
  auto value = resolver_->value(*name);
  ASSERT_TRUE(value.ok());
  EXPECT_EQ(*ae::textValue(*value), "Years");
}

TEST_F(ResolverTest, HandedOutSpecifiersNameObjectsByIdWithTheirContainers) {
  const Library& library = model_->library();
  const ae::Descriptor track = resolver_->specifierFor(ObjectRef::trackRef(101, kChillId));
  // file track id 101 of user playlist id 211 of source id S of application
  EXPECT_EQ(testing::specifierClass(track), kClassFileTrack);
  EXPECT_EQ(testing::specifierId(track), 101);
  const ae::Descriptor& playlist = *track.findParam(ae::keyAEContainer);
  EXPECT_EQ(testing::specifierClass(playlist), kClassUserPlaylist);
  EXPECT_EQ(testing::specifierId(playlist), kChillId);
  const ae::Descriptor& source = *playlist.findParam(ae::keyAEContainer);
  EXPECT_EQ(testing::specifierClass(source), kClassSource);
  EXPECT_EQ(testing::specifierId(source), library.source().id);
  EXPECT_TRUE(source.findParam(ae::keyAEContainer)->isNull());

  const std::vector<ObjectRef> objects = {ObjectRef::source(),
                                          ObjectRef::playlistRef(kLibraryId),
                                          ObjectRef::playlistRef(kYearsId),
                                          ObjectRef::trackRef(105, kLibraryId),
                                          ObjectRef::trackRef(103, kChillId),
                                          ObjectRef::artworkRef(101, kChillId, 0)};
  for (const ObjectRef& object : objects) {
    auto resolved = resolver_->resolve(resolver_->specifierFor(object));
    ASSERT_TRUE(resolved.ok()) << resolved.status().toString();
    ASSERT_EQ(resolved->tokens.size(), 1u);
    EXPECT_EQ(resolved->tokens[0].object, object);
  }
}

TEST_F(ResolverTest, WhoseTestsApplyEveryComparisonOperator) {
  const std::string library = testing::playlistSpecifier(kLibraryId);
  struct Case {
    const char* op;
    const char* property;
    const char* value;
    std::vector<int64_t> expected;
  };
  const Case cases[] = {
      {"=", "pArt", "\"ANN ARBOR\"", {101, 103}},  // case is ignored
      {"=", "pYr ", "2004", {104}},
      {"=", "pYr ", "long(2004)", {104}},
      {"=", "pYr ", "\"2004\"", {104}},  // text read as the property's kind
      {">", "pYr ", "2004", {105, 106}},
      {">=", "pYr ", "2004", {104, 105, 106}},
      {"<", "pYr ", "2001", {101}},
      {"<=", "pYr ", "2001", {101, 102}},
      {"bgwt", "pnam", "\"ga\"", {103}},
      {"ends", "pnam", "\"SONG\"", {101}},
      {"cont", "pnam", "\"ta\"", {102, 104, 106}},
      {"=", "pCmp", "\"Bach\"", {101, 104}},
      {"=", "pYr ", "\"not a number\"", {}},
      {"=", "pURL", "\"http://radio.example/stream\"", {105}},  // file tracks lack pURL
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ids(whose("cTrk", library, compare(c.op, c.property, c.value))), c.expected)
        << c.op << " " << c.property << " " << c.value;
  }
  EXPECT_EQ(errorOf(whose("cTrk", library, compare("'wwww'", "pnam", "\"x\""))),
            errAENoSuchLogical);
  // The examined object outside a test does not exist.
  EXPECT_EQ(errorOf(testing::propertyOf("pnam", "exmn()")), errAENoSuchObject);
}

TEST_F(ResolverTest, LogicalTestsCombineTermsAndReportMalformedOnes) {
  const std::string library = testing::playlistSpecifier(kLibraryId);
  const std::string byBach = compare("=", "pCmp", "\"Bach\"");
  const std::string recent = compare(">", "pYr ", "2002");
  EXPECT_EQ(ids(whose("cTrk", library, "logi{logc:AND, term:[" + byBach + ", " + recent + "]}")),
            std::vector<int64_t>{104});
  EXPECT_EQ(ids(whose("cTrk", library, "logi{logc:'OR  ', term:[" + byBach + ", " + recent + "]}")),
            (std::vector<int64_t>{101, 103, 104, 105, 106}));
  EXPECT_EQ(ids(whose("cTrk", library, "logi{logc:NOT, term:[" + recent + "]}")),
            (std::vector<int64_t>{101, 102}));
  EXPECT_EQ(
      errorOf(whose("cTrk", library, "logi{logc:NOT, term:[" + byBach + ", " + recent + "]}")),
      errAEWrongNumberArgs);
  EXPECT_EQ(errorOf(whose("cTrk", library, "logi{logc:XOR, term:[" + byBach + "]}")),
            errAENoSuchLogical);
  EXPECT_EQ(errorOf(whose("cTrk", library, "\"not a test\"")), errAEBadTestKey);
  EXPECT_EQ(errorOf(whose("cTrk", library, "cmpd{relo:=, 'obj1':1}")), errAEBadTestKey);
}

TEST_F(ResolverTest, FormsOnAWhoseSetPickFromTheSet) {
  // The framework's keyed look-up: any track of (tracks whose pDID = 104).
  const std::string keyed =
      "obj { form:indx, want:type(cTrk), seld:'abso'('any '), from:" +
      whose("cTrk", testing::playlistSpecifier(kLibraryId), compare("=", "pDID", "104")) + " }";
  EXPECT_EQ(ids(keyed), std::vector<int64_t>{104});
  const std::string missing =
      "obj { form:indx, want:type(cTrk), seld:'abso'('any '), from:" +
      whose("cTrk", testing::playlistSpecifier(kLibraryId), compare("=", "pDID", "999")) + " }";
  EXPECT_EQ(errorOf(missing), errAENoSuchObject);
  // Playlists by persistent ID, as a signed 64-bit key.
  const int64_t focus = static_cast<int64_t>(testing::kFocusPid);
  const std::string byPid = "obj { form:indx, want:type(cPly), seld:'abso'('any '), from:" +
                            whose("cPly", "null()", compare("=", "pPID", "comp(@)")) + " }";
  ae::Descriptor specifier;
  ASSERT_EQ(ae::buildDesc(&specifier, nullptr, byPid, ae::BuildArg::bytes(&focus, sizeof focus)),
            noErr);
  auto resolved = resolver_->resolve(specifier);
  ASSERT_TRUE(resolved.ok()) << resolved.status().toString();
  EXPECT_EQ(resolved->tokens.at(0).object.playlist, kFocusId);
  // The second track of the Bach tracks, and the last of the tracks of the year 2003 or later.
  const std::string bach =
      whose("cTrk", testing::playlistSpecifier(kLibraryId), compare("=", "pCmp", "\"Bach\""));
  EXPECT_EQ(ids("obj { form:indx, want:type(cTrk), seld:2, from:" + bach + " }"),
            std::vector<int64_t>{104});
  EXPECT_EQ(
      ids("obj { form:indx, want:type(cFlT), seld:-1, from:" +
          whose("cTrk", testing::playlistSpecifier(kLibraryId), compare(">=", "pYr ", "2003")) +
          " }"),
      std::vector<int64_t>{106});
}

TEST_F(ResolverTest, RangesAndRelativePositions) {
  const std::string focus = testing::playlistSpecifier(kFocusId);
  const auto range = [&](const std::string& start, const std::string& stop) {
    return "obj { form:rang, want:type(cTrk), seld:rang{star:obj{form:indx, want:type(cTrk), "
           "seld:" +
           start + ", from:ccnt()}, stop:obj{form:indx, want:type(cTrk), seld:" + stop +
           ", from:ccnt()}}, from:" + focus + " }";
  };
  EXPECT_EQ(ids(range("1", "2")), (std::vector<int64_t>{102, 104}));
  EXPECT_EQ(ids(range("2", "-1")), (std::vector<int64_t>{104, 106}));
  EXPECT_EQ(errorOf(range("3", "1")), errAEImpossibleRange);
  EXPECT_EQ(errorOf(range("1", "9")), errAENoSuchObject);
  const auto relative = [&](const char* direction, DatabaseId track) {
    return "obj { form:rele, want:type(cTrk), seld:" + std::string(direction) +
           ", from:" + testing::trackSpecifier(track, kFocusId) + " }";
  };
  EXPECT_EQ(ids(relative("next", 102)), std::vector<int64_t>{104});
  EXPECT_EQ(ids(relative("prev", 106)), std::vector<int64_t>{104});
  EXPECT_EQ(errorOf(relative("prev", 102)), errAENoSuchObject);
  EXPECT_EQ(errorOf(relative("next", 106)), errAENoSuchObject);
}

TEST_F(ResolverTest, ObjectValuedPropertiesNameObjects) {
  const auto valueOf = [&](const std::string& text) { return resolver_->value(*resolve(text)); };
  auto parent = valueOf(testing::propertyOf("pPlP", testing::playlistSpecifier(kChillId)));
  ASSERT_TRUE(parent.ok());
  EXPECT_EQ(testing::specifierClass(*parent), kClassFolderPlaylist);
  EXPECT_EQ(testing::specifierId(*parent), kYearsId);
  // A top-level playlist has no parent.
  auto top = resolve(testing::propertyOf("pPlP", testing::playlistSpecifier(kFocusId)));
  ASSERT_TRUE(top.ok());
  EXPECT_EQ(resolver_->value(*top).status().code(), errAENoSuchObject);

  auto container = valueOf(testing::propertyOf("ctnr", testing::trackSpecifier(104, kFocusId)));
  ASSERT_TRUE(container.ok());
  EXPECT_EQ(testing::specifierId(*container), kFocusId);

  // Stopped: no current track; the selection is the library's first track.
  EXPECT_EQ(valueOf(testing::propertyOf("pTrk", "null()")).status().code(), errAENoSuchObject);
  auto selection = valueOf(testing::propertyOf("sele", "null()"));
  ASSERT_TRUE(selection.ok());
  ASSERT_TRUE(selection->isList());
  EXPECT_EQ(testing::specifierIds(*selection), std::vector<int64_t>{101});
  // A property with a plain value is no container.
  EXPECT_EQ(errorOf(testing::propertyOf("pnam", testing::propertyOf("pVol", "null()"))),
            errAENoSuchObject);

  ASSERT_TRUE(model_->playTrack(104, kFocusId).ok());
  auto current = valueOf(testing::propertyOf("pTrk", "null()"));
  ASSERT_TRUE(current.ok());
  EXPECT_EQ(testing::specifierId(*current), 104);
  EXPECT_EQ(testing::specifierId(*current->findParam(ae::keyAEContainer)), kFocusId);
}

TEST_F(ResolverTest, WritesReachTheModelAndReadOnlyPropertiesRefuse) {
  auto name = resolve(testing::propertyOf("pnam", testing::trackSpecifier(102, kFocusId)));
  ASSERT_TRUE(name.ok());
  ASSERT_TRUE(resolver_->setValue(name->tokens[0], ae::Descriptor::makeUnicodeText("New")).ok());
  EXPECT_EQ(model_->library().trackById(102)->name(), "New");

  for (const std::string& readOnly :
       {testing::propertyOf("pDID", testing::trackSpecifier(102)),
        testing::propertyOf("ctnr", testing::trackSpecifier(102)),
        testing::propertyOf("pPlP", testing::playlistSpecifier(kChillId)),
        testing::propertyOf("pTrk", "null()"), testing::propertyOf("pnam", "null()")}) {
    auto token = resolve(readOnly);
    ASSERT_TRUE(token.ok()) << readOnly;
    EXPECT_EQ(resolver_->setValue(token->tokens[0], ae::Descriptor::makeSInt32(1)).code(),
              errAEWriteDenied)
        << readOnly;
  }
  // The selection takes track specifiers.
  auto selection = resolve(testing::propertyOf("sele", "null()"));
  ae::Descriptor tracks = ae::Descriptor::makeList();
  tracks.putDesc(0, desc(testing::trackSpecifier(106, kFocusId)));
  tracks.putDesc(0, desc(testing::trackSpecifier(103)));
  ASSERT_TRUE(resolver_->setValue(selection->tokens[0], tracks).ok());
  EXPECT_EQ(model_->selection(), (std::vector<DatabaseId>{106, 103}));
  EXPECT_EQ(
      resolver_->setValue(selection->tokens[0], desc(testing::playlistSpecifier(kFocusId))).code(),
      errAECantPutThatThere);
}

// ---- Comparisons -------------------------------------------------------------------------

TEST(CompareValuesTest, IntegersCompareExactlyAndTextsIgnoreCase) {
  // Two persistent IDs one apart near the top of the range: equal as doubles, not as integers.
  const ae::Descriptor a = ae::Descriptor::makeSInt64(INT64_C(0x7FFFFFFFFFFFFFF0));
  const ae::Descriptor b = ae::Descriptor::makeSInt64(INT64_C(0x7FFFFFFFFFFFFFF1));
  EXPECT_FALSE(*compareValues(ae::kAEEquals, a, b));
  EXPECT_TRUE(*compareValues(ae::kAELessThan, a, b));
  EXPECT_TRUE(
      *compareValues(ae::kAEEquals, ae::Descriptor::makeSInt16(7), ae::Descriptor::makeSInt64(7)));
  EXPECT_TRUE(*compareValues(ae::kAEGreaterThan, ae::Descriptor::makeSInt32(3),
                             ae::Descriptor::makeFloat64(2.5)));

  const ae::Descriptor text = ae::Descriptor::makeUnicodeText("Crème Brûlée");
  EXPECT_TRUE(*compareValues(ae::kAEEquals, text, ae::Descriptor::makeText("CRèME BRûLéE")));
  EXPECT_TRUE(*compareValues(ae::kAEContains, text, ae::Descriptor::makeText("me br")));
  EXPECT_FALSE(*compareValues(ae::kAEEquals, text, ae::Descriptor::makeSInt32(1)));
  // Operators that do not apply to a kind are false, not errors.
  EXPECT_FALSE(*compareValues(ae::kAEGreaterThan, ae::Descriptor::makeBoolean(true),
                              ae::Descriptor::makeBoolean(false)));
  EXPECT_TRUE(*compareValues(ae::kAEEquals, ae::Descriptor::makeBoolean(true),
                             ae::Descriptor::fromBytes(ae::typeTrue, {})));
  EXPECT_TRUE(*compareValues(ae::kAEEquals, ae::Descriptor::makeEnum(kStatePlaying),
                             ae::Descriptor::makeType(kStatePlaying)));

  ae::Descriptor list = ae::Descriptor::makeList();
  list.putDesc(0, ae::Descriptor::makeSInt32(4));
  list.putDesc(0, ae::Descriptor::makeUnicodeText("x"));
  EXPECT_TRUE(*compareValues(ae::kAEContains, list, ae::Descriptor::makeText("X")));
  EXPECT_FALSE(*compareValues(ae::kAEContains, list, ae::Descriptor::makeSInt32(5)));
  EXPECT_EQ(compareValues(fourCharCode("????"), a, b).status().code(), errAENoSuchLogical);
}

}  // namespace
}  // namespace rvitunes::player
