//===- NativeConsole.cpp - Standard output and error on Windows -*- C++ -*-===//
//
// Text for whoever started the process: the programs are of the window
// subsystem, so that none opens a console window at logon.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - A standard handle the process was given is used as it is (a redirected
//   file or pipe). Without one, the process attaches to its parent's
//   console, once, if the parent has one (AttachConsole exists from Windows
//   XP on and is looked up at run time); otherwise the text goes nowhere.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeLibraries.h"
#include "platform/native/NativeServices.h"

#include <windows.h>

namespace platform::native {

namespace {

HANDLE ParentConsole() {
  static const HANDLE console = [] {
    typedef BOOL(WINAPI * AttachConsoleFn)(DWORD);
    auto attach = FindEntry<AttachConsoleFn>(::GetModuleHandleA("kernel32.dll"), "AttachConsole");
    if (!attach || !attach(ATTACH_PARENT_PROCESS)) return HANDLE(nullptr);
    HANDLE handle = ::CreateFileA("CONOUT$", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
    return handle == INVALID_HANDLE_VALUE ? HANDLE(nullptr) : handle;
  }();
  return console;
}

}  // namespace

void WriteStandard(DWORD which, const std::string& text) {
  HANDLE handle = ::GetStdHandle(which);
  if (!handle || handle == INVALID_HANDLE_VALUE) handle = ParentConsole();
  if (!handle || text.empty()) return;
  DWORD written = 0;
  ::WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

}  // namespace platform::native
