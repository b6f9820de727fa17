// Whether an INI file is sound: read by the engine's own load on the
// simulated profile functions, every key that stops the engine, and every
// setting that leaves a client waiting for ever, behind a message box no one
// clicks, or that does what an administrator would not expect.
#pragma once

#include "platform/sim/SimMachine.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace fleet {

struct Finding {
  enum Severity { kError, kWarning };
  Severity severity = kError;
  std::string section;   // without brackets; empty for the file as a whole
  std::string key;
  int line = 0;          // from 1; 0 when the key has no line
  std::string message;
};

// The directory the clients will meet (--directory), for its size limit.
struct CheckOptions {
  std::optional<sim::SimDirectory> directory;
};

// The findings for the INI file's bytes, errors first, each group in the
// order of the file's keys.
std::vector<Finding> CheckIniBytes(const std::string& bytes, const CheckOptions& options);

// The same for a file; one error when it cannot be read.
std::vector<Finding> CheckIniFile(const std::filesystem::path& file, const CheckOptions& options);

// "FILE:LINE: error: [SECTION] Key: message".
std::string FindingLine(const std::string& file, const Finding& finding);

}  // namespace fleet
