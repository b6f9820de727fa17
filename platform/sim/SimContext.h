// The running simulated client: the machine, the last error, the injected
// faults, the drives and what the run has done so far. Every service of the
// simulated platform works on the one current context.
#pragma once

#include "platform/sim/SimMachine.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct Context {
  std::filesystem::path folder;   // the client folder (machine.json, files/)
  Machine machine;
  uint32_t lastError = 0;

  // Transcript records.
  std::vector<SimPrinter> printersBefore;
  std::optional<std::string> defaultBefore;
  nlohmann::json spoolerCalls = nlohmann::json::array();

  // The fault for this call, if one fires now; a fired fault also sets
  // lastError. firstArg is the call's first string argument (for calls on a
  // printer handle, the name the handle was opened with; for file and
  // registry calls, the path).
  const Fault* TakeFault(const std::string& call, const std::string& firstArg);

  // Records a call that adds, removes or changes a printer, a driver, a port
  // or the default printer.
  void RecordSpoolerCall(const std::string& call, const nlohmann::json& args, int64_t result);

  // The default printer as the machine's generation keeps it: the printer
  // with attribute 0x4 on platform 1, the name in front of the first comma of
  // winIni Windows/device on platform 2 below 5, defaultPrinter otherwise.
  std::optional<std::string> CurrentDefault() const;

  // The host path of a Windows path on the simulated drives, resolved
  // case-blind against what exists ("C:\\a\\b" -> folder/files/C/a/b,
  // "\\\\srv\\share\\x" -> folder/files/UNC/srv/share/x). Empty when the
  // path has no drive.
  std::filesystem::path HostPath(const std::string& windowsPath) const;
  // Whether the Windows path lies in (or is) a read-only path.
  bool IsReadOnly(const std::string& windowsPath) const;
};

// The context of the client that is installed.
Context& Current();

// The simulated spooler (SimSpooler.cpp); works on Current().
platform::Spooler& SpoolerService();

}  // namespace sim
