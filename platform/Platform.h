// The platform boundary: the one interface through which the engine touches
// the operating system.
//
// Rules for every implementation:
// - Methods named after a Win32 call take that call's arguments and keep its
//   success convention: a return value, and a last error read with
//   System::GetLastError() right after the call. An implementation sets the
//   last error to 0 before each such call, so the code the engine reads is
//   always that call's own.
// - What the original platform gave through its runtime and controls (files,
//   the clock, the message box, the progress window, sockets, the timer, the
//   directory) reports an expected failure as a Failure value, never as an
//   exception.
// - Events (socket connect, data arrival, socket error, timer tick) are
//   delivered only inside UserInterface::DoEvents(), on the calling thread.
//
// The engine reaches the active implementation through Services(); tests may
// install a wrapper with SetServices() to count calls or inject failures.
#pragma once

#include "platform/Win32Types.h"

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

// A failed operation of the runtime kind: a number and the system's
// description of it. Number 0 is success; file failures are above 0, the
// directory's are HRESULT-style and negative.
struct Failure {
  int32_t Number = 0;
  std::string Description;
  bool failed() const { return Number != 0; }
};

// Run-time error numbers and texts the implementations report for files.
inline constexpr int32_t kErrBadFileNameOrNumber = 52;   // "Bad file name or number"
inline constexpr int32_t kErrFileNotFound = 53;          // "File not found"
inline constexpr int32_t kErrPermissionDenied = 70;      // "Permission denied"
inline constexpr int32_t kErrPathFileAccess = 75;        // "Path/File access error"
inline constexpr int32_t kErrPathNotFound = 76;          // "Path not found"
Failure MakeFailure(int32_t number);  // number with its standard description

// Local date and time.
struct LocalTime {
  int Year = 0, Month = 0, Day = 0, Hour = 0, Minute = 0, Second = 0;
};

// Below HKEY_CURRENT_USER: the root of the engine's per-user settings.
// A setting lives at <root>\<application>\<section>, in the value <key>.
inline constexpr const char* kSettingsRoot = "Software\\Zandolin Engine";

class System {
 public:
  virtual ~System() = default;
  virtual DWORD GetLastError() = 0;
  virtual void SetLastError(DWORD code) = 0;
  virtual BOOL GetVersionExA(OSVERSIONINFOA* info) = 0;
  virtual UINT GetSystemDirectoryA(LPSTR buffer, UINT size) = 0;
  virtual UINT GetWindowsDirectoryA(LPSTR buffer, UINT size) = 0;
  virtual DWORD GetFullPathNameA(LPCSTR fileName, DWORD size, LPSTR buffer, LPSTR* filePart) = 0;
  // The ANSI code page through which the A-calls carry text.
  virtual UINT GetACP() = 0;
  virtual DWORD GetTempPathA(DWORD size, LPSTR buffer) = 0;
  virtual BOOL GetUserNameA(LPSTR buffer, LPDWORD size) = 0;
  virtual HANDLE GetCurrentProcess() = 0;
  virtual BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) = 0;
  virtual BOOL GetUserProfileDirectoryA(HANDLE token, LPSTR dir, LPDWORD size) = 0;
  // As shell32's IsUserAnAdmin: whether the process's token holds the
  // Administrators group, enabled (so a process that User Account Control
  // started with a filtered token is no administrator). Windows 95/98/ME
  // know no rights: there every user is one.
  virtual BOOL IsUserAnAdmin() = 0;
  // The automation object "WScript.Network": creating it, then reading its
  // property ComputerName.
  virtual Failure CreateNetworkObject() = 0;
  virtual Failure NetworkComputerName(std::string& name) = 0;
  // The process's command line after the program's name, untouched.
  virtual std::string CommandLine() = 0;
  // The folder of the executable; a trailing backslash only on a drive root.
  virtual std::string AppPath() = 0;
  // Text in the system's ANSI code page to UTF-16.
  virtual std::u16string AnsiToUtf16(const std::string& text) = 0;
};

class Profile {
 public:
  virtual ~Profile() = default;
  virtual DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue,
                                         LPSTR buffer, DWORD size, LPCSTR fileName) = 0;
  virtual DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue,
                                  LPSTR buffer, DWORD size) = 0;
  virtual BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) = 0;
};

class Registry {
 public:
  virtual ~Registry() = default;
  virtual LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result) = 0;
  virtual LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result) = 0;
  virtual LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type,
                                LPBYTE data, LPDWORD dataSize) = 0;
  virtual LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD reserved, DWORD type,
                              const BYTE* data, DWORD dataSize) = 0;
  virtual LONG RegCloseKey(HKEY key) = 0;
  // Sub-keys in the registry's order (by name, case-blind), values in the
  // order they were made; ERROR_NO_MORE_ITEMS past the last.
  virtual LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize,
                             LPDWORD reserved, LPSTR className, LPDWORD classSize,
                             PFILETIME lastWriteTime) = 0;
  virtual LONG RegEnumValueA(HKEY key, DWORD index, LPSTR valueName, LPDWORD valueNameSize,
                             LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD dataSize) = 0;
  // Per-user settings below kSettingsRoot. GetSetting gives defaultValue when
  // the value is absent; SaveSetting creates the keys it needs.
  virtual std::string GetSetting(const std::string& application, const std::string& section,
                                 const std::string& key, const std::string& defaultValue) = 0;
  virtual Failure SaveSetting(const std::string& application, const std::string& section,
                              const std::string& key, const std::string& value) = 0;
};

class EventLog {
 public:
  virtual ~EventLog() = default;
  virtual HANDLE RegisterEventSourceA(LPCSTR server, LPCSTR source) = 0;
  virtual BOOL ReportEventA(HANDLE source, WORD type, WORD category, DWORD eventId, PSID user,
                            WORD numStrings, DWORD dataSize, LPCSTR* strings, LPVOID rawData) = 0;
  virtual BOOL DeregisterEventSource(HANDLE source) = 0;
};

class Files {
 public:
  virtual ~Files() = default;
  // The name (without folder) of the first normal file matching the pattern
  // ("C:\Deploy\*.ini"), in the file system's order; empty when none.
  virtual std::string FirstFile(const std::string& pattern) = 0;
  // The whole content of a text file opened for input.
  virtual Failure ReadText(const std::string& path, std::string& content) = 0;
  // Opens for append (creating the file) and adds content with one write.
  virtual Failure AppendText(const std::string& path, const std::string& content) = 0;
  // Replaces the file's content in one step: the new content is written
  // beside the file and then takes its place, so a reader finds either the
  // old file or the new one.
  virtual Failure ReplaceText(const std::string& path, const std::string& content) = 0;
  // Writes bytes from the file's first byte; creates the file when missing
  // and does not truncate it when it is longer.
  virtual Failure WriteBinary(const std::string& path, const std::vector<uint8_t>& bytes) = 0;
  // Copies one file, replacing a target that exists.
  virtual Failure FileCopy(const std::string& source, const std::string& target) = 0;
  // Whether a file or folder exists, and which: INVALID_FILE_ATTRIBUTES
  // with the last error when it does not.
  virtual DWORD GetFileAttributesA(LPCSTR fileName) = 0;
};

class Clock {
 public:
  virtual ~Clock() = default;
  virtual LocalTime Now() = 0;
  // The system's general text form of a date and time.
  virtual std::string GeneralDateText(const LocalTime& time) = 0;
  // Blocks for the given time; events are not pumped meanwhile.
  virtual void Sleep(DWORD milliseconds) = 0;
};

// Receives the events of a socket; they arrive only inside DoEvents().
class SocketEvents {
 public:
  virtual ~SocketEvents() = default;
  virtual void OnConnect() = 0;
  virtual void OnDataArrival(long bytesTotal) = 0;
  virtual void OnError(int32_t number, const std::string& description) = 0;
};

// Receives the ticks of a timer; they arrive only inside DoEvents().
class TimerEvents {
 public:
  virtual ~TimerEvents() = default;
  virtual void OnTimer() = 0;
};

// Socket states, as the socket control numbers them.
enum SocketState : int {
  kSocketClosed = 0,
  kSocketConnecting = 6,
  kSocketConnected = 7,
  kSocketClosing = 8,
  kSocketError = 9,
};

class Sockets {
 public:
  virtual ~Sockets() = default;
  virtual int CreateSocket(SocketEvents* owner) = 0;
  virtual void DestroySocket(int socket) = 0;
  // Starts a non-blocking TCP connection; the outcome arrives as an event.
  virtual Failure Connect(int socket, const std::string& host, const std::string& port) = 0;
  virtual Failure SendData(int socket, const std::string& data) = 0;
  virtual std::string GetData(int socket) = 0;
  virtual void Close(int socket) = 0;
  virtual int State(int socket) = 0;
  virtual std::string LocalHostName() = 0;
};

class UserInterface {
 public:
  virtual ~UserInterface() = default;
  // A modal message box; returns the button pressed.
  virtual int MessageBox(const std::string& text, const std::string& title, UINT style) = 0;
  // One round of pending window messages, socket events and timer ticks.
  virtual void DoEvents() = 0;
  // Waits until an event may be pending (a message, a socket event, a
  // timer tick), then runs one round as DoEvents does. The idle loop after
  // Main uses it so that a waiting process does not spin.
  virtual void WaitForEvents() { DoEvents(); }
  // A timer with the given interval; ticks while enabled.
  virtual int CreateTimer(TimerEvents* owner, DWORD intervalMs, bool enabled) = 0;
  virtual void EnableTimer(int timer, bool enabled) = 0;
  virtual void DestroyTimer(int timer) = 0;
  // The progress window: made hidden, shown later; one at a time.
  virtual HWND CreateProgressWindow() = 0;
  virtual void ShowProgressWindow() = 0;
  virtual void SetProgressLabel(const std::string& text) = 0;
  virtual void SetProgressBar(int maximum, int value) = 0;
  // The bar's step of one progress statement (the wrap from 100 to 1
  // included); counted apart from the settings of the start and the finish.
  virtual void MoveProgressBar(int value) = 0;
  virtual void RedrawProgressWindow() = 0;
  virtual void DestroyProgressWindow() = 0;
};

class Spooler {
 public:
  virtual ~Spooler() = default;
  // The device names of the printers the current user can print to, network
  // connections and local printers alike. False when the list cannot be had.
  virtual bool UserPrinters(std::vector<std::string>& deviceNames) = 0;
  virtual BOOL OpenPrinterA(LPSTR printerName, HANDLE* printer, PRINTER_DEFAULTSA* defaults) = 0;
  virtual BOOL ClosePrinter(HANDLE printer) = 0;
  virtual BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size,
                           LPDWORD needed) = 0;
  virtual BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) = 0;
  virtual BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size,
                             LPDWORD needed, LPDWORD returned) = 0;
  virtual BOOL GetDefaultPrinterA(LPSTR buffer, LPDWORD size) = 0;
  virtual BOOL SetDefaultPrinterA(LPCSTR printerName) = 0;
  virtual BOOL AddPrinterConnectionA(LPSTR name) = 0;
  virtual BOOL DeletePrinterConnectionA(LPSTR name) = 0;
  virtual BOOL DeletePrinter(HANDLE printer) = 0;
  virtual BOOL AddPrinterDriverA(LPSTR name, DWORD level, LPBYTE driverInfo) = 0;
  virtual HANDLE AddPrinterA(LPSTR name, DWORD level, LPBYTE printerInfo) = 0;
  virtual BOOL AddPortA(LPSTR name, HWND window, LPSTR monitorName) = 0;
  virtual BOOL EnumPrinterDriversA(LPSTR name, LPSTR environment, DWORD level, LPBYTE buffer,
                                   DWORD size, LPDWORD needed, LPDWORD returned) = 0;
  virtual BOOL EnumPortsA(LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                          LPDWORD returned) = 0;
};

// One row of the directory query: the attributes "name" and "printShareName".
struct DirectoryRow {
  bool hasName = false;
  std::string name;
  std::vector<std::string> printShareName;  // empty when absent
};

class Directory {
 public:
  virtual ~Directory() = default;
  // Binds the object named path ("LDAP://" + domain) and gives its AdsPath.
  virtual Failure BindObject(const std::string& path, std::string& adsPath) = 0;
  // Runs the query text ("Select name, printShareName FROM '<AdsPath>' WHERE
  // objectCategory='printQueue'") and gives its rows in result order.
  virtual Failure Execute(const std::string& commandText, std::vector<DirectoryRow>& rows) = 0;
};

// Progress pulses taken without a call of the platform. A long loop pulses
// the progress window once a step (redraw, one move of the bar, one pump);
// when the progress window exists and the platform knows that nothing can
// come due before a number of further steps (no timer, no socket, no
// paint), it grants that many at its pump, and the engine then only counts
// them here. Any other use of the platform by the engine takes the grant
// back. The platform counts the pulses taken as moves of the bar the next
// time it is called, or reports them.
struct QuietPulses {
  int64_t taken = 0;     // pulses taken so that the platform has not counted yet
  int64_t granted = 0;   // while taken is below it, the next pulse may be taken so
  int value = 0;         // the bar's value after the last of them
};

struct ServiceSet {
  QuietPulses pulses;
  System* system = nullptr;
  Profile* profile = nullptr;
  Registry* registry = nullptr;
  EventLog* eventLog = nullptr;
  Files* files = nullptr;
  Clock* clock = nullptr;
  UserInterface* ui = nullptr;
  Sockets* sockets = nullptr;
  Spooler* spooler = nullptr;
  Directory* directory = nullptr;
};

extern ServiceSet gServices;
inline ServiceSet& Services() { return gServices; }
void SetServices(const ServiceSet& services);

}  // namespace platform
