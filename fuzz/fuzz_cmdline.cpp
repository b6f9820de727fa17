// The command line: any text as the engine's command line, located as an
// INI path and loaded on the simulated client; and the same text as a
// Windows path on the simulated drives, which never leads outside files/.
#include "FuzzClient.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"

#include <algorithm>

namespace {

// Whether host lies in folder, name by name.
bool Inside(const std::filesystem::path& host, const std::filesystem::path& folder) {
  auto h = host.begin();
  for (const auto& part : folder) {
    if (h == host.end() || *h != part) return false;
    ++h;
  }
  for (; h != host.end(); ++h)
    if (*h == ".." || *h == ".") return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static fuzz::Client client("fuzz-cmdline");
  static const bool made = [] {
    fuzz::WriteHostFile(client.folder() / "files" / "C" / "Deploy" / "a.ini", "[SUPPORT]\r\nDebugOn=True\r\n");
    return true;
  }();
  (void)made;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find('\0') != std::string::npos) return 0;   // a command line ends at a NUL

  const sim::ResolvedPath path = sim::ResolveWindowsPath(client.folder(), text, "C:\\Deploy", true);
  if (!path.host.empty()) fuzz::Require(Inside(path.host, client.folder() / "files"), "a path stays on the drives");

  client.Install();
  sim::Current().commandLine = text;
  INIDocument.DebugOn = true;
  try {
    LocateINIFile();
  } catch (const FatalError&) {
    return 0;
  }
  fuzz::Require(gDebugBuffer.find(">> Command line parameter: " + text + "\r\n") != std::string::npos,
                "the command line is logged as it stands");
  if (!text.empty()) {
    std::string unquoted = text;
    unquoted.erase(std::remove(unquoted.begin(), unquoted.end(), '"'), unquoted.end());
    fuzz::Require(INIFilePath == unquoted, "the INI path is the command line without its quotes");
  }
  return 0;
}
