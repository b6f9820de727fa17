// The clock of the simulated client: the start time of the run, advanced by
// simulated time only (Sleep and timer ticks), never by the host's clock.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <cstdio>

namespace sim {

namespace {

// Days since 1970-01-01 of a civil date, and back.
int64_t DaysFromCivil(int64_t y, int m, int d) {
  y -= m <= 2;
  int64_t era = (y >= 0 ? y : y - 399) / 400;
  int64_t yoe = y - era * 400;
  int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromDays(int64_t z, int& y, int& m, int& d) {
  z += 719468;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  y = static_cast<int>(yoe + era * 400 + (m <= 2));
}

class SimClock : public platform::Clock {
 public:
  platform::LocalTime Now() override {
    Context& c = Current();
    if (c.TakeFault("Now", "")) return {};
    const platform::LocalTime& s = c.startTime;
    int64_t seconds = DaysFromCivil(s.Year, s.Month, s.Day) * 86400 + s.Hour * 3600 + s.Minute * 60 +
                      s.Second + c.elapsedMs / 1000;
    int64_t days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
    int64_t rest = seconds - days * 86400;
    platform::LocalTime t;
    CivilFromDays(days, t.Year, t.Month, t.Day);
    t.Hour = static_cast<int>(rest / 3600);
    t.Minute = static_cast<int>(rest / 60 % 60);
    t.Second = static_cast<int>(rest % 60);
    return t;
  }

  // US English general date: "11/21/2026 2:05:09 PM".
  std::string GeneralDateText(const platform::LocalTime& t) override {
    Context& c = Current();
    if (c.TakeFault("GeneralDateText", "")) return "";
    int hour = t.Hour % 12 == 0 ? 12 : t.Hour % 12;
    char text[64];
    std::snprintf(text, sizeof text, "%d/%d/%d %d:%02d:%02d %s", t.Month, t.Day, t.Year, hour,
                  t.Minute, t.Second, t.Hour < 12 ? "AM" : "PM");
    return text;
  }

  void Sleep(DWORD milliseconds) override {
    Context& c = Current();
    if (c.TakeFault("Sleep", "")) return;
    c.elapsedMs += milliseconds;
    c.CheckDeadline();
  }
};

}  // namespace

platform::Clock& ClockService() {
  static SimClock service;
  return service;
}

}  // namespace sim
