// zandolin-capture: reading the client through the platform boundary and
// writing it as a simulated client.
//
// Rules of this file:
// - The client is read with the calls the engine makes, in the engine's way
//   (buffer sizes, the store of each generation), so that what the capture
//   holds is what the engine would meet. What the engine would meet as a
//   failure is kept as that failure (a fault of the simulated client), not
//   left out, and the capture's notes say so.
// - Text crosses the A-calls in the client's ANSI code page; the capture
//   holds it in UTF-8, as machine.json does. Files keep their bytes.
// - Nothing private is read: no documents, no jobs, no passwords, nothing of
//   another user.
#include "app/zandolin-capture/Capture.h"

#include "Version.h"
#include "config/modINIDocument.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "migration/modMoveADPrinters.h"
#include "platform/DirectoryErrors.h"
#include "platform/Utf8.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <functional>

namespace capture {

namespace {

using platform::Failure;

const char kUsage[] =
    "usage: zandolin-capture [OUTPUT_FOLDER] [--ini FILE]\n"
    "\n"
    "Writes this computer, as the logged-on user sees it, as a simulated client for\n"
    "zandolin-sim: OUTPUT_FOLDER\\<COMPUTER>_<USER>\\machine.json and files\\. Without\n"
    "OUTPUT_FOLDER the capture goes beside this program. Run it as the user the\n"
    "engine will run as, with the same build (32 or 64 bits) as the engine.\n"
    "\n"
    "  --ini FILE   also read FILE as the engine will: keep it, its driver files, the\n"
    "               queues of every print server it or the user's connections name,\n"
    "               and, with UseActiveDirectory True, what its directory query gives\n"
    "  --help       this text\n"
    "  --version    the version\n"
    "\n"
    "Exit status: 0 when the capture was written; 1 when it could not be written, or\n"
    "when FILE could not be read (the capture is then written without what FILE\n"
    "would have added); 2 for a wrong command line.\n";

const char kStatusFileName[] = "\\Zandolin_status.log";
const char kEventSourceKey[] = "System\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin";
const char kPointAndPrintKey[] = "Software\\Policies\\Microsoft\\Windows NT\\Printers\\PointAndPrint";

// --- text ------------------------------------------------------------------

// Text of the A-calls (the client's ANSI code page) in UTF-8.
std::string Utf8(const std::string& ansi) {
  bool ascii = true;
  for (char ch : ansi) ascii = ascii && static_cast<unsigned char>(ch) < 0x80;
  if (ascii) return ansi;
  return platform::Utf16ToUtf8(Sys().system->AnsiToUtf16(ansi));
}

std::string Text(const char* pointer) { return pointer ? std::string(pointer) : std::string(); }

// The words for the Win32 errors a capture meets.
std::string ErrorText(DWORD code) {
  const char* words = nullptr;
  switch (code) {
    case 2: words = "the file was not found"; break;
    case 3: words = "the path was not found"; break;
    case 5: words = "access is denied"; break;
    case 6: words = "the handle is not valid"; break;
    case 50: words = "the request is not supported"; break;
    case 53: words = "the network path was not found"; break;
    case 67: words = "the network name cannot be found"; break;
    case 87: words = "a parameter is not valid"; break;
    case 120: words = "this version of Windows does not have the call"; break;
    case 122: words = "the buffer is too small"; break;
    case 123: words = "the name is not valid"; break;
    case 124: words = "the information level is not valid"; break;
    case 1722: words = "the RPC server is unavailable"; break;
    case 1726: words = "the remote procedure call failed"; break;
    case 1801: words = "the printer name is not valid"; break;
    case 1905: words = "the printer has been deleted"; break;
  }
  return "error " + std::to_string(code) + (words ? std::string(", ") + words : std::string());
}

// --- the spooler's enumerations -----------------------------------------------

using EnumCall = std::function<BOOL(LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned)>;

// One enumeration of the spooler into a buffer of the size it asks for. The
// list may grow between the calls: it is asked again. False with the last
// error when it cannot be had.
bool Enumerate(const EnumCall& call, std::vector<BYTE>& buffer, DWORD& count, DWORD& error) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    DWORD needed = 0;
    count = 0;
    if (call(buffer.empty() ? nullptr : buffer.data(), static_cast<DWORD>(buffer.size()), &needed,
             &count))
      return true;
    error = Sys().system->GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER || needed <= buffer.size()) return false;
    buffer.assign(needed, 0);
  }
  return false;
}

// A printer name "\\server\queue": the server with its backslashes, or none.
std::optional<std::string> ServerOfName(const std::string& name) {
  if (name.rfind("\\\\", 0) != 0) return std::nullopt;
  const size_t slash = name.find('\\', 2);
  if (slash == std::string::npos || slash == 2) return std::nullopt;
  return name.substr(0, slash);
}

class Capturer {
 public:
  Capture Run(const Options& options) {
    ReadSystem();
    ReadPrinters();
    ReadDefaultPrinter();
    ReadDriversAndPorts();
    ReadRunStatus();
    ReadEventSource();
    ReadPointAndPrint();
    if (options.iniFile) ReadIni(*options.iniFile);

    const platform::LocalTime now = Sys().clock->Now();
    char at[32];
    std::snprintf(at, sizeof at, "%04d-%02d-%02dT%02d:%02d:%02d", now.Year, now.Month, now.Day,
                  now.Hour, now.Minute, now.Second);
    machine_.capture = sim::CaptureInfo{at, ZANDOLIN_VERSION, notes_};
    return std::move(capture_);
  }

 private:
  void Note(const std::string& text) { notes_.push_back(text); }

  // A call of the client that failed: a rehearsal fails it the same way.
  void AddFault(const std::string& call, const std::optional<std::string>& match, DWORD lastError,
                int skip = 0) {
    sim::Fault fault;
    fault.call = call;
    fault.match = match;
    fault.result = 0;
    fault.lastError = lastError;
    fault.skip = skip;
    machine_.faults.push_back(fault);
  }

  void AddFile(const std::string& windowsPath, const std::string& content) {
    capture_.files.push_back(ClientFile{windowsPath, content});
  }

  // A path made whole as the system makes it: relative to the current
  // folder.
  std::string FullPath(const std::string& path) {
    std::string buffer(MAX_PATH, '\0');
    for (int attempt = 0; attempt < 3; ++attempt) {
      const DWORD length = Sys().system->GetFullPathNameA(
          path.c_str(), static_cast<DWORD>(buffer.size()), buffer.data(), nullptr);
      if (length == 0) return path;
      if (length < buffer.size()) return buffer.substr(0, length);
      buffer.assign(length, '\0');
    }
    return path;
  }

  // A folder of the system through one of its GetXxxDirectoryA-like calls;
  // empty when it cannot be had.
  static std::string Folder(const std::function<DWORD(LPSTR, DWORD)>& call) {
    std::string buffer(MAX_PATH + 1, '\0');
    const DWORD length = call(buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0 || length >= buffer.size()) return {};
    return buffer.substr(0, length);
  }

  void ReadSystem() {
    platform::System& system = *Sys().system;
    OSVERSIONINFOA info{};
    info.dwOSVersionInfoSize = sizeof info;
    // The engine judges the call by its last error, and so does the capture.
    system.GetVersionExA(&info);
    if (const DWORD error = system.GetLastError()) {
      machine_.versionError = error;
      Note("Windows did not report its version (" + ErrorText(error) +
           "); the rehearsal fails to read it the same way.");
    } else {
      machine_.platformId = info.dwPlatformId;
      machine_.majorVersion = info.dwMajorVersion;
      machine_.minorVersion = info.dwMinorVersion;
    }
    machine_.ansiCodePage = system.GetACP();
    machine_.isAdmin = system.IsUserAnAdmin() != FALSE;

    std::string computer = "UNKNOWN";
    if (system.CreateNetworkObject().failed()) {
      machine_.computerName.reset();
      Note("The computer's name could not be read; the engine reports it as \"Computer UNKNOWN\".");
    } else if (Failure f = system.NetworkComputerName(computer); f.failed()) {
      computer = "UNKNOWN";
      machine_.computerName.reset();
      Note("The computer's name could not be read (" + f.Description + ").");
    } else {
      machine_.computerName = Utf8(computer);
    }

    // The engine's buffer for the user name holds 100 characters.
    std::string user(100, '\0');
    DWORD size = 100;
    if (system.GetUserNameA(user.data(), &size)) {
      user = CutAtNul(user);
      machine_.userName = Utf8(user);
    } else {
      user = "UNKNOWN";
      machine_.userName.reset();
      Note("The user's name could not be read (" + ErrorText(system.GetLastError()) +
           "); the engine works with an empty user name.");
    }
    capture_.folderName = computer + "_" + user;
    for (char& ch : capture_.folderName)
      if (static_cast<unsigned char>(ch) < 0x20 || std::strchr("<>:\"/\\|?*", ch)) ch = '_';

    // The profile folder as the engine asks for it.
    HANDLE token = nullptr;
    system.OpenProcessToken(system.GetCurrentProcess(), TOKEN_QUERY, &token);
    std::string profile(255, '\0');
    size = 255;
    if (system.GetUserProfileDirectoryA(token, profile.data(), &size)) {
      profileAnsi_ = CutAtNul(profile);
    } else if (machine_.platformId == VER_PLATFORM_WIN32_NT) {
      Note("The user's profile folder could not be read (" + ErrorText(system.GetLastError()) +
           "); the engine looks for its status file at the drive's root.");
    }
    machine_.profileDir = Utf8(profileAnsi_);

    machine_.windowsDir = Utf8(Folder([&](LPSTR b, DWORD s) { return system.GetWindowsDirectoryA(b, s); }));
    machine_.systemDir = Utf8(Folder([&](LPSTR b, DWORD s) { return system.GetSystemDirectoryA(b, s); }));
    machine_.tempDir = Utf8(Folder([&](LPSTR b, DWORD s) { return system.GetTempPathA(s, b); }));

    const std::string host = Sys().sockets->LocalHostName();
    if (!host.empty() && (!machine_.computerName || Utf8(host) != *machine_.computerName))
      machine_.localHostName = Utf8(host);

    // The engine lies beside this program, where the same logon script
    // starts it.
    std::string folder = system.AppPath();
    if (folder.empty() || folder.back() != '\\') folder += '\\';
    machine_.exePath = Utf8(folder + "ZandolinEngine.exe");
  }

  // A printer the engine cannot read: kept by its name, with the failure of
  // the call that fails.
  void UnreadablePrinter(const std::string& deviceName, const std::string& call, DWORD error,
                         int skip, const std::string& what) {
    sim::SimPrinter printer;
    printer.name = Utf8(deviceName);
    if (std::optional<std::string> server = ServerOfName(deviceName)) {
      printer.serverName = Utf8(*server);
      printer.shareName = Utf8(deviceName.substr(server->size() + 1));
      servers_.push_back(server->substr(2));
    }
    machine_.printers.push_back(printer);
    AddFault(call, printer.name, error, skip);
    std::string why = ErrorText(error);
    if (call == "OpenPrinterA" && error == ERROR_INVALID_PRINTER_NAME)
      why += "; if its name holds characters the code page " + std::to_string(machine_.ansiCodePage) +
             " lacks, Windows lists it under a name by which it cannot be opened";
    Note("The printer \"" + printer.name + "\" " + what + " (" + why +
         "); the rehearsal meets the same failure.");
  }

  void ReadPrinters() {
    platform::Spooler& spooler = *Sys().spooler;
    platform::System& system = *Sys().system;
    machine_.printers.clear();
    std::vector<std::string> names;
    if (!spooler.UserPrinters(names)) {
      Note("The list of the user's printers could not be read; the engine finds none either.");
      return;
    }
    for (std::string& deviceName : names) {
      HANDLE handle = nullptr;
      spooler.OpenPrinterA(deviceName.data(), &handle, nullptr);
      if (!handle) {
        UnreadablePrinter(deviceName, "OpenPrinterA", system.GetLastError(), 0, "could not be opened");
        continue;
      }
      DWORD needed = 0;
      spooler.GetPrinterA(handle, 2, nullptr, 0, &needed);
      if (const DWORD error = system.GetLastError(); error != ERROR_INSUFFICIENT_BUFFER) {
        UnreadablePrinter(deviceName, "GetPrinterA", error, 0, "could not be read");
        spooler.ClosePrinter(handle);
        continue;
      }
      std::vector<BYTE> buffer(needed ? needed : 1);
      if (!spooler.GetPrinterA(handle, 2, buffer.data(), needed, &needed)) {
        UnreadablePrinter(deviceName, "GetPrinterA", system.GetLastError(), 1, "could not be read");
        spooler.ClosePrinter(handle);
        continue;
      }
      const auto* info = reinterpret_cast<const PRINTER_INFO_2A*>(buffer.data());
      sim::SimPrinter printer;
      printer.name = Utf8(Text(info->pPrinterName));
      if (info->pServerName) printer.serverName = Utf8(info->pServerName);
      printer.shareName = Utf8(Text(info->pShareName));
      printer.portName = Utf8(Text(info->pPortName));
      printer.driverName = Utf8(Text(info->pDriverName));
      printer.comment = Utf8(Text(info->pComment));
      printer.location = Utf8(Text(info->pLocation));
      printer.attributes = info->Attributes;
      if (info->pServerName && *info->pServerName) {
        const std::string server = info->pServerName;
        servers_.push_back(server.rfind("\\\\", 0) == 0 ? server.substr(2) : server);
      }
      if (Text(info->pPrinterName) != deviceName)
        Note("The printer listed as \"" + Utf8(deviceName) + "\" calls itself \"" + printer.name +
             "\"; the capture names it so.");
      machine_.printers.push_back(printer);
      spooler.ClosePrinter(handle);
    }
  }

  // A profile string of the per-user profile (win.ini or its registry
  // mapping); empty when absent. A null key gives the section's key names,
  // each ended by a NUL.
  static std::string ProfileString(const char* section, const char* key) {
    std::string buffer(1024, '\0');
    for (;;) {
      const DWORD length = Sys().profile->GetProfileStringA(
          section, key, "", buffer.data(), static_cast<DWORD>(buffer.size()));
      if (length + 2 < buffer.size() || buffer.size() > (1u << 24)) return buffer.substr(0, length);
      buffer.assign(buffer.size() * 4, '\0');
    }
  }

  void ReadDefaultPrinter() {
    if (machine_.versionError) return;   // the engine reads no default then
    if (machine_.platformId == VER_PLATFORM_WIN32_NT && machine_.majorVersion >= 5) {
      // The engine's buffer: 1024 blanks.
      std::string buffer(1024, ' ');
      DWORD size = 1024;
      if (Sys().spooler->GetDefaultPrinterA(buffer.data(), &size)) {
        machine_.defaultPrinter = Utf8(CutAtNul(buffer));
      } else if (const DWORD error = Sys().system->GetLastError(); error != ERROR_FILE_NOT_FOUND) {
        AddFault("GetDefaultPrinterA", std::nullopt, error);
        Note("The default printer could not be read (" + ErrorText(error) +
             "); the rehearsal fails to read it the same way.");
      }
      return;
    }
    if (machine_.platformId != VER_PLATFORM_WIN32_NT && machine_.platformId != VER_PLATFORM_WIN32_WINDOWS)
      return;

    // Windows 95/98/ME and NT 4: the profile's default device and the ports
    // of the printers.
    std::vector<std::pair<std::string, std::string>> windows, ports;
    const std::string device = ProfileString("Windows", "device");
    if (!device.empty()) windows.emplace_back("device", Utf8(device));
    const std::string keys = ProfileString("PrinterPorts", nullptr);
    for (size_t start = 0; start < keys.size();) {
      const size_t end = keys.find('\0', start);
      const std::string key = keys.substr(start, end - start);
      if (!key.empty()) ports.emplace_back(Utf8(key), Utf8(ProfileString("PrinterPorts", key.c_str())));
      if (end == std::string::npos) break;
      start = end + 1;
    }
    if (!windows.empty()) machine_.winIni.emplace_back("Windows", windows);
    if (!ports.empty()) machine_.winIni.emplace_back("PrinterPorts", ports);

    if (machine_.platformId == VER_PLATFORM_WIN32_NT) {
      if (!device.empty()) machine_.defaultPrinter = Utf8(device.substr(0, device.find(',')));
      return;
    }
    ReadDefaultByEnumeration();
  }

  // Windows 95/98/ME: the default printer as the spooler enumerates it. The
  // simulated client knows it by its attribute, on that printer alone.
  void ReadDefaultByEnumeration() {
    std::vector<BYTE> buffer;
    DWORD count = 0, error = 0;
    const bool listed = Enumerate(
        [](LPBYTE b, DWORD s, LPDWORD n, LPDWORD r) {
          return Sys().spooler->EnumPrintersA(PRINTER_ENUM_DEFAULT, nullptr, 2, b, s, n, r);
        },
        buffer, count, error);
    if (!listed) {
      AddFault("EnumPrintersA", std::nullopt, error);
      Note("The default printer could not be read (" + ErrorText(error) +
           "); the rehearsal fails to read it the same way.");
      return;
    }
    std::optional<std::string> name;
    if (count > 0)
      name = Utf8(Text(reinterpret_cast<const PRINTER_INFO_2A*>(buffer.data())->pPrinterName));
    machine_.defaultPrinter = name;
    bool changed = false;
    for (sim::SimPrinter& printer : machine_.printers) {
      const bool isDefault = name && printer.name == *name;
      const uint32_t attributes = isDefault ? printer.attributes | PRINTER_ATTRIBUTE_DEFAULT
                                            : printer.attributes & ~uint32_t{PRINTER_ATTRIBUTE_DEFAULT};
      changed = changed || attributes != printer.attributes;
      printer.attributes = attributes;
    }
    if (changed)
      Note("The default printer's attribute (0x4) was set on \"" + name.value_or("") +
           "\" alone, the printer Windows reports as the default.");
  }

  void ReadDriversAndPorts() {
    std::vector<BYTE> buffer;
    DWORD count = 0, error = 0;
    machine_.drivers.clear();
    if (Enumerate(
            [](LPBYTE b, DWORD s, LPDWORD n, LPDWORD r) {
              return Sys().spooler->EnumPrinterDriversA(nullptr, nullptr, 1, b, s, n, r);
            },
            buffer, count, error)) {
      const auto* drivers = reinterpret_cast<const DRIVER_INFO_1A*>(buffer.data());
      for (DWORD i = 0; i < count; ++i) machine_.drivers.push_back(Utf8(Text(drivers[i].pName)));
    } else {
      Note("The installed printer drivers could not be listed (" + ErrorText(error) +
           "); the capture names none.");
    }
    buffer.clear();
    machine_.ports.clear();
    if (Enumerate(
            [](LPBYTE b, DWORD s, LPDWORD n, LPDWORD r) {
              return Sys().spooler->EnumPortsA(nullptr, 1, b, s, n, r);
            },
            buffer, count, error)) {
      const auto* ports = reinterpret_cast<const PORT_INFO_1A*>(buffer.data());
      for (DWORD i = 0; i < count; ++i) machine_.ports.push_back(Utf8(Text(ports[i].pName)));
    } else {
      Note("The ports could not be listed (" + ErrorText(error) + "); the capture names none.");
    }
  }

  // --- the registry ----------------------------------------------------------

  using Values = std::vector<std::pair<std::string, sim::RegistryValue>>;

  static bool IsText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

  // The values of an open key, in the registry's order; text in UTF-8.
  static Values ReadValues(HKEY key) {
    Values values;
    std::vector<char> name(16384);
    std::vector<BYTE> data(512);
    for (DWORD index = 0;;) {
      DWORD nameSize = static_cast<DWORD>(name.size()), dataSize = static_cast<DWORD>(data.size());
      DWORD type = 0;
      const LONG status = Sys().registry->RegEnumValueA(key, index, name.data(), &nameSize, nullptr,
                                                        &type, data.data(), &dataSize);
      if (status == ERROR_MORE_DATA && dataSize > data.size()) {
        data.resize(dataSize);
        continue;
      }
      if (status != ERROR_SUCCESS) break;
      sim::RegistryValue value;
      value.type = type;
      if (IsText(type)) {
        const std::string text = Utf8(std::string(data.begin(), data.begin() + dataSize));
        value.data.assign(text.begin(), text.end());
      } else {
        value.data.assign(data.begin(), data.begin() + dataSize);
      }
      values.emplace_back(Utf8(std::string(name.data(), nameSize)), value);
      ++index;
    }
    return values;
  }

  static std::vector<std::string> SubKeys(HKEY key) {
    std::vector<std::string> names;
    char name[256];
    for (DWORD index = 0;; ++index) {
      DWORD size = sizeof name;
      if (Sys().registry->RegEnumKeyExA(key, index, name, &size, nullptr, nullptr, nullptr,
                                        nullptr) != ERROR_SUCCESS)
        break;
      names.emplace_back(name, size);
    }
    return names;
  }

  // A key and everything below it, as registry entries of the machine.
  void ReadKeyTree(HKEY root, const std::string& rootName, const std::string& path) {
    HKEY key = nullptr;
    if (Sys().registry->RegOpenKeyA(root, path.c_str(), &key) != ERROR_SUCCESS) return;
    Values values = ReadValues(key);
    if (!values.empty()) machine_.registry.emplace_back(Utf8(rootName + "\\" + path), values);
    for (const std::string& name : SubKeys(key)) ReadKeyTree(root, rootName, path + "\\" + name);
    Sys().registry->RegCloseKey(key);
  }

  // The run status in the store of the client's generation: the status file
  // in the profile from Windows 2000 on, the engine's per-user settings
  // before that.
  void ReadRunStatus() {
    const bool fileStore = !machine_.versionError && machine_.platformId == VER_PLATFORM_WIN32_NT &&
                           machine_.majorVersion >= 5;
    if (!fileStore) {
      ReadKeyTree(HKEY_CURRENT_USER, "HKEY_CURRENT_USER", std::string(platform::kSettingsRoot) + "\\Zandolin");
      return;
    }
    const std::string path = profileAnsi_ + kStatusFileName;
    std::string content;
    const Failure f = Sys().files->ReadText(path, content);
    if (!f.failed()) {
      AddFile(path, content);
    } else if (f.Number != platform::kErrFileNotFound && f.Number != platform::kErrPathNotFound) {
      Note("The run status file " + Utf8(path) + " could not be read (" + f.Description +
           "); the rehearsal runs every INI file as not yet succeeded.");
    }
  }

  // The value by which the engine finds its event source registered.
  void ReadEventSource() {
    HKEY key = nullptr;
    if (Sys().registry->RegOpenKeyA(HKEY_LOCAL_MACHINE, kEventSourceKey, &key) != ERROR_SUCCESS) return;
    for (const auto& [name, value] : ReadValues(key))
      if (EqualsNoCase(name, "EventMessageFile"))
        machine_.registry.emplace_back(std::string("HKEY_LOCAL_MACHINE\\") + kEventSourceKey,
                                       Values{{name, value}});
    Sys().registry->RegCloseKey(key);
  }

  // The policy that decides whether a standard user may take a driver from
  // a print server.
  void ReadPointAndPrint() {
    HKEY key = nullptr;
    if (Sys().registry->RegOpenKeyA(HKEY_LOCAL_MACHINE, kPointAndPrintKey, &key) != ERROR_SUCCESS)
      return;
    machine_.pointAndPrint = ReadValues(key);
    Sys().registry->RegCloseKey(key);
  }

  // --- with an INI file --------------------------------------------------------

  void ReadIni(const std::string& given) {
    const std::string path = FullPath(given);
    std::string content;
    if (const Failure f = Sys().files->ReadText(path, content); f.failed()) {
      capture_.iniFailure = "the INI file " + path + " cannot be read (" + f.Description + ")";
      Note("The INI file " + Utf8(path) + " could not be read (" + f.Description +
           "): no print server and no directory was asked.");
      return;
    }
    AddFile(path, content);

    INIDocumentRecord ini;
    if (!LoadIni(path, ini)) return;
    if (ini.UseActiveDirectory) ReadDirectory(ini.DomainName);
    ReadDriverFiles(ini);
    ReadOutputFolder(ini);

    for (const ServerDefinition& d : ini.ServerDefinitions) servers_.insert(servers_.end(), {d.FromServer, d.ToServer});
    for (const MixedDefinition& d : ini.MixedDefinitions) servers_.insert(servers_.end(), {d.FromServer, d.ToServer});
    for (const NameDefinition& d : ini.PopulateDefinitions) servers_.push_back(d.ServerName);
    for (const NameDefinition& d : ini.PruneDefinitions) servers_.push_back(d.ServerName);
    ReadPrintServers();
  }

  // The INI file read by the engine's own reader, as the run will read it.
  bool LoadIni(const std::string& path, INIDocumentRecord& ini) {
    ResetProcessState();
    INIFilePath = path;
    bool loaded = false;
    try {
      LoadINIDocument();
      loaded = !AbortStatus;
      if (!loaded)
        Note("The engine cannot load the INI file (a key it needs is missing or cannot be read): "
             "its run stops there, so no print server and no directory was asked.");
    } catch (const FatalError& fatal) {
      Note("The engine stops while it reads the INI file (run-time error " +
           std::to_string(fatal.Number) + ", " + fatal.Description +
           "), so no print server and no directory was asked.");
    }
    ini = INIDocument;
    ResetProcessState();
    return loaded;
  }

  // The engine's directory query, kept as its answer.
  void ReadDirectory(const std::string& domain) {
    platform::Directory& directory = *Sys().directory;
    const std::string bindPath = DirectoryBindPath(domain);
    std::string adsPath;
    if (const Failure f = directory.BindObject(bindPath, adsPath); f.failed()) {
      // A rehearsal without a directory meets a server that does not
      // answer; any other failure is kept as it came.
      if (f.Number != platform::HresultFromWin32(platform::kWin32DsServerDown))
        AddFault("BindObject", Utf8(bindPath), static_cast<DWORD>(f.Number));
      Note("The directory " + Utf8(bindPath) + " could not be reached (" + std::to_string(f.Number) +
           ", " + Utf8(f.Description) + "); the rehearsal meets the same failure.");
      return;
    }
    const std::string prefix = bindPath + "/";
    if (adsPath.size() < prefix.size() || !EqualsNoCase(adsPath.substr(0, prefix.size()), prefix)) {
      Note("The directory path " + Utf8(bindPath) + " names an object below its server (" +
           Utf8(adsPath) + "); zandolin-sim binds only a server, so the capture holds no directory.");
      return;
    }
    sim::SimDirectory captured;
    captured.domain = Utf8(domain);
    captured.namingContext = Utf8(adsPath.substr(prefix.size()));
    // The queues are those the server gave; a rehearsal cuts nothing more.
    captured.sizeLimit = 0;
    std::vector<platform::DirectoryRow> rows;
    if (const Failure f = directory.Execute(PrintQueueQuery(adsPath), rows); f.failed()) {
      captured.queryError = sim::DirectoryError{f.Number, Utf8(f.Description)};
      Note("The directory refused the query (" + std::to_string(f.Number) + ", " + Utf8(f.Description) +
           "); the rehearsal meets the same refusal.");
    }
    for (const platform::DirectoryRow& row : rows) {
      sim::PrintQueue queue;
      if (row.hasName) {
        queue.name = Utf8(row.name);
        // The server is the name before its first hyphen, as the engine cuts it.
        const size_t hyphen = row.name.find('-');
        if (hyphen != std::string::npos) servers_.push_back(row.name.substr(0, hyphen));
      }
      for (const std::string& share : row.printShareName) queue.printShareName.push_back(Utf8(share));
      captured.printQueues.push_back(queue);
    }
    machine_.directory = captured;
  }

  // The driver files the engine copies into the system folder. Only their
  // presence matters to a run; they are recorded empty.
  void ReadDriverFiles(const INIDocumentRecord& ini) {
    bool noted = false;
    for (const DriverDefinition& d : ini.DriverDefinitions) {
      if (d.DriverName.empty() || d.DriverFileName.empty()) continue;
      const std::string source = ini.DriverSharePath + "\\" + d.DriverFileName;
      const DWORD attributes = Sys().files->GetFileAttributesA(source.c_str());
      if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) continue;
      AddFile(FullPath(source), "");
      if (!noted)
        Note("Driver files the INI file names are recorded empty: the engine only copies them "
             "into the system folder.");
      noted = true;
    }
  }

  // The folder the engine appends its output file to: whether it is there.
  void ReadOutputFolder(const INIDocumentRecord& ini) {
    if (!ini.UseFileOutput || ini.FileOutputPath.empty()) return;
    const DWORD attributes = Sys().files->GetFileAttributesA(ini.FileOutputPath.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
      capture_.folders.push_back(FullPath(ini.FileOutputPath));
      return;
    }
    Note("The output folder " + Utf8(ini.FileOutputPath) +
         " of the INI file is not there: the engine cannot write its output file into it.");
  }

  // The queues of every print server named, by share name, with the driver
  // each needs.
  void ReadPrintServers() {
    std::vector<std::string> asked;
    for (const std::string& server : servers_) {
      if (server.empty() || server == "." || server == "*" || server == ".*") continue;
      bool seen = false;
      for (const std::string& a : asked) seen = seen || EqualsNoCase(a, server);
      if (seen) continue;
      asked.push_back(server);

      std::string name = "\\\\" + server;
      std::vector<BYTE> buffer;
      DWORD count = 0, error = 0;
      const bool listed = Enumerate(
          [&name](LPBYTE b, DWORD s, LPDWORD n, LPDWORD r) {
            return Sys().spooler->EnumPrintersA(PRINTER_ENUM_NAME, name.data(), 2, b, s, n, r);
          },
          buffer, count, error);
      if (!listed) {
        Note("The print server " + Utf8(name) + " did not answer (" + ErrorText(error) +
             "); it is left out of the print servers, so a rehearsal cannot connect to its queues.");
        continue;
      }
      sim::PrintServer printServer;
      const auto* printers = reinterpret_cast<const PRINTER_INFO_2A*>(buffer.data());
      for (DWORD i = 0; i < count; ++i) {
        std::string queue = Text(printers[i].pShareName);
        if (queue.empty()) {
          queue = Text(printers[i].pPrinterName);
          const size_t slash = queue.rfind('\\');
          if (slash != std::string::npos) queue = queue.substr(slash + 1);
        }
        sim::ServerQueue captured{Utf8(queue), std::nullopt};
        if (printers[i].pDriverName && *printers[i].pDriverName)
          captured.driver = Utf8(printers[i].pDriverName);
        printServer.queues.push_back(captured);
      }
      machine_.printServers[Utf8(server)] = printServer;
    }
  }

  Capture capture_;
  sim::Machine& machine_ = capture_.machine;
  std::vector<std::string> notes_;
  std::string profileAnsi_;
  std::vector<std::string> servers_;   // print servers named so far, bare, ANSI
};

// Where a Windows path of the client lies below files\: "C:\a" is C\a,
// "\\srv\share\x" is UNC\srv\share\x. Empty for a path without a drive.
std::string LayoutPath(const std::string& windowsPath) {
  std::vector<std::string> parts;
  std::string part;
  for (char ch : windowsPath + "\\") {
    if (ch == '\\' || ch == '/') {
      if (!part.empty() && part != ".") parts.push_back(part);
      part.clear();
    } else {
      part += ch;
    }
  }
  std::string layout;
  if (windowsPath.rfind("\\\\", 0) == 0 && parts.size() >= 3) {
    layout = "UNC";
  } else if (!parts.empty() && parts[0].size() == 2 && parts[0][1] == ':' &&
             std::isalpha(static_cast<unsigned char>(parts[0][0]))) {
    parts[0] = std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(parts[0][0]))));
  } else {
    return {};
  }
  for (const std::string& p : parts) {
    if (p == "..") return {};
    layout += (layout.empty() ? "" : "\\") + p;
  }
  return layout;
}

void Check(const std::optional<std::string>& failure) {
  if (failure) throw WriteError{*failure};
}

}  // namespace

Capture CaptureClient(const Options& options) { return Capturer().Run(options); }

void WriteCapture(Output& output, const Capture& capture) {
  const std::string& target = capture.folderName;
  const std::string fresh = target + ".new", earlier = target + ".old";
  output.Remove(fresh);
  try {
    Check(output.MakeFolder(fresh + "\\files"));
    for (const std::string& folder : capture.folders) {
      const std::string layout = LayoutPath(folder);
      if (!layout.empty()) Check(output.MakeFolder(fresh + "\\files\\" + layout));
    }
    for (const ClientFile& file : capture.files) {
      const std::string layout = LayoutPath(file.windowsPath);
      if (layout.empty()) continue;
      const std::string path = fresh + "\\files\\" + layout;
      Check(output.MakeFolder(path.substr(0, path.rfind('\\'))));
      Check(output.WriteFile(path, file.content));
    }
    Check(output.WriteFile(fresh + "\\machine.json", sim::MachineText(capture.machine)));
    // An earlier capture gives way only once the new one is whole.
    output.Remove(earlier);
    const bool replacing = output.Exists(target);
    if (replacing) Check(output.Rename(target, earlier));
    if (std::optional<std::string> failure = output.Rename(fresh, target)) {
      if (replacing) output.Rename(earlier, target);
      throw WriteError{*failure};
    }
    output.Remove(earlier);
  } catch (const WriteError&) {
    output.Remove(fresh);
    throw;
  }
}

int Main(const std::vector<std::string>& arguments, const OutputMaker& makeOutput, std::string& out,
         std::string& err) {
  std::optional<std::string> outputFolder;
  Options options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& arg = arguments[i];
    if (arg == "--help" || arg == "-h" || arg == "/?") {
      out += kUsage;
      return 0;
    }
    if (arg == "--version") {
      out += std::string("zandolin-capture ") + ZANDOLIN_VERSION + "\n";
      return 0;
    }
    std::string problem;
    if (arg == "--ini" || arg.rfind("--ini=", 0) == 0) {
      if (arg != "--ini") options.iniFile = arg.substr(6);
      else if (i + 1 < arguments.size()) options.iniFile = arguments[++i];
      if (!options.iniFile || options.iniFile->empty()) problem = "--ini needs a file name";
    } else if (arg.size() > 1 && arg[0] == '-') {
      problem = "unknown option '" + arg + "'";
    } else if (outputFolder) {
      problem = "only one OUTPUT_FOLDER may be given ('" + *outputFolder + "' and '" + arg + "')";
    } else {
      outputFolder = arg;
    }
    if (!problem.empty()) {
      err += "zandolin-capture: " + problem + "\n" + kUsage;
      return 2;
    }
  }

  const Capture capture = CaptureClient(options);
  const std::string folder = outputFolder.value_or(Sys().system->AppPath());
  try {
    const std::unique_ptr<Output> output = makeOutput(folder);
    Check(output->MakeFolder(""));
    WriteCapture(*output, capture);
  } catch (const WriteError& e) {
    err += "zandolin-capture: the capture cannot be written into " + folder + ": " + e.reason + "\n";
    return 1;
  }
  std::string where = folder;
  if (!where.empty() && where.back() != '\\' && where.back() != '/') where += '\\';
  out += where + capture.folderName + "\n";
  if (capture.iniFailure) {
    err += "zandolin-capture: " + *capture.iniFailure + "; the capture holds the client without what it names\n";
    return 1;
  }
  return 0;
}

}  // namespace capture
