// Directory-driven migration at its limits: 200 network printers of the user
// against 32 767 print queues in the directory, the most its list holds. By
// default the user's queues are the last 200 of the list (the worst case:
// the orphan prune walks almost the whole list for each printer before it
// finds the queue); with "spread" they are spread over the whole list. Every
// printer finds its queue on another server and moves.
//
//   bench_directory [end|spread] [ROUNDS]
//
// Runs MoveADPrinters (the query, the matching, the maintenance with the
// orphan prune) ROUNDS times (default 5) with the progress window on and as
// often with it off, alternating, each on a fresh client. Prints each run,
// then the minimum, median and maximum of each kind, and what the window
// adds, by the medians of the wall-clock time and of the processor time
// (which other processes on a busy machine disturb less). Exit status 1 when
// a run does not do what was set up, when the run with the window takes
// 0.25 s or more, or when the window adds 20 % or more processor time.
#include "BenchClient.h"
#include "BenchStats.h"
#include "config/modINIDocument.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "migration/modMoveADPrinters.h"
#include "printers/modPrinterAPIs.h"
#include "notification/modNotification.h"
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;
using bench::Clock;
using bench::Ms;

namespace {

constexpr int kPrinters = 200;
constexpr int kQueues = 32767;

std::string Queue(int i) {
  char name[16];
  std::snprintf(name, sizeof name, "q%05d", i);
  return name;
}

// The queue of the user's printer number i.
int UserQueue(int i, bool atEnd) { return atEnd ? kQueues - kPrinters + i : i * (kQueues / kPrinters); }

// The client folder: the queues on NEW, the user's printers still on OLD.
void MakeClient(const fs::path& folder, bool atEnd) {
  json queues = json::array();
  std::vector<std::string> published;
  for (int i = 0; i < kQueues; ++i) {
    published.push_back(Queue(i));
    queues.push_back({{"name", "NEW-" + Queue(i)}, {"printShareName", {Queue(i)}}});
  }
  json printers = json::array();
  for (int i = 0; i < kPrinters; ++i)
    printers.push_back(bench::NetPrinter("\\\\OLD", Queue(UserQueue(i, atEnd))));
  bench::WriteMachine(folder, {{"printers", printers},
                               {"printServers", {{"NEW", {{"queues", published}}}}},
                               {"directory",
                                {{"domain", "corp.example.com"},
                                 {"namingContext", "DC=corp,DC=example,DC=com"},
                                 {"printQueues", queues},
                                 {"sizeLimit", 0}}}});   // no size limit: the whole list
}

struct RunResult {
  double ms = 0;
  double cpuMs = 0;
  long long steps = 0;
  bool ok = false;
};

// One MoveADPrinters on a fresh client, with the window on or off.
RunResult RunOnce(const fs::path& folder, bool window) {
  const std::string ini =
      "[GENERAL]\r\nUseActiveDirectory=True\r\nUseManualDefinitions=False\r\nAlwaysRun=True\r\n"
      "ShowProgress=" +
      std::string(window ? "True" : "False") +
      "\r\n[ACTIVE DIRECTORY]\r\nDomainName=corp.example.com\r\n" + bench::kIniTail;
  bench::WriteIni(folder, ini);
  std::unique_ptr<sim::Client> client = bench::InstallClient(folder);
  bench::StartRun();
  LoadINIDocument();
  GetClientPrinters(true);
  gDefaultPrinterName = GetClientDefaultPrinter();

  RunResult result;
  const std::clock_t cpuStart = std::clock();
  const auto start = Clock::now();
  MoveADPrinters();
  result.ms = Ms(start, Clock::now());
  result.cpuMs = 1000.0 * static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;

  const json transcript = client->Transcript();
  result.steps = transcript["progress"]["steps"].get<long long>();
  result.ok = gDirectoryPrinters.size() - 1 == static_cast<size_t>(kQueues) &&
              transcript["spoolerCalls"].size() == 2 * static_cast<size_t>(kPrinters) &&
              !AbortStatus;
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  const bool atEnd = !(argc > 1 && std::string(argv[1]) == "spread");
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
  const fs::path folder = bench::FreshFolder("zandolin-bench-directory");
  MakeClient(folder, atEnd);

  bench::Figures on, off, onCpu, offCpu;
  long long steps = 0;
  bool ok = true;
  for (int round = 1; round <= rounds; ++round) {
    const RunResult withWindow = RunOnce(folder, true);
    const RunResult without = RunOnce(folder, false);
    on.Add(withWindow.ms);
    onCpu.Add(withWindow.cpuMs);
    off.Add(without.ms);
    offCpu.Add(without.cpuMs);
    steps = withWindow.steps;
    ok = ok && withWindow.ok && without.ok && without.steps == 0;
    std::printf("round %d: window on %.1f ms (processor %.1f ms), off %.1f ms (processor %.1f ms)\n",
                round, withWindow.ms, withWindow.cpuMs, without.ms, without.cpuMs);
  }

  const double adds = 100.0 * (on.Median() / off.Median() - 1);
  const double addsCpu = 100.0 * (onCpu.Median() / offCpu.Median() - 1);
  std::printf("%d client printers, %d directory queues, the user's queues %s\n", kPrinters, kQueues,
              atEnd ? "at the end of the list" : "spread over the list");
  std::printf("progress steps with the window:  %lld\n", steps);
  std::printf("MoveADPrinters, window on        %s ms (limit 250)\n", on.Text().c_str());
  std::printf("MoveADPrinters, window off       %s ms\n", off.Text().c_str());
  std::printf("processor time, window on        %s ms\n", onCpu.Text().c_str());
  std::printf("processor time, window off       %s ms\n", offCpu.Text().c_str());
  std::printf("the window adds, wall clock      %+.1f %%\n", adds);
  std::printf("the window adds, processor time  %+.1f %% (limit 20 %%)\n", addsCpu);

  fs::remove_all(folder);
  if (!ok) std::fprintf(stderr, "bench_directory: a run did not do what was set up\n");
  const bool fast = on.Median() < 250 && addsCpu < 20;
  if (!fast) std::fprintf(stderr, "bench_directory: a figure is off its limit\n");
  return ok && fast ? 0 : 1;
}
