// zandolin-debug FILE: prints a debug file as UTF-8 text on standard output.
// Exit status 0 when the file held a debug log; 2, with the reason on
// standard error, for a missing argument, a file that cannot be read, an
// empty file or one that holds no debug log. --help and --version print on
// standard output and exit 0.
#include "Version.h"
#include "app/zandolin-debug/DebugFileReader.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

namespace {

constexpr int kUsageError = 2;

const char kUsage[] = "usage: zandolin-debug FILE\n";

const char kHelp[] =
    "usage: zandolin-debug FILE\n"
    "       zandolin-debug --help | --version\n"
    "\n"
    "Prints the engine's debug file FILE (<COMPUTERNAME>.debug, beside the engine)\n"
    "as readable UTF-8 text on standard output. When the file still holds the tail\n"
    "of an older, longer run behind the newest log, only the newest run is\n"
    "printed, and standard error says how many bytes were dropped.\n"
    "\n"
    "Exit status: 0 when the file held a debug log; 2, with the reason on standard\n"
    "error, for a file that cannot be read, is empty or holds no debug log.\n";

int Fail(const std::string& message) {
  std::fprintf(stderr, "zandolin-debug: %s\n", message.c_str());
  return kUsageError;
}

bool ReadFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) {
    error = std::strerror(errno);
    return false;
  }
  uint8_t chunk[1 << 16];
  size_t got;
  errno = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0)
    bytes.insert(bytes.end(), chunk, chunk + got);
  bool failed = std::ferror(file) != 0;
  if (failed) error = std::strerror(errno ? errno : EIO);
  std::fclose(file);
  return !failed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || argv[1][0] == '\0') {
    std::fputs(kUsage, stderr);
    return kUsageError;
  }
  const std::string path = argv[1];
  if (path == "--help" || path == "-h") {
    std::fputs(kHelp, stdout);
    return 0;
  }
  if (path == "--version") {
    std::printf("zandolin-debug %s\n", ZANDOLIN_VERSION);
    return 0;
  }
  std::string error;

  std::vector<uint8_t> bytes;
  if (!ReadFile(path, bytes, error)) return Fail("cannot read " + path + ": " + error);

  DecodedDebugFile decoded;
  if (!DecodeDebugFile(bytes, decoded, error)) return Fail(path + ": " + error);

#ifdef _WIN32
  // The log's own CR LF line ends, not doubled by the console's text mode.
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  if (std::fwrite(decoded.text.data(), 1, decoded.text.size(), stdout) != decoded.text.size() ||
      std::fflush(stdout) != 0)
    return Fail("cannot write standard output");
  if (decoded.droppedBytes > 0) {
    std::string note = path + ": dropped " + std::to_string(decoded.droppedBytes) +
                       " bytes at the end, the tail of an older, longer run";
    std::fprintf(stderr, "zandolin-debug: %s\n", note.c_str());
  }
  return 0;
}
