// The report of a rehearsal or a collection: fleet.csv, fleet.json and one
// self-contained index.html, written into one folder.
#pragma once

#include "app/zandolin-fleet/ClientFacts.h"
#include "app/zandolin-fleet/Rehearsal.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace fleet {

// Predicted (a rehearsal) against actual (a collection), client by client.
struct Difference {
  std::string computer, user;
  std::string field;              // the fact that differs
  std::string predicted, actual;  // as the reports give it
};

struct Comparison {
  std::string rehearsal;                  // the rehearsal's folder
  size_t compared = 0;                    // clients in both
  size_t differing = 0;                   // of them, those with a difference
  std::vector<Difference> differences;
  std::vector<std::string> notRehearsed;  // collected, not in the rehearsal
  std::vector<std::string> notCollected;  // rehearsed, no report collected
};

struct Report {
  std::string command;     // "rehearse" or "collect"
  std::string subject;     // the INI file, or the folder collected
  std::vector<ClientFacts> clients;
  std::vector<Skipped> skipped;
  std::optional<Comparison> comparison;
  nlohmann::json extra = nlohmann::json::object();   // counts of the command's own
};

// How much of the clients' reports the page carries: as much as a browser
// opens at ease; the rest stay in the transcripts and output files.
inline constexpr size_t kPageReportBudget = 12u << 20;

// The counts at the top of the page, by name, in their order.
nlohmann::ordered_json Counts(const Report& report);

// Compares each client of actual with the same computer and user in the
// rehearsal (case-blind), fact by fact.
Comparison Compare(const std::vector<ClientFacts>& predicted, const std::vector<ClientFacts>& actual);

// The clients of a report folder's fleet.json. Throws UsageError.
std::vector<ClientFacts> ReadFleetJson(const std::filesystem::path& folder);

// Writes fleet.csv, fleet.json and index.html into folder. Throws UsageError
// when they cannot be written.
void WriteReport(const Report& report, const std::filesystem::path& folder);

}  // namespace fleet
