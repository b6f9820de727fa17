// The layer over the print spooler: the user's printers, adding and removing
// one printer, installing a printer with driver and port, the default printer.
#pragma once

#include <cstdint>
#include <string>

void GetClientPrinters(bool ReportPrinters);
std::string PointerToString(const char* pointer);

void RemoveNetworkPrinter(const std::string& PrinterName);
void RemoveLocalPrinter(const std::string& PrinterName);
void AddNetworkPrinter(const std::string& PrinterName);
void AddLocalPrinter(const std::string& PortName, const std::string& DriverSharePath,
                     const std::string& DriverFileName, const std::string& DriverName,
                     const std::string& PrinterName);
void AddNetworkPrinterWithDriver(const std::string& PortName, const std::string& DriverSharePath,
                                 const std::string& DriverFileName, const std::string& DriverName,
                                 const std::string& PrinterName);

std::string GetClientDefaultPrinter();
// The name is handed down by reference: the shortening done on the Windows
// 9x family reaches the caller's variable.
void SetClientDefaultPrinter(std::string& PrinterName);
void SetDefaultPrinterByAttributes(std::string& PrinterName);
void SetDefaultPrinterByProfile(int32_t MajorVersion, std::string& PrinterName);
