// What the directory implementations share: the failures of the directory as
// a directory client on Windows reports them (the Win32 error turned into an
// HRESULT, 0x8007xxxx, with the system's text of it), and the reading of the
// bind path and of the query text.
#pragma once

#include "platform/Platform.h"

#include <cstdint>
#include <string>

namespace platform {

// Win32 errors a directory operation ends in.
inline constexpr uint32_t kWin32AccessDenied = 5;
inline constexpr uint32_t kWin32NotEnoughMemory = 8;
inline constexpr uint32_t kWin32GenFailure = 31;
inline constexpr uint32_t kWin32MoreData = 234;
inline constexpr uint32_t kWin32Cancelled = 1223;
inline constexpr uint32_t kWin32ConnectionRefused = 1225;
inline constexpr uint32_t kWin32LogonFailure = 1326;
inline constexpr uint32_t kWin32Timeout = 1460;
inline constexpr uint32_t kWin32ObjectAlreadyExists = 5010;
inline constexpr uint32_t kWin32DsNoAttributeOrValue = 8202;
inline constexpr uint32_t kWin32DsInvalidAttributeSyntax = 8203;
inline constexpr uint32_t kWin32DsAttributeTypeUndefined = 8204;
inline constexpr uint32_t kWin32DsAttributeOrValueExists = 8205;
inline constexpr uint32_t kWin32DsBusy = 8206;
inline constexpr uint32_t kWin32DsUnavailable = 8207;
inline constexpr uint32_t kWin32DsObjClassViolation = 8212;
inline constexpr uint32_t kWin32DsCantOnNonLeaf = 8213;
inline constexpr uint32_t kWin32DsOperationsError = 8224;
inline constexpr uint32_t kWin32DsProtocolError = 8225;
inline constexpr uint32_t kWin32DsTimelimitExceeded = 8226;
inline constexpr uint32_t kWin32DsSizelimitExceeded = 8227;
inline constexpr uint32_t kWin32DsAdminLimitExceeded = 8228;
inline constexpr uint32_t kWin32DsCompareFalse = 8229;
inline constexpr uint32_t kWin32DsCompareTrue = 8230;
inline constexpr uint32_t kWin32DsAuthMethodNotSupported = 8231;
inline constexpr uint32_t kWin32DsStrongAuthRequired = 8232;
inline constexpr uint32_t kWin32DsInappropriateAuth = 8233;
inline constexpr uint32_t kWin32DsAuthUnknown = 8234;
inline constexpr uint32_t kWin32DsReferral = 8235;
inline constexpr uint32_t kWin32DsUnavailableCritExtension = 8236;
inline constexpr uint32_t kWin32DsConfidentialityRequired = 8237;
inline constexpr uint32_t kWin32DsInappropriateMatching = 8238;
inline constexpr uint32_t kWin32DsConstraintViolation = 8239;
inline constexpr uint32_t kWin32DsNoSuchObject = 8240;
inline constexpr uint32_t kWin32DsAliasProblem = 8241;
inline constexpr uint32_t kWin32DsInvalidDnSyntax = 8242;
inline constexpr uint32_t kWin32DsIsLeaf = 8243;
inline constexpr uint32_t kWin32DsAliasDerefProblem = 8244;
inline constexpr uint32_t kWin32DsUnwillingToPerform = 8245;
inline constexpr uint32_t kWin32DsLoopDetect = 8246;
inline constexpr uint32_t kWin32DsNamingViolation = 8247;
inline constexpr uint32_t kWin32DsObjectResultsTooLarge = 8248;
inline constexpr uint32_t kWin32DsAffectsMultipleDsas = 8249;
inline constexpr uint32_t kWin32DsServerDown = 8250;
inline constexpr uint32_t kWin32DsLocalError = 8251;
inline constexpr uint32_t kWin32DsEncodingError = 8252;
inline constexpr uint32_t kWin32DsDecodingError = 8253;
inline constexpr uint32_t kWin32DsFilterUnknown = 8254;
inline constexpr uint32_t kWin32DsParamError = 8255;
inline constexpr uint32_t kWin32DsNotSupported = 8256;
inline constexpr uint32_t kWin32DsNoResultsReturned = 8257;
inline constexpr uint32_t kWin32DsControlNotFound = 8258;
inline constexpr uint32_t kWin32DsClientLoop = 8259;
inline constexpr uint32_t kWin32DsReferralLimitExceeded = 8260;

// The Win32 error as an HRESULT, negative as a 32-bit number.
inline int32_t HresultFromWin32(uint32_t win32Error) {
  return static_cast<int32_t>(0x80070000u | (win32Error & 0xFFFFu));
}

// The English text Windows gives for the error; nullptr when it is not one
// of the directory's.
inline const char* DirectoryErrorText(uint32_t win32Error) {
  switch (win32Error) {
    case kWin32AccessDenied: return "Access is denied.";
    case kWin32NotEnoughMemory: return "Not enough memory resources are available to process this command.";
    case kWin32GenFailure: return "A device attached to the system is not functioning.";
    case kWin32MoreData: return "More data is available.";
    case kWin32Cancelled: return "The operation was canceled by the user.";
    case kWin32ConnectionRefused: return "The remote computer refused the network connection.";
    case kWin32LogonFailure: return "The user name or password is incorrect.";
    case kWin32Timeout: return "This operation returned because the timeout period expired.";
    case kWin32ObjectAlreadyExists: return "The object already exists.";
    case kWin32DsNoAttributeOrValue: return "The specified directory service attribute or value does not exist.";
    case kWin32DsInvalidAttributeSyntax: return "The attribute syntax specified to the directory service is invalid.";
    case kWin32DsAttributeTypeUndefined: return "The attribute type specified to the directory service is not defined.";
    case kWin32DsAttributeOrValueExists: return "The specified directory service attribute or value already exists.";
    case kWin32DsBusy: return "The directory service is busy.";
    case kWin32DsUnavailable: return "The directory service is unavailable.";
    case kWin32DsObjClassViolation: return "The requested operation did not satisfy one or more constraints associated with the class of the object.";
    case kWin32DsCantOnNonLeaf: return "The directory service can perform the requested operation only on a leaf object.";
    case kWin32DsOperationsError: return "An operations error occurred.";
    case kWin32DsProtocolError: return "A protocol error occurred.";
    case kWin32DsTimelimitExceeded: return "The time limit for this request was exceeded.";
    case kWin32DsSizelimitExceeded: return "The size limit for this request was exceeded.";
    case kWin32DsAdminLimitExceeded: return "The administrative limit for this request was exceeded.";
    case kWin32DsCompareFalse: return "The compare response was false.";
    case kWin32DsCompareTrue: return "The compare response was true.";
    case kWin32DsAuthMethodNotSupported: return "The requested authentication method is not supported by the server.";
    case kWin32DsStrongAuthRequired: return "A more secure authentication method is required for this server.";
    case kWin32DsInappropriateAuth: return "Inappropriate authentication.";
    case kWin32DsAuthUnknown: return "The authentication mechanism is unknown.";
    case kWin32DsReferral: return "A referral was returned from the server.";
    case kWin32DsUnavailableCritExtension: return "The server does not support the requested critical extension.";
    case kWin32DsConfidentialityRequired: return "This request requires a secure connection.";
    case kWin32DsInappropriateMatching: return "Inappropriate matching.";
    case kWin32DsConstraintViolation: return "A constraint violation occurred.";
    case kWin32DsNoSuchObject: return "There is no such object on the server.";
    case kWin32DsAliasProblem: return "There is an alias problem.";
    case kWin32DsInvalidDnSyntax: return "An invalid dn syntax has been specified.";
    case kWin32DsIsLeaf: return "The object is a leaf object.";
    case kWin32DsAliasDerefProblem: return "There is an alias dereferencing problem.";
    case kWin32DsUnwillingToPerform: return "The server is unwilling to process the request.";
    case kWin32DsLoopDetect: return "A loop has been detected.";
    case kWin32DsNamingViolation: return "There is a naming violation.";
    case kWin32DsObjectResultsTooLarge: return "The result set is too large.";
    case kWin32DsAffectsMultipleDsas: return "The operation affects multiple DSAs";
    case kWin32DsServerDown: return "The server is not operational.";
    case kWin32DsLocalError: return "A local error has occurred.";
    case kWin32DsEncodingError: return "An encoding error has occurred.";
    case kWin32DsDecodingError: return "A decoding error has occurred.";
    case kWin32DsFilterUnknown: return "The search filter cannot be recognized.";
    case kWin32DsParamError: return "One or more parameters are illegal.";
    case kWin32DsNotSupported: return "The specified method is not supported.";
    case kWin32DsNoResultsReturned: return "No results were returned.";
    case kWin32DsControlNotFound: return "The specified control is not supported by the server.";
    case kWin32DsClientLoop: return "A referral loop was detected by the client.";
    case kWin32DsReferralLimitExceeded: return "The preset referral limit was exceeded.";
    default: return nullptr;
  }
}

// A failure of the directory with its Win32 error.
inline Failure DirectoryFailure(uint32_t win32Error) {
  const char* text = DirectoryErrorText(win32Error);
  return {HresultFromWin32(win32Error), text ? text : "Automation error"};
}

// The query text is not of the form the directory's provider reads.
inline Failure CommandFailure() {
  return {static_cast<int32_t>(0x80040E14u), "One or more errors occurred during processing of command."};
}

// The object named by a bind path cannot be made: no directory client
// answers to the name.
inline Failure NoDirectoryClientFailure() {
  return {432, "File name or class name not found during Automation operation"};
}

// A directory path, "LDAP://" + server, optionally "/" + the distinguished
// name of an object. False when the path does not start so.
struct DirectoryPath {
  std::string server;   // as written, "host" or "host:port"
  std::string objectName;
};

inline bool ParseDirectoryPath(const std::string& path, DirectoryPath& parsed) {
  static const std::string kScheme = "LDAP://";
  if (path.compare(0, kScheme.size(), kScheme) != 0) return false;
  const std::string rest = path.substr(kScheme.size());
  const size_t slash = rest.find('/');
  parsed.server = rest.substr(0, slash);
  parsed.objectName = slash == std::string::npos ? std::string() : rest.substr(slash + 1);
  return true;
}

// The query text "Select name, printShareName FROM '<path>' WHERE
// objectCategory='printQueue'" (keywords in any case) and the path it names.
inline bool ParseDirectoryQuery(const std::string& commandText, std::string& path) {
  static const std::string kHead = "select name, printsharename from '";
  static const std::string kTail = "' where objectcategory='printqueue'";
  if (commandText.size() < kHead.size() + kTail.size()) return false;
  auto lower = [](std::string text) {
    for (char& c : text) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
  };
  if (lower(commandText.substr(0, kHead.size())) != kHead) return false;
  if (lower(commandText.substr(commandText.size() - kTail.size())) != kTail) return false;
  path = commandText.substr(kHead.size(), commandText.size() - kHead.size() - kTail.size());
  return path.find('\'') == std::string::npos;
}

// What the query asks the server for.
inline constexpr const char* kPrintQueueFilter = "(objectCategory=printQueue)";

}  // namespace platform
