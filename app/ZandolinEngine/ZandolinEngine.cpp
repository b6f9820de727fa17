// ZandolinEngine.exe: the engine on the real operating system.
//
// Installs the native platform services and runs the engine process once. A
// fatal stop is written to standard error as
// "Run-time error '<number>': <description>" and ends the process with the
// error number as its exit code; any other end gives exit code 0.
#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "platform/native/NativeServices.h"

#include <windows.h>

#include <string>

namespace {

// The standard error handle; a process without one (started from a console
// window without redirection) writes to the console of its parent.
HANDLE StandardError() {
  HANDLE handle = ::GetStdHandle(STD_ERROR_HANDLE);
  if (handle && handle != INVALID_HANDLE_VALUE) return handle;
  typedef BOOL(WINAPI * AttachConsoleFn)(DWORD);
  auto attach = reinterpret_cast<AttachConsoleFn>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "AttachConsole")));
  if (!attach || !attach(ATTACH_PARENT_PROCESS)) return nullptr;
  handle = ::CreateFileA("CONOUT$", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                         OPEN_EXISTING, 0, nullptr);
  return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

void ReportFatal(const FatalError& fatal) {
  const std::string text = "Run-time error '" + std::to_string(fatal.Number) + "': " +
                           fatal.Description + "\r\n";
  if (HANDLE handle = StandardError()) {
    DWORD written = 0;
    ::WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  platform::native::InstallNativeServices();
  try {
    RunEngineProcess();
  } catch (const FatalError& fatal) {
    ReportFatal(fatal);
    return fatal.Number;
  }
  return 0;
}
