// The set-up the benchmarks share: a fresh client folder under the temporary
// directory, its machine.json and INI file, the client loaded and installed
// as the active platform, and the engine state of a run.
#pragma once

#include "config/modINIDocument.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace bench {

namespace fs = std::filesystem;
using nlohmann::json;

using Clock = std::chrono::steady_clock;

// Milliseconds from a to b.
inline double Ms(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::milli>(b - a).count();
}

// An empty client folder named name, with its C:\Deploy folder.
inline fs::path FreshFolder(const std::string& name) {
  const fs::path folder = fs::temp_directory_path() / name;
  fs::remove_all(folder);
  fs::create_directories(folder / "files" / "C" / "Deploy");
  return folder;
}

inline void WriteMachine(const fs::path& folder, const json& machine) {
  std::ofstream(folder / "machine.json") << machine.dump() << "\n";
}

// A network connection of the client, \\server\queue; server with its
// leading backslashes.
inline json NetPrinter(const std::string& server, const std::string& queue) {
  return {{"name", server + "\\" + queue}, {"serverName", server}, {"shareName", queue}};
}

// The keys of an INI file after the migration's own: no notification, no
// deployment files, no prune, the first default printer kept, the log on.
inline const std::string kIniTail =
    "[NOTIFICATION SMTP]\r\nUseSMTP=False\r\n"
    "[NOTIFICATION FILE OUTPUT]\r\nUseFileOutput=False\r\nIncludeComputerName=False\r\n"
    "IncludeOutcome=False\r\nWriteToEventLog=False\r\n"
    "[NOTIFICATION CLIENT POP-UP]\r\nUseClientPopup=False\r\nUseSuccessClientPopup=False\r\n"
    "UseFailureClientPopup=False\r\n"
    "[DEPLOYMENT]\r\nCreateWebLaunchPage=False\r\nCreateBatchFile=False\r\nIncludeMDAC=False\r\n"
    "[PRUNE]\r\nDeleteADOrphans=False\r\nDeleteAllNonNetworked=False\r\n"
    "[SET_DEFAULT]\r\nDefaultType=1\r\n"
    "[SUPPORT]\r\nDebugOn=True\r\n";

inline const char* const kIniPath = "C:\\Deploy\\bench.ini";

// Writes text as C:\Deploy\bench.ini of the client.
inline void WriteIni(const fs::path& folder, const std::string& text) {
  std::ofstream(folder / "files" / "C" / "Deploy" / "bench.ini", std::ios::binary) << text;
}

// Loads the client and makes it the active platform with the engine's
// process state reset.
inline std::unique_ptr<sim::Client> InstallClient(const fs::path& folder) {
  std::unique_ptr<sim::Client> client = sim::Client::Load(folder);
  ResetProcessState();
  client->Install();
  return client;
}

// The state Main sets before the migration: the log on, no abort, success
// so far, and bench.ini as the file in force.
inline void StartRun() {
  INIDocument.DebugOn = true;
  AbortStatus = false;
  OperationsSucceeded = true;
  INIFilePath = kIniPath;
}

}  // namespace bench
