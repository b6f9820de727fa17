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

// The object bound for the domain, and the query of the print queues below
// the object the bind gave.
inline std::string DirectoryBindPath(const std::string& domainName) { return "LDAP://" + domainName; }
inline std::string PrintQueueQuery(const std::string& adsPath) {
  return "Select name, printShareName FROM '" + adsPath + "' WHERE objectCategory='printQueue'";
}

void GetADPrinters();
void MoveADPrinters();
void MigrateADPrinters();
