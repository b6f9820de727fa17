#include "printers/modPrinterAPIs.h"

#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "notification/modNotification.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace {

constexpr DWORD kOSVersionInfoSize = 148;

// The last error of the call just made, as a signed number the way the
// engine compares and prints it.
LONG LastError() { return static_cast<LONG>(Sys().system->GetLastError()); }

std::string ErrorText(LONG code) { return Str(code); }

// A byte buffer handed to the spooler with exactly the size it asked for.
// The storage behind it is never smaller than one PRINTER_INFO_2A, so that
// reading the record back stays inside the buffer whatever the call left.
struct InfoBuffer {
  explicit InfoBuffer(DWORD size)
      : size(size), bytes(std::max<size_t>(size, sizeof(PRINTER_INFO_2A)), 0) {}
  LPBYTE data() { return bytes.data(); }
  PRINTER_INFO_2A Record() const {
    PRINTER_INFO_2A info;
    std::memcpy(&info, bytes.data(), sizeof info);
    return info;
  }
  void SetAttributes(DWORD attributes) {
    std::memcpy(bytes.data() + offsetof(PRINTER_INFO_2A, Attributes), &attributes,
                sizeof attributes);
  }
  DWORD size;
  std::vector<BYTE> bytes;
};

// Reads the version into a fresh record; the caller judges the call.
OSVERSIONINFOA ReadVersion() {
  OSVERSIONINFOA version;
  std::memset(&version, 0, sizeof version);
  version.dwOSVersionInfoSize = kOSVersionInfoSize;
  Sys().system->GetVersionExA(&version);
  return version;
}

// Fills one list entry from the record the spooler gave.
ClientPrinter ToClientPrinter(const PRINTER_INFO_2A& info) {
  ClientPrinter printer;
  printer.ServerName = PointerToString(info.pServerName);
  printer.PrinterName = PointerToString(info.pPrinterName);
  printer.ShareName = PointerToString(info.pShareName);
  printer.PortName = PointerToString(info.pPortName);
  printer.DriverName = PointerToString(info.pDriverName);
  printer.Comment = PointerToString(info.pComment);
  printer.Location = PointerToString(info.pLocation);
  return printer;
}

// The printer's name on its server: what follows the first backslash after
// the two leading ones; the whole name when there is none.
std::string QueueNameOf(const std::string& printerName) {
  if (printerName.size() < 3) return printerName;
  size_t slash = printerName.find('\\', 2);
  if (slash == std::string::npos) return printerName;
  return printerName.substr(slash + 1);
}

}  // namespace

std::string PointerToString(const char* pointer) {
  if (pointer == nullptr) return std::string();
  size_t length = std::strlen(pointer);
  if (length == 0) return std::string();
  return std::string(pointer, length);
}

void GetClientPrinters(bool ReportPrinters) {
  WriteDebug(">> Getting client's list of printers <<");

  gClientPrinters.assign(1, ClientPrinter());
  gClientLocalPrinters.assign(1, ClientPrinter());

  if (ReportPrinters) {
    AppendOutcome("* ----- Computer: " + GetClientComputerName() + " Username: " +
                  GetCurrentUserName() + " Printers ----- *");
    WriteDebug(">> * ----- My Printers ----- * <<");
  }

  std::vector<std::string> deviceNames;
  if (!Sys().spooler->UserPrinters(deviceNames)) return;

  // One handle variable for the whole walk; it is not cleared between printers.
  HANDLE printer = nullptr;
  for (const std::string& deviceName : deviceNames) {
    std::string name = deviceName;
    Sys().spooler->OpenPrinterA(name.data(), &printer, nullptr);
    if (printer == nullptr) {
      if (ReportPrinters) {
        WriteDebug("ERROR: Getting client printer (no handle): " + deviceName);
        AppendOutcome("Error getting handle to printer: " + deviceName);
      }
      continue;
    }

    DWORD needed = 0;
    Sys().spooler->GetPrinterA(printer, 2, nullptr, 0, &needed);
    LONG error = LastError();
    if (error != ERROR_INSUFFICIENT_BUFFER) {
      if (ReportPrinters) {
        WriteDebug("ERROR: Getting client printer memory information: " + deviceName);
        WriteDebug("SYSTEM ERROR: " + ErrorText(error));
        AppendOutcome("Error getting printer information: " + deviceName);
      }
      Sys().spooler->ClosePrinter(printer);
      continue;
    }

    InfoBuffer buffer(needed);
    if (Sys().spooler->GetPrinterA(printer, 2, buffer.data(), buffer.size, &needed) == 0) {
      error = LastError();
      if (ReportPrinters) {
        WriteDebug("ERROR: Getting client printer information: " + deviceName);
        WriteDebug("SYSTEM ERROR: " + ErrorText(error));
        AppendOutcome("Error getting printer information: " + deviceName);
      }
      Sys().spooler->ClosePrinter(printer);
      continue;
    }

    PRINTER_INFO_2A info = buffer.Record();
    ClientPrinter entry = ToClientPrinter(info);
    if (!entry.ServerName.empty()) {
      entry.QueueName = QueueNameOf(entry.PrinterName);
      gClientPrinters.push_back(entry);
      if (ReportPrinters) {
        AppendOutcome(entry.PrinterName + " (" + entry.ServerName + ")");
        WriteDebug(">> Found networked printer: " + entry.PrinterName + " (" + entry.ServerName +
                   ")");
      }
    } else {
      gClientLocalPrinters.push_back(entry);
      if (ReportPrinters) {
        AppendOutcome("Local Printer: " + entry.PrinterName);
        WriteDebug(">> Found local printer: " + entry.PrinterName);
      }
    }

    UpdateProgress("");
    Sys().spooler->ClosePrinter(printer);
  }
}

void RemoveNetworkPrinter(const std::string& PrinterName) {
  std::string name = PrinterName;
  Sys().spooler->DeletePrinterConnectionA(name.data());
  LONG error = LastError();
  if (error > 0) {
    WriteDebug("ERROR: Removing client networked printer: " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") deleting network printer: " + PrinterName);
    OperationsSucceeded = false;
  } else {
    WriteDebug(">> Removed networked printer: " + PrinterName);
    AppendOutcome("Deleted networked printer: " + PrinterName);
  }
}

void RemoveLocalPrinter(const std::string& PrinterName) {
  std::string name = PrinterName;
  PRINTER_DEFAULTSA defaults;
  defaults.pDatatype = nullptr;
  defaults.pDevMode = nullptr;
  defaults.DesiredAccess = PRINTER_ALL_ACCESS;
  HANDLE printer = nullptr;
  if (Sys().spooler->OpenPrinterA(name.data(), &printer, &defaults) == 0) {
    LONG error = LastError();
    WriteDebug("ERROR: Opening client local printer: " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") opening local printer: " + PrinterName);
    OperationsSucceeded = false;
    return;
  }

  Sys().spooler->DeletePrinter(printer);
  LONG error = LastError();
  if (error > 0) {
    WriteDebug("ERROR: Deleting client local printer: " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") deleting local printer: " + PrinterName);
    OperationsSucceeded = false;
  } else {
    WriteDebug(">> Removed local printer: " + PrinterName);
    AppendOutcome("Deleted local printer: " + PrinterName);
  }
  Sys().spooler->ClosePrinter(printer);
}

void AddNetworkPrinter(const std::string& PrinterName) {
  std::string name = PrinterName;
  if (Sys().spooler->AddPrinterConnectionA(name.data()) != 0) {
    WriteDebug(">> Added networked printer: " + PrinterName);
    AppendOutcome("Populated networked printer: " + PrinterName);
    return;
  }
  LONG error = LastError();
  WriteDebug("ERROR: Adding client networked printer: " + PrinterName);
  WriteDebug("SYSTEM ERROR: " + ErrorText(error));
  AppendOutcome("Error (" + ErrorText(error) + ") populating network printer: " + PrinterName);
  OperationsSucceeded = false;
}

namespace {

// Copies the driver file into the system folder, adds the driver and adds
// the printer. The words of the printer's own lines say "local" or
// "networked" after the operation that asked.
void InstallPrinter(bool networked, const std::string& PortName,
                    const std::string& DriverSharePath, const std::string& DriverFileName,
                    const std::string& DriverName, const std::string& PrinterName) {
  if (!DriverName.empty() && !DriverFileName.empty()) {
    std::string systemFolder(255, ' ');
    UINT length = Sys().system->GetSystemDirectoryA(systemFolder.data(), 255);
    systemFolder.resize(std::min<size_t>(length, systemFolder.size()));

    std::string driverPath = systemFolder + "\\" + DriverFileName;
    platform::Failure copy =
        Sys().files->FileCopy(DriverSharePath + "\\" + DriverFileName, driverPath);
    if (copy.Number > 0) {
      WriteDebug("ERROR: Copying printer driver to windows folder.");
      WriteDebug("ERROR: " + Str(copy.Number));
      WriteDebug("ERROR DESCRIPTION: " + copy.Description);
      AppendOutcome("Warning (" + copy.Description + ") unable to install provided driver: " +
                    PrinterName);
    }

    std::string name = DriverName;
    std::string environment = "Windows 4.0";
    std::string driverFile = driverPath, dataFile = driverPath, configFile = driverPath;
    DRIVER_INFO_2A driver;
    std::memset(&driver, 0, sizeof driver);
    driver.cVersion = 1024;
    driver.pName = name.data();
    driver.pEnvironment = environment.data();
    driver.pDriverPath = driverFile.data();
    driver.pDataFile = dataFile.data();
    driver.pConfigFile = configFile.data();
    Sys().spooler->AddPrinterDriverA(nullptr, 2, reinterpret_cast<LPBYTE>(&driver));
    LONG error = LastError();
    if (error > 0 && error != ERROR_PRINTER_DRIVER_ALREADY_INSTALLED) {
      WriteDebug("ERROR: Adding printer driver: " + DriverName);
      WriteDebug("SYSTEM ERROR: " + ErrorText(error));
      AppendOutcome("Warning (" + ErrorText(error) + ") unable to add provided driver information: " +
                    PrinterName);
    }
  }

  std::string printerName = PrinterName, portName = PortName, driverName = DriverName;
  std::string comment = "Adding using Zandolin", processor = "WinPrint", datatype = "RAW";
  PRINTER_INFO_2A info;
  std::memset(&info, 0, sizeof info);
  info.pServerName = nullptr;
  info.pPrinterName = printerName.data();
  info.pPortName = portName.data();
  info.pDriverName = driverName.data();
  info.pComment = comment.data();
  info.pPrintProcessor = processor.data();
  info.pDatatype = datatype.data();
  info.Attributes = PRINTER_ATTRIBUTE_LOCAL;
  HANDLE printer = Sys().spooler->AddPrinterA(nullptr, 2, reinterpret_cast<LPBYTE>(&info));
  LONG error = LastError();

  const std::string kind = networked ? "networked" : "local";
  if (error == ERROR_PRINTER_ALREADY_EXISTS) {
    WriteDebug("ERROR: Adding " + kind + " printer, printer already existed : " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Populating " + kind + " printer, printer already exists: " + PrinterName);
  } else if (error > 0) {
    WriteDebug("ERROR: Adding " + kind + " printer : " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") populating " + kind + " printer: " +
                  PrinterName);
    OperationsSucceeded = false;
  } else {
    WriteDebug(">> Populated " + kind + " printer: " + PrinterName);
    AppendOutcome("Populated " + kind + " printer: " + PrinterName);
  }

  if (printer != nullptr) Sys().spooler->ClosePrinter(printer);
}

}  // namespace

void AddLocalPrinter(const std::string& PortName, const std::string& DriverSharePath,
                     const std::string& DriverFileName, const std::string& DriverName,
                     const std::string& PrinterName) {
  InstallPrinter(false, PortName, DriverSharePath, DriverFileName, DriverName, PrinterName);
}

void AddNetworkPrinterWithDriver(const std::string& PortName, const std::string& DriverSharePath,
                                 const std::string& DriverFileName, const std::string& DriverName,
                                 const std::string& PrinterName) {
  // The port that points at the queue; a failure here is logged and the
  // printer is added all the same.
  std::string monitorName = PortName;
  if (Sys().spooler->AddPortA(nullptr, ProgressWindowHandle(), monitorName.data()) == 0) {
    LONG error = LastError();
    WriteDebug("ERROR: Adding network port to client local printer: " + PrinterName + " : " +
               PortName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
  }
  InstallPrinter(true, PortName, DriverSharePath, DriverFileName, DriverName, PrinterName);
}

std::string GetClientDefaultPrinter() {
  OSVERSIONINFOA version = ReadVersion();
  LONG error = LastError();
  if (error != 0) {
    WriteDebug("ERROR: Getting OS version for Default printer.");
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) +
                  ") determining OS version for setting default printer.");
    OperationsSucceeded = false;
    return std::string();
  }

  std::string name;
  if (version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS) {
    auto enumerationFailed = [](LONG code) {
      WriteDebug("ERROR: Getting default printer name by enumeration.");
      WriteDebug("SYSTEM ERROR: " + ErrorText(code));
      AppendOutcome("Error (" + ErrorText(code) + ") determining default printer.");
      OperationsSucceeded = false;
    };
    DWORD needed = 0, returned = 0;
    Sys().spooler->EnumPrintersA(PRINTER_ENUM_DEFAULT, nullptr, 2, nullptr, 0, &needed,
                                 &returned);
    error = LastError();
    if (static_cast<LONG>(needed) <= 0) {
      enumerationFailed(error);
      return std::string();
    }
    InfoBuffer buffer(needed);
    if (Sys().spooler->EnumPrintersA(PRINTER_ENUM_DEFAULT, nullptr, 2, buffer.data(), buffer.size,
                                     &needed, &returned) == 0) {
      enumerationFailed(LastError());
      return std::string();
    }
    name = PointerToString(buffer.Record().pPrinterName);
  } else if (version.dwPlatformId == VER_PLATFORM_WIN32_NT) {
    std::string buffer(1024, ' ');
    if (version.dwMajorVersion >= 5) {
      DWORD size = 1024;
      if (Sys().spooler->GetDefaultPrinterA(buffer.data(), &size) == 0) {
        error = LastError();
        if (error == ERROR_FILE_NOT_FOUND) {
          WriteDebug("ERROR: No default printer set.");
          WriteDebug("SYSTEM ERROR: " + ErrorText(error));
          AppendOutcome("Warning no currently set default printer.");
        } else {
          WriteDebug("ERROR: Getting default printer name.");
          WriteDebug("SYSTEM ERROR: " + ErrorText(error));
          AppendOutcome("Error (" + ErrorText(error) + ") determining default printer.");
        }
        return buffer;
      }
      name = CutAtNul(buffer);
    } else {
      if (Sys().profile->GetProfileStringA("Windows", "device", "", buffer.data(), 1024) == 0) {
        error = LastError();
        WriteDebug("ERROR: Getting default printer name.");
        WriteDebug("SYSTEM ERROR: " + ErrorText(error));
        AppendOutcome("Error (" + ErrorText(error) + ") determining default printer.");
        OperationsSucceeded = false;
        return buffer;
      }
      // The device string is "name,driver,port"; the name stands in front
      // of its first comma.
      std::string device = CutAtNul(buffer);
      name = device.substr(0, device.find(','));
    }
  } else {
    return std::string();
  }

  WriteDebug("Default printer:" + name);
  AppendOutcome("Default Printer:" + name);
  return name;
}

void SetClientDefaultPrinter(std::string& PrinterName) {
  OSVERSIONINFOA version = ReadVersion();
  LONG error = LastError();
  if (error != 0) {
    WriteDebug("ERROR: Getting OS version for Defualt printer : " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) +
                  ") determining OS version for setting default printer: " + PrinterName);
    OperationsSucceeded = false;
    return;
  }
  if (version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS) {
    SetDefaultPrinterByAttributes(PrinterName);
  } else if (version.dwPlatformId == VER_PLATFORM_WIN32_NT) {
    SetDefaultPrinterByProfile(static_cast<int32_t>(version.dwMajorVersion), PrinterName);
  }
}

void SetDefaultPrinterByAttributes(std::string& PrinterName) {
  // This family knows a network printer by its bare name.
  if (PrinterName.size() >= 2 && PrinterName[0] == '\\' && PrinterName[1] == '\\') {
    size_t slash = PrinterName.find('\\', 2);
    if (slash != std::string::npos) PrinterName = PrinterName.substr(slash + 1);
  }

  auto referenceFailed = [&PrinterName](LONG code) {
    WriteDebug("ERROR: Getting printer reference for set default : " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(code));
    AppendOutcome("Error (" + ErrorText(code) + ") getting a reference to printer for set default: " +
                  PrinterName);
    OperationsSucceeded = false;
  };

  std::string name = PrinterName;
  HANDLE printer = nullptr;
  Sys().spooler->OpenPrinterA(name.data(), &printer, nullptr);
  if (printer == nullptr) {
    LONG error = LastError();
    WriteDebug("ERROR: Opening printer for set default : " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") opening printer for set default: " +
                  PrinterName);
    OperationsSucceeded = false;
    return;
  }

  DWORD needed = 0;
  Sys().spooler->GetPrinterA(printer, 2, nullptr, 0, &needed);
  LONG error = LastError();
  if (error != ERROR_INSUFFICIENT_BUFFER) {
    referenceFailed(error);
    Sys().spooler->ClosePrinter(printer);
    return;
  }
  InfoBuffer buffer(needed);
  if (Sys().spooler->GetPrinterA(printer, 2, buffer.data(), buffer.size, &needed) == 0) {
    referenceFailed(LastError());
    Sys().spooler->ClosePrinter(printer);
    return;
  }

  buffer.SetAttributes(buffer.Record().Attributes | PRINTER_ATTRIBUTE_DEFAULT);
  if (Sys().spooler->SetPrinterA(printer, 2, buffer.data(), 0) == 0) {
    error = LastError();
    WriteDebug("ERROR: Setting default printer: " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") setting default printer: " + PrinterName);
    OperationsSucceeded = false;
  } else {
    WriteDebug("Default printer set: " + PrinterName);
    AppendOutcome("Set default printer: " + PrinterName);
  }
  Sys().spooler->ClosePrinter(printer);
}

void SetDefaultPrinterByProfile(int32_t MajorVersion, std::string& PrinterName) {
  if (MajorVersion >= 5) {
    if (Sys().spooler->SetDefaultPrinterA(PrinterName.c_str()) != 0) {
      WriteDebug("Set default printer: " + PrinterName);
      AppendOutcome("Set default printer: " + PrinterName);
    } else {
      LONG error = LastError();
      WriteDebug("ERROR: Setting default printer: " + PrinterName);
      WriteDebug("SYSTEM ERROR: " + ErrorText(error));
      AppendOutcome("Error (" + ErrorText(error) + ") setting default printer: " + PrinterName);
      OperationsSucceeded = false;
    }
    return;
  }

  // The printer's entry under PrinterPorts is "driver,port,timeout,timeout";
  // the device string wants "name,driver,port".
  std::string buffer(1024, ' ');
  if (Sys().profile->GetProfileStringA("PrinterPorts", PrinterName.c_str(), "", buffer.data(),
                                       1024) == 0) {
    LONG error = LastError();
    WriteDebug("ERROR: getting reference for setting default printer: " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") getting reference for setting default printer: " +
                  PrinterName);
    OperationsSucceeded = false;
    return;
  }
  std::string entry = CutAtNul(buffer);
  size_t firstComma = entry.find(',');
  size_t secondComma =
      firstComma == std::string::npos ? std::string::npos : entry.find(',', firstComma + 1);
  if (secondComma == std::string::npos) {
    WriteDebug("ERROR: Parsing default printer string: " + PrinterName);
    AppendOutcome("Error parsing default printer settings: " + PrinterName);
    OperationsSucceeded = false;
    return;
  }

  std::string device = PrinterName + "," + entry.substr(0, secondComma);
  if (Sys().profile->WriteProfileStringA("Windows", "device", device.c_str()) != 0) {
    WriteDebug("Set default printer: " + PrinterName);
    AppendOutcome("Set default printer: " + PrinterName);
  } else {
    LONG error = LastError();
    WriteDebug("ERROR: Writing default printer settings : " + PrinterName);
    WriteDebug("SYSTEM ERROR: " + ErrorText(error));
    AppendOutcome("Error (" + ErrorText(error) + ") setting default printer: " + PrinterName);
    OperationsSucceeded = false;
  }
}
