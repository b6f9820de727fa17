// Manual migration at its limits: 500 network printers, and every manual
// list as long as the INI readers accept (9999 characters a key), all three
// modes, with the progress window on so that each printer and definition pair
// pulses the bar. Prints the time the engine took.
#include "BenchClient.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/modClientPrinters.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "migration/modMoveNetworkPrinters.h"
#include "notification/modNotification.h"
#include "platform/sim/Simulator.h"
#include "printers/modPrinterAPIs.h"

#include <nlohmann/json.hpp>

#include <chrono>
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

constexpr int kPrinters = 500;
constexpr size_t kKeyLength = 9999;

std::string Name(const char* prefix, int i) {
  char name[32];
  std::snprintf(name, sizeof name, "%s%04d", prefix, i);
  return name;
}

// A list key of exactly kKeyLength characters: the given names first, then
// filler names of the same form up to the limit.
std::string ListKey(const std::vector<std::string>& names, const char* filler) {
  std::string value;
  for (const std::string& name : names) value += (value.empty() ? "" : ",") + name;
  for (int i = 0; value.size() < kKeyLength; ++i) value += (value.empty() ? "" : ",") + Name(filler, i);
  value.resize(kKeyLength);
  if (value.back() == ',') value.back() = 'x';
  return value;
}

size_t Pieces(const std::string& value) {
  size_t count = 1;
  for (char c : value) count += c == ',';
  return count;
}

// A further key of a list may hold no more pieces than its first key.
std::string Clip(const std::string& value, size_t pieces) {
  size_t seen = 1;
  for (size_t at = 0; at < value.size(); ++at) {
    if (value[at] == ',' && ++seen > pieces) return value.substr(0, at);
  }
  return value;
}

}  // namespace

int main() {
  const fs::path folder = bench::FreshFolder("zandolin-bench-manual");

  json printers = json::array();
  std::vector<std::string> queues, renamed, newQueues;
  for (int i = 0; i < kPrinters; ++i) {
    queues.push_back(Name("q", i));
    renamed.push_back(Name("r", i));
    printers.push_back(bench::NetPrinter("\\\\OLD", queues.back()));
  }
  newQueues = queues;
  newQueues.insert(newQueues.end(), renamed.begin(), renamed.end());
  json machine = {{"printers", printers},
                  {"printServers", {{"OLD", {{"queues", renamed}}}, {"NEW", {{"queues", newQueues}}}}}};
  bench::WriteMachine(folder, machine);

  // Printer to printer renames every queue on its server; server to server
  // moves OLD to NEW; mixed moves every queue of OLD to a new name on NEW.
  // Filler names that match nothing fill each key up to the limit.
  const std::string fromPrinters = ListKey(queues, "p");
  const std::string toPrinters = Clip(ListKey(renamed, "t"), Pieces(fromPrinters));
  const std::string fromServers = ListKey({"OLD"}, "S");
  const std::string toServers = Clip(ListKey({"NEW"}, "N"), Pieces(fromServers));
  const std::string mixedFromServers = ListKey(std::vector<std::string>(kPrinters, "OLD"), "M");
  const size_t mixedCount = Pieces(mixedFromServers);
  const std::string mixedFromPrinters = Clip(ListKey(queues, "p"), mixedCount);
  const std::string mixedToServers =
      Clip(ListKey(std::vector<std::string>(kPrinters, "NEW"), "N"), mixedCount);
  const std::string mixedToPrinters = Clip(ListKey(renamed, "t"), mixedCount);

  std::string ini =
      "[GENERAL]\r\nUseActiveDirectory=False\r\nUseManualDefinitions=True\r\nAlwaysRun=True\r\n"
      "ShowProgress=True\r\n"
      "[MANUAL DEFINITIONS PRINTERS]\r\nFromPrinters=" + fromPrinters + "\r\nToPrinters=" +
      toPrinters + "\r\n"
      "[MANUAL DEFINITIONS SERVERS]\r\nFromServers=" + fromServers + "\r\nToServers=" +
      toServers + "\r\n"
      "[MANUAL DEFINITIONS MIXED]\r\nFromServers=" + mixedFromServers + "\r\nFromPrinters=" +
      mixedFromPrinters + "\r\nToServers=" + mixedToServers + "\r\nToPrinters=" + mixedToPrinters +
      "\r\n" +
      bench::kIniTail;
  bench::WriteIni(folder, ini);

  std::unique_ptr<sim::Client> client = bench::InstallClient(folder);
  bench::StartRun();
  const auto start = Clock::now();
  LoadINIDocument();
  const auto loaded = Clock::now();
  GetClientPrinters(true);
  gDefaultPrinterName = GetClientDefaultPrinter();
  const auto listed = Clock::now();
  MoveManualPrinters();
  const auto moved = Clock::now();

  const size_t printerDefs = INIDocument.PrinterDefinitions.size();
  const size_t serverDefs = INIDocument.ServerDefinitions.size();
  const size_t mixedDefs = INIDocument.MixedDefinitions.size();
  const size_t clients = gClientPrinters.size() - 1;
  const size_t pairs = clients * (printerDefs + serverDefs + mixedDefs);
  const json transcript = client->Transcript();

  std::printf("client printers:         %zu\n", clients);
  std::printf("definitions:             %zu printer, %zu server, %zu mixed\n", printerDefs,
              serverDefs, mixedDefs);
  std::printf("printer/definition pairs: %zu\n", pairs);
  std::printf("LoadINIDocument:         %.1f ms\n", Ms(start, loaded));
  std::printf("inventory and default:   %.1f ms\n", Ms(loaded, listed));
  std::printf("MoveManualPrinters:      %.1f ms (%.3f us a pair)\n", Ms(listed, moved),
              1000.0 * Ms(listed, moved) / static_cast<double>(pairs));
  std::printf("progress steps:          %s\n", transcript["progress"]["steps"].dump().c_str());
  std::printf("spooler calls:           %zu\n", transcript["spoolerCalls"].size());
  std::printf("printers after:          %zu\n", transcript["printersAfter"].size());
  std::printf("outcome text:            %zu characters; debug log: %zu characters\n",
              gOutcomeText.size(), gDebugBuffer.size());

  client.reset();
  fs::remove_all(folder);
  const bool ok = printerDefs > 1000 && serverDefs > 1000 && mixedDefs > 1000 &&
                  clients == static_cast<size_t>(kPrinters) && !AbortStatus;
  if (!ok) std::fprintf(stderr, "unexpected result: lists or printers are not what was set up\n");
  return ok ? 0 : 1;
}
