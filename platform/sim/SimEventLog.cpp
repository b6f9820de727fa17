// The application event log of the simulated client. It keeps its entries
// as machine text; the engine gives them in the ANSI code page.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

// Since Windows Vista an insertion string holds at most 31,839 characters
// (UTF-16 units, after the A-call's conversion); a longer one is refused
// with ERROR_EVENTLOG_FILE_CORRUPT, "The event log file is corrupted.", and
// nothing is written. The entry's data may hold 61,440 bytes; more fails
// with RPC_S_INVALID_BOUND, the range the event log's RPC interface allows.
// Older versions' limits (32K characters) are not served.
constexpr size_t kLongestString = 31839;
constexpr DWORD kErrorEventlogFileCorrupt = 1500;
constexpr DWORD kLargestData = 61440;
constexpr DWORD kRpcInvalidBound = 1734;

// The error Windows refuses an entry with for its size, or 0.
DWORD Refusal(const Context& c, WORD numStrings, DWORD dataSize, LPCSTR* strings) {
  if (c.machine.platformId != 2 || c.machine.majorVersion < 6) return 0;
  if (dataSize > kLargestData) return kRpcInvalidBound;
  // Converted text never has more UTF-16 units than ANSI bytes.
  for (WORD i = 0; i < numStrings; ++i)
    if (strings[i] && std::strlen(strings[i]) > kLongestString &&
        Utf16FromAnsi(strings[i]).size() > kLongestString)
      return kErrorEventlogFileCorrupt;
  return 0;
}

class SimEventLog : public platform::EventLog {
 public:
  HANDLE RegisterEventSourceA(LPCSTR server, LPCSTR source) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("RegisterEventSourceA",
                                     std::vector<std::string>{ArgText(source), ArgText(server)}))
      return reinterpret_cast<HANDLE>(static_cast<intptr_t>(f->result));
    if (!source) {
      c.lastError = ERROR_INVALID_PARAMETER;
      return nullptr;
    }
    uintptr_t handle = c.nextHandle++;
    c.eventSources[handle] = ArgText(source);
    return reinterpret_cast<HANDLE>(handle);
  }

  BOOL ReportEventA(HANDLE source, WORD type, WORD category, DWORD eventId, PSID user,
                    WORD numStrings, DWORD dataSize, LPCSTR* strings, LPVOID rawData) override {
    Context& c = Current();
    c.lastError = 0;
    auto it = c.eventSources.find(reinterpret_cast<uintptr_t>(source));
    std::string name = it == c.eventSources.end() ? std::string() : it->second;
    if (const Fault* f = c.TakeFault("ReportEventA", name)) return static_cast<BOOL>(f->result);
    if (it == c.eventSources.end()) {
      c.lastError = ERROR_INVALID_HANDLE;
      return FALSE;
    }
    if ((numStrings && !strings) || (dataSize && !rawData)) {
      c.lastError = ERROR_INVALID_PARAMETER;
      return FALSE;
    }
    if (DWORD refused = Refusal(c, numStrings, dataSize, strings)) {
      c.lastError = refused;
      size_t longest = 0;
      for (WORD i = 0; i < numStrings; ++i)
        if (strings[i]) longest = std::max(longest, Utf16FromAnsi(strings[i]).size());
      c.eventLogRefused.push_back(nlohmann::json{
          {"id", eventId}, {"lastError", refused}, {"longestString", longest}, {"dataSize", dataSize}});
      return FALSE;
    }
    EventEntry entry;
    entry.source = name;
    entry.type = type;
    entry.category = category;
    entry.id = eventId;
    for (WORD i = 0; i < numStrings; ++i) entry.strings.push_back(ArgText(strings[i]));
    // The data, bytes in the code page, is kept as text like the strings.
    if (dataSize) entry.data = FromAnsi(std::string(static_cast<const char*>(rawData), dataSize));
    c.machine.eventLog.push_back(entry);
    c.eventLogWritten.push_back(nlohmann::json{{"source", entry.source},
                                               {"type", entry.type},
                                               {"category", entry.category},
                                               {"id", entry.id},
                                               {"strings", entry.strings},
                                               {"data", entry.data}});
    return TRUE;
  }

  BOOL DeregisterEventSource(HANDLE source) override {
    Context& c = Current();
    c.lastError = 0;
    auto it = c.eventSources.find(reinterpret_cast<uintptr_t>(source));
    std::string name = it == c.eventSources.end() ? std::string() : it->second;
    if (const Fault* f = c.TakeFault("DeregisterEventSource", name)) return static_cast<BOOL>(f->result);
    if (it == c.eventSources.end()) {
      c.lastError = ERROR_INVALID_HANDLE;
      return FALSE;
    }
    c.eventSources.erase(it);
    return TRUE;
  }
};

}  // namespace

platform::EventLog& EventLogService() {
  static SimEventLog service;
  return service;
}

}  // namespace sim
