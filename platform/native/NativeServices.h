//===- NativeServices.h - The platform boundary on Windows ------*- C++ -*-===//
//
// The services of platform/Platform.h served by the real operating system.
// Compiled only for Windows.
//
//===----------------------------------------------------------------------===//
//
// Rules for every file of platform/native:
// - A method named after a Win32 call clears the thread's last error and then
//   makes that very call with the same arguments, so that GetLastError()
//   afterwards is the call's own. Nothing runs between the call and the
//   engine's look at the last error.
// - A call that some generation of Windows lacks (Windows 95/98/ME, NT 4) is
//   resolved at run time and fails with ERROR_CALL_NOT_IMPLEMENTED where it
//   is missing, so that the executable starts on every generation.
// - Runtime-style operations (files, settings) report failures as
//   platform::Failure values with the run-time numbers of Platform.h; no
//   exception leaves this folder.
//
//===----------------------------------------------------------------------===//
#pragma once

#include "platform/Platform.h"

#include <string>

namespace platform::native {

System& SystemService();
Profile& ProfileService();
Registry& RegistryService();
EventLog& EventLogService();
Files& FilesService();
Clock& ClockService();
UserInterface& UserInterfaceService();
Sockets& SocketsService();
Spooler& SpoolerService();
Directory& DirectoryService();

// All of the above, gathered.
ServiceSet MakeServiceSet();
// Makes the native services the active platform.
void InstallNativeServices();

// A Win32 error code as a run-time failure of the file kind: 2 -> 53,
// 3 -> 76, 5 -> 70, 123 -> 52, anything else -> 75.
Failure FileFailure(DWORD win32Error);

// The text after the program's name in a process command line, as the C
// runtime finds it for WinMain: a quoted name runs to its closing quote, an
// unquoted one to the first character at or below the blank; the blanks and
// control characters after it are skipped; the rest is kept as it stands.
std::string TextAfterProgramName(const char* commandLine);

// The folder part of an executable's full path: everything in front of the
// last backslash, with a backslash kept only behind a drive ("C:\").
std::string FolderOfPath(const std::string& path);

// Writes text to standard output (STD_OUTPUT_HANDLE) or standard error
// (STD_ERROR_HANDLE); a process started from a console without redirection
// writes to the console of its parent.
void WriteStandard(DWORD which, const std::string& text);

// The hidden message-only window that receives timer ticks and socket
// events for the event pump.
HWND MessageWindow();

// The message with which Winsock reports a socket's network events to
// MessageWindow(): the socket in wParam, event and error in lParam.
constexpr UINT kSocketMessage = WM_APP + 1;
// Keeps one such report for the pump.
void QueueSocketMessage(WPARAM socket, LPARAM message);
// Whether socket events wait to be delivered.
bool SocketEventsPending();
// Hands the waiting socket events to their owners; only the pump calls it.
// True when an event reached its owner.
bool DeliverSocketEvents();
// Tells the pump that the engine did something through the boundary; see
// NativeUserInterface.cpp for why it matters.
void NoteActivity();

}  // namespace platform::native
