// The events the statements send, in the forms AppleScript gives them: the considering flags
// ('csig', "ignore case") on every command but activate, and the subject attribute (the tell
// target, null) on the player's commands and quit.
#include "helper/script/ScriptStatement.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/base/FourCharCode.h"

namespace rvitunes::script {

namespace {

constexpr OSType kPlayerSuite = fourCharCode("hook");
constexpr OSType kPlayEvent = fourCharCode("Play");
constexpr OSType kStopEvent = fourCharCode("Stop");
constexpr ae::AEKeyword kPlayOnceKey = fourCharCode("POne");
constexpr OSType kPlayerPositionProperty = fourCharCode("pPos");
constexpr OSType kVisibleProperty = fourCharCode("pvis");
// "ignore case", the considering flags of a script that names none.
constexpr int32_t kDefaultConsiderations = 0x00010000;

ae::Descriptor newEvent(ae::AEEventClass eventClass, ae::AEEventID eventID,
                        const ae::Descriptor& target) {
  return ae::Descriptor::makeAppleEvent(eventClass, eventID, target, ae::kAutoGenerateReturnID,
                                        ae::kAnyTransactionID);
}

void addAttributes(ae::Descriptor& event, bool subject) {
  if (subject) (void)event.putAttributeDesc(ae::keySubjectAttr, ae::Descriptor());
  (void)event.putAttributeDesc(ae::enumConsidsAndIgnores,
                               ae::Descriptor::makeSInt32(kDefaultConsiderations));
}

// 'true' or 'fals', without data: how a script passes a literal boolean.
ae::Descriptor literalBoolean(bool value) {
  return ae::Descriptor::fromBytes(value ? ae::typeTrue : ae::typeFalse, {});
}

// obj { form:prop, want:type(prop), seld:type(CODE), from:null() }: a property of the
// application the event goes to.
ae::Descriptor applicationProperty(OSType code) {
  ae::Descriptor specifier = ae::Descriptor::makeRecord(ae::typeObjectSpecifier);
  (void)specifier.putParamDesc(ae::keyAEKeyForm, ae::Descriptor::makeEnum(ae::formPropertyID));
  (void)specifier.putParamDesc(ae::keyAEDesiredClass, ae::Descriptor::makeType(ae::cProperty));
  (void)specifier.putParamDesc(ae::keyAEKeyData, ae::Descriptor::makeType(code));
  (void)specifier.putParamDesc(ae::keyAEContainer, ae::Descriptor());
  return specifier;
}

ae::Descriptor setProperty(OSType code, ae::Descriptor value, const ae::Descriptor& target) {
  ae::Descriptor event = newEvent(ae::kAECoreSuite, ae::kAESetData, target);
  (void)event.putParamDesc(ae::keyDirectObject, applicationProperty(code));
  (void)event.putParamDesc(ae::keyAEData, std::move(value));
  addAttributes(event, false);
  return event;
}

}  // namespace

std::string_view commandName(StatementKind kind) {
  switch (kind) {
    case StatementKind::kPlay:
      return "play";
    case StatementKind::kSetPlayerPosition:
    case StatementKind::kSetProcessVisible:
      return "set";
    case StatementKind::kStop:
      return "stop";
    case StatementKind::kActivate:
      return "activate";
    case StatementKind::kQuit:
      break;
  }
  return "quit";
}

ae::Descriptor makeStatementEvent(const Statement& statement, const ae::Descriptor& target) {
  switch (statement.kind) {
    case StatementKind::kPlay: {
      ae::Descriptor event = newEvent(kPlayerSuite, kPlayEvent, target);
      if (statement.filePath) {
        (void)event.putParamDesc(ae::keyDirectObject, ae::makeFileURLDesc(*statement.filePath));
      }
      if (statement.once) (void)event.putParamDesc(kPlayOnceKey, literalBoolean(*statement.once));
      addAttributes(event, true);
      return event;
    }
    case StatementKind::kSetPlayerPosition:
      return setProperty(kPlayerPositionProperty,
                         statement.integerPosition
                             ? ae::Descriptor::makeSInt32(*statement.integerPosition)
                             : ae::Descriptor::makeFloat64(statement.realPosition),
                         target);
    case StatementKind::kStop: {
      ae::Descriptor event = newEvent(kPlayerSuite, kStopEvent, target);
      addAttributes(event, true);
      return event;
    }
    case StatementKind::kActivate:
      return newEvent(ae::kAEMiscStandards, ae::kAEActivate, target);
    case StatementKind::kQuit: {
      ae::Descriptor event = newEvent(ae::kCoreEventClass, ae::kAEQuitApplication, target);
      addAttributes(event, true);
      return event;
    }
    case StatementKind::kSetProcessVisible:
      break;
  }
  return setProperty(kVisibleProperty, literalBoolean(statement.visible), target);
}

}  // namespace rvitunes::script
