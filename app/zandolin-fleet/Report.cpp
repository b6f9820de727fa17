#include "app/zandolin-fleet/Report.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/SpoolerErrors.h"

#include "Version.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace fleet {

namespace fs = std::filesystem;
using nlohmann::json;
using nlohmann::ordered_json;

namespace {

// A list as one text, sorted case-blind, for comparing.
std::string SortedText(std::vector<std::string> items) {
  std::sort(items.begin(), items.end(),
            [](const std::string& a, const std::string& b) { return sim::UpperAscii(a) < sim::UpperAscii(b); });
  std::string text;
  for (const std::string& i : items) text += (text.empty() ? "" : "; ") + i;
  return text;
}

std::string Escape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

// JSON text that can stand inside a <script> element.
std::string ScriptJson(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '<') out += "\\u003c";
    else out += c;
  }
  return out;
}

// The facts compared between prediction and report, as texts.
std::vector<std::pair<std::string, std::string>> ComparedFacts(const ClientFacts& f) {
  std::vector<std::string> moved, failed;
  for (const Move& m : f.moved) moved.push_back(m.from + " -> " + m.to);
  for (const FailedAdd& a : f.failedAdds) failed.push_back(a.printer + " (" + std::to_string(a.error) + ")");
  return {{"run", f.run},
          {"printers after", SortedText(f.printersAfter)},
          {"moved", SortedText(moved)},
          {"failed adds", SortedText(failed)},
          {"lost", SortedText(f.lost)},
          {"default after", f.defaultAfter},
          {"default lost", f.defaultLost ? "yes" : "no"},
          {"status recorded", f.statusRecorded}};
}

std::string ClientKey(const ClientFacts& f) { return sim::UpperAscii(f.computer) + "\n" + sim::UpperAscii(f.user); }

// The to-do list before the move: per server, the queues clients need and
// the server lacks (1801), and those whose driver they may not install.
json TodoList(const std::vector<ClientFacts>& clients) {
  std::map<std::string, std::map<std::string, std::map<long, std::set<std::string>>>> servers;
  for (const ClientFacts& f : clients) {
    for (const FailedAdd& a : f.failedAdds) {
      if (a.error != sim::kErrorInvalidPrinterName && a.error != sim::kErrorPrinterDriverDownloadNeeded) continue;
      const std::string& p = a.printer;
      size_t slash = p.size() > 2 && p[0] == '\\' && p[1] == '\\' ? p.find('\\', 2) : std::string::npos;
      std::string server = slash == std::string::npos ? "" : p.substr(0, slash);
      std::string queue = slash == std::string::npos ? p : p.substr(slash + 1);
      servers[sim::UpperAscii(server)][queue][a.error].insert(f.computer + "_" + f.user);
    }
  }
  json list = json::array();
  for (const auto& [server, queues] : servers) {
    json entries = json::array();
    for (const auto& [queue, errors] : queues)
      for (const auto& [error, who] : errors)
        entries.push_back({{"queue", queue},
                           {"error", error},
                           {"meaning", sim::SpoolerErrorMeaning(error)},
                           {"clients", who.size()}});
    list.push_back({{"server", server}, {"queues", entries}});
  }
  return list;
}

extern const char kPage[];

}  // namespace

ordered_json Counts(const Report& r) {
  size_t printersMoved = 0, clientsMoved = 0, atRisk = 0, lost = 0, lostDefaults = 0, stuck = 0, fatal = 0,
         failedAdds = 0;
  for (const ClientFacts& f : r.clients) {
    printersMoved += f.moved.size();
    clientsMoved += f.moved.empty() ? 0 : 1;
    atRisk += f.AtRisk() ? 1 : 0;
    lost += f.lost.size();
    lostDefaults += f.defaultLost ? 1 : 0;
    stuck += f.ended == "stuck" ? 1 : 0;
    fatal += f.ended == "fatal" ? 1 : 0;
    failedAdds += f.failedAdds.size();
  }
  ordered_json counts = ordered_json::object();
  counts["clients"] = r.clients.size();
  counts["printersMoved"] = printersMoved;
  counts["clientsMoved"] = clientsMoved;
  counts["atRisk"] = atRisk;
  counts["failedAdds"] = failedAdds;
  counts["lostPrinters"] = lost;
  counts["lostDefaults"] = lostDefaults;
  counts["stuck"] = stuck;
  counts["fatal"] = fatal;
  counts["skipped"] = r.skipped.size();
  for (auto it = r.extra.begin(); it != r.extra.end(); ++it) counts[it.key()] = it.value();
  if (r.comparison) counts["differing"] = r.comparison->differing;
  return counts;
}

Comparison Compare(const std::vector<ClientFacts>& predicted, const std::vector<ClientFacts>& actual) {
  Comparison c;
  std::map<std::string, const ClientFacts*> byKey;
  for (const ClientFacts& f : predicted) byKey[ClientKey(f)] = &f;
  std::set<std::string> seen;
  for (const ClientFacts& a : actual) {
    auto it = byKey.find(ClientKey(a));
    if (it == byKey.end()) {
      c.notRehearsed.push_back(a.computer + "_" + a.user);
      continue;
    }
    seen.insert(it->first);
    ++c.compared;
    auto p = ComparedFacts(*it->second), q = ComparedFacts(a);
    // A report without the printer section tells only how the run went.
    if (a.run != kRunFull && a.run != kRunDirectoryFailed) p.resize(1), q.resize(1);
    bool differs = false;
    for (size_t i = 0; i < p.size(); ++i) {
      if (p[i].second == q[i].second) continue;
      differs = true;
      c.differences.push_back({a.computer, a.user, p[i].first, p[i].second, q[i].second});
    }
    c.differing += differs ? 1 : 0;
  }
  for (const ClientFacts& f : predicted)
    if (!seen.count(ClientKey(f))) c.notCollected.push_back(f.computer + "_" + f.user);
  return c;
}

std::vector<ClientFacts> ReadFleetJson(const fs::path& folder) {
  fs::path file = folder / "fleet.json";
  std::ifstream in(file, std::ios::binary);
  if (!in) throw UsageError{"'" + file.string() + "' cannot be read"};
  std::vector<ClientFacts> clients;
  try {
    json j = json::parse(in);
    for (const json& c : j.at("clients")) clients.push_back(FactsFromJson(c));
  } catch (const json::exception& e) {
    throw UsageError{"'" + file.string() + "' is no report of zandolin-fleet: " + e.what()};
  }
  return clients;
}

void WriteReport(const Report& r, const fs::path& folder) {
  std::error_code ec;
  fs::create_directories(folder, ec);
  auto write = [&](const char* name, const std::string& text) {
    std::ofstream out(folder / name, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) throw UsageError{"cannot write '" + (folder / name).string() + "'"};
  };

  std::string csv = CsvHeader();
  for (const ClientFacts& f : r.clients) csv += CsvRow(f);
  write("fleet.csv", csv);

  ordered_json doc = ordered_json::object();
  doc["tool"] = "zandolin-fleet";
  doc["version"] = ZANDOLIN_VERSION;
  doc["command"] = r.command;
  doc["subject"] = r.subject;
  doc["counts"] = Counts(r);
  doc["todo"] = TodoList(r.clients);
  json skipped = json::array();
  for (const Skipped& s : r.skipped) skipped.push_back({{"source", s.source}, {"reason", s.reason}});
  doc["skipped"] = skipped;
  if (r.comparison) {
    const Comparison& c = *r.comparison;
    json diffs = json::array();
    for (const Difference& d : c.differences)
      diffs.push_back({{"computer", d.computer},
                       {"user", d.user},
                       {"field", d.field},
                       {"predicted", d.predicted},
                       {"actual", d.actual}});
    doc["comparison"] = {{"rehearsal", c.rehearsal},     {"compared", c.compared},
                         {"differing", c.differing},     {"differences", diffs},
                         {"notRehearsed", c.notRehearsed}, {"notCollected", c.notCollected}};
  }
  // The clients are written one by one, one a line, not held as one
  // document: a collection may hold tens of thousands.
  std::string head = doc.dump(1, ' ', false, json::error_handler_t::replace);
  head.resize(head.size() - 2);   // "\n}"
  std::string jsonText = head + ",\n \"clients\": [";
  std::string pageData = doc.dump(-1, ' ', false, json::error_handler_t::replace);
  pageData.resize(pageData.size() - 1);   // "}"
  pageData += ",\"clients\":[";
  // The page carries the clients' reports as far as they stay a size a
  // browser opens at ease; the rest are in their transcripts.
  size_t budget = kPageReportBudget;
  for (size_t i = 0; i < r.clients.size(); ++i) {
    const ClientFacts& f = r.clients[i];
    json client = ToJson(f);
    jsonText += std::string(i ? "," : "") + "\n" + client.dump(-1, ' ', false, json::error_handler_t::replace);
    if (f.outcomeText.size() <= budget) {
      budget -= f.outcomeText.size();
      client["outcomeText"] = f.outcomeText;
    } else {
      budget = 0;
    }
    pageData += std::string(i ? "," : "") + client.dump(-1, ' ', false, json::error_handler_t::replace);
  }
  write("fleet.json", jsonText + "\n ]\n}\n");
  jsonText.clear();
  jsonText.shrink_to_fit();
  pageData += "]}";

  std::string page = kPage;
  const std::string title = "/*FLEET-TITLE*/";
  const std::string titleText =
      Escape((r.command == "rehearse" ? "Rehearsal of " : "Collected reports of ") + r.subject);
  for (size_t at = page.find(title); at != std::string::npos; at = page.find(title, at + titleText.size()))
    page.replace(at, title.size(), titleText);
  const std::string marker = "/*FLEET-DATA*/";
  page.replace(page.find(marker), marker.size(), ScriptJson(pageData));
  write("index.html", page);
}

namespace {

// The page: counts, the to-do list, the clients (sorted and filtered in the
// page), each client's detail, and predicted against actual. No file or
// script is fetched from anywhere, so it works from a file share.
const char kPage[] = R"PAGE(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<title>/*FLEET-TITLE*/</title>
<style>
body{font:14px/1.4 system-ui,Segoe UI,Arial,sans-serif;margin:0;color:#222;background:#f6f7f9}
header{background:#24364b;color:#fff;padding:12px 20px}
header h1{font-size:18px;margin:0}
header p{margin:2px 0 0;color:#c9d3de;font-size:12px}
main{padding:14px 20px}
.counts{display:flex;flex-wrap:wrap;gap:10px;margin-bottom:16px}
.count{background:#fff;border:1px solid #d8dde3;border-radius:6px;padding:8px 14px;min-width:110px}
.count .n{font-size:24px;font-weight:600}
.count .l{font-size:12px;color:#555}
.count.bad .n{color:#b3261e}
section{background:#fff;border:1px solid #d8dde3;border-radius:6px;padding:10px 14px;margin-bottom:16px}
h2{font-size:15px;margin:0 0 8px}
table{border-collapse:collapse;width:100%}
th,td{text-align:left;padding:4px 8px;border-bottom:1px solid #eceff2;vertical-align:top}
th{background:#eef1f4;cursor:pointer;user-select:none;white-space:nowrap}
th.sorted-up::after{content:" \25B2"}th.sorted-down::after{content:" \25BC"}
tr.client:hover{background:#f0f5fb;cursor:pointer}
tr.risk td:first-child{border-left:4px solid #b3261e}
.tools{display:flex;gap:10px;align-items:center;margin-bottom:8px}
input#filter{flex:1;padding:5px 8px;font-size:14px}
pre{background:#f3f4f6;padding:8px;overflow:auto;max-height:400px;white-space:pre-wrap}
#detail{display:none}
.muted{color:#777}
ul{margin:2px 0 6px 18px;padding:0}
</style></head><body>
<header><h1 id="title">/*FLEET-TITLE*/</h1><p id="made"></p></header>
<main>
<div class="counts" id="counts"></div>
<section id="todo-section"><h2>Before the move: queues the clients need and the servers lack</h2><div id="todo"></div></section>
<section id="comparison-section" style="display:none"><h2>Predicted against actual</h2><div id="comparison"></div></section>
<section><h2>Clients</h2>
<div class="tools"><input id="filter" type="search" placeholder="Filter: any text, or at risk, lost, default lost, failed, stuck, fatal">
<select id="only"><option value="">all clients</option><option value="risk">at risk</option><option value="lost">lost printers</option><option value="default">lost default</option><option value="failed">failed adds</option><option value="moved">moved</option><option value="stuck">stuck</option><option value="fatal">fatal</option><option value="unknown">unknown report lines</option><option value="differs">predicted differs</option></select>
<span id="shown"></span></div>
<table id="clients"><thead><tr></tr></thead><tbody></tbody></table>
</section>
<section id="detail"><h2 id="detail-title"></h2><div id="detail-body"></div></section>
<section id="skipped-section" style="display:none"><h2>Skipped</h2><div id="skipped"></div></section>
</main>
<script id="fleet-data" type="application/json">/*FLEET-DATA*/</script>
<script>
"use strict";
const data = JSON.parse(document.getElementById("fleet-data").textContent);
const esc = s => String(s).replace(/[&<>"]/g, c => ({"&":"&amp;","<":"&lt;",">":"&gt;",'"':"&quot;"}[c]));
const labels = {clients:"Clients", printersMoved:"Printers moved", clientsMoved:"Clients with moves", atRisk:"At risk",
  failedAdds:"Failed adds", lostPrinters:"Lost printers", lostDefaults:"Lost defaults", stuck:"Stuck", fatal:"Fatal",
  skipped:"Skipped", files:"Files read", notOutputFiles:"Not output files", cutReports:"Reports cut short",
  unknownLines:"Unknown report lines", differing:"Predicted differs"};
const bad = new Set(["atRisk","failedAdds","lostPrinters","lostDefaults","stuck","fatal","skipped","notOutputFiles","cutReports","unknownLines","differing"]);
document.getElementById("made").textContent = "zandolin-fleet " + data.version + " \u2014 " + data.command;
document.getElementById("counts").innerHTML = Object.entries(data.counts).map(([k, v]) =>
  `<div class="count${bad.has(k) && v > 0 ? " bad" : ""}" id="count-${k}"><div class="n">${esc(v)}</div><div class="l">${esc(labels[k] || k)}</div></div>`).join("");

const todo = data.todo.filter(s => s.queues.length);
document.getElementById("todo").innerHTML = todo.length ? todo.map(s =>
  `<h3>${esc(s.server || "(no server)")}</h3><table class="todo"><tr><th>Queue</th><th>Clients</th><th>Why</th></tr>` +
  s.queues.map(q => `<tr><td>${esc(q.queue)}</td><td>${q.clients}</td><td>${esc(q.error + ": " + q.meaning)}</td></tr>`).join("") +
  "</table>").join("") : '<p class="muted">Nothing: every queue the clients need is there.</p>';

const differs = new Set();
if (data.comparison) {
  const c = data.comparison;
  for (const d of c.differences) differs.add((d.computer + "\n" + d.user).toUpperCase());
  document.getElementById("comparison-section").style.display = "";
  document.getElementById("comparison").innerHTML =
    `<p>${c.compared} clients compared with the rehearsal in ${esc(c.rehearsal)}; ${c.differing} differ.` +
    (c.notRehearsed.length ? ` Not rehearsed: ${esc(c.notRehearsed.join(", "))}.` : "") +
    (c.notCollected.length ? ` No report collected: ${c.notCollected.length}.` : "") + "</p>" +
    (c.differences.length ? '<table id="differences"><tr><th>Computer</th><th>User</th><th>Fact</th><th>Predicted</th><th>Actual</th></tr>' +
      c.differences.map(d => `<tr><td>${esc(d.computer)}</td><td>${esc(d.user)}</td><td>${esc(d.field)}</td><td>${esc(d.predicted)}</td><td>${esc(d.actual)}</td></tr>`).join("") + "</table>" : "");
}
if (data.skipped.length) {
  document.getElementById("skipped-section").style.display = "";
  document.getElementById("skipped").innerHTML = "<ul>" + data.skipped.map(s => `<li>${esc(s.source)}: ${esc(s.reason)}</li>`).join("") + "</ul>";
}

const columns = [
  ["Computer", c => c.computer], ["User", c => c.user], ["Windows", c => c.generation], ["Run", c => c.run],
  ["Ended", c => c.ended === "fatal" ? "fatal: " + c.endedDetail : c.ended],
  ["Before", c => c.printersBefore.length], ["After", c => c.printersAfter.length], ["Moved", c => c.moved.length],
  ["Failed adds", c => c.failedAdds.length], ["Lost", c => c.lost.length], ["Default lost", c => c.defaultLost ? "yes" : ""],
  ["Status", c => c.statusRecorded], ["Runs again", c => c.runsAgain ? "yes" : ""]];
const clients = data.clients.map((c, i) => Object.assign(c, {index: i,
  text: [c.computer, c.user, c.generation, c.run, c.ended, c.endedDetail, c.statusRecorded, c.source,
         ...c.printersBefore, ...c.printersAfter, ...c.lost, ...c.notes, ...c.unknownLines,
         ...c.failedAdds.map(a => a.printer + " " + a.error + " " + a.meaning),
         ...c.moved.map(m => m.from + " " + m.to), c.atRisk ? "at risk" : "", c.defaultLost ? "default lost" : ""].join("\n").toLowerCase()}));
const only = {risk: c => c.atRisk, lost: c => c.lost.length > 0, default: c => c.defaultLost, failed: c => c.failedAdds.length > 0,
  moved: c => c.moved.length > 0, stuck: c => c.ended === "stuck", fatal: c => c.ended === "fatal",
  unknown: c => c.unknownLines.length > 0, differs: c => differs.has((c.computer + "\n" + c.user).toUpperCase())};
let sortColumn = 0, sortUp = true;
const head = document.querySelector("#clients thead tr");
head.innerHTML = columns.map(([name], i) => `<th data-i="${i}">${esc(name)}</th>`).join("");
head.addEventListener("click", e => {
  const i = +e.target.dataset.i; if (isNaN(i)) return;
  sortUp = sortColumn === i ? !sortUp : true; sortColumn = i; render();
});
const filter = document.getElementById("filter"), select = document.getElementById("only");
function render() {
  const words = filter.value.toLowerCase().split(/\s+/).filter(w => w);
  const pick = only[select.value];
  const key = columns[sortColumn][1];
  const rows = clients.filter(c => (!pick || pick(c)) && words.every(w => c.text.includes(w)));
  rows.sort((a, b) => { const x = key(a), y = key(b);
    const r = typeof x === "number" && typeof y === "number" ? x - y : String(x).localeCompare(String(y));
    return (sortUp ? r : -r) || a.index - b.index; });
  document.querySelector("#clients tbody").innerHTML = rows.map(c =>
    `<tr class="client${c.atRisk ? " risk" : ""}" data-i="${c.index}">` + columns.map(([, f]) => `<td>${esc(f(c))}</td>`).join("") + "</tr>").join("");
  head.querySelectorAll("th").forEach((th, i) => th.className = i === sortColumn ? (sortUp ? "sorted-up" : "sorted-down") : "");
  document.getElementById("shown").textContent = `${rows.length} of ${clients.length} clients shown`;
}
const list = (title, items) => items.length ? `<p><b>${esc(title)}</b></p><ul>${items.map(i => `<li>${esc(i)}</li>`).join("")}</ul>` : "";
document.querySelector("#clients tbody").addEventListener("click", e => {
  const tr = e.target.closest("tr"); if (!tr) return;
  const c = clients[+tr.dataset.i];
  document.getElementById("detail").style.display = "block";
  document.getElementById("detail-title").textContent = c.computer + " \u2014 " + c.user;
  document.getElementById("detail-body").innerHTML =
    `<p>${esc(c.generation)} ${esc(c.run)}${c.ended ? ", ended: " + esc(c.ended) : ""}${c.endedDetail ? " (" + esc(c.endedDetail) + ")" : ""}. ` +
    `Status recorded: ${esc(c.statusRecorded || "nothing")}; ${c.runsAgain ? "runs again at the next logon" : "does not run again"}.</p>` +
    `<p>Default printer: ${esc(c.defaultBefore || "none")} \u2192 ${esc(c.defaultAfter || "none")}${c.defaultLost ? " <b>(lost)</b>" : ""}</p>` +
    list("Printers before", c.printersBefore) + list("Printers after", c.printersAfter) +
    list("Moved", c.moved.map(m => m.from + " \u2192 " + m.to)) +
    list("Failed adds", c.failedAdds.map(a => `${a.printer}: error ${a.error}${a.meaning ? " (" + a.meaning + ")" : ""}`)) +
    list("Lost", c.lost) + list("Untouched", c.untouched) +
    list("Notifications", [c.mailTo && "mail to " + c.mailTo, c.outputFile && "output file " + c.outputFile,
      c.eventLog && "event log entry, " + c.eventLog, ...c.messageBoxes.map(b => "message box " + b)].filter(x => x)) +
    list("Notes", c.notes) + list("Report lines not understood", c.unknownLines) +
    `<p><b>Report</b> <span class="muted">${esc(c.source)}${c.transcript ? ` \u2014 <a href="${esc(c.transcript)}">transcript</a>` : ""}</span></p>` +
    (c.outcomeText !== undefined ? `<pre>${esc(c.outcomeText)}</pre>` : '<p class="muted">Not on this page, to keep it small: see the transcript or the output file.</p>');
  document.getElementById("detail").scrollIntoView();
});
filter.addEventListener("input", render);
select.addEventListener("change", render);
render();
</script>
</body></html>
)PAGE";

}  // namespace

}  // namespace fleet
