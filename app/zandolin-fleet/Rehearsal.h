// The rehearsal of an INI file over captured clients: each client's run as a
// dry run of the engine on the simulated client, in memory, with the mail
// answered by the simulated peer, so that no capture changes and nothing
// leaves the machine.
#pragma once

#include "app/zandolin-fleet/ClientFacts.h"
#include "platform/sim/SimMachine.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fleet {

// What every client of a rehearsal shares.
struct RehearsalSetup {
  std::filesystem::path iniFile;
  std::string iniBytes;
  // In place of what each capture holds (from --servers and --directory).
  std::optional<std::map<std::string, sim::PrintServer>> printServers;
  std::optional<sim::SimDirectory> directory;
  double limitSeconds = 120;
  std::filesystem::path outDir;   // clients/ and the directory listings go here
};

// A capture, a file or a setting that cannot be used, in plain words.
struct UsageError {
  std::string message;
};

// Reads the INI file and the --servers and --directory files. Throws
// UsageError naming the file and what is wrong with it.
RehearsalSetup LoadSetup(const std::filesystem::path& ini, const std::optional<std::filesystem::path>& servers,
                         const std::optional<std::filesystem::path>& directory);

// A folder that looked like a capture and cannot be used.
struct Skipped {
  std::string source;
  std::string reason;
};

// The capture folders under the paths given: a folder with machine.json is
// one; other folders are searched below (not into a capture's files/).
// A folder with files/ but no machine.json is skipped, with the reason.
std::vector<std::filesystem::path> FindCaptures(const std::vector<std::filesystem::path>& paths,
                                                std::vector<Skipped>& skipped);

// Runs the engine once on the capture and tells what the run did; its
// transcript goes to the report's clients/ folder under a name made from
// index. Throws UsageError when the capture cannot be read. The setup's
// directory is lent to the run and back.
ClientFacts RehearseClient(RehearsalSetup& setup, const std::filesystem::path& capture, size_t index);

// Which Windows a machine is, in its everyday name.
std::string Generation(const sim::Machine& machine);

}  // namespace fleet
