// The pulse of every long loop on the simulated client: 6.5 million
// UpdateProgress calls with the empty text (200 client printers against
// 32 767 directory queues) with the progress window on, side by side with
// the same calls with the window off, ROUNDS times (default 5):
//
//   bench_progress [ROUNDS]
//
// Prints each round, then the minimum, median and maximum of the time a
// pulse takes of each kind. Exit status 1 when the bar's steps are not one a
// pulse.
#include "BenchClient.h"
#include "BenchStats.h"
#include "config/modINIDocument.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;
using bench::Clock;
using bench::Ms;

namespace {

constexpr long long kPrinters = 200;
constexpr long long kQueues = 32767;
constexpr long long kPulses = kPrinters * kQueues;

// Nanoseconds a pulse took, and the bar's steps counted.
struct Pulses {
  double ns = 0;
  long long steps = 0;
};

Pulses PulseAll(const fs::path& folder, bool window) {
  auto client = bench::InstallClient(folder);
  INIDocument.ShowProgress = window;
  StartProgress();
  const auto start = Clock::now();
  for (long long printer = 0; printer < kPrinters; ++printer)
    for (long long queue = 0; queue < kQueues; ++queue) UpdateProgress("");
  const double ms = Ms(start, Clock::now());
  return {1e6 * ms / static_cast<double>(kPulses),
          client->Transcript()["progress"]["steps"].get<long long>()};
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const fs::path folder = bench::FreshFolder("zandolin-bench-progress");
  bench::WriteMachine(folder, nlohmann::json{{"clock", "2026-11-21T14:05:09"}});

  bench::Figures on, off;
  bool ok = true;
  for (int round = 1; round <= rounds; ++round) {
    const Pulses withWindow = PulseAll(folder, true);
    const Pulses without = PulseAll(folder, false);
    on.Add(withWindow.ns);
    off.Add(without.ns);
    ok = ok && withWindow.steps == kPulses && without.steps == 0;
    std::printf("round %d: window on %.2f ns a pulse (%lld steps), off %.2f ns a pulse\n", round,
                withWindow.ns, withWindow.steps, without.ns);
  }
  std::printf("%lld UpdateProgress pulses with the empty text\n", kPulses);
  std::printf("a pulse, window on          %s ns\n", on.Text().c_str());
  std::printf("a pulse, window off         %s ns\n", off.Text().c_str());

  fs::remove_all(folder);
  if (!ok) std::fprintf(stderr, "bench_progress: the bar did not step once a pulse\n");
  return ok ? 0 : 1;
}
