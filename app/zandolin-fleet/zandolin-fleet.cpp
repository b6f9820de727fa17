// zandolin-fleet: checks an INI file, rehearses it over captured clients,
// and collects the engine's output files into the same report.
#include "Version.h"
#include "app/zandolin-fleet/Collect.h"
#include "app/zandolin-fleet/IniCheck.h"
#include "app/zandolin-fleet/Processes.h"
#include "app/zandolin-fleet/Rehearsal.h"
#include "app/zandolin-fleet/Report.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;
using fleet::UsageError;

namespace {

const char kUsage[] =
    "usage: zandolin-fleet check FILE.ini [--directory FILE] [--json]\n"
    "       zandolin-fleet rehearse --ini FILE [--servers FILE] [--directory FILE]\n"
    "                      CAPTURE... --out DIR [--jobs N] [--limit SECONDS]\n"
    "       zandolin-fleet collect FOLDER --out DIR [--rehearsal DIR]\n"
    "       zandolin-fleet --help | --version\n"
    "\n"
    "check     Reads the INI file with the engine's own load and tells, with the section,\n"
    "          the key and the line, what stops every run (errors) and what leaves clients\n"
    "          waiting for ever or does what you may not expect (warnings). --directory\n"
    "          names the directory the clients meet, in machine.json's form, for its size\n"
    "          limit. Exit status 0: clean, 1: warnings, 2: errors (or the command could\n"
    "          not run). --json prints the findings as JSON.\n"
    "\n"
    "rehearse  Runs the engine with the INI file once on each captured client (a folder\n"
    "          with machine.json and files/, as zandolin-capture.exe writes it; a folder\n"
    "          of such folders is searched), as a dry run: no capture changes and no mail\n"
    "          leaves the machine. --servers and --directory give the print servers and\n"
    "          the directory for the whole fleet, in machine.json's form, in place of what\n"
    "          each capture holds. Writes fleet.csv, fleet.json, index.html and the\n"
    "          clients' transcripts into DIR. --jobs: worker processes (default: the\n"
    "          number of processors); --limit: seconds a client's run may take before it\n"
    "          counts as stuck (default 120).\n"
    "\n"
    "collect   Reads the engine's output files gathered below FOLDER into the same\n"
    "          report of what did happen; with --rehearsal, side by side with the\n"
    "          rehearsal written in that folder.\n"
    "\n"
    "A capture that cannot be read, and a file that is no output file, is named on\n"
    "standard error, skipped and counted in the report; the rest goes on.\n";

struct Arguments {
  std::string command;
  std::vector<std::string> positional;
  std::optional<std::string> ini, servers, directory, out, rehearsal, list;
  bool json = false;
  unsigned jobs = 0;
  double limit = 120;
  size_t part = 0, parts = 1, from = 0;
};

unsigned ParseCount(const std::string& option, const std::string& text) {
  char* end = nullptr;
  long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < 0 || value > 100000)
    throw UsageError{option + ": expected a whole number, not '" + text + "'"};
  return static_cast<unsigned>(value);
}

Arguments Parse(int argc, char** argv) {
  Arguments a;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) throw UsageError{arg + " needs a value"};
      return argv[++i];
    };
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      std::exit(0);
    } else if (arg == "--version") {
      std::cout << "zandolin-fleet " << ZANDOLIN_VERSION << "\n";
      std::exit(0);
    } else if (arg == "--ini") a.ini = value();
    else if (arg == "--servers") a.servers = value();
    else if (arg == "--directory") a.directory = value();
    else if (arg == "--out") a.out = value();
    else if (arg == "--rehearsal") a.rehearsal = value();
    else if (arg == "--list") a.list = value();
    else if (arg == "--json") a.json = true;
    else if (arg == "--jobs") {
      a.jobs = ParseCount(arg, value());
      if (a.jobs == 0) throw UsageError{"--jobs: at least 1"};
    } else if (arg == "--limit") {
      std::string text = value();
      char* end = nullptr;
      a.limit = std::strtod(text.c_str(), &end);
      if (text.empty() || *end != '\0' || a.limit <= 0) throw UsageError{"--limit: expected seconds, not '" + text + "'"};
    } else if (arg == "--part") a.part = ParseCount(arg, value());
    else if (arg == "--parts") a.parts = ParseCount(arg, value());
    else if (arg == "--from") a.from = ParseCount(arg, value());
    else if (!arg.empty() && arg[0] == '-') throw UsageError{"unknown option '" + arg + "'"};
    else if (a.command.empty()) a.command = arg;
    else a.positional.push_back(arg);
  }
  if (a.command.empty()) throw UsageError{"no command given"};
  return a;
}

fs::path Utf8Path(const std::string& text) {
  return fs::path(std::u8string(text.begin(), text.end()));
}

std::string PathText(const fs::path& path) {
  std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

int Check(const Arguments& a) {
  if (a.positional.size() != 1) throw UsageError{"check needs one INI file"};
  fleet::CheckOptions options;
  if (a.directory) {
    fleet::RehearsalSetup setup = fleet::LoadSetup(a.positional[0], std::nullopt, Utf8Path(*a.directory));
    options.directory = setup.directory;
  }
  std::vector<fleet::Finding> findings = fleet::CheckIniFile(Utf8Path(a.positional[0]), options);
  size_t errors = 0, warnings = 0;
  for (const fleet::Finding& f : findings) (f.severity == fleet::Finding::kError ? errors : warnings)++;
  if (a.json) {
    json list = json::array();
    for (const fleet::Finding& f : findings)
      list.push_back({{"severity", f.severity == fleet::Finding::kError ? "error" : "warning"},
                      {"section", f.section},
                      {"key", f.key},
                      {"line", f.line},
                      {"message", f.message}});
    std::cout << json{{"file", a.positional[0]}, {"errors", errors}, {"warnings", warnings}, {"findings", list}}.dump(2)
              << "\n";
  } else {
    for (const fleet::Finding& f : findings) std::cout << fleet::FindingLine(a.positional[0], f) << "\n";
    std::cout << a.positional[0] << ": " << errors << (errors == 1 ? " error, " : " errors, ") << warnings
              << (warnings == 1 ? " warning" : " warnings") << "\n";
  }
  return errors ? 2 : warnings ? 1 : 0;
}

// The results of the clients, one JSON line each, as a worker writes them.
json ResultLine(size_t index, const fleet::ClientFacts* facts, const std::string& skipped) {
  json line = {{"i", index}};
  if (facts) line["facts"] = fleet::ToJson(*facts), line["outcomeText"] = facts->outcomeText;
  else line["skipped"] = skipped;
  return line;
}

json RehearseOne(fleet::RehearsalSetup& setup, const fs::path& capture, size_t index) {
  try {
    fleet::ClientFacts facts = fleet::RehearseClient(setup, capture, index);
    return ResultLine(index, &facts, "");
  } catch (const UsageError& e) {
    return ResultLine(index, nullptr, e.message);
  } catch (const std::exception& e) {
    return ResultLine(index, nullptr, std::string("the rehearsal failed: ") + e.what());
  }
}

std::vector<fs::path> ReadList(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<fs::path> list;
  for (std::string line; std::getline(in, line);) list.push_back(Utf8Path(line));
  return list;
}

fleet::RehearsalSetup Setup(const Arguments& a) {
  if (!a.ini) throw UsageError{"--ini FILE is needed"};
  if (!a.out) throw UsageError{"--out DIR is needed"};
  auto path = [](const std::optional<std::string>& s) { return s ? std::optional<fs::path>(Utf8Path(*s)) : std::nullopt; };
  fleet::RehearsalSetup setup = fleet::LoadSetup(Utf8Path(*a.ini), path(a.servers), path(a.directory));
  setup.limitSeconds = a.limit;
  setup.outDir = Utf8Path(*a.out);
  return setup;
}

// A worker: its share of the list, from its position from on.
int Worker(const Arguments& a) {
  fleet::RehearsalSetup setup = Setup(a);
  std::vector<fs::path> captures = ReadList(Utf8Path(a.list.value_or("")));
  std::ofstream out(setup.outDir / ".work" / ("part-" + std::to_string(a.part) + ".jsonl"),
                    std::ios::binary | std::ios::app);
  size_t position = 0;
  for (size_t i = a.part; i < captures.size(); i += a.parts, ++position) {
    if (position < a.from) continue;
    out << RehearseOne(setup, captures[i], i).dump(-1, ' ', false, json::error_handler_t::replace) << "\n";
    out.flush();
  }
  return 0;
}

// Counts the lines of a growing file from where the last look ended.
struct LineCounter {
  fs::path file;
  std::streamoff read = 0;
  size_t lines = 0;
  void Update() {
    std::ifstream in(file, std::ios::binary);
    if (!in) return;
    in.seekg(read);
    char buffer[65536];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
      for (std::streamsize k = 0; k < in.gcount(); ++k) lines += buffer[k] == '\n';
      read += in.gcount();
    }
  }
};

int Rehearse(const Arguments& a) {
  fleet::RehearsalSetup setup = Setup(a);
  if (a.positional.empty()) throw UsageError{"no CAPTURE given"};
  std::vector<fs::path> paths;
  for (const std::string& p : a.positional) paths.push_back(Utf8Path(p));
  fleet::Report report;
  report.command = "rehearse";
  report.subject = PathText(setup.iniFile);
  std::vector<fs::path> captures = fleet::FindCaptures(paths, report.skipped);
  for (const fleet::Skipped& s : report.skipped) std::cerr << "zandolin-fleet: skipped '" << s.source << "': " << s.reason << "\n";

  std::error_code ec;
  fs::create_directories(setup.outDir / "clients", ec);
  fs::create_directories(setup.outDir / ".work", ec);
  if (!fs::is_directory(setup.outDir / ".work", ec))
    throw UsageError{"cannot make the folder '" + PathText(setup.outDir) + "'"};

  std::vector<json> results(captures.size());
  const size_t parts = std::min<size_t>(a.jobs ? a.jobs : fleet::ProcessorCount(), captures.size());
  fleet::Progress progress("Rehearsing:", captures.size());
  if (parts <= 1) {
    for (size_t i = 0; i < captures.size(); ++i) {
      progress.Update(i);
      results[i] = RehearseOne(setup, captures[i], i);
    }
  } else {
    const fs::path list = setup.outDir / ".work" / "captures.txt";
    {
      std::ofstream out(list, std::ios::binary | std::ios::trunc);
      for (const fs::path& c : captures) out << PathText(c) << "\n";
    }
    std::vector<fleet::Worker> workers(parts);
    std::vector<LineCounter> counters(parts);
    std::vector<bool> running(parts, true);
    std::vector<std::string> common = {"worker", "--ini", *a.ini, "--out", *a.out, "--list", PathText(list),
                                       "--limit", std::to_string(a.limit), "--parts", std::to_string(parts)};
    if (a.servers) common.insert(common.end(), {"--servers", *a.servers});
    if (a.directory) common.insert(common.end(), {"--directory", *a.directory});
    auto start = [&](size_t k, size_t from) {
      std::vector<std::string> args = common;
      args.insert(args.end(), {"--part", std::to_string(k), "--from", std::to_string(from)});
      if (!workers[k].Start(args)) throw UsageError{"cannot start a worker process"};
    };
    for (size_t k = 0; k < parts; ++k) {
      counters[k].file = setup.outDir / ".work" / ("part-" + std::to_string(k) + ".jsonl");
      fs::remove(counters[k].file, ec);
      start(k, 0);
    }
    for (size_t busy = parts; busy > 0;) {
      fleet::PauseBriefly();
      size_t done = 0;
      busy = 0;
      for (size_t k = 0; k < parts; ++k) {
        counters[k].Update();
        done += counters[k].lines;
        int code = 0;
        if (!running[k]) continue;
        if (workers[k].Running(code)) {
          ++busy;
          continue;
        }
        counters[k].Update();
        size_t share = (captures.size() - k + parts - 1) / parts;
        if (counters[k].lines >= share) {
          running[k] = false;
          continue;
        }
        // The worker ended in the middle of a client: that capture is
        // skipped, the rest of its share goes on in a new worker.
        size_t position = counters[k].lines;
        size_t index = k + position * parts;
        std::ofstream(counters[k].file, std::ios::binary | std::ios::app)
            << ResultLine(index, nullptr,
                          "the rehearsal of this capture ended its worker process (exit code " +
                              std::to_string(code) + ")")
                   .dump()
            << "\n";
        start(k, position + 1);
        ++busy;
      }
      progress.Update(done);
    }
    for (size_t k = 0; k < parts; ++k) {
      std::ifstream in(counters[k].file, std::ios::binary);
      for (std::string line; std::getline(in, line);) {
        json r = json::parse(line, nullptr, false);
        if (r.is_discarded() || !r.contains("i")) continue;
        size_t i = r["i"];
        if (i < results.size()) results[i] = std::move(r);
      }
    }
  }
  progress.Finish();
  fs::remove_all(setup.outDir / ".work", ec);

  for (size_t i = 0; i < captures.size(); ++i) {
    const json& r = results[i];
    if (r.contains("facts")) {
      report.clients.push_back(fleet::FactsFromJson(r["facts"]));
      report.clients.back().outcomeText = r.value("outcomeText", "");
    } else {
      std::string reason = r.contains("skipped") ? r["skipped"].get<std::string>() : "no result";
      std::cerr << "zandolin-fleet: skipped '" << PathText(captures[i]) << "': " << reason << "\n";
      report.skipped.push_back({PathText(captures[i]), reason});
    }
  }
  fleet::WriteReport(report, setup.outDir);
  std::cout << "Rehearsed " << report.clients.size() << " clients (" << report.skipped.size()
            << " skipped): " << PathText(setup.outDir / "index.html") << "\n";
  return 0;
}

int CollectCommand(const Arguments& a) {
  if (a.positional.size() != 1) throw UsageError{"collect needs one FOLDER"};
  if (!a.out) throw UsageError{"--out DIR is needed"};
  fleet::Report report = fleet::Collect(Utf8Path(a.positional[0]));
  for (const fleet::Skipped& s : report.skipped) std::cerr << "zandolin-fleet: skipped '" << s.source << "': " << s.reason << "\n";
  if (a.rehearsal) {
    report.comparison = fleet::Compare(fleet::ReadFleetJson(Utf8Path(*a.rehearsal)), report.clients);
    report.comparison->rehearsal = *a.rehearsal;
  }
  fleet::WriteReport(report, Utf8Path(*a.out));
  std::cout << "Collected " << report.clients.size() << " clients from " << report.extra["files"].get<size_t>()
            << " files (" << report.skipped.size() << " skipped)";
  if (report.comparison) std::cout << "; " << report.comparison->differing << " differ from the rehearsal";
  std::cout << ": " << PathText(Utf8Path(*a.out) / "index.html") << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Arguments a = Parse(argc, argv);
    if (a.command == "check") return Check(a);
    if (a.command == "rehearse") return Rehearse(a);
    if (a.command == "collect") return CollectCommand(a);
    if (a.command == "worker") return Worker(a);
    throw UsageError{"unknown command '" + a.command + "'"};
  } catch (const UsageError& e) {
    std::cerr << "zandolin-fleet: " << e.message << "\n" << kUsage;
    return 2;
  }
}
