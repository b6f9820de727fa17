// The progress window: one statement at a time, and a bar that moves.
#pragma once

#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "platform/Platform.h"

#include <algorithm>
#include <cstdint>
#include <string>

void StartProgress();

// The bar's next value: the 100th step wraps to 1.
inline int NextProgressValue(int value) { return value != 100 ? value + 1 : 1; }

// UpdateProgress through the platform: redraw, the statement, one step of
// the bar, one pump.
void ShowStatementAndStep(const std::string& text);

// One statement in the window and one step of the bar, then one pump; an
// empty text only moves the bar. It is the pulse of every long loop, so the
// step with the empty text that the platform has let go quiet (nothing can
// come due meanwhile, platform::QuietPulses) is only counted here, for the
// platform to take at its next call. A grant implies that the form is
// loaded: the platform grants only while the form's window exists.
inline void UpdateProgress(const std::string& text) {
  if (!INIDocument.ShowProgress) return;
  platform::QuietPulses& pulses = platform::Services().pulses;
  if (text.empty() && pulses.taken < pulses.granted) {
    ++pulses.taken;
    pulses.value = frmProgress.Value = NextProgressValue(frmProgress.Value);
    return;
  }
  ShowStatementAndStep(text);
}

// The bar's value after `steps` steps (at least one) from `value` (0 to 100),
// as that many NextProgressValue give it.
inline int ProgressValueAfter(int value, int64_t steps) {
  return static_cast<int>((value - 1 + steps) % 100) + 1;
}

// UpdateProgress("") `steps` times, the quiet ones counted in one go: a long
// loop that does nothing else between some of its pulses counts them and
// gives them here before it does anything else. UpdateProgress keeps its own
// quiet step, which costs less than one step of this.
inline void PulseProgress(int64_t steps) {
  if (!INIDocument.ShowProgress) return;
  platform::QuietPulses& pulses = platform::Services().pulses;
  while (steps > 0) {
    const int64_t quiet = std::min(steps, pulses.granted - pulses.taken);
    if (quiet > 0) {
      pulses.taken += quiet;
      pulses.value = frmProgress.Value = ProgressValueAfter(frmProgress.Value, quiet);
      steps -= quiet;
    } else {
      ShowStatementAndStep(std::string());
      --steps;
    }
  }
}

void FinishProgress();
