// Builds a debug log of one million lines and saves it as the debug file of
// a simulated client; prints how long each step took.
#include "BenchClient.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/modMain.h"
#include "platform/sim/Simulator.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

int main() {
  const fs::path folder = bench::FreshFolder("zandolin-bench-debuglog");
  bench::WriteMachine(folder, nlohmann::json::object());

  std::unique_ptr<sim::Client> client = bench::InstallClient(folder);

  using bench::Clock;
  using bench::Ms;
  const int kLines = 1000000;

  INIDocument.DebugOn = true;
  ClearDebug();
  const auto start = Clock::now();
  for (int i = 0; i < kLines; ++i) {
    WriteDebug(">> Found networked printer: \\\\OLD\\laser" + std::to_string(i) + " (\\\\OLD)");
  }
  const auto built = Clock::now();
  SaveDebugFile();
  const auto saved = Clock::now();

  const fs::path debugFile = folder / "files" / "C" / "Deploy" / "PC042.debug";
  const bool written = fs::exists(debugFile);
  std::printf("lines:            %d\n", kLines);
  std::printf("log size:         %zu characters\n", gDebugBuffer.size());
  std::printf("debug file:       %s (%ju bytes)\n", debugFile.string().c_str(),
              written ? static_cast<uintmax_t>(fs::file_size(debugFile)) : 0);
  std::printf("WriteDebug lines: %.1f ms\n", Ms(start, built));
  std::printf("SaveDebugFile:    %.1f ms\n", Ms(built, saved));
  std::printf("total:            %.1f ms\n", Ms(start, saved));

  fs::remove_all(folder);
  if (!written) std::fprintf(stderr, "the debug file was not written\n");
  return written ? 0 : 1;
}
