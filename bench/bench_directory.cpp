// Directory-driven migration at its limits: 200 network printers of the user
// against 32 767 print queues in the directory, the most its list holds,
// with the progress window on so that every printer and queue pair pulses
// the bar. Every printer finds its queue on another server and moves; the
// orphan prune then walks the directory again for each printer of the
// refreshed list. Prints the time the engine took, phase by phase.
#include "BenchClient.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/modClientPrinters.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "migration/modMoveADPrinters.h"
#include "migration/modMoveMaintenance.h"
#include "notification/modNotification.h"
#include "platform/sim/Simulator.h"
#include "printers/modPrinterAPIs.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <ctime>
#include <cstdio>
#include <filesystem>
#include <fstream>
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

}  // namespace

int main() {
  const fs::path folder = bench::FreshFolder("zandolin-bench-directory");

  // The queues stand on NEW; the user's printers, spread over the whole
  // list, are still connected to OLD.
  json queues = json::array();
  std::vector<std::string> published;
  for (int i = 0; i < kQueues; ++i) {
    published.push_back(Queue(i));
    queues.push_back({{"name", "NEW-" + Queue(i)}, {"printShareName", {Queue(i)}}});
  }
  json printers = json::array();
  for (int i = 0; i < kPrinters; ++i) {
    const std::string queue = Queue(i * (kQueues / kPrinters));
    printers.push_back(bench::NetPrinter("\\\\OLD", queue));
  }
  json machine = {{"printers", printers},
                  {"printServers", {{"NEW", {{"queues", published}}}}},
                  {"directory",
                   {{"domain", "corp.example.com"},
                    {"namingContext", "DC=corp,DC=example,DC=com"},
                    {"printQueues", queues},
                    {"sizeLimit", 0}}}};   // no size limit: the whole list
  bench::WriteMachine(folder, machine);

  const std::string ini =
      "[GENERAL]\r\nUseActiveDirectory=True\r\nUseManualDefinitions=False\r\nAlwaysRun=True\r\n"
      "ShowProgress=True\r\n"
      "[ACTIVE DIRECTORY]\r\nDomainName=corp.example.com\r\n" +
      bench::kIniTail;
  bench::WriteIni(folder, ini);

  std::unique_ptr<sim::Client> client = bench::InstallClient(folder);
  bench::StartRun();
  LoadINIDocument();
  GetClientPrinters(true);
  gDefaultPrinterName = GetClientDefaultPrinter();

  // The three steps of MoveADPrinters, timed one by one; the processor time
  // as well, since the wall-clock time also counts other processes.
  const std::clock_t cpuStart = std::clock();
  const auto start = Clock::now();
  GetADPrinters();
  const auto queried = Clock::now();
  MigrateADPrinters();
  const auto migrated = Clock::now();
  RunMaintenance();
  const auto maintained = Clock::now();
  const double cpuMs = 1000.0 * static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;

  const json transcript = client->Transcript();
  const size_t entries = gDirectoryPrinters.size() - 1;
  const size_t clients = gClientPrinters.size() - 1;
  const size_t pairs = static_cast<size_t>(kPrinters) * entries;

  std::printf("client printers:          %d\n", kPrinters);
  std::printf("directory queues:         %zu\n", entries);
  std::printf("printer/queue pairs:      %zu\n", pairs);
  std::printf("GetADPrinters:            %.1f ms\n", Ms(start, queried));
  std::printf("MigrateADPrinters:        %.1f ms (%.1f ns a pair)\n", Ms(queried, migrated),
              1e6 * Ms(queried, migrated) / static_cast<double>(pairs));
  std::printf("RunMaintenance:           %.1f ms (refresh and orphan prune)\n",
              Ms(migrated, maintained));
  std::printf("engine time, all three:   %.1f ms (processor time %.1f ms)\n", Ms(start, maintained),
              cpuMs);
  std::printf("progress steps:           %s\n", transcript["progress"]["steps"].dump().c_str());
  std::printf("spooler calls:            %zu\n", transcript["spoolerCalls"].size());
  std::printf("printers after:           %zu (refreshed list: %zu)\n",
              transcript["printersAfter"].size(), clients);
  std::printf("outcome text:             %zu characters; debug log: %zu characters\n",
              gOutcomeText.size(), gDebugBuffer.size());

  client.reset();
  fs::remove_all(folder);
  const bool ok = entries == static_cast<size_t>(kQueues) &&
                  transcript["spoolerCalls"].size() == 2 * static_cast<size_t>(kPrinters) &&
                  !AbortStatus;
  if (!ok) std::fprintf(stderr, "unexpected result: the directory or the moves are not what was set up\n");
  return ok ? 0 : 1;
}
