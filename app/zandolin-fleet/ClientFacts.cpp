#include "app/zandolin-fleet/ClientFacts.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/SpoolerErrors.h"

#include <set>

namespace fleet {

namespace {

using nlohmann::json;

std::set<std::string> UpperSet(const std::vector<std::string>& names) {
  std::set<std::string> set;
  for (const std::string& n : names) set.insert(sim::UpperAscii(n));
  return set;
}

std::string Joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : "; ") + item;
  return text;
}

std::string MoveText(const Move& m) { return m.from + " -> " + m.to; }

std::string FailedAddText(const FailedAdd& f) {
  std::string meaning(sim::SpoolerErrorMeaning(f.error));
  return f.printer + " (" + std::to_string(f.error) + (meaning.empty() ? "" : ": " + meaning) + ")";
}

template <class T, class F>
std::vector<std::string> Texts(const std::vector<T>& items, F text) {
  std::vector<std::string> texts;
  for (const T& item : items) texts.push_back(text(item));
  return texts;
}

// One CSV field, quoted when it must be.
std::string Field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

std::vector<std::string> Strings(const json& value) {
  std::vector<std::string> list;
  if (value.is_array())
    for (const json& v : value) list.push_back(v.get<std::string>());
  return list;
}

}  // namespace

bool ClientFacts::AtRisk() const {
  return !failedAdds.empty() || !lost.empty() || defaultLost || ended == "stuck" || ended == "fatal" ||
         run == kRunNotLoaded || run == kRunDirectoryFailed || run == kRunNoIniFile;
}

void DeriveChanges(ClientFacts& facts, const std::vector<const OutcomeRun*>& runs) {
  const std::set<std::string> after = UpperSet(facts.printersAfter);
  std::set<std::string> replaced, touched, seenMoves;
  facts.moved.clear();
  facts.failedAdds.clear();
  const OutcomeRun* lastFull = nullptr;
  for (const OutcomeRun* run : runs) {
    if (run->inventory) lastFull = run;
    for (const OutcomeStep& step : run->steps) {
      switch (step.kind) {
        case OutcomeStep::kMove: {
          touched.insert(sim::UpperAscii(step.printer));
          if (after.count(sim::UpperAscii(step.to)) && !after.count(sim::UpperAscii(step.printer)) &&
              seenMoves.insert(sim::UpperAscii(step.printer) + "\n" + sim::UpperAscii(step.to)).second) {
            facts.moved.push_back({step.printer, step.to});
            replaced.insert(sim::UpperAscii(step.printer));
          }
          break;
        }
        case OutcomeStep::kRemove:
        case OutcomeStep::kRemoveFailed: touched.insert(sim::UpperAscii(step.printer)); break;
        default: break;
      }
    }
  }
  // The adds that still fail: those of the latest full run.
  for (const OutcomeRun* run : runs) {
    if (lastFull && run != lastFull) continue;
    for (const OutcomeStep& step : run->steps)
      if (step.kind == OutcomeStep::kAddFailed) facts.failedAdds.push_back({step.printer, step.error});
  }
  facts.lost.clear();
  facts.untouched.clear();
  for (const std::string& p : facts.printersBefore) {
    std::string u = sim::UpperAscii(p);
    if (!after.count(u)) {
      if (!replaced.count(u)) facts.lost.push_back(p);
    } else if (!touched.count(u)) {
      facts.untouched.push_back(p);
    }
  }
  // A default that was a printer of the user, and is none of them now.
  facts.defaultLost = !facts.defaultBefore.empty() &&
                      UpperSet(facts.printersBefore).count(sim::UpperAscii(facts.defaultBefore)) &&
                      (facts.defaultAfter.empty() || !after.count(sim::UpperAscii(facts.defaultAfter)));
}

void ReplayRuns(ClientFacts& facts, const std::vector<const OutcomeRun*>& runs) {
  bool first = true;
  std::vector<std::string> state;
  std::string defaultPrinter;
  auto find = [&](const std::string& name) {
    for (size_t i = 0; i < state.size(); ++i)
      if (sim::UpperAscii(state[i]) == sim::UpperAscii(name)) return i;
    return state.size();
  };
  for (const OutcomeRun* run : runs) {
    if (!run->inventory) continue;
    state = run->printers;
    defaultPrinter = run->defaultPrinter.value_or("");
    if (first) {
      facts.printersBefore = state;
      facts.defaultBefore = defaultPrinter;
      first = false;
    }
    for (const OutcomeStep& step : run->steps) {
      if (step.kind == OutcomeStep::kAdd && find(step.printer) == state.size()) {
        state.push_back(step.printer);
      } else if (step.kind == OutcomeStep::kRemove && find(step.printer) < state.size()) {
        state.erase(state.begin() + static_cast<long>(find(step.printer)));
        if (sim::UpperAscii(step.printer) == sim::UpperAscii(defaultPrinter)) defaultPrinter.clear();
      } else if (step.kind == OutcomeStep::kDefaultSet) {
        defaultPrinter = step.printer;
      }
    }
  }
  facts.printersAfter = state;
  facts.defaultAfter = defaultPrinter;
}

std::string StatusByReport(const OutcomeRun& run) {
  if (!run.inventory || run.alreadySucceeded) return "";
  return run.directoryFailed || run.operationFailed ? "False" : "True";
}

json ToJson(const ClientFacts& f) {
  json moved = json::array(), failed = json::array();
  for (const Move& m : f.moved) moved.push_back({{"from", m.from}, {"to", m.to}});
  for (const FailedAdd& a : f.failedAdds)
    failed.push_back({{"printer", a.printer}, {"error", a.error}, {"meaning", sim::SpoolerErrorMeaning(a.error)}});
  return json{{"computer", f.computer},
              {"user", f.user},
              {"source", f.source},
              {"generation", f.generation},
              {"ended", f.ended},
              {"endedDetail", f.endedDetail},
              {"run", f.run},
              {"printersBefore", f.printersBefore},
              {"printersAfter", f.printersAfter},
              {"moved", moved},
              {"failedAdds", failed},
              {"lost", f.lost},
              {"untouched", f.untouched},
              {"defaultBefore", f.defaultBefore},
              {"defaultAfter", f.defaultAfter},
              {"defaultLost", f.defaultLost},
              {"statusRecorded", f.statusRecorded},
              {"runsAgain", f.runsAgain},
              {"mailTo", f.mailTo},
              {"outputFile", f.outputFile},
              {"eventLog", f.eventLog},
              {"messageBoxes", f.messageBoxes},
              {"notes", f.notes},
              {"unknownLines", f.unknownLines},
              {"reportAt", f.reportAt},
              {"runs", f.runs},
              {"directoryQueues", f.directoryQueues},
              {"atRisk", f.AtRisk()},
              {"transcript", f.transcript}};
}

ClientFacts FactsFromJson(const json& j) {
  ClientFacts f;
  auto text = [&](const char* key) { return j.contains(key) ? j[key].get<std::string>() : std::string(); };
  f.computer = text("computer");
  f.user = text("user");
  f.source = text("source");
  f.generation = text("generation");
  f.ended = text("ended");
  f.endedDetail = text("endedDetail");
  f.run = text("run");
  f.printersBefore = Strings(j.value("printersBefore", json()));
  f.printersAfter = Strings(j.value("printersAfter", json()));
  for (const json& m : j.value("moved", json::array())) f.moved.push_back({m["from"], m["to"]});
  for (const json& a : j.value("failedAdds", json::array()))
    f.failedAdds.push_back({a["printer"], a["error"].get<long>()});
  f.lost = Strings(j.value("lost", json()));
  f.untouched = Strings(j.value("untouched", json()));
  f.defaultBefore = text("defaultBefore");
  f.defaultAfter = text("defaultAfter");
  f.defaultLost = j.value("defaultLost", false);
  f.statusRecorded = text("statusRecorded");
  f.runsAgain = j.value("runsAgain", false);
  f.mailTo = text("mailTo");
  f.outputFile = text("outputFile");
  f.eventLog = text("eventLog");
  f.messageBoxes = Strings(j.value("messageBoxes", json()));
  f.notes = Strings(j.value("notes", json()));
  f.unknownLines = Strings(j.value("unknownLines", json()));
  f.reportAt = text("reportAt");
  f.runs = j.value("runs", 0);
  f.directoryQueues = j.value("directoryQueues", size_t{0});
  f.transcript = text("transcript");
  return f;
}

std::string CsvHeader() {
  return "computer,user,source,generation,ended,endedDetail,run,printersBeforeCount,printersBefore,"
         "printersAfterCount,printersAfter,movedCount,moved,failedAddsCount,failedAdds,lostCount,lost,"
         "defaultBefore,defaultAfter,defaultLost,untouchedCount,untouched,statusRecorded,runsAgain,"
         "mailTo,outputFile,eventLog,messageBoxes,reportAt,runs,unknownLines,notes,transcript\r\n";
}

std::string CsvRow(const ClientFacts& f) {
  const std::vector<std::string> fields = {
      f.computer,
      f.user,
      f.source,
      f.generation,
      f.ended,
      f.endedDetail,
      f.run,
      std::to_string(f.printersBefore.size()),
      Joined(f.printersBefore),
      std::to_string(f.printersAfter.size()),
      Joined(f.printersAfter),
      std::to_string(f.moved.size()),
      Joined(Texts(f.moved, MoveText)),
      std::to_string(f.failedAdds.size()),
      Joined(Texts(f.failedAdds, FailedAddText)),
      std::to_string(f.lost.size()),
      Joined(f.lost),
      f.defaultBefore,
      f.defaultAfter,
      f.defaultLost ? "yes" : "no",
      std::to_string(f.untouched.size()),
      Joined(f.untouched),
      f.statusRecorded,
      f.runsAgain ? "yes" : "no",
      f.mailTo,
      f.outputFile,
      f.eventLog,
      Joined(f.messageBoxes),
      f.reportAt,
      f.runs > 0 ? std::to_string(f.runs) : "",
      std::to_string(f.unknownLines.size()),
      Joined(f.notes),
      f.transcript};
  std::string row;
  for (size_t i = 0; i < fields.size(); ++i) row += (i ? "," : "") + Field(fields[i]);
  return row + "\r\n";
}

}  // namespace fleet
