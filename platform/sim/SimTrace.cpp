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

namespace sim {

namespace {

using nlohmann::json;

constexpr size_t kLongestText = 512;
constexpr size_t kLongestFold = 4;   // calls in a folded block

json Text(const std::string& text) {
  if (text.size() <= kLongestText) return text;
  return text.substr(0, kLongestText) + "[... " + std::to_string(text.size()) + " characters]";
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

// A void call.
template <class F>
void Record(const char* call, json args, F&& f) {
  size_t at = Begin(call, std::move(args));
  f();
  End(at, nullptr);
}

class TracedSystem : public platform::System {
 public:
  platform::System* inner = nullptr;
  DWORD GetLastError() override {
    size_t at = Begin("GetLastError", json::array());
    DWORD r = inner->GetLastError();
    End(at, r);
    return r;
  }
  void SetLastError(DWORD code) override {
    Record("SetLastError", json::array({code}), [&] { inner->SetLastError(code); });
  }
  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    size_t at = Begin("GetVersionExA", json::array({info ? json(info->dwOSVersionInfoSize) : json(nullptr)}));
    BOOL r = inner->GetVersionExA(info);
    End(at, r, info ? json{{"platformId", info->dwPlatformId}, {"majorVersion", info->dwMajorVersion},
                           {"minorVersion", info->dwMinorVersion}}
                    : json(nullptr));
    return r;
  }
  UINT GetSystemDirectoryA(LPSTR buffer, UINT size) override {
    size_t at = Begin("GetSystemDirectoryA", json::array({size}));
    UINT r = inner->GetSystemDirectoryA(buffer, size);
    End(at, r, Buffer(buffer, size));
    return r;
  }
  DWORD GetTempPathA(DWORD size, LPSTR buffer) override {
    size_t at = Begin("GetTempPathA", json::array({size}));
    DWORD r = inner->GetTempPathA(size, buffer);
    End(at, r, Buffer(buffer, size));
    return r;
  }
  BOOL GetUserNameA(LPSTR buffer, LPDWORD size) override {
    DWORD capacity = size ? *size : 0;
    size_t at = Begin("GetUserNameA", json::array({capacity}));
    BOOL r = inner->GetUserNameA(buffer, size);
    End(at, r, Buffer(buffer, capacity));
    return r;
  }
  HANDLE GetCurrentProcess() override {
    size_t at = Begin("GetCurrentProcess", json::array());
    HANDLE r = inner->GetCurrentProcess();
    End(at, Handle(r));
    return r;
  }
  BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) override {
    size_t at = Begin("OpenProcessToken", json::array({Handle(process), access}));
    BOOL r = inner->OpenProcessToken(process, access, token);
    End(at, r, token ? Handle(*token) : json(nullptr));
    return r;
  }
  BOOL GetUserProfileDirectoryA(HANDLE token, LPSTR dir, LPDWORD size) override {
    DWORD capacity = size ? *size : 0;
    size_t at = Begin("GetUserProfileDirectoryA", json::array({Handle(token), capacity}));
    BOOL r = inner->GetUserProfileDirectoryA(token, dir, size);
    End(at, r, Buffer(dir, capacity));
    return r;
  }
  platform::Failure CreateNetworkObject() override {
    size_t at = Begin("CreateNetworkObject", json::array());
    platform::Failure r = inner->CreateNetworkObject();
    End(at, FailureJson(r));
    return r;
  }
  platform::Failure NetworkComputerName(std::string& name) override {
    size_t at = Begin("NetworkComputerName", json::array());
    platform::Failure r = inner->NetworkComputerName(name);
    End(at, FailureJson(r), Text(name));
    return r;
  }
  std::string CommandLine() override {
    size_t at = Begin("CommandLine", json::array());
    std::string r = inner->CommandLine();
    End(at, Text(r));
    return r;
  }
  std::string AppPath() override {
    size_t at = Begin("AppPath", json::array());
    std::string r = inner->AppPath();
    End(at, Text(r));
    return r;
  }
  std::u16string AnsiToUtf16(const std::string& text) override {
    size_t at = Begin("AnsiToUtf16", json::array({Text(text)}));
    std::u16string r = inner->AnsiToUtf16(text);
    End(at, r.size());   // the length in UTF-16 units
    return r;
  }
};

class TracedProfile : public platform::Profile {
 public:
  platform::Profile* inner = nullptr;
  DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                                 DWORD size, LPCSTR fileName) override {
    size_t at = Begin("GetPrivateProfileStringA",
                      json::array({Text(section), Text(key), Text(defaultValue), size, Text(fileName)}));
    DWORD r = inner->GetPrivateProfileStringA(section, key, defaultValue, buffer, size, fileName);
    End(at, r, buffer ? Text(std::string(buffer, std::min<DWORD>(r, size))) : json(nullptr));
    return r;
  }
  DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                          DWORD size) override {
    size_t at = Begin("GetProfileStringA", json::array({Text(section), Text(key), Text(defaultValue), size}));
    DWORD r = inner->GetProfileStringA(section, key, defaultValue, buffer, size);
    End(at, r, buffer ? Text(std::string(buffer, std::min<DWORD>(r, size))) : json(nullptr));
    return r;
  }
  BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) override {
    size_t at = Begin("WriteProfileStringA", json::array({Text(section), Text(key), Text(value)}));
    BOOL r = inner->WriteProfileStringA(section, key, value);
    End(at, r);
    return r;
  }
};

class TracedRegistry : public platform::Registry {
 public:
  platform::Registry* inner = nullptr;
  LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    size_t at = Begin("RegOpenKeyA", json::array({Handle(key), Text(subKey)}));
    LONG r = inner->RegOpenKeyA(key, subKey, result);
    End(at, r, result ? Handle(*result) : json(nullptr));
    return r;
  }
  LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    size_t at = Begin("RegCreateKeyA", json::array({Handle(key), Text(subKey)}));
    LONG r = inner->RegCreateKeyA(key, subKey, result);
    End(at, r, result ? Handle(*result) : json(nullptr));
    return r;
  }
  LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataSize) override {
    size_t at = Begin("RegQueryValueExA",
                      json::array({Handle(key), Text(valueName), dataSize ? json(*dataSize) : json(nullptr)}));
    LONG r = inner->RegQueryValueExA(key, valueName, reserved, type, data, dataSize);
    json out = json::object();
    if (type) out["type"] = *type;
    if (dataSize) out["size"] = *dataSize;
    if (data && dataSize && r == ERROR_SUCCESS)
      out["data"] = Text(std::string(reinterpret_cast<const char*>(data), *dataSize));
    End(at, r, out);
    return r;
  }
  LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                      DWORD dataSize) override {
    json bytes = data ? Text(std::string(reinterpret_cast<const char*>(data), dataSize)) : json(nullptr);
    size_t at = Begin("RegSetValueExA", json::array({Handle(key), Text(valueName), type, bytes, dataSize}));
    LONG r = inner->RegSetValueExA(key, valueName, reserved, type, data, dataSize);
    End(at, r);
    return r;
  }
  LONG RegCloseKey(HKEY key) override {
    size_t at = Begin("RegCloseKey", json::array({Handle(key)}));
    LONG r = inner->RegCloseKey(key);
    End(at, r);
    return r;
  }
  std::string GetSetting(const std::string& application, const std::string& section, const std::string& key,
                         const std::string& defaultValue) override {
    size_t at = Begin("GetSetting", json::array({Text(application), Text(section), Text(key), Text(defaultValue)}));
    std::string r = inner->GetSetting(application, section, key, defaultValue);
    End(at, Text(r));
    return r;
  }
  platform::Failure SaveSetting(const std::string& application, const std::string& section,
                                const std::string& key, const std::string& value) override {
    size_t at = Begin("SaveSetting", json::array({Text(application), Text(section), Text(key), Text(value)}));
    platform::Failure r = inner->SaveSetting(application, section, key, value);
    End(at, FailureJson(r));
    return r;
  }
};

class TracedEventLog : public platform::EventLog {
 public:
  platform::EventLog* inner = nullptr;
  HANDLE RegisterEventSourceA(LPCSTR server, LPCSTR source) override {
    size_t at = Begin("RegisterEventSourceA", json::array({Text(server), Text(source)}));
    HANDLE r = inner->RegisterEventSourceA(server, source);
    End(at, Handle(r));
    return r;
  }
  BOOL ReportEventA(HANDLE source, WORD type, WORD category, DWORD eventId, PSID user, WORD numStrings,
                    DWORD dataSize, LPCSTR* strings, LPVOID rawData) override {
    json texts = json::array();
    for (WORD i = 0; strings && i < numStrings; ++i) texts.push_back(Text(strings[i]));
    size_t at = Begin("ReportEventA", json::array({Handle(source), type, category, eventId, Handle(user),
                                                   numStrings, dataSize, texts}));
    BOOL r = inner->ReportEventA(source, type, category, eventId, user, numStrings, dataSize, strings, rawData);
    End(at, r);
    return r;
  }
  BOOL DeregisterEventSource(HANDLE source) override {
    size_t at = Begin("DeregisterEventSource", json::array({Handle(source)}));
    BOOL r = inner->DeregisterEventSource(source);
    End(at, r);
    return r;
  }
};

class TracedFiles : public platform::Files {
 public:
  platform::Files* inner = nullptr;
  std::string FirstFile(const std::string& pattern) override {
    size_t at = Begin("FirstFile", json::array({Text(pattern)}));
    std::string r = inner->FirstFile(pattern);
    End(at, Text(r));
    return r;
  }
  platform::Failure ReadText(const std::string& path, std::string& content) override {
    size_t at = Begin("ReadText", json::array({Text(path)}));
    platform::Failure r = inner->ReadText(path, content);
    End(at, FailureJson(r), r.failed() ? json(nullptr) : Text(content));
    return r;
  }
  platform::Failure AppendText(const std::string& path, const std::string& content) override {
    size_t at = Begin("AppendText", json::array({Text(path), Text(content)}));
    platform::Failure r = inner->AppendText(path, content);
    End(at, FailureJson(r));
    return r;
  }
  platform::Failure ReplaceText(const std::string& path, const std::string& content) override {
    size_t at = Begin("ReplaceText", json::array({Text(path), Text(content)}));
    platform::Failure r = inner->ReplaceText(path, content);
    End(at, FailureJson(r));
    return r;
  }
  platform::Failure WriteBinary(const std::string& path, const std::vector<uint8_t>& bytes) override {
    size_t at = Begin("WriteBinary", json::array({Text(path), bytes.size()}));   // the size only
    platform::Failure r = inner->WriteBinary(path, bytes);
    End(at, FailureJson(r));
    return r;
  }
  platform::Failure FileCopy(const std::string& source, const std::string& target) override {
    size_t at = Begin("FileCopy", json::array({Text(source), Text(target)}));
    platform::Failure r = inner->FileCopy(source, target);
    End(at, FailureJson(r));
    return r;
  }
};

class TracedClock : public platform::Clock {
 public:
  platform::Clock* inner = nullptr;
  platform::LocalTime Now() override {
    size_t at = Begin("Now", json::array());
    platform::LocalTime r = inner->Now();
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", r.Year, r.Month, r.Day, r.Hour,
                  r.Minute, r.Second);
    End(at, text);
    return r;
  }
  std::string GeneralDateText(const platform::LocalTime& time) override {
    size_t at = Begin("GeneralDateText", json::array());
    std::string r = inner->GeneralDateText(time);
    End(at, Text(r));
    return r;
  }
  void Sleep(DWORD milliseconds) override {
    Record("Sleep", json::array({milliseconds}), [&] { inner->Sleep(milliseconds); });
  }
};

class TracedUserInterface : public platform::UserInterface {
 public:
  platform::UserInterface* inner = nullptr;
  int MessageBox(const std::string& text, const std::string& title, UINT style) override {
    size_t at = Begin("MessageBox", json::array({Text(text), Text(title), style}));
    int r = inner->MessageBox(text, title, style);
    End(at, r);
    return r;
  }
  void DoEvents() override { Record("DoEvents", json::array(), [&] { inner->DoEvents(); }); }
  void WaitForEvents() override { Record("WaitForEvents", json::array(), [&] { inner->WaitForEvents(); }); }
  int CreateTimer(platform::TimerEvents* owner, DWORD intervalMs, bool enabled) override {
    size_t at = Begin("CreateTimer", json::array({intervalMs, enabled}));
    int r = inner->CreateTimer(owner, intervalMs, enabled);
    End(at, r);
    return r;
  }
  void EnableTimer(int timer, bool enabled) override {
    Record("EnableTimer", json::array({timer, enabled}), [&] { inner->EnableTimer(timer, enabled); });
  }
  void DestroyTimer(int timer) override {
    Record("DestroyTimer", json::array({timer}), [&] { inner->DestroyTimer(timer); });
  }
  HWND CreateProgressWindow() override {
    size_t at = Begin("CreateProgressWindow", json::array());
    HWND r = inner->CreateProgressWindow();
    End(at, Handle(r));
    return r;
  }
  void ShowProgressWindow() override {
    Record("ShowProgressWindow", json::array(), [&] { inner->ShowProgressWindow(); });
  }
  void SetProgressLabel(const std::string& text) override {
    Record("SetProgressLabel", json::array({Text(text)}), [&] { inner->SetProgressLabel(text); });
  }
  void SetProgressBar(int maximum, int value) override {
    Record("SetProgressBar", json::array({maximum, value}), [&] { inner->SetProgressBar(maximum, value); });
  }
  void MoveProgressBar(int value) override {
    Record("MoveProgressBar", json::array({value}), [&] { inner->MoveProgressBar(value); });
  }
  void RedrawProgressWindow() override {
    Record("RedrawProgressWindow", json::array(), [&] { inner->RedrawProgressWindow(); });
  }
  void DestroyProgressWindow() override {
    Record("DestroyProgressWindow", json::array(), [&] { inner->DestroyProgressWindow(); });
  }
};

class TracedSockets : public platform::Sockets {
 public:
  platform::Sockets* inner = nullptr;
  int CreateSocket(platform::SocketEvents* owner) override {
    size_t at = Begin("CreateSocket", json::array());
    int r = inner->CreateSocket(owner);
    End(at, r);
    return r;
  }
  void DestroySocket(int socket) override {
    Record("DestroySocket", json::array({socket}), [&] { inner->DestroySocket(socket); });
  }
  platform::Failure Connect(int socket, const std::string& host, const std::string& port) override {
    size_t at = Begin("Connect", json::array({socket, Text(host), Text(port)}));
    platform::Failure r = inner->Connect(socket, host, port);
    End(at, FailureJson(r));
    return r;
  }
  platform::Failure SendData(int socket, const std::string& data) override {
    size_t at = Begin("SendData", json::array({socket, Text(data)}));
    platform::Failure r = inner->SendData(socket, data);
    End(at, FailureJson(r));
    return r;
  }
  std::string GetData(int socket) override {
    size_t at = Begin("GetData", json::array({socket}));
    std::string r = inner->GetData(socket);
    End(at, Text(r));
    return r;
  }
  void Close(int socket) override { Record("Close", json::array({socket}), [&] { inner->Close(socket); }); }
  int State(int socket) override {
    size_t at = Begin("State", json::array({socket}));
    int r = inner->State(socket);
    End(at, r);
    return r;
  }
  std::string LocalHostName() override {
    size_t at = Begin("LocalHostName", json::array());
    std::string r = inner->LocalHostName();
    End(at, Text(r));
    return r;
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
    size_t at = Begin("UserPrinters", json::array());
    bool r = inner->UserPrinters(deviceNames);
    json names = json::array();
    for (const std::string& name : deviceNames) names.push_back(Text(name));
    End(at, r, r ? names : json(nullptr));
    return r;
  }
  BOOL OpenPrinterA(LPSTR printerName, HANDLE* printer, PRINTER_DEFAULTSA* defaults) override {
    size_t at = Begin("OpenPrinterA", json::array({Text(printerName),
                                                   defaults ? json{{"DesiredAccess", defaults->DesiredAccess}}
                                                            : json(nullptr)}));
    BOOL r = inner->OpenPrinterA(printerName, printer, defaults);
    End(at, r, printer ? Handle(*printer) : json(nullptr));
    return r;
  }
  BOOL ClosePrinter(HANDLE printer) override {
    size_t at = Begin("ClosePrinter", json::array({Handle(printer)}));
    BOOL r = inner->ClosePrinter(printer);
    End(at, r);
    return r;
  }
  BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed) override {
    size_t at = Begin("GetPrinterA", json::array({Handle(printer), level, buffer ? json(size) : json(nullptr)}));
    BOOL r = inner->GetPrinterA(printer, level, buffer, size, needed);
    json out = json::object();
    if (needed) out["needed"] = *needed;
    if (r) out["info"] = PrinterInfoJson(level, buffer);
    End(at, r, out);
    return r;
  }
  BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) override {
    size_t at = Begin("SetPrinterA", json::array({Handle(printer), level, PrinterInfoJson(level, buffer), command}));
    BOOL r = inner->SetPrinterA(printer, level, buffer, command);
    End(at, r);
    return r;
  }
  BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                     LPDWORD returned) override {
    size_t at = Begin("EnumPrintersA",
                      json::array({flags, Text(name), level, buffer ? json(size) : json(nullptr)}));
    BOOL r = inner->EnumPrintersA(flags, name, level, buffer, size, needed, returned);
    json out = json::object();
    if (needed) out["needed"] = *needed;
    if (returned) out["returned"] = *returned;
    End(at, r, out);
    return r;
  }
  BOOL GetDefaultPrinterA(LPSTR buffer, LPDWORD size) override {
    DWORD capacity = size ? *size : 0;
    size_t at = Begin("GetDefaultPrinterA", json::array({capacity}));
    BOOL r = inner->GetDefaultPrinterA(buffer, size);
    End(at, r, r ? Buffer(buffer, capacity) : json(nullptr));
    return r;
  }
  BOOL SetDefaultPrinterA(LPCSTR printerName) override {
    size_t at = Begin("SetDefaultPrinterA", json::array({Text(printerName)}));
    BOOL r = inner->SetDefaultPrinterA(printerName);
    End(at, r);
    return r;
  }
  BOOL AddPrinterConnectionA(LPSTR name) override {
    size_t at = Begin("AddPrinterConnectionA", json::array({Text(name)}));
    BOOL r = inner->AddPrinterConnectionA(name);
    End(at, r);
    return r;
  }
  BOOL DeletePrinterConnectionA(LPSTR name) override {
    size_t at = Begin("DeletePrinterConnectionA", json::array({Text(name)}));
    BOOL r = inner->DeletePrinterConnectionA(name);
    End(at, r);
    return r;
  }
  BOOL DeletePrinter(HANDLE printer) override {
    size_t at = Begin("DeletePrinter", json::array({Handle(printer)}));
    BOOL r = inner->DeletePrinter(printer);
    End(at, r);
    return r;
  }
  BOOL AddPrinterDriverA(LPSTR name, DWORD level, LPBYTE driverInfo) override {
    json info = nullptr;
    if (level == 2 && driverInfo) {
      DRIVER_INFO_2A d;
      std::memcpy(&d, driverInfo, sizeof d);
      info = json{{"cVersion", d.cVersion},          {"pName", Text(d.pName)},
                  {"pEnvironment", Text(d.pEnvironment)}, {"pDriverPath", Text(d.pDriverPath)},
                  {"pDataFile", Text(d.pDataFile)},   {"pConfigFile", Text(d.pConfigFile)}};
    }
    size_t at = Begin("AddPrinterDriverA", json::array({Text(name), level, info}));
    BOOL r = inner->AddPrinterDriverA(name, level, driverInfo);
    End(at, r);
    return r;
  }
  HANDLE AddPrinterA(LPSTR name, DWORD level, LPBYTE printerInfo) override {
    size_t at = Begin("AddPrinterA", json::array({Text(name), level, PrinterInfoJson(level, printerInfo)}));
    HANDLE r = inner->AddPrinterA(name, level, printerInfo);
    End(at, Handle(r));
    return r;
  }
  BOOL AddPortA(LPSTR name, HWND window, LPSTR monitorName) override {
    size_t at = Begin("AddPortA", json::array({Text(name), Handle(window), Text(monitorName)}));
    BOOL r = inner->AddPortA(name, window, monitorName);
    End(at, r);
    return r;
  }
};

class TracedDirectory : public platform::Directory {
 public:
  platform::Directory* inner = nullptr;
  platform::Failure BindObject(const std::string& path, std::string& adsPath) override {
    size_t at = Begin("BindObject", json::array({Text(path)}));
    platform::Failure r = inner->BindObject(path, adsPath);
    End(at, FailureJson(r), r.failed() ? json(nullptr) : Text(adsPath));
    return r;
  }
  platform::Failure Execute(const std::string& commandText, std::vector<platform::DirectoryRow>& rows) override {
    size_t at = Begin("Execute", json::array({Text(commandText)}));
    platform::Failure r = inner->Execute(commandText, rows);
    End(at, FailureJson(r), rows.size());   // the number of rows
    return r;
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
  return {&system, &profile, &registry, &eventLog, &files, &clock, &ui, &sockets, &spooler, &directory};
}

}  // namespace sim
