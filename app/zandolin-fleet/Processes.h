// The worker processes of a long job and the progress line on a terminal.
// The engine keeps its state in process-wide globals on one thread, so a
// job runs in parallel as several processes of this same program.
#pragma once

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace fleet {

// This program's own executable.
std::filesystem::path SelfPath();

// The number of processors.
unsigned ProcessorCount();

// Waits a tenth of a second.
void PauseBriefly();

// A started process of this program.
class Worker {
 public:
  Worker() = default;
  Worker(Worker&& other) noexcept;
  Worker& operator=(Worker&& other) noexcept;
  Worker(const Worker&) = delete;
  ~Worker();

  // Starts this program with the arguments; its standard output and error
  // go where this process's go. False when it cannot be started.
  bool Start(const std::vector<std::string>& arguments);
  // Whether it still runs; once it has ended, its exit code is in code.
  bool Running(int& code);

 private:
#ifdef _WIN32
  void* process_ = nullptr;
#else
  int pid_ = -1;
#endif
};

// The progress of a long job on standard error when that is a terminal:
// count, rate and time left, on one line that is redrawn; nothing at all
// when standard error is not a terminal.
class Progress {
 public:
  Progress(std::string what, size_t total);
  void Update(size_t done);
  // Clears the line.
  void Finish();

 private:
  std::string what_;
  size_t total_;
  bool terminal_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point lastDrawn_{};
  bool drawn_ = false;
};

}  // namespace fleet
