#include "migration/modMoveNetworkPrinters.h"

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

namespace {

// The client's server without its two leading backslashes, the form in
// which the INI lists name servers.
std::string BareServer(const ClientPrinter& printer) {
  return printer.ServerName.size() > 2 ? printer.ServerName.substr(2) : std::string();
}

// Opens a mode's section of the report: an empty line, then the header.
void WriteModeHeader(const std::string& header) {
  AppendOutcome("");
  AppendOutcome(header);
  WriteDebug(">> " + header + " <<");
}

// The steps every mode takes for one match: report, add the new connection,
// drop the old one and carry the default over when asked to. No step looks
// at the outcome of another.
void MovePrinter(const std::string& oldName, std::string newName) {
  AppendOutcome("Migrating: " + oldName + " to " + newName);
  AddNetworkPrinter(newName);
  RemoveNetworkPrinter(oldName);
  if (INIDocument.DefaultType == 1 && EqualsNoCase(gDefaultPrinterName, oldName)) {
    SetClientDefaultPrinter(newName);
  }
}

void ReportNotMoved(const ClientPrinter& printer) {
  const std::string pieces = printer.PrinterName + " (" + printer.ServerName + ")";
  AppendOutcome("Printer already migrated: " + pieces);
  WriteDebug(">> Printer already migrated: " + pieces);
}

}  // namespace

void MoveManualPrinters() {
  if (UBound(INIDocument.PrinterDefinitions) > 0) {
    WriteBanner(22, "     MOVING USING PRINTER TO PRINTER    ", 22);
    UpdateProgress("Running Printer to Printer migration ...");
    MovePrinterToPrinter();
    UpdateProgress("Completed Printer to Printer migration ...");
  }
  if (UBound(INIDocument.ServerDefinitions) > 0) {
    WriteBanner(20, "     MOVING USING SERVER TO SERVER    ", 20);
    UpdateProgress("Running Server to Server migration ...");
    MoveServerToServer();
    UpdateProgress("Completed Server to Server migration ...");
  }
  if (UBound(INIDocument.MixedDefinitions) > 0) {
    WriteBanner(21, "     MOVING USING MIXED TO MIXED    ", 20);
    UpdateProgress("Running Mixed Server and Printer migration ...");
    MoveMixed();
    UpdateProgress("Completed Mixed Server and Printer migration ...");
  }
  UpdateProgress("Performing maintenance ...");
  RunMaintenance();
  UpdateProgress("Completed maintenance ...");
  WriteDebug(std::string(">> Finished maintenance: ") + BoolText(AbortStatus));
}

void MovePrinterToPrinter() {
  const auto& definitions = INIDocument.PrinterDefinitions;
  if (definitions.empty() || definitions[0].FromPrinter.empty()) return;

  WriteModeHeader("* ----- Migrating Networked Printers Between Printers ----- *");

  const FoldedNames fromPrinters = FoldNames(definitions, &PrinterDefinition::FromPrinter);
  for (int i = 1; i <= UBound(gClientPrinters); ++i) {
    const ClientPrinter client = gClientPrinters[i];
    const FoldedName queue = FoldName(client.QueueName);
    bool found = false;
    for (int j = 0; j <= UBound(definitions); ++j) {
      const PrinterDefinition& definition = definitions[j];
      if (SameName(fromPrinters, j, queue)) {
        WriteDebug(">> Found a printer match <<");
        WriteDebug(">> Client printer: " + client.QueueName);
        WriteDebug(">> INI Printer: " + definition.FromPrinter);
        found = true;
        // The printer keeps its server; ServerName already carries "\\".
        MovePrinter(client.ServerName + "\\" + client.QueueName,
                    client.ServerName + "\\" + definition.ToPrinter);
      }
      UpdateProgress("");
    }
    if (!found) ReportNotMoved(client);
  }
}

void MoveServerToServer() {
  const auto& definitions = INIDocument.ServerDefinitions;
  if (definitions.empty() || definitions[0].FromServer.empty()) return;

  WriteModeHeader("* ----- Migrating Networked Printers Between Servers ----- *");

  const FoldedNames fromServers = FoldNames(definitions, &ServerDefinition::FromServer);
  for (int i = 1; i <= UBound(gClientPrinters); ++i) {
    const ClientPrinter client = gClientPrinters[i];
    const FoldedName bareServer = FoldName(BareServer(client));
    bool found = false;
    for (int j = 0; j <= UBound(definitions); ++j) {
      const ServerDefinition& definition = definitions[j];
      if (SameName(fromServers, j, bareServer)) {
        WriteDebug(">> Found a server match <<");
        WriteDebug(">> Client server: " + client.ServerName);
        WriteDebug(">> INI server: " + definition.FromServer);
        found = true;
        MovePrinter(client.ServerName + "\\" + client.QueueName,
                    "\\\\" + definition.ToServer + "\\" + client.QueueName);
      }
      UpdateProgress("");
    }
    if (!found) ReportNotMoved(client);
    UpdateProgress("");
  }
}

void MoveMixed() {
  const auto& definitions = INIDocument.MixedDefinitions;
  if (definitions.empty() || definitions[0].FromPrinter.empty()) return;

  WriteModeHeader(
      "* ----- Migrating Networked Servers and Printers Between Servers and Printers----- *");

  const FoldedNames fromServers = FoldNames(definitions, &MixedDefinition::FromServer);
  const FoldedNames fromPrinters = FoldNames(definitions, &MixedDefinition::FromPrinter);
  for (int i = 1; i <= UBound(gClientPrinters); ++i) {
    const ClientPrinter client = gClientPrinters[i];
    const FoldedName bareServer = FoldName(BareServer(client));
    const FoldedName queue = FoldName(client.QueueName);
    bool found = false;
    for (int j = 0; j <= UBound(definitions); ++j) {
      const MixedDefinition& definition = definitions[j];
      if (SameName(fromServers, j, bareServer) && SameName(fromPrinters, j, queue)) {
        WriteDebug(">> Found a Printer and Server match <<");
        WriteDebug(">> Client printer: " + client.QueueName);
        WriteDebug(">> Client Server: " + client.ServerName);
        WriteDebug(">> INI printer: " + definition.FromPrinter);
        WriteDebug(">> INI Server: " + definition.FromServer);
        found = true;
        MovePrinter(client.ServerName + "\\" + client.QueueName,
                    "\\\\" + definition.ToServer + "\\" + definition.ToPrinter);
      }
      UpdateProgress("");
    }
    if (!found) ReportNotMoved(client);
    UpdateProgress("");
  }
}
