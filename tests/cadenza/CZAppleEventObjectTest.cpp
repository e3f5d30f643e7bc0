// CZAppleEventObject: construction and ownership, the parameter texts (character for character)
// and the descriptor trees they build into, and alias records.
#include "rvitunes/cadenza/CZAppleEventObject.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "RecordingPlayer.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/ae/Printer.h"

namespace rvitunes {
namespace {

using ae::Descriptor;
using ae::printDesc;

constexpr OSType kPlaylist = fourCharCode("cPly");
constexpr OSType kTrack = fourCharCode("cTrk");
constexpr OSType kLibraryPlaylist = fourCharCode("cLiP");
constexpr OSType kName = fourCharCode("pnam");
constexpr OSType kPersistentID = fourCharCode("pPID");

// A specifier as the player would hand one out: playlist 2 of the application.
Descriptor playlistSpecifier() {
  Descriptor out;
  EXPECT_EQ(ae::buildDesc(&out, nullptr, "obj { form:indx, want:type(cPly), seld:2, from:null() }"),
            noErr);
  return out;
}

TEST(CZAppleEventObjectTest, ConstructionAndOwnership) {
  EXPECT_EQ(iTunesSignature, 0x686F6F6Bu);

  const auto application = std::make_shared<CZAppleEventObject>();
  EXPECT_TRUE(application->descriptor().isNull());
  EXPECT_EQ(application->descriptor().dataSize(), 0u);
  EXPECT_EQ(application->targetApplCode(), iTunesSignature);

  // The object takes the caller's descriptor over: the caller is left with nothing to release.
  Descriptor specifier = playlistSpecifier();
  const Descriptor expected = specifier.duplicate();
  const auto playlist =
      std::make_shared<CZAppleEventObject>(std::move(specifier), fourCharCode("rcrd"));
  EXPECT_TRUE(specifier.isNull());  // NOLINT(bugprone-use-after-move): moved-from is null
  EXPECT_EQ(playlist->descriptor(), expected);
  EXPECT_EQ(playlist->targetApplCode(), fourCharCode("rcrd"));
}

// One parameter text: how it is produced, the exact text, and the tree it builds into when its
// slots are filled (a container that is the null descriptor, the value 7, the key 5).
struct TemplateCase {
  const char* name;
  std::function<std::string(const CZAppleEventObject&)> produce;
  const char* text;
  const char* tree;
};

const std::vector<TemplateCase>& templateCases() {
  static const std::vector<TemplateCase> cases = {
      {"count", [](const auto& o) { return o.eventParameterStringForCountElementsOfClass(kTrack); },
       "kocl:type(cTrk) , '----':@", "{ 'kocl':type('cTrk'), '----':null() }"},
      {"delete all",
       [](const auto& o) { return o.eventParameterStringForDeleteElementsOfClass(kTrack); },
       "'----':obj { form:indx, want:type(cTrk), seld:abso('all '), from:@ }",
       "{ '----':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':'abso'('all '), "
       "'from':null() } }"},
      {"element",
       [](const auto& o) {
         return o.eventParameterStringForElementOfClassAtIndex(kLibraryPlaylist, 1);
       },
       "'----':obj { form:indx, want:type(cLiP), seld:1, from:@ }",
       "{ '----':'obj '{ 'form':'indx', 'want':type('cLiP'), 'seld':1, 'from':null() } }"},
      {"property, trailing blank kept",
       [](const auto& o) { return o.eventParameterStringForProperty(fourCharCode("pEQ ")); },
       "'----':obj { form:prop, want:type(prop), seld:type(pEQ ), from:@ }",
       "{ '----':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pEQ '), "
       "'from':null() } }"},
      {"setting property",
       [](const auto& o) { return o.eventParameterStringForSettingProperty(fourCharCode("pVol")); },
       "data:@, '----':obj { form:prop, want:type(prop), seld:type(pVol), from:@ }",
       "{ 'data':7, '----':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pVol'), "
       "'from':null() } }"},
      {"setting element, negative index",
       [](const auto& o) {
         return o.eventParameterStringForSettingElementOfClassAtIndex(kTrack, -1);
       },
       "data:@, '----':obj { form:indx, want:type(cTrk), seld:-1, from:@ }",
       "{ 'data':7, '----':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':-1, "
       "'from':null() } }"},
      {"setting property of element",
       [](const auto& o) {
         return o.eventParameterStringForSettingPropertyOfElementOfClassAtIndex(kName, kPlaylist,
                                                                                3);
       },
       "data:@, '----':obj { form:prop, want:type(prop), seld:type(pnam), from:obj { form:indx, "
       "want:type(cPly), seld:3, from:@ }}",
       "{ 'data':7, '----':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pnam'), "
       "'from':'obj '{ 'form':'indx', 'want':type('cPly'), 'seld':3, 'from':null() } } }"},
      {"test with integer",
       [](const auto& o) {
         return o.eventParameterStringForTestObjectForPropertyForIntValue(kTrack,
                                                                          fourCharCode("pDID"), 42);
       },
       "obj { form:test, want:type(cTrk), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
       "want:type(prop), seld:type(pDID), from:exmn()}, obj2:42}}",
       "'obj '{ 'form':'test', 'want':type('cTrk'), 'from':null(), 'seld':'cmpd'{ 'relo':'=   ', "
       "'obj1':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pDID'), "
       "'from':'exmn'() }, 'obj2':42 } }"},
      {"test with text",
       [](const auto& o) {
         return o.eventParameterStringForTestObjectForPropertyForStringValue(kPlaylist, kName,
                                                                             "Jazz 50%@");
       },
       "obj { form:test, want:type(cPly), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
       "want:type(prop), seld:type(pnam), from:exmn()}, obj2:\"Jazz 50%@\"}}",
       "'obj '{ 'form':'test', 'want':type('cPly'), 'from':null(), 'seld':'cmpd'{ 'relo':'=   ', "
       "'obj1':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pnam'), "
       "'from':'exmn'() }, 'obj2':\"Jazz 50%@\" } }"},
      {"test with key slot",
       [](const auto& o) {
         return o.eventParameterStringForTestObjectForProperty(kPlaylist, kPersistentID);
       },
       "obj { form:test, want:type(cPly), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
       "want:type(prop), seld:type(pPID), from:exmn()}, obj2:@}}",
       "'obj '{ 'form':'test', 'want':type('cPly'), 'from':null(), 'seld':'cmpd'{ 'relo':'=   ', "
       "'obj1':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pPID'), "
       "'from':'exmn'() }, 'obj2':5 } }"},
      {"search over a test",
       [](const auto& o) {
         return o.eventParameterStringForSearchingTypeWithTest(
             kPlaylist, o.eventParameterStringForTestObjectForProperty(kPlaylist, kPersistentID));
       },
       "'----':obj { form:indx, want:type(cPly), seld:'abso'('any '), from:obj { form:test, "
       "want:type(cPly), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, want:type(prop), "
       "seld:type(pPID), from:exmn()}, obj2:@}} }",
       "{ '----':'obj '{ 'form':'indx', 'want':type('cPly'), 'seld':'abso'('any '), "
       "'from':'obj '{ 'form':'test', 'want':type('cPly'), 'from':null(), 'seld':'cmpd'{ "
       "'relo':'=   ', 'obj1':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pPID'), "
       "'from':'exmn'() }, 'obj2':5 } } } }"},
  };
  return cases;
}

// Fills the slots of `text` in order: 'data' takes the value, 'obj2:@' the key, the rest the
// container. Texts that start with "obj" are single specifiers; the others are event
// parameters, printed here without the event's header.
std::string buildTree(const std::string& text) {
  const Descriptor container;
  const Descriptor value = Descriptor::makeSInt32(7);
  const Descriptor key = Descriptor::makeSInt16(5);
  std::vector<ae::BuildArg> args;
  if (text.starts_with("data:@")) args.emplace_back(value);
  args.emplace_back(container);
  if (text.find("obj2:@") != std::string::npos) args.emplace_back(key);

  Descriptor out;
  ae::BuildError err;
  OSStatus status;
  if (text.starts_with("obj")) {
    status = ae::buildDesc(&out, &err, text, args);
  } else {
    const OSType target = iTunesSignature;
    status = ae::buildAppleEvent(
        ae::kAECoreSuite, ae::kAEGetData, ae::typeApplSignature,
        std::span(reinterpret_cast<const uint8_t*>(&target), sizeof target),
        ae::kAutoGenerateReturnID, ae::kAnyTransactionID, &out, &err, text, args);
  }
  EXPECT_EQ(status, noErr) << text << ": error " << err.code << " at " << err.position;
  std::string printed = printDesc(out);
  const std::string header = "'core'\\'getd'";
  if (printed.starts_with(header)) printed.erase(0, header.size());
  return printed;
}

TEST(CZAppleEventObjectTest, ParameterTextsAreExactAndBuildTheirTrees) {
  const CZAppleEventObject object;
  for (const TemplateCase& c : templateCases()) {
    SCOPED_TRACE(c.name);
    const std::string text = c.produce(object);
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(buildTree(text), c.tree);
  }
}

TEST(CZAppleEventObjectTest, AliasRecordsForExistingFilesOnly) {
  cadenza_testing::ScratchDirectory dir;
  const std::string file = dir.path() + "/Song.mp3";
  std::ofstream(file) << "ID3";

  const auto alias = CZAppleEventObject::newAliasHandleWithPath(file);
  ASSERT_TRUE(alias.has_value());
  const auto resolved = ae::resolveAliasRecord(*alias);
  ASSERT_TRUE(resolved.ok()) << resolved.status().toString();
  EXPECT_EQ(*resolved, file);

  EXPECT_FALSE(CZAppleEventObject::newAliasHandleWithPath(dir.path() + "/Missing.mp3"));
  EXPECT_FALSE(CZAppleEventObject::newAliasHandleWithPath(""));
}

}  // namespace
}  // namespace rvitunes
