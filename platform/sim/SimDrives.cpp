// The files of the simulated drives by host path: the client folder, and,
// for a client that keeps its files in memory, what its runs wrote, over a
// client folder that is only ever read.
//
// Rules for this file: it is the only one of the simulated platform that
// reads or writes the host's files under files/; errors are errno values;
// the host calls of each system stand in their own branch below.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <cerrno>
#include <fcntl.h>

#ifdef _WIN32
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#else
#include <csignal>
#include <unistd.h>
#endif

namespace sim {

namespace fs = std::filesystem;

namespace {

// Upper case, so that a file written as "PC042.debug" is found again as
// "pc042.DEBUG", as on Windows.
std::string Key(const fs::path& host) {
  std::u8string text = host.generic_u8string();
  return UpperAscii(std::string(text.begin(), text.end()));
}

bool HostIsFolder(const fs::path& host) {
  std::error_code ec;
  return fs::is_directory(host, ec);
}

bool HostIsFile(const fs::path& host) {
  std::error_code ec;
  return fs::exists(host, ec) && !fs::is_directory(host, ec);
}

#ifdef _WIN32
int OpenForReading(const fs::path& host) { return ::_wopen(host.c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT); }
int ReadSome(int fd, char* data, size_t size) {
  return ::_read(fd, data, static_cast<unsigned>(size > 0x40000000 ? 0x40000000 : size));
}
int OpenForWriting(const fs::path& host, int flags) {
  return ::_wopen(host.c_str(), flags | _O_WRONLY | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
}
int WriteSome(int fd, const char* data, size_t size) {
  return ::_write(fd, data, static_cast<unsigned>(size > 0x40000000 ? 0x40000000 : size));
}
void CloseFile(int fd) { ::_close(fd); }
constexpr int kAppendFlags = _O_APPEND | _O_CREAT;
constexpr int kTruncateFlags = _O_CREAT | _O_TRUNC;
constexpr int kFromStartFlags = _O_CREAT;
constexpr int kNewFlags = _O_CREAT | _O_EXCL;
int ProcessId() { return ::_getpid(); }
// Whether the process of this id runs. One that has ended, or no process of
// that id at all, does not; one this process may not open does.
bool ProcessRuns(long id) {
  HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(id));
  if (!process) return ::GetLastError() != ERROR_INVALID_PARAMETER;
  const bool runs = ::WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
  ::CloseHandle(process);
  return runs;
}
// Puts from in the place of to, replacing it.
int Rename(const fs::path& from, const fs::path& to) {
  if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING)) return 0;
  return GetLastError() == ERROR_ACCESS_DENIED ? EACCES : EIO;
}
#else
int OpenForReading(const fs::path& host) { return ::open(host.c_str(), O_RDONLY | O_CLOEXEC); }
ssize_t ReadSome(int fd, char* data, size_t size) { return ::read(fd, data, size); }
int OpenForWriting(const fs::path& host, int flags) {
  return ::open(host.c_str(), flags | O_WRONLY | O_CLOEXEC, 0666);
}
ssize_t WriteSome(int fd, const char* data, size_t size) { return ::write(fd, data, size); }
void CloseFile(int fd) { ::close(fd); }
constexpr int kAppendFlags = O_APPEND | O_CREAT;
constexpr int kTruncateFlags = O_CREAT | O_TRUNC;
constexpr int kFromStartFlags = O_CREAT;
constexpr int kNewFlags = O_CREAT | O_EXCL;
int ProcessId() { return static_cast<int>(::getpid()); }
bool ProcessRuns(long id) { return ::kill(static_cast<pid_t>(id), 0) == 0 || errno != ESRCH; }
int Rename(const fs::path& from, const fs::path& to) {
  return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}
#endif

// The whole file; errno when it cannot be opened or read.
int HostRead(const fs::path& host, std::string& bytes) {
  int fd = OpenForReading(host);
  if (fd < 0) return HostIsFile(host) ? EACCES : ENOENT;
  bytes.clear();
  char chunk[16384];
  int error = 0;
  for (;;) {
    auto n = ReadSome(fd, chunk, sizeof chunk);
    if (n > 0) {
      bytes.append(chunk, static_cast<size_t>(n));
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      error = errno;
      break;
    }
  }
  CloseFile(fd);
  return error;
}

// Opens with flags and writes all of bytes in as few writes as the system
// allows (one, as a rule, so that reports of engines sharing a file do not
// tear).
int HostWrite(const fs::path& host, std::string_view bytes, int flags) {
  int fd = OpenForWriting(host, flags);
  if (fd < 0) return errno;
  size_t done = 0;
  int error = 0;
  while (done < bytes.size()) {
    auto n = WriteSome(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    done += static_cast<size_t>(n);
  }
  CloseFile(fd);
  return error;
}

// The new content is written beside the file as ".<name>.<pid>-<n>.new"
// and then takes its place, so a reader finds either the old file or the
// new one.
int HostReplace(const fs::path& host, std::string_view bytes) {
  static int counter = 0;
  fs::path temp = host.parent_path() / ("." + host.filename().string() + "." +
                                        std::to_string(ProcessId()) + "-" + std::to_string(counter++) +
                                        ".new");
  if (int error = HostWrite(temp, bytes, kNewFlags); error != 0) {
    std::error_code ec;
    fs::remove(temp, ec);
    return error;
  }
  if (int error = Rename(temp, host); error != 0) {
    std::error_code ec;
    fs::remove(temp, ec);
    return error;
  }
  return 0;
}

}  // namespace

void DriveRemoveStaleReplacements(const Context& c, const ResolvedPath& path) {
  if (c.memory || path.status != ResolvedPath::kOk || c.IsReadOnly(path.windows)) return;
  const fs::path& host = path.host;
  const std::string prefix = "." + host.filename().string() + ".";
  std::vector<fs::path> stale;
  std::error_code ec;
  for (const fs::directory_entry& entry : fs::directory_iterator(host.parent_path(), ec)) {
    const std::string name = entry.path().filename().string();
    if (name.size() <= prefix.size() + 4 || name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - 4, 4, ".new") != 0)
      continue;
    const std::string middle = name.substr(prefix.size(), name.size() - prefix.size() - 4);   // <pid>-<n>
    const size_t dash = middle.find_first_not_of("0123456789");
    if (dash == 0 || dash == std::string::npos || dash > 9 || middle[dash] != '-' || dash + 1 == middle.size() ||
        middle.find_first_not_of("0123456789", dash + 1) != std::string::npos)
      continue;
    const long id = std::stol(middle.substr(0, dash));
    if (id == ProcessId() || !ProcessRuns(id)) stale.push_back(entry.path());
  }
  for (const fs::path& file : stale) fs::remove(file, ec);
}

bool DriveIsFolder(const Context& c, const fs::path& host) {
  if (c.memory && c.memory->folders.count(Key(host))) return true;
  return HostIsFolder(host);
}

bool DriveIsFile(const Context& c, const fs::path& host) {
  if (c.memory && c.memory->files.count(Key(host))) return true;
  return HostIsFile(host);
}

int DriveRead(const Context& c, const fs::path& host, std::string& bytes) {
  if (c.memory) {
    auto it = c.memory->files.find(Key(host));
    if (it != c.memory->files.end()) {
      bytes = it->second.bytes;
      return 0;
    }
  }
  return HostRead(host, bytes);
}

int DriveWrite(Context& c, const fs::path& host, std::string_view bytes, DriveWriteMode mode) {
  if (!c.memory) {
    switch (mode) {
      case DriveWriteMode::kAppend: return HostWrite(host, bytes, kAppendFlags);
      case DriveWriteMode::kReplace: return HostReplace(host, bytes);
      case DriveWriteMode::kTruncate: return HostWrite(host, bytes, kTruncateFlags);
      case DriveWriteMode::kFromStart: return HostWrite(host, bytes, kFromStartFlags);
    }
    return EINVAL;
  }
  const std::string key = Key(host);
  auto it = c.memory->files.find(key);
  std::string content;
  if (mode == DriveWriteMode::kAppend || mode == DriveWriteMode::kFromStart) {
    if (it != c.memory->files.end()) content = it->second.bytes;
    else if (HostIsFile(host) && HostRead(host, content) != 0) return EACCES;
  }
  if (mode == DriveWriteMode::kAppend) {
    content += bytes;
  } else if (mode == DriveWriteMode::kFromStart && content.size() > bytes.size()) {
    content.replace(0, bytes.size(), bytes);
  } else {
    content = bytes;
  }
  MemoryFile& file = c.memory->files[key];
  file.host = host;
  file.bytes = std::move(content);
  return 0;
}

void DriveMakeFolders(Context& c, const fs::path& host) {
  if (!c.memory) {
    std::error_code ec;
    fs::create_directories(host, ec);
    return;
  }
  for (fs::path p = host; !p.empty() && !HostIsFolder(p); p = p.parent_path()) {
    if (!c.memory->folders.insert(Key(p)).second) break;
    if (p == p.parent_path()) break;
  }
}

std::vector<std::string> DriveFileNames(const Context& c, const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, ec)) {
    std::error_code typeError;
    if (!entry.is_regular_file(typeError)) continue;
    if (c.memory && c.memory->files.count(Key(entry.path()))) continue;   // listed below
    names.push_back(entry.path().filename().string());
  }
  if (c.memory) {
    const std::string parent = Key(folder);
    for (const auto& [key, file] : c.memory->files)
      if (Key(file.host.parent_path()) == parent) names.push_back(file.host.filename().string());
  }
  return names;
}

}  // namespace sim
