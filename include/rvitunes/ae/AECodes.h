// The Apple Event vocabulary of this system: descriptor types, keywords, attributes, event
// classes and IDs, send modes and special IDs. Values are those of the platform's headers, so a
// code read here means what it means there.
#pragma once

#include <cstdint>

#include "rvitunes/base/FourCharCode.h"

namespace rvitunes::ae {

using DescType = OSType;
using AEKeyword = OSType;
using AEEventClass = OSType;
using AEEventID = OSType;
using AEReturnID = int16_t;
using AETransactionID = int32_t;
using AESendMode = int32_t;
using AESendPriority = int16_t;

// Descriptor types.
inline constexpr DescType typeNull = fourCharCode("null");
inline constexpr DescType typeWildCard = fourCharCode("****");
inline constexpr DescType typeAEList = fourCharCode("list");
inline constexpr DescType typeAERecord = fourCharCode("reco");
inline constexpr DescType typeAppleEvent = fourCharCode("aevt");
inline constexpr DescType typeBoolean = fourCharCode("bool");
inline constexpr DescType typeTrue = fourCharCode("true");
inline constexpr DescType typeFalse = fourCharCode("fals");
inline constexpr DescType typeSInt16 = fourCharCode("shor");
inline constexpr DescType typeUInt16 = fourCharCode("ushr");
inline constexpr DescType typeSInt32 = fourCharCode("long");
inline constexpr DescType typeUInt32 = fourCharCode("magn");
inline constexpr DescType typeSInt64 = fourCharCode("comp");
inline constexpr DescType typeUInt64 = fourCharCode("ucom");
inline constexpr DescType typeIEEE32BitFloatingPoint = fourCharCode("sing");
inline constexpr DescType typeIEEE64BitFloatingPoint = fourCharCode("doub");
inline constexpr DescType typeExtended = fourCharCode("exte");
inline constexpr DescType typeShortInteger = typeSInt16;
inline constexpr DescType typeInteger = typeSInt32;
inline constexpr DescType typeLongInteger = typeSInt32;
inline constexpr DescType typeMagnitude = typeUInt32;
inline constexpr DescType typeComp = typeSInt64;
inline constexpr DescType typeShortFloat = typeIEEE32BitFloatingPoint;
inline constexpr DescType typeFloat = typeIEEE64BitFloatingPoint;
inline constexpr DescType typeChar = fourCharCode("TEXT");
inline constexpr DescType typeUnicodeText = fourCharCode("utxt");
inline constexpr DescType typeUTF16 = typeUnicodeText;  // UTF-16 in host byte order
inline constexpr DescType typeUTF16ExternalRepresentation = fourCharCode("ut16");
inline constexpr DescType typeUTF8Text = fourCharCode("utf8");
inline constexpr DescType typeStyledText = fourCharCode("STXT");
inline constexpr DescType typeEnumerated = fourCharCode("enum");
inline constexpr DescType typeType = fourCharCode("type");
inline constexpr DescType typeKeyword = fourCharCode("keyw");
inline constexpr DescType typeProperty = fourCharCode("prop");
inline constexpr DescType typeLongDateTime = fourCharCode("ldt ");
inline constexpr DescType typeFSRef = fourCharCode("fsrf");
inline constexpr DescType typeAlias = fourCharCode("alis");
inline constexpr DescType typeFileURL = fourCharCode("furl");
inline constexpr DescType typeVersion = fourCharCode("vers");
inline constexpr DescType typeObjectSpecifier = fourCharCode("obj ");
inline constexpr DescType typeObjectBeingExamined = fourCharCode("exmn");
inline constexpr DescType typeCurrentContainer = fourCharCode("ccnt");
inline constexpr DescType typeAbsoluteOrdinal = fourCharCode("abso");
inline constexpr DescType typeRangeDescriptor = fourCharCode("rang");
inline constexpr DescType typeCompDescriptor = fourCharCode("cmpd");
inline constexpr DescType typeLogicalDescriptor = fourCharCode("logi");
inline constexpr DescType typeInsertionLoc = fourCharCode("insl");
inline constexpr DescType typeWhoseDescriptor = fourCharCode("whos");
inline constexpr DescType typeWhoseRange = fourCharCode("wrng");
inline constexpr DescType typeApplSignature = fourCharCode("sign");
inline constexpr DescType typeKernelProcessID = fourCharCode("kpid");
inline constexpr DescType typeProcessSerialNumber = fourCharCode("psn ");
inline constexpr DescType typeApplicationBundleID = fourCharCode("bund");
inline constexpr DescType typeApplicationURL = fourCharCode("aprl");
inline constexpr DescType typePict = fourCharCode("PICT");
inline constexpr DescType typeTIFF = fourCharCode("TIFF");
inline constexpr DescType typeJPEG = fourCharCode("JPEG");
inline constexpr DescType cMissingValue = fourCharCode("msng");

// Parameter keywords.
inline constexpr AEKeyword keyDirectObject = fourCharCode("----");
inline constexpr AEKeyword keyErrorNumber = fourCharCode("errn");
inline constexpr AEKeyword keyErrorString = fourCharCode("errs");
inline constexpr AEKeyword keyAERequestedType = fourCharCode("rtyp");
inline constexpr AEKeyword keyAEData = fourCharCode("data");
inline constexpr AEKeyword keyAEObjectClass = fourCharCode("kocl");
inline constexpr AEKeyword keyAEInsertHere = fourCharCode("insh");
inline constexpr AEKeyword keyAEPropData = fourCharCode("prdt");
inline constexpr AEKeyword keyAESaveOptions = fourCharCode("savo");

// Object-specifier record keys, forms, ordinals, comparison and logic codes.
inline constexpr AEKeyword keyAEDesiredClass = fourCharCode("want");
inline constexpr AEKeyword keyAEKeyForm = fourCharCode("form");
inline constexpr AEKeyword keyAEKeyData = fourCharCode("seld");
inline constexpr AEKeyword keyAEContainer = fourCharCode("from");
inline constexpr AEKeyword keyAECompOperator = fourCharCode("relo");
inline constexpr AEKeyword keyAEObject1 = fourCharCode("obj1");
inline constexpr AEKeyword keyAEObject2 = fourCharCode("obj2");
inline constexpr AEKeyword keyAELogicalOperator = fourCharCode("logc");
inline constexpr AEKeyword keyAELogicalTerms = fourCharCode("term");
inline constexpr AEKeyword keyAERangeStart = fourCharCode("star");
inline constexpr AEKeyword keyAERangeStop = fourCharCode("stop");
inline constexpr AEKeyword keyAEObject = fourCharCode("kobj");
inline constexpr AEKeyword keyAEPosition = fourCharCode("kpos");
inline constexpr OSType formPropertyID = fourCharCode("prop");
inline constexpr OSType formName = fourCharCode("name");
inline constexpr OSType formUniqueID = fourCharCode("ID  ");
inline constexpr OSType formAbsolutePosition = fourCharCode("indx");
inline constexpr OSType formRelativePosition = fourCharCode("rele");
inline constexpr OSType formTest = fourCharCode("test");
inline constexpr OSType formRange = fourCharCode("rang");
inline constexpr OSType formWhose = fourCharCode("whos");
inline constexpr OSType cProperty = fourCharCode("prop");
inline constexpr OSType kAEFirst = fourCharCode("firs");
inline constexpr OSType kAELast = fourCharCode("last");
inline constexpr OSType kAEMiddle = fourCharCode("midd");
inline constexpr OSType kAEAny = fourCharCode("any ");
inline constexpr OSType kAEAll = fourCharCode("all ");
inline constexpr OSType kAENext = fourCharCode("next");
inline constexpr OSType kAEPrevious = fourCharCode("prev");
inline constexpr OSType kAEGreaterThan = fourCharCode(">   ");
inline constexpr OSType kAEGreaterThanEquals = fourCharCode(">=  ");
inline constexpr OSType kAEEquals = fourCharCode("=   ");
inline constexpr OSType kAELessThan = fourCharCode("<   ");
inline constexpr OSType kAELessThanEquals = fourCharCode("<=  ");
inline constexpr OSType kAEBeginsWith = fourCharCode("bgwt");
inline constexpr OSType kAEEndsWith = fourCharCode("ends");
inline constexpr OSType kAEContains = fourCharCode("cont");
inline constexpr OSType kAEAND = fourCharCode("AND ");
inline constexpr OSType kAEOR = fourCharCode("OR  ");
inline constexpr OSType kAENOT = fourCharCode("NOT ");
inline constexpr OSType kAEBefore = fourCharCode("befo");
inline constexpr OSType kAEAfter = fourCharCode("afte");
inline constexpr OSType kAEBeginning = fourCharCode("bgng");
inline constexpr OSType kAEEnd = fourCharCode("end ");

// Event attributes.
inline constexpr AEKeyword keyTransactionIDAttr = fourCharCode("tran");
inline constexpr AEKeyword keyReturnIDAttr = fourCharCode("rtid");
inline constexpr AEKeyword keyEventClassAttr = fourCharCode("evcl");
inline constexpr AEKeyword keyEventIDAttr = fourCharCode("evid");
inline constexpr AEKeyword keyAddressAttr = fourCharCode("addr");
inline constexpr AEKeyword keyOptionalKeywordAttr = fourCharCode("optk");
inline constexpr AEKeyword keyTimeoutAttr = fourCharCode("timo");
inline constexpr AEKeyword keyInteractLevelAttr = fourCharCode("inte");
inline constexpr AEKeyword keyEventSourceAttr = fourCharCode("esrc");
inline constexpr AEKeyword keyMissedKeywordAttr = fourCharCode("miss");
inline constexpr AEKeyword keyOriginalAddressAttr = fourCharCode("from");
inline constexpr AEKeyword keySubjectAttr = fourCharCode("subj");
inline constexpr AEKeyword keyReplyRequestedAttr = fourCharCode("repq");
inline constexpr AEKeyword keySenderPIDAttr = fourCharCode("spid");
inline constexpr AEKeyword enumConsidsAndIgnores = fourCharCode("csig");

// Event classes and IDs.
inline constexpr AEEventClass kCoreEventClass = fourCharCode("aevt");
inline constexpr AEEventClass kAECoreSuite = fourCharCode("core");
inline constexpr AEEventClass kAEMiscStandards = fourCharCode("misc");
inline constexpr AEEventID kAEAnswer = fourCharCode("ansr");
inline constexpr AEEventID kAEOpenApplication = fourCharCode("oapp");
inline constexpr AEEventID kAEReopenApplication = fourCharCode("rapp");
inline constexpr AEEventID kAEOpenDocuments = fourCharCode("odoc");
inline constexpr AEEventID kAEQuitApplication = fourCharCode("quit");
inline constexpr AEEventID kAEActivate = fourCharCode("actv");
inline constexpr AEEventID kAEGetData = fourCharCode("getd");
inline constexpr AEEventID kAESetData = fourCharCode("setd");
inline constexpr AEEventID kAECountElements = fourCharCode("cnte");
inline constexpr AEEventID kAEDelete = fourCharCode("delo");
inline constexpr AEEventID kAECreateElement = fourCharCode("crel");

// Send modes. The reply mode is the low two bits (one of 1, 2, 3), the interaction level the
// bits 0x30 (one of 0x10, 0x20, 0x30).
inline constexpr AESendMode kAENoReply = 0x00000001;
inline constexpr AESendMode kAEQueueReply = 0x00000002;
inline constexpr AESendMode kAEWaitReply = 0x00000003;
inline constexpr AESendMode kAEReplyModeMask = 0x00000003;
inline constexpr AESendMode kAENeverInteract = 0x00000010;
inline constexpr AESendMode kAECanInteract = 0x00000020;
inline constexpr AESendMode kAEAlwaysInteract = 0x00000030;
inline constexpr AESendMode kAEInteractMask = 0x00000030;
inline constexpr AESendMode kAECanSwitchLayer = 0x00000040;
inline constexpr AESendMode kAEDontReconnect = 0x00000080;
inline constexpr AESendMode kAEWantReceipt = 0x00000200;
inline constexpr AESendMode kAEDontRecord = 0x00001000;
inline constexpr AESendMode kAEDontExecute = 0x00002000;
inline constexpr AESendMode kAEProcessNonReplyEvents = 0x00008000;
inline constexpr AESendPriority kAENormalPriority = 0;
inline constexpr AESendPriority kAEHighPriority = 1;

// Timeouts, in ticks (1/60 s).
inline constexpr int32_t kAEDefaultTimeout = -1;
inline constexpr int32_t kNoTimeOut = -2;

// Special IDs.
inline constexpr AEReturnID kAutoGenerateReturnID = -1;
inline constexpr AETransactionID kAnyTransactionID = 0;

}  // namespace rvitunes::ae
