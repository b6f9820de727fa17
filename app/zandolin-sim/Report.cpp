#include "Report.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/SpoolerErrors.h"

#include <algorithm>
#include <map>
#include <vector>

namespace report {

namespace {

using nlohmann::json;

// Text for the report: CR LF and lone CR as line ends, each line indented.
std::string Indented(const std::string& text, const std::string& indent) {
  std::string out = indent;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '\r') {
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
      out += "\n" + indent;
    } else if (c == '\n') {
      out += "\n" + indent;
    } else {
      out += c;
    }
  }
  return out;
}

std::string Quoted(const json& value) { return value.is_null() ? "(none)" : value.get<std::string>(); }

// "1 print queue", "3 print queues".
std::string Count(size_t n, const std::string& one, const std::string& many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

void PrintPrinters(std::ostream& out, const char* title, const json& printers) {
  out << title << (printers.empty() ? " none\n" : "\n");
  for (const json& p : printers) {
    out << "  " << p["name"].get<std::string>();
    std::string server = p["serverName"].is_null() ? "" : p["serverName"].get<std::string>();
    if (!server.empty())
      out << "  (network: server " << server << ", share " << p["shareName"].get<std::string>() << ")";
    else
      out << "  (local: port " << p["portName"].get<std::string>() << ", driver "
          << p["driverName"].get<std::string>() << ")";
    out << "\n";
  }
}

// ---------------------------------------------------------------- the client

std::string PointAndPrintWords(const json& client) {
  const json& policy = client["pointAndPrint"];
  const json& restrict = policy["RestrictDriverInstallationToAdministrators"];
  if (client["standardUserInstallsDrivers"].get<bool>())
    return restrict == 0 ? "any user installs a print server's driver without a prompt"
                         : "any user installs a print server's driver (before Windows Vista)";
  if (restrict != 0)
    return "only administrators may install a print server's driver "
           "(RestrictDriverInstallationToAdministrators " + restrict.dump() + ")";
  return "installing a print server's driver asks for an administrator's consent";
}

const char* const kSteps[] = {"", "the greeting", "HELO", "MAIL FROM", "RCPT TO", "DATA", "the message"};

std::string PeerWords(const json& peer) {
  if (peer == "network") return "sent over the network to the server the INI file names";
  if (peer == "accept") return "a simulated server inside zandolin-sim accepts it; nothing leaves this machine";
  if (peer == "silent")
    return "a simulated server accepts the connection and never answers; nothing leaves this machine";
  int step = peer["refuse"].get<int>();
  return std::string("a simulated server refuses ") + kSteps[step] + " (step " + std::to_string(step) +
         ") with 550; nothing leaves this machine";
}

void PrintClient(std::ostream& out, const json& client) {
  out << "User: "
      << (client["isAdmin"].get<bool>()
              ? "an administrator"
              : "a standard user: local printers, drivers, ports, HKEY_LOCAL_MACHINE and the system "
                "folder are closed to it")
      << "\n";
  out << "Point and Print: " << PointAndPrintWords(client) << "\n";
  out << "E-mail: " << PeerWords(client["smtp"]) << "\n";
  const json& limit = client["directorySizeLimit"];
  if (limit.is_null()) return;
  out << "Directory: ";
  if (limit == "server") out << "a real LDAP server, with its own size limit\n";
  else if (limit == 0) out << "no size limit\n";
  else out << "at most " << limit.get<int64_t>() << " entries a query (the server's size limit)\n";
}

// ---------------------------------------------------------------- the run

void PrintRunEnd(std::ostream& out, const json& t) {
  const std::string ended = t["ended"].get<std::string>();
  out << "\nRun ended: " << ended << "\n";
  if (ended == "returned") out << "  The engine finished and the process ended.\n";
  if (!t["fatal"].is_null())
    out << "  fatal run-time error " << t["fatal"]["number"].get<int64_t>() << ": "
        << t["fatal"]["description"].get<std::string>() << "\n"
        << "  The process stopped at an error the engine does not catch.\n";
  if (!t["stuckReason"].is_null()) out << "  Why: " << t["stuckReason"].get<std::string>() << "\n";

  const json& status = t["runStatus"];
  out << "Run status recorded: ";
  if (status.is_null()) {
    out << "nothing\n";
    return;
  }
  const std::string value = status["value"].get<std::string>();
  out << value << " for " << status["iniFile"].get<std::string>() << ", in "
      << status["where"].get<std::string>() << "\n"
      << (value == "True" ? "  Later logons skip this INI file unless it says AlwaysRun.\n"
                          : "  The next logon runs this INI file again.\n");
}

void PrintMessageBoxes(std::ostream& out, const json& boxes) {
  out << "\nMessage boxes:" << (boxes.empty() ? " none\n" : "\n");
  for (const json& box : boxes) {
    const uint32_t style = box["style"].get<uint32_t>();
    out << "  [" << box["title"].get<std::string>() << "] (style " << style << ": " << StyleWords(style) << ")\n";
    out << Indented(box["text"].get<std::string>(), "    ") << "\n";
  }
}

// "error N" and, for the spooler's usual refusals, what it means.
std::string ErrorWords(int64_t error) {
  const std::string_view meaning = sim::SpoolerErrorMeaning(error);
  return "error " + std::to_string(error) + (meaning.empty() ? "" : ": " + std::string(meaning));
}

// The printer the engine moved an old one to, by its own "Migrating: OLD to
// NEW" lines; empty when it moved none.
std::string MovedTo(const std::string& outcome, const std::string& oldName) {
  const std::string head = "Migrating: " + oldName + " to ";
  std::string target;
  for (size_t at = outcome.find("Migrating: "); at != std::string::npos; at = outcome.find("Migrating: ", at + 1)) {
    size_t eol = outcome.find('\r', at);
    std::string line = outcome.substr(at, eol == std::string::npos ? std::string::npos : eol - at);
    if (line.size() > head.size() && sim::SameNoCase(line.substr(0, head.size()), head)) target = line.substr(head.size());
  }
  return target;
}

// The last AddPrinterConnectionA of that name, or null.
const json* LastAdd(const json& calls, const std::string& name) {
  const json* found = nullptr;
  for (const json& call : calls)
    if (call["call"] == "AddPrinterConnectionA" && call["args"][0].is_string() &&
        sim::SameNoCase(call["args"][0].get<std::string>(), name))
      found = &call;
  return found;
}

// Each removed printer and what took its place, the added printers, and
// what became of the default.
void PrintChanges(std::ostream& out, const json& t) {
  auto has = [](const json& list, const std::string& name) {
    for (const json& p : list)
      if (sim::SameNoCase(p["name"].get<std::string>(), name)) return true;
    return false;
  };
  std::vector<std::string> removed;
  for (const json& p : t["printersBefore"])
    if (!has(t["printersAfter"], p["name"].get<std::string>())) removed.push_back(p["name"].get<std::string>());
  out << "Printers removed:" << (removed.empty() ? " none\n" : "\n");
  for (const std::string& name : removed) {
    const std::string target = MovedTo(t["outcomeText"].get<std::string>(), name);
    const json* add = target.empty() ? nullptr : LastAdd(t["spoolerCalls"], target);
    out << "  " << name << ": ";
    if (!add) out << "removed with no replacement\n";
    else if ((*add)["result"] != 0) out << "replaced by " << target << "\n";
    else
      out << "removed with no replacement: " << target << " could not be added ("
          << ErrorWords((*add)["lastError"].get<int64_t>()) << ")\n";
  }
  std::vector<std::string> added;
  for (const json& p : t["printersAfter"])
    if (!has(t["printersBefore"], p["name"].get<std::string>())) added.push_back(p["name"].get<std::string>());
  out << "Printers added:" << (added.empty() ? " none\n" : "\n");
  for (const std::string& name : added) out << "  " << name << "\n";

  const json &before = t["defaultBefore"], &after = t["defaultAfter"];
  out << "Default printer: ";
  if (before.is_null() && after.is_null()) out << "none before or after\n";
  else if (after.is_null()) out << "lost: the user had " << before.get<std::string>() << " and now has none\n";
  else if (before.is_null()) out << "set to " << after.get<std::string>() << " (there was none)\n";
  else if (sim::SameNoCase(before, after)) out << "kept (" << after.get<std::string>() << ")\n";
  else out << "changed from " << before.get<std::string>() << " to " << after.get<std::string>() << "\n";
}

void PrintDirectory(std::ostream& out, const json& t) {
  for (const json& q : t["directoryQueries"]) {
    const size_t entries = q["entries"].get<size_t>();
    out << "\nDirectory query: " << Count(entries, "print queue came", "print queues came");
    if (q["cut"].is_null())
      out << "; the LDAP server's size limit cut the answer (it does not say by how many)";
    else if (q["cut"] != 0)
      out << "; the size limit of " << entries << " left out " << q["cut"].get<size_t>()
          << " more (the engine's query is not paged)";
    out << "\n";
  }
}

void PrintEventLog(std::ostream& out, const json& t) {
  out << "\nEvent log entries written:" << (t["eventLogWritten"].empty() ? " none\n" : "\n");
  for (const json& e : t["eventLogWritten"]) {
    out << "  " << e["source"].get<std::string>() << ", type " << e["type"].get<int64_t>() << ", id "
        << e["id"].get<int64_t>() << "\n";
    for (const json& s : e["strings"]) out << Indented(s.get<std::string>(), "    ") << "\n";
  }
  for (const json& r : t["eventLogRefused"]) {
    out << "  refused: id " << r["id"].get<int64_t>() << ", error " << r["lastError"].get<int64_t>();
    if (r["lastError"] == 1500)
      out << ": its text of " << r["longestString"].get<size_t>()
          << " characters is longer than the 31,839 Windows takes";
    else
      out << ": its " << r["dataSize"].get<size_t>() << " bytes of data are more than the 61,440 Windows takes";
    out << "; the engine's log still says the event was logged\n";
  }
}

void PrintMail(std::ostream& out, const json& sockets) {
  if (sockets.empty()) return;
  out << "\nE-mail:\n";
  for (const json& s : sockets) {
    out << "  " << s["host"].get<std::string>() << " port " << s["port"].get<std::string>() << ", "
        << (s["peer"] == "network" ? std::string("over the network") : "simulated server (" +
                                     (s["peer"].is_string() ? s["peer"].get<std::string>()
                                                            : "refuses step " + s["peer"]["refuse"].dump()) +
                                     ")")
        << "\n";
    if (!s["error"].is_null())
      out << "    error " << s["error"]["number"].get<int64_t>() << ": "
          << s["error"]["description"].get<std::string>()
          << (s["connected"].get<bool>() ? "\n" : " (no connection)\n");
    std::string dialogue = Dialogue(s["sent"].get<std::string>(), s["received"].get<std::string>(), "    ");
    if (!dialogue.empty()) out << dialogue;
    else if (s["connected"].get<bool>()) out << "    (the server never answered)\n";
  }
}

// Handles that calls opened and no call closed.
void PrintOpenHandles(std::ostream& out, const json& calls) {
  std::map<std::string, std::string> open;   // handle -> what it is
  std::vector<std::string> order;
  auto walk = [&](const json& list, auto& self) -> void {
    for (const json& call : list) {
      if (call.contains("repeat")) {
        self(call["calls"], self);
        continue;
      }
      const std::string name = call["call"].get<std::string>();
      const json& args = call["args"];
      json handle = nullptr;
      std::string what;
      if (name == "OpenPrinterA" && call.value("result", 0) != 0) {
        handle = call["out"];
        what = "printer " + args[0].get<std::string>() + ", from OpenPrinterA";
      } else if (name == "AddPrinterA" && call.contains("result") && !call["result"].is_null()) {
        handle = call["result"];
        what = "printer " + (args[2].is_null() ? std::string() : args[2]["pPrinterName"].get<std::string>()) +
               ", from AddPrinterA";
      } else if ((name == "RegOpenKeyA" || name == "RegCreateKeyA") && call.value("result", 1) == 0) {
        handle = call["out"];
        what = "registry key " + (args[1].is_null() ? std::string() : args[1].get<std::string>()) + ", from " + name;
      } else if (name == "RegisterEventSourceA" && call.contains("result") && !call["result"].is_null()) {
        handle = call["result"];
        what = "event source " + (args[1].is_null() ? std::string() : args[1].get<std::string>());
      } else if ((name == "ClosePrinter" || name == "DeregisterEventSource") && args[0].is_string() &&
                 call.value("result", 0) != 0) {
        open.erase(args[0].get<std::string>());
      } else if (name == "RegCloseKey" && args[0].is_string() && call.value("result", 1) == 0) {
        open.erase(args[0].get<std::string>());
      }
      if (handle.is_string() && !open.count(handle.get<std::string>())) {
        open[handle.get<std::string>()] = what;
        order.push_back(handle.get<std::string>());
      }
    }
  };
  walk(calls, walk);
  std::vector<std::string> left;
  for (const std::string& h : order)
    if (open.count(h)) left.push_back(h + " (" + open[h] + ")");
  out << "Handles never closed:" << (left.empty() ? " none\n" : "\n");
  for (const std::string& h : left) out << "  " << h << "\n";
}

}  // namespace

std::string StyleWords(uint32_t style) {
  static const char* const kButtons[] = {
      "an OK button",          "OK and Cancel buttons", "Abort, Retry and Ignore buttons",
      "Yes, No and Cancel buttons", "Yes and No buttons", "Retry and Cancel buttons",
      "Cancel, Try Again and Continue buttons"};
  std::vector<std::string> words;
  const uint32_t buttons = style & 0xF;
  words.push_back(buttons < 7 ? kButtons[buttons] : "buttons " + std::to_string(buttons));
  switch (style & 0xF0) {
    case 0x00: break;
    case 0x10: words.push_back("a critical (stop) icon"); break;
    case 0x20: words.push_back("a question-mark icon"); break;
    case 0x30: words.push_back("a warning (exclamation) icon"); break;
    case 0x40: words.push_back("an information icon"); break;
    default: words.push_back("icon " + std::to_string(style & 0xF0));
  }
  static const char* const kDefault[] = {"", "the second button as default", "the third button as default",
                                         "the fourth button as default"};
  if (uint32_t d = (style >> 8) & 0xF; d) words.push_back(d < 4 ? kDefault[d] : "default button " + std::to_string(d));
  if ((style & 0x3000) == 0x1000) words.push_back("system-modal");
  if ((style & 0x3000) == 0x2000) words.push_back("task-modal");
  struct Flag {
    uint32_t bit;
    const char* words;
  };
  static const Flag kFlags[] = {{0x4000, "a Help button"},        {0x8000, "no focus"},
                                {0x10000, "brought to the foreground"}, {0x20000, "on the default desktop only"},
                                {0x40000, "topmost"},             {0x80000, "right-aligned text"},
                                {0x100000, "right-to-left reading"}, {0x200000, "a service notification"}};
  uint32_t known = 0x3FFF;
  for (const Flag& f : kFlags) {
    known |= f.bit;
    if (style & f.bit) words.push_back(f.words);
  }
  if ((style & 0x3000) == 0x3000) words.push_back("modality 3");
  if (style & ~known) words.push_back("other flags " + std::to_string(style & ~known));
  std::string text;
  for (const std::string& w : words) text += (text.empty() ? "" : ", ") + w;
  return text;
}

std::string Dialogue(const std::string& sent, const std::string& received, const std::string& indent) {
  // The server's answers, a multi-line answer by its first line; text
  // without its line end shown as it stands.
  std::vector<std::string> answers;
  for (size_t at = 0; at < received.size();) {
    size_t eol = received.find("\r\n", at);
    std::string line = received.substr(at, eol == std::string::npos ? std::string::npos : eol - at);
    at = eol == std::string::npos ? received.size() : eol + 2;
    bool continued = !answers.empty() && answers.back().size() >= 4 && answers.back()[3] == '-';
    if (continued) answers.back() = answers.back().substr(0, 3) + " " + answers.back().substr(4);
    else answers.push_back(eol == std::string::npos ? line + " (no line end)" : line);
  }
  std::string out;
  size_t next = 0;
  auto answer = [&] {
    if (next < answers.size()) out += indent + "< " + answers[next++] + "\n";
  };
  answer();   // the greeting comes first
  for (size_t at = 0; at < sent.size();) {
    size_t eol = sent.find("\r\n", at);
    if (eol == std::string::npos) {
      out += indent + "> " + sent.substr(at) + " (no line end)\n";
      break;
    }
    std::string command = sent.substr(at, eol - at);
    at = eol + 2;
    out += indent + "> " + command + "\n";
    const bool data = sim::SameNoCase(command, "DATA") && next < answers.size() && answers[next].rfind("354", 0) == 0;
    answer();
    if (!data) continue;
    // The message ends at a line holding a lone point.
    size_t end = sent.find("\r\n.\r\n", at - 2);
    std::string message = sent.substr(at, end == std::string::npos ? std::string::npos : end + 2 - at);
    size_t lines = static_cast<size_t>(std::count(message.begin(), message.end(), '\n'));
    out += indent + "> (the message: " + Count(lines, "line", "lines") + ", " +
           Count(message.size(), "byte", "bytes") + (end == std::string::npos ? ", not ended" : "") + ")\n";
    if (end == std::string::npos) break;
    at = end + 5;
    answer();
  }
  return out;
}

void Print(std::ostream& out, const json& t, const Place& place) {
  out << "Simulated client: " << place.folder << "\n";
  if (!place.note.empty()) out << place.note << "\n";
  PrintClient(out, t["client"]);
  PrintRunEnd(out, t);
  PrintMessageBoxes(out, t["messageBoxes"]);

  out << "\n";
  PrintPrinters(out, "Printers before:", t["printersBefore"]);
  out << "Default printer before: " << Quoted(t["defaultBefore"]) << "\n";
  PrintPrinters(out, "Printers after:", t["printersAfter"]);
  out << "Default printer after: " << Quoted(t["defaultAfter"]) << "\n";
  PrintChanges(out, t);
  PrintDirectory(out, t);

  const std::string outcome = t["outcomeText"].get<std::string>();
  out << "\nOutcome text:" << (outcome.empty() ? " (empty)\n" : "\n");
  if (!outcome.empty()) out << Indented(outcome, "  ") << "\n";

  PrintEventLog(out, t);
  PrintMail(out, t["sockets"]);

  out << "\nFiles written or changed:" << (t["filesWritten"].empty() ? " none\n" : "\n");
  for (const json& f : t["filesWritten"]) out << "  " << f.get<std::string>() << "\n";

  out << "\nDebug file: " << place.debugFile << "\n";
  if (t.contains("calls")) {
    out << "\nCalls of the boundary: recorded in the transcript's calls (--json)\n";
    PrintOpenHandles(out, t["calls"]);
  }
}

}  // namespace report
