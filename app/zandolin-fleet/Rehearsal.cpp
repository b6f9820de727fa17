#include "app/zandolin-fleet/Rehearsal.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/frmProgress.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "migration/modMoveADPrinters.h"
#include "notification/modNotification.h"
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

namespace fleet {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* kNoIniBox = "Unable to find INI file. Please check your deployment and try again.";
constexpr const char* kLoadFailedBox =
    "Unable to get INI file contents, please check your file path and permissions.";

bool ReadFile(const fs::path& file, std::string& bytes) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  std::stringstream buffer;
  buffer << in.rdbuf();
  bytes = buffer.str();
  return static_cast<bool>(in) || in.eof();
}

// Writes a file whole: beside it first, then in its place, so that workers
// writing the same file never leave half of one.
void WriteFileAtomically(const fs::path& file, const std::string& bytes) {
  fs::path temp = file;
  temp += ".part" + std::to_string(std::random_device()());
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out << bytes;
  }
  std::error_code ec;
  fs::rename(temp, file, ec);
  if (ec) fs::remove(temp, ec);
}

std::string Hex(uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
  return text;
}

constexpr uint64_t kFnvOffset = 1469598103934665603ull;

uint64_t Fnv1a(const std::string& text, uint64_t hash) {
  for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
  return hash;
}

// A name for a file from any text: letters, digits, '-', '_' and '.'.
std::string SafeName(const std::string& text) {
  std::string name;
  for (char c : text) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
              c == '_' || c == '.';
    name += ok ? c : '_';
  }
  return name.substr(0, 80);
}

// The directory's print queues as the run listed them, one a line, written
// once for all the clients that saw the same listing; its file name.
std::string WriteDirectoryListing(const fs::path& outDir) {
  if (gDirectoryPrinters.size() <= 1) return "";
  uint64_t hash = kFnvOffset;
  for (size_t i = 1; i < gDirectoryPrinters.size(); ++i) {
    const DirectoryPrinter& d = gDirectoryPrinters[i];
    for (const std::string* part : {&d.PrinterName, &d.ServerName, &d.ShareName}) hash = Fnv1a(*part + '\n', hash);
  }
  std::string name = "directory-" + Hex(hash) + ".txt";
  std::error_code ec;
  if (fs::exists(outDir / name, ec)) return name;
  std::string listing;
  for (size_t i = 1; i < gDirectoryPrinters.size(); ++i) {
    const DirectoryPrinter& d = gDirectoryPrinters[i];
    listing += d.PrinterName + " (\\\\" + d.ServerName + "\\" + d.ShareName + ")\r\n";
  }
  WriteFileAtomically(outDir / name, listing);
  return name;
}

// The recipients of the mail the session sent: the text of its RCPT
// command, when the message itself went too.
std::string MailRecipients(const json& sockets) {
  for (const json& s : sockets) {
    const std::string sent = s.value("sent", "");
    size_t rcpt = sent.find("RCPT TO:<");
    if (rcpt == std::string::npos || sent.find("\r\n.\r\n") == std::string::npos) continue;
    size_t end = sent.find(">\r\n", rcpt);
    if (end != std::string::npos) return sent.substr(rcpt + 9, end - rcpt - 9);
  }
  return "";
}

// Why the simulated process would not end, in plain words.
std::string StuckReason(const json& transcript) {
  if (frmProgress.Loaded && !transcript["progress"].value("shown", false))
    return "the progress window, made hidden to install a printer with its driver on Windows "
           "95/98/ME while ShowProgress is False, is never closed: the process never ends";
  if (frmProgress.Loaded) return "the progress window is never closed: the process never ends";
  // The mail session: the simulated client says what its connection came to.
  if (!transcript["sockets"].empty() && transcript["stuckReason"].is_string())
    return transcript["stuckReason"].get<std::string>();
  std::string detail = transcript["stuckIn"].is_string() ? transcript["stuckIn"].get<std::string>() : "";
  return "the process waits for ever (" + detail + ")";
}

// The transcript as the report keeps it: the directory's listing, which
// every client of a fleet repeats, collapsed to one line.
json CompactTranscript(json t, const std::string& listedIn) {
  auto collapse = [&](json& text) {
    if (text.is_string()) text = CollapseDirectoryListing(text.get<std::string>(), listedIn);
  };
  collapse(t["outcomeText"]);
  collapse(t["debugBuffer"]);
  for (json& s : t["sockets"]) collapse(s["sent"]);
  for (json& e : t["eventLogWritten"]) {
    for (json& s : e["strings"]) collapse(s);
    collapse(e["data"]);
  }
  return t;
}

}  // namespace

std::string Generation(const sim::Machine& m) {
  if (m.platformId == 1) return "Windows 95/98/ME";
  if (m.platformId != 2) return "platform " + std::to_string(m.platformId);
  struct Name {
    uint32_t major, minor;
    const char* name;
  };
  static const Name kNames[] = {{5, 0, "Windows 2000"},  {5, 1, "Windows XP"},    {5, 2, "Windows Server 2003"},
                                {6, 0, "Windows Vista"}, {6, 1, "Windows 7"},     {6, 2, "Windows 8"},
                                {6, 3, "Windows 8.1"},   {10, 0, "Windows 10/11"}};
  if (m.majorVersion < 5) return "Windows NT " + std::to_string(m.majorVersion) + "." + std::to_string(m.minorVersion);
  for (const Name& n : kNames)
    if (n.major == m.majorVersion && n.minor == m.minorVersion) return n.name;
  return "Windows " + std::to_string(m.majorVersion) + "." + std::to_string(m.minorVersion);
}

RehearsalSetup LoadSetup(const fs::path& ini, const std::optional<fs::path>& servers,
                         const std::optional<fs::path>& directory) {
  RehearsalSetup setup;
  setup.iniFile = ini;
  if (!ReadFile(ini, setup.iniBytes)) throw UsageError{"the INI file '" + ini.string() + "' cannot be read"};
  auto load = [](const fs::path& file, const char* option) {
    std::error_code ec;
    if (!fs::is_regular_file(file, ec))
      throw UsageError{std::string(option) + ": '" + file.string() + "' is not a file"};
    try {
      return sim::LoadMachineFile(file);
    } catch (const sim::MachineError& e) {
      std::string message = e.message;
      std::string name = file.filename().string();
      if (message.rfind(name, 0) == 0) message = file.string() + message.substr(name.size());
      throw UsageError{std::string(option) + ": " + message};
    }
  };
  if (servers) setup.printServers = load(*servers, "--servers").printServers;
  if (directory) {
    sim::Machine m = load(*directory, "--directory");
    if (!m.directory) throw UsageError{"--directory: '" + directory->string() + "' holds no directory"};
    setup.directory = std::move(m.directory);
  }
  return setup;
}

std::vector<fs::path> FindCaptures(const std::vector<fs::path>& paths, std::vector<Skipped>& skipped) {
  std::vector<fs::path> captures;
  std::error_code ec;
  std::vector<fs::path> pending(paths.rbegin(), paths.rend());
  while (!pending.empty()) {
    fs::path folder = pending.back();
    pending.pop_back();
    if (fs::is_regular_file(folder / "machine.json", ec)) {
      captures.push_back(folder);
      continue;
    }
    if (!fs::is_directory(folder, ec)) {
      skipped.push_back({folder.string(), "not a folder"});
      continue;
    }
    if (fs::is_directory(folder / "files", ec)) {
      skipped.push_back({folder.string(), "it holds files/ but no machine.json"});
      continue;
    }
    std::vector<fs::path> below;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, ec))
      if (entry.is_directory(ec)) below.push_back(entry.path());
    std::sort(below.begin(), below.end());
    pending.insert(pending.end(), below.rbegin(), below.rend());
  }
  return captures;
}

ClientFacts RehearseClient(RehearsalSetup& setup, const fs::path& capture, size_t index) {
  std::unique_ptr<sim::Client> client;
  try {
    client = sim::Client::Load(capture);
  } catch (const sim::MachineError& e) {
    std::string message = e.message;
    if (message.rfind("machine.json", 0) == 0) message = (capture / "machine.json").string() + message.substr(12);
    throw UsageError{message};
  }
  client->KeepFilesInMemory();
  sim::Machine& m = client->State();
  m.timerIntervalMs = 1;

  ClientFacts f;
  f.source = capture.string();
  f.computer = m.computerName.value_or("");
  f.user = m.userName.value_or("");
  f.generation = Generation(m);
  if (m.capture)
    for (const std::string& note : m.capture->notes) f.notes.push_back("capture: " + note);

  // The INI file lies beside the executable, where the deployment puts it.
  const std::string exeFolder = m.exePath.substr(0, m.exePath.find_last_of('\\'));
  const std::string iniPath = exeFolder + "\\" + setup.iniFile.filename().string();
  if (client->PutFile(iniPath, setup.iniBytes).failed())
    throw UsageError{"the INI file cannot be put at " + iniPath + " (exePath " + m.exePath + ")"};

  // The fleet's servers and directory are lent to the run, not copied.
  const bool servers = setup.printServers.has_value(), directory = setup.directory.has_value();
  auto lend = [&] {
    if (servers) std::swap(m.printServers, *setup.printServers);
    if (directory) std::swap(m.directory, setup.directory);
  };
  lend();
  sim::RunOptions options;
  options.limitSeconds = setup.limitSeconds;
  options.stuckAtOnce = true;
  // Nothing leaves the machine: a capture that names no SMTP peer gets the
  // played one that accepts the mail, as a dry run of zandolin-sim does.
  options.defaultSmtpPeer = sim::SmtpPeer{};
  json t = client->Run(options);
  lend();

  f.ended = t["ended"].get<std::string>();
  if (f.ended == "fatal")
    f.endedDetail =
        std::to_string(t["fatal"]["number"].get<long>()) + " " + t["fatal"]["description"].get<std::string>();
  else if (f.ended == "stuck")
    f.endedDetail = StuckReason(t);
  for (const json& p : t["printersBefore"]) f.printersBefore.push_back(p["name"]);
  for (const json& p : t["printersAfter"]) f.printersAfter.push_back(p["name"]);
  f.defaultBefore = t["defaultBefore"].is_string() ? t["defaultBefore"].get<std::string>() : "";
  f.defaultAfter = t["defaultAfter"].is_string() ? t["defaultAfter"].get<std::string>() : "";
  for (const json& box : t["messageBoxes"])
    f.messageBoxes.push_back("[" + box["title"].get<std::string>() + "] " + box["text"].get<std::string>());

  const OutcomeRun run = ReadOutcome(gOutcomeText);
  bool noIni = false, notLoaded = false;
  for (const json& box : t["messageBoxes"]) {
    noIni = noIni || box["text"] == kNoIniBox;
    notLoaded = notLoaded || box["text"] == kLoadFailedBox;
  }
  if (noIni) f.run = kRunNoIniFile;
  else if (notLoaded) f.run = kRunNotLoaded;
  else if (run.alreadySucceeded) f.run = kRunAlreadySucceeded;
  else if (run.inventory) f.run = run.directoryFailed ? kRunDirectoryFailed : kRunFull;
  else f.run = kRunStopped;
  DeriveChanges(f, {&run});

  const bool fullRun = f.run == kRunFull || f.run == kRunDirectoryFailed;
  if (fullRun && !INIFilePath.empty() && f.ended != "fatal")
    f.statusRecorded = BoolText(!AbortStatus && OperationsSucceeded);
  f.runsAgain = INIDocument.AlwaysRun || !(f.statusRecorded == "True" || f.run == kRunAlreadySucceeded);
  if (!INIFilePath.empty() && INIFilePath != iniPath && (fullRun || f.run == kRunAlreadySucceeded))
    f.notes.push_back("the engine read " + INIFilePath + ", not " + iniPath);

  const bool dispatched = (fullRun || f.run == kRunAlreadySucceeded) && f.ended != "fatal";
  if (dispatched && INIDocument.UseFileOutput) {
    f.outputFile = NotificationFileName();
    if (gDebugBuffer.find("ERROR: Saving notification output file <<") != std::string::npos)
      f.notes.push_back("the output file cannot be written on the captured client (is its folder there?)");
  }
  if (dispatched && INIDocument.UseSMTP) {
    f.mailTo = MailRecipients(t["sockets"]);
    if (f.mailTo.empty()) f.notes.push_back("the mail was not sent");
  }
  for (const json& e : t["eventLogWritten"]) {
    if (e["id"] != 20001) continue;
    int type = e["type"];
    f.eventLog = type == 4 ? "information (4)" : type == 2 ? "warning (2)" : std::to_string(type);
  }
  f.notes.insert(f.notes.end(), run.notes.begin(), run.notes.end());
  f.unknownLines = run.unknown;
  f.directoryQueues = run.directoryQueues;

  const std::string listing = WriteDirectoryListing(setup.outDir);
  f.outcomeText = CollapseDirectoryListing(gOutcomeText, listing);
  std::string name = f.computer.empty() && f.user.empty() ? capture.filename().string() : f.computer + "_" + f.user;
  char number[16];
  std::snprintf(number, sizeof number, "%05zu-", index + 1);
  f.transcript = "clients/" + std::string(number) + SafeName(name) + ".json";
  std::ofstream(setup.outDir / f.transcript, std::ios::binary | std::ios::trunc)
      << CompactTranscript(std::move(t), listing).dump(1, ' ', false, json::error_handler_t::replace) << "\n";
  return f;
}

}  // namespace fleet
