// zandolin-fleet at the size of a large site.
//
//   bench_fleet rehearse [CLIENTS [RUNS]]   default 5000 clients, 3 runs
//   bench_fleet collect [FILES [RUNS]]      default 50000 files, 3 runs
//
// rehearse: CLIENTS captured clients of 20 printers each, rehearsed against
// one directory of 10 000 print queues (no size limit, so that every run
// matches against all of them), given once with --directory. collect:
// FILES output files, made from the output files of 50 real engine runs
// with the computer and user names changed, read by collect. Each run is
// the real zandolin-fleet program; its wall-clock time and the peak of the
// summed memory of its process and its workers are printed, then the
// minimum, median and maximum over the runs.
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr int kQueues = 10000;
constexpr int kPrinters = 20;

std::string Queue(int i) {
  char name[16];
  std::snprintf(name, sizeof name, "q%05d", i);
  return name;
}

const std::string kIniHead = "[GENERAL]\r\nUseActiveDirectory=True\r\nUseManualDefinitions=False\r\n";
const std::string kIniTail =
    "AlwaysRun=False\r\nShowProgress=False\r\n[ACTIVE DIRECTORY]\r\nDomainName=corp.example.com\r\n"
    "[NOTIFICATION SMTP]\r\nUseSMTP=False\r\n"
    "[NOTIFICATION FILE OUTPUT]\r\nUseFileOutput=True\r\nFileOutputPath=C:\\Deploy\r\nFileOutputName=migration.txt\r\n"
    "IncludeComputerName=True\r\nIncludeOutcome=False\r\nWriteToEventLog=True\r\n"
    "[NOTIFICATION CLIENT POP-UP]\r\nUseClientPopup=False\r\nUseSuccessClientPopup=False\r\n"
    "UseFailureClientPopup=False\r\n"
    "[DEPLOYMENT]\r\nCreateWebLaunchPage=False\r\nCreateBatchFile=False\r\nIncludeMDAC=False\r\n"
    "[PRUNE]\r\nDeleteADOrphans=True\r\nDeleteAllNonNetworked=False\r\n"
    "[SET_DEFAULT]\r\nDefaultType=1\r\n[SUPPORT]\r\nDebugOn=True\r\n";

json Capture(int i) {
  json printers = json::array();
  for (int k = 0; k < kPrinters; ++k) {
    std::string q = Queue((i * 37 + k * 499) % kQueues);
    printers.push_back({{"name", "\\\\OLD\\" + q}, {"serverName", "\\\\OLD"}, {"shareName", q}});
  }
  return {{"computerName", "PC" + std::to_string(10000 + i)},
          {"userName", "u" + std::to_string(i)},
          {"printers", printers},
          {"defaultPrinter", printers[0]["name"]}};
}

// The sum of the resident memory of a process and its descendants, in kB.
long TreeMemoryKb(pid_t root) {
  std::map<long, long> parent, rss;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream status(entry.path() / "status");
    long pid = std::stol(name), ppid = 0, kb = 0;
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("PPid:", 0) == 0) ppid = std::stol(line.substr(5));
      if (line.rfind("VmRSS:", 0) == 0) kb = std::stol(line.substr(6));
    }
    parent[pid] = ppid;
    rss[pid] = kb;
  }
  long total = 0;
  for (const auto& [pid, kb] : rss) {
    for (long p = pid; p > 1; p = parent.count(p) ? parent[p] : 0)
      if (p == root) {
        total += kb;
        break;
      }
  }
  return total;
}

// The load of the machine, as the other programs on it make it.
std::string LoadAverage() {
  std::ifstream in("/proc/loadavg");
  std::string one;
  in >> one;
  return one;
}

struct Measure {
  double seconds;
  long peakKb;
  double cpuSeconds;   // of the tool and its workers, user and system
};

double ChildrenCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Runs the tool with its arguments; its time and peak memory.
Measure RunTool(const std::vector<std::string>& arguments) {
  auto start = std::chrono::steady_clock::now();
  const double cpuBefore = ChildrenCpuSeconds();
  std::fflush(stdout);
  pid_t pid = fork();
  if (pid == 0) {
    std::vector<char*> argv;
    std::string exe = ZANDOLIN_FLEET_EXE;
    argv.push_back(exe.data());
    std::vector<std::string> copies(arguments);
    for (std::string& a : copies) argv.push_back(a.data());
    argv.push_back(nullptr);
    freopen("/dev/null", "w", stdout);
    execv(exe.c_str(), argv.data());
    _exit(127);
  }
  long peak = 0;
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    peak = std::max(peak, TreeMemoryKb(pid));
    usleep(50 * 1000);
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "bench_fleet: zandolin-fleet failed (status %d)\n", status);
    std::exit(1);
  }
  return {seconds, peak, ChildrenCpuSeconds() - cpuBefore};
}

void Summary(const char* what, std::vector<Measure> runs) {
  std::vector<double> t, c;
  std::vector<long> m;
  for (const Measure& r : runs) t.push_back(r.seconds), m.push_back(r.peakKb), c.push_back(r.cpuSeconds);
  std::sort(t.begin(), t.end());
  std::sort(m.begin(), m.end());
  std::sort(c.begin(), c.end());
  std::printf("%s: time min %.1f s, median %.1f s, max %.1f s; processor time min %.1f s, median %.1f s, max %.1f s; "
              "peak memory min %ld MB, median %ld MB, max %ld MB\n",
              what, t.front(), t[t.size() / 2], t.back(), c.front(), c[c.size() / 2], c.back(), m.front() / 1024,
              m[m.size() / 2] / 1024, m.back() / 1024);
}

int Rehearse(int clients, int runs) {
  fs::path dir = fs::temp_directory_path() / "zandolin-bench-fleet-rehearse";
  fs::remove_all(dir);
  fs::create_directories(dir / "captures");
  json queues = json::array();
  for (int q = 0; q < kQueues; ++q) queues.push_back({{"name", "NEW-" + Queue(q)}, {"printShareName", {Queue(q)}}});
  json directory = {{"directory",
                     {{"domain", "corp.example.com"},
                      {"namingContext", "DC=corp,DC=example,DC=com"},
                      {"printQueues", queues},
                      {"sizeLimit", 0}}}};
  std::ofstream(dir / "directory.json") << directory.dump();
  json servers = json::array();
  for (int q = 0; q < kQueues; ++q) servers.push_back(Queue(q));
  std::ofstream(dir / "servers.json") << json{{"printServers", {{"NEW", {{"queues", servers}}}}}}.dump();
  std::ofstream(dir / "fleet.ini", std::ios::binary) << kIniHead + kIniTail;
  for (int i = 0; i < clients; ++i) {
    fs::path c = dir / "captures" / ("PC" + std::to_string(10000 + i));
    fs::create_directories(c / "files" / "C" / "Deploy");
    std::ofstream(c / "machine.json") << Capture(i).dump();
  }
  std::printf("%d clients of %d printers, a directory of %d print queues, %u processors\n", clients, kPrinters,
              kQueues, static_cast<unsigned>(sysconf(_SC_NPROCESSORS_ONLN)));
  std::vector<Measure> measures;
  for (int r = 0; r < runs; ++r) {
    fs::remove_all(dir / "out");
    measures.push_back(RunTool({"rehearse", "--ini", (dir / "fleet.ini").string(), "--servers",
                                (dir / "servers.json").string(), "--directory", (dir / "directory.json").string(),
                                (dir / "captures").string(), "--out", (dir / "out").string()}));
    std::printf("  run %d: %.1f s, processor %.1f s, peak %ld MB, load average %s\n", r + 1, measures.back().seconds,
                measures.back().cpuSeconds, measures.back().peakKb / 1024, LoadAverage().c_str());
    std::fflush(stdout);
  }
  json counts = json::parse(std::ifstream(dir / "out" / "fleet.json"))["counts"];
  std::printf("  counts: %s; index.html %ld MB\n", counts.dump().c_str(),
              static_cast<long>(fs::file_size(dir / "out" / "index.html") >> 20));
  Summary("rehearse", measures);
  fs::remove_all(dir);
  return 0;
}

int Collect(int files, int runs) {
  fs::path dir = fs::temp_directory_path() / "zandolin-bench-fleet-collect";
  fs::remove_all(dir);
  fs::create_directories(dir / "share");
  // 50 real runs of the engine: manual moves of 20 printers each.
  const std::string ini = "[GENERAL]\r\nUseActiveDirectory=False\r\nUseManualDefinitions=True\r\n" +
                          kIniTail.substr(0, kIniTail.find("[ACTIVE DIRECTORY]")) +
                          "[MANUAL DEFINITIONS SERVERS]\r\nFromServers=OLD\r\nToServers=NEW\r\n" +
                          kIniTail.substr(kIniTail.find("[NOTIFICATION SMTP]"));
  json servers = json::array();
  for (int q = 0; q < kQueues; q += 2) servers.push_back(Queue(q));
  std::vector<std::string> outputs;
  for (int i = 0; i < 50; ++i) {
    fs::path c = dir / "clients" / std::to_string(i);
    fs::create_directories(c / "files" / "C" / "Deploy");
    json m = Capture(i);
    m["printServers"] = {{"NEW", {{"queues", servers}}}};
    std::ofstream(c / "machine.json") << m.dump();
    std::ofstream(c / "files" / "C" / "Deploy" / "fleet.ini", std::ios::binary) << ini;
    sim::RunOptions options;
    options.limitSeconds = 60;
    options.stuckAtOnce = true;
    sim::Client::Load(c)->Run(options);
    std::ifstream in(c / "files" / "C" / "Deploy" / ("PC" + std::to_string(10000 + i) + "_u" + std::to_string(i) +
                                                      "_migration.txt"),
                     std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    outputs.push_back(text.str());
  }
  // Each file is one of them under another client's names.
  for (int f = 0; f < files; ++f) {
    int i = f % 50;
    std::string text = outputs[i];
    const std::string computer = "PC" + std::to_string(10000 + i), user = "Username: u" + std::to_string(i) + " ";
    const std::string newComputer = "PC" + std::to_string(100000 + f), newUser = "Username: v" + std::to_string(f) + " ";
    text.replace(text.find(computer), computer.size(), newComputer);
    text.replace(text.find(user), user.size(), newUser);
    fs::path sub = dir / "share" / std::to_string(f / 1000);
    if (f % 1000 == 0) fs::create_directories(sub);
    std::ofstream(sub / (newComputer + "_v" + std::to_string(f) + "_migration.txt"), std::ios::binary) << text;
  }
  std::printf("%d output files of %zu to %zu bytes, %u processors\n", files,
              std::min_element(outputs.begin(), outputs.end(), [](auto& a, auto& b) { return a.size() < b.size(); })->size(),
              std::max_element(outputs.begin(), outputs.end(), [](auto& a, auto& b) { return a.size() < b.size(); })->size(),
              static_cast<unsigned>(sysconf(_SC_NPROCESSORS_ONLN)));
  std::vector<Measure> measures;
  for (int r = 0; r < runs; ++r) {
    fs::remove_all(dir / "out");
    measures.push_back(RunTool({"collect", (dir / "share").string(), "--out", (dir / "out").string()}));
    std::printf("  run %d: %.1f s, processor %.1f s, peak %ld MB, load average %s\n", r + 1, measures.back().seconds,
                measures.back().cpuSeconds, measures.back().peakKb / 1024, LoadAverage().c_str());
    std::fflush(stdout);
  }
  json counts = json::parse(std::ifstream(dir / "out" / "fleet.json"))["counts"];
  std::printf("  counts: %s\n", counts.dump().c_str());
  Summary("collect", measures);
  fs::remove_all(dir);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string what = argc > 1 ? argv[1] : "";
  int runs = argc > 3 ? std::atoi(argv[3]) : 3;
  if (what == "rehearse") return Rehearse(argc > 2 ? std::atoi(argv[2]) : 5000, runs);
  if (what == "collect") return Collect(argc > 2 ? std::atoi(argv[2]) : 50000, runs);
  std::fprintf(stderr, "usage: bench_fleet rehearse [CLIENTS [RUNS]] | collect [FILES [RUNS]]\n");
  return 2;
}
