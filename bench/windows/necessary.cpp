// The second baseline of bench/wine-start.sh: only the system calls that a
// run on the already-succeeded path cannot do without, in the engine's
// order, with the engine's INI file and status file: the INI file found,
// its 49 keys read one by one, the version, the user's profile folder (the
// process token from advapi32, the folder from userenv), the status file
// read, the computer name, and the debug file written. What the engine
// costs beyond this program is its own; what this program costs beyond the
// trivial one is the price of those calls on the system it runs on.
#include <windows.h>

namespace {

// The sections, keys and buffer sizes of the engine's reads, in its order.
struct Key {
  const char* section;
  const char* name;
  DWORD size;
};
const Key kKeys[] = {
    {"GENERAL", "UseActiveDirectory", 100},
    {"GENERAL", "UseManualDefinitions", 100},
    {"GENERAL", "AlwaysRun", 100},
    {"GENERAL", "ShowProgress", 100},
    {"ACTIVE DIRECTORY", "DomainName", 1000},
    {"MANUAL DEFINITIONS SERVERS", "FromServers", 10000},
    {"MANUAL DEFINITIONS SERVERS", "ToServers", 10000},
    {"MANUAL DEFINITIONS PRINTERS", "FromPrinters", 10000},
    {"MANUAL DEFINITIONS PRINTERS", "ToPrinters", 10000},
    {"MANUAL DEFINITIONS MIXED", "FromServers", 10000},
    {"MANUAL DEFINITIONS MIXED", "FromPrinters", 10000},
    {"MANUAL DEFINITIONS MIXED", "ToServers", 10000},
    {"MANUAL DEFINITIONS MIXED", "ToPrinters", 10000},
    {"NOTIFICATION SMTP", "UseSMTP", 100},
    {"NOTIFICATION SMTP", "SMTPServerNameOrIP", 1000},
    {"NOTIFICATION SMTP", "ServerPort", 1000},
    {"NOTIFICATION SMTP", "EmailSubject", 1000},
    {"NOTIFICATION SMTP", "EmailTo", 10000},
    {"NOTIFICATION SMTP", "EmailFrom", 1000},
    {"NOTIFICATION FILE OUTPUT", "UseFileOutput", 100},
    {"NOTIFICATION FILE OUTPUT", "FileOutputPath", 1000},
    {"NOTIFICATION FILE OUTPUT", "FileOutputName", 1000},
    {"NOTIFICATION FILE OUTPUT", "IncludeComputerName", 100},
    {"NOTIFICATION FILE OUTPUT", "IncludeOutcome", 100},
    {"NOTIFICATION FILE OUTPUT", "WriteToEventLog", 100},
    {"NOTIFICATION CLIENT POP-UP", "UseClientPopup", 100},
    {"NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup", 100},
    {"NOTIFICATION CLIENT POP-UP", "SuccessMessage", 1000},
    {"NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup", 100},
    {"NOTIFICATION CLIENT POP-UP", "FailureMessage", 1000},
    {"DEPLOYMENT", "DeploymentPath", 1000},
    {"DEPLOYMENT", "CreateWebLaunchPage", 100},
    {"DEPLOYMENT", "CreateBatchFile", 100},
    {"DEPLOYMENT", "IncludeMDAC", 100},
    {"DEPLOYMENT", "MDACOption", 100},
    {"POPULATE", "ServerNames", 10000},
    {"POPULATE", "PrinterNames", 10000},
    {"PRUNE", "ServerNames", 10000},
    {"PRUNE", "PrinterNames", 10000},
    {"PRUNE", "DeleteADOrphans", 100},
    {"PRUNE", "DeleteAllNonNetworked", 100},
    {"PRINTER_DRIVER", "PrinterName", 10000},
    {"PRINTER_DRIVER", "DriverName", 10000},
    {"PRINTER_DRIVER", "DriverFileName", 10000},
    {"PRINTER_DRIVER", "PortName", 10000},
    {"PRINTER_DRIVER", "DriverSharePath", 1000},
    {"SET_DEFAULT", "DefaultType", 100},
    {"SET_DEFAULT", "DefaultPrinterName", 1000},
    {"SUPPORT", "DebugOn", 100},
};

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  char folder[MAX_PATH];
  DWORD length = GetModuleFileNameA(nullptr, folder, MAX_PATH);
  while (length > 0 && folder[length - 1] != '\\') --length;
  folder[length] = '\0';

  char path[MAX_PATH];
  lstrcpyA(path, folder);
  lstrcatA(path, "*.ini");
  WIN32_FIND_DATAA found;
  HANDLE find = FindFirstFileA(path, &found);
  if (find == INVALID_HANDLE_VALUE) return 1;
  FindClose(find);
  lstrcpyA(path, folder);
  lstrcatA(path, found.cFileName);

  static char value[10000];
  for (const Key& key : kKeys) {
    GetPrivateProfileStringA(key.section, key.name, nullptr, value, key.size, path);
    GetLastError();
  }

  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  GetVersionExA(&version);

  HANDLE token = nullptr;
  OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
  char profile[MAX_PATH] = {};
  DWORD size = MAX_PATH;
  char userenv[MAX_PATH];
  GetSystemDirectoryA(userenv, MAX_PATH);
  lstrcatA(userenv, "\\userenv.dll");
  using GetProfileFolder = BOOL(WINAPI*)(HANDLE, LPSTR, LPDWORD);
  if (HMODULE module = LoadLibraryA(userenv))
    if (auto get = reinterpret_cast<GetProfileFolder>(GetProcAddress(module, "GetUserProfileDirectoryA")))
      get(token, profile, &size);
  lstrcatA(profile, "\\Zandolin_status.log");
  HANDLE status = CreateFileA(profile, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD read = 0;
  if (status != INVALID_HANDLE_VALUE) {
    ReadFile(status, value, sizeof value, &read, nullptr);
    CloseHandle(status);
  }

  char computer[MAX_COMPUTERNAME_LENGTH + 1];
  size = sizeof computer;
  GetComputerNameA(computer, &size);
  lstrcpyA(path, folder);
  lstrcatA(path, computer);
  lstrcatA(path, ".necessary.debug");
  HANDLE debug = CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (debug != INVALID_HANDLE_VALUE) {
    DWORD written = 0;
    WriteFile(debug, value, 4096, &written, nullptr);
    CloseHandle(debug);
  }
  return 0;
}
