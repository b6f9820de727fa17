//===- NativeFiles.cpp - Files on Windows -----------------------*- C++ -*-===//
//
// The file operations of the engine: finding the INI file, reading and
// writing text files, writing the debug file, copying driver files.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Paths are ANSI and go to the system as they stand; nothing is normalised.
// - Every failure is a Failure with a run-time number (FileFailure maps the
//   Win32 error), never an exception; every handle is closed before return.
// - A text is written with one WriteFile of the whole text, so that a reader
//   of a shared file never sees half of one run's text.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

#include <windows.h>

#include <string>
#include <vector>

namespace platform::native {

Failure FileFailure(DWORD win32Error) {
  switch (win32Error) {
    case ERROR_FILE_NOT_FOUND: return MakeFailure(kErrFileNotFound);
    case ERROR_PATH_NOT_FOUND: return MakeFailure(kErrPathNotFound);
    case ERROR_ACCESS_DENIED: return MakeFailure(kErrPermissionDenied);
    case ERROR_INVALID_NAME: return MakeFailure(kErrBadFileNameOrNumber);
    default: return MakeFailure(kErrPathFileAccess);
  }
}

namespace {

// The last error of the failed call, as a Failure.
Failure LastFileFailure() { return FileFailure(::GetLastError()); }

// Writes all bytes with one WriteFile; false when fewer were written.
bool WriteAll(HANDLE file, const void* data, size_t size) {
  DWORD written = 0;
  if (!::WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr)) return false;
  if (written != size) {
    ::SetLastError(ERROR_WRITE_FAULT);
    return false;
  }
  return true;
}

// A name for the new content beside the file it will replace.
std::string TemporaryBeside(const std::string& path) {
  return path + "." + std::to_string(::GetCurrentProcessId()) + ".tmp";
}

// Whether the process of this id runs. One that has ended, or no process of
// that id at all, does not; one this process may not open does.
bool ProcessRuns(DWORD id) {
  HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, id);
  if (!process) return ::GetLastError() != ERROR_INVALID_PARAMETER;
  const bool runs = ::WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
  ::CloseHandle(process);
  return runs;
}

// A process killed between writing the new content and moving it into
// place leaves "<file>.<pid>.tmp" behind. The next one to read or write the
// file removes it, unless the process that wrote it still runs: two engines
// of one user may replace the file at the same time. A leftover of this
// very process id is an earlier process's.
void RemoveStaleTemporaries(const std::string& path) {
  const std::string folder = path.substr(0, path.find_last_of("\\/") + 1);
  const std::string stem = path.substr(folder.size()) + ".";
  WIN32_FIND_DATAA data;
  HANDLE find = ::FindFirstFileA((path + ".*.tmp").c_str(), &data);
  if (find == INVALID_HANDLE_VALUE) return;
  std::vector<std::string> stale;
  do {
    const std::string name = data.cFileName;
    if (name.size() <= stem.size() + 4 || ::_strnicmp(name.c_str(), stem.c_str(), stem.size()) != 0 ||
        ::_stricmp(name.c_str() + name.size() - 4, ".tmp") != 0)
      continue;
    const std::string digits = name.substr(stem.size(), name.size() - stem.size() - 4);
    if (digits.size() > 10 || digits.find_first_not_of("0123456789") != std::string::npos) continue;
    const unsigned long long id = std::stoull(digits);
    if (id == ::GetCurrentProcessId() || (id <= 0xFFFFFFFFull && !ProcessRuns(static_cast<DWORD>(id))))
      stale.push_back(folder + name);
  } while (::FindNextFileA(find, &data));
  ::FindClose(find);
  for (const std::string& file : stale) ::DeleteFileA(file.c_str());
}

class NativeFiles final : public Files {
 public:
  std::string FirstFile(const std::string& pattern) override {
    WIN32_FIND_DATAA data;
    HANDLE find = ::FindFirstFileA(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return {};
    std::string name;
    const DWORD notNormal =
        FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    do {
      if ((data.dwFileAttributes & notNormal) == 0) {
        name = data.cFileName;
        break;
      }
    } while (::FindNextFileA(find, &data));
    ::FindClose(find);
    return name;
  }

  Failure ReadText(const std::string& path, std::string& content) override {
    content.clear();
    RemoveStaleTemporaries(path);
    HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return LastFileFailure();
    char buffer[65536];
    for (;;) {
      DWORD read = 0;
      if (!::ReadFile(file, buffer, sizeof buffer, &read, nullptr)) {
        Failure failure = LastFileFailure();
        ::CloseHandle(file);
        content.clear();
        return failure;
      }
      if (read == 0) break;
      content.append(buffer, read);
    }
    ::CloseHandle(file);
    return {};
  }

  Failure AppendText(const std::string& path, const std::string& content) override {
    RemoveStaleTemporaries(path);
    HANDLE file = ::CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return LastFileFailure();
    Failure failure;
    if (!WriteAll(file, content.data(), content.size())) failure = LastFileFailure();
    ::CloseHandle(file);
    return failure;
  }

  Failure ReplaceText(const std::string& path, const std::string& content) override {
    RemoveStaleTemporaries(path);
    const std::string temporary = TemporaryBeside(path);
    HANDLE file = ::CreateFileA(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return LastFileFailure();
    bool written = WriteAll(file, content.data(), content.size()) && ::FlushFileBuffers(file);
    DWORD error = ::GetLastError();
    ::CloseHandle(file);
    if (written && ::MoveFileExA(temporary.c_str(), path.c_str(),
                                 MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
      return {};
    if (written) error = ::GetLastError();
    ::DeleteFileA(temporary.c_str());
    return FileFailure(error);
  }

  Failure WriteBinary(const std::string& path, const std::vector<uint8_t>& bytes) override {
    HANDLE file = ::CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return LastFileFailure();
    Failure failure;
    if (!WriteAll(file, bytes.data(), bytes.size())) failure = LastFileFailure();
    ::CloseHandle(file);
    return failure;
  }

  Failure FileCopy(const std::string& source, const std::string& target) override {
    if (!::CopyFileA(source.c_str(), target.c_str(), FALSE)) return LastFileFailure();
    return {};
  }

  DWORD GetFileAttributesA(LPCSTR fileName) override {
    ::SetLastError(0);
    return ::GetFileAttributesA(fileName);
  }
};

}  // namespace

Files& FilesService() {
  static NativeFiles service;
  return service;
}

}  // namespace platform::native
