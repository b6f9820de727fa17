#include "migration/modMoveADPrinters.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "migration/modMoveMaintenance.h"
#include "notification/modNotification.h"
#include "printers/modPrinterAPIs.h"

#include <string>

std::vector<DirectoryPrinter> gDirectoryPrinters(1);

namespace {

// The list's index is a signed 16-bit number: no entry stands above this.
constexpr int kLastDirectoryIndex = 32767;

// The client's server without its two leading backslashes, the form in which
// the directory names servers.
std::string BareServer(const ClientPrinter& printer) {
  return printer.ServerName.size() > 2 ? printer.ServerName.substr(2) : std::string();
}

// Fills one slot from a row. The name is cut at its first hyphen: the server
// in front, the printer behind. Each field is set by its own statement, and a
// statement that fails is skipped and leaves its field as it was: a missing
// name sets neither field, a name without a hyphen only the printer (the
// server's cut, of length minus one, fails), a missing share name no share.
// Nothing looks at these failures.
void FillDirectoryPrinter(DirectoryPrinter& entry, const platform::DirectoryRow& row) {
  if (row.hasName) {
    const size_t hyphen = row.name.find('-');
    if (hyphen == std::string::npos) {
      entry.PrinterName = row.name;
    } else {
      entry.PrinterName = row.name.substr(hyphen + 1);
      entry.ServerName = row.name.substr(0, hyphen);
    }
  }
  if (!row.printShareName.empty()) entry.ShareName = row.printShareName[0];
}

}  // namespace

DirectoryNames FoldDirectoryNames() {
  return {FoldNames(gDirectoryPrinters, &DirectoryPrinter::ShareName),
          FoldNames(gDirectoryPrinters, &DirectoryPrinter::PrinterName)};
}

void GetADPrinters() {
  gDirectoryPrinters.assign(1, DirectoryPrinter{});

  // From here on failures are trapped: each stays pending until a
  // checkpoint looks at it.
  Err.Clear();
  const std::string domainPath = DirectoryBindPath(INIDocument.DomainName);
  std::string adsPath;
  Err.Take(Sys().directory->BindObject(domainPath, adsPath));

  if (Err.Number != 0) {
    WriteDebug("ERROR: Accessing Active Directory. <<");
    WriteDebug("ERROR: " + Str(Err.Number));
    WriteDebug("ERROR DESCRIPTION: " + Err.Description);
    ReportErrorOutcome("Error accessing Active Directory. Try installing an MDAC update.");
    return;
  }
  WriteDebug(">> Created connection to AD: " + domainPath);

  const std::string commandText = PrintQueueQuery(adsPath);
  WriteDebug(">> Querying AD for printers, command:" + commandText);
  std::vector<platform::DirectoryRow> rows;
  Err.Take(Sys().directory->Execute(commandText, rows));

  if (Err.Number != 0) {
    WriteDebug("ERROR: Quering Active Directory printers. <<");
    WriteDebug("ERROR: " + Str(Err.Number));
    WriteDebug("ERROR DESCRIPTION: " + Err.Description);
    ReportErrorOutcome("Error quering Active Directory printers.");
    return;
  }

  AppendOutcome("");
  AppendOutcome("* ----- AD Printers ----- *");
  WriteDebug(">> * ----- AD Printers ----- * <<");

  int index = 0;
  for (const platform::DirectoryRow& row : rows) {
    // The next index overflows 16 bits once the list is full; that statement
    // fails, so the index stays on the last slot and the later records are
    // written over it, one after the other.
    const int next = UBound(gDirectoryPrinters) + 1;
    if (next <= kLastDirectoryIndex) {
      index = next;
      gDirectoryPrinters.resize(index + 1);
    }
    DirectoryPrinter& entry = gDirectoryPrinters[index];
    FillDirectoryPrinter(entry, row);

    const std::string pieces =
        entry.PrinterName + " (\\\\" + entry.ServerName + "\\" + entry.ShareName + ")";
    AppendOutcome(pieces);
    WriteDebug(">> AD Printer: " + pieces);
    UpdateProgress("");
  }
}

void MoveADPrinters() {
  WriteDebug(">> Moving Printers Using AD <<");
  UpdateProgress("Getting current list of Active Directory printers ...");
  GetADPrinters();
  UpdateProgress(AbortStatus ? "Error getting current list of Active Directory printers ..."
                             : "Completed getting current list of Active Directory printers ...");
  WriteDebug(std::string(">> Finished getting list of AD printers, abort status: ") +
             BoolText(AbortStatus));
  if (AbortStatus) return;

  UpdateProgress("Active Directory, migrating printers ...");
  MigrateADPrinters();
  UpdateProgress("Completed Active Directory printer migration ...");
  WriteDebug(std::string(">> Finished moving printers using AD, abort status: ") +
             BoolText(AbortStatus));

  UpdateProgress("Performing maintenance ...");
  RunMaintenance();
  UpdateProgress("Completed maintenace ...");
  WriteDebug(std::string(">> Finished maintenance: ") + BoolText(AbortStatus));
}

void MigrateADPrinters() {
  AppendOutcome("");
  AppendOutcome("* ----- Migrating Printers using AD ----- *");
  WriteDebug(">> * ----- Migrating Printers using AD ----- * <<");

  const DirectoryNames names = FoldDirectoryNames();
  for (int i = 1; i <= UBound(gClientPrinters); ++i) {
    const ClientPrinter printer = gClientPrinters[i];
    const FoldedName queue = FoldName(printer.QueueName);
    bool found = false;

    // Every entry is tested, also after a match: each matching entry acts on
    // its own, in directory order. The pulses of the entries are given at
    // the next match and at the end (PulseProgress).
    int64_t pulses = 0;
    for (int j = 1; j <= UBound(gDirectoryPrinters); ++j) {
      const DirectoryPrinter& entry = gDirectoryPrinters[j];
      if (NamesSameQueue(names, j, queue)) {
        PulseProgress(pulses);
        pulses = 0;
        WriteDebug(">> Found a printer match <<");
        WriteDebug(">> Printer share names (Client/AD): " + printer.QueueName + " / " +
                   entry.ShareName);
        WriteDebug(">> Printer names (Client/AD): " + printer.QueueName + " / " +
                   entry.PrinterName);
        found = true;

        if (!EqualsNoCase(BareServer(printer), entry.ServerName)) {
          WriteDebug(">> Found a server difference <<");
          WriteDebug(">> Server names (Client/AD): " + printer.ServerName + " / " +
                     entry.ServerName);
          // The connection keeps the client's queue name on the new server.
          const std::string oldName = printer.ServerName + "\\" + printer.QueueName;
          std::string newName = "\\\\" + entry.ServerName + "\\" + printer.QueueName;
          AppendOutcome("Migrating: " + oldName + " to " + newName);
          AddNetworkPrinter(newName);
          RemoveNetworkPrinter(oldName);
          if (INIDocument.DefaultType == 1 && EqualsNoCase(gDefaultPrinterName, oldName)) {
            SetClientDefaultPrinter(newName);
          }
        } else {
          const std::string pieces = printer.PrinterName + " (" + printer.ServerName + ")";
          AppendOutcome("Printer already migrated: " + pieces);
          WriteDebug(">> Printer already migrated: " + pieces);
        }
      }
      ++pulses;
    }
    PulseProgress(pulses);

    if (!found) {
      const std::string pieces = printer.PrinterName + " (" + printer.ServerName + ")";
      if (!printer.PrinterName.empty() && !printer.ServerName.empty()) {
        AppendOutcome("Printer NOT FOUND IN AD: " + pieces);
      }
      WriteDebug(">> Printer not found in AD: " + pieces);
    }
    UpdateProgress("");
  }
}
