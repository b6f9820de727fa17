// Directory-driven migration: the domain's print queues and the matching.
#pragma once

#include <string>
#include <vector>

struct DirectoryPrinter {
  std::string PrinterName;
  std::string ServerName;
  std::string ShareName;
};

// The directory's print queues; slot 0 stays empty.
extern std::vector<DirectoryPrinter> gDirectoryPrinters;

void GetADPrinters();
void MoveADPrinters();
void MigrateADPrinters();
