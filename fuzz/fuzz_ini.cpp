// The INI file: any bytes as the file that LoadINIDocument reads and echoes,
// on the simulated client (debugging on while the file is read). A number
// that does not fit 16 bits and a list key with too many pieces end the
// process by design (FatalError); nothing else may. The load sets
// AbortStatus exactly when it met a read error.
#include "FuzzClient.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static fuzz::Client client("fuzz-ini");
  fuzz::WriteHostFile(client.folder() / "files" / "C" / "Deploy" / "fuzz.ini",
                      std::string(reinterpret_cast<const char*>(data), size));
  client.Install();
  INIDocument.DebugOn = true;
  INIFilePath = "C:\\Deploy\\fuzz.ini";
  try {
    LoadINIDocument();
  } catch (const FatalError&) {
    return 0;
  }
  fuzz::Require(AbortStatus == INIReadError, "AbortStatus is set exactly when a key could not be read");
  // The echo is written only while the file turns debugging on.
  const std::string last = ">> DebugOn: True\r\n";
  fuzz::Require(!INIDocument.DebugOn || (gDebugBuffer.size() >= last.size() &&
                                         gDebugBuffer.compare(gDebugBuffer.size() - last.size(), last.size(), last) == 0),
                "with debugging on, the echo ends with DebugOn");
  return 0;
}
