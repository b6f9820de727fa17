// zandolin-capture.exe: writes the computer it runs on as a simulated client.
//
//   zandolin-capture.exe [OUTPUT_FOLDER] [--ini FILE]
//
// Runs as the logged-on user, with no window; what it says goes to standard
// output and standard error (see Capture.h). The output folder is written
// with the ANSI calls that every generation of Windows has.
#include "app/zandolin-capture/Capture.h"
#include "platform/native/NativeServices.h"

#include <windows.h>

#include <string>
#include <vector>

namespace {

// The system's text of a Win32 error, without its line end.
std::string SystemText(DWORD error) {
  char* text = nullptr;
  const DWORD length = ::FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, error, 0, reinterpret_cast<LPSTR>(&text), 0, nullptr);
  std::string message = length && text ? std::string(text, length) : std::string();
  if (text) ::LocalFree(text);
  while (!message.empty() && (message.back() == '\r' || message.back() == '\n' || message.back() == ' '))
    message.pop_back();
  if (message.empty()) message = "error " + std::to_string(error);
  return message;
}

std::optional<std::string> LastFailure() { return SystemText(::GetLastError()); }

class FolderOutput final : public capture::Output {
 public:
  explicit FolderOutput(std::string folder) : root_(std::move(folder)) {
    while (root_.size() > 1 && (root_.back() == '\\' || root_.back() == '/') &&
           root_[root_.size() - 2] != ':')
      root_.pop_back();
  }

  std::optional<std::string> MakeFolder(const std::string& path) override {
    return MakeFolders(Full(path));
  }

  std::optional<std::string> WriteFile(const std::string& path, const std::string& content) override {
    HANDLE file = ::CreateFileA(Full(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return LastFailure();
    DWORD written = 0;
    const BOOL ok = content.empty() || (::WriteFile(file, content.data(), static_cast<DWORD>(content.size()),
                                                    &written, nullptr) &&
                                        written == content.size());
    std::optional<std::string> failure = ok ? std::nullopt : LastFailure();
    if (!::CloseHandle(file) && !failure) failure = LastFailure();
    return failure;
  }

  bool Exists(const std::string& path) override {
    return ::GetFileAttributesA(Full(path).c_str()) != INVALID_FILE_ATTRIBUTES;
  }

  std::optional<std::string> Rename(const std::string& from, const std::string& to) override {
    if (::MoveFileA(Full(from).c_str(), Full(to).c_str())) return std::nullopt;
    return LastFailure();
  }

  void Remove(const std::string& path) override { RemoveFull(Full(path)); }

 private:
  std::string Full(const std::string& path) const {
    if (path.empty()) return root_;
    const char last = root_.empty() ? '\\' : root_.back();
    return root_ + (last == '\\' || last == '/' ? "" : "\\") + path;
  }
  static bool IsFolder(const std::string& full) {
    const DWORD attributes = ::GetFileAttributesA(full.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
  }
  // "C:", "C:\", "\\server\share" and what has no parent.
  static bool IsRoot(const std::string& full) {
    if (full.size() <= 3 && full.size() >= 2 && full[1] == ':') return true;
    if (full.rfind("\\\\", 0) == 0) return full.find('\\', full.find('\\', 2) + 1) == std::string::npos;
    return full.empty();
  }
  // The folder and those above it; a drive or share exists or fails here.
  static std::optional<std::string> MakeFolders(const std::string& full) {
    if (IsFolder(full)) return std::nullopt;
    const size_t slash = full.find_last_of("\\/");
    if (slash != std::string::npos && slash > 0 && !IsRoot(full.substr(0, slash)))
      if (std::optional<std::string> failure = MakeFolders(full.substr(0, slash))) return failure;
    if (::CreateDirectoryA(full.c_str(), nullptr) || IsFolder(full)) return std::nullopt;
    return LastFailure();
  }
  static void RemoveFull(const std::string& full) {
    const DWORD attributes = ::GetFileAttributesA(full.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return;
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
      ::SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
      ::DeleteFileA(full.c_str());
      return;
    }
    WIN32_FIND_DATAA data;
    HANDLE find = ::FindFirstFileA((full + "\\*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
      do {
        const std::string name = data.cFileName;
        if (name != "." && name != "..") RemoveFull(full + "\\" + name);
      } while (::FindNextFileA(find, &data));
      ::FindClose(find);
    }
    ::RemoveDirectoryA(full.c_str());
  }

  std::string root_;
};

}  // namespace

int main(int argc, char** argv) {
  platform::native::InstallNativeServices();
  std::vector<std::string> arguments(argv + 1, argv + argc);
  std::string out, err;
  const int status = capture::Main(
      arguments,
      [](const std::string& folder) { return std::make_unique<FolderOutput>(folder); }, out, err);
  platform::native::WriteStandard(STD_OUTPUT_HANDLE, out);
  platform::native::WriteStandard(STD_ERROR_HANDLE, err);
  return status;
}
