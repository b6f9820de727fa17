// The record of every call of the boundary (zandolin-sim --trace): each
// service of the simulated client wrapped, each call written to
// Current().trace with its arguments, its result, what it gave back through
// its pointers and the last error it left.
//
// An entry is opened when the call starts, so that the calls an event
// handler makes inside a pump follow the pump's own entry. A run of calls
// that repeats the block before it (a wait loop pumping and asking a state)
// is folded into one entry {"repeat": N, "calls": [...]}, so that a process
// that waits for minutes gives a short trace. Texts longer than kLongestText
// are cut.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <type_traits>
#include <utility>

namespace sim {

namespace {

using nlohmann::json;

constexpr size_t kLongestText = 512;
constexpr size_t kLongestFold = 4;   // calls in a folded block

// The engine's text is in the client's code page; the trace is UTF-8.
json Text(const std::string& text) {
  const CodePage& page = Current().AnsiCodePage();
  if (text.size() <= kLongestText) return page.ToUtf8(text);
  return page.ToUtf8(std::string_view(text).substr(0, kLongestText)) + "[... " + std::to_string(text.size()) +
         " characters]";
}

json Text(const char* text) { return text ? Text(std::string(text)) : json(nullptr); }

// A text in a buffer the call filled: up to its NUL, within size.
json Buffer(const char* buffer, size_t size) {
  if (!buffer) return nullptr;
  return Text(std::string(buffer, strnlen(buffer, size)));
}

json Handle(const void* handle) {
  if (!handle) return nullptr;
  char text[32];
  std::snprintf(text, sizeof text, "0x%llx",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(handle)));
  return text;
}

json FailureJson(const platform::Failure& f) {
  if (!f.failed()) return 0;
  return json{{"number", f.Number}, {"description", f.Description}};
}

// Folds the calls at the end of the trace into the fold before them, or
// two equal blocks at the end into a new fold.
void Fold(CallTrace& t) {
  const size_t n = t.calls.size();
  if (t.fold != SIZE_MAX) {
    const size_t period = t.foldKeys.size(), after = n - 1 - t.fold;
    bool matches = after <= period;
    for (size_t j = 0; matches && j < after; ++j) matches = t.keys[t.fold + 1 + j] == t.foldKeys[j];
    if (matches) {
      if (after == period) {
        t.calls.erase(t.calls.begin() + static_cast<std::ptrdiff_t>(t.fold + 1), t.calls.end());
        t.keys.resize(t.fold + 1);
        t.calls[t.fold]["repeat"] = t.calls[t.fold]["repeat"].get<int64_t>() + 1;
      }
      return;
    }
    t.fold = SIZE_MAX;
  }
  for (size_t period = 1; period <= kLongestFold && 2 * period <= n; ++period) {
    const size_t start = n - 2 * period;
    bool repeats = true;
    for (size_t j = 0; repeats && j < period; ++j)
      repeats = !t.keys[start + j].empty() && t.keys[start + j] == t.keys[start + period + j];
    if (!repeats) continue;
    json block = json::array();
    t.foldKeys.assign(t.keys.begin() + static_cast<std::ptrdiff_t>(start + period), t.keys.end());
    for (size_t j = start + period; j < n; ++j) block.push_back(t.calls[j]);
    t.calls.erase(t.calls.begin() + static_cast<std::ptrdiff_t>(start), t.calls.end());
    t.keys.resize(start);
    t.calls.push_back(json{{"repeat", 2}, {"calls", block}});
    t.keys.emplace_back();
    t.fold = start;
    return;
  }
}

// Opens the entry of a call; its place in the trace.
size_t Begin(const char* call, json args) {
  CallTrace& t = Current().trace;
  t.calls.push_back(json{{"call", call}, {"args", std::move(args)}});
  t.keys.emplace_back();
  return t.calls.size() - 1;
}

// Closes the entry of a call with its result, what it gave back, and the
// last error.
void End(size_t at, json result, json out = nullptr) {
  Context& c = Current();
  CallTrace& t = c.trace;
  json& entry = t.calls[at];
  entry["result"] = std::move(result);
  if (!out.is_null()) entry["out"] = std::move(out);
  entry["lastError"] = c.lastError;
  if (at + 1 != t.calls.size()) return;   // calls ran inside it: it never folds
  t.keys[at] = entry.dump(-1, ' ', false, json::error_handler_t::replace);
  Fold(t);
}

// The result of a call as the trace writes it.
template <class T>
std::enable_if_t<std::is_arithmetic_v<T>, json> Result(T value) {
  return value;
}
json Result(const void* handle) { return Handle(handle); }
json Result(const std::string& text) { return Text(text); }
json Result(const std::u16string& text) { return text.size(); }   // its length in UTF-16 units
json Result(const platform::Failure& f) { return FailureJson(f); }
json Result(const platform::LocalTime& t) {
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", t.Year, t.Month, t.Day, t.Hour, t.Minute,
                t.Second);
  return text;
}

// Runs a call and records it; out, when given, tells after the call what it
// gave back through its pointers.
template <class F, class Out>
auto Traced(const char* call, json args, F&& f, Out&& out) {
  size_t at = Begin(call, std::move(args));
  if constexpr (std::is_void_v<decltype(f())>) {
    f();
    End(at, nullptr);
  } else {
    auto r = f();
    End(at, Result(r), out());
    return r;
  }
}

template <class F>
auto Traced(const char* call, json args, F&& f) {
  return Traced(call, std::move(args), std::forward<F>(f), [] { return json(nullptr); });
}

class TracedSystem : public platform::System {
 public:
  platform::System* inner = nullptr;
  DWORD GetLastError() override { return Traced("GetLastError", json::array(), [&] { return inner->GetLastError(); }); }
  void SetLastError(DWORD code) override {
    Traced("SetLastError", json::array({code}), [&] { inner->SetLastError(code); });
  }
  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    return Traced(
        "GetVersionExA", json::array({info ? json(info->dwOSVersionInfoSize) : json(nullptr)}),
        [&] { return inner->GetVersionExA(info); },
        [&] {
          return info ? json{{"platformId", info->dwPlatformId}, {"majorVersion", info->dwMajorVersion},
                             {"minorVersion", info->dwMinorVersion}}
                      : json(nullptr);
        });
  }
  UINT GetSystemDirectoryA(LPSTR buffer, UINT size) override {
    return Traced("GetSystemDirectoryA", json::array({size}), [&] { return inner->GetSystemDirectoryA(buffer, size); },
                  [&] { return Buffer(buffer, size); });
  }
  DWORD GetTempPathA(DWORD size, LPSTR buffer) override {
    return Traced("GetTempPathA", json::array({size}), [&] { return inner->GetTempPathA(size, buffer); },
                  [&] { return Buffer(buffer, size); });
  }
  UINT GetWindowsDirectoryA(LPSTR buffer, UINT size) override {
    return Traced("GetWindowsDirectoryA", json::array({size}), [&] { return inner->GetWindowsDirectoryA(buffer, size); },
                  [&] { return Buffer(buffer, size); });
  }
  DWORD GetFullPathNameA(LPCSTR fileName, DWORD size, LPSTR buffer, LPSTR* filePart) override {
    DWORD r = 0;
    return Traced("GetFullPathNameA", json::array({Text(fileName), size}),
                  [&] { return r = inner->GetFullPathNameA(fileName, size, buffer, filePart); },
                  [&] { return r != 0 && r < size ? Buffer(buffer, size) : json(nullptr); });
  }
  UINT GetACP() override { return Traced("GetACP", json::array(), [&] { return inner->GetACP(); }); }
  BOOL IsUserAnAdmin() override {
    return Traced("IsUserAnAdmin", json::array(), [&] { return inner->IsUserAnAdmin(); });
  }
  BOOL GetUserNameA(LPSTR buffer, LPDWORD size) override {
    DWORD capacity = size ? *size : 0;
    return Traced("GetUserNameA", json::array({capacity}), [&] { return inner->GetUserNameA(buffer, size); },
                  [&] { return Buffer(buffer, capacity); });
  }
  HANDLE GetCurrentProcess() override {
    return Traced("GetCurrentProcess", json::array(), [&] { return inner->GetCurrentProcess(); });
  }
  BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) override {
    return Traced("OpenProcessToken", json::array({Handle(process), access}),
                  [&] { return inner->OpenProcessToken(process, access, token); },
                  [&] { return token ? Handle(*token) : json(nullptr); });
  }
  BOOL GetUserProfileDirectoryA(HANDLE token, LPSTR dir, LPDWORD size) override {
    DWORD capacity = size ? *size : 0;
    return Traced("GetUserProfileDirectoryA", json::array({Handle(token), capacity}),
                  [&] { return inner->GetUserProfileDirectoryA(token, dir, size); },
                  [&] { return Buffer(dir, capacity); });
  }
  platform::Failure CreateNetworkObject() override {
    return Traced("CreateNetworkObject", json::array(), [&] { return inner->CreateNetworkObject(); });
  }
  platform::Failure NetworkComputerName(std::string& name) override {
    return Traced("NetworkComputerName", json::array(), [&] { return inner->NetworkComputerName(name); },
                  [&] { return Text(name); });
  }
  std::string CommandLine() override { return Traced("CommandLine", json::array(), [&] { return inner->CommandLine(); }); }
  std::string AppPath() override { return Traced("AppPath", json::array(), [&] { return inner->AppPath(); }); }
  std::u16string AnsiToUtf16(const std::string& text) override {
    return Traced("AnsiToUtf16", json::array({Text(text)}), [&] { return inner->AnsiToUtf16(text); });
  }
};

// What a profile read put in the buffer.
json ProfileText(LPSTR buffer, DWORD count, DWORD size) {
  return buffer ? Text(std::string(buffer, std::min(count, size))) : json(nullptr);
}

class TracedProfile : public platform::Profile {
 public:
  platform::Profile* inner = nullptr;
  DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer, DWORD size,
                                 LPCSTR fileName) override {
    DWORD count = 0;
    return Traced(
        "GetPrivateProfileStringA", json::array({Text(section), Text(key), Text(defaultValue), size, Text(fileName)}),
        [&] { return count = inner->GetPrivateProfileStringA(section, key, defaultValue, buffer, size, fileName); },
        [&] { return ProfileText(buffer, count, size); });
  }
  DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer, DWORD size) override {
    DWORD count = 0;
    return Traced(
        "GetProfileStringA", json::array({Text(section), Text(key), Text(defaultValue), size}),
        [&] { return count = inner->GetProfileStringA(section, key, defaultValue, buffer, size); },
        [&] { return ProfileText(buffer, count, size); });
  }
  BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) override {
    return Traced("WriteProfileStringA", json::array({Text(section), Text(key), Text(value)}),
                  [&] { return inner->WriteProfileStringA(section, key, value); });
  }
};

json Bytes(const BYTE* data, DWORD size) {
  return data ? Text(std::string(reinterpret_cast<const char*>(data), size)) : json(nullptr);
}

// What an enumeration gave back: the bytes it needs and the entries it wrote.
json Counts(const DWORD* needed, const DWORD* returned) {
  json out = json::object();
  if (needed) out["needed"] = *needed;
  if (returned) out["returned"] = *returned;
  return out;
}

class TracedRegistry : public platform::Registry {
 public:
  platform::Registry* inner = nullptr;
  LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    return Traced("RegOpenKeyA", json::array({Handle(key), Text(subKey)}),
                  [&] { return inner->RegOpenKeyA(key, subKey, result); },
                  [&] { return result ? Handle(*result) : json(nullptr); });
  }
  LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    return Traced("RegCreateKeyA", json::array({Handle(key), Text(subKey)}),
                  [&] { return inner->RegCreateKeyA(key, subKey, result); },
                  [&] { return result ? Handle(*result) : json(nullptr); });
  }
  LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataSize) override {
    LONG r = ERROR_SUCCESS;
    return Traced(
        "RegQueryValueExA", json::array({Handle(key), Text(valueName), dataSize ? json(*dataSize) : json(nullptr)}),
        [&] { return r = inner->RegQueryValueExA(key, valueName, reserved, type, data, dataSize); },
        [&] {
          json out = json::object();
          if (type) out["type"] = *type;
          if (dataSize) out["size"] = *dataSize;
          if (data && dataSize && r == ERROR_SUCCESS) out["data"] = Bytes(data, *dataSize);
          return out;
        });
  }
  LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                      DWORD dataSize) override {
    return Traced("RegSetValueExA",
                  json::array({Handle(key), Text(valueName), type, Bytes(data, dataSize), dataSize}),
                  [&] { return inner->RegSetValueExA(key, valueName, reserved, type, data, dataSize); });
  }
  LONG RegCloseKey(HKEY key) override {
    return Traced("RegCloseKey", json::array({Handle(key)}), [&] { return inner->RegCloseKey(key); });
  }
  LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize, LPDWORD reserved, LPSTR className,
                     LPDWORD classSize, PFILETIME lastWriteTime) override {
    LONG r = ERROR_SUCCESS;
    return Traced("RegEnumKeyExA", json::array({Handle(key), index, nameSize ? json(*nameSize) : json(nullptr)}),
                  [&] { return r = inner->RegEnumKeyExA(key, index, name, nameSize, reserved, className, classSize,
                                                        lastWriteTime); },
                  [&] { return r == ERROR_SUCCESS && name && nameSize ? Buffer(name, *nameSize + 1) : json(nullptr); });
  }
  LONG RegEnumValueA(HKEY key, DWORD index, LPSTR valueName, LPDWORD valueNameSize, LPDWORD reserved, LPDWORD type,
                     LPBYTE data, LPDWORD dataSize) override {
    LONG r = ERROR_SUCCESS;
    return Traced(
        "RegEnumValueA",
        json::array({Handle(key), index, valueNameSize ? json(*valueNameSize) : json(nullptr),
                     dataSize ? json(*dataSize) : json(nullptr)}),
        [&] { return r = inner->RegEnumValueA(key, index, valueName, valueNameSize, reserved, type, data, dataSize); },
        [&] {
          json out = json::object();
          if (r != ERROR_SUCCESS) return out;
          if (valueName && valueNameSize) out["name"] = Buffer(valueName, *valueNameSize + 1);
          if (type) out["type"] = *type;
          if (dataSize) out["size"] = *dataSize;
          if (data && dataSize) out["data"] = Bytes(data, *dataSize);
          return out;
        });
  }
  std::string GetSetting(const std::string& application, const std::string& section, const std::string& key,
                         const std::string& defaultValue) override {
    return Traced("GetSetting", json::array({Text(application), Text(section), Text(key), Text(defaultValue)}),
                  [&] { return inner->GetSetting(application, section, key, defaultValue); });
  }
  platform::Failure SaveSetting(const std::string& application, const std::string& section, const std::string& key,
                                const std::string& value) override {
    return Traced("SaveSetting", json::array({Text(application), Text(section), Text(key), Text(value)}),
                  [&] { return inner->SaveSetting(application, section, key, value); });
  }
};

class TracedEventLog : public platform::EventLog {
 public:
  platform::EventLog* inner = nullptr;
  HANDLE RegisterEventSourceA(LPCSTR server, LPCSTR source) override {
    return Traced("RegisterEventSourceA", json::array({Text(server), Text(source)}),
                  [&] { return inner->RegisterEventSourceA(server, source); });
  }
  BOOL ReportEventA(HANDLE source, WORD type, WORD category, DWORD eventId, PSID user, WORD numStrings,
                    DWORD dataSize, LPCSTR* strings, LPVOID rawData) override {
    json texts = json::array();
    for (WORD i = 0; strings && i < numStrings; ++i) texts.push_back(Text(strings[i]));
    return Traced(
        "ReportEventA",
        json::array({Handle(source), type, category, eventId, Handle(user), numStrings, dataSize, texts}),
        [&] { return inner->ReportEventA(source, type, category, eventId, user, numStrings, dataSize, strings, rawData); });
  }
  BOOL DeregisterEventSource(HANDLE source) override {
    return Traced("DeregisterEventSource", json::array({Handle(source)}),
                  [&] { return inner->DeregisterEventSource(source); });
  }
};

class TracedFiles : public platform::Files {
 public:
  platform::Files* inner = nullptr;
  std::string FirstFile(const std::string& pattern) override {
    return Traced("FirstFile", json::array({Text(pattern)}), [&] { return inner->FirstFile(pattern); });
  }
  platform::Failure ReadText(const std::string& path, std::string& content) override {
    return Traced("ReadText", json::array({Text(path)}), [&] { return inner->ReadText(path, content); },
                  [&] { return Text(content); });
  }
  platform::Failure AppendText(const std::string& path, const std::string& content) override {
    return Traced("AppendText", json::array({Text(path), Text(content)}),
                  [&] { return inner->AppendText(path, content); });
  }
  platform::Failure ReplaceText(const std::string& path, const std::string& content) override {
    return Traced("ReplaceText", json::array({Text(path), Text(content)}),
                  [&] { return inner->ReplaceText(path, content); });
  }
  platform::Failure WriteBinary(const std::string& path, const std::vector<uint8_t>& bytes) override {
    // The bytes by their number only.
    return Traced("WriteBinary", json::array({Text(path), bytes.size()}),
                  [&] { return inner->WriteBinary(path, bytes); });
  }
  platform::Failure FileCopy(const std::string& source, const std::string& target) override {
    return Traced("FileCopy", json::array({Text(source), Text(target)}),
                  [&] { return inner->FileCopy(source, target); });
  }
  DWORD GetFileAttributesA(LPCSTR fileName) override {
    return Traced("GetFileAttributesA", json::array({Text(fileName)}),
                  [&] { return inner->GetFileAttributesA(fileName); });
  }
};

class TracedClock : public platform::Clock {
 public:
  platform::Clock* inner = nullptr;
  platform::LocalTime Now() override { return Traced("Now", json::array(), [&] { return inner->Now(); }); }
  std::string GeneralDateText(const platform::LocalTime& time) override {
    return Traced("GeneralDateText", json::array({Result(time)}), [&] { return inner->GeneralDateText(time); });
  }
  void Sleep(DWORD milliseconds) override {
    Traced("Sleep", json::array({milliseconds}), [&] { inner->Sleep(milliseconds); });
  }
};

class TracedUserInterface : public platform::UserInterface {
 public:
  platform::UserInterface* inner = nullptr;
  int MessageBox(const std::string& text, const std::string& title, UINT style) override {
    return Traced("MessageBox", json::array({Text(text), Text(title), style}),
                  [&] { return inner->MessageBox(text, title, style); });
  }
  void DoEvents() override { Traced("DoEvents", json::array(), [&] { inner->DoEvents(); }); }
  void WaitForEvents() override { Traced("WaitForEvents", json::array(), [&] { inner->WaitForEvents(); }); }
  int CreateTimer(platform::TimerEvents* owner, DWORD intervalMs, bool enabled) override {
    return Traced("CreateTimer", json::array({intervalMs, enabled}),
                  [&] { return inner->CreateTimer(owner, intervalMs, enabled); });
  }
  void EnableTimer(int timer, bool enabled) override {
    Traced("EnableTimer", json::array({timer, enabled}), [&] { inner->EnableTimer(timer, enabled); });
  }
  void DestroyTimer(int timer) override {
    Traced("DestroyTimer", json::array({timer}), [&] { inner->DestroyTimer(timer); });
  }
  HWND CreateProgressWindow() override {
    return Traced("CreateProgressWindow", json::array(), [&] { return inner->CreateProgressWindow(); });
  }
  void ShowProgressWindow() override {
    Traced("ShowProgressWindow", json::array(), [&] { inner->ShowProgressWindow(); });
  }
  void SetProgressLabel(const std::string& text) override {
    Traced("SetProgressLabel", json::array({Text(text)}), [&] { inner->SetProgressLabel(text); });
  }
  void SetProgressBar(int maximum, int value) override {
    Traced("SetProgressBar", json::array({maximum, value}), [&] { inner->SetProgressBar(maximum, value); });
  }
  void MoveProgressBar(int value) override {
    Traced("MoveProgressBar", json::array({value}), [&] { inner->MoveProgressBar(value); });
  }
  void RedrawProgressWindow() override {
    Traced("RedrawProgressWindow", json::array(), [&] { inner->RedrawProgressWindow(); });
  }
  void DestroyProgressWindow() override {
    Traced("DestroyProgressWindow", json::array(), [&] { inner->DestroyProgressWindow(); });
  }
};

class TracedSockets : public platform::Sockets {
 public:
  platform::Sockets* inner = nullptr;
  int CreateSocket(platform::SocketEvents* owner) override {
    return Traced("CreateSocket", json::array(), [&] { return inner->CreateSocket(owner); });
  }
  void DestroySocket(int socket) override {
    Traced("DestroySocket", json::array({socket}), [&] { inner->DestroySocket(socket); });
  }
  platform::Failure Connect(int socket, const std::string& host, const std::string& port) override {
    return Traced("Connect", json::array({socket, Text(host), Text(port)}),
                  [&] { return inner->Connect(socket, host, port); });
  }
  platform::Failure SendData(int socket, const std::string& data) override {
    return Traced("SendData", json::array({socket, Text(data)}), [&] { return inner->SendData(socket, data); });
  }
  std::string GetData(int socket) override {
    return Traced("GetData", json::array({socket}), [&] { return inner->GetData(socket); });
  }
  void Close(int socket) override { Traced("Close", json::array({socket}), [&] { inner->Close(socket); }); }
  int State(int socket) override {
    return Traced("State", json::array({socket}), [&] { return inner->State(socket); });
  }
  std::string LocalHostName() override {
    return Traced("LocalHostName", json::array(), [&] { return inner->LocalHostName(); });
  }
};

json PrinterInfoJson(DWORD level, LPBYTE buffer) {
  if (level != 2 || !buffer) return nullptr;
  PRINTER_INFO_2A info;
  std::memcpy(&info, buffer, sizeof info);
  return json{{"pServerName", Text(info.pServerName)}, {"pPrinterName", Text(info.pPrinterName)},
              {"pShareName", Text(info.pShareName)},   {"pPortName", Text(info.pPortName)},
              {"pDriverName", Text(info.pDriverName)}, {"pComment", Text(info.pComment)},
              {"pLocation", Text(info.pLocation)},     {"Attributes", info.Attributes}};
}

class TracedSpooler : public platform::Spooler {
 public:
  platform::Spooler* inner = nullptr;
  bool UserPrinters(std::vector<std::string>& deviceNames) override {
    bool r = false;
    return Traced(
        "UserPrinters", json::array(), [&] { return r = inner->UserPrinters(deviceNames); },
        [&] {
          json names = json::array();
          for (const std::string& name : deviceNames) names.push_back(Text(name));
          return r ? names : json(nullptr);
        });
  }
  BOOL OpenPrinterA(LPSTR printerName, HANDLE* printer, PRINTER_DEFAULTSA* defaults) override {
    json access = defaults ? json{{"DesiredAccess", defaults->DesiredAccess}} : json(nullptr);
    return Traced("OpenPrinterA", json::array({Text(printerName), access}),
                  [&] { return inner->OpenPrinterA(printerName, printer, defaults); },
                  [&] { return printer ? Handle(*printer) : json(nullptr); });
  }
  BOOL ClosePrinter(HANDLE printer) override {
    return Traced("ClosePrinter", json::array({Handle(printer)}), [&] { return inner->ClosePrinter(printer); });
  }
  BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed) override {
    BOOL r = FALSE;
    return Traced(
        "GetPrinterA", json::array({Handle(printer), level, buffer ? json(size) : json(nullptr)}),
        [&] { return r = inner->GetPrinterA(printer, level, buffer, size, needed); },
        [&] {
          json out = json::object();
          if (needed) out["needed"] = *needed;
          if (r) out["info"] = PrinterInfoJson(level, buffer);
          return out;
        });
  }
  BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) override {
    return Traced("SetPrinterA", json::array({Handle(printer), level, PrinterInfoJson(level, buffer), command}),
                  [&] { return inner->SetPrinterA(printer, level, buffer, command); });
  }
  BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                     LPDWORD returned) override {
    return Traced("EnumPrintersA", json::array({flags, Text(name), level, buffer ? json(size) : json(nullptr)}),
                  [&] { return inner->EnumPrintersA(flags, name, level, buffer, size, needed, returned); },
                  [&] { return Counts(needed, returned); });
  }
  BOOL EnumPrinterDriversA(LPSTR name, LPSTR environment, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                           LPDWORD returned) override {
    return Traced("EnumPrinterDriversA",
                  json::array({Text(name), Text(environment), level, buffer ? json(size) : json(nullptr)}),
                  [&] { return inner->EnumPrinterDriversA(name, environment, level, buffer, size, needed, returned); },
                  [&] { return Counts(needed, returned); });
  }
  BOOL EnumPortsA(LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) override {
    return Traced("EnumPortsA", json::array({Text(name), level, buffer ? json(size) : json(nullptr)}),
                  [&] { return inner->EnumPortsA(name, level, buffer, size, needed, returned); },
                  [&] { return Counts(needed, returned); });
  }
  BOOL GetDefaultPrinterA(LPSTR buffer, LPDWORD size) override {
    DWORD capacity = size ? *size : 0;
    BOOL r = FALSE;
    return Traced("GetDefaultPrinterA", json::array({capacity}),
                  [&] { return r = inner->GetDefaultPrinterA(buffer, size); },
                  [&] { return r ? Buffer(buffer, capacity) : json(nullptr); });
  }
  BOOL SetDefaultPrinterA(LPCSTR printerName) override {
    return Traced("SetDefaultPrinterA", json::array({Text(printerName)}),
                  [&] { return inner->SetDefaultPrinterA(printerName); });
  }
  BOOL AddPrinterConnectionA(LPSTR name) override {
    return Traced("AddPrinterConnectionA", json::array({Text(name)}),
                  [&] { return inner->AddPrinterConnectionA(name); });
  }
  BOOL DeletePrinterConnectionA(LPSTR name) override {
    return Traced("DeletePrinterConnectionA", json::array({Text(name)}),
                  [&] { return inner->DeletePrinterConnectionA(name); });
  }
  BOOL DeletePrinter(HANDLE printer) override {
    return Traced("DeletePrinter", json::array({Handle(printer)}), [&] { return inner->DeletePrinter(printer); });
  }
  BOOL AddPrinterDriverA(LPSTR name, DWORD level, LPBYTE driverInfo) override {
    json info = nullptr;
    if (level == 2 && driverInfo) {
      DRIVER_INFO_2A d;
      std::memcpy(&d, driverInfo, sizeof d);
      info = json{{"cVersion", d.cVersion},           {"pName", Text(d.pName)},
                  {"pEnvironment", Text(d.pEnvironment)}, {"pDriverPath", Text(d.pDriverPath)},
                  {"pDataFile", Text(d.pDataFile)},    {"pConfigFile", Text(d.pConfigFile)}};
    }
    return Traced("AddPrinterDriverA", json::array({Text(name), level, info}),
                  [&] { return inner->AddPrinterDriverA(name, level, driverInfo); });
  }
  HANDLE AddPrinterA(LPSTR name, DWORD level, LPBYTE printerInfo) override {
    return Traced("AddPrinterA", json::array({Text(name), level, PrinterInfoJson(level, printerInfo)}),
                  [&] { return inner->AddPrinterA(name, level, printerInfo); });
  }
  BOOL AddPortA(LPSTR name, HWND window, LPSTR monitorName) override {
    return Traced("AddPortA", json::array({Text(name), Handle(window), Text(monitorName)}),
                  [&] { return inner->AddPortA(name, window, monitorName); });
  }
};

class TracedDirectory : public platform::Directory {
 public:
  platform::Directory* inner = nullptr;
  platform::Failure BindObject(const std::string& path, std::string& adsPath) override {
    platform::Failure r;
    return Traced("BindObject", json::array({Text(path)}), [&] { return r = inner->BindObject(path, adsPath); },
                  [&] { return r.failed() ? json(nullptr) : Text(adsPath); });
  }
  platform::Failure Execute(const std::string& commandText, std::vector<platform::DirectoryRow>& rows) override {
    // The rows by their number only.
    return Traced("Execute", json::array({Text(commandText)}), [&] { return inner->Execute(commandText, rows); },
                  [&] { return json(rows.size()); });
  }
};

}  // namespace

platform::ServiceSet TracedServices(const platform::ServiceSet& inner) {
  static TracedSystem system;
  static TracedProfile profile;
  static TracedRegistry registry;
  static TracedEventLog eventLog;
  static TracedFiles files;
  static TracedClock clock;
  static TracedUserInterface ui;
  static TracedSockets sockets;
  static TracedSpooler spooler;
  static TracedDirectory directory;
  system.inner = inner.system;
  profile.inner = inner.profile;
  registry.inner = inner.registry;
  eventLog.inner = inner.eventLog;
  files.inner = inner.files;
  clock.inner = inner.clock;
  ui.inner = inner.ui;
  sockets.inner = inner.sockets;
  spooler.inner = inner.spooler;
  directory.inner = inner.directory;
  return {{}, &system, &profile, &registry, &eventLog, &files, &clock, &ui, &sockets, &spooler, &directory};
}

}  // namespace sim
