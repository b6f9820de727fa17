// The running simulated client: the machine, the last error, the injected
// faults, the drives and what the run has done so far. Every service of the
// simulated platform works on the one current context.
#pragma once

#include "platform/sim/SimCodePage.h"
#include "platform/sim/SimMachine.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// A Windows path placed on the simulated drives.
struct ResolvedPath {
  enum Status {
    kOk,           // host and windows are set
    kBadName,      // a name Windows does not allow (ERROR_INVALID_NAME)
    kNoDevice,     // a drive, server or share that the client does not have
    kNoDrive,      // a relative path and no current folder to take it from
    kTooLong,      // longer than MAX_PATH (ERROR_FILENAME_EXCED_RANGE)
    kNullDevice,   // NUL: reading gives nothing, writing goes nowhere
    kNoSuchDevice, // a device the client does not have: CON, PRN, AUX, COMn,
                   // LPTn, or any other (ERROR_FILE_NOT_FOUND)
  };
  Status status = kNoDrive;
  std::filesystem::path host;   // the host path, case-blind against what exists
  std::string windows;          // the canonical Windows path ("C:\\Deploy\\a.ini")
  bool onDriveC = false;        // drive C: always exists, its folder is made on demand
};

// Places a Windows path on the drives of the client folder: "C:\\a" is
// folder/files/C/a, "\\\\srv\\share\\x" is folder/files/UNC/srv/share/x.
// The path is read as the ANSI file functions of Windows read it: "/" is a
// separator, "." and ".." are applied but never above the drive, the share
// or a device path's "\\\\.\\"; a name before a separator loses one
// trailing dot, the last name all trailing dots and blanks; "\\\\?\\"
// takes every name as it stands; a last name such as NUL, CON, COM1 or
// LPT1.txt names a device; a path of more than MAX_PATH characters fails.
// Each existing component is matched case-blind. A relative path is taken
// from currentDir (a Windows folder); with an empty currentDir it gives
// kNoDrive. wildcards lets the last component hold "*" and "?". No path
// reaches a host file outside folder/files.
ResolvedPath ResolveWindowsPath(const std::filesystem::path& folder, const std::string& windowsPath,
                                const std::string& currentDir = "", bool wildcards = false);

// Why the simulated process cannot end: DoEvents and Sleep throw it once
// the wall-clock limit of the run has passed. Only Client::Run catches it.
// why names the state ("forms still loaded: 1"); plain says it to an
// administrator.
struct StuckError {
  std::string why;
  std::string plain;
};

struct SimTimer {
  platform::TimerEvents* owner = nullptr;
  uint32_t intervalMs = 1000;
  bool enabled = false;
  std::chrono::steady_clock::time_point due;
};

// A host socket descriptor, closed when its owner goes (SimSockets.cpp).
struct HostSocket {
  int fd = -1;
  HostSocket() = default;
  HostSocket(HostSocket&& other) noexcept : fd(other.fd) { other.fd = -1; }
  HostSocket& operator=(HostSocket&& other) noexcept;
  ~HostSocket() { Reset(); }
  void Reset();
};

// The SMTP server a simulated socket talks to instead of the network.
struct PlayedPeer {
  SmtpPeer peer;
  std::string fromClient;   // received and not yet a whole command line
  std::string toClient;     // answered and not yet delivered
  bool inData = false;      // between DATA's 354 and the end of the message
  bool closed = false;      // it has closed its side
};

// How a connection's dialogue stands, for the words of a run that is stuck.
struct SocketNote {
  bool awaiting = false;       // the client spoke last, or the connection is new
  bool serverClosed = false;   // the server has closed its side
};

struct SimSocket {
  platform::SocketEvents* owner = nullptr;
  int state = platform::kSocketClosed;
  std::string host, port, sent, received;
  int transcriptIndex = -1;            // its entry in Context::sockets
  bool errorPending = false;           // an error event waits for the pump
  int32_t errorNumber = 0;
  std::string errorDescription;
  HostSocket connection;               // the real TCP connection to the peer
  std::string inbox;                   // received and not yet taken by GetData
  std::string outbox;                  // given to SendData and not yet taken by the host
  std::optional<PlayedPeer> played;    // set: a simulated peer instead of the network
};

// Every call of the boundary, as the transcript's calls gives them, and
// what folding repeated calls needs (SimTrace.cpp).
struct CallTrace {
  nlohmann::json calls = nlohmann::json::array();
  std::vector<std::string> keys;       // per entry its text; empty for an open call or a fold
  size_t fold = SIZE_MAX;              // the fold at the end that may still grow
  std::vector<std::string> foldKeys;   // the texts of its calls
};

struct ProgressRecord {
  bool created = false;
  bool shown = false;
  std::vector<std::string> labels;
  int64_t steps = 0;
  int value = 0;
  int maximum = 100;
};

// A file a client that keeps its files in memory has written.
struct MemoryFile {
  std::filesystem::path host;   // where it would stand under files/
  std::string bytes;
};

// What the runs of a client that keeps its files in memory have written,
// by the upper-case host path: its folder is read and never written.
struct MemoryDrives {
  std::map<std::string, MemoryFile> files;
  std::set<std::string> folders;
};

struct Context {
  std::filesystem::path folder;   // the client folder (machine.json, files/)
  Machine machine;
  uint32_t lastError = 0;
  std::optional<MemoryDrives> memory;   // set: the runs write into memory only
  bool stuckAtOnce = false;             // a wait nothing can end is stuck at once

  // The client's ANSI code page (machine.ansiCodePage).
  const CodePage& AnsiCodePage() const;

  // Transcript records.
  std::vector<SimPrinter> printersBefore;
  std::optional<std::string> defaultBefore;
  nlohmann::json spoolerCalls = nlohmann::json::array();
  nlohmann::json messageBoxes = nlohmann::json::array();
  nlohmann::json eventLogWritten = nlohmann::json::array();
  nlohmann::json eventLogRefused = nlohmann::json::array();   // entries ReportEventA refused
  nlohmann::json sockets = nlohmann::json::array();
  std::vector<std::string> filesWritten;   // canonical Windows paths, first write first
  ProgressRecord progress;
  nlohmann::json ended = nullptr;          // "returned", "fatal", "stuck"; null before the end
  nlohmann::json fatal = nullptr;          // {number, description}
  nlohmann::json stuckIn = nullptr;        // why the process would not end
  nlohmann::json stuckReason = nullptr;    // the same in an administrator's words
  nlohmann::json directoryQueries = nlohmann::json::array();   // {entries, cut} a query
  nlohmann::json runStatus = nullptr;      // {value, where} of a status SaveSetting recorded
  std::vector<SocketNote> socketNotes;     // per sockets entry, how its dialogue stands
  bool tracing = false;                    // record every call of the boundary
  CallTrace trace;

  // The process.
  std::string commandLine;
  std::optional<SmtpPeer> defaultPeer;     // the SMTP peer when machine.json names none
  double limitSeconds = 120;
  platform::LocalTime startTime;           // the clock at the start of the run
  int64_t elapsedMs = 0;                   // simulated time since then
  std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
  uint64_t boundaryCalls = 0;              // calls of the boundary so far
  uint64_t callsAtLastPump = 0;            // boundaryCalls when DoEvents last returned

  // Handles and objects of the run.
  uintptr_t nextHandle = 0x1000;
  std::map<uintptr_t, std::string> registryKeys;   // open key handle -> key path
  std::map<uintptr_t, std::string> eventSources;   // event source handle -> source
  std::map<uintptr_t, bool> tokens;                // open process tokens
  std::map<int, SimTimer> timers;
  int nextTimer = 1;
  std::map<int, SimSocket> socketTable;
  int nextSocket = 1;
  mutable const CodePage* codePage = nullptr;   // what AnsiCodePage() found last

  // The fault for this call, if one fires now; a fired fault also sets
  // lastError. firstArg is the call's first string argument (for calls on a
  // printer handle, the name the handle was opened with; for file and
  // registry calls, the path).
  const Fault* TakeFault(const std::string& call, const std::string& firstArg);
  // The same, where a fault's match may name any of several texts of the
  // call (a registry call: the key's full path, the sub-key or value name).
  const Fault* TakeFault(const std::string& call, const std::vector<std::string>& args);

  // Records a call that adds, removes or changes a printer, a driver, a port
  // or the default printer.
  void RecordSpoolerCall(const std::string& call, const nlohmann::json& args, int64_t result);

  // The default printer as the machine's generation keeps it: the printer
  // with attribute 0x4 on platform 1, the name in front of the first comma of
  // winIni Windows/device on platform 2 below 5, defaultPrinter otherwise.
  std::optional<std::string> CurrentDefault() const;

  // The host path of a Windows path on the simulated drives, resolved
  // case-blind against what exists ("C:\\a\\b" -> folder/files/C/a/b,
  // "\\\\srv\\share\\x" -> folder/files/UNC/srv/share/x). Empty when the
  // path has no drive.
  std::filesystem::path HostPath(const std::string& windowsPath) const;
  // Whether the Windows path lies in (or is) a read-only path, or, for a
  // standard user, in systemDir.
  bool IsReadOnly(const std::string& windowsPath) const;
  // A standard user on the NT family, where access is checked; the 9x
  // family checks none.
  bool StandardUser() const { return !machine.isAdmin && machine.platformId == 2; }
  // The SMTP peer the run plays: machine.json's, else the run's default;
  // none: real sockets.
  std::optional<SmtpPeer> PlayedSmtpPeer() const { return machine.smtp ? machine.smtp : defaultPeer; }

  // The folder of exePath: the process's current folder, from which
  // relative file names are taken.
  std::string CurrentDir() const;
  // A path resolved against the drives, relative names from CurrentDir().
  ResolvedPath Resolve(const std::string& windowsPath, bool wildcards = false) const;
  // Notes a file created or changed (canonical Windows path), once.
  void NoteFileWritten(const std::string& windowsPath);
  // Why the process cannot end now ("forms still loaded: 1, timers
  // enabled: 1"), and throws StuckError with it once the deadline has passed.
  std::string StuckReason() const;
  // Why the process cannot end, in an administrator's words.
  std::string PlainStuckReason() const;
  void CheckDeadline() const;
  // Fresh records for a run: start time, deadline, transcript, handles.
  void BeginRun(double limitSeconds);
  // The transcript of the run so far: how it ended, what it showed, wrote
  // and changed, and the engine's report and debug log.
  nlohmann::json Transcript() const;
  // What the run was served with (the transcript's client).
  nlohmann::json ClientRecord() const;
  // The run status this run recorded, or null.
  nlohmann::json RunStatusRecord() const;
};

// The files of the drives by host path, as the run sees them: the client
// folder and, over it, what a client that keeps its files in memory has
// written (SimDrives.cpp). Errors are errno values.
enum class DriveWriteMode {
  kAppend,     // at the end, creating the file
  kReplace,    // the whole content in one step (beside, then in its place)
  kTruncate,   // emptied, then written
  kFromStart,  // from the first byte, the rest of a longer file kept
};
bool DriveIsFolder(const Context& c, const std::filesystem::path& host);
bool DriveIsFile(const Context& c, const std::filesystem::path& host);
int DriveRead(const Context& c, const std::filesystem::path& host, std::string& bytes);
int DriveWrite(Context& c, const std::filesystem::path& host, std::string_view bytes,
               DriveWriteMode mode);
// Makes the folder and those above it.
void DriveMakeFolders(Context& c, const std::filesystem::path& host);
// A replacement of the file written by a process that was killed before it
// could move it into place stays behind; the next process that reads or
// writes the file removes it, unless the process that wrote it still runs
// (two engines of one user may replace the file at the same time). One of
// this very process id is an earlier process's, since a process has no
// replacement under way when it looks.
void DriveRemoveStaleReplacements(const Context& c, const ResolvedPath& path);
// The names of the files (not folders) in a folder, in no order.
std::vector<std::string> DriveFileNames(const Context& c, const std::filesystem::path& folder);

// The context of the client that is installed.
Context& Current();
// Makes context current (nullptr: a blank context of all defaults).
void SetCurrent(Context* context);

// The simulated spooler (SimSpooler.cpp); works on Current().
platform::Spooler& SpoolerService();

// A printer as the transcript and machine.json give it.
nlohmann::json PrinterToJson(const SimPrinter& printer);

}  // namespace sim
