// The printer layer on a simulated client with 1000 printers: the inventory
// of all of them, then 1000 removals of network connections. Prints the time
// the engine took for each.
#include "BenchClient.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "notification/modNotification.h"
#include "platform/sim/Simulator.h"
#include "printers/modPrinterAPIs.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;
using nlohmann::json;
using bench::Clock;
using bench::Ms;

namespace {

constexpr int kNetwork = 900;
constexpr int kLocal = 100;

std::string Queue(int i) {
  char name[32];
  std::snprintf(name, sizeof name, "queue%04d", i);
  return name;
}

}  // namespace

int main() {
  const fs::path folder = bench::FreshFolder("zandolin-bench-printers");

  json printers = json::array();
  for (int i = 0; i < kNetwork; ++i) {
    const std::string server = i % 2 ? "\\\\OLD" : "\\\\NEW";
    printers.push_back({{"name", server + "\\" + Queue(i)},
                        {"serverName", server},
                        {"shareName", Queue(i)},
                        {"portName", "Ne" + std::to_string(i) + ":"},
                        {"driverName", "HP Universal Printing PCL 6"},
                        {"comment", "floor " + std::to_string(i % 7)},
                        {"location", "building " + std::to_string(i % 3)}});
  }
  for (int i = 0; i < kLocal; ++i) {
    printers.push_back({{"name", "Local " + Queue(i)}, {"serverName", nullptr},
                        {"portName", "LPT1:"}, {"driverName", "Generic / Text Only"}});
  }
  bench::WriteMachine(folder, json{{"printers", printers}});

  std::unique_ptr<sim::Client> client = bench::InstallClient(folder);
  INIDocument.DebugOn = true;
  OperationsSucceeded = true;

  const auto start = Clock::now();
  GetClientPrinters(true);
  const auto listed = Clock::now();

  // 1000 removals: every network connection, then 100 that are gone already.
  int removals = 0;
  for (int i = 1; i < static_cast<int>(gClientPrinters.size()); ++i, ++removals) {
    RemoveNetworkPrinter(gClientPrinters[i].ServerName + "\\" + gClientPrinters[i].QueueName);
  }
  for (int i = 1; removals < 1000; ++i, ++removals) {
    RemoveNetworkPrinter(gClientPrinters[i].ServerName + "\\" + gClientPrinters[i].QueueName);
  }
  const auto removed = Clock::now();

  const bool listedAll = gClientPrinters.size() == kNetwork + 1 &&
                         gClientLocalPrinters.size() == kLocal + 1;
  const json after = client->Transcript()["printersAfter"];

  std::printf("printers:               %d network, %d local\n", kNetwork, kLocal);
  std::printf("GetClientPrinters:      %.1f ms (%zu network, %zu local filed)\n",
              Ms(start, listed), gClientPrinters.size() - 1, gClientLocalPrinters.size() - 1);
  std::printf("RemoveNetworkPrinter:   %.1f ms for %d removals (%.3f ms each)\n",
              Ms(listed, removed), removals, Ms(listed, removed) / removals);
  std::printf("printers left:          %zu\n", after.size());
  std::printf("outcome text:           %zu characters; debug log: %zu characters\n",
              gOutcomeText.size(), gDebugBuffer.size());

  client.reset();
  fs::remove_all(folder);
  const bool ok = listedAll && after.size() == static_cast<size_t>(kLocal);
  if (!ok) std::fprintf(stderr, "unexpected result: lists or printers left are wrong\n");
  return ok ? 0 : 1;
}
