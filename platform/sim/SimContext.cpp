// The running simulated client: faults, the drives, the default printer of
// each generation, and the transcript.
#include "platform/sim/SimContext.h"

#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "notification/modNotification.h"
#include "platform/sim/SimServices.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <sstream>

namespace sim {

namespace fs = std::filesystem;

namespace {

Context gBlank;
Context* gCurrent = nullptr;

bool IsDriveLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

// The entry of dir whose name equals name, case-blind; the exact name first.
// "." and ".." name no entry: they would lead out of dir.
std::optional<std::string> FindEntry(const fs::path& dir, const std::string& name) {
  if (name.empty() || name == "." || name == "..") return std::nullopt;
  std::error_code ec;
  if (fs::exists(dir / name, ec)) return name;
  if (!fs::is_directory(dir, ec)) return std::nullopt;
  std::string upper = UpperAscii(name);
  for (const fs::directory_entry& entry : fs::directory_iterator(dir, ec)) {
    std::string entryName = entry.path().filename().string();
    if (UpperAscii(entryName) == upper) return entryName;
  }
  return std::nullopt;
}

std::vector<std::string> SplitAtBackslash(const std::string& text) {
  std::vector<std::string> parts;
  std::string part;
  for (char c : text) {
    if (c == '\\') {
      if (!part.empty()) parts.push_back(part);
      part.clear();
    } else {
      part += c;
    }
  }
  if (!part.empty()) parts.push_back(part);
  return parts;
}

bool BadNameChar(char c, bool wildcards) {
  unsigned char u = static_cast<unsigned char>(c);
  if (u < 0x20) return true;
  if (c == '*' || c == '?') return !wildcards;
  return std::strchr("<>:\"|/", c) != nullptr;
}

bool BadName(const std::string& name, bool wildcards) {
  for (char c : name)
    if (BadNameChar(c, wildcards)) return true;
  return false;
}

// The pieces of text between backslashes, empty ones included.
std::vector<std::string> SplitKeepingEmpty(const std::string& text) {
  std::vector<std::string> parts(1);
  for (char c : text) {
    if (c == '\\') parts.emplace_back();
    else parts.back() += c;
  }
  return parts;
}

// The device a name stands for in every folder, upper case, or empty:
// CON, PRN, AUX, NUL, COM1 to COM9, LPT1 to LPT9, CONIN$ and CONOUT$, with
// anything after a dot or a colon and blanks before it ignored.
std::string DeviceName(const std::string& name) {
  std::string base = UpperAscii(name.substr(0, name.find_first_of(".:")));
  while (!base.empty() && base.back() == ' ') base.pop_back();
  if (base == "CON" || base == "PRN" || base == "AUX" || base == "NUL" || base == "CONIN$" || base == "CONOUT$")
    return base;
  if (base.size() == 4 && (base.compare(0, 3, "COM") == 0 || base.compare(0, 3, "LPT") == 0) && base[3] >= '1' &&
      base[3] <= '9')
    return base;
  return {};
}


constexpr size_t kMaxPath = 260;

// "." and "..", never above the root; then a name before a separator
// loses one trailing dot, and the last name, unless the path ends in a
// separator, all its trailing dots and blanks.
std::vector<std::string> Normalized(const std::vector<std::string>& raw, bool endsInSeparator) {
  std::vector<std::string> parts;
  for (const std::string& part : raw) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  for (size_t i = 0; i < parts.size(); ++i) {
    std::string& part = parts[i];
    if (i + 1 == parts.size() && !endsInSeparator) {
      while (!part.empty() && (part.back() == '.' || part.back() == ' ')) part.pop_back();
    } else if (part.back() == '.' && (part.size() < 2 || part[part.size() - 2] != '.')) {
      part.pop_back();
    }
  }
  if (!parts.empty() && parts.back().empty()) parts.pop_back();
  return parts;
}

std::string FormatSeconds(double seconds) {
  std::ostringstream text;
  text << seconds << (seconds == 1 ? " second" : " seconds");
  return text.str();
}

}  // namespace

Context& Current() { return gCurrent ? *gCurrent : gBlank; }

void SetCurrent(Context* context) {
  gCurrent = context;
  if (!context) gBlank = Context{};
}

namespace {

char UpperAsciiChar(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

std::string UpperAscii(const std::string& text) {
  std::string upper = text;
  for (char& c : upper) c = UpperAsciiChar(c);
  return upper;
}

bool SameNoCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (UpperAsciiChar(a[i]) != UpperAsciiChar(b[i])) return false;
  return true;
}

const CodePage& Context::AnsiCodePage() const {
  if (!codePage || codePage->Number() != machine.ansiCodePage) {
    // LoadMachine accepts only code pages that are served.
    codePage = CodePage::Find(machine.ansiCodePage);
    if (!codePage) codePage = CodePage::Find(1252);
  }
  return *codePage;
}

std::string ToAnsi(const std::string& text) { return Current().AnsiCodePage().FromUtf8(text); }

std::string FromAnsi(const std::string& text) { return Current().AnsiCodePage().ToUtf8(text); }

void CopyWithNul(char* buffer, const std::string& text) {
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
}

platform::Failure StandardFailure(int32_t number) {
  switch (number) {
    case 3: return {number, "Return without GoSub"};
    case 5: return {number, "Invalid procedure call or argument"};
    case 6: return {number, "Overflow"};
    case 7: return {number, "Out of memory"};
    case 9: return {number, "Subscript out of range"};
    case 11: return {number, "Division by zero"};
    case 13: return {number, "Type mismatch"};
    case 54: return {number, "Bad file mode"};
    case 55: return {number, "File already open"};
    case 57: return {number, "Device I/O error"};
    case 58: return {number, "File already exists"};
    case 61: return {number, "Disk full"};
    case 62: return {number, "Input past end of file"};
    case 67: return {number, "Too many files"};
    case 68: return {number, "Device unavailable"};
    case 71: return {number, "Disk not ready"};
    case 74: return {number, "Can't rename with different drive"};
    case 91: return {number, "Object variable or With block variable not set"};
    case 429: return {number, "ActiveX component can't create object"};
    case 432: return {number, "File name or class name not found during Automation operation"};
    case 438: return {number, "Object doesn't support this property or method"};
    case 462: return {number, "The remote server machine does not exist or is unavailable"};
    default: return platform::MakeFailure(number);
  }
}

const Fault* Context::TakeFault(const std::string& call, const std::string& firstArg) {
  return TakeFault(call, std::vector<std::string>{firstArg});
}

const Fault* Context::TakeFault(const std::string& call, const std::vector<std::string>& args) {
  ++boundaryCalls;
  const Fault* fired = nullptr;
  for (Fault& fault : machine.faults) {
    if (!SameNoCase(fault.call, call)) continue;
    if (fault.match) {
      bool matches = false;
      for (const std::string& arg : args) matches = matches || SameNoCase(*fault.match, arg);
      if (!matches) continue;
    }
    ++fault.seen;
    if (fired || fault.seen <= fault.skip) continue;
    if (fault.times && fault.fired >= *fault.times) continue;
    ++fault.fired;
    fired = &fault;
  }
  if (fired) lastError = fired->lastError;
  return fired;
}

void Context::RecordSpoolerCall(const std::string& call, const nlohmann::json& args, int64_t result) {
  spoolerCalls.push_back(
      nlohmann::json{{"call", call}, {"args", args}, {"result", result}, {"lastError", lastError}});
}

std::optional<std::string> Context::CurrentDefault() const {
  if (machine.platformId == 1) {
    for (const SimPrinter& p : machine.printers)
      if (p.attributes & 0x4) return p.name;
    return std::nullopt;
  }
  if (machine.platformId == 2 && machine.majorVersion < 5) {
    for (const auto& [section, keys] : machine.winIni) {
      if (!SameNoCase(section, "Windows")) continue;
      for (const auto& [key, value] : keys) {
        if (!SameNoCase(key, "device")) continue;
        std::string name = value.substr(0, value.find(','));
        if (name.empty()) return std::nullopt;
        return name;
      }
      return std::nullopt;
    }
    return std::nullopt;
  }
  return machine.defaultPrinter;
}

namespace {

// A Windows path read into its parts, before any name is looked up; or,
// when done, what resolving it gives without looking.
struct ParsedPath {
  bool done = false;
  ResolvedPath result;
  bool verbatim = false;
  bool unc = false;
  std::string drive, server, share;
  std::vector<std::string> parts;   // the names below the root
};

ParsedPath ParseWindowsPath(const std::string& windowsPath, const std::string& currentDir, bool wildcards) {
  ParsedPath parsed;
  parsed.done = true;
  ResolvedPath& result = parsed.result;
  // The ANSI functions turn the path into UTF-16 in a buffer of MAX_PATH.
  if (windowsPath.size() > kMaxPath) {
    result.status = ResolvedPath::kTooLong;
    return parsed;
  }
  // "\\?\" exactly: every name goes to the file system as it stands.
  const bool verbatim = parsed.verbatim = windowsPath.compare(0, 4, "\\\\?\\") == 0;
  std::string path = windowsPath;
  if (!verbatim)
    for (char& c : path)
      if (c == '/') c = '\\';

  std::vector<std::string>& parts = parsed.parts;
  bool& unc = parsed.unc;
  std::string &drive = parsed.drive, &server = parsed.server, &share = parsed.share;
  if (verbatim || path.compare(0, 4, "\\\\.\\") == 0 || path.compare(0, 4, "\\\\?\\") == 0 || path == "\\\\." ||
      path == "\\\\?") {
    // A device path: its first name is the device, a drive, or UNC.
    std::vector<std::string> raw = SplitKeepingEmpty(path.size() > 4 ? path.substr(4) : "");
    if (verbatim) {
      // An empty name (but for a last separator), "." and ".." are no names.
      if (raw.size() > 1 && raw.back().empty()) raw.pop_back();
      for (const std::string& name : raw) {
        if (name.empty() || name == "." || name == "..") {
          result.status = ResolvedPath::kBadName;
          return parsed;
        }
      }
    } else {
      raw = Normalized(raw, !path.empty() && path.back() == '\\');
    }
    if (raw.empty()) {
      result.status = ResolvedPath::kNoSuchDevice;
      result.windows = "\\\\.\\";
      return parsed;
    }
    const std::string device = raw.front();
    if (device.size() == 2 && std::isalpha(static_cast<unsigned char>(device[0])) && device[1] == ':') {
      drive = device;
      parts.assign(raw.begin() + 1, raw.end());
    } else if (SameNoCase(device, "UNC") && raw.size() >= 3) {
      unc = true;
      server = raw[1];
      share = raw[2];
      parts.assign(raw.begin() + 3, raw.end());
    } else {
      // NUL, or a device the client does not have; below it, a path not found.
      result.windows = "\\\\.\\" + device;
      result.status = raw.size() > 1                 ? ResolvedPath::kNoDevice
                      : SameNoCase(device, "NUL") ? ResolvedPath::kNullDevice
                                                  : ResolvedPath::kNoSuchDevice;
      return parsed;
    }
  } else {
    // Make the path absolute.
    unc = path.size() >= 2 && path[0] == '\\' && path[1] == '\\';
    bool absoluteDrive = path.size() >= 3 && IsDriveLetter(path[0]) && path[1] == ':' && path[2] == '\\';
    if (!unc && !absoluteDrive) {
      if (currentDir.empty()) return parsed;
      std::string cwd = currentDir;
      for (char& c : cwd)
        if (c == '/') c = '\\';
      std::string cwdRoot;
      if (cwd.size() >= 2 && cwd[0] == '\\' && cwd[1] == '\\') {
        std::vector<std::string> cwdParts = SplitAtBackslash(cwd);
        cwdRoot = "\\\\" + (cwdParts.size() > 0 ? cwdParts[0] : "") + "\\" + (cwdParts.size() > 1 ? cwdParts[1] : "");
      } else {
        cwdRoot = cwd.substr(0, 2);
      }
      if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == ':') {
        // "X:name": relative to the current folder when it is on X:.
        std::string rest = path.substr(2);
        if (SameNoCase(cwdRoot, path.substr(0, 2))) path = cwd + "\\" + rest;
        else path = path.substr(0, 2) + "\\" + rest;
      } else if (!path.empty() && path[0] == '\\') {
        path = cwdRoot + path;
      } else {
        path = cwd + "\\" + path;
      }
      unc = path.size() >= 2 && path[0] == '\\' && path[1] == '\\';
    }
    const bool endsInSeparator = path.back() == '\\';
    if (unc) {
      std::vector<std::string> raw = SplitAtBackslash(path.substr(2));
      if (raw.size() < 2) {
        result.status = ResolvedPath::kBadName;
        return parsed;
      }
      server = raw[0];
      share = raw[1];
      parts = Normalized(std::vector<std::string>(raw.begin() + 2, raw.end()), endsInSeparator);
    } else {
      if (path.size() < 2 || !IsDriveLetter(path[0]) || path[1] != ':') {
        result.status = ResolvedPath::kBadName;
        return parsed;
      }
      drive = path.substr(0, 2);
      parts = Normalized(SplitAtBackslash(path.substr(2)), endsInSeparator);
      // A device name stands in every folder of a drive.
      if (!parts.empty() && !endsInSeparator) {
        const std::string device = DeviceName(parts.back());
        if (!device.empty()) {
          result.status = device == "NUL" ? ResolvedPath::kNullDevice : ResolvedPath::kNoSuchDevice;
          result.windows = "\\\\.\\" + device;
          return parsed;
        }
      }
    }
  }

  if (unc && (BadName(server, false) || BadName(share, false))) {
    result.status = ResolvedPath::kBadName;
    return parsed;
  }
  // A server or share named "." or ".." is one the client does not have.
  if (unc && (server.empty() || server == "." || server == ".." || share.empty() || share == "." || share == "..")) {
    result.status = ResolvedPath::kNoDevice;
    return parsed;
  }
  for (size_t i = 0; i < parts.size(); ++i)
    if (BadName(parts[i], wildcards && i + 1 == parts.size())) {
      result.status = ResolvedPath::kBadName;
      return parsed;
    }
  parsed.done = false;
  return parsed;
}

}  // namespace

ResolvedPath ResolveWindowsPath(const fs::path& folder, const std::string& windowsPath,
                                const std::string& currentDir, bool wildcards) {
  // The engine resolves the same path many times over (each key of an INI
  // file): the reading of the last path is kept, as it depends on the text
  // alone.
  thread_local std::string lastPath, lastDir;
  thread_local bool known = false, lastWildcards = false;
  thread_local ParsedPath last;
  if (!known || lastPath != windowsPath || lastDir != currentDir || lastWildcards != wildcards) {
    last = ParseWindowsPath(windowsPath, currentDir, wildcards);
    known = true;
    lastPath = windowsPath;
    lastDir = currentDir;
    lastWildcards = wildcards;
  }
  if (last.done) return last.result;
  const ParsedPath& p = last;
  const bool verbatim = p.verbatim, unc = p.unc;
  const std::string &drive = p.drive, &server = p.server, &share = p.share;
  const std::vector<std::string>& parts = p.parts;
  ResolvedPath result;

  // When the path exists exactly as written, every name is its own exact
  // match: one look-up instead of one per name.
  if (std::none_of(parts.begin(), parts.end(),
                   [](const std::string& name) { return name.find_first_of("*?") != std::string::npos; })) {
    const char separator = static_cast<char>(fs::path::preferred_separator);
    std::string exact = unc ? "UNC" + (separator + server) + separator + share
                            : std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(drive[0]))));
    std::string windows = unc ? "\\\\" + server + "\\" + share : exact + ":";
    for (const std::string& name : parts) {
      exact += separator + name;
      windows += "\\" + name;
    }
    if (parts.empty() && !unc) windows += "\\";
    fs::path host = folder / ("files" + (separator + exact));
    std::error_code ec;
    if (fs::exists(host, ec)) {
      if (!verbatim && windows.size() >= kMaxPath) {
        result.status = ResolvedPath::kTooLong;
        return result;
      }
      result.host = std::move(host);
      result.windows = std::move(windows);
      result.onDriveC = !unc && exact[0] == 'C';
      result.status = ResolvedPath::kOk;
      return result;
    }
  }

  std::string rootText;
  fs::path root = folder / "files";
  bool rootExists = true;
  if (unc) {
    const std::string names[3] = {"UNC", server, share};
    rootText = "\\\\";
    for (int i = 0; i < 3; ++i) {
      std::optional<std::string> found = rootExists ? FindEntry(root, names[i]) : std::nullopt;
      if (!found) rootExists = false;
      root /= found ? *found : names[i];
      if (i > 0) rootText += (i == 2 ? "\\" : "") + (found ? *found : names[i]);
    }
  } else {
    std::string letter(1, static_cast<char>(std::toupper(static_cast<unsigned char>(drive[0]))));
    std::optional<std::string> found = FindEntry(root, letter);
    root /= found ? *found : letter;
    result.onDriveC = letter == "C";
    rootExists = found.has_value() || result.onDriveC;
    rootText = letter + ":";
  }

  fs::path host = root;
  std::string windows = rootText;
  bool exists = rootExists;
  for (size_t i = 0; i < parts.size(); ++i) {
    std::string name = parts[i];
    bool pattern = name.find_first_of("*?") != std::string::npos;
    if (exists && !pattern) {
      std::optional<std::string> found = FindEntry(host, name);
      if (found) name = *found;
      else exists = false;
    }
    host /= name;
    windows += "\\" + name;
  }
  if (parts.empty() && !unc) windows += "\\";
  if (!verbatim && windows.size() >= kMaxPath) {
    result.status = ResolvedPath::kTooLong;
    return result;
  }
  result.host = host;
  result.windows = windows;
  result.status = rootExists ? ResolvedPath::kOk : ResolvedPath::kNoDevice;
  return result;
}

fs::path Context::HostPath(const std::string& windowsPath) const {
  ResolvedPath r = ResolveWindowsPath(folder, windowsPath);
  if (r.status == ResolvedPath::kOk || r.status == ResolvedPath::kNoDevice) return r.host;
  return {};
}

std::string Context::CurrentDir() const {
  size_t slash = machine.exePath.find_last_of("\\/");
  if (slash == std::string::npos) return "C:\\";
  std::string dir = machine.exePath.substr(0, slash);
  if (dir.size() == 2 && dir[1] == ':') dir += "\\";
  return dir;
}

ResolvedPath Context::Resolve(const std::string& windowsPath, bool wildcards) const {
  return ResolveWindowsPath(folder, windowsPath, CurrentDir(), wildcards);
}

bool Context::IsReadOnly(const std::string& windowsPath) const {
  ResolvedPath path = Resolve(windowsPath);
  if (path.windows.empty()) return false;
  std::string target = UpperAscii(path.windows);
  auto within = [&](const std::string& entry) {
    ResolvedPath ro = Resolve(entry);
    if (ro.windows.empty()) return false;
    std::string prefix = UpperAscii(ro.windows);
    if (target == prefix) return true;
    if (prefix.back() != '\\') prefix += '\\';
    return target.compare(0, prefix.size(), prefix) == 0;
  };
  for (const std::string& entry : machine.readOnly)
    if (within(entry)) return true;
  // Only administrators may write in the system folder.
  return StandardUser() && within(machine.systemDir);
}

void Context::NoteFileWritten(const std::string& windowsPath) {
  for (const std::string& known : filesWritten)
    if (SameNoCase(known, windowsPath)) return;
  filesWritten.push_back(windowsPath);
}

void Context::BeginRun(double limitSeconds) {
  // The folders every Windows computer has exist on the drives.
  for (const std::string& dir : {CurrentDir(), machine.windowsDir, machine.systemDir, machine.profileDir,
                                 machine.tempDir}) {
    ResolvedPath path = ResolveWindowsPath(folder, dir);
    if (path.status == ResolvedPath::kOk && !path.host.empty()) DriveMakeFolders(*this, path.host);
  }
  lastError = 0;
  printersBefore = machine.printers;
  defaultBefore = CurrentDefault();
  spoolerCalls = nlohmann::json::array();
  messageBoxes = nlohmann::json::array();
  eventLogWritten = nlohmann::json::array();
  eventLogRefused = nlohmann::json::array();
  sockets = nlohmann::json::array();
  filesWritten.clear();
  progress = ProgressRecord{};
  ended = nullptr;
  fatal = nullptr;
  stuckIn = nullptr;
  stuckReason = nullptr;
  directoryQueries = nlohmann::json::array();
  runStatus = nullptr;
  socketNotes.clear();
  trace = CallTrace{};
  registryKeys.clear();
  eventSources.clear();
  tokens.clear();
  timers.clear();
  socketTable.clear();
  boundaryCalls = callsAtLastPump = 0;

  elapsedMs = 0;
  if (machine.clock) {
    const std::string& c = *machine.clock;
    startTime = {std::stoi(c.substr(0, 4)), std::stoi(c.substr(5, 2)), std::stoi(c.substr(8, 2)),
                 std::stoi(c.substr(11, 2)), std::stoi(c.substr(14, 2)), std::stoi(c.substr(17, 2))};
  } else {
    std::time_t now = std::time(nullptr);
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &now);
#else
    localtime_r(&now, &local);
#endif
    startTime = {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                 local.tm_hour, local.tm_min, local.tm_sec};
  }
  this->limitSeconds = limitSeconds;
  auto limit = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(limitSeconds < 0 ? 0 : limitSeconds));
  auto now = std::chrono::steady_clock::now();
  deadline = limit > std::chrono::steady_clock::time_point::max() - now
                 ? std::chrono::steady_clock::time_point::max()
                 : now + limit;
}

std::string Context::StuckReason() const {
  std::vector<std::string> parts;
  if (int forms = LoadedFormCount(); forms > 0) parts.push_back("forms still loaded: " + std::to_string(forms));
  int enabled = 0;
  for (const auto& [id, timer] : timers) enabled += timer.enabled ? 1 : 0;
  if (enabled > 0) parts.push_back("timers enabled: " + std::to_string(enabled));
  int open = 0;
  for (const auto& [id, socket] : socketTable) open += socket.state != platform::kSocketClosed ? 1 : 0;
  if (open > 0) parts.push_back("sockets open: " + std::to_string(open));
  if (parts.empty()) return "a wait that does not end";
  std::string why;
  for (const std::string& p : parts) why += (why.empty() ? "" : ", ") + p;
  return why;
}

std::string Context::PlainStuckReason() const {
  const std::string never = "; at logon this process would never end";
  if (!sockets.empty()) {
    // The e-mail session of the engine: what its last connection came to.
    const nlohmann::json& s = sockets.back();
    const std::string server = s["host"].get<std::string>() + " port " + s["port"].get<std::string>();
    const bool connected = s.value("connected", false);
    if (!s["error"].is_null()) {
      const std::string error = "error " + std::to_string(s["error"]["number"].get<int64_t>()) + ", " +
                                s["error"]["description"].get<std::string>();
      if (!connected)
        return "the e-mail server " + server + " could not be reached (" + error +
               "), and the e-mail session stays open waiting for it" + never;
      return "the connection to the e-mail server " + server + " broke (" + error +
             ") while the e-mail session waited for its answer" + never;
    }
    if (!connected)
      return "the e-mail session waits for the server " + server + " to accept the connection" + never;
    if (socketNotes.back().serverClosed)
      return "the e-mail server " + server + " closed the connection while the e-mail session waited for "
             "its answer" + never;
    if (socketNotes.back().awaiting) return "the e-mail session waits for a server that does not answer" + never;
  }
  return "the run had not ended when the time limit of " + FormatSeconds(limitSeconds) +
         " ran out (give more time with --limit)";
}

void Context::CheckDeadline() const {
  if (std::chrono::steady_clock::now() > deadline) throw StuckError{StuckReason(), PlainStuckReason()};
}

std::vector<std::pair<std::string, RegistryValue>> PointAndPrintPolicy(const Machine& machine) {
  static const char kKey[] = "HKEY_LOCAL_MACHINE\\Software\\Policies\\Microsoft\\Windows NT\\Printers\\PointAndPrint";
  std::vector<std::pair<std::string, RegistryValue>> policy = machine.pointAndPrint;
  for (const auto& [key, values] : machine.registry) {
    if (!SameNoCase(key, kKey)) continue;
    for (const auto& [name, value] : values) {
      bool named = false;
      for (const auto& given : policy) named = named || SameNoCase(given.first, name);
      if (!named) policy.emplace_back(name, value);
    }
  }
  return policy;
}

std::optional<uint32_t> PointAndPrintDword(const Machine& machine, const std::string& name) {
  for (const auto& [valueName, value] : PointAndPrintPolicy(machine)) {
    if (SameNoCase(valueName, name)) return DwordOf(value);
  }
  return std::nullopt;
}

// Windows XP and older let users install a server's driver; Windows Vista
// and later show a warning and ask for consent. Since August 2021
// RestrictDriverInstallationToAdministrators (absent counts as 1) leaves the
// install to administrators. At 0 the Point and Print Restrictions decide:
// switched off (Restricted 0) or with NoWarningNoElevationOnInstall 1 a user
// installs without a word; otherwise Windows asks for an administrator's
// consent, which a standard user cannot give.
bool DriverInstallRefused(const Machine& m) {
  if (m.platformId != 2 || m.majorVersion < 6) return false;
  if (PointAndPrintDword(m, "RestrictDriverInstallationToAdministrators").value_or(1) != 0) return true;
  if (PointAndPrintDword(m, "Restricted") == 0u) return false;
  return PointAndPrintDword(m, "NoWarningNoElevationOnInstall").value_or(0) != 1;
}

nlohmann::json PrinterToJson(const SimPrinter& p) {
  return nlohmann::json{{"name", p.name},
                        {"serverName", p.serverName ? nlohmann::json(*p.serverName) : nlohmann::json(nullptr)},
                        {"shareName", p.shareName},
                        {"portName", p.portName},
                        {"driverName", p.driverName},
                        {"comment", p.comment},
                        {"location", p.location},
                        {"attributes", p.attributes}};
}

// The run status this run recorded: the registry value SaveSetting wrote,
// or this INI file's line of the status file in the profile.
nlohmann::json Context::RunStatusRecord() const {
  nlohmann::json record = runStatus;
  if (record.is_null()) {
    const std::string statusFile = Resolve(machine.profileDir + "\\Zandolin_status.log").windows;
    for (const std::string& written : filesWritten) {
      if (!SameNoCase(written, statusFile)) continue;
      std::string bytes;
      if (DriveRead(*this, HostPath(written), bytes) != 0) continue;
      std::istringstream in(bytes);
      std::string line;
      while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.size() > INIFilePath.size() && line.compare(0, INIFilePath.size(), INIFilePath) == 0 &&
            line[INIFilePath.size()] == ',')
          record = nlohmann::json{{"value", line.substr(INIFilePath.size() + 1)}, {"where", written}};
      }
    }
  }
  if (!record.is_null()) record["iniFile"] = INIFilePath;
  return record;
}

// What the run was served with: the user, the policy, the SMTP peer and
// the directory's size limit.
nlohmann::json Context::ClientRecord() const {
  using nlohmann::json;
  json client = json::object();
  client["isAdmin"] = machine.isAdmin;
  nlohmann::ordered_json policy = PointAndPrintToJson(PointAndPrintPolicy(machine));
  if (!PointAndPrintDword(machine, "RestrictDriverInstallationToAdministrators"))
    policy["RestrictDriverInstallationToAdministrators"] = 1;   // absent counts as 1
  client["pointAndPrint"] = json(policy);
  client["standardUserInstallsDrivers"] = !DriverInstallRefused(machine);
  std::optional<SmtpPeer> peer = PlayedSmtpPeer();
  client["smtp"] = peer ? SmtpPeerJson(*peer) : json("network");
  if (!machine.directory) client["directorySizeLimit"] = nullptr;
  else if (machine.directory->ldap) client["directorySizeLimit"] = "server";
  else client["directorySizeLimit"] = machine.directory->sizeLimit;
  return client;
}

nlohmann::json Context::Transcript() const {
  using nlohmann::json;
  json t = json::object();
  t["ended"] = ended;
  t["fatal"] = fatal;
  t["stuckIn"] = stuckIn;
  t["messageBoxes"] = messageBoxes;
  t["progress"] = json{{"shown", progress.shown},
                       {"labels", progress.labels},
                       {"steps", progress.steps},
                       {"value", progress.value}};
  json before = json::array(), after = json::array();
  for (const SimPrinter& p : printersBefore) before.push_back(PrinterToJson(p));
  for (const SimPrinter& p : machine.printers) after.push_back(PrinterToJson(p));
  t["printersBefore"] = before;
  t["printersAfter"] = after;
  std::optional<std::string> defaultAfter = CurrentDefault();
  t["defaultBefore"] = defaultBefore ? json(*defaultBefore) : json(nullptr);
  t["defaultAfter"] = defaultAfter ? json(*defaultAfter) : json(nullptr);
  t["spoolerCalls"] = spoolerCalls;
  t["eventLogWritten"] = eventLogWritten;
  // What went over the wire is in the code page; the transcript shows it as
  // text.
  json wire = sockets;
  for (json& socket : wire)
    for (const char* field : {"sent", "received"})
      if (socket.contains(field) && socket[field].is_string())
        socket[field] = AnsiCodePage().ToUtf8(socket[field].get_ref<const std::string&>());
  t["sockets"] = wire;
  t["filesWritten"] = filesWritten;
  t["outcomeText"] = AnsiCodePage().ToUtf8(gOutcomeText);
  t["debugBuffer"] = AnsiCodePage().ToUtf8(gDebugBuffer);
  t["stuckReason"] = stuckReason;
  t["runStatus"] = RunStatusRecord();
  t["directoryQueries"] = directoryQueries;
  t["eventLogRefused"] = eventLogRefused;
  t["client"] = ClientRecord();
  if (tracing) t["calls"] = trace.calls;
  return t;
}

}  // namespace sim
