// The user interface of the simulated client: message boxes answered at
// once, the progress window as a record, timers, and the event pump that
// also notices a process that cannot end.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>

namespace sim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kIdOk = 1;
HWND const kProgressWindow = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x2001));

// The wall-clock length of a timer's interval: timerIntervalMs for each
// second of it.
Clock::duration WallInterval(const Context& c, uint32_t intervalMs) {
  auto ms = static_cast<int64_t>(c.machine.timerIntervalMs) * intervalMs / 1000;
  return std::chrono::milliseconds(ms);
}

// The fault check of a call; builds no texts when the machine injects no
// faults, so that the pulse of a long loop costs next to nothing.
const Fault* CheckFault(Context& c, const char* call, const std::string& arg = std::string()) {
  if (c.machine.faults.empty()) {
    ++c.boundaryCalls;
    return nullptr;
  }
  return c.TakeFault(call, arg);
}

// The longest a waiting pump sleeps before it looks again.
constexpr auto kLongestIdle = std::chrono::milliseconds(100);

// The progress pulses a pump grants when nothing can come due: the pump
// still runs every kQuietPulses + 1 pulses and looks at the run's limit.
constexpr int kQuietPulses = 4095;

// Only while the progress window exists, and none while a fault may fire on
// the calls of a pulse or an event may come (a tick, a socket event).
int QuietPulsesFor(const Context& c) {
  const bool quiet = c.progress.created && c.machine.faults.empty() && c.timers.empty() &&
                     c.socketTable.empty();
  return quiet ? kQuietPulses : 0;
}

// The context of a call of this service, with the pulses taken quietly
// before it counted.
Context& Enter() {
  Context& c = Current();
  CountQuietPulses(c);
  return c;
}

// Runs the ticks that are due, one a timer; true when any ran.
bool RunDueTimers(Context& c) {
  if (c.timers.empty()) return false;
  int due[16];
  size_t count = 0;
  auto now = Clock::now();
  for (const auto& [id, timer] : c.timers)
    if (timer.enabled && now >= timer.due && count < sizeof due / sizeof due[0]) due[count++] = id;
  for (size_t i = 0; i < count; ++i) {
    // An earlier handler may have stopped or destroyed this timer.
    auto it = c.timers.find(due[i]);
    if (it == c.timers.end() || !it->second.enabled) continue;
    it->second.due = Clock::now() + WallInterval(c, it->second.intervalMs);
    c.elapsedMs += it->second.intervalMs;
    it->second.owner->OnTimer();
  }
  return count > 0;
}

// Sleeps until a socket may have news, the next tick is due or the run's
// limit has passed, whichever comes first, and never longer than
// kLongestIdle.
void IdleWait(Context& c) {
  auto now = Clock::now();
  Clock::duration wait = kLongestIdle;
  for (const auto& [id, timer] : c.timers)
    if (timer.enabled) wait = std::min(wait, timer.due - now);
  if (c.deadline != Clock::time_point::max())
    wait = std::min(wait, c.deadline - now + std::chrono::milliseconds(1));
  if (wait <= Clock::duration::zero()) return;
  WaitForSocketEvents(wait);
}

// Whether an event can still come: a timer that ticks, or a socket that is
// not closed.
bool EventCanCome(const Context& c) {
  for (const auto& [id, timer] : c.timers)
    if (timer.enabled) return true;
  for (const auto& [id, socket] : c.socketTable)
    if (socket.state != platform::kSocketClosed || socket.errorPending) return true;
  return false;
}

// One round of the pump: due ticks, then socket events. A waiting caller
// that finds nothing to do sleeps until something may have happened and
// looks once more.
void Round(Context& c, bool mayWait) {
  bool happened = RunDueTimers(c);
  happened = PumpSocketEvents() || happened;
  if (!happened && mayWait) {
    if (c.stuckAtOnce && !EventCanCome(c)) throw StuckError{c.StuckReason(), c.PlainStuckReason()};
    IdleWait(c);
    happened = RunDueTimers(c);
    happened = PumpSocketEvents() || happened;
  }
  c.CheckDeadline();
  c.callsAtLastPump = c.boundaryCalls;
}

class SimUserInterface : public platform::UserInterface {
 public:
  int MessageBox(const std::string& text, const std::string& title, UINT style) override {
    Context& c = Enter();
    const std::string shownText = FromAnsi(text), shownTitle = FromAnsi(title);
    if (const Fault* f = c.TakeFault("MessageBox", std::vector<std::string>{shownText, shownTitle}))
      return static_cast<int>(f->result);
    c.messageBoxes.push_back(nlohmann::json{{"title", shownTitle}, {"text", shownText}, {"style", style}});
    return kIdOk;
  }

  void DoEvents() override {
    Context& c = Enter();
    // Nothing but pumping since the last pump: the engine is in a wait loop.
    bool waiting = c.boundaryCalls == c.callsAtLastPump;
    if (CheckFault(c, "DoEvents")) {
      c.callsAtLastPump = c.boundaryCalls;
      return;
    }
    Round(c, waiting);
    platform::Services().pulses.granted = QuietPulsesFor(c);
  }

  void WaitForEvents() override {
    Context& c = Enter();
    if (CheckFault(c, "WaitForEvents")) {
      c.callsAtLastPump = c.boundaryCalls;
      return;
    }
    Round(c, true);
  }

  int CreateTimer(platform::TimerEvents* owner, DWORD intervalMs, bool enabled) override {
    Context& c = Enter();
    if (const Fault* f = c.TakeFault("CreateTimer", "")) return static_cast<int>(f->result);
    int id = c.nextTimer++;
    SimTimer timer;
    timer.owner = owner;
    timer.intervalMs = intervalMs;
    timer.enabled = enabled;
    timer.due = Clock::now() + WallInterval(c, intervalMs);
    c.timers[id] = timer;
    return id;
  }

  void EnableTimer(int timer, bool enabled) override {
    Context& c = Enter();
    if (c.TakeFault("EnableTimer", "")) return;
    auto it = c.timers.find(timer);
    if (it == c.timers.end()) return;
    // Switching a timer on starts its interval afresh.
    if (enabled && !it->second.enabled) it->second.due = Clock::now() + WallInterval(c, it->second.intervalMs);
    it->second.enabled = enabled;
  }

  void DestroyTimer(int timer) override {
    Context& c = Enter();
    if (c.TakeFault("DestroyTimer", "")) return;
    c.timers.erase(timer);
  }

  HWND CreateProgressWindow() override {
    Context& c = Enter();
    if (const Fault* f = c.TakeFault("CreateProgressWindow", ""))
      return reinterpret_cast<HWND>(static_cast<intptr_t>(f->result));
    c.progress.created = true;
    return kProgressWindow;
  }

  void ShowProgressWindow() override {
    Context& c = Enter();
    if (CheckFault(c, "ShowProgressWindow")) return;
    c.progress.shown = true;
  }

  void SetProgressLabel(const std::string& text) override {
    Context& c = Enter();
    const std::string shown = FromAnsi(text);
    if (CheckFault(c, "SetProgressLabel", shown)) return;
    c.progress.labels.push_back(shown);
  }

  void SetProgressBar(int maximum, int value) override {
    Context& c = Enter();
    if (CheckFault(c, "SetProgressBar")) return;
    c.progress.maximum = maximum;
    c.progress.value = value;
  }

  void MoveProgressBar(int value) override {
    Context& c = Enter();
    if (CheckFault(c, "MoveProgressBar")) return;
    ++c.progress.steps;
    c.progress.value = value;
  }

  void RedrawProgressWindow() override { CheckFault(Enter(), "RedrawProgressWindow"); }

  void DestroyProgressWindow() override {
    Context& c = Enter();
    if (CheckFault(c, "DestroyProgressWindow")) return;
    c.progress.created = false;
  }
};

}  // namespace

void CountQuietPulses(Context& c) {
  platform::QuietPulses& pulses = platform::Services().pulses;
  if (pulses.taken == 0) return;
  c.progress.steps += pulses.taken;
  c.progress.value = pulses.value;
  pulses.taken = 0;
}

platform::UserInterface& UserInterfaceService() {
  static SimUserInterface service;
  return service;
}

}  // namespace sim
