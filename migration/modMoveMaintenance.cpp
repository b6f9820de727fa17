#include "migration/modMoveMaintenance.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "migration/modMoveADPrinters.h"
#include "notification/modNotification.h"
#include "printers/modPrinterAPIs.h"

#include <cstring>
#include <string>

namespace {

// Opens a maintenance section of the report: an empty line, then the header.
void WriteSectionHeader(const std::string& header) {
  AppendOutcome("");
  AppendOutcome(header);
  WriteDebug(">> " + header + " <<");
}

// A list that is missing, or whose first entry names nothing, asks for
// nothing.
bool NamesNothing(const std::vector<NameDefinition>& list) {
  return UBound(list) < 0 || (list[0].PrinterName.empty() && list[0].ServerName.empty());
}

// The first driver definition for the printer, by exact name; -1 when none.
int FindDriverDefinition(const std::string& printerName) {
  const auto& drivers = INIDocument.DriverDefinitions;
  for (int i = 0; i <= UBound(drivers); ++i) {
    if (drivers[i].PrinterName == printerName) return i;
  }
  return -1;
}

bool IsWindows9x() {
  OSVERSIONINFOA version;
  std::memset(&version, 0, sizeof version);
  version.dwOSVersionInfoSize = 148;
  Sys().system->GetVersionExA(&version);
  return version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS;
}

std::string BareServer(const ClientPrinter& printer) {
  return printer.ServerName.size() > 2 ? printer.ServerName.substr(2) : std::string();
}

// The names of the prune list, folded once for the case-blind tests.
struct PruneNames {
  FoldedNames printers;
  FoldedNames servers;
};

PruneNames FoldPruneNames(const std::vector<NameDefinition>& entries) {
  return {FoldNames(entries, &NameDefinition::PrinterName),
          FoldNames(entries, &NameDefinition::ServerName)};
}

// A client printer's names, folded once for the same tests.
struct PrinterNames {
  FoldedName name;    // PrinterName
  FoldedName queue;   // QueueName
  FoldedName server;  // BareServer
};

PrinterNames FoldPrinterNames(const ClientPrinter& printer) {
  return {FoldName(printer.PrinterName), FoldName(printer.QueueName),
          FoldName(BareServer(printer))};
}

// Entry j names the printer, by its whole name or by its name on the
// server, whole string and case-blind.
bool NamesPrinter(const PruneNames& entries, int j, const PrinterNames& printer) {
  return SameName(entries.printers, j, printer.name) ||
         SameName(entries.printers, j, printer.queue);
}

// "*" is every print server and ".*" every print server and this computer;
// any other server name, "." included, is one server. A printer name of "*"
// is every printer of a named server.
bool PruneMatchesNetworkPrinter(const NameDefinition& entry, const PruneNames& entries, int j,
                                const PrinterNames& printer) {
  if (entry.ServerName == "*" || entry.ServerName == ".*") return NamesPrinter(entries, j, printer);
  bool sameServer = SameName(entries.servers, j, printer.server);
  if (entry.PrinterName == "*") return sameServer;
  return sameServer && NamesPrinter(entries, j, printer);
}

}  // namespace

void RunMaintenance() {
  UpdateProgress("Populating maintenance printers ...");
  PopulatePrinters();
  UpdateProgress("Finished populating maintenance printers ...");

  UpdateProgress("Pruning maintenance networked printers ...");
  PruneNetworkPrinters();
  UpdateProgress("Finished pruning maintenance networked printers ...");

  UpdateProgress("Pruning maintenance local printers ...");
  PruneLocalPrinters();
  UpdateProgress("Finished pruning maintenance local printers ...");

  if (INIDocument.UseActiveDirectory) {
    // The orphan prune needs the state after migration, populate and prune.
    UpdateProgress("Refreshing list of printers ...");
    GetClientPrinters(false);
    UpdateProgress("Pruning maintenance all orphaned Active Directory printers ...");
    PruneADOrphans();
    UpdateProgress("Finished pruning maintenance all orphaned Active Directory printers ...");
  }

  if (INIDocument.DefaultType == 2) SetClientDefaultPrinter(INIDocument.DefaultPrinterName);
}

void PopulatePrinters() {
  const auto& entries = INIDocument.PopulateDefinitions;
  if (NamesNothing(entries)) return;

  WriteSectionHeader("* ----- Maintenance Populate ----- *");

  for (int i = 0; i <= UBound(entries); ++i) {
    const NameDefinition entry = entries[i];
    if (entry.ServerName == ".") {
      int driver = FindDriverDefinition(entry.PrinterName);
      if (driver >= 0) {
        const DriverDefinition definition = INIDocument.DriverDefinitions[driver];
        AddLocalPrinter(definition.PortName, INIDocument.DriverSharePath,
                        definition.DriverFileName, definition.DriverName, definition.PrinterName);
      } else {
        AppendOutcome("Error populating Maintenance Local Printer, "
                      "no driver information available : " +
                      entry.PrinterName);
        WriteDebug(">> Error local populating, no driver info: " + entry.PrinterName);
      }
    } else if (entry.ServerName.empty() || entry.PrinterName.empty()) {
      // A spare or half-filled entry asks for nothing.
    } else {
      const std::string connection = "\\\\" + entry.ServerName + "\\" + entry.PrinterName;
      if (!IsWindows9x()) {
        AddNetworkPrinter(connection);
      } else {
        // This family sets a network printer up as a local printer on a port
        // that points at the queue, and so needs its driver.
        int driver = FindDriverDefinition(entry.PrinterName);
        if (driver >= 0) {
          const DriverDefinition definition = INIDocument.DriverDefinitions[driver];
          AddNetworkPrinterWithDriver(connection, INIDocument.DriverSharePath,
                                      definition.DriverFileName, definition.DriverName,
                                      definition.PrinterName);
        } else {
          AppendOutcome("Error populating Maintenance Networked Printer on Windows 95/98/ME, "
                        "no driver information available : " +
                        entry.PrinterName);
          WriteDebug(">> Error network populating Windows 95/98/ME, no driver info: " +
                     entry.PrinterName);
        }
      }
    }
    UpdateProgress("");
  }
}

void PruneNetworkPrinters() {
  const auto& entries = INIDocument.PruneDefinitions;
  if (NamesNothing(entries)) return;

  WriteSectionHeader("* ----- Maintenance Prune Network Printers ----- *");

  const PruneNames names = FoldPruneNames(entries);
  for (int i = 1; i <= UBound(gClientPrinters); ++i) {
    const ClientPrinter printer = gClientPrinters[i];
    const PrinterNames printerNames = FoldPrinterNames(printer);
    for (int j = 0; j <= UBound(entries); ++j) {
      if (PruneMatchesNetworkPrinter(entries[j], names, j, printerNames)) {
        RemoveNetworkPrinter(printer.ServerName + "\\" + printer.QueueName);
        break;
      }
    }
    UpdateProgress("");
  }
}

void PruneLocalPrinters() {
  const auto& entries = INIDocument.PruneDefinitions;
  const bool deleteAll = INIDocument.DeleteAllNonNetworked;
  if (!deleteAll && NamesNothing(entries)) return;

  WriteSectionHeader("* ----- Maintenance Prune Local Printers ----- *");

  const PruneNames names = FoldPruneNames(entries);
  for (int i = 1; i <= UBound(gClientLocalPrinters); ++i) {
    const ClientPrinter printer = gClientLocalPrinters[i];
    bool selected = deleteAll;
    if (!selected) {
      const PrinterNames printerNames = FoldPrinterNames(printer);
      for (int j = 0; j <= UBound(entries); ++j) {
        const NameDefinition& entry = entries[j];
        if (entry.ServerName != "." && entry.ServerName != ".*") continue;
        if (NamesPrinter(names, j, printerNames)) {
          selected = true;
          break;
        }
      }
    }
    if (selected) RemoveLocalPrinter(printer.PrinterName);
    UpdateProgress("");
  }
}

void PruneADOrphans() {
  WriteSectionHeader("* ----- Maintenance Prune All Orphaned Active Directory Printers ----- *");

  const DirectoryNames names = FoldDirectoryNames();
  for (int i = 1; i <= UBound(gClientPrinters); ++i) {
    const ClientPrinter printer = gClientPrinters[i];
    const FoldedName queue = FoldName(printer.QueueName);
    bool found = false;
    // The pulses of the entries are given at the next match and at the end.
    int64_t pulses = 0;
    for (int j = 1; j <= UBound(gDirectoryPrinters); ++j) {
      const DirectoryPrinter& entry = gDirectoryPrinters[j];
      if (NamesSameQueue(names, j, queue)) {
        PulseProgress(pulses);
        pulses = 0;
        WriteDebug(">> Found a printer match <<");
        WriteDebug(">> Printer share names (Client/AD): " + printer.QueueName + " \\ " +
                   entry.ShareName);
        WriteDebug(">> Printer names (Client/AD): " + printer.QueueName + " \\ " +
                   entry.PrinterName);
        // Unlike the migration's, this server test heeds case.
        if (BareServer(printer) == entry.ServerName) {
          WriteDebug(">> Found a server match <<");
          WriteDebug(">> Server names (Client/AD): " + printer.ServerName + " \\ " +
                     entry.ServerName);
          found = true;
          break;
        }
      }
      ++pulses;
    }
    PulseProgress(pulses);
    if (!printer.ServerName.empty() && !found && !printer.QueueName.empty()) {
      RemoveNetworkPrinter(printer.ServerName + "\\" + printer.QueueName);
    }
    UpdateProgress("");
  }
}
