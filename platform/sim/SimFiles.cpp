// Files on the simulated drives, with the run-time errors Windows gives. The
// engine names them in the ANSI code page, the drives in machine text; what
// files hold is bytes, as the engine wrote them.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>
#include <cerrno>

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
  if (DriveIsFolder(c, path.host)) return StandardFailure(platform::kErrPathFileAccess);
  fs::path parent = path.host.parent_path();
  if (path.onDriveC && path.windows.size() > 3 && path.windows.find('\\', 3) == std::string::npos)
    DriveMakeFolders(c, parent);   // a file in C:'s root
  if (!DriveIsFolder(c, parent)) return StandardFailure(platform::kErrPathNotFound);
  return {};
}

// A name that ends in a separator names a folder, which cannot be opened as a
// file: 75 when the folder is there, 76 when it is not.
Failure FolderNameFailure(Context& c, const std::string& windowsPath) {
  if (windowsPath.empty() || (windowsPath.back() != '\\' && windowsPath.back() != '/')) return {};
  ResolvedPath path = c.Resolve(windowsPath);
  if (path.status == ResolvedPath::kOk && DriveIsFolder(c, path.host))
    return StandardFailure(platform::kErrPathFileAccess);
  return StandardFailure(platform::kErrPathNotFound);
}

// Reads a file that is to be there: a folder gives 75, a missing file 53, a
// missing folder 76, a file that cannot be opened 70.
Failure ReadExisting(const Context& c, const ResolvedPath& path, std::string& bytes) {
  if (path.status == ResolvedPath::kNullDevice) {
    bytes.clear();
    return {};
  }
  if (DriveIsFolder(c, path.host)) return StandardFailure(platform::kErrPathFileAccess);
  if (!DriveIsFile(c, path.host)) {
    return StandardFailure(DriveIsFolder(c, path.host.parent_path()) ? platform::kErrFileNotFound
                                                                     : platform::kErrPathNotFound);
  }
  if (DriveRead(c, path.host, bytes) != 0) return StandardFailure(platform::kErrPermissionDenied);
  return {};
}

// Writes a checked file and notes it as written.
Failure Write(Context& c, const ResolvedPath& path, std::string_view bytes, DriveWriteMode mode) {
  if (path.status == ResolvedPath::kNullDevice) return {};
  if (int error = DriveWrite(c, path.host, bytes, mode); error != 0) return ErrnoFailure(error);
  c.NoteFileWritten(path.windows);
  return {};
}

class SimFiles : public platform::Files {
 public:
  DWORD GetFileAttributesA(LPCSTR fileName) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetFileAttributesA", ArgText(fileName)))
      return static_cast<DWORD>(f->result);
    ResolvedPath path = c.Resolve(ArgText(fileName));
    if (path.status == ResolvedPath::kOk && DriveIsFolder(c, path.host)) return FILE_ATTRIBUTE_DIRECTORY;
    if (path.status == ResolvedPath::kOk && DriveIsFile(c, path.host)) return FILE_ATTRIBUTE_ARCHIVE;
    if (path.status == ResolvedPath::kBadName) c.lastError = ERROR_INVALID_NAME;
    else if (path.status == ResolvedPath::kOk && DriveIsFolder(c, path.host.parent_path()))
      c.lastError = ERROR_FILE_NOT_FOUND;
    else c.lastError = ERROR_PATH_NOT_FOUND;
    return INVALID_FILE_ATTRIBUTES;
  }

  std::string FirstFile(const std::string& ansiPattern) override {
    Context& c = Current();
    const std::string pattern = FromAnsi(ansiPattern);
    if (c.TakeFault("FirstFile", pattern)) return "";
    ResolvedPath path = c.Resolve(pattern, true);
    if (path.status != ResolvedPath::kOk) return "";
    std::string mask = path.host.filename().string();
    std::vector<std::string> names;
    for (std::string& name : DriveFileNames(c, path.host.parent_path()))
      if (MatchesPattern(name, mask)) names.push_back(std::move(name));
    if (names.empty()) return "";
    // The order of an NTFS folder: by name, case-blind.
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
      std::string ua = UpperAscii(a), ub = UpperAscii(b);
      return ua != ub ? ua < ub : a < b;
    });
    return ToAnsi(names.front());
  }

  Failure ReadText(const std::string& ansiPath, std::string& content) override {
    Context& c = Current();
    const std::string windowsPath = FromAnsi(ansiPath);
    if (const Fault* f = c.TakeFault("ReadText", windowsPath)) return StandardFailure(f->lastError);
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = PathFailure(path); f.failed()) return f;
    DriveRemoveStaleReplacements(c, path);
    return ReadExisting(c, path, content);
  }

  Failure AppendText(const std::string& ansiPath, const std::string& content) override {
    Context& c = Current();
    const std::string windowsPath = FromAnsi(ansiPath);
    if (const Fault* f = c.TakeFault("AppendText", windowsPath)) return StandardFailure(f->lastError);
    if (Failure f = FolderNameFailure(c, windowsPath); f.failed()) return f;
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = CheckWritable(c, path); f.failed()) return f;
    DriveRemoveStaleReplacements(c, path);
    return Write(c, path, content, DriveWriteMode::kAppend);
  }

  Failure ReplaceText(const std::string& ansiPath, const std::string& content) override {
    Context& c = Current();
    const std::string windowsPath = FromAnsi(ansiPath);
    if (const Fault* f = c.TakeFault("ReplaceText", windowsPath)) return StandardFailure(f->lastError);
    if (Failure f = FolderNameFailure(c, windowsPath); f.failed()) return f;
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = CheckWritable(c, path); f.failed()) return f;
    DriveRemoveStaleReplacements(c, path);
    return Write(c, path, content, DriveWriteMode::kReplace);
  }

  Failure WriteBinary(const std::string& ansiPath, const std::vector<uint8_t>& bytes) override {
    Context& c = Current();
    const std::string windowsPath = FromAnsi(ansiPath);
    if (const Fault* f = c.TakeFault("WriteBinary", windowsPath)) return StandardFailure(f->lastError);
    if (Failure f = FolderNameFailure(c, windowsPath); f.failed()) return f;
    ResolvedPath path = c.Resolve(windowsPath);
    if (Failure f = CheckWritable(c, path); f.failed()) return f;
    const std::string_view view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return Write(c, path, view, DriveWriteMode::kFromStart);
  }

  Failure FileCopy(const std::string& ansiSource, const std::string& ansiTarget) override {
    Context& c = Current();
    const std::string source = FromAnsi(ansiSource), target = FromAnsi(ansiTarget);
    if (const Fault* f = c.TakeFault("FileCopy", std::vector<std::string>{source, target}))
      return StandardFailure(f->lastError);
    ResolvedPath from = c.Resolve(source);
    if (Failure f = PathFailure(from); f.failed()) return f;
    std::string bytes;
    if (from.status != ResolvedPath::kNullDevice) {
      if (DriveIsFolder(c, from.host)) return StandardFailure(platform::kErrPathFileAccess);
      if (!DriveIsFile(c, from.host)) {
        return StandardFailure(DriveIsFolder(c, from.host.parent_path()) ? platform::kErrFileNotFound
                                                                         : platform::kErrPathNotFound);
      }
    }
    if (Failure f = FolderNameFailure(c, target); f.failed()) return f;
    ResolvedPath to = c.Resolve(target);
    if (Failure f = CheckWritable(c, to); f.failed()) return f;
    if (from.status != ResolvedPath::kNullDevice && DriveRead(c, from.host, bytes) != 0)
      return StandardFailure(platform::kErrPermissionDenied);
    return Write(c, to, bytes, DriveWriteMode::kTruncate);
  }
};

}  // namespace

platform::Files& FilesService() {
  static SimFiles service;
  return service;
}

}  // namespace sim
