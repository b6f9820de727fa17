//===- NativeSpooler.cpp - The print spooler on Windows ---------*- C++ -*-===//
//
// The user's printers, and the spooler calls by which the engine reads,
// adds, removes and changes printers, drivers, ports and the default printer.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Each Win32-named method calls SetLastError(0) and then the real call with
//   the same arguments; GetLastError() afterwards is that call's own.
// - winspool.drv is loaded at the first spooler call (NativeLibraries.h). A
//   method takes its function before it clears the last error: loading the
//   library may leave a last error of its own.
// - GetDefaultPrinterA and SetDefaultPrinterA exist only from Windows 2000
//   on: where they are missing they fail with ERROR_CALL_NOT_IMPLEMENTED.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeLibraries.h"
#include "platform/native/NativeServices.h"

#include <windows.h>
#include <winspool.h>

#include <vector>

namespace platform::native {

namespace {

// The functions of winspool.drv, found at the first call of any of them.
struct Winspool {
  HMODULE module = LoadSystemLibrary("winspool.drv");
  ZANDOLIN_ENTRY(OpenPrinterA);
  ZANDOLIN_ENTRY(ClosePrinter);
  ZANDOLIN_ENTRY(GetPrinterA);
  ZANDOLIN_ENTRY(SetPrinterA);
  ZANDOLIN_ENTRY(EnumPrintersA);
  ZANDOLIN_ENTRY(GetDefaultPrinterA);  // Windows 2000 on
  ZANDOLIN_ENTRY(SetDefaultPrinterA);  // Windows 2000 on
  ZANDOLIN_ENTRY(AddPrinterConnectionA);
  ZANDOLIN_ENTRY(DeletePrinterConnectionA);
  ZANDOLIN_ENTRY(DeletePrinter);
  ZANDOLIN_ENTRY(AddPrinterDriverA);
  ZANDOLIN_ENTRY(AddPrinterA);
  ZANDOLIN_ENTRY(AddPortA);
  ZANDOLIN_ENTRY(EnumPrinterDriversA);   // zandolin-capture only
  ZANDOLIN_ENTRY(EnumPortsA);            // zandolin-capture only
};

const Winspool& WinspoolFunctions() {
  static const Winspool functions;
  return functions;
}

// One EnumPrintersA at the given level into a buffer of the size it asks
// for; false when the list cannot be had.
bool EnumerateUserPrinters(DWORD level, std::vector<BYTE>& buffer, DWORD& count) {
  const DWORD flags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
  const auto enumPrinters = WinspoolFunctions().EnumPrintersA;
  for (int attempt = 0; attempt < 4; ++attempt) {
    DWORD needed = 0;
    count = 0;
    BYTE* data = buffer.empty() ? nullptr : buffer.data();
    if (enumPrinters(flags, nullptr, level, data, static_cast<DWORD>(buffer.size()), &needed,
                     &count))
      return true;
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER || needed <= buffer.size()) return false;
    buffer.assign(needed, 0);  // the list may grow between the calls: ask again
  }
  return false;
}

class NativeSpooler final : public Spooler {
 public:
  bool UserPrinters(std::vector<std::string>& deviceNames) override {
    deviceNames.clear();
    std::vector<BYTE> buffer;
    DWORD count = 0;
    if (EnumerateUserPrinters(4, buffer, count)) {
      auto* printers = reinterpret_cast<const PRINTER_INFO_4A*>(buffer.data());
      for (DWORD i = 0; i < count; ++i)
        deviceNames.push_back(printers[i].pPrinterName ? printers[i].pPrinterName : "");
      return true;
    }
    if (::GetLastError() != ERROR_INVALID_LEVEL) return false;
    // Windows 95/98/ME know no level 4; level 5 carries the name too.
    buffer.clear();
    if (!EnumerateUserPrinters(5, buffer, count)) return false;
    auto* printers = reinterpret_cast<const PRINTER_INFO_5A*>(buffer.data());
    for (DWORD i = 0; i < count; ++i)
      deviceNames.push_back(printers[i].pPrinterName ? printers[i].pPrinterName : "");
    return true;
  }

  BOOL OpenPrinterA(LPSTR printerName, HANDLE* printer, PRINTER_DEFAULTSA* defaults) override {
    const auto call = WinspoolFunctions().OpenPrinterA;
    ::SetLastError(0);
    return call(printerName, printer, defaults);
  }
  BOOL ClosePrinter(HANDLE printer) override {
    const auto call = WinspoolFunctions().ClosePrinter;
    ::SetLastError(0);
    return call(printer);
  }
  BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size,
                   LPDWORD needed) override {
    const auto call = WinspoolFunctions().GetPrinterA;
    ::SetLastError(0);
    return call(printer, level, buffer, size, needed);
  }
  BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) override {
    const auto call = WinspoolFunctions().SetPrinterA;
    ::SetLastError(0);
    return call(printer, level, buffer, command);
  }
  BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size,
                     LPDWORD needed, LPDWORD returned) override {
    const auto call = WinspoolFunctions().EnumPrintersA;
    ::SetLastError(0);
    return call(flags, name, level, buffer, size, needed, returned);
  }
  BOOL GetDefaultPrinterA(LPSTR buffer, LPDWORD size) override {
    const auto call = WinspoolFunctions().GetDefaultPrinterA;
    ::SetLastError(0);
    return call(buffer, size);
  }
  BOOL SetDefaultPrinterA(LPCSTR printerName) override {
    const auto call = WinspoolFunctions().SetDefaultPrinterA;
    ::SetLastError(0);
    return call(printerName);
  }
  BOOL AddPrinterConnectionA(LPSTR name) override {
    const auto call = WinspoolFunctions().AddPrinterConnectionA;
    ::SetLastError(0);
    return call(name);
  }
  BOOL DeletePrinterConnectionA(LPSTR name) override {
    const auto call = WinspoolFunctions().DeletePrinterConnectionA;
    ::SetLastError(0);
    return call(name);
  }
  BOOL DeletePrinter(HANDLE printer) override {
    const auto call = WinspoolFunctions().DeletePrinter;
    ::SetLastError(0);
    return call(printer);
  }
  BOOL AddPrinterDriverA(LPSTR name, DWORD level, LPBYTE driverInfo) override {
    const auto call = WinspoolFunctions().AddPrinterDriverA;
    ::SetLastError(0);
    return call(name, level, driverInfo);
  }
  HANDLE AddPrinterA(LPSTR name, DWORD level, LPBYTE printerInfo) override {
    const auto call = WinspoolFunctions().AddPrinterA;
    ::SetLastError(0);
    return call(name, level, printerInfo);
  }
  BOOL AddPortA(LPSTR name, HWND window, LPSTR monitorName) override {
    const auto call = WinspoolFunctions().AddPortA;
    ::SetLastError(0);
    return call(name, window, monitorName);
  }
  BOOL EnumPrinterDriversA(LPSTR name, LPSTR environment, DWORD level, LPBYTE buffer, DWORD size,
                           LPDWORD needed, LPDWORD returned) override {
    const auto call = WinspoolFunctions().EnumPrinterDriversA;
    ::SetLastError(0);
    return call(name, environment, level, buffer, size, needed, returned);
  }
  BOOL EnumPortsA(LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                  LPDWORD returned) override {
    const auto call = WinspoolFunctions().EnumPortsA;
    ::SetLastError(0);
    return call(name, level, buffer, size, needed, returned);
  }
};

}  // namespace

Spooler& SpoolerService() {
  static NativeSpooler service;
  return service;
}

}  // namespace platform::native
