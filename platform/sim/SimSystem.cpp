// System information of the simulated client: version, folders, user,
// process token, the computer's name, the command line and the code page.
// Names and folders of machine.json reach the engine in the ANSI code page.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

namespace sim {

namespace {

// The process's pseudo handle, as Windows gives it.
HANDLE const kCurrentProcess = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
constexpr DWORD kErrorNotLoggedOn = 1245;   // ERROR_NOT_LOGGED_ON

// The build number Windows reports for a version; 0 when not known.
DWORD BuildNumber(uint32_t platformId, uint32_t major, uint32_t minor) {
  struct Build {
    uint32_t platformId, major, minor;
    DWORD build;
  };
  static const Build kBuilds[] = {
      {1, 4, 0, 950},  {1, 4, 10, 2222}, {1, 4, 90, 3000}, {2, 3, 51, 1057}, {2, 4, 0, 1381},
      {2, 5, 0, 2195}, {2, 5, 1, 2600},  {2, 5, 2, 3790},  {2, 6, 0, 6002},  {2, 6, 1, 7601},
      {2, 6, 2, 9200}, {2, 6, 3, 9600},  {2, 10, 0, 19045}};
  for (const Build& b : kBuilds)
    if (b.platformId == platformId && b.major == major && b.minor == minor) return b.build;
  return 0;
}

// Copies text into a buffer the Windows way of GetSystemDirectoryA: the
// length without NUL on success, the size needed (with NUL) when too small.
DWORD CopyPathOut(const std::string& text, char* buffer, DWORD size) {
  if (!buffer || size < text.size() + 1) return static_cast<DWORD>(text.size() + 1);
  CopyWithNul(buffer, text);
  return static_cast<DWORD>(text.size());
}

// A Windows path made absolute the way GetFullPathNameA does, without looking
// at the drives: a relative path is taken from currentDir, "/" becomes "\",
// "." and ".." are applied, and trailing dots and blanks of a name go.
std::string FullWindowsPath(const std::string& path, const std::string& currentDir) {
  std::string text = path;
  for (char& ch : text)
    if (ch == '/') ch = '\\';
  auto isDrive = [](const std::string& t) {
    return t.size() >= 2 && std::isalpha(static_cast<unsigned char>(t[0])) && t[1] == ':';
  };
  // \\server\share is the root of a UNC path; what follows is relative to it.
  auto uncRoot = [](const std::string& t) {
    size_t server = t.find('\\', 2);
    return t.substr(0, server == std::string::npos ? server : t.find('\\', server + 1));
  };
  std::string root, rest;
  if (text.rfind("\\\\", 0) == 0) {
    root = uncRoot(text);
    rest = text.substr(root.size());
  } else if (isDrive(text) && text.size() > 2 && text[2] == '\\') {
    root = text.substr(0, 2);
    rest = text.substr(2);
  } else {
    const std::string cwdRoot = currentDir.rfind("\\\\", 0) == 0 ? uncRoot(currentDir)
                                : isDrive(currentDir)            ? currentDir.substr(0, 2)
                                                                 : "C:";
    if (isDrive(text)) {
      const bool onCwdDrive = std::toupper(static_cast<unsigned char>(text[0])) ==
                              std::toupper(static_cast<unsigned char>(cwdRoot[0]));
      root = text.substr(0, 2);
      rest = (onCwdDrive ? currentDir.substr(2) : std::string()) + "\\" + text.substr(2);
    } else if (!text.empty() && text[0] == '\\') {
      root = cwdRoot;
      rest = text;
    } else {
      root = cwdRoot;
      rest = currentDir.substr(std::min(cwdRoot.size(), currentDir.size())) + "\\" + text;
    }
  }
  std::vector<std::string> names;
  std::string name;
  for (char ch : rest + "\\") {
    if (ch != '\\') {
      name += ch;
      continue;
    }
    if (name == "..") {
      if (!names.empty()) names.pop_back();
    } else if (name != ".") {
      while (!name.empty() && (name.back() == '.' || name.back() == ' ')) name.pop_back();
      if (!name.empty()) names.push_back(name);
    }
    name.clear();
  }
  std::string full = root;
  for (const std::string& n : names) full += "\\" + n;
  // A name ending in a backslash keeps it, and so does a drive's root.
  if ((names.empty() && root.rfind("\\\\", 0) != 0) || text.back() == '\\') full += "\\";
  return full;
}

class SimSystem : public platform::System {
 public:
  DWORD GetLastError() override { return Current().lastError; }

  void SetLastError(DWORD code) override { Current().lastError = code; }

  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetVersionExA", "")) return static_cast<BOOL>(f->result);
    if (!info || info->dwOSVersionInfoSize < sizeof(OSVERSIONINFOA)) {
      c.lastError = ERROR_INSUFFICIENT_BUFFER;
      return FALSE;
    }
    if (c.machine.versionError > 0) {
      c.lastError = c.machine.versionError;
      return FALSE;
    }
    info->dwMajorVersion = c.machine.majorVersion;
    info->dwMinorVersion = c.machine.minorVersion;
    info->dwBuildNumber = BuildNumber(c.machine.platformId, c.machine.majorVersion, c.machine.minorVersion);
    if (c.machine.platformId == 1)
      info->dwBuildNumber |= (c.machine.majorVersion & 0xFF) << 24 | (c.machine.minorVersion & 0xFF) << 16;
    info->dwPlatformId = c.machine.platformId;
    std::memset(info->szCSDVersion, 0, sizeof(info->szCSDVersion));
    return TRUE;
  }

  UINT GetSystemDirectoryA(LPSTR buffer, UINT size) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetSystemDirectoryA", "")) return static_cast<UINT>(f->result);
    return CopyPathOut(ToAnsi(c.machine.systemDir), buffer, size);
  }

  UINT GetWindowsDirectoryA(LPSTR buffer, UINT size) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetWindowsDirectoryA", "")) return static_cast<UINT>(f->result);
    return CopyPathOut(ToAnsi(c.machine.windowsDir), buffer, size);
  }

  DWORD GetFullPathNameA(LPCSTR fileName, DWORD size, LPSTR buffer, LPSTR* filePart) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetFullPathNameA", ArgText(fileName)))
      return static_cast<DWORD>(f->result);
    if (!fileName || !*fileName) {
      c.lastError = ERROR_INVALID_NAME;
      return 0;
    }
    // Made in machine text, where no byte of a character is a backslash, as
    // Windows makes it in Unicode; a trail byte of the code page may be one.
    const std::string full = FullWindowsPath(ArgText(fileName), c.CurrentDir());
    const std::string ansiFull = ToAnsi(full);
    const DWORD length = CopyPathOut(ansiFull, buffer, size);
    if (length == ansiFull.size() && filePart) {
      const size_t slash = full.find_last_of('\\');
      *filePart = slash + 1 < full.size() ? buffer + ToAnsi(full.substr(0, slash + 1)).size() : nullptr;
    }
    return length;
  }

  UINT GetACP() override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetACP", "")) return static_cast<UINT>(f->result);
    return c.machine.ansiCodePage;
  }

  DWORD GetTempPathA(DWORD size, LPSTR buffer) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetTempPathA", "")) return static_cast<DWORD>(f->result);
    return CopyPathOut(ToAnsi(c.machine.tempDir), buffer, size);
  }

  BOOL GetUserNameA(LPSTR buffer, LPDWORD size) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetUserNameA", "")) return static_cast<BOOL>(f->result);
    if (!c.machine.userName) {
      c.lastError = kErrorNotLoggedOn;
      return FALSE;
    }
    if (!size) {
      c.lastError = ERROR_INVALID_PARAMETER;   // Windows faults here; refuse instead
      return FALSE;
    }
    const std::string name = ToAnsi(*c.machine.userName);
    DWORD needed = static_cast<DWORD>(name.size() + 1);
    if (!buffer || *size < needed) {
      *size = needed;
      c.lastError = ERROR_INSUFFICIENT_BUFFER;
      return FALSE;
    }
    CopyWithNul(buffer, name);
    *size = needed;
    return TRUE;
  }

  HANDLE GetCurrentProcess() override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetCurrentProcess", ""))
      return reinterpret_cast<HANDLE>(static_cast<intptr_t>(f->result));
    return kCurrentProcess;
  }

  BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("OpenProcessToken", "")) return static_cast<BOOL>(f->result);
    if (process != kCurrentProcess || !token) {
      c.lastError = ERROR_INVALID_HANDLE;
      return FALSE;
    }
    uintptr_t handle = c.nextHandle++;
    c.tokens[handle] = true;
    *token = reinterpret_cast<HANDLE>(handle);
    return TRUE;
  }

  BOOL GetUserProfileDirectoryA(HANDLE token, LPSTR dir, LPDWORD size) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetUserProfileDirectoryA", "")) return static_cast<BOOL>(f->result);
    if (!c.tokens.count(reinterpret_cast<uintptr_t>(token))) {
      c.lastError = ERROR_INVALID_HANDLE;
      return FALSE;
    }
    if (!size) {
      c.lastError = ERROR_INVALID_PARAMETER;
      return FALSE;
    }
    const std::string profile = ToAnsi(c.machine.profileDir);
    DWORD needed = static_cast<DWORD>(profile.size() + 1);
    if (!dir || *size < needed) {
      *size = needed;
      c.lastError = ERROR_INSUFFICIENT_BUFFER;
      return FALSE;
    }
    CopyWithNul(dir, profile);
    *size = needed;
    return TRUE;
  }

  BOOL IsUserAnAdmin() override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("IsUserAnAdmin", "")) return static_cast<BOOL>(f->result);
    // Windows 95/98/ME know no rights: every user may do everything.
    return c.machine.platformId == 1 || c.machine.isAdmin ? TRUE : FALSE;
  }

  platform::Failure CreateNetworkObject() override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("CreateNetworkObject", "")) return StandardFailure(f->lastError);
    if (!c.machine.computerName) return StandardFailure(429);
    return {};
  }

  platform::Failure NetworkComputerName(std::string& name) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("NetworkComputerName", "")) return StandardFailure(f->lastError);
    if (!c.machine.computerName) return StandardFailure(91);
    name = ToAnsi(*c.machine.computerName);
    return {};
  }

  std::string CommandLine() override {
    Context& c = Current();
    if (c.TakeFault("CommandLine", "")) return "";
    return ToAnsi(c.commandLine);
  }

  std::string AppPath() override {
    Context& c = Current();
    if (c.TakeFault("AppPath", "")) return "";
    return ToAnsi(c.CurrentDir());
  }

  std::u16string AnsiToUtf16(const std::string& text) override {
    Context& c = Current();
    if (c.TakeFault("AnsiToUtf16", std::string())) return u"";
    return c.AnsiCodePage().ToUtf16(text);
  }
};

}  // namespace

// Text of the A-calls as the engine's wide-character side sees it, in the
// client's ANSI code page.
std::u16string Utf16FromAnsi(const std::string& text) {
  return Current().AnsiCodePage().ToUtf16(text);
}

platform::System& SystemService() {
  static SimSystem service;
  return service;
}

}  // namespace sim
