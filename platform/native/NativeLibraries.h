//===- NativeLibraries.h - Libraries loaded at their first use --*- C++ -*-===//
//
// The functions of system libraries that only some runs need, found when a
// library is first used.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - ZandolinEngine.exe imports neither the spooler (winspool.drv) nor the
//   window manager (user32.dll) nor the graphics interface (gdi32.dll): a run
//   that takes the already-succeeded path with no window and no pop-up loads
//   none of them. scripts/build-windows.sh fails when one is imported again.
//   Their functions are reached through a table of the library, made at the
//   first call of any of them (WinspoolFunctions() in NativeSpooler.cpp,
//   User32Functions() in NativeUserInterface.cpp, ...).
// - Every generation of Windows has these libraries, and the functions taken
//   with ZANDOLIN_ENTRY are in every generation too. Should a library or a
//   function be missing all the same, the table holds a stand-in that sets
//   ERROR_CALL_NOT_IMPLEMENTED and returns 0, as a call that a generation
//   lacks fails everywhere else (GetDefaultPrinterA on Windows 95/98/ME).
// - Only the A functions are taken: the W ones are missing on Windows
//   95/98/ME.
// - Every library is loaded from the system folder by its full path
//   (LoadSystemLibrary), never by its bare name: the search for a bare name
//   looks in the engine's own folder first, the deployment share, so that a
//   DLL of the same name put there would run in every user's logon.
//
//===----------------------------------------------------------------------===//
#pragma once

#include <windows.h>

#include <string>

namespace platform::native {

// The system library `name` (a file name, e.g. "winspool.drv"), loaded from
// the system folder (GetSystemDirectoryA: C:\WINDOWS\SYSTEM on Windows
// 95/98/ME, the System32 folder on NT); null when it is missing there.
inline HMODULE LoadSystemLibrary(const char* name) {
  char folder[MAX_PATH];
  const UINT length = ::GetSystemDirectoryA(folder, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return nullptr;
  std::string path(folder, length);
  if (path.back() != '\\') path += '\\';  // the folder is a drive's root
  path += name;
  return ::LoadLibraryA(path.c_str());
}

// The stand-in for a missing function of the type Fn.
template <class Fn>
struct MissingEntry;

template <class R, class... A>
struct MissingEntry<R(WINAPI*)(A...)> {
  static R WINAPI Call(A...) {
    ::SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return R();
  }
};

// The function of that name in the module; null when the module or the
// function is missing.
template <class Fn>
Fn FindEntry(HMODULE module, const char* name) {
  FARPROC entry = module ? ::GetProcAddress(module, name) : nullptr;
  return reinterpret_cast<Fn>(reinterpret_cast<void*>(entry));
}

// The function of that name in the module, or its stand-in.
template <class Fn>
Fn EntryOrStandIn(HMODULE module, const char* name) {
  Fn entry = FindEntry<Fn>(module, name);
  return entry ? entry : &MissingEntry<Fn>::Call;
}

}  // namespace platform::native

// A member of a library's table: the function `name` of the member `module`,
// with the type its declaration in <windows.h> gives.
#define ZANDOLIN_ENTRY(name) \
  decltype(&::name) name = ::platform::native::EntryOrStandIn<decltype(&::name)>(module, #name)
