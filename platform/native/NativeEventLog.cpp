//===- NativeEventLog.cpp - The event log on Windows ------------*- C++ -*-===//
//
// Registering an event source and reporting entries to the application
// event log of the local computer.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Each method calls SetLastError(0) and then the real call with the same
//   arguments; GetLastError() afterwards is that call's own.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

#include <windows.h>

namespace platform::native {

namespace {

class NativeEventLog final : public EventLog {
 public:
  HANDLE RegisterEventSourceA(LPCSTR server, LPCSTR source) override {
    ::SetLastError(0);
    return ::RegisterEventSourceA(server, source);
  }
  BOOL ReportEventA(HANDLE source, WORD type, WORD category, DWORD eventId, PSID user,
                    WORD numStrings, DWORD dataSize, LPCSTR* strings, LPVOID rawData) override {
    ::SetLastError(0);
    return ::ReportEventA(source, type, category, eventId, user, numStrings, dataSize, strings,
                          rawData);
  }
  BOOL DeregisterEventSource(HANDLE source) override {
    ::SetLastError(0);
    return ::DeregisterEventSource(source);
  }
};

}  // namespace

EventLog& EventLogService() {
  static NativeEventLog service;
  return service;
}

}  // namespace platform::native
