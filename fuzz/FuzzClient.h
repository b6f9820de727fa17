// A simulated client for the fuzz targets: one folder made once for the
// process (in memory where the host has a memory file system), reused by
// every input, with the engine's process state reset before each.
#pragma once

#include "engine/modMain.h"
#include "platform/sim/SimContext.h"
#include "platform/sim/Simulator.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace fuzz {

// A fresh folder, removed with this object.
class Folder {
 public:
  explicit Folder(const char* name) {
    std::error_code ec;
    std::filesystem::path base = std::filesystem::is_directory("/dev/shm", ec) ? std::filesystem::path("/dev/shm")
                                                                                : std::filesystem::temp_directory_path();
    std::string pattern = (base / (std::string(name) + "-XXXXXX")).string();
    if (!mkdtemp(pattern.data())) std::abort();
    path_ = pattern;
  }
  ~Folder() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline void WriteHostFile(const std::filesystem::path& file, const std::string& bytes) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The client of this process: machine.json as given, files/C/Deploy made.
class Client {
 public:
  explicit Client(const char* name, const std::string& machineJson = "{}") : folder_(name) {
    WriteHostFile(folder() / "machine.json", machineJson);
    std::filesystem::create_directories(folder() / "files" / "C" / "Deploy");
    client_ = sim::Client::Load(folder());
  }

  // The engine's process state reset and this client made the platform.
  void Install() {
    ResetProcessState();
    client_->Install();
  }

  const std::filesystem::path& folder() const { return folder_.path(); }
  sim::Client& client() { return *client_; }

 private:
  Folder folder_;
  std::unique_ptr<sim::Client> client_;
};

// Stops the fuzzer with a message when a rule is broken.
inline void Require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "rule broken: %s\n", rule);
  std::abort();
}

}  // namespace fuzz
