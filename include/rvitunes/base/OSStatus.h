// The platform's status type and the error numbers used across the system. Values are those of
// the platform's public error headers, so that a number seen here means what it means there.
#pragma once

#include <cstdint>
#include <string_view>

namespace rvitunes {

using OSStatus = int32_t;
using OSErr = int16_t;

inline constexpr OSStatus noErr = 0;

// General.
inline constexpr OSStatus paramErr = -50;     // bad argument
inline constexpr OSStatus ioErr = -36;        // I/O failure
inline constexpr OSStatus eofErr = -39;       // end of file reached early
inline constexpr OSStatus fnfErr = -43;       // file not found
inline constexpr OSStatus wrPermErr = -61;    // write permission denied
inline constexpr OSStatus dskFulErr = -34;    // disk full
inline constexpr OSStatus memFullErr = -108;  // out of memory / size over a bound
inline constexpr OSStatus userCanceledErr = -128;

// Processes and connections.
inline constexpr OSStatus procNotFound = -600;
inline constexpr OSStatus connectionInvalid = -609;
inline constexpr OSStatus noUserInteractionAllowed = -610;
inline constexpr OSStatus noPortErr = -903;
inline constexpr OSStatus destPortErr = -906;

// Apple Event Manager.
inline constexpr OSStatus errAECoercionFail = -1700;
inline constexpr OSStatus errAEDescNotFound = -1701;
inline constexpr OSStatus errAECorruptData = -1702;
inline constexpr OSStatus errAEWrongDataType = -1703;
inline constexpr OSStatus errAENotAEDesc = -1704;
inline constexpr OSStatus errAEBadListItem = -1705;
inline constexpr OSStatus errAENewerVersion = -1706;
inline constexpr OSStatus errAENotAppleEvent = -1707;
inline constexpr OSStatus errAEEventNotHandled = -1708;
inline constexpr OSStatus errAEReplyNotValid = -1709;
inline constexpr OSStatus errAEUnknownSendMode = -1710;
inline constexpr OSStatus errAEWaitCanceled = -1711;
inline constexpr OSStatus errAETimeout = -1712;
inline constexpr OSStatus errAENoUserInteraction = -1713;
inline constexpr OSStatus errAENotASpecialFunction = -1714;
inline constexpr OSStatus errAEParamMissed = -1715;
inline constexpr OSStatus errAEUnknownAddressType = -1716;
inline constexpr OSStatus errAEHandlerNotFound = -1717;
inline constexpr OSStatus errAEReplyNotArrived = -1718;
inline constexpr OSStatus errAEIllegalIndex = -1719;
inline constexpr OSStatus errAEImpossibleRange = -1720;
inline constexpr OSStatus errAEWrongNumberArgs = -1721;
inline constexpr OSStatus errAEAccessorNotFound = -1723;
inline constexpr OSStatus errAENoSuchLogical = -1725;
inline constexpr OSStatus errAEBadTestKey = -1726;
inline constexpr OSStatus errAENotAnObjSpec = -1727;
inline constexpr OSStatus errAENoSuchObject = -1728;
inline constexpr OSStatus errAENegativeCount = -1729;
inline constexpr OSStatus errAEEmptyListContainer = -1730;
inline constexpr OSStatus errAEUnknownObjectType = -1731;
inline constexpr OSStatus errAEBuildSyntaxError = -1740;
inline constexpr OSStatus errAEBufferTooSmall = -1741;

// Application-level scripting errors.
inline constexpr OSStatus errAEEventFailed = -10000;
inline constexpr OSStatus errAETypeError = -10001;
inline constexpr OSStatus errAEBadKeyForm = -10002;
inline constexpr OSStatus errAENotModifiable = -10003;
inline constexpr OSStatus errAEPrivilegeError = -10004;
inline constexpr OSStatus errAEReadDenied = -10005;
inline constexpr OSStatus errAEWriteDenied = -10006;
inline constexpr OSStatus errAEIndexTooLarge = -10007;
inline constexpr OSStatus errAENotAnElement = -10008;
inline constexpr OSStatus errAECantSupplyType = -10009;
inline constexpr OSStatus errAECantHandleClass = -10010;
inline constexpr OSStatus errAENotASingleObject = -10014;
inline constexpr OSStatus errAENotAnEnumMember = -10023;
inline constexpr OSStatus errAECantPutThatThere = -10024;

// Open Scripting Architecture.
inline constexpr OSStatus errOSASyntaxError = -2740;
inline constexpr OSStatus errOSASyntaxTypeError = -2741;
inline constexpr OSStatus errOSAUndefinedVariable = -2753;

// The constant's name for a known number ("errAETimeout"), or "" for an unknown one.
std::string_view osStatusName(OSStatus status);

}  // namespace rvitunes
