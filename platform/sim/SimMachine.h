// The state of one simulated Windows computer, as machine.json holds it, and
// the record of what a run did to it. Shared by the services of the
// simulated platform.
#pragma once

#include "platform/Platform.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct SimPrinter {
  std::string name;
  std::optional<std::string> serverName;  // nullopt: a null pointer
  std::string shareName, portName, driverName, comment, location;
  uint32_t attributes = 0;
};

// A queue a print server shares, and the driver a client needs for it
// (absent: not named).
struct ServerQueue {
  std::string name;
  std::optional<std::string> driver;
};

struct PrintServer {
  std::vector<ServerQueue> queues;
};

// A registry value. In machine.json a plain string is REG_SZ; any other value
// is {"type": T, "data": D}, where D is, by type:
//   1 REG_SZ, 2 REG_EXPAND_SZ: a string (stored with its NUL);
//   4 REG_DWORD, 5 REG_DWORD_BIG_ENDIAN, 11 REG_QWORD: a number;
//   7 REG_MULTI_SZ: an array of strings (each with its NUL, and one more NUL);
//   any type: an array of byte values 0-255, taken as they stand;
//   3 REG_BINARY and other types: also a string, its bytes without a NUL.
// A missing "data" is no bytes at all. Saving writes each value back in the
// first of these forms that gives its bytes exactly. The text types hold
// machine text (UTF-8), as the registry holds Unicode; RegQueryValueExA gives
// them in the ANSI code page.
struct RegistryValue {
  uint32_t type = 1;             // REG_SZ
  std::vector<uint8_t> data;     // REG_SZ: the text and its NUL
};

struct PrintQueue {
  std::optional<std::string> name;         // absent: the entry has no "name"
  std::vector<std::string> printShareName;
};

struct DirectoryError {
  int32_t number = 0;
  std::string description;
};

struct SimDirectory {
  std::string domain;
  std::string namingContext;
  std::vector<PrintQueue> printQueues;
  uint32_t sizeLimit = 1000;              // entries a query gives; 0: no limit
  std::optional<DirectoryError> queryError;
  std::optional<std::string> ldap;        // "ldap://host:port": a real server
};

struct EventEntry {
  std::string source;
  int type = 0;
  int category = 0;
  uint32_t id = 0;
  std::vector<std::string> strings;
  std::string data;
};

struct Fault {
  std::string call;
  std::optional<std::string> match;
  int64_t result = 0;
  uint32_t lastError = 0;
  int skip = 0;
  std::optional<int> times;
  int seen = 0;    // matching calls so far
  int fired = 0;   // times it fired
};

// The SMTP peer played inside the simulator (machine.json "smtp").
struct SmtpPeer {
  enum Mode { kAccept, kRefuse, kSilent };
  Mode mode = kAccept;
  int refuseStep = 0;   // kRefuse: the step (1 greeting ... 6 message) answered with 550
};

// Who wrote a captured client, and what could not be read; the run ignores it.
struct CaptureInfo {
  std::string at;
  std::string version;
  std::vector<std::string> notes;
};

struct Machine {
  // os
  uint32_t platformId = 2, majorVersion = 10, minorVersion = 0, versionError = 0;
  uint32_t ansiCodePage = 1252;
  // user
  bool isAdmin = true;
  std::optional<std::string> computerName = "PC042";
  std::optional<std::string> userName = "jdoe";
  std::string exePath = "C:\\Deploy\\ZandolinEngine.exe";
  std::string profileDir = "C:\\Users\\jdoe";
  std::string windowsDir = "C:\\Windows";
  std::string systemDir = "C:\\Windows\\system32";
  std::string tempDir = "C:\\Users\\jdoe\\AppData\\Local\\Temp\\";
  std::optional<std::string> localHostName;   // absent: the computer name
  std::optional<std::string> clock;           // "YYYY-MM-DDTHH:MM:SS"; absent: host clock
  uint32_t timerIntervalMs = 1000;
  std::vector<SimPrinter> printers;
  std::optional<std::string> defaultPrinter;
  std::map<std::string, PrintServer> printServers;   // names compare case-blind
  std::vector<std::string> drivers;
  std::vector<std::string> ports = {"LPT1:", "FILE:"};
  // section -> key -> value, in file order
  std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>> winIni;
  // key path -> value name -> value, in file order; paths compare case-blind
  std::vector<std::pair<std::string, std::vector<std::pair<std::string, RegistryValue>>>> registry;
  std::optional<SimDirectory> directory;
  std::vector<EventEntry> eventLog;
  std::vector<std::string> readOnly;
  std::vector<Fault> faults;
  // The values of HKLM\Software\Policies\Microsoft\Windows NT\Printers\PointAndPrint.
  std::vector<std::pair<std::string, RegistryValue>> pointAndPrint;
  std::optional<SmtpPeer> smtp;         // absent: real sockets
  std::optional<CaptureInfo> capture;
};

// An SMTP peer as machine.json names it: "accept", "silent", {"refuse": N}.
nlohmann::json SmtpPeerJson(const SmtpPeer& peer);
// The number a REG_DWORD value of four bytes holds; nullopt for any other.
std::optional<uint32_t> DwordOf(const RegistryValue& value);
// A Point and Print policy value by name (case-blind), as Windows reads the
// policy: its DWORD, or nullopt when absent or of another type.
std::optional<uint32_t> PointAndPrintDword(const Machine& machine, const std::string& name);
// The Point and Print policy as the client applies it: the values of
// pointAndPrint, then those of its key in registry that pointAndPrint does
// not name (both stand for the same key).
std::vector<std::pair<std::string, RegistryValue>> PointAndPrintPolicy(const Machine& machine);
// Whether the Point and Print policy keeps a standard user of this client
// from installing a print server's driver with a connection.
bool DriverInstallRefused(const Machine& machine);
// Policy values as machine.json writes them: a REG_DWORD as a plain number.
nlohmann::ordered_json PointAndPrintToJson(
    const std::vector<std::pair<std::string, RegistryValue>>& values);

// Reads folder/machine.json (absent file: all defaults). Throws MachineError
// naming the file and the line and column, or the field, and what was
// expected: "machine.json: field 'os.platformId': expected an integer".
Machine LoadMachine(const std::filesystem::path& folder);
// The same for a file in machine.json's form by any name; messages name it
// by its file name.
Machine LoadMachineFile(const std::filesystem::path& file);
// Writes the machine back to folder/machine.json: beside it first, then in
// its place.
void SaveMachine(const std::filesystem::path& folder, const Machine& machine);

// The same without the file: the text of machine.json read into a machine
// (throws MachineError as LoadMachine does, naming the file by name), and
// the text written for one.
Machine MachineFromText(const std::string& text, const std::string& name = "machine.json");
std::string MachineText(const Machine& machine);

}  // namespace sim
