//===- NativeClock.cpp - Local time on Windows ------------------*- C++ -*-===//
//
// The local date and time, its general text form, and sleeping.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - The general text form follows the user's regional settings: the short
//   date and the time, each formatted by the system, joined by one blank.
// - Sleep blocks the thread; no event is pumped meanwhile.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

#include <windows.h>

namespace platform::native {

namespace {

class NativeClock final : public Clock {
 public:
  LocalTime Now() override {
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    LocalTime time;
    time.Year = now.wYear;
    time.Month = now.wMonth;
    time.Day = now.wDay;
    time.Hour = now.wHour;
    time.Minute = now.wMinute;
    time.Second = now.wSecond;
    return time;
  }

  std::string GeneralDateText(const LocalTime& time) override {
    SYSTEMTIME at = {};
    at.wYear = static_cast<WORD>(time.Year);
    at.wMonth = static_cast<WORD>(time.Month);
    at.wDay = static_cast<WORD>(time.Day);
    at.wHour = static_cast<WORD>(time.Hour);
    at.wMinute = static_cast<WORD>(time.Minute);
    at.wSecond = static_cast<WORD>(time.Second);
    char date[128] = {};
    char clock[128] = {};
    if (!::GetDateFormatA(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &at, nullptr, date, sizeof date))
      date[0] = '\0';
    if (!::GetTimeFormatA(LOCALE_USER_DEFAULT, 0, &at, nullptr, clock, sizeof clock))
      clock[0] = '\0';
    return std::string(date) + " " + clock;
  }

  void Sleep(DWORD milliseconds) override { ::Sleep(milliseconds); }
};

}  // namespace

Clock& ClockService() {
  static NativeClock service;
  return service;
}

}  // namespace platform::native
