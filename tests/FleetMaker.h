// Test and benchmark helper: a fleet of captured clients made on disk, of
// mixed generations, printers, defaults and run statuses, with what the
// engine will do to each client worked out from how it was made, not from
// the tool under test.
//
// The INI file moves every printer of the server OLD to NEW (server to
// server), keeps the moved default, adds \\NEW\q0 to every client (on
// Windows 95/98/ME as a printer with its driver), writes an output file
// and an event log entry. NEW lacks the queue q7.
#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fleetmaker {

namespace fs = std::filesystem;
using nlohmann::json;

inline const char kIniName[] = "fleet.ini";

inline std::string Ini() {
  return "[GENERAL]\r\nUseActiveDirectory=False\r\nUseManualDefinitions=True\r\nAlwaysRun=False\r\n"
         "ShowProgress=False\r\n"
         "[MANUAL DEFINITIONS SERVERS]\r\nFromServers=OLD\r\nToServers=NEW\r\n"
         "[NOTIFICATION SMTP]\r\nUseSMTP=False\r\n"
         "[NOTIFICATION FILE OUTPUT]\r\nUseFileOutput=True\r\nFileOutputPath=C:\\Deploy\r\n"
         "FileOutputName=migration.txt\r\nIncludeComputerName=True\r\nIncludeOutcome=False\r\n"
         "WriteToEventLog=True\r\n"
         "[NOTIFICATION CLIENT POP-UP]\r\nUseClientPopup=False\r\nUseSuccessClientPopup=False\r\n"
         "UseFailureClientPopup=False\r\n"
         "[DEPLOYMENT]\r\nCreateWebLaunchPage=False\r\nCreateBatchFile=False\r\nIncludeMDAC=False\r\n"
         "[POPULATE]\r\nServerNames=NEW\r\nPrinterNames=q0\r\n"
         "[PRUNE]\r\nDeleteADOrphans=False\r\nDeleteAllNonNetworked=False\r\n"
         "[PRINTER_DRIVER]\r\nPrinterName=q0\r\nDriverName=HP Universal\r\nDriverFileName=hpu.drv\r\n"
         "[SET_DEFAULT]\r\nDefaultType=1\r\n"
         "[SUPPORT]\r\nDebugOn=True\r\n";
}

// The print servers of the whole fleet, in machine.json's form.
inline json Servers() {
  json queues = json::array();
  for (int q = 0; q < 10; ++q)
    if (q != 7) queues.push_back("q" + std::to_string(q));
  return {{"printServers", {{"NEW", {{"queues", queues}}}, {"OTHER", {{"queues", {"plotter"}}}}}}};
}

enum Generation { kWindows10, kWindowsXP, kWindowsNT4, kWindows98 };

// One client as made, and what the engine will do to it.
struct Client {
  std::string computer, user;
  Generation generation;
  std::vector<int> queues;       // its printers on OLD: \\OLD\q<n>
  bool local = false;            // "Local PDF"
  bool other = false;            // \\OTHER\plotter, which no rule names
  int defaultQueue = -1;         // \\OLD\q<n> is its default; -1: none
  bool alreadySucceeded = false; // its status file says the INI file succeeded
  bool badStatus = false;        // its registry status is no Boolean: the run dies

  bool HasMissingQueue() const {
    for (int q : queues)
      if (q == 7) return true;
    return false;
  }
  bool FullRun() const { return !alreadySucceeded && !badStatus; }
  int Moved() const { return FullRun() ? static_cast<int>(queues.size()) - (HasMissingQueue() ? 1 : 0) : 0; }
  int FailedAdds() const { return FullRun() && HasMissingQueue() ? 1 : 0; }
  int Lost() const { return FailedAdds(); }
  // Windows 95/98/ME and NT 4 cannot carry a moved default (the 9x way
  // looks for a printer called "q<n>", NT 4's for a PrinterPorts entry); the
  // others lose it when its queue is the missing one.
  bool DefaultLost() const {
    if (!FullRun() || defaultQueue < 0) return false;
    if (generation == kWindowsNT4 || generation == kWindows98) return true;
    return defaultQueue == 7;
  }
  bool Stuck() const { return FullRun() && generation == kWindows98; }
  bool Fatal() const { return badStatus; }
  bool AtRisk() const { return FailedAdds() > 0 || Lost() > 0 || DefaultLost() || Stuck() || Fatal(); }
  // NT 4 and 9x fail to read or set a default in every full run here.
  std::string Status() const {
    if (!FullRun()) return "";
    if (generation == kWindowsNT4 || generation == kWindows98) return "False";
    return HasMissingQueue() ? "False" : "True";
  }
  int PrintersBefore() const { return static_cast<int>(queues.size()) + (local ? 1 : 0) + (other ? 1 : 0); }
};

inline Client Make(int i) {
  Client c;
  c.computer = "PC" + std::to_string(1000 + i);
  c.user = "u" + std::to_string(i);
  c.generation = static_cast<Generation>(i % 4);
  int count = 1 + i % 5;
  for (int k = 0; k < count; ++k) c.queues.push_back((i + 3 * k) % 10);
  c.local = i % 3 == 0;
  c.other = i % 7 == 0;
  c.defaultQueue = i % 6 == 0 ? -1 : c.queues[0];
  c.alreadySucceeded = i % 20 == 4;   // Windows 10 ones
  c.badStatus = i % 100 == 2;         // NT 4 ones
  return c;
}

inline json Printer(const std::string& server, const std::string& queue, bool isDefault9x) {
  return {{"name", "\\\\" + server + "\\" + queue},
          {"serverName", "\\\\" + server},
          {"shareName", queue},
          {"attributes", isDefault9x ? 4 : 0}};
}

// Writes the client's capture folder as zandolin-capture.exe lays it out.
inline fs::path Write(const fs::path& root, const Client& c) {
  fs::path folder = root / (c.computer + "_" + c.user);
  fs::create_directories(folder / "files" / "C" / "Deploy");
  static const int kOs[4][3] = {{2, 10, 0}, {2, 5, 1}, {2, 4, 0}, {1, 4, 10}};
  const int* os = kOs[c.generation];
  json printers = json::array();
  for (int q : c.queues)
    printers.push_back(Printer("OLD", "q" + std::to_string(q), c.generation == kWindows98 && q == c.defaultQueue));
  if (c.local)
    printers.push_back({{"name", "Local PDF"}, {"serverName", nullptr}, {"portName", "FILE:"}, {"driverName", "PDF"}});
  if (c.other) printers.push_back(Printer("OTHER", "plotter", false));
  json m = {{"os", {{"platformId", os[0]}, {"majorVersion", os[1]}, {"minorVersion", os[2]}}},
            {"computerName", c.computer},
            {"userName", c.user},
            {"clock", "2026-11-21T09:00:00"},
            {"printers", printers},
            {"capture", {{"at", "2026-11-20T17:00:00"}, {"version", "1.0.0"}, {"notes", json::array()}}}};
  std::string def = c.defaultQueue >= 0 ? "\\\\OLD\\q" + std::to_string(c.defaultQueue) : "";
  if (c.generation == kWindows10 || c.generation == kWindowsXP) {
    m["defaultPrinter"] = def.empty() ? json(nullptr) : json(def);
  } else if (c.generation == kWindowsNT4 && !def.empty()) {
    m["winIni"] = {{"Windows", {{"device", def + ",winspool,Ne00:"}}}};
  }
  if (c.badStatus)
    m["registry"] = {{"HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\C:\\Deploy\\fleet.ini\\" + c.user,
                      {{"SUCCESS", "maybe"}}}};
  if (c.alreadySucceeded) {
    fs::create_directories(folder / "files" / "C" / "Users" / "jdoe");
    std::ofstream(folder / "files" / "C" / "Users" / "jdoe" / "Zandolin_status.log", std::ios::binary)
        << "C:\\Deploy\\fleet.ini,True\r\n";
  }
  std::ofstream(folder / "machine.json", std::ios::binary) << m.dump(1) << "\n";
  return folder;
}

// The fleet's clients 0 to count - 1, written below root; their makings.
inline std::vector<Client> WriteFleet(const fs::path& root, int count) {
  std::vector<Client> clients;
  for (int i = 0; i < count; ++i) {
    clients.push_back(Make(i));
    Write(root, clients.back());
  }
  return clients;
}

}  // namespace fleetmaker
