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
  static GetUserProfileDirectoryAFn fn = [] {
    HMODULE module = LoadSystemLibrary("userenv.dll");
    if (!module) return GetUserProfileDirectoryAFn(nullptr);
    void* entry = reinterpret_cast<void*>(::GetProcAddress(module, "GetUserProfileDirectoryA"));
    return reinterpret_cast<GetUserProfileDirectoryAFn>(entry);
  }();
  return fn;
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
