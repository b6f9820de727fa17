// ZandolinEngine.exe: the engine on the real operating system.
//
// Installs the native platform services and runs the engine process once. A
// fatal stop is written to standard error as
// "Run-time error '<number>': <description>" and ends the process with the
// error number as its exit code; any other end gives exit code 0.
#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "platform/native/NativeServices.h"

#include <windows.h>

#include <string>

namespace {

void ReportFatal(const FatalError& fatal) {
  platform::native::WriteStandard(STD_ERROR_HANDLE, "Run-time error '" +
                                                        std::to_string(fatal.Number) +
                                                        "': " + fatal.Description + "\r\n");
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  platform::native::InstallNativeServices();
  try {
    RunEngineProcess();
  } catch (const FatalError& fatal) {
    ReportFatal(fatal);
    return fatal.Number;
  }
  return 0;
}
