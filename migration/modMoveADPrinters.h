// Directory-driven migration: the domain's print queues and the matching.
#pragma once

#include "engine/Runtime.h"

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

// The share and printer names of gDirectoryPrinters, folded once for the
// name test of the migration and of the orphan prune.
struct DirectoryNames {
  FoldedNames shares;
  FoldedNames printers;
};
DirectoryNames FoldDirectoryNames();

// The name test: the share name or the printer name of the directory's entry
// j is the client's queue name, whole string and case-blind.
inline bool NamesSameQueue(const DirectoryNames& names, int j, const FoldedName& queue) {
  return SameName(names.shares, j, queue) || SameName(names.printers, j, queue);
}

void GetADPrinters();
void MoveADPrinters();
void MigrateADPrinters();
