#include "app/zandolin-fleet/Collect.h"
#include "platform/sim/SimServices.h"

#include "app/zandolin-fleet/Processes.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

namespace fleet {

namespace fs = std::filesystem;

namespace {

struct CollectedRun {
  std::string when;     // sortable time of its "Report At: " head
  size_t order = 0;     // in the order the files and their runs were read
  std::string file;
  OutcomeRun run;
};

// "11/21/2026 2:05:09 PM" as "20261121140509"; empty when it is not that form.
std::string SortableTime(const std::string& text) {
  int month = 0, day = 0, year = 0, hour = 0, minute = 0, second = 0;
  char half[3] = "";
  if (std::sscanf(text.c_str(), "%d/%d/%d %d:%d:%d %2s", &month, &day, &year, &hour, &minute, &second, half) != 7)
    return "";
  if (hour == 12) hour = 0;
  if (half[0] == 'P') hour += 12;
  char key[32];
  std::snprintf(key, sizeof key, "%04d%02d%02d%02d%02d%02d", year, month, day, hour, minute, second);
  return key;
}

// Computer and user from an output file's name made with
// IncludeComputerName: "PC042_jdoe_SUCCESS_migration.txt".
bool NameFromFile(const fs::path& file, std::string& computer, std::string& user) {
  std::string name = file.filename().string();
  size_t first = name.find('_');
  size_t second = first == std::string::npos ? first : name.find('_', first + 1);
  if (second == std::string::npos) return false;
  computer = name.substr(0, first);
  user = name.substr(first + 1, second - first - 1);
  return true;
}

ClientFacts FactsOf(std::vector<const CollectedRun*> runs) {
  std::stable_sort(runs.begin(), runs.end(), [](const CollectedRun* a, const CollectedRun* b) {
    if (!a->when.empty() && !b->when.empty() && a->when != b->when) return a->when < b->when;
    return a->order < b->order;
  });
  ClientFacts f;
  std::vector<const OutcomeRun*> outcomes;
  std::vector<std::string> files;
  const OutcomeRun* lastFull = nullptr;
  for (const CollectedRun* r : runs) {
    outcomes.push_back(&r->run);
    if (std::find(files.begin(), files.end(), r->file) == files.end()) files.push_back(r->file);
    if (r->run.inventory) lastFull = &r->run;
    f.unknownLines.insert(f.unknownLines.end(), r->run.unknown.begin(), r->run.unknown.end());
    f.notes.insert(f.notes.end(), r->run.notes.begin(), r->run.notes.end());
    if (r->run.cut) f.notes.push_back("the report of " + r->run.reportAt + " in " + r->file + " is cut short");
    f.outcomeText += (f.outcomeText.empty() ? "" : "\r\n") + r->run.text;
  }
  const OutcomeRun& latest = runs.back()->run;
  f.computer = runs.front()->run.computer;
  f.user = runs.front()->run.user;
  for (const std::string& file : files) f.source += (f.source.empty() ? "" : "; ") + file;
  f.outputFile = f.source;
  f.reportAt = latest.reportAt;
  f.runs = static_cast<int>(runs.size());
  if (latest.alreadySucceeded) f.run = kRunAlreadySucceeded;
  else if (latest.directoryFailed) f.run = kRunDirectoryFailed;
  else if (latest.inventory) f.run = kRunFull;
  else f.run = kRunStopped;
  ReplayRuns(f, outcomes);
  DeriveChanges(f, outcomes);
  if (lastFull) {
    f.statusRecorded = StatusByReport(*lastFull);
    f.directoryQueues = lastFull->directoryQueues;
  }
  f.runsAgain = f.statusRecorded != "True";
  return f;
}

}  // namespace

Report Collect(const fs::path& folder) {
  Report report;
  report.command = "collect";
  report.subject = folder.string();
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) throw UsageError{"'" + folder.string() + "' is not a folder"};

  std::vector<fs::path> files;
  for (auto it = fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, ec);
       it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (ec) break;
    if (it->is_regular_file(ec)) files.push_back(it->path());
  }
  std::sort(files.begin(), files.end());

  Progress progress("Reading output files:", files.size());
  std::vector<CollectedRun> collected;
  size_t notOutputFiles = 0, cut = 0, unknown = 0, order = 0, texts = 0;
  for (size_t i = 0; i < files.size(); ++i) {
    progress.Update(i);
    const std::string name = files[i].string();
    std::ifstream in(files[i], std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    if (!in && !in.eof()) {
      report.skipped.push_back({name, "cannot be read"});
      continue;
    }
    std::optional<std::vector<OutcomeRun>> runs = ReadOutputFile(AsUtf8(buffer.str()));
    if (!runs) {
      ++notOutputFiles;
      report.skipped.push_back({name, "not an output file of the engine (it does not begin with \"Report At: \")"});
      continue;
    }
    // A run without the printer section (already succeeded) belongs to the
    // client of the file's other runs, or the one its name gives.
    std::string computer, user;
    for (const OutcomeRun& r : *runs)
      if (r.inventory && computer.empty()) computer = r.computer, user = r.user;
    if (computer.empty()) NameFromFile(files[i], computer, user);
    for (OutcomeRun& r : *runs) {
      if (!r.inventory) r.computer = computer, r.user = user;
      cut += r.cut ? 1 : 0;
      unknown += r.unknown.size();
      // Only the reports the page can carry are kept.
      texts += r.text.size();
      if (texts > kPageReportBudget) r.text.clear(), r.text.shrink_to_fit();
      CollectedRun c;
      c.when = SortableTime(r.reportAt);
      c.order = order++;
      c.file = name;
      c.run = std::move(r);
      collected.push_back(std::move(c));
    }
  }
  progress.Finish();

  std::map<std::string, std::vector<const CollectedRun*>> byClient;
  for (const CollectedRun& c : collected)
    byClient[sim::UpperAscii(c.run.computer + "\n" + c.run.user)].push_back(&c);
  for (const auto& [key, runs] : byClient) report.clients.push_back(FactsOf(runs));

  report.extra["files"] = files.size();
  report.extra["notOutputFiles"] = notOutputFiles;
  report.extra["cutReports"] = cut;
  report.extra["unknownLines"] = unknown;
  return report;
}

}  // namespace fleet
