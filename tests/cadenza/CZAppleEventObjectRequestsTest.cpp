// CZAppleEventObject requests, end to end: each request is sent through the process-wide event
// manager to a recording player, which checks the event as printed and answers canned replies.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "RecordingPlayer.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"

namespace rvitunes {
namespace {

using ae::Descriptor;
using ae::printDesc;
using cadenza_testing::item;
using cadenza_testing::LogCapture;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::valueOf;

constexpr OSType kPlaylist = fourCharCode("cPly");
constexpr OSType kTrack = fourCharCode("cTrk");
constexpr OSType kLibraryPlaylist = fourCharCode("cLiP");
constexpr OSType kName = fourCharCode("pnam");
constexpr OSType kPersistentID = fourCharCode("pPID");

Descriptor specifier(std::string_view text) {
  Descriptor out;
  EXPECT_EQ(ae::buildDesc(&out, nullptr, text), noErr) << text;
  return out;
}

// Playlist 2 of the application, and that playlist as an object of the control side.
constexpr const char* kPlaylist2 = "obj { form:indx, want:type(cPly), seld:2, from:null() }";
constexpr const char* kPlaylist2Printed =
    "'obj '{ 'form':'indx', 'want':type('cPly'), 'seld':2, 'from':null() }";

class RequestsTest : public ::testing::Test {
 protected:
  RecordingPlayer player_;
  LogCapture log_;
  std::shared_ptr<CZAppleEventObject> application_ = std::make_shared<CZAppleEventObject>();
  std::shared_ptr<CZAppleEventObject> playlist_ =
      std::make_shared<CZAppleEventObject>(specifier(kPlaylist2), iTunesSignature);
};

// One reply-answering request: the call and the event the player must receive.
struct GetCase {
  const char* name;
  std::function<CZAppleEventObject::Reply(CZAppleEventObject&)> call;
  std::string event;
};

TEST_F(RequestsTest, GetRequestsSendTheirEventAndHandBackTheReply) {
  const std::string p2 = kPlaylist2Printed;
  const std::vector<GetCase> cases = {
      {"property", [](auto& o) { return o.getPropertyOfType(kName); },
       "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pnam'), "
       "'from':" +
           p2 + " } }"},
      {"property of another object",
       [](auto& o) {
         return o.getPropertyOfTypeForObject(fourCharCode("pEQ "), specifier("null()"));
       },
       "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), "
       "'seld':type('pEQ '), 'from':null() } }"},
      {"delete all", [](auto& o) { return o.deleteAllElementsOfClass(kTrack); },
       "'core'\\'delo'{ '----':'obj '{ 'form':'indx', 'want':type('cTrk'), "
       "'seld':'abso'('all '), 'from':" +
           p2 + " } }"},
      {"delete one: index first, class second",
       [](auto& o) { return o.deleteElementOfClass(4, kTrack); },
       "'core'\\'delo'{ '----':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':5, 'from':" + p2 +
           " } }"},
      {"element 0 is the player's first",
       [](auto& o) { return o.getElementOfClassAtIndex(kTrack, 0); },
       "'core'\\'getd'{ '----':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':1, 'from':" + p2 +
           " } }"},
      {"by integer key",
       [](auto& o) {
         return o.getElementOfClassByKeyWithIntValue(kTrack, fourCharCode("pDID"), 77);
       },
       "'core'\\'getd'{ '----':'obj '{ 'form':'indx', 'want':type('cTrk'), "
       "'seld':'abso'('any '), 'from':'obj '{ 'form':'test', 'want':type('cTrk'), 'from':" +
           p2 +
           ", 'seld':'cmpd'{ 'relo':'=   ', 'obj1':'obj '{ 'form':'prop', 'want':type('prop'), "
           "'seld':type('pDID'), 'from':'exmn'() }, 'obj2':77 } } } }"},
      {"by text key",
       [](auto& o) {
         return o.getElementOfClassByKeyWithStringValue(kTrack, kName, "Blue in Green");
       },
       "'core'\\'getd'{ '----':'obj '{ 'form':'indx', 'want':type('cTrk'), "
       "'seld':'abso'('any '), 'from':'obj '{ 'form':'test', 'want':type('cTrk'), 'from':" +
           p2 +
           ", 'seld':'cmpd'{ 'relo':'=   ', 'obj1':'obj '{ 'form':'prop', 'want':type('prop'), "
           "'seld':type('pnam'), 'from':'exmn'() }, 'obj2':\"Blue in Green\" } } } }"},
  };

  // The reply carries what the player answered, here a track specifier.
  player_.answer(specifier("obj { form:indx, want:type(cTrk), seld:1, from:null() }"));
  for (const GetCase& c : cases) {
    SCOPED_TRACE(c.name);
    const auto reply = c.call(*playlist_);
    ASSERT_NE(reply, nullptr);
    EXPECT_TRUE(player_.lastWantedReply());
    EXPECT_EQ(player_.printed().back(), c.event);
    EXPECT_EQ(printDesc(item(*reply, "----")),
              "'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':1, 'from':null() }");
  }
  EXPECT_EQ(player_.count(), cases.size());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(RequestsTest, EventsAreAddressedToTheObjectsApplication) {
  (void)application_->getPropertyOfType(kName);
  const Descriptor event = player_.last();
  EXPECT_EQ(event.eventClass(), fourCharCode("core"));
  EXPECT_EQ(printDesc(event.address()), "'sign'('hook')");
  EXPECT_EQ(event.transactionID(), 0);
  EXPECT_GT(event.returnID(), 0);

  // An object of another application sends there and not to the player.
  RecordingPlayer other(fourCharCode("rcrd"), "Recorder");
  CZAppleEventObject elsewhere(Descriptor(), fourCharCode("rcrd"));
  EXPECT_NE(elsewhere.getPropertyOfType(kName), nullptr);
  EXPECT_EQ(other.count(), 1u);
  EXPECT_EQ(player_.count(), 1u);
  EXPECT_EQ(printDesc(other.last().address()), "'sign'('rcrd')");
}

TEST_F(RequestsTest, IndexesAreShiftedByOneWithWrapAtTheTop) {
  (void)playlist_->getElementOfClassAtIndex(kLibraryPlaylist, -1);
  EXPECT_EQ(valueOf<int16_t>(item(item(player_.last(), "----"), "seld")), 0);
  (void)playlist_->getElementOfClassAtIndex(kLibraryPlaylist, INT32_MAX);
  EXPECT_EQ(valueOf<int32_t>(item(item(player_.last(), "----"), "seld")), INT32_MIN);
}

TEST_F(RequestsTest, LongIntegerKeyTravelsAsComp) {
  player_.answer(Descriptor::makeSInt32(1));
  const int64_t key = 0x0123456789ABCDEF;
  ASSERT_NE(application_->getElementOfClassByKeyWithLongIntValue(kPlaylist, kPersistentID, key),
            nullptr);
  const Descriptor event = player_.last();
  const Descriptor& search = item(event, "----");
  const Descriptor& test = item(search, "from");
  EXPECT_EQ(test.type(), ae::typeObjectSpecifier);
  EXPECT_TRUE(item(test, "from").isNull());  // the container: the application
  const Descriptor& obj2 = item(item(test, "seld"), "obj2");
  EXPECT_EQ(obj2.type(), ae::typeSInt64);
  EXPECT_EQ(valueOf<int64_t>(obj2), key);
  EXPECT_EQ(printDesc(item(item(item(test, "seld"), "obj1"), "seld")), "type('pPID')");
}

TEST_F(RequestsTest, SetRequestsDoNotWaitForTheirReply) {
  const Descriptor value = Descriptor::makeSInt32(80);

  EXPECT_TRUE(playlist_->setPropertyWithValueOfType(value, fourCharCode("pVol")));
  EXPECT_FALSE(player_.lastWantedReply());
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'setd'{ 'data':80, '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pVol'), 'from':" +
                std::string(kPlaylist2Printed) + " } }");

  EXPECT_TRUE(application_->setPropertyWithValueOfTypeForObject(value, fourCharCode("pVol"),
                                                                specifier(kPlaylist2)));
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'setd'{ 'data':80, '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pVol'), 'from':" +
                std::string(kPlaylist2Printed) + " } }");

  EXPECT_TRUE(playlist_->setElementOfClassAtIndexWithValue(kTrack, 0, value));
  EXPECT_FALSE(player_.lastWantedReply());
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'setd'{ 'data':80, '----':'obj '{ 'form':'indx', 'want':type('cTrk'), "
            "'seld':1, 'from':" +
                std::string(kPlaylist2Printed) + " } }");

  EXPECT_TRUE(playlist_->setPropertyOfElementOfClassAtIndexWithValue(kName, kTrack, 2, value));
  EXPECT_FALSE(player_.lastWantedReply());
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'setd'{ 'data':80, '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pnam'), 'from':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':3, "
            "'from':" +
                std::string(kPlaylist2Printed) + " } } }");

  // The player's refusal is not seen by a set request.
  player_.fail(errAENotModifiable);
  EXPECT_TRUE(playlist_->setPropertyWithValueOfType(value, kName));
  EXPECT_EQ(player_.count(), 5u);
}

TEST_F(RequestsTest, CountAnswersTheIntegerOrMinusOne) {
  player_.answer(Descriptor::makeSInt32(1234));
  EXPECT_EQ(playlist_->getCountOfElementsOfClass(kTrack), 1234);
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'cnte'{ 'kocl':type('cTrk'), '----':" + std::string(kPlaylist2Printed) + " }");

  // A number of another type is coerced; an answer without a number is a failed count.
  player_.answer(Descriptor::makeSInt16(3));
  EXPECT_EQ(playlist_->getCountOfElementsOfClass(kTrack), 3);
  player_.fail(errAENoSuchObject);
  EXPECT_EQ(playlist_->getCountOfElementsOfClass(kTrack), -1);
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"Unable to get parameter of reply: -1701"});
}

TEST_F(RequestsTest, GetRequestHandsBackAReplyHoldingThePlayersError) {
  player_.fail(errAENoSuchObject);
  const auto reply = playlist_->getElementOfClassAtIndex(kTrack, 99);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(valueOf<int32_t>(item(*reply, "errn")), errAENoSuchObject);
  EXPECT_EQ(reply->findParam(ae::keyDirectObject), nullptr);
}

TEST_F(RequestsTest, FailuresAnswerNullFalseOrMinusOneAndLog) {
  // A quote in a text key breaks the parameter text: nothing is sent.
  EXPECT_EQ(playlist_->getElementOfClassByKeyWithStringValue(kTrack, kName, "12\" Mix"), nullptr);
  EXPECT_EQ(player_.count(), 0u);
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"Error creating Apple Event: -1740"});

  // No application under the target signature: every kind of request fails on sending.
  CZAppleEventObject nowhere(Descriptor(), fourCharCode("zzQ9"));
  const Descriptor value = Descriptor::makeSInt32(1);
  EXPECT_EQ(nowhere.getPropertyOfType(kName), nullptr);
  EXPECT_EQ(nowhere.getElementOfClassByKeyWithLongIntValue(kPlaylist, kPersistentID, 7), nullptr);
  EXPECT_EQ(nowhere.getCountOfElementsOfClass(kTrack), -1);
  EXPECT_FALSE(nowhere.setPropertyWithValueOfType(value, kName));
  EXPECT_FALSE(nowhere.setElementOfClassAtIndexWithValue(kTrack, 0, value));
  size_t sendFailures = 0;
  for (const std::string& line : log_.lines())
    sendFailures += line == "Error sending Apple Event: -600";
  EXPECT_EQ(sendFailures, 5u);
  EXPECT_EQ(player_.count(), 0u);
}

TEST_F(RequestsTest, ConcurrentRequestsOnOneObjectKeepTheirOwnReplies) {
  // The player answers each request with the position it was asked for.
  player_.respondWith([](const Descriptor& event, Descriptor& reply) {
    const Descriptor* asked = event.findParam(ae::keyDirectObject);
    Descriptor seld;
    if (asked == nullptr || asked->getParamDesc(ae::keyAEKeyData, ae::typeSInt32, &seld) != noErr) {
      return errAEEventFailed;
    }
    return reply.putParamDesc(ae::keyDirectObject, std::move(seld));
  });
  constexpr int kThreads = 4;
  constexpr int kRequests = 50;
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRequests; ++i) {
        const int32_t index = t * 1000 + i;
        const auto reply = playlist_->getElementOfClassAtIndex(kTrack, index);
        int32_t answered = 0;
        if (!reply ||
            reply->getParamPtr(ae::keyDirectObject, ae::typeSInt32, nullptr, &answered,
                               sizeof answered, nullptr) != noErr ||
            answered != index + 1) {
          ++mismatches;
        }
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(mismatches.load(), 0);
  EXPECT_EQ(player_.count(), static_cast<size_t>(kThreads * kRequests));
}

}  // namespace
}  // namespace rvitunes
