#include "notification/modEventLog.h"

#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "notification/modNotification.h"

#include <algorithm>
#include <cstring>
#include <vector>

int16_t EventStringCount = 0;
HANDLE EventSourceHandle = nullptr;
char* EventMessagePointer = nullptr;
int32_t EventMessageSize = 0;

namespace {

const char* const kSourceKeyHead = "System\\CurrentControlSet\\Services\\EventLog\\Application\\";
const char* const kMessageFileValue = "EventMessageFile";

// The memory block behind EventMessagePointer: allocated zero-filled, freed
// when the entry has been written.
std::vector<char> gEventMessageBlock;

}  // namespace

void WriteOutcomeToEventLog() {
  WriteEventLogEntry("Zandolin", gOutcomeText, AbortStatus ? 2 : 4, 20001);
}

// Writes one entry, registering the source first when its message file is
// not recorded. The message goes in twice: as the one insertion string and
// as the entry's data. A refused ReportEventA is no run-time failure, so it
// still ends in the "Logged event" line.
void WriteEventLogEntry(const std::string& Source, const std::string& Message, int16_t EventType,
                        int32_t EventId) {
  Err.Clear();

  const std::string sourceKey = kSourceKeyHead + Source;
  if (GetRegistryString(HKEY_LOCAL_MACHINE, sourceKey, kMessageFileValue).empty()) {
    SetRegistryString(HKEY_LOCAL_MACHINE, sourceKey, kMessageFileValue,
                      GetSystemFolder() + "\\EvntMsg.dll");
  }

  EventSourceHandle = Sys().eventLog->RegisterEventSourceA(nullptr, Source.c_str());

  EventMessageSize = static_cast<int32_t>(Message.size()) + 1;
  gEventMessageBlock.assign(static_cast<size_t>(EventMessageSize), '\0');
  EventMessagePointer = gEventMessageBlock.data();
  std::memcpy(EventMessagePointer, Message.c_str(), static_cast<size_t>(EventMessageSize));

  EventStringCount = 1;
  LPCSTR strings[1] = {EventMessagePointer};
  const BOOL reported = Sys().eventLog->ReportEventA(
      EventSourceHandle, static_cast<WORD>(EventType), 0, static_cast<DWORD>(EventId), nullptr,
      static_cast<WORD>(EventStringCount), static_cast<DWORD>(EventMessageSize), strings,
      EventMessagePointer);
  if (reported == 0) Sys().system->GetLastError();

  if (Err.Number > 0) {
    WriteDebug("ERROR: Writing event to application event log << ");
    WriteDebug("ERROR: " + Str(Err.Number));
    WriteDebug("ERROR DESCRIPTION: " + Err.Description);
  } else {
    WriteDebug(">> Logged event in application event log.");
  }

  gEventMessageBlock.clear();
  gEventMessageBlock.shrink_to_fit();
  EventMessagePointer = nullptr;
  Sys().eventLog->DeregisterEventSource(EventSourceHandle);
}

// The text of a REG_SZ value, or "" when the key, the value or the type is
// not there. The open is not tested: without a key the query finds nothing.
std::string GetRegistryString(HKEY RootKey, const std::string& SubKey,
                              const std::string& ValueName) {
  HKEY key = nullptr;
  Sys().registry->RegOpenKeyA(RootKey, SubKey.c_str(), &key);
  const std::string result = QueryRegistryString(key, ValueName);
  Sys().registry->RegCloseKey(key);
  return result;
}

// Creates the key when missing and writes a REG_SZ value whose size is the
// length of the text, without a NUL. Nothing is tested.
void SetRegistryString(HKEY RootKey, const std::string& SubKey, const std::string& ValueName,
                       const std::string& Text) {
  HKEY key = nullptr;
  Sys().registry->RegCreateKeyA(RootKey, SubKey.c_str(), &key);
  Sys().registry->RegSetValueExA(key, ValueName.c_str(), 0, REG_SZ,
                                 reinterpret_cast<const BYTE*>(Text.data()),
                                 static_cast<DWORD>(Text.size()));
  Sys().registry->RegCloseKey(key);
}

// A first query learns type and size; only a REG_SZ is read.
std::string QueryRegistryString(HKEY Key, const std::string& ValueName) {
  DWORD type = 0;
  DWORD size = 0;
  LONG result =
      Sys().registry->RegQueryValueExA(Key, ValueName.c_str(), nullptr, &type, nullptr, &size);
  if (result == ERROR_SUCCESS && type == REG_SZ) {
    std::string buffer(size, ' ');
    result = Sys().registry->RegQueryValueExA(Key, ValueName.c_str(), nullptr, &type,
                                              reinterpret_cast<LPBYTE>(buffer.data()), &size);
    if (result == ERROR_SUCCESS) return CutAtNul(buffer);
  }
  return std::string();
}

// As many characters of a 145-character buffer as GetSystemDirectoryA says;
// "" when it fails.
std::string GetSystemFolder() {
  std::string buffer(145, '\0');
  const UINT length = Sys().system->GetSystemDirectoryA(buffer.data(), 145);
  return buffer.substr(0, std::min<size_t>(length, buffer.size()));
}
