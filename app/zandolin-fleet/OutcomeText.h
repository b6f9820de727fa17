// The engine's report of one run (its outcome text, as the notifications
// carry it) read back line by line into what happened, and the engine's
// output files split into their runs.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fleet {

// One thing the report says was done to a printer.
struct OutcomeStep {
  enum Kind {
    kMove,             // "Migrating: " printer " to " to
    kAdd,              // a printer added
    kAddFailed,        // an add that failed with error
    kRemove,           // a printer removed
    kRemoveFailed,     // a removal that failed with error
    kDefaultSet,       // the default printer set to printer
    kDefaultFailed,    // setting the default failed (error 0: no code given)
    kAlreadyMigrated,  // "Printer already migrated: " (no rule moved it)
    kNotInDirectory,   // "Printer NOT FOUND IN AD: "
  };
  Kind kind;
  std::string printer;
  std::string to;       // kMove: the new name
  long error = 0;       // the failed operations' code
};

struct OutcomeRun {
  std::string reportAt;          // the "Report At: " head of an output file
  bool inventory = false;        // the printer section stood: a full run
  std::string computer, user;    // from its header
  bool alreadySucceeded = false;
  bool directoryFailed = false;  // the directory could not be read: the run aborted
  std::string directoryError;    // its lines, joined by "; "
  size_t directoryQueues = 0;    // lines of the directory's listing
  std::vector<std::string> printers;          // the printers listed at the start, in order
  std::vector<bool> local;                    // per printer: a local one
  std::optional<std::string> defaultPrinter;  // "Default Printer:" at the start
  std::vector<OutcomeStep> steps;
  bool operationFailed = false;  // a failure that makes the recorded status False
  std::vector<std::string> notes;    // warnings and errors that change nothing
  std::vector<std::string> unknown;  // lines this reader does not know, kept
  bool cut = false;                  // the text ends in the middle of a line
  std::string text;                  // an output file's run: its text, the listing collapsed
};

// Reads one run's outcome text (the lines after a "Report At: " head too).
OutcomeRun ReadOutcome(std::string_view text);

// An output file's runs, in the file's order; nullopt when the file is no
// output file of the engine (its first line that is not blank is not a
// "Report At: " head).
std::optional<std::vector<OutcomeRun>> ReadOutputFile(std::string_view text);

// The text with the directory's listing (the lines under
// "* ----- AD Printers ----- *", and the debug log's ">> AD Printer: "
// lines) replaced by one line that says how many there were and where they
// are listed; every other line kept as it stands.
std::string CollapseDirectoryListing(const std::string& text, const std::string& listedIn);

// Text as UTF-8: valid UTF-8 stays, any other bytes are read as Windows-1252.
std::string AsUtf8(std::string_view bytes);

}  // namespace fleet
