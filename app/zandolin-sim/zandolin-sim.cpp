// zandolin-sim: runs the engine once on a simulated client folder and
// reports what the run did to it.
//
//   zandolin-sim [MACHINE_DIR] [--cmdline TEXT] [--json] [--report FILE]
//                [--dry-run] [--network] [--trace] [--limit SECONDS]
#include "Report.h"
#include "Version.h"
#include "platform/sim/SimContext.h"
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <random>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char kUsage[] =
    "usage: zandolin-sim [MACHINE_DIR] [--cmdline TEXT] [--json] [--report FILE]\n"
    "                    [--dry-run] [--network] [--trace] [--limit SECONDS]\n"
    "\n"
    "Runs the engine once on the simulated client in MACHINE_DIR (machine.json and\n"
    "files/) and leaves the folder as the run left the computer. Without MACHINE_DIR\n"
    "it runs on a fresh copy of the bundled example client.\n"
    "\n"
    "  --cmdline TEXT     the engine's command line (default: empty)\n"
    "  --json             print the transcript as JSON instead of the report\n"
    "  --report FILE      also write the JSON transcript to FILE\n"
    "  --dry-run          run on a copy; MACHINE_DIR is left as it was, and unless\n"
    "                     machine.json sets smtp a simulated server accepts the mail\n"
    "  --network          with --dry-run, send the mail to the real server\n"
    "  --trace            record every call of the boundary (the transcript's calls)\n"
    "  --limit SECONDS    wall-clock time before the run counts as stuck (default 120)\n"
    "  --help             print this text\n"
    "  --version          print the version\n"
    "\n"
    "The \"ldap\" form of machine.json's directory (a real LDAP server) works in the\n"
    "Linux build only: the Windows build, zandolin-sim.exe, has no LDAP client for it\n"
    "and fails the bind as a directory server that does not answer.\n";

struct Options {
  std::optional<fs::path> machineDir;
  std::string commandLine;
  bool json = false;
  std::optional<std::string> reportFile;
  bool dryRun = false;
  bool network = false;
  bool trace = false;
  double limitSeconds = 120;
};

struct UsageError {
  std::string message;
};

bool ParseSeconds(const std::string& text, double& seconds) {
  if (text.empty()) return false;
  char* end = nullptr;
  seconds = std::strtod(text.c_str(), &end);
  return end && *end == '\0' && seconds >= 0 && seconds < 1e9;
}

Options ParseArguments(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    std::optional<std::string> inlineValue;
    if (arg.rfind("--", 0) == 0 && arg.find('=') != std::string::npos) {
      inlineValue = arg.substr(arg.find('=') + 1);
      arg = arg.substr(0, arg.find('='));
    }
    auto value = [&](const char* what) -> std::string {
      if (inlineValue) return *inlineValue;
      if (i + 1 >= argc) throw UsageError{arg + " needs " + what};
      return argv[++i];
    };
    auto noValue = [&] {
      if (inlineValue) throw UsageError{arg + " takes no value"};
    };
    if (arg == "--cmdline") {
      options.commandLine = value("the command line text");
    } else if (arg == "--json") {
      noValue();
      options.json = true;
    } else if (arg == "--report") {
      options.reportFile = value("a file name");
      if (options.reportFile->empty()) throw UsageError{"--report needs a file name"};
    } else if (arg == "--dry-run") {
      noValue();
      options.dryRun = true;
    } else if (arg == "--network") {
      noValue();
      options.network = true;
    } else if (arg == "--trace") {
      noValue();
      options.trace = true;
    } else if (arg == "--limit") {
      std::string text = value("a number of seconds");
      if (!ParseSeconds(text, options.limitSeconds))
        throw UsageError{"--limit: expected a number of seconds, not '" + text + "'"};
    } else if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      std::exit(0);
    } else if (arg == "--version") {
      std::cout << "zandolin-sim " ZANDOLIN_VERSION "\n";
      std::exit(0);
    } else if (!arg.empty() && arg[0] == '-' && arg != "-") {
      throw UsageError{"unknown option '" + arg + "'"};
    } else if (options.machineDir) {
      throw UsageError{"only one MACHINE_DIR may be given ('" + options.machineDir->string() +
                       "' and '" + arg + "')"};
    } else {
      options.machineDir = fs::path(arg);
    }
  }
  return options;
}

// The bundled example client: in the source tree the build came from, or
// beside the executable in an installed copy.
std::optional<fs::path> FindExample(const char* argv0) {
  std::vector<fs::path> candidates;
#ifdef ZANDOLIN_SOURCE_DIR
  candidates.push_back(fs::path(ZANDOLIN_SOURCE_DIR) / "examples" / "basic");
#endif
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (ec) exe = fs::absolute(argv0, ec);
  if (!exe.empty()) {
    fs::path dir = exe.parent_path();
    candidates.push_back(dir / "examples" / "basic");
    candidates.push_back(dir.parent_path() / "share" / "zandolin" / "examples" / "basic");
  }
  for (const fs::path& candidate : candidates)
    if (fs::is_directory(candidate, ec)) return candidate;
  return std::nullopt;
}

// A folder of its own under the temporary directory, made here.
fs::path FreshTempFolder() {
  std::random_device random;
  std::error_code ec;
  for (int attempt = 0; attempt < 100; ++attempt) {
    fs::path folder = fs::temp_directory_path(ec) / ("zandolin-sim-" + std::to_string(random()));
    if (fs::create_directory(folder, ec)) return folder;
  }
  throw UsageError{"cannot make a temporary folder"};
}

void CopyFolder(const fs::path& from, const fs::path& to) {
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks |
                         fs::copy_options::overwrite_existing);
}

// The transcript with its fields in their documented order: those every
// run has, then what the simulated client tells of itself and the trace.
nlohmann::ordered_json Ordered(const json& transcript) {
  static const char* kFields[] = {"ended",          "fatal",           "stuckIn",         "messageBoxes",
                                  "progress",       "printersBefore",  "printersAfter",   "defaultBefore",
                                  "defaultAfter",   "spoolerCalls",    "eventLogWritten", "sockets",
                                  "filesWritten",   "outcomeText",     "debugBuffer",     "stuckReason",
                                  "runStatus",      "client",          "directoryQueries", "eventLogRefused",
                                  "calls"};
  nlohmann::ordered_json ordered = nlohmann::ordered_json::object();
  for (const char* field : kFields)
    if (transcript.contains(field)) ordered[field] = nlohmann::ordered_json::parse(transcript[field].dump(
                                        -1, ' ', false, json::error_handler_t::replace));
  return ordered;
}

std::string Dump(const json& transcript) {
  return Ordered(transcript).dump(2, ' ', false, json::error_handler_t::replace);
}

// Where the run's debug file is: the one written beside the executable.
std::string DebugFileText(const json& t, const sim::Machine& machine, const fs::path& folder, bool kept) {
  std::string exeDir = machine.exePath.substr(0, machine.exePath.find_last_of('\\') + 1);
  for (const json& f : t["filesWritten"]) {
    std::string name = f.get<std::string>();
    if (name.size() < 6) continue;
    std::string tail = name.substr(name.size() - 6);
    for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (tail != ".debug") continue;
    if (!kept) return name + " (in the copy, which was removed)";
    sim::ResolvedPath path = sim::ResolveWindowsPath(folder, name);
    return name + " (" + path.host.string() + ")";
  }
  return "none written (the engine writes it beside " + machine.exePath + ")";
}

int Main(int argc, char** argv) {
  Options options;
  try {
    options = ParseArguments(argc, argv);
  } catch (const UsageError& e) {
    std::cerr << "zandolin-sim: " << e.message << "\n" << kUsage;
    return 2;
  }

  fs::path original, folder;
  std::string note;
  bool removeAfter = false;
  std::error_code ec;
  try {
    if (options.machineDir) {
      original = *options.machineDir;
      if (!fs::is_directory(original, ec)) {
        std::cerr << "zandolin-sim: MACHINE_DIR '" << original.string() << "' is not a folder\n";
        return 2;
      }
      folder = original;
      if (options.dryRun) {
        folder = FreshTempFolder();
        CopyFolder(original, folder);
        removeAfter = true;
        note = "Dry run: the run worked on a copy; " + original.string() + " is unchanged.";
      }
    } else {
      std::optional<fs::path> example = FindExample(argv[0]);
      if (!example) {
        std::cerr << "zandolin-sim: the bundled example client (examples/basic) cannot be found; "
                     "give MACHINE_DIR\n";
        return 2;
      }
      folder = FreshTempFolder();
      CopyFolder(*example, folder);
      note = "Running on a copy of the bundled example client, in " + folder.string() + ".";
    }
  } catch (const fs::filesystem_error& e) {
    std::cerr << "zandolin-sim: cannot copy the client folder: " << e.what() << "\n";
    return 2;
  } catch (const UsageError& e) {
    std::cerr << "zandolin-sim: " << e.message << "\n";
    return 2;
  }

  auto cleanUp = [&] {
    if (removeAfter) fs::remove_all(folder, ec);
  };

  std::unique_ptr<sim::Client> client;
  sim::Machine machine;
  const bool defaults = !fs::exists(folder / "machine.json", ec);
  try {
    client = sim::Client::Load(folder);
    machine = client->State();   // as it was before the run
  } catch (const sim::MachineError& e) {
    // The message names machine.json; say which folder's, the one given.
    fs::path shown = (options.machineDir ? original : folder) / "machine.json";
    std::string message = e.message;
    if (message.rfind("machine.json", 0) == 0) message = shown.string() + message.substr(12);
    std::cerr << "zandolin-sim: " << message << "\n";
    cleanUp();
    return 2;
  }

  if (options.json && !note.empty()) std::cerr << "zandolin-sim: " << note << "\n";

  sim::RunOptions run;
  run.commandLine = options.commandLine;
  run.limitSeconds = options.limitSeconds;
  run.trace = options.trace;
  // A dry run sends no mail unless asked to.
  if (options.dryRun && !options.network) run.defaultSmtpPeer = sim::SmtpPeer{};
  json transcript = client->Run(run);
  try {
    client->Save();
  } catch (const sim::MachineError& e) {
    std::cerr << "zandolin-sim: " << e.message << "\n";
  }

  int status = 0;
  if (options.reportFile) {
    std::ofstream report(*options.reportFile, std::ios::binary | std::ios::trunc);
    report << Dump(transcript) << "\n";
    if (!report) {
      std::cerr << "zandolin-sim: cannot write the report file '" << *options.reportFile << "'\n";
      status = 2;
    }
  }
  if (options.json) {
    std::cout << Dump(transcript) << "\n";
  } else {
    if (defaults)
      note += std::string(note.empty() ? "" : "\n") +
              "No machine.json in the client folder: the run used the default of every field.";
    if (machine.ansiCodePage != sim::Machine{}.ansiCodePage)
      note += std::string(note.empty() ? "" : "\n") + "ANSI code page: " +
              std::to_string(machine.ansiCodePage) + " (the engine's text is in it).";
    report::Print(std::cout, transcript,
                  report::Place{(options.machineDir ? original : folder).string(), note,
                                DebugFileText(transcript, machine, folder, !removeAfter)});
  }
  std::cout.flush();
  client.reset();
  cleanUp();
  return status;
}

}  // namespace

int main(int argc, char** argv) { return Main(argc, argv); }
