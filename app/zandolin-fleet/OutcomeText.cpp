// Reading the engine's outcome text: every line the engine writes to it,
// by its own words.
#include "app/zandolin-fleet/OutcomeText.h"

#include <cstdlib>

namespace fleet {

namespace {

constexpr std::string_view kComputerHead = "* ----- Computer: ";
constexpr std::string_view kComputerTail = " Printers ----- *";
constexpr std::string_view kUserSeparator = " Username: ";
constexpr std::string_view kListingHeader = "* ----- AD Printers ----- *";
constexpr std::string_view kReportAt = "Report At: ";

// The headers of the phases, as the engine writes them.
constexpr std::string_view kPhaseHeaders[] = {
    "* ----- Migrating Printers using AD ----- *",
    "* ----- Migrating Networked Printers Between Printers ----- *",
    "* ----- Migrating Networked Printers Between Servers ----- *",
    "* ----- Migrating Networked Servers and Printers Between Servers and Printers----- *",
    "* ----- Maintenance Populate ----- *",
    "* ----- Maintenance Prune Network Printers ----- *",
    "* ----- Maintenance Prune Local Printers ----- *",
    "* ----- Maintenance Prune All Orphaned Active Directory Printers ----- *",
};

constexpr std::string_view kAlreadySucceeded[] = {
    "This INI file has already succeeded on this machine.",
    "If you would like to run this INI file again, please save it as a different name or ",
    "please select the Always Run feature on the General step.",
};

constexpr std::string_view kDirectoryErrors[] = {
    "Error accessing Active Directory. Try installing an MDAC update.",
    "Error quering Active Directory printers.",
};

// Lines that carry a printer and change nothing that the report counts.
constexpr std::string_view kNoteHeads[] = {
    "Error getting handle to printer: ",
    "Error getting printer information: ",
    "Warning no currently set default printer.",
    "Populating local printer, printer already exists: ",
    "Populating networked printer, printer already exists: ",
    "Error populating Maintenance Local Printer, no driver information available : ",
    "Error populating Maintenance Networked Printer on Windows 95/98/ME, no driver information available : ",
};

struct Plain {
  std::string_view head;
  OutcomeStep::Kind kind;
};
constexpr Plain kPlainSteps[] = {
    {"Populated networked printer: ", OutcomeStep::kAdd},
    {"Populated local printer: ", OutcomeStep::kAdd},
    {"Deleted networked printer: ", OutcomeStep::kRemove},
    {"Deleted local printer: ", OutcomeStep::kRemove},
    {"Set default printer: ", OutcomeStep::kDefaultSet},
    {"Error parsing default printer settings: ", OutcomeStep::kDefaultFailed},
    {"Printer already migrated: ", OutcomeStep::kAlreadyMigrated},
    {"Printer NOT FOUND IN AD: ", OutcomeStep::kNotInDirectory},
};

// "Error (" code ") " tail printer.
struct Coded {
  std::string_view tail;
  OutcomeStep::Kind kind;
};
constexpr Coded kCodedSteps[] = {
    {") populating network printer: ", OutcomeStep::kAddFailed},
    {") populating networked printer: ", OutcomeStep::kAddFailed},
    {") populating local printer: ", OutcomeStep::kAddFailed},
    {") deleting network printer: ", OutcomeStep::kRemoveFailed},
    {") opening local printer: ", OutcomeStep::kRemoveFailed},
    {") deleting local printer: ", OutcomeStep::kRemoveFailed},
    {") determining OS version for setting default printer: ", OutcomeStep::kDefaultFailed},
    {") opening printer for set default: ", OutcomeStep::kDefaultFailed},
    {") getting a reference to printer for set default: ", OutcomeStep::kDefaultFailed},
    {") setting default printer: ", OutcomeStep::kDefaultFailed},
    {") getting reference for setting default printer: ", OutcomeStep::kDefaultFailed},
};

bool StartsWith(std::string_view text, std::string_view head) {
  return text.size() >= head.size() && text.compare(0, head.size(), head) == 0;
}
bool EndsWith(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The lines of a text, without their line ends.
std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    std::string_view line = text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  return lines;
}

// "Error (" code ") ...": the code and the rest from the closing bracket.
bool ErrorCode(std::string_view line, long& code, std::string_view& rest) {
  if (!StartsWith(line, "Error (")) return false;
  size_t close = line.find(')', 7);
  if (close == std::string_view::npos || close == 7) return false;
  std::string digits(line.substr(7, close - 7));
  char* end = nullptr;
  code = std::strtol(digits.c_str(), &end, 10);
  if (!end || *end != '\0') return false;
  rest = line.substr(close);
  return true;
}

// "NAME (SERVER)" of the printer section and of the migration's notes: the
// name in front of the last " (".
std::string NameBeforeServer(std::string_view text) {
  size_t open = text.rfind(" (");
  return std::string(open == std::string_view::npos ? text : text.substr(0, open));
}

bool ReadStep(std::string_view line, OutcomeRun& run) {
  for (const Plain& p : kPlainSteps) {
    if (!StartsWith(line, p.head)) continue;
    std::string_view printer = line.substr(p.head.size());
    OutcomeStep step{p.kind, std::string(printer), "", 0};
    if (p.kind == OutcomeStep::kAlreadyMigrated || p.kind == OutcomeStep::kNotInDirectory)
      step.printer = NameBeforeServer(printer);
    if (p.kind == OutcomeStep::kDefaultFailed) run.operationFailed = true;
    run.steps.push_back(step);
    return true;
  }
  if (StartsWith(line, "Migrating: ")) {
    std::string_view names = line.substr(11);
    size_t to = names.find(" to \\\\", 2);
    if (to == std::string_view::npos) return false;
    run.steps.push_back({OutcomeStep::kMove, std::string(names.substr(0, to)),
                         std::string(names.substr(to + 4)), 0});
    return true;
  }
  long code = 0;
  std::string_view rest;
  if (ErrorCode(line, code, rest)) {
    for (const Coded& c : kCodedSteps) {
      if (!StartsWith(rest, c.tail)) continue;
      run.steps.push_back({c.kind, std::string(rest.substr(c.tail.size())), "", code});
      run.operationFailed = true;
      return true;
    }
  }
  return false;
}

bool IsNote(std::string_view line) {
  for (std::string_view head : kNoteHeads)
    if (StartsWith(line, head)) return true;
  // The driver warnings of an install: "Warning (" what ") unable to ...".
  return StartsWith(line, "Warning (") &&
         (line.find(") unable to install provided driver: ") != std::string_view::npos ||
          line.find(") unable to add provided driver information: ") != std::string_view::npos);
}

bool IsPhaseHeader(std::string_view line) {
  for (std::string_view header : kPhaseHeaders)
    if (line == header) return true;
  return false;
}

}  // namespace

OutcomeRun ReadOutcome(std::string_view text) {
  OutcomeRun run;
  enum { kOutside, kInventory, kListing } section = kOutside;
  size_t alreadyLine = 0;
  for (std::string_view line : Lines(text)) {
    if (line.empty()) continue;
    if (alreadyLine > 0) {
      if (alreadyLine < 3 && line == kAlreadySucceeded[alreadyLine]) {
        ++alreadyLine;
        continue;
      }
      alreadyLine = 0;
    }
    if (StartsWith(line, kReportAt) && run.reportAt.empty() && !run.inventory) {
      run.reportAt = std::string(line.substr(kReportAt.size()));
      continue;
    }
    if (StartsWith(line, kComputerHead) && EndsWith(line, kComputerTail)) {
      std::string_view who =
          line.substr(kComputerHead.size(), line.size() - kComputerHead.size() - kComputerTail.size());
      size_t at = who.find(kUserSeparator);
      if (at != std::string_view::npos) {
        run.inventory = true;
        run.computer = std::string(who.substr(0, at));
        run.user = std::string(who.substr(at + kUserSeparator.size()));
        section = kInventory;
        continue;
      }
    }
    if (line == kAlreadySucceeded[0]) {
      run.alreadySucceeded = true;
      alreadyLine = 1;
      continue;
    }
    if (line == kListingHeader) {
      section = kListing;
      continue;
    }
    if (IsPhaseHeader(line)) {
      section = kOutside;
      continue;
    }
    if (line == kDirectoryErrors[0] || line == kDirectoryErrors[1] ||
        ((StartsWith(line, "> Error Number: ") || StartsWith(line, "> Error Description: ")) &&
         run.directoryFailed)) {
      run.directoryFailed = true;
      run.directoryError += (run.directoryError.empty() ? "" : "; ") + std::string(line);
      section = kOutside;
      continue;
    }
    if (section == kListing) {
      ++run.directoryQueues;
      continue;
    }
    if (ReadStep(line, run)) {
      section = kOutside;
      continue;
    }
    if (IsNote(line)) {
      run.notes.emplace_back(line);
      continue;
    }
    if (section == kInventory) {
      long code = 0;
      std::string_view rest;
      if (StartsWith(line, "Local Printer: ")) {
        run.printers.emplace_back(line.substr(15));
        run.local.push_back(true);
        continue;
      }
      if (StartsWith(line, "Default Printer:")) {
        run.defaultPrinter = std::string(line.substr(16));
        continue;
      }
      // The default printer could not be read (the engine counts this as a
      // failed operation on every generation but the newest, whose wording
      // is the same; the text cannot tell them apart).
      if (ErrorCode(line, code, rest) && (rest == ") determining default printer." ||
                                          rest == ") determining OS version for setting default printer.")) {
        run.notes.emplace_back(line);
        run.operationFailed = true;
        continue;
      }
      if (EndsWith(line, ")") && line.find(" (") != std::string_view::npos) {
        run.printers.push_back(NameBeforeServer(line));
        run.local.push_back(false);
        continue;
      }
    }
    run.unknown.emplace_back(line);
  }
  return run;
}

namespace {

OutcomeRun ReadRun(std::string_view text) {
  OutcomeRun run = ReadOutcome(text);
  run.text = CollapseDirectoryListing(std::string(text), "the output file, not repeated here");
  return run;
}

}  // namespace

std::optional<std::vector<OutcomeRun>> ReadOutputFile(std::string_view text) {
  std::vector<std::string_view> lines = Lines(text);
  size_t first = 0;
  while (first < lines.size() && lines[first].empty()) ++first;
  if (first == lines.size() || !StartsWith(lines[first], kReportAt)) return std::nullopt;

  // Each run begins at its head; its text runs to the next head.
  std::vector<OutcomeRun> runs;
  size_t start = std::string_view::npos;
  for (std::string_view line : lines) {
    if (!StartsWith(line, kReportAt)) continue;
    size_t at = static_cast<size_t>(line.data() - text.data());
    if (start != std::string_view::npos) runs.push_back(ReadRun(text.substr(start, at - start)));
    start = at;
  }
  runs.push_back(ReadRun(text.substr(start)));
  runs.back().cut = !EndsWith(text, "\r\n");
  return runs;
}

std::string CollapseDirectoryListing(const std::string& text, const std::string& listedIn) {
  std::string out;
  out.reserve(text.size() < 65536 ? text.size() : 65536);
  size_t count = 0;
  bool listing = false;
  auto flush = [&] {
    if (count == 0) return;
    out += "[" + std::to_string(count) + " print queue" + (count == 1 ? "" : "s") +
           " of the directory, listed in " + listedIn + "]\r\n";
    count = 0;
  };
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    size_t next = end == std::string::npos ? text.size() : end + 1;
    std::string_view whole(text.data() + start, next - start);
    std::string_view line = whole;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    bool listed = false;
    if (StartsWith(line, ">> AD Printer: ")) {
      listed = true;
    } else if (listing) {
      if (line.empty() || IsPhaseHeader(line) || StartsWith(line, "* ----- ")) listing = false;
      else listed = true;
    }
    if (listed) {
      ++count;
    } else {
      flush();
      out.append(whole);
    }
    if (line == kListingHeader) listing = true;
    start = next;
  }
  flush();
  return out;
}

// Whether the bytes are UTF-8 (overlong forms of three and four bytes are
// not looked for: Windows-1252 text never has them by chance).
bool IsUtf8(std::string_view bytes) {
  size_t i = 0;
  while (i < bytes.size()) {
    unsigned char c = static_cast<unsigned char>(bytes[i]);
    size_t n;
    if (c < 0x80) n = 0;
    else if (c >= 0xC2 && c <= 0xDF) n = 1;
    else if ((c & 0xF0) == 0xE0) n = 2;
    else if (c >= 0xF0 && c <= 0xF4) n = 3;
    else return false;
    if (i + n >= bytes.size() && n > 0) return false;
    for (size_t k = 1; k <= n; ++k)
      if ((static_cast<unsigned char>(bytes[i + k]) & 0xC0) != 0x80) return false;
    i += n + 1;
  }
  return true;
}

std::string AsUtf8(std::string_view bytes) {
  if (IsUtf8(bytes)) return std::string(bytes);
  // Windows-1252's characters at 0x80-0x9F; the rest is Latin-1.
  static const char16_t kHigh[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                     0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                     0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                     0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};
  std::string out;
  out.reserve(bytes.size() + bytes.size() / 8);
  for (char ch : bytes) {
    unsigned char c = static_cast<unsigned char>(ch);
    unsigned cp = c >= 0x80 && c < 0xA0 ? kHigh[c - 0x80] : c;
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | cp >> 6);
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | cp >> 12);
      out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return out;
}

}  // namespace fleet
