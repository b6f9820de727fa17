// The debug file of a log of one million lines on a simulated client: the
// log built by WriteDebug and saved by SaveDebugFile, side by side with its
// baseline, the same log put through the three stages one after the other
// (StringToBytes, InterleaveBytes, AddRunningSum) and written by
// WriteDebugBytes. Both run in turn, ROUNDS times (default 5):
//
//   bench_debuglog [ROUNDS]
//
// Prints each round, then the minimum, median and maximum of each figure:
// the time to build the log, the time to save it, and the peak resident
// memory while saving (the log itself included) as a multiple of the log's
// UTF-16 size. Exit status 1 when the two files differ, or when the save
// takes 1 s or more with the building, or 2.5 times the UTF-16 size or more.
#include "BenchClient.h"
#include "BenchStats.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/modFileEncoding.h"
#include "platform/sim/Simulator.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using bench::Clock;
using bench::Ms;

namespace {

constexpr int kLines = 1000000;

// The peak resident size of this process, in bytes, since the last
// ResetPeakMemory.
double PeakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmHWM:", 0) == 0) return 1024.0 * std::stod(line.substr(6));
  return 0;
}

void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

void BuildLog() {
  ClearDebug();
  for (int i = 0; i < kLines; ++i)
    WriteDebug(">> Found networked printer: \\\\OLD\\laser" + std::to_string(i) + " (\\\\OLD)");
}

// The three stages one after the other, as the engine made the file before
// it encoded the log in one pass.
void SaveByStages(const std::string& path) {
  std::vector<uint8_t> bytes = StringToBytes(gDebugBuffer, true, false);
  InterleaveBytes(bytes);
  AddRunningSum(bytes);
  WriteDebugBytes(path, bytes);
}

std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const fs::path folder = bench::FreshFolder("zandolin-bench-debuglog");
  bench::WriteMachine(folder, nlohmann::json::object());
  std::unique_ptr<sim::Client> client = bench::InstallClient(folder);
  INIDocument.DebugOn = true;
  const fs::path debugFile = folder / "files" / "C" / "Deploy" / "PC042.debug";
  const fs::path stagesFile = folder / "files" / "C" / "Deploy" / "stages.debug";

  bench::Figures build, save, total, peak, stagesSave, stagesPeak;
  double utf16Size = 0;
  for (int round = 1; round <= rounds; ++round) {
    fs::remove(debugFile);
    const auto start = Clock::now();
    BuildLog();
    const auto built = Clock::now();
    ResetPeakMemory();
    SaveDebugFile();
    const auto saved = Clock::now();
    utf16Size = 2.0 * static_cast<double>(gDebugBuffer.size());
    build.Add(Ms(start, built));
    save.Add(Ms(built, saved));
    total.Add(Ms(start, saved));
    peak.Add(PeakMemory() / utf16Size);

    fs::remove(stagesFile);
    ResetPeakMemory();
    const auto stagesStart = Clock::now();
    SaveByStages("C:\\Deploy\\stages.debug");
    stagesSave.Add(Ms(stagesStart, Clock::now()));
    stagesPeak.Add(PeakMemory() / utf16Size);
    std::printf("round %d: build %.1f ms, save %.1f ms (peak %.2f x UTF-16); by stages: save %.1f ms "
                "(peak %.2f x UTF-16)\n",
                round, build.Last(), save.Last(), peak.Last(), stagesSave.Last(), stagesPeak.Last());
  }

  const bool same = ReadAll(debugFile) == ReadAll(stagesFile);
  std::printf("log: %d lines, %zu characters, %.0f bytes of UTF-16; the two files are %s\n", kLines,
              gDebugBuffer.size(), utf16Size, same ? "identical" : "DIFFERENT");
  std::printf("build the log                  %s ms\n", build.Text().c_str());
  std::printf("SaveDebugFile                  %s ms\n", save.Text().c_str());
  std::printf("build and save                 %s ms (limit 1000)\n", total.Text().c_str());
  std::printf("peak while saving              %s x UTF-16 size (limit 2.5)\n", peak.Text().c_str());
  std::printf("baseline: save by stages       %s ms\n", stagesSave.Text().c_str());
  std::printf("baseline: peak while saving    %s x UTF-16 size\n", stagesPeak.Text().c_str());

  client.reset();
  fs::remove_all(folder);
  const bool ok = same && total.Median() < 1000 && peak.Max() < 2.5;
  if (!ok) std::fprintf(stderr, "bench_debuglog: a figure is off its limit, or the files differ\n");
  return ok ? 0 : 1;
}
