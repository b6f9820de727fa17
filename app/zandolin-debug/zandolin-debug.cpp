// zandolin-debug [--whole | --end BYTES] FILE: prints a debug file as UTF-8
// text on standard output.
//
// The file may hold an older, longer run's tail behind the newest log. By
// default the newest log is printed; when an older run's tail is dropped,
// standard error says how many bytes, how sure the reader is, and which
// other readings there are. --whole prints the whole file as one log,
// --end BYTES the log taken as the file's first BYTES bytes.
//
// Exit status 0 when something was printed; 2, with the reason on standard
// error, for a usage error, a file that cannot be read, an empty file or,
// without --whole and --end, one that holds no debug log. --help and
// --version print on standard output and exit 0.
#include "Version.h"
#include "app/zandolin-debug/DebugFileReader.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

namespace {

constexpr int kUsageError = 2;
const char kUsage[] = "usage: zandolin-debug [--whole | --end BYTES] FILE\n";

const char kHelp[] =
    "usage: zandolin-debug [--whole | --end BYTES] FILE\n"
    "       zandolin-debug --help | --version\n"
    "\n"
    "Prints the engine's debug file FILE (<COMPUTERNAME>.debug, beside the engine)\n"
    "as readable UTF-8 text on standard output. The file may still hold the tail\n"
    "of an older, longer run behind the newest log. Where the text shows the\n"
    "newest run's end clearly, only that run is printed, and standard error says\n"
    "how many bytes were dropped, how sure the reading is and what the other\n"
    "readings are; otherwise the whole file is printed, and standard error names\n"
    "a possible end when there is one.\n"
    "\n"
    "  --whole       print the whole file as one log\n"
    "  --end BYTES   print the log taken as the file's first BYTES bytes\n"
    "\n"
    "Exit status: 0 when something was printed; 2, with the reason on standard\n"
    "error, for a file that cannot be read, is empty or holds no debug log.\n";

int Fail(const std::string& message) {
  std::fprintf(stderr, "zandolin-debug: %s\n", message.c_str());
  return kUsageError;
}

void Note(const std::string& path, const std::string& text) {
  std::fprintf(stderr, "zandolin-debug: %s: %s\n", path.c_str(), text.c_str());
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

// A byte count given on the command line: digits only.
std::optional<size_t> ParseBytes(const std::string& text) {
  if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
    return std::nullopt;
  return static_cast<size_t>(std::stoull(text));
}

// Evidence as odds in powers of ten: "10^7".
std::string Odds(double evidence) {
  return "10^" + std::to_string(static_cast<long>(std::floor(evidence / std::log(10.0))));
}

// What standard error says when an older run's tail was dropped, or when
// the whole file was read but this run may end sooner.
void Explain(const std::string& path, const std::vector<uint8_t>& bytes, const DecodedDebugFile& d) {
  auto reading = [](size_t length, double evidence) {
    return "--end " + std::to_string(length) + " (odds about " + Odds(evidence) + " to 1)";
  };
  std::string others;
  for (const DebugFileReading& other : d.others)
    others += (others.empty() ? "" : ", ") + reading(other.length, other.evidence);
  if (d.droppedBytes == 0) {
    if (!others.empty())
      Note(path, "read as one log of " + std::to_string(d.length) +
                     " bytes; it may end sooner, with an older run's tail behind it: " + others);
    return;
  }
  Note(path, "dropped " + std::to_string(d.droppedBytes) + " bytes at the end, the tail of an older, longer run");
  const bool wholeIsLog = d.longest == bytes.size();
  std::string sure;
  if (!wholeIsLog) {
    sure = "certain: the whole file does not read as one log; the longest reading that does is " +
           std::to_string(d.longest) + " bytes";
    if (d.length < d.longest)
      sure += ", and the text favours this end, at byte " + std::to_string(d.length) +
              ", over it by odds of about " + Odds(d.evidence) + " to 1";
  } else {
    sure = "likely: the text favours this end, at byte " + std::to_string(d.length) +
           ", over one log of the whole file by odds of about " + Odds(d.evidence) + " to 1";
  }
  Note(path, "how sure: " + sure);
  std::string readings = "--whole, the whole file as one log of " + std::to_string(bytes.size()) + " bytes";
  if (d.length < d.longest && !wholeIsLog) readings += "; --end " + std::to_string(d.longest);
  if (!others.empty()) readings += "; " + others;
  Note(path, "other readings: " + readings);
}

}  // namespace

int main(int argc, char** argv) {
  bool whole = false;
  std::optional<size_t> end;
  std::string path;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if ((arg == "--help" || arg == "-h") && argc == 2) {
      std::fputs(kHelp, stdout);
      return 0;
    }
    if (arg == "--version" && argc == 2) {
      std::printf("zandolin-debug %s\n", ZANDOLIN_VERSION);
      return 0;
    }
    if (arg == "--whole" && !whole && !end) {
      whole = true;
    } else if (arg == "--end" && !whole && !end && i + 1 < argc) {
      end = ParseBytes(argv[++i]);
      if (!end || *end == 0 || *end % 2 != 0)
        return Fail(std::string("--end: expected an even number of bytes above 0, not '") + argv[i] + "'");
    } else if (path.empty() && !arg.empty() && (arg[0] != '-' || arg == "-")) {
      path = arg;
    } else {
      std::fputs(kUsage, stderr);
      return kUsageError;
    }
  }
  if (path.empty()) {
    std::fputs(kUsage, stderr);
    return kUsageError;
  }
  std::string error;

  std::vector<uint8_t> bytes;
  if (!ReadFile(path, bytes, error)) return Fail("cannot read " + path + ": " + error);
  if (bytes.empty()) return Fail(path + ": the file is empty");
  if (end && *end > bytes.size())
    return Fail(path + ": --end " + std::to_string(*end) + ": the file has only " + std::to_string(bytes.size()) +
                " bytes");

  std::string text;
  DecodedDebugFile decoded;
  if (whole || end) {
    text = DebugFileText(bytes, end ? *end : bytes.size());
  } else {
    if (!DecodeDebugFile(bytes, decoded, error)) return Fail(path + ": " + error);
    text = decoded.text;
  }

#ifdef _WIN32
  // The log's own CR LF line ends, not doubled by the console's text mode.
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
    return Fail("cannot write standard output");
  if (!whole && !end) Explain(path, bytes, decoded);
  return 0;
}
