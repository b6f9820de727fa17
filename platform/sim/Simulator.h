// The simulated client: a folder that holds one Windows computer as the
// engine sees it (machine.json and the drives under files/), served to the
// engine through the platform boundary.
#pragma once

#include "platform/sim/SimMachine.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace sim {

// A machine.json that cannot be used: the message names the file, the line
// and column or the field, and what was expected.
struct MachineError {
  std::string message;
};

struct RunOptions {
  std::string commandLine;     // the engine's command line, untouched
  double limitSeconds = 120;   // wall-clock time before the run is stuck
  // The SMTP peer played when machine.json names none; none: real sockets.
  std::optional<SmtpPeer> defaultSmtpPeer;
  bool trace = false;          // record every call of the boundary (calls)
};

class Client {
 public:
  // Reads and validates folder/machine.json. Throws MachineError.
  static std::unique_ptr<Client> Load(const std::filesystem::path& folder);
  virtual ~Client() = default;

  // Makes this client the active platform, without running anything; for
  // tests that call single procedures of the engine.
  virtual void Install() = 0;
  // Resets the engine's process state, installs this client, runs the
  // engine process once and returns the transcript.
  virtual nlohmann::json Run(const RunOptions& options) = 0;
  // Writes the machine's state back to folder/machine.json.
  virtual void Save() = 0;
  // The transcript of what has happened so far.
  virtual nlohmann::json Transcript() = 0;
};

}  // namespace sim
