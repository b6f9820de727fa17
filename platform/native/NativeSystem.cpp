//===- NativeSystem.cpp - System information on Windows ---------*- C++ -*-===//
//
// The version, folders, user, process token, computer name, command line and
// application path of the running process.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Each Win32-named method calls SetLastError(0) and then the real call with
//   the same arguments; GetLastError() afterwards is that call's own.
// - GetUserProfileDirectoryA lives in userenv.dll, which Windows 95/98/ME do
//   not have: it is resolved at run time and fails with
//   ERROR_CALL_NOT_IMPLEMENTED where it is missing.
// - The computer's name is its NetBIOS name, as the network object reports
//   it; creating that object cannot fail here.
// - IsUserAnAdmin asks CheckTokenMembership (advapi32, Windows 2000 on),
//   resolved at run time; NT 4 lacks it and is asked through the token's
//   groups; Windows 95/98/ME know no rights and answer TRUE.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeLibraries.h"
#include "platform/native/NativeServices.h"

#include <windows.h>

#include <vector>

namespace platform::native {

namespace {

typedef BOOL(WINAPI* GetUserProfileDirectoryAFn)(HANDLE, LPSTR, LPDWORD);

GetUserProfileDirectoryAFn ResolveGetUserProfileDirectoryA() {
  static const GetUserProfileDirectoryAFn fn =
      FindEntry<GetUserProfileDirectoryAFn>(LoadSystemLibrary("userenv.dll"), "GetUserProfileDirectoryA");
  return fn;
}

// The security calls of advapi32 that IsUserAnAdmin needs, looked up at run
// time: Windows 95/98/ME may lack them, and CheckTokenMembership exists from
// Windows 2000 on (null before).
struct SecurityCalls {
  HMODULE module = ::GetModuleHandleA("advapi32.dll");
  ZANDOLIN_ENTRY(AllocateAndInitializeSid);
  ZANDOLIN_ENTRY(FreeSid);
  ZANDOLIN_ENTRY(EqualSid);
  ZANDOLIN_ENTRY(GetTokenInformation);
  decltype(&::CheckTokenMembership) CheckTokenMembership =
      FindEntry<decltype(&::CheckTokenMembership)>(module, "CheckTokenMembership");
};

const SecurityCalls& Security() {
  static const SecurityCalls calls;
  return calls;
}

// NT 4: whether the process token's groups hold the group, enabled.
BOOL TokenHoldsEnabledGroup(const SecurityCalls& calls, PSID group) {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return FALSE;
  DWORD size = 0;
  calls.GetTokenInformation(token, TokenGroups, nullptr, 0, &size);
  std::vector<BYTE> buffer(size ? size : 1);
  BOOL found = FALSE;
  if (size && calls.GetTokenInformation(token, TokenGroups, buffer.data(), size, &size)) {
    const auto* groups = reinterpret_cast<const TOKEN_GROUPS*>(buffer.data());
    for (DWORD i = 0; i < groups->GroupCount && !found; ++i)
      found = (groups->Groups[i].Attributes & SE_GROUP_ENABLED) &&
              calls.EqualSid(groups->Groups[i].Sid, group);
  }
  ::CloseHandle(token);
  return found;
}

class NativeSystem final : public System {
 public:
  DWORD GetLastError() override { return ::GetLastError(); }
  void SetLastError(DWORD code) override { ::SetLastError(code); }

  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    ::SetLastError(0);
    return ::GetVersionExA(info);
  }
  UINT GetSystemDirectoryA(LPSTR buffer, UINT size) override {
    ::SetLastError(0);
    return ::GetSystemDirectoryA(buffer, size);
  }
  UINT GetWindowsDirectoryA(LPSTR buffer, UINT size) override {
    ::SetLastError(0);
    return ::GetWindowsDirectoryA(buffer, size);
  }
  DWORD GetFullPathNameA(LPCSTR fileName, DWORD size, LPSTR buffer, LPSTR* filePart) override {
    ::SetLastError(0);
    return ::GetFullPathNameA(fileName, size, buffer, filePart);
  }
  UINT GetACP() override {
    ::SetLastError(0);
    return ::GetACP();
  }
  DWORD GetTempPathA(DWORD size, LPSTR buffer) override {
    ::SetLastError(0);
    return ::GetTempPathA(size, buffer);
  }
  BOOL GetUserNameA(LPSTR buffer, LPDWORD size) override {
    ::SetLastError(0);
    return ::GetUserNameA(buffer, size);
  }
  HANDLE GetCurrentProcess() override {
    ::SetLastError(0);
    return ::GetCurrentProcess();
  }
  BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) override {
    ::SetLastError(0);
    return ::OpenProcessToken(process, access, token);
  }
  BOOL GetUserProfileDirectoryA(HANDLE token, LPSTR dir, LPDWORD size) override {
    GetUserProfileDirectoryAFn fn = ResolveGetUserProfileDirectoryA();
    ::SetLastError(0);
    if (!fn) {
      ::SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
      return FALSE;
    }
    return fn(token, dir, size);
  }

  BOOL IsUserAnAdmin() override {
    ::SetLastError(0);
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (::GetVersionExA(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS)
      return TRUE;
    const SecurityCalls& calls = Security();
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    PSID administrators = nullptr;
    if (!calls.AllocateAndInitializeSid(&nt, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS,
                                        0, 0, 0, 0, 0, 0, &administrators))
      return FALSE;
    BOOL member = FALSE;
    if (calls.CheckTokenMembership) {
      if (!calls.CheckTokenMembership(nullptr, administrators, &member)) member = FALSE;
    } else {
      member = TokenHoldsEnabledGroup(calls, administrators);
    }
    calls.FreeSid(administrators);
    return member;
  }

  Failure CreateNetworkObject() override { return {}; }

  Failure NetworkComputerName(std::string& name) override {
    char buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof buffer;
    if (!::GetComputerNameA(buffer, &size)) {
      name.clear();
      return {440, "Automation error"};
    }
    name.assign(buffer, size);
    return {};
  }

  std::string CommandLine() override { return TextAfterProgramName(::GetCommandLineA()); }

  std::string AppPath() override {
    std::vector<char> buffer(MAX_PATH + 1);
    for (;;) {
      const DWORD size = static_cast<DWORD>(buffer.size());
      const DWORD length = ::GetModuleFileNameA(nullptr, buffer.data(), size);
      if (length == 0) return {};
      if (length < buffer.size() - 1) return FolderOfPath(std::string(buffer.data(), length));
      buffer.resize(buffer.size() * 2);  // the name was cut: try a larger buffer
    }
  }

  std::u16string AnsiToUtf16(const std::string& text) override {
    if (text.empty()) return {};
    const int size = static_cast<int>(text.size());
    const int length = ::MultiByteToWideChar(CP_ACP, 0, text.data(), size, nullptr, 0);
    if (length <= 0) return {};
    std::wstring wide(static_cast<size_t>(length), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), length);
    return std::u16string(wide.begin(), wide.end());
  }
};

}  // namespace

std::string TextAfterProgramName(const char* commandLine) {
  if (!commandLine) return {};
  const unsigned char* p = reinterpret_cast<const unsigned char*>(commandLine);
  if (*p == '"') {
    ++p;
    while (*p && *p != '"') ++p;
    if (*p == '"') ++p;
  } else {
    while (*p > ' ') ++p;
  }
  while (*p && *p <= ' ') ++p;
  return reinterpret_cast<const char*>(p);
}

std::string FolderOfPath(const std::string& path) {
  size_t slash = path.find_last_of('\\');
  if (slash == std::string::npos) return {};
  std::string folder = path.substr(0, slash);
  if (folder.size() == 2 && folder[1] == ':') folder += '\\';
  return folder;
}

System& SystemService() {
  static NativeSystem service;
  return service;
}

}  // namespace platform::native
