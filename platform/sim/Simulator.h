// The simulated client: a folder that holds one Windows computer as the
// engine sees it (machine.json and the drives under files/), served to the
// engine through the platform boundary.
#pragma once

#include "platform/Platform.h"
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
  // A wait that nothing can end any more (no timer ticks, no socket is
  // open) is reported stuck at once instead of at the limit.
  bool stuckAtOnce = false;
  // The SMTP peer played when machine.json names none; none: real sockets.
  std::optional<SmtpPeer> defaultSmtpPeer;
  bool trace = false;          // record every call of the boundary (calls)
};

class Client {
 public:
  // Reads and validates folder/machine.json. Throws MachineError.
  static std::unique_ptr<Client> Load(const std::filesystem::path& folder);
  virtual ~Client() = default;

  // The machine; what is changed here before Run holds for the run.
  virtual Machine& State() = 0;
  // From now on the client's folder is only read: what the runs write
  // (files, and machine.json by Save) stays in memory.
  virtual void KeepFilesInMemory() = 0;
  // Writes a file onto the client's drives ("C:\\Deploy\\a.ini").
  virtual platform::Failure PutFile(const std::string& windowsPath, const std::string& bytes) = 0;

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

// Where the profile functions find a key in an INI file's bytes: the line
// (from 1) of its section and of the key that is read; 0 for absent ones.
struct ProfileLocation {
  int sectionLine = 0;
  int keyLine = 0;
};
ProfileLocation LocateProfileKey(const std::string& fileBytes, const std::string& section,
                                 const std::string& key);

}  // namespace sim
