#include "printers/modPrinterAPIs.h"

// Placeholder bodies until the printer layer lands.
void GetClientPrinters(bool) {}
std::string PointerToString(const char* pointer) { return pointer ? std::string(pointer) : std::string(); }
void RemoveNetworkPrinter(const std::string&) {}
void RemoveLocalPrinter(const std::string&) {}
void AddNetworkPrinter(const std::string&) {}
void AddLocalPrinter(const std::string&, const std::string&, const std::string&, const std::string&,
                     const std::string&) {}
void AddNetworkPrinterWithDriver(const std::string&, const std::string&, const std::string&,
                                 const std::string&, const std::string&) {}
std::string GetClientDefaultPrinter() { return {}; }
void SetClientDefaultPrinter(std::string&) {}
void SetDefaultPrinterByAttributes(std::string&) {}
void SetDefaultPrinterByProfile(int32_t, std::string&) {}
