// Rules for this file: the calls of each system stand in their own branch;
// the rest is plain C++.
#include "app/zandolin-fleet/Processes.h"

#include <cstdio>

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace fleet {

namespace fs = std::filesystem;

#ifdef _WIN32

fs::path SelfPath() {
  std::wstring buffer(32768, L'\0');
  DWORD n = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  buffer.resize(n);
  return fs::path(buffer);
}

namespace {

// One argument quoted as the C runtime splits a command line.
std::wstring Quoted(const std::wstring& arg) {
  if (!arg.empty() && arg.find_first_of(L" \t\"") == std::wstring::npos) return arg;
  std::wstring out = L"\"";
  size_t backslashes = 0;
  for (wchar_t c : arg) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    out += c;
  }
  out.append(backslashes * 2, L'\\');
  return out + L"\"";
}

}  // namespace

bool Worker::Start(const std::vector<std::string>& arguments) {
  std::wstring line = Quoted(SelfPath().wstring());
  for (const std::string& a : arguments) line += L" " + Quoted(fs::u8path(a).wstring());
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION info{};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &info))
    return false;
  CloseHandle(info.hThread);
  process_ = info.hProcess;
  return true;
}

bool Worker::Running(int& code) {
  if (!process_) return false;
  if (WaitForSingleObject(process_, 0) == WAIT_TIMEOUT) return true;
  DWORD exitCode = 0;
  GetExitCodeProcess(process_, &exitCode);
  code = static_cast<int>(exitCode);
  CloseHandle(process_);
  process_ = nullptr;
  return false;
}

Worker::~Worker() {
  if (process_) {
    TerminateProcess(process_, 1);
    CloseHandle(process_);
  }
}

Worker::Worker(Worker&& other) noexcept : process_(other.process_) { other.process_ = nullptr; }

Worker& Worker::operator=(Worker&& other) noexcept {
  std::swap(process_, other.process_);
  return *this;
}

static bool StandardErrorIsTerminal() { return _isatty(_fileno(stderr)) != 0; }

unsigned ProcessorCount() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwNumberOfProcessors > 0 ? info.dwNumberOfProcessors : 1;
}

void PauseBriefly() { Sleep(100); }

#else

fs::path SelfPath() {
  std::error_code ec;
  fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : self;
}

bool Worker::Start(const std::vector<std::string>& arguments) {
  std::string self = SelfPath().string();
  std::vector<char*> argv;
  argv.push_back(self.data());
  std::vector<std::string> copies(arguments);
  for (std::string& a : copies) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, self.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return false;
  pid_ = pid;
  return true;
}

bool Worker::Running(int& code) {
  if (pid_ < 0) return false;
  int status = 0;
  pid_t done = waitpid(pid_, &status, WNOHANG);
  if (done == 0) return true;
  code = done < 0 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  pid_ = -1;
  return false;
}

Worker::~Worker() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
  }
}

Worker::Worker(Worker&& other) noexcept : pid_(other.pid_) { other.pid_ = -1; }

Worker& Worker::operator=(Worker&& other) noexcept {
  std::swap(pid_, other.pid_);
  return *this;
}

static bool StandardErrorIsTerminal() { return isatty(fileno(stderr)) != 0; }

unsigned ProcessorCount() {
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  return n > 0 ? static_cast<unsigned>(n) : 1;
}

void PauseBriefly() { usleep(100 * 1000); }

#endif

Progress::Progress(std::string what, size_t total)
    : what_(std::move(what)), total_(total), terminal_(StandardErrorIsTerminal()),
      start_(std::chrono::steady_clock::now()) {}

void Progress::Update(size_t done) {
  if (!terminal_) return;
  auto now = std::chrono::steady_clock::now();
  if (drawn_ && done < total_ && now - lastDrawn_ < std::chrono::milliseconds(200)) return;
  lastDrawn_ = now;
  drawn_ = true;
  double seconds = std::chrono::duration<double>(now - start_).count();
  double rate = seconds > 0 ? done / seconds : 0;
  char left[32] = "--:--";
  if (rate > 0 && done < total_) {
    long rest = static_cast<long>((total_ - done) / rate + 0.5);
    std::snprintf(left, sizeof left, "%ld:%02ld", rest / 60, rest % 60);
  } else if (done >= total_) {
    std::snprintf(left, sizeof left, "0:00");
  }
  std::fprintf(stderr, "\r%s %zu/%zu, %.1f a second, %s left   ", what_.c_str(), done, total_, rate, left);
  std::fflush(stderr);
}

void Progress::Finish() {
  if (!terminal_ || !drawn_) return;
  std::fprintf(stderr, "\r%*s\r", 70 + static_cast<int>(what_.size()), "");
  std::fflush(stderr);
}

}  // namespace fleet
