// What one client's run did, as the reports give it: one row of fleet.csv,
// one entry of fleet.json, one client of the page. A rehearsal fills it from
// the simulated run, a collection from the engine's output files.
#pragma once

#include "app/zandolin-fleet/OutcomeText.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace fleet {

struct Move {
  std::string from, to;
};

struct FailedAdd {
  std::string printer;
  long error = 0;
};

struct ClientFacts {
  std::string source;            // the capture folder, or the output files
  std::string computer, user;
  std::string generation;        // of Windows, when known
  std::string ended;             // "returned", "fatal", "stuck" (rehearsal only)
  std::string endedDetail;       // the fatal error, or why the process would not end
  std::string run;               // see the kRun* texts
  std::vector<std::string> printersBefore, printersAfter;
  std::vector<Move> moved;       // moved to a new name that the client now has
  std::vector<FailedAdd> failedAdds;
  std::vector<std::string> lost;       // removed with nothing in their place
  std::vector<std::string> untouched;  // no rule touched them
  std::string defaultBefore, defaultAfter;
  bool defaultLost = false;            // had a default, has no working one now
  std::string statusRecorded;          // "True", "False", "" (nothing recorded)
  bool runsAgain = false;              // the engine runs again at the next logon
  std::string mailTo;                  // recipients of the mail that would go
  std::string outputFile;              // the output file written
  std::string eventLog;                // "information (4)" or "warning (2)"
  std::vector<std::string> messageBoxes;  // titles and texts of the boxes shown
  std::vector<std::string> notes;         // what else the run says
  std::vector<std::string> unknownLines;  // report lines not understood, kept
  std::string reportAt;                   // the latest report's time (collection)
  int runs = 0;                           // reports found (collection)
  size_t directoryQueues = 0;             // queues the directory listed to the run
  std::string outcomeText;                // the report, the directory's listing collapsed (not in JSON)
  std::string transcript;                 // the per-client file, relative to the report

  bool AtRisk() const;
};

inline constexpr const char* kRunFull = "full run";
inline constexpr const char* kRunAlreadySucceeded = "already succeeded";
inline constexpr const char* kRunDirectoryFailed = "directory query failed";
inline constexpr const char* kRunNotLoaded = "INI file not loaded";
inline constexpr const char* kRunNoIniFile = "no INI file found";
inline constexpr const char* kRunStopped = "stopped before its report";

// Fills moved, failedAdds, lost, untouched and defaultLost from the runs'
// steps (oldest first), given printersBefore, printersAfter and the
// defaults. Names compare case-blind.
void DeriveChanges(ClientFacts& facts, const std::vector<const OutcomeRun*>& runs);

// The printers and default after the runs as their reports tell it: each
// full run starts from the printers it listed, then its steps apply.
void ReplayRuns(ClientFacts& facts, const std::vector<const OutcomeRun*>& runs);

// The status a run records by its report: nothing when it was no full run,
// else False after an aborted run or a failed printer operation.
std::string StatusByReport(const OutcomeRun& run);

// Every fact but the outcome text.
nlohmann::json ToJson(const ClientFacts& facts);
ClientFacts FactsFromJson(const nlohmann::json& json);

// The CSV: the header line and one line per client, CR LF ended.
std::string CsvHeader();
std::string CsvRow(const ClientFacts& facts);

}  // namespace fleet
