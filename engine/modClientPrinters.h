// The run driver, the run status gate and the user's printer lists.
#pragma once

#include <string>
#include <vector>

struct ClientPrinter {
  std::string ServerName;
  std::string PrinterName;
  std::string QueueName;
  std::string ShareName;
  std::string PortName;
  std::string DriverName;
  std::string Comment;
  std::string Location;
};

// Network and local printers of the user; slot 0 stays empty.
extern std::vector<ClientPrinter> gClientPrinters;
extern std::vector<ClientPrinter> gClientLocalPrinters;
// The user's default printer as it stood before any change.
extern std::string gDefaultPrinterName;

void RunMigration();
bool ReadRunStatus();
void WriteRunStatus();
std::string TrimAtNul(std::string& text);
std::string GetCurrentUserName();
