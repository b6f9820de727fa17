// The pulse of every long loop with the progress window on: 6.5 million
// UpdateProgress calls with the empty text (200 client printers against
// 32 767 directory queues), on the simulated client. Prints the time they
// took; the goal is under two seconds.
#include "BenchClient.h"
#include "config/modINIDocument.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

int main() {
  constexpr long long kPrinters = 200;
  constexpr long long kQueues = 32767;
  constexpr long long kPulses = kPrinters * kQueues;

  const fs::path folder = bench::FreshFolder("zandolin-bench-progress");
  bench::WriteMachine(folder, nlohmann::json{{"clock", "2026-11-21T14:05:09"}});

  auto client = bench::InstallClient(folder);
  INIDocument.ShowProgress = true;
  StartProgress();

  const auto start = std::chrono::steady_clock::now();
  for (long long printer = 0; printer < kPrinters; ++printer)
    for (long long queue = 0; queue < kQueues; ++queue) UpdateProgress("");
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  FinishProgress();
  const nlohmann::json progress = client->Transcript()["progress"];
  std::printf("bench_progress: %lld UpdateProgress pulses with the window on: %.3f s (%.1f ns a pulse); "
              "bar steps recorded %lld\n",
              kPulses, seconds, seconds * 1e9 / static_cast<double>(kPulses),
              progress["steps"].get<long long>());
  client.reset();
  fs::remove_all(folder);
  return progress["steps"].get<long long>() == kPulses ? 0 : 1;
}
