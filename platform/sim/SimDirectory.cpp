// The directory of the simulated client. Binding "LDAP://" + the machine's
// domain (case-blind) gives the domain object; its AdsPath is "LDAP://" +
// domain + "/" + naming context. The query is a subtree search of that
// naming context for the print queues, with their name and printShareName.
//
// The queues come from machine.json, or, in the ldap form, from a real LDAP
// server: the bind then reads the server's RootDSE for its naming context,
// and the query is sent to it, bound anonymously, with no paging, no limit
// and no control, so that a server's own size limit cuts the result as it
// cuts a domain controller's (the entries that came are kept).
//
// Failures are those of a directory client on Windows: an HRESULT and the
// system's text (platform/DirectoryErrors.h). A name that is not the domain
// fails as a server that does not answer.
#include "platform/DirectoryErrors.h"
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>

#ifdef ZANDOLIN_HAVE_LDAP
#include <ldap.h>

#include <chrono>
#include <memory>
#endif

namespace sim {

namespace {

using platform::DirectoryFailure;
using platform::DirectoryPath;
using platform::DirectoryRow;
using platform::Failure;

// A fault names its failure by the number it leaves; a directory's number
// brings its own text.
Failure FaultFailure(const Fault& fault) {
  const int32_t number = static_cast<int32_t>(fault.lastError);
  if ((fault.lastError & 0xFFFF0000u) == 0x80070000u) {
    if (const char* text = platform::DirectoryErrorText(fault.lastError & 0xFFFFu)) {
      return {number, text};
    }
  }
  return StandardFailure(number);
}

Failure ServerDown() { return DirectoryFailure(platform::kWin32DsServerDown); }

// The domain the path names, when it is the machine's.
bool NamesDomain(const SimDirectory& directory, const std::string& server) {
  return !directory.domain.empty() && SameNoCase(server, directory.domain);
}

// The distinguished names of the naming context compare case-blind.
bool SameObjectName(const std::string& a, const std::string& b) { return SameNoCase(a, b); }

#ifdef ZANDOLIN_HAVE_LDAP

// How LDAP result codes reach a Windows directory client: as the Win32
// error of the same name.
uint32_t Win32FromLdap(int code) {
  using namespace platform;
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
    case LDAP_ADMINLIMIT_EXCEEDED: return kWin32DsAdminLimitExceeded;
    case LDAP_UNAVAILABLE_CRITICAL_EXTENSION: return kWin32DsUnavailableCritExtension;
    case LDAP_CONFIDENTIALITY_REQUIRED: return kWin32DsConfidentialityRequired;
    case LDAP_NO_SUCH_ATTRIBUTE: return kWin32DsNoAttributeOrValue;
    case LDAP_UNDEFINED_TYPE: return kWin32DsAttributeTypeUndefined;
    case LDAP_INAPPROPRIATE_MATCHING: return kWin32DsInappropriateMatching;
    case LDAP_CONSTRAINT_VIOLATION: return kWin32DsConstraintViolation;
    case LDAP_TYPE_OR_VALUE_EXISTS: return kWin32DsAttributeOrValueExists;
    case LDAP_INVALID_SYNTAX: return kWin32DsInvalidAttributeSyntax;
    case LDAP_NO_SUCH_OBJECT: return kWin32DsNoSuchObject;
    case LDAP_ALIAS_PROBLEM: return kWin32DsAliasProblem;
    case LDAP_INVALID_DN_SYNTAX: return kWin32DsInvalidDnSyntax;
    case LDAP_IS_LEAF: return kWin32DsIsLeaf;
    case LDAP_ALIAS_DEREF_PROBLEM: return kWin32DsAliasDerefProblem;
    case LDAP_INAPPROPRIATE_AUTH: return kWin32DsInappropriateAuth;
    case LDAP_INVALID_CREDENTIALS: return kWin32LogonFailure;
    case LDAP_INSUFFICIENT_ACCESS: return kWin32AccessDenied;
    case LDAP_BUSY: return kWin32DsBusy;
    case LDAP_UNAVAILABLE: return kWin32DsUnavailable;
    case LDAP_UNWILLING_TO_PERFORM: return kWin32DsUnwillingToPerform;
    case LDAP_LOOP_DETECT: return kWin32DsLoopDetect;
    case LDAP_NAMING_VIOLATION: return kWin32DsNamingViolation;
    case LDAP_OBJECT_CLASS_VIOLATION: return kWin32DsObjClassViolation;
    case LDAP_NOT_ALLOWED_ON_NONLEAF: return kWin32DsCantOnNonLeaf;
    case LDAP_ALREADY_EXISTS: return kWin32ObjectAlreadyExists;
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

Failure LdapFailure(int code) { return DirectoryFailure(Win32FromLdap(code)); }

struct LdapCloser {
  void operator()(LDAP* ld) const { ldap_unbind_ext_s(ld, nullptr, nullptr); }
};
struct MessageFreer {
  void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
};
using LdapHandle = std::unique_ptr<LDAP, LdapCloser>;
using LdapResult = std::unique_ptr<LDAPMessage, MessageFreer>;

// The whole answer to one request. The server takes as long as it takes,
// but the simulated process does not outlive its wall-clock limit: a server
// that never answers leaves it stuck, as it would leave the engine.
int AwaitResult(LDAP* ld, int messageId, LdapResult& result) {
  for (;;) {
    struct timeval poll = {0, 100 * 1000};
    LDAPMessage* message = nullptr;
    const int got = ldap_result(ld, messageId, LDAP_MSG_ALL, &poll, &message);
    if (got > 0) {
      result.reset(message);
      return LDAP_SUCCESS;
    }
    if (message) ldap_msgfree(message);
    if (got < 0) {
      int code = LDAP_SERVER_DOWN;
      ldap_get_option(ld, LDAP_OPT_RESULT_CODE, &code);
      return code == LDAP_SUCCESS ? LDAP_SERVER_DOWN : code;
    }
    if (std::chrono::steady_clock::now() > Current().deadline) {
      throw StuckError{"the directory server does not answer",
                       "the directory server does not answer; at logon this process would never end"};
    }
  }
}

// The result code a finished request carries.
int ResultCode(LDAP* ld, LDAPMessage* result) {
  int code = LDAP_SUCCESS;
  const int parsed = ldap_parse_result(ld, result, &code, nullptr, nullptr, nullptr, nullptr, 0);
  return parsed == LDAP_SUCCESS ? code : parsed;
}

// A connection to the server of the ldap form, bound anonymously.
Failure Connect(const std::string& url, LdapHandle& handle) {
  LDAP* raw = nullptr;
  if (ldap_initialize(&raw, url.c_str()) != LDAP_SUCCESS || raw == nullptr) return ServerDown();
  handle.reset(raw);
  const int version = LDAP_VERSION3;
  ldap_set_option(raw, LDAP_OPT_PROTOCOL_VERSION, &version);
  ldap_set_option(raw, LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
  // Connecting may take no longer than the run may.
  const auto deadline = Current().deadline;
  if (deadline != std::chrono::steady_clock::time_point::max()) {
    auto left = std::chrono::duration_cast<std::chrono::microseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() < 1000) left = std::chrono::microseconds(1000);
    struct timeval timeout = {static_cast<time_t>(left.count() / 1000000),
                              static_cast<suseconds_t>(left.count() % 1000000)};
    ldap_set_option(raw, LDAP_OPT_NETWORK_TIMEOUT, &timeout);
  }

  struct berval noPassword = {0, nullptr};
  int messageId = 0;
  int code = ldap_sasl_bind(raw, "", LDAP_SASL_SIMPLE, &noPassword, nullptr, nullptr, &messageId);
  if (code != LDAP_SUCCESS) return LdapFailure(code);
  LdapResult result;
  code = AwaitResult(raw, messageId, result);
  if (code == LDAP_SUCCESS) code = ResultCode(raw, result.get());
  if (code != LDAP_SUCCESS) return LdapFailure(code);
  return {};
}

// One search, all its entries. A size limit that cut the answer is no
// failure: the entries that came are the result, and limitReached says so.
Failure Search(LDAP* ld, const std::string& base, int scope, const char* filter,
               const std::vector<std::string>& attributes, LdapResult& result,
               bool* limitReached = nullptr) {
  std::vector<char*> names;
  for (const std::string& a : attributes) names.push_back(const_cast<char*>(a.c_str()));
  names.push_back(nullptr);
  int messageId = 0;
  int code = ldap_search_ext(ld, base.c_str(), scope, filter, names.data(), 0, nullptr, nullptr,
                             nullptr, 0, &messageId);
  if (code != LDAP_SUCCESS) return LdapFailure(code);
  code = AwaitResult(ld, messageId, result);
  if (code == LDAP_SUCCESS) code = ResultCode(ld, result.get());
  if (code != LDAP_SUCCESS && code != LDAP_SIZELIMIT_EXCEEDED) return LdapFailure(code);
  if (limitReached) *limitReached = code == LDAP_SIZELIMIT_EXCEEDED;
  return {};
}

// The values of one attribute of an entry, by its exact type (case-blind):
// asking for "name" also brings its subtypes, which are not "name".
std::vector<std::string> Values(LDAP* ld, LDAPMessage* entry, const char* attribute) {
  std::vector<std::string> values;
  struct berval** found = ldap_get_values_len(ld, entry, attribute);
  if (!found) return values;
  for (int i = 0; found[i]; ++i) values.emplace_back(found[i]->bv_val, found[i]->bv_len);
  ldap_value_free_len(found);
  return values;
}

Failure ServerNamingContext(const std::string& url, std::string& namingContext) {
  LdapHandle ld;
  if (Failure f = Connect(url, ld); f.failed()) return f;
  LdapResult result;
  if (Failure f = Search(ld.get(), "", LDAP_SCOPE_BASE, "(objectClass=*)", {"defaultNamingContext"},
                         result);
      f.failed())
    return f;
  LDAPMessage* entry = ldap_first_entry(ld.get(), result.get());
  std::vector<std::string> values;
  if (entry) values = Values(ld.get(), entry, "defaultNamingContext");
  if (values.empty()) return DirectoryFailure(platform::kWin32DsNoSuchObject);
  namingContext = values[0];
  return {};
}

Failure ServerPrintQueues(const std::string& url, const std::string& base,
                          std::vector<DirectoryRow>& rows, bool& limitReached) {
  LdapHandle ld;
  if (Failure f = Connect(url, ld); f.failed()) return f;
  LdapResult result;
  if (Failure f = Search(ld.get(), base, LDAP_SCOPE_SUBTREE, platform::kPrintQueueFilter,
                         {"name", "printShareName"}, result, &limitReached);
      f.failed())
    return f;
  for (LDAPMessage* entry = ldap_first_entry(ld.get(), result.get()); entry;
       entry = ldap_next_entry(ld.get(), entry)) {
    DirectoryRow row;
    std::vector<std::string> name = Values(ld.get(), entry, "name");
    if (!name.empty()) {
      row.hasName = true;
      row.name = name[0];
    }
    row.printShareName = Values(ld.get(), entry, "printShareName");
    rows.push_back(std::move(row));
  }
  return {};
}

#else

Failure ServerNamingContext(const std::string&, std::string&) { return ServerDown(); }
Failure ServerPrintQueues(const std::string&, const std::string&, std::vector<DirectoryRow>&, bool&) {
  return ServerDown();
}

#endif

class SimDirectoryService : public platform::Directory {
 public:
  Failure BindObject(const std::string& ansiPath, std::string& adsPath) override {
    Context& c = Current();
    const std::string path = FromAnsi(ansiPath);
    if (const Fault* f = c.TakeFault("BindObject", path)) return FaultFailure(*f);
    if (!c.machine.directory) return ServerDown();
    const SimDirectory& directory = *c.machine.directory;
    DirectoryPath parsed;
    if (!platform::ParseDirectoryPath(path, parsed) || !parsed.objectName.empty() ||
        !NamesDomain(directory, parsed.server))
      return ServerDown();

    std::string namingContext = directory.namingContext;
    if (directory.ldap) {
      if (Failure f = ServerNamingContext(*directory.ldap, namingContext); f.failed()) return f;
    }
    adsPath = ToAnsi("LDAP://" + directory.domain + "/" + namingContext);
    return {};
  }

  Failure Execute(const std::string& ansiCommandText, std::vector<DirectoryRow>& rows) override {
    Context& c = Current();
    rows.clear();
    const std::string commandText = FromAnsi(ansiCommandText);
    if (const Fault* f = c.TakeFault("Execute", commandText)) return FaultFailure(*f);
    std::string path;
    DirectoryPath parsed;
    if (!platform::ParseDirectoryQuery(commandText, path) ||
        !platform::ParseDirectoryPath(path, parsed))
      return platform::CommandFailure();
    if (!c.machine.directory) return ServerDown();
    const SimDirectory& directory = *c.machine.directory;
    if (directory.queryError) {
      const DirectoryError& e = *directory.queryError;
      return {e.number, ToAnsi(e.description)};
    }
    if (!NamesDomain(directory, parsed.server)) return ServerDown();

    if (directory.ldap) {
      bool limitReached = false;
      Failure f = ServerPrintQueues(*directory.ldap, parsed.objectName, rows, limitReached);
      for (DirectoryRow& row : rows) {
        row.name = ToAnsi(row.name);
        for (std::string& share : row.printShareName) share = ToAnsi(share);
      }
      // The server says that its limit cut the answer, not by how much.
      if (!f.failed())
        c.directoryQueries.push_back(nlohmann::json{
            {"entries", rows.size()}, {"cut", limitReached ? nlohmann::json(nullptr) : nlohmann::json(0)}});
      return f;
    }

    if (!SameObjectName(parsed.objectName, directory.namingContext))
      return DirectoryFailure(platform::kWin32DsNoSuchObject);
    // The query is not paged: a server answers with its first sizeLimit
    // entries and no failure.
    const size_t total = directory.printQueues.size();
    const size_t given = directory.sizeLimit == 0 ? total : std::min<size_t>(total, directory.sizeLimit);
    for (size_t i = 0; i < given; ++i) {
      const PrintQueue& queue = directory.printQueues[i];
      DirectoryRow row;
      row.hasName = queue.name.has_value();
      if (queue.name) row.name = ToAnsi(*queue.name);
      for (const std::string& share : queue.printShareName) row.printShareName.push_back(ToAnsi(share));
      rows.push_back(std::move(row));
    }
    c.directoryQueries.push_back(nlohmann::json{{"entries", given}, {"cut", total - given}});
    return {};
  }
};

}  // namespace

platform::Directory& DirectoryService() {
  static SimDirectoryService service;
  return service;
}

}  // namespace sim
