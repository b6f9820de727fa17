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
// - GetDefaultPrinterA and SetDefaultPrinterA exist only from Windows 2000
//   on: they are resolved in winspool.drv at run time and fail with
//   ERROR_CALL_NOT_IMPLEMENTED where they are missing. EnumPrinterDriversA
//   and EnumPortsA, which only zandolin-capture calls, are looked up there
//   the same way, so that the engine does not import them.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

#include <windows.h>
#include <winspool.h>

#include <vector>

namespace platform::native {

namespace {

typedef BOOL(WINAPI* GetDefaultPrinterAFn)(LPSTR, LPDWORD);
typedef BOOL(WINAPI* SetDefaultPrinterAFn)(LPCSTR);
typedef BOOL(WINAPI* EnumPrinterDriversAFn)(LPSTR, LPSTR, DWORD, LPBYTE, DWORD, LPDWORD, LPDWORD);
typedef BOOL(WINAPI* EnumPortsAFn)(LPSTR, DWORD, LPBYTE, DWORD, LPDWORD, LPDWORD);

void* SpoolerEntry(const char* name) {
  static HMODULE module = ::LoadLibraryA("winspool.drv");
  return module ? reinterpret_cast<void*>(::GetProcAddress(module, name)) : nullptr;
}

// One EnumPrintersA at the given level into a buffer of the size it asks
// for; false when the list cannot be had.
bool EnumerateUserPrinters(DWORD level, std::vector<BYTE>& buffer, DWORD& count) {
  const DWORD flags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
  for (int attempt = 0; attempt < 4; ++attempt) {
    DWORD needed = 0;
    count = 0;
    BYTE* data = buffer.empty() ? nullptr : buffer.data();
    if (::EnumPrintersA(flags, nullptr, level, data, static_cast<DWORD>(buffer.size()), &needed,
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
    ::SetLastError(0);
    return ::OpenPrinterA(printerName, printer, defaults);
  }
  BOOL ClosePrinter(HANDLE printer) override {
    ::SetLastError(0);
    return ::ClosePrinter(printer);
  }
  BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size,
                   LPDWORD needed) override {
    ::SetLastError(0);
    return ::GetPrinterA(printer, level, buffer, size, needed);
  }
  BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) override {
    ::SetLastError(0);
    return ::SetPrinterA(printer, level, buffer, command);
  }
  BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size,
                     LPDWORD needed, LPDWORD returned) override {
    ::SetLastError(0);
    return ::EnumPrintersA(flags, name, level, buffer, size, needed, returned);
  }
  BOOL GetDefaultPrinterA(LPSTR buffer, LPDWORD size) override {
    static auto fn = reinterpret_cast<GetDefaultPrinterAFn>(SpoolerEntry("GetDefaultPrinterA"));
    ::SetLastError(0);
    if (!fn) {
      ::SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
      return FALSE;
    }
    return fn(buffer, size);
  }
  BOOL SetDefaultPrinterA(LPCSTR printerName) override {
    static auto fn = reinterpret_cast<SetDefaultPrinterAFn>(SpoolerEntry("SetDefaultPrinterA"));
    ::SetLastError(0);
    if (!fn) {
      ::SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
      return FALSE;
    }
    return fn(printerName);
  }
  BOOL AddPrinterConnectionA(LPSTR name) override {
    ::SetLastError(0);
    return ::AddPrinterConnectionA(name);
  }
  BOOL DeletePrinterConnectionA(LPSTR name) override {
    ::SetLastError(0);
    return ::DeletePrinterConnectionA(name);
  }
  BOOL DeletePrinter(HANDLE printer) override {
    ::SetLastError(0);
    return ::DeletePrinter(printer);
  }
  BOOL AddPrinterDriverA(LPSTR name, DWORD level, LPBYTE driverInfo) override {
    ::SetLastError(0);
    return ::AddPrinterDriverA(name, level, driverInfo);
  }
  HANDLE AddPrinterA(LPSTR name, DWORD level, LPBYTE printerInfo) override {
    ::SetLastError(0);
    return ::AddPrinterA(name, level, printerInfo);
  }
  BOOL AddPortA(LPSTR name, HWND window, LPSTR monitorName) override {
    ::SetLastError(0);
    return ::AddPortA(name, window, monitorName);
  }
  BOOL EnumPrinterDriversA(LPSTR name, LPSTR environment, DWORD level, LPBYTE buffer, DWORD size,
                           LPDWORD needed, LPDWORD returned) override {
    static auto fn = reinterpret_cast<EnumPrinterDriversAFn>(SpoolerEntry("EnumPrinterDriversA"));
    ::SetLastError(0);
    if (!fn) {
      ::SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
      return FALSE;
    }
    return fn(name, environment, level, buffer, size, needed, returned);
  }
  BOOL EnumPortsA(LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                  LPDWORD returned) override {
    static auto fn = reinterpret_cast<EnumPortsAFn>(SpoolerEntry("EnumPortsA"));
    ::SetLastError(0);
    if (!fn) {
      ::SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
      return FALSE;
    }
    return fn(name, level, buffer, size, needed, returned);
  }
};

}  // namespace

Spooler& SpoolerService() {
  static NativeSpooler service;
  return service;
}

}  // namespace platform::native
