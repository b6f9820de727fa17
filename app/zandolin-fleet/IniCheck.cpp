#include "app/zandolin-fleet/IniCheck.h"
#include "platform/sim/SimServices.h"

#include "config/modINIDocument.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "notification/frmWinsockContainer.h"
#include "platform/sim/Simulator.h"

#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

namespace fleet {

namespace fs = std::filesystem;

namespace {

constexpr const char* kIniPath = "C:\\Deploy\\check.ini";

const char* const kLoadFails =
    "so the load fails: every run stops at the message box \"Unable to get INI file contents, please "
    "check your file path and permissions.\" and waits there until someone clicks OK";

std::string StopsAtOnce(int number, const std::string& description) {
  return "the engine stops at once with the fatal error " + std::to_string(number) + " (" + description +
         "): nothing moves, no notification goes out and no debug file is written";
}

// The list keys and the key of each list that sizes it.
struct ListKey {
  const char* section;
  const char* key;
  const char* sizedBy;
};
constexpr ListKey kListKeys[] = {
    {"MANUAL DEFINITIONS SERVERS", "FromServers", "FromServers"},
    {"MANUAL DEFINITIONS SERVERS", "ToServers", "FromServers"},
    {"MANUAL DEFINITIONS PRINTERS", "FromPrinters", "FromPrinters"},
    {"MANUAL DEFINITIONS PRINTERS", "ToPrinters", "FromPrinters"},
    {"MANUAL DEFINITIONS MIXED", "FromServers", "FromServers"},
    {"MANUAL DEFINITIONS MIXED", "FromPrinters", "FromServers"},
    {"MANUAL DEFINITIONS MIXED", "ToServers", "FromServers"},
    {"MANUAL DEFINITIONS MIXED", "ToPrinters", "FromServers"},
    {"NOTIFICATION SMTP", "EmailTo", "EmailTo"},
    {"POPULATE", "ServerNames", "ServerNames"},
    {"POPULATE", "PrinterNames", "ServerNames"},
    {"PRUNE", "ServerNames", "ServerNames"},
    {"PRUNE", "PrinterNames", "ServerNames"},
    {"PRINTER_DRIVER", "PrinterName", "PrinterName"},
    {"PRINTER_DRIVER", "DriverName", "PrinterName"},
    {"PRINTER_DRIVER", "DriverFileName", "PrinterName"},
    {"PRINTER_DRIVER", "PortName", "PrinterName"},
};

bool Same(const std::string& a, const char* b) { return sim::UpperAscii(a) == sim::UpperAscii(b); }

// One key as the engine read it.
struct Read {
  std::string section, key, value;
  DWORD error = 0;
  bool flagged = false;   // the engine's read error flag went up for it
};

// The profile functions as the engine calls them, each read recorded with
// what it did to the engine's read error flag; a key that stopped the engine
// reads as absent on the next load, so that the load gets past it.
class RecordingProfile : public platform::Profile {
 public:
  explicit RecordingProfile(platform::Profile* inner) : inner_(inner) {}

  std::vector<Read> reads;
  std::set<std::string> absent;   // "SECTION\nKEY"

  void Settle() {
    if (!reads.empty() && INIReadError) reads.back().flagged = true;
    INIReadError = false;
  }

  DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer, DWORD size,
                                 LPCSTR fileName) override {
    Settle();
    Read read{section ? section : "", key ? key : "", "", 0, false};
    DWORD result = 0;
    if (absent.count(sim::UpperAscii(read.section) + "\n" + sim::UpperAscii(read.key))) {
      if (buffer && size > 0) buffer[0] = '\0';
      Sys().system->SetLastError(0);
    } else {
      result = inner_->GetPrivateProfileStringA(section, key, defaultValue, buffer, size, fileName);
    }
    read.error = Sys().system->GetLastError();
    if (buffer && size > 0) read.value.assign(buffer, strnlen(buffer, size));
    reads.push_back(read);
    Sys().system->SetLastError(read.error);
    return result;
  }
  DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer, DWORD size) override {
    return inner_->GetProfileStringA(section, key, defaultValue, buffer, size);
  }
  BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) override {
    return inner_->WriteProfileStringA(section, key, value);
  }

 private:
  platform::Profile* inner_;
};

// The pieces the engine makes of a list key's value, and the records the
// first key of a list makes room for.
size_t Pieces(const std::string& value) { return value.empty() ? 0 : Split(value, ",").size(); }
size_t Records(size_t pieces) { return pieces > 1 ? pieces : pieces == 1 ? 2 : 1; }

class Checker {
 public:
  Checker(const std::string& bytes, const CheckOptions& options) : bytes_(bytes), options_(options) {}

  std::vector<Finding> Run();

 private:
  Finding& Add(Finding::Severity severity, const std::string& section, const std::string& key,
               const std::string& message) {
    sim::ProfileLocation where = sim::LocateProfileKey(bytes_, section, key);
    findings_.push_back({severity, section, key, where.keyLine ? where.keyLine : where.sectionLine, message});
    return findings_.back();
  }
  void Error(const std::string& section, const std::string& key, const std::string& message) {
    Add(Finding::kError, section, key, message);
  }
  void Warning(const std::string& section, const std::string& key, const std::string& message) {
    Add(Finding::kWarning, section, key, message);
  }

  void FatalFinding(const Read& read, const FatalError& fatal);
  void ReadErrors(const std::vector<Read>& reads);
  void Warnings();
  void ServerNameHyphens();

  const std::string& bytes_;
  const CheckOptions& options_;
  std::vector<Finding> findings_;
  std::vector<Read> lastReads_;
  std::set<std::string> stopped_;   // "SECTION\nKEY" of the keys that stopped the engine
};

void Checker::FatalFinding(const Read& read, const FatalError& fatal) {
  const std::string stops = StopsAtOnce(fatal.Number, fatal.Description);
  for (const ListKey& list : kListKeys) {
    if (!Same(read.section, list.section) || !Same(read.key, list.key)) continue;
    size_t records = 1;
    for (const Read& r : lastReads_)
      if (Same(r.section, list.section) && Same(r.key, list.sizedBy)) records = Records(Pieces(TrimBlanks(r.value)));
    size_t pieces = Pieces(TrimBlanks(read.value));
    Error(read.section, read.key,
          std::to_string(pieces) + " names, but " + list.sizedBy + " makes room for " + std::to_string(records) +
              (records == 1 ? " record" : " records") + ": " + stops);
    return;
  }
  Error(read.section, read.key,
        "the value " + TrimBlanks(read.value) + " does not fit a 16-bit integer (-32768 to 32767): " + stops);
}

void Checker::ReadErrors(const std::vector<Read>& reads) {
  for (const Read& read : reads) {
    if (!read.flagged) continue;
    if (read.error > 0) {
      Error(read.section, read.key, "cannot be read (error " + std::to_string(read.error) + "), " + kLoadFails);
      continue;
    }
    sim::ProfileLocation where = sim::LocateProfileKey(bytes_, read.section, read.key);
    const std::string value = TrimBlanks(read.value);
    std::string what;
    if (!where.sectionLine) what = "missing (the file has no section [" + read.section + "])";
    else if (!where.keyLine) what = "missing";
    else if (value.empty()) what = "empty";
    else what = "the value \"" + value + "\" holds neither True nor False";
    Error(read.section, read.key, what + "; every Boolean key must hold True or False, " + kLoadFails);
  }
}

void Checker::ServerNameHyphens() {
  const INIDocumentRecord& d = INIDocument;
  std::set<std::string> said;
  auto check = [&](const char* section, const char* key, const std::string& name) {
    if (name.find('-') == std::string::npos) return;
    if (!said.insert(sim::UpperAscii(std::string(section) + "\n" + key + "\n" + name)).second) return;
    Warning(section, key,
            "the server name \"" + name + "\" holds a hyphen while UseActiveDirectory is True: the engine cuts the "
            "directory's queue names at the first hyphen, so a queue of " + name + " reads as one of the server \"" +
                name.substr(0, name.find('-')) + "\" and clients are moved to \\\\" + name.substr(0, name.find('-')));
  };
  for (const ServerDefinition& s : d.ServerDefinitions) {
    check("MANUAL DEFINITIONS SERVERS", "FromServers", s.FromServer);
    check("MANUAL DEFINITIONS SERVERS", "ToServers", s.ToServer);
  }
  for (const MixedDefinition& m : d.MixedDefinitions) {
    check("MANUAL DEFINITIONS MIXED", "FromServers", m.FromServer);
    check("MANUAL DEFINITIONS MIXED", "ToServers", m.ToServer);
  }
  for (const NameDefinition& n : d.PopulateDefinitions) check("POPULATE", "ServerNames", n.ServerName);
  for (const NameDefinition& n : d.PruneDefinitions) check("PRUNE", "ServerNames", n.ServerName);
}

void Checker::Warnings() {
  const INIDocumentRecord& d = INIDocument;
  if (d.UseSMTP) {
    Warning("NOTIFICATION SMTP", "UseSMTP",
            std::string("True: when the mail server cannot be reached (an unknown name, a refused connection), drops "
                        "the connection or stops answering in the middle of the dialogue, the mail session waits for "
                        "ever and the process never ends; only a refused step, or no answer at all within 30 "
                        "seconds, ends it") +
                (d.ShowProgress ? "; with ShowProgress True the logon waits too, behind the progress window" : ""));
    if (d.SMTPServerNameOrIP.empty())
      Warning("NOTIFICATION SMTP", "SMTPServerNameOrIP",
              "empty while UseSMTP is True: the connection fails at once and the process never ends");
    std::string port = TrimBlanks(d.ServerPort);
    bool digits = !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || std::stol(port) < 1 || std::stol(port) > 65535)
      Warning("NOTIFICATION SMTP", "ServerPort",
              "\"" + d.ServerPort + "\" is not a port number from 1 to 65535 while UseSMTP is True: the connection "
              "fails at once and the process never ends");
  }
  size_t addresses = 0;
  for (const Read& r : lastReads_)
    if (Same(r.section, "NOTIFICATION SMTP") && Same(r.key, "EmailTo")) addresses = Pieces(TrimBlanks(r.value));
  if (addresses > 1) {
    const std::string to = frmWinsockContainer.RecipientList();
    Warning("NOTIFICATION SMTP", "EmailTo",
            std::to_string(addresses) + " addresses, but the engine leaves the last one out: only " + to +
                (addresses == 2 ? " receives" : " receive") + " the mail");
  }
  if (d.UseClientPopup && d.UseSuccessClientPopup)
    Warning("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup",
            "True: after a run that went well the engine waits behind a message box until someone clicks OK; in an "
            "unattended start no one does, and the process never ends");
  if (d.UseClientPopup && d.UseFailureClientPopup)
    Warning("NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup",
            "True: after an aborted run the engine waits behind a message box until someone clicks OK; in an "
            "unattended start no one does, and the process never ends");

  // Populate of a network printer with a driver: on Windows 95/98/ME the
  // engine needs the progress window's handle and makes it hidden.
  const auto& populate = d.PopulateDefinitions;
  if (!d.ShowProgress && !populate.empty() && !(populate[0].ServerName.empty() && populate[0].PrinterName.empty())) {
    for (const NameDefinition& n : populate) {
      if (n.ServerName == "." || n.ServerName.empty() || n.PrinterName.empty()) continue;
      bool hasDriver = false;
      for (const DriverDefinition& driver : d.DriverDefinitions)
        hasDriver = hasDriver || driver.PrinterName == n.PrinterName;
      if (!hasDriver) continue;
      Warning("POPULATE", "PrinterNames",
              "\"" + n.PrinterName + "\" on the server " + n.ServerName + " has a driver in [PRINTER_DRIVER] while "
              "ShowProgress is False: on Windows 95/98/ME the engine installs it through a hidden progress window "
              "that it never closes, so the process never ends");
    }
  }

  if (d.DefaultType != 1 && d.DefaultType != 2 && !stopped_.count("SET_DEFAULT\nDEFAULTTYPE")) {
    sim::ProfileLocation where = sim::LocateProfileKey(bytes_, "SET_DEFAULT", "DefaultType");
    Warning("SET_DEFAULT", "DefaultType",
            (where.keyLine ? std::to_string(d.DefaultType) + ":" : std::string("missing, which reads as 0:")) +
                " neither 1 (keep the user's default when it moves) nor 2 (DefaultPrinterName for all): a default "
                "printer that moves is not kept as the default, and its users are left without one");
  }
  if (d.UseActiveDirectory && !d.DeleteADOrphans)
    Warning("PRUNE", "DeleteADOrphans",
            "False, but with UseActiveDirectory True the engine removes every connection whose queue is not in the "
            "directory all the same");

  const auto& prune = d.PruneDefinitions;
  if (!prune.empty() && !(prune[0].ServerName.empty() && prune[0].PrinterName.empty())) {
    for (size_t i = 0; i < prune.size(); ++i) {
      const NameDefinition& n = prune[i];
      const std::string entry = "entry " + std::to_string(i + 1) + " (ServerNames \"" + n.ServerName +
                                "\", PrinterNames \"" + n.PrinterName + "\")";
      if ((n.ServerName == "." || n.ServerName == ".*") && n.PrinterName.empty())
        Warning("PRUNE", "PrinterNames",
                entry + " removes every local printer of every client: an empty printer name matches them all");
      else if (n.ServerName != "*" && n.ServerName != ".*" && n.ServerName != "." && !n.ServerName.empty() &&
               n.PrinterName == "*")
        Warning("PRUNE", "PrinterNames", entry + " removes every printer of the server " + n.ServerName);
    }
  }
  if (d.DeleteAllNonNetworked)
    Warning("PRUNE", "DeleteAllNonNetworked", "True: every local printer of every client is removed");

  if (d.UseActiveDirectory) {
    ServerNameHyphens();
    if (!options_.directory) {
      Warning("GENERAL", "UseActiveDirectory",
              "True: the engine reads the print queues of the directory without paging, so a domain controller "
              "answers with its first 1000 at most (its default size limit): with more queues published, printers "
              "whose queue is not among them are not moved, and are removed as orphans");
    } else {
      const sim::SimDirectory& dir = *options_.directory;
      size_t queues = dir.printQueues.size();
      if (dir.sizeLimit > 0 && queues > dir.sizeLimit)
        Warning("GENERAL", "UseActiveDirectory",
                "True: the directory publishes " + std::to_string(queues) + " print queues, but answers the engine's "
                "query with the first " + std::to_string(dir.sizeLimit) + ": printers whose queue is among the other " +
                    std::to_string(queues - dir.sizeLimit) + " are not moved, and are removed as orphans");
    }
  }
}

std::vector<Finding> Checker::Run() {
  std::unique_ptr<sim::Client> client =
      sim::Client::Load(fs::temp_directory_path() / "zandolin-fleet-check-no-such-folder");
  client->KeepFilesInMemory();
  client->PutFile(kIniPath, bytes_);
  client->Install();
  const platform::ServiceSet simulated = platform::Services();
  RecordingProfile profile(simulated.profile);
  platform::ServiceSet services = simulated;
  services.profile = &profile;
  platform::SetServices(services);

  // Each load that stops on a key reports it; the next load reads past it.
  for (int attempt = 0; attempt < 64; ++attempt) {
    ResetProcessState();
    INIDocument.DebugOn = true;
    INIFilePath = kIniPath;
    profile.reads.clear();
    try {
      LoadINIDocument();
      profile.Settle();
      lastReads_ = profile.reads;
      break;
    } catch (const FatalError& fatal) {
      profile.Settle();
      lastReads_ = profile.reads;
      if (profile.reads.empty()) break;
      const Read& read = profile.reads.back();
      FatalFinding(read, fatal);
      stopped_.insert(sim::UpperAscii(read.section) + "\n" + sim::UpperAscii(read.key));
      profile.absent = stopped_;
    }
  }
  ReadErrors(lastReads_);
  Warnings();
  platform::SetServices(simulated);

  // Errors first, then warnings, each in the order of the file.
  std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
    if (a.severity != b.severity) return a.severity == Finding::kError;
    return a.line < b.line;
  });
  return findings_;
}

}  // namespace

std::vector<Finding> CheckIniBytes(const std::string& bytes, const CheckOptions& options) {
  return Checker(bytes, options).Run();
}

std::vector<Finding> CheckIniFile(const fs::path& file, const CheckOptions& options) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream buffer;
  if (in) buffer << in.rdbuf();
  std::error_code ec;
  if (!in || fs::is_directory(file, ec)) {
    return {{Finding::kError, "", "", 0,
             std::string("the file cannot be read (") + (fs::exists(file, ec) ? "no access" : "no such file") +
                 "); the engine reads every key as empty, " + kLoadFails}};
  }
  return CheckIniBytes(buffer.str(), options);
}

std::string FindingLine(const std::string& file, const Finding& f) {
  std::string line = file + (f.line > 0 ? ":" + std::to_string(f.line) : "") + ": " +
                     (f.severity == Finding::kError ? "error" : "warning") + ": ";
  if (!f.section.empty()) line += "[" + f.section + "] ";
  if (!f.key.empty()) line += f.key + ": ";
  return line + f.message;
}

}  // namespace fleet
