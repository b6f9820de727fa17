//===- NativeDirectory.cpp - The directory on Windows -----------*- C++ -*-===//
//
// Binding the domain's directory object and querying its print queues, over
// the system's LDAP client (wldap32).
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - wldap32 is loaded at run time: Windows 95/98/ME and NT 4 have it only
//   with the directory client installed. Where it is missing, binding fails
//   as an automation name that no installed component knows (432).
// - "LDAP://server" binds to the server's default naming context, read from
//   its RootDSE; "LDAP://server/DN" to that object. The server may be a
//   domain name or host:port. The AdsPath is "LDAP://server/" + the
//   object's distinguished name.
// - The query text keeps its documented form; it becomes one subtree search
//   of the path's object for (objectCategory=printQueue) with the
//   attributes name and printShareName: no paging, no limit, no control. A
//   server's size limit cuts the result and is no failure.
// - Each operation binds with the logged-on user's credentials (Negotiate).
//   Under Wine, whose LDAP library cannot do a Negotiate bind, and where the
//   server does not offer Negotiate, the bind is an anonymous simple bind.
// - Failures are HRESULTs of the Win32 errors a directory client reports,
//   with the system's text of them, or the English text where the system
//   has none.
//
//===----------------------------------------------------------------------===//

#include "platform/DirectoryErrors.h"
#include "platform/native/NativeLibraries.h"
#include "platform/native/NativeServices.h"

#include <windows.h>
#include <winldap.h>

#include <string>
#include <vector>

namespace platform::native {

namespace {

// The entries of wldap32 this file uses, resolved once.
struct Wldap32 {
  decltype(&ldap_initW) initW = nullptr;
  decltype(&ldap_set_optionW) setOptionW = nullptr;
  decltype(&ldap_bind_sW) bindSW = nullptr;
  decltype(&ldap_simple_bind_sW) simpleBindSW = nullptr;
  decltype(&ldap_search_ext_sW) searchExtSW = nullptr;
  decltype(&ldap_first_entry) firstEntry = nullptr;
  decltype(&ldap_next_entry) nextEntry = nullptr;
  decltype(&ldap_get_valuesW) getValuesW = nullptr;
  decltype(&ldap_value_freeW) valueFreeW = nullptr;
  decltype(&ldap_msgfree) msgFree = nullptr;
  decltype(&ldap_unbind) unbind = nullptr;
  decltype(&LdapGetLastError) getLastError = nullptr;
  bool loaded = false;
};

template <class Fn>
void Resolve(HMODULE module, const char* name, Fn& fn) {
  fn = reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

const Wldap32& Library() {
  static const Wldap32 library = [] {
    Wldap32 l;
    HMODULE module = LoadSystemLibrary("wldap32.dll");
    if (!module) return l;
    Resolve(module, "ldap_initW", l.initW);
    Resolve(module, "ldap_set_optionW", l.setOptionW);
    Resolve(module, "ldap_bind_sW", l.bindSW);
    Resolve(module, "ldap_simple_bind_sW", l.simpleBindSW);
    Resolve(module, "ldap_search_ext_sW", l.searchExtSW);
    Resolve(module, "ldap_first_entry", l.firstEntry);
    Resolve(module, "ldap_next_entry", l.nextEntry);
    Resolve(module, "ldap_get_valuesW", l.getValuesW);
    Resolve(module, "ldap_value_freeW", l.valueFreeW);
    Resolve(module, "ldap_msgfree", l.msgFree);
    Resolve(module, "ldap_unbind", l.unbind);
    Resolve(module, "LdapGetLastError", l.getLastError);
    l.loaded = l.initW && l.setOptionW && l.bindSW && l.simpleBindSW && l.searchExtSW &&
               l.firstEntry && l.nextEntry && l.getValuesW && l.valueFreeW && l.msgFree &&
               l.unbind && l.getLastError;
    return l;
  }();
  return library;
}

// Wine's LDAP library cannot bind with Negotiate.
bool RunsUnderWine() {
  HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
  return ntdll && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

// The server or the client cannot do a Negotiate bind at all, as opposed
// to a bind that was tried and refused.
bool NegotiateUnusable(ULONG code) {
  switch (code) {
    case LDAP_AUTH_METHOD_NOT_SUPPORTED:
    case LDAP_INAPPROPRIATE_AUTH:
    case LDAP_AUTH_UNKNOWN:
    case LDAP_LOCAL_ERROR:
    case LDAP_NOT_SUPPORTED:
      return true;
    default:
      return false;
  }
}

// How LDAP result codes reach a Windows directory client: as the Win32
// error of the same name.
uint32_t Win32FromLdap(ULONG code) {
  switch (code) {
    case LDAP_OPERATIONS_ERROR: return kWin32DsOperationsError;
    case LDAP_PROTOCOL_ERROR: return kWin32DsProtocolError;
    case LDAP_TIMELIMIT_EXCEEDED: return kWin32DsTimelimitExceeded;
    case LDAP_SIZELIMIT_EXCEEDED: return kWin32DsSizelimitExceeded;
    case LDAP_COMPARE_FALSE: return kWin32DsCompareFalse;
    case LDAP_COMPARE_TRUE: return kWin32DsCompareTrue;
    case LDAP_AUTH_METHOD_NOT_SUPPORTED: return kWin32DsAuthMethodNotSupported;
    case LDAP_STRONG_AUTH_REQUIRED: return kWin32DsStrongAuthRequired;
    case LDAP_PARTIAL_RESULTS: return kWin32MoreData;
    case LDAP_REFERRAL: return kWin32DsReferral;
    case LDAP_ADMIN_LIMIT_EXCEEDED: return kWin32DsAdminLimitExceeded;
    case LDAP_UNAVAILABLE_CRIT_EXTENSION: return kWin32DsUnavailableCritExtension;
    case LDAP_CONFIDENTIALITY_REQUIRED: return kWin32DsConfidentialityRequired;
    case LDAP_NO_SUCH_ATTRIBUTE: return kWin32DsNoAttributeOrValue;
    case LDAP_UNDEFINED_TYPE: return kWin32DsAttributeTypeUndefined;
    case LDAP_INAPPROPRIATE_MATCHING: return kWin32DsInappropriateMatching;
    case LDAP_CONSTRAINT_VIOLATION: return kWin32DsConstraintViolation;
    case LDAP_ATTRIBUTE_OR_VALUE_EXISTS: return kWin32DsAttributeOrValueExists;
    case LDAP_INVALID_SYNTAX: return kWin32DsInvalidAttributeSyntax;
    case LDAP_NO_SUCH_OBJECT: return kWin32DsNoSuchObject;
    case LDAP_ALIAS_PROBLEM: return kWin32DsAliasProblem;
    case LDAP_INVALID_DN_SYNTAX: return kWin32DsInvalidDnSyntax;
    case LDAP_IS_LEAF: return kWin32DsIsLeaf;
    case LDAP_ALIAS_DEREF_PROBLEM: return kWin32DsAliasDerefProblem;
    case LDAP_INAPPROPRIATE_AUTH: return kWin32DsInappropriateAuth;
    case LDAP_INVALID_CREDENTIALS: return kWin32LogonFailure;
    case LDAP_INSUFFICIENT_RIGHTS: return kWin32AccessDenied;
    case LDAP_BUSY: return kWin32DsBusy;
    case LDAP_UNAVAILABLE: return kWin32DsUnavailable;
    case LDAP_UNWILLING_TO_PERFORM: return kWin32DsUnwillingToPerform;
    case LDAP_LOOP_DETECT: return kWin32DsLoopDetect;
    case LDAP_NAMING_VIOLATION: return kWin32DsNamingViolation;
    case LDAP_OBJECT_CLASS_VIOLATION: return kWin32DsObjClassViolation;
    case LDAP_NOT_ALLOWED_ON_NONLEAF: return kWin32DsCantOnNonLeaf;
    case LDAP_ALREADY_EXISTS: return kWin32ObjectAlreadyExists;
    case LDAP_NO_OBJECT_CLASS_MODS: return kWin32DsObjClassViolation;
    case LDAP_RESULTS_TOO_LARGE: return kWin32DsObjectResultsTooLarge;
    case LDAP_AFFECTS_MULTIPLE_DSAS: return kWin32DsAffectsMultipleDsas;
    case LDAP_SERVER_DOWN: return kWin32DsServerDown;
    case LDAP_LOCAL_ERROR: return kWin32DsLocalError;
    case LDAP_ENCODING_ERROR: return kWin32DsEncodingError;
    case LDAP_DECODING_ERROR: return kWin32DsDecodingError;
    case LDAP_TIMEOUT: return kWin32Timeout;
    case LDAP_AUTH_UNKNOWN: return kWin32DsAuthUnknown;
    case LDAP_FILTER_ERROR: return kWin32DsFilterUnknown;
    case LDAP_USER_CANCELLED: return kWin32Cancelled;
    case LDAP_PARAM_ERROR: return kWin32DsParamError;
    case LDAP_NO_MEMORY: return kWin32NotEnoughMemory;
    case LDAP_CONNECT_ERROR: return kWin32ConnectionRefused;
    case LDAP_NOT_SUPPORTED: return kWin32DsNotSupported;
    case LDAP_CONTROL_NOT_FOUND: return kWin32DsControlNotFound;
    case LDAP_NO_RESULTS_RETURNED: return kWin32DsNoResultsReturned;
    case LDAP_MORE_RESULTS_TO_RETURN: return kWin32MoreData;
    case LDAP_CLIENT_LOOP: return kWin32DsClientLoop;
    case LDAP_REFERRAL_LIMIT_EXCEEDED: return kWin32DsReferralLimitExceeded;
    default: return kWin32GenFailure;
  }
}

// The Win32 error as an HRESULT with the system's text of it.
Failure SystemFailure(uint32_t win32Error) {
  Failure failure = DirectoryFailure(win32Error);
  char text[512];
  const DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                        nullptr, win32Error, 0, text, sizeof text, nullptr);
  if (length > 0) {
    std::string system(text, length);
    while (!system.empty() && (system.back() == '\n' || system.back() == '\r' || system.back() == ' '))
      system.pop_back();
    if (!system.empty()) failure.Description = system;
  }
  return failure;
}

Failure LdapFailure(ULONG code) { return SystemFailure(Win32FromLdap(code)); }

std::wstring Wide(const std::string& text) {
  if (text.empty()) return std::wstring();
  const int length = ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                           nullptr, 0);
  std::wstring wide(length, L'\0');
  ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &wide[0], length);
  return wide;
}

std::string Narrow(const wchar_t* text) {
  if (!text || !*text) return std::string();
  const int length = ::WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string narrow(length > 0 ? length - 1 : 0, '\0');
  if (length > 1) ::WideCharToMultiByte(CP_ACP, 0, text, -1, &narrow[0], length, nullptr, nullptr);
  return narrow;
}

// One connection to a server, bound; closed when it goes.
class Connection {
 public:
  explicit Connection(const Wldap32& l) : l_(l) {}
  ~Connection() {
    if (ld_) l_.unbind(ld_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  Failure Open(const std::string& server) {
    std::string host = server;
    ULONG port = LDAP_PORT;
    const size_t colon = server.rfind(':');
    if (colon != std::string::npos) {
      host = server.substr(0, colon);
      port = 0;
      for (size_t i = colon + 1; i < server.size(); ++i) {
        if (server[i] < '0' || server[i] > '9' || port > 65535) return LdapFailure(LDAP_SERVER_DOWN);
        port = port * 10 + (server[i] - '0');
      }
      if (port == 0 || port > 65535) return LdapFailure(LDAP_SERVER_DOWN);
    }
    if (host.empty()) return LdapFailure(LDAP_SERVER_DOWN);

    std::wstring wideHost = Wide(host);
    ld_ = l_.initW(&wideHost[0], port);
    if (!ld_) return LdapFailure(l_.getLastError());
    ULONG version = LDAP_VERSION3;
    l_.setOptionW(ld_, LDAP_OPT_PROTOCOL_VERSION, &version);

    ULONG code;
    if (RunsUnderWine()) {
      code = l_.simpleBindSW(ld_, nullptr, nullptr);
    } else {
      code = l_.bindSW(ld_, nullptr, nullptr, LDAP_AUTH_NEGOTIATE);
      // The user's credentials cannot be used with this server: bind
      // anonymously, as far as the server allows.
      if (NegotiateUnusable(code)) code = l_.simpleBindSW(ld_, nullptr, nullptr);
    }
    if (code != LDAP_SUCCESS) return LdapFailure(code);
    return {};
  }

  // One search, all its entries. A size limit that cut the answer is no
  // failure: the entries that came are the result.
  Failure Search(const std::string& base, ULONG scope, const char* filter,
                 const std::vector<std::string>& attributes, LDAPMessage*& result) {
    std::wstring wideBase = Wide(base);
    std::wstring wideFilter = Wide(filter);
    std::vector<std::wstring> wideAttributes;
    for (const std::string& a : attributes) wideAttributes.push_back(Wide(a));
    std::vector<PWCHAR> names;
    for (std::wstring& a : wideAttributes) names.push_back(&a[0]);
    names.push_back(nullptr);
    result = nullptr;
    const ULONG code = l_.searchExtSW(ld_, &wideBase[0], scope, &wideFilter[0], names.data(), 0,
                                      nullptr, nullptr, nullptr, 0, &result);
    if (code != LDAP_SUCCESS && code != LDAP_SIZELIMIT_EXCEEDED) {
      if (result) l_.msgFree(result);
      result = nullptr;
      return LdapFailure(code);
    }
    return {};
  }

  // The values of one attribute of an entry, in the system's code page.
  std::vector<std::string> Values(LDAPMessage* entry, const char* attribute) {
    std::vector<std::string> values;
    std::wstring name = Wide(attribute);
    PWCHAR* found = l_.getValuesW(ld_, entry, &name[0]);
    if (!found) return values;
    for (int i = 0; found[i]; ++i) values.push_back(Narrow(found[i]));
    l_.valueFreeW(found);
    return values;
  }

  LDAP* Handle() const { return ld_; }

 private:
  const Wldap32& l_;
  LDAP* ld_ = nullptr;
};

class NativeDirectory final : public Directory {
 public:
  Failure BindObject(const std::string& path, std::string& adsPath) override {
    const Wldap32& l = Library();
    if (!l.loaded) return NoDirectoryClientFailure();
    DirectoryPath parsed;
    if (!ParseDirectoryPath(path, parsed)) return NoDirectoryClientFailure();
    // A path without a server names no domain to ask.
    if (parsed.server.empty()) return LdapFailure(LDAP_SERVER_DOWN);

    Connection connection(l);
    if (Failure f = connection.Open(parsed.server); f.failed()) return f;

    std::string objectName = parsed.objectName;
    LDAPMessage* result = nullptr;
    const std::string base = objectName.empty() ? std::string() : objectName;
    const char* attribute = objectName.empty() ? "defaultNamingContext" : "distinguishedName";
    if (Failure f = connection.Search(base, LDAP_SCOPE_BASE, "(objectClass=*)", {attribute}, result);
        f.failed())
      return f;
    LDAPMessage* entry = result ? l.firstEntry(connection.Handle(), result) : nullptr;
    if (objectName.empty()) {
      std::vector<std::string> values;
      if (entry) values = connection.Values(entry, "defaultNamingContext");
      if (!values.empty()) objectName = values[0];
    } else if (!entry) {
      objectName.clear();
    }
    if (result) l.msgFree(result);
    if (objectName.empty()) return LdapFailure(LDAP_NO_SUCH_OBJECT);

    adsPath = "LDAP://" + parsed.server + "/" + objectName;
    return {};
  }

  Failure Execute(const std::string& commandText, std::vector<DirectoryRow>& rows) override {
    rows.clear();
    const Wldap32& l = Library();
    if (!l.loaded) return NoDirectoryClientFailure();
    std::string path;
    DirectoryPath parsed;
    if (!ParseDirectoryQuery(commandText, path) || !ParseDirectoryPath(path, parsed))
      return CommandFailure();
    if (parsed.server.empty()) return LdapFailure(LDAP_SERVER_DOWN);

    Connection connection(l);
    if (Failure f = connection.Open(parsed.server); f.failed()) return f;
    LDAPMessage* result = nullptr;
    if (Failure f = connection.Search(parsed.objectName, LDAP_SCOPE_SUBTREE, kPrintQueueFilter,
                                      {"name", "printShareName"}, result);
        f.failed())
      return f;
    for (LDAPMessage* entry = result ? l.firstEntry(connection.Handle(), result) : nullptr; entry;
         entry = l.nextEntry(connection.Handle(), entry)) {
      DirectoryRow row;
      std::vector<std::string> name = connection.Values(entry, "name");
      if (!name.empty()) {
        row.hasName = true;
        row.name = name[0];
      }
      row.printShareName = connection.Values(entry, "printShareName");
      rows.push_back(std::move(row));
    }
    if (result) l.msgFree(result);
    return {};
  }
};

}  // namespace

Directory& DirectoryService() {
  static NativeDirectory service;
  return service;
}

}  // namespace platform::native
