// Files on the simulated drives, with the run-time errors Windows gives.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {

namespace {

namespace fs = std::filesystem;
using platform::Failure;

// Whether name matches a pattern of "*" and "?", case-blind; "*.*" also
// matches a name without a dot.
bool MatchesPattern(const std::string& name, const std::string& pattern) {
  std::string n = UpperAscii(name), p = UpperAscii(pattern);
  if (p.size() >= 2 && p.compare(p.size() - 2, 2, ".*") == 0 && n.find('.') == std::string::npos)
    p.resize(p.size() - 2);
  size_t ni = 0, pi = 0, star = std::string::npos, mark = 0;
  while (ni < n.size()) {
    if (pi < p.size() && (p[pi] == '?' || p[pi] == n[ni])) {
      ++ni;
      ++pi;
    } else if (pi < p.size() && p[pi] == '*') {
      star = pi++;
      mark = ni;
    } else if (star != std::string::npos) {
      pi = star + 1;
      ni = ++mark;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == '*') ++pi;
  return pi == p.size();
}

// The failure for a path that cannot be used, or none; the numbers are
// those the Windows errors of each case give (ERROR_INVALID_NAME,
// ERROR_PATH_NOT_FOUND, ERROR_FILENAME_EXCED_RANGE, ERROR_FILE_NOT_FOUND).
// The NUL device needs no failure: each operation does nothing there.
Failure PathFailure(const ResolvedPath& path) {
  switch (path.status) {
    case ResolvedPath::kOk:
    case ResolvedPath::kNullDevice: return {};
    case ResolvedPath::kBadName: return StandardFailure(platform::kErrBadFileNameOrNumber);
    case ResolvedPath::kNoDevice:   // a drive, server or share the client does not have
    case ResolvedPath::kNoDrive: return StandardFailure(platform::kErrPathNotFound);
    case ResolvedPath::kTooLong: return StandardFailure(platform::kErrPathFileAccess);
    case ResolvedPath::kNoSuchDevice: return StandardFailure(platform::kErrFileNotFound);
  }
  return {};
}

Failure ErrnoFailure(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
    case EROFS: return StandardFailure(platform::kErrPermissionDenied);
    case ENOENT:
    case ENOTDIR: return StandardFailure(platform::kErrPathNotFound);
    case EISDIR: return StandardFailure(platform::kErrPathFileAccess);
    case ENOSPC: return StandardFailure(61);
    default: return StandardFailure(platform::kErrPathFileAccess);
  }
}

// Checks a file about to be created or changed: its folder exists (drive
// C:'s own folder is made on demand), it is not a folder, it is writable.
Failure CheckWritable(Context& c, const ResolvedPath& path) {
  if (Failure f = PathFailure(path); f.failed() || path.status == ResolvedPath::kNullDevice) return f;
  if (c.IsReadOnly(path.windows)) return StandardFailure(platform::kErrPermissionDenied);
  std::error_code ec;
  if (fs::is_directory(path.host, ec)) return StandardFailure(platform::kErrPathFileAccess);
  fs::path parent = path.host.parent_path();
  if (path.onDriveC && path.windows.size() > 3 && path.windows.find('\\', 3) == std::string::npos)
    fs::create_directories(parent, ec);   // a file in C:'s root
  if (!fs::is_directory(parent, ec)) return StandardFailure(platform::kErrPathNotFound);
  return {};
}

// A name that ends in a separator names a folder, which cannot be opened as a
// file: 75 when the folder is there, 76 when it is not.
Failure FolderNameFailure(Context& c, const std::string& windowsPath) {
  if (windowsPath.empty() || (windowsPath.back() != '\\' && windowsPath.back() != '/')) return {};
  ResolvedPath path = c.Resolve(windowsPath);
  std::error_code ec;
  if (path.status == ResolvedPath::kOk && fs::is_directory(path.host, ec))
    return StandardFailure(platform::kErrPathFileAccess);
  return StandardFailure(platform::kErrPathNotFound);
}

// The replacement of a file is written beside it as ".<name>.<pid>-<n>.new"
// and then renamed over it. A process killed in between leaves that file
// behind; the next one to read or write the file removes it, unless the
// process that wrote it still runs: two engines of one user may replace the
// file at the same time. A leftover of this very process id is an earlier
// process's, since a process has no replacement under way when it looks.
fs::path ReplacementPath(const fs::path& file, unsigned number) {
  return file.parent_path() /
         ("." + file.filename().string() + "." + std::to_string(getpid()) + "-" + std::to_string(number) + ".new");
}

void RemoveStaleReplacements(Context& c, const ResolvedPath& path) {
  if (path.status != ResolvedPath::kOk || c.IsReadOnly(path.windows)) return;
  const std::string prefix = "." + path.host.filename().string() + ".";
  std::error_code ec;
  for (const fs::directory_entry& entry : fs::directory_iterator(path.host.parent_path(), ec)) {
    const std::string name = entry.path().filename().string();
    if (name.size() <= prefix.size() + 4 || name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - 4, 4, ".new") != 0)
      continue;
    const std::string middle = name.substr(prefix.size(), name.size() - prefix.size() - 4);   // <pid>-<n>
    const size_t dash = middle.find_first_not_of("0123456789");
    if (dash == 0 || dash == std::string::npos || middle[dash] != '-' || dash + 1 == middle.size() ||
        middle.find_first_not_of("0123456789", dash + 1) != std::string::npos)
      continue;
    const long pid = std::strtol(middle.substr(0, dash).c_str(), nullptr, 10);
    const bool gone = pid > 0 && (pid == getpid() || (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH));
    if (gone) fs::remove(entry.path(), ec);
  }
}

bool WriteAll(int fd, const char* data, size_t size, off_t offset, bool positioned) {
  size_t done = 0;
  while (done < size) {
    ssize_t n = positioned ? pwrite(fd, data + done, size - done, offset + static_cast<off_t>(done))
                           : write(fd, data + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

class SimFiles : public platform::Files {
 public:
  std::string FirstFile(const std::string& pattern) override {
    Context& c = Current();
    if (c.TakeFault("FirstFile", pattern)) return "";
    ResolvedPath path = c.Resolve(pattern, true);
    if (path.status != ResolvedPath::kOk) return "";
    std::string mask = path.host.filename().string();
    fs::path dir = path.host.parent_path();
    std::error_code ec;
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir, ec)) {
      std::error_code typeError;
      if (!entry.is_regular_file(typeError)) continue;
      std::string name = entry.path().filename().string();
      if (MatchesPattern(name, mask)) names.push_back(name);
    }
    if (names.empty()) return "";
    // The order of an NTFS folder: by name, case-blind.
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
      std::string ua = UpperAscii(a), ub = UpperAscii(b);
      return ua != ub ? ua < ub : a < b;
    });
    return names.front();
  }

  Failure ReadText(const std::string& windowsPath, std::string& content) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("ReadText", windowsPath)) return StandardFailure(f->lastError);
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = PathFailure(path); f.failed()) return f;
    if (path.status == ResolvedPath::kNullDevice) {
      content.clear();
      return {};
    }
    RemoveStaleReplacements(c, path);
    std::error_code ec;
    if (fs::is_directory(path.host, ec)) return StandardFailure(platform::kErrPathFileAccess);
    if (!fs::exists(path.host, ec)) {
      return StandardFailure(fs::is_directory(path.host.parent_path(), ec) ? platform::kErrFileNotFound
                                                                           : platform::kErrPathNotFound);
    }
    std::ifstream in(path.host, std::ios::binary);
    if (!in) return StandardFailure(platform::kErrPermissionDenied);
    std::stringstream buffer;
    buffer << in.rdbuf();
    content = buffer.str();
    return {};
  }

  Failure AppendText(const std::string& windowsPath, const std::string& content) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("AppendText", windowsPath)) return StandardFailure(f->lastError);
    if (Failure f = FolderNameFailure(c, windowsPath); f.failed()) return f;
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = CheckWritable(c, path); f.failed() || path.status == ResolvedPath::kNullDevice) return f;
    RemoveStaleReplacements(c, path);
    int fd = open(path.host.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return ErrnoFailure(errno);
    // One write, so that reports of engines sharing the file do not tear.
    bool ok = WriteAll(fd, content.data(), content.size(), 0, false);
    int error = errno;
    close(fd);
    c.NoteFileWritten(path.windows);
    if (!ok) return ErrnoFailure(error);
    return {};
  }

  Failure ReplaceText(const std::string& windowsPath, const std::string& content) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("ReplaceText", windowsPath)) return StandardFailure(f->lastError);
    if (Failure f = FolderNameFailure(c, windowsPath); f.failed()) return f;
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = CheckWritable(c, path); f.failed() || path.status == ResolvedPath::kNullDevice) return f;
    RemoveStaleReplacements(c, path);
    static std::atomic<unsigned> counter{0};
    const fs::path temp = ReplacementPath(path.host, counter++);
    int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return ErrnoFailure(errno);
    bool ok = WriteAll(fd, content.data(), content.size(), 0, false);
    int error = errno;
    close(fd);
    std::error_code ec;
    if (!ok) {
      fs::remove(temp, ec);
      return ErrnoFailure(error);
    }
    if (rename(temp.c_str(), path.host.c_str()) != 0) {
      error = errno;
      fs::remove(temp, ec);
      return ErrnoFailure(error);
    }
    c.NoteFileWritten(path.windows);
    return {};
  }

  Failure WriteBinary(const std::string& windowsPath, const std::vector<uint8_t>& bytes) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("WriteBinary", windowsPath)) return StandardFailure(f->lastError);
    if (Failure f = FolderNameFailure(c, windowsPath); f.failed()) return f;
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = CheckWritable(c, path); f.failed() || path.status == ResolvedPath::kNullDevice) return f;
    int fd = open(path.host.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return ErrnoFailure(errno);
    bool ok = WriteAll(fd, reinterpret_cast<const char*>(bytes.data()), bytes.size(), 0, true);
    int error = errno;
    close(fd);
    c.NoteFileWritten(path.windows);
    if (!ok) return ErrnoFailure(error);
    return {};
  }

  Failure FileCopy(const std::string& source, const std::string& target) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("FileCopy", std::vector<std::string>{source, target}))
      return StandardFailure(f->lastError);
    ResolvedPath from = c.Resolve(source);
    if (Failure f = PathFailure(from); f.failed()) return f;
    std::error_code ec;
    const bool fromNul = from.status == ResolvedPath::kNullDevice;
    if (!fromNul && fs::is_directory(from.host, ec)) return StandardFailure(platform::kErrPathFileAccess);
    if (!fromNul && !fs::exists(from.host, ec)) {
      return StandardFailure(fs::is_directory(from.host.parent_path(), ec) ? platform::kErrFileNotFound
                                                                           : platform::kErrPathNotFound);
    }
    if (Failure f = FolderNameFailure(c, target); f.failed()) return f;
    ResolvedPath to = c.Resolve(target);
    if (Failure f = CheckWritable(c, to); f.failed() || to.status == ResolvedPath::kNullDevice) return f;
    std::string bytes;
    if (!fromNul) {
      std::ifstream in(from.host, std::ios::binary);
      if (!in) return StandardFailure(platform::kErrPermissionDenied);
      std::stringstream buffer;
      buffer << in.rdbuf();
      bytes = buffer.str();
    }
    int fd = open(to.host.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return ErrnoFailure(errno);
    bool ok = WriteAll(fd, bytes.data(), bytes.size(), 0, false);
    int error = errno;
    close(fd);
    c.NoteFileWritten(to.windows);
    if (!ok) return ErrnoFailure(error);
    return {};
  }
};

}  // namespace

platform::Files& FilesService() {
  static SimFiles service;
  return service;
}

}  // namespace sim
