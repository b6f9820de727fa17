// The administrator's documentation kept true: the INI reference's key table
// against the keys the engine's reader reads, and the machine.json reference
// against the fields the simulator's reader accepts, both ways.
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "platform/Platform.h"
#include "platform/sim/SimMachine.h"
#include "platform/sim/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string ReadText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

fs::path Docs() { return fs::path(ZANDOLIN_SOURCE_DIR) / "docs"; }

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// A cell without the backticks around a name.
std::string Plain(const std::string& cell) {
  std::string text = Trim(cell);
  if (text.size() >= 2 && text.front() == '`' && text.back() == '`')
    text = text.substr(1, text.size() - 2);
  return text;
}

// One Markdown table: the header's cells and each row's cells.
struct Table {
  std::vector<std::string> header;
  std::vector<std::vector<std::string>> rows;
};

std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  std::string cell;
  for (size_t i = 1; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|') {
      cell += '|';
      ++i;
    } else if (line[i] == '|') {
      cells.push_back(Trim(cell));
      cell.clear();
    } else {
      cell += line[i];
    }
  }
  return cells;
}

// Every table of a Markdown text, fenced code blocks left out.
std::vector<Table> Tables(const std::string& text) {
  std::vector<Table> tables;
  std::istringstream in(text);
  std::string line;
  bool inFence = false, inTable = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.rfind("```", 0) == 0) inFence = !inFence;
    if (inFence || line.empty() || line[0] != '|') {
      inTable = false;
      continue;
    }
    if (!inTable) {
      tables.push_back({Cells(line), {}});
      inTable = true;
    } else if (line.find_first_not_of("|-: ") != std::string::npos) {
      tables.back().rows.push_back(Cells(line));
    }
  }
  return tables;
}

// ----- the INI reference -----

struct IniKey {
  std::string section, key, kind;
  bool operator==(const IniKey& o) const {
    return section == o.section && key == o.key && kind == o.kind;
  }
};

std::ostream& operator<<(std::ostream& out, const IniKey& k) {
  return out << "[" << k.section << "] " << k.key << " (" << k.kind << ")";
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The rows of the key table (header Section | Key | Kind | ...), in order.
std::vector<IniKey> DocumentedIniKeys() {
  std::vector<IniKey> keys;
  for (const Table& table : Tables(ReadText(Docs() / "ini-reference.md"))) {
    if (table.header.size() < 3 || table.header[0] != "Section" || table.header[1] != "Key" ||
        table.header[2] != "Kind")
      continue;
    for (const auto& row : table.rows)
      keys.push_back({Plain(row.at(0)), Plain(row.at(1)), Lower(Plain(row.at(2)))});
  }
  return keys;
}

// The profile service during a load: answers every key by a rule and
// records each call with its buffer size, which tells the reader used.
class ProbeProfile : public platform::Profile {
 public:
  struct Call {
    std::string section, key;
    DWORD size;
  };
  ProbeProfile(platform::Profile* inner, platform::System* system)
      : inner_(inner), system_(system) {}

  DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR, LPSTR buffer, DWORD size,
                                 LPCSTR) override {
    calls.push_back({section, key, size});
    std::string value = answer(calls.back());
    if (value.size() >= size) value.resize(size - 1);
    std::memcpy(buffer, value.c_str(), value.size() + 1);
    system_->SetLastError(0);
    return static_cast<DWORD>(value.size());
  }
  DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                          DWORD size) override {
    return inner_->GetProfileStringA(section, key, defaultValue, buffer, size);
  }
  BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) override {
    return inner_->WriteProfileStringA(section, key, value);
  }

  std::vector<Call> calls;
  std::function<std::string(const Call&)> answer;

 private:
  platform::Profile* inner_;
  platform::System* system_;
};

constexpr DWORD kStringReader = 1000, kScalarReader = 100, kListReader = 10000;

class docsTest : public SimFixture {
 protected:
  void TearDown() override {
    if (saved_) platform::SetServices(*saved_);
    SimFixture::TearDown();
  }

  // Installs a client whose profile service is the probe.
  ProbeProfile& InstallProbe() {
    Install();
    saved_ = platform::Services();
    platform::ServiceSet services = *saved_;
    probe_ = std::make_unique<ProbeProfile>(services.profile, services.system);
    services.profile = probe_.get();
    platform::SetServices(services);
    return *probe_;
  }

  // One load as Main does it, from a fresh process state.
  void Load() {
    ResetProcessState();
    INIFilePath = "C:\\Deploy\\probe.ini";
    INIDocument.DebugOn = true;
    probe_->calls.clear();
    LoadINIDocument();
  }

 private:
  std::optional<platform::ServiceSet> saved_;
  std::unique_ptr<ProbeProfile> probe_;
};

TEST_F(docsTest, IniReference_KeyTable_IsEveryKeyTheReaderReadsInItsOrderAndKind) {
  ProbeProfile& probe = InstallProbe();
  // A load that reads every key: every scalar True (an integer reads it as
  // 0), every string and list empty.
  probe.answer = [](const ProbeProfile::Call& c) {
    return c.size == kScalarReader ? std::string("True") : std::string();
  };
  Load();
  ASSERT_FALSE(INIReadError);
  const std::vector<ProbeProfile::Call> read = probe.calls;

  std::vector<IniKey> reader;
  for (const ProbeProfile::Call& call : read) {
    IniKey key{call.section, call.key, ""};
    if (call.size == kStringReader) {
      key.kind = "string";
    } else if (call.size == kListReader) {
      key.kind = "list";
    } else if (call.size == kScalarReader) {
      // A Boolean is mandatory: absent, it fails the load. An integer reads
      // an absent key as 0, and a number beyond 16 bits stops the process.
      auto only = [&](const std::string& value) {
        return [&, value](const ProbeProfile::Call& c) {
          if (c.section == call.section && c.key == call.key) return value;
          return c.size == kScalarReader ? std::string("True") : std::string();
        };
      };
      probe.answer = only("");
      Load();
      if (INIReadError) {
        key.kind = "boolean";
      } else {
        probe.answer = only("40000");
        try {
          Load();
        } catch (const FatalError& e) {
          if (e.Number == kErrOverflow) key.kind = "integer";
        }
      }
      EXPECT_FALSE(key.kind.empty()) << key << ": neither a Boolean nor an integer";
    } else {
      ADD_FAILURE() << key << ": read with a buffer of " << call.size;
    }
    reader.push_back(key);
  }

  const std::vector<IniKey> documented = DocumentedIniKeys();
  auto has = [](const std::vector<IniKey>& keys, const IniKey& k) {
    return std::find(keys.begin(), keys.end(), k) != keys.end();
  };
  for (const IniKey& k : reader)
    EXPECT_TRUE(has(documented, k)) << "the engine reads " << k
                                    << ", the INI reference's key table lacks it";
  for (const IniKey& k : documented)
    EXPECT_TRUE(has(reader, k)) << "the INI reference's key table has " << k
                                << ", which the engine does not read so";
  EXPECT_EQ(documented, reader) << "the table is not in the order the engine reads";

  const long booleans = std::count_if(reader.begin(), reader.end(),
                                      [](const IniKey& k) { return k.kind == "boolean"; });
  EXPECT_NE(ReadText(Docs() / "ini-reference.md").find("all " + std::to_string(booleans) + " of them"),
            std::string::npos)
      << "the reference should say that all " << booleans << " Boolean keys are mandatory";
}

// ----- the simulated client -----

// Where a field's path runs through a map of free names or an array, the
// page writes <server>, <key>, <value> and []; these are the names the test
// gives them.
const std::map<std::string, std::string> kPlaceholders = {
    {"<server>", "S"}, {"<key>", "HKEY_CURRENT_USER\\Software\\Probe"}, {"<value>", "V"}};

// What an object at a level must hold to be read at all.
json MinimalObject(const std::string& level) {
  if (level == "printers[]") return {{"name", "p"}};
  if (level == "faults[]") return {{"call", "DeletePrinter"}};
  if (level == "printServers.<server>.queues[]") return {{"name", "q"}};
  if (level == "smtp") return {{"refuse", 1}};
  if (level == "registry.<key>.<value>" || level == "pointAndPrint.<value>") return {{"type", 4}};
  return json::object();
}

std::vector<std::string> PathParts(const std::string& path) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream in(path);
  while (std::getline(in, part, '.')) parts.push_back(part);
  return parts;
}

// A machine with the containers on the way to path, each as small as the
// reader accepts, and value at path.
json MachineWith(const std::string& path, const std::optional<json>& value) {
  json machine = json::object();
  json* at = &machine;
  std::string level;
  const std::vector<std::string> parts = PathParts(path);
  for (size_t i = 0; i < parts.size(); ++i) {
    std::string name = parts[i];
    const bool element = name.size() > 2 && name.compare(name.size() - 2, 2, "[]") == 0;
    level += (level.empty() ? "" : ".") + name;
    if (element) name.resize(name.size() - 2);
    if (kPlaceholders.count(name)) name = kPlaceholders.at(name);
    const bool last = i + 1 == parts.size();
    if (last && !element) {
      if (value) (*at)[name] = *value;
      break;
    }
    if (element) {
      if (!at->contains(name)) (*at)[name] = json::array({MinimalObject(level)});
      at = &(*at)[name][0];
      if (last && value) *at = *value;
    } else {
      if (!at->contains(name)) (*at)[name] = MinimalObject(level);
      at = &(*at)[name];
    }
  }
  return machine;
}

// The value at path in a written machine.json; nothing where the path does
// not lead.
std::optional<json> ValueAt(const json& machine, const std::string& path) {
  const json* at = &machine;
  for (std::string name : PathParts(path)) {
    const bool element = name.size() > 2 && name.compare(name.size() - 2, 2, "[]") == 0;
    if (element) name.resize(name.size() - 2);
    if (kPlaceholders.count(name)) name = kPlaceholders.at(name);
    if (!at->is_object() || !at->contains(name)) return std::nullopt;
    at = &(*at)[name];
    if (element) {
      if (!at->is_array() || at->empty()) return std::nullopt;
      at = &(*at)[0];
    }
  }
  return *at;
}

class SimulatedClientDoc : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "zandolin-docs-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir = pattern;
    fs::create_directories(dir / "in");
    fs::create_directories(dir / "out");
  }
  void TearDown() override { fs::remove_all(dir); }

  // Loads machine with the simulator's reader: the error message, or
  // nothing when it was accepted.
  std::optional<std::string> Refusal(const json& machine) {
    std::ofstream(dir / "in" / "machine.json", std::ios::trunc) << machine.dump(2);
    try {
      sim::LoadMachine(dir / "in");
    } catch (const sim::MachineError& e) {
      return e.message;
    }
    return std::nullopt;
  }

  // The machine.json the simulator writes after reading machine.
  json Written(const json& machine) {
    std::ofstream(dir / "in" / "machine.json", std::ios::trunc) << machine.dump(2);
    sim::SaveMachine(dir / "out", sim::LoadMachine(dir / "in"));
    return json::parse(ReadText(dir / "out" / "machine.json"));
  }

  fs::path dir;
};

// Every field of the page's field tables (header Field | Default | Example
// | ...), by its path.
struct DocumentedField {
  std::string path, defaultCell, exampleCell;
};

std::vector<DocumentedField> DocumentedFields() {
  std::vector<DocumentedField> fields;
  for (const Table& table : Tables(ReadText(Docs() / "simulated-client.md"))) {
    if (table.header.size() < 3 || table.header[0] != "Field" || table.header[1] != "Default" ||
        table.header[2] != "Example")
      continue;
    for (const auto& row : table.rows) fields.push_back({Plain(row.at(0)), row.at(1), row.at(2)});
  }
  return fields;
}

// A cell that is one JSON value in backticks.
std::optional<json> JsonCell(const std::string& cell) {
  const std::string text = Trim(cell);
  if (text.size() < 2 || text.front() != '`' || text.back() != '`') return std::nullopt;
  try {
    return json::parse(text.substr(1, text.size() - 2));
  } catch (const json::parse_error&) {
    return std::nullopt;
  }
}

TEST_F(SimulatedClientDoc, FieldTables_AreEveryFieldTheSimulatorReads) {
  // The reader names the fields an object may hold when it meets one it
  // does not know; ask it at every level of machine.json.
  const std::vector<std::string> levels = {
      "",          "os",       "user",
      "printers[]", "printServers.<server>", "printServers.<server>.queues[]",
      "directory", "directory.printQueues[]", "directory.queryError",
      "eventLog[]", "faults[]", "capture",
      "smtp",      "registry.<key>.<value>", "pointAndPrint.<value>"};
  std::set<std::string> reader;
  for (const std::string& level : levels) {
    const std::string probe = level.empty() ? "zzProbe" : level + ".zzProbe";
    const std::optional<std::string> refusal = Refusal(MachineWith(probe, json(0)));
    ASSERT_TRUE(refusal) << "the reader accepted an unknown field " << probe;
    const std::string marker = "expected one of: ";
    const size_t from = refusal->find(marker);
    ASSERT_NE(from, std::string::npos) << *refusal;
    std::string list = refusal->substr(from + marker.size());
    list = list.substr(0, list.find(')'));
    std::istringstream names(list);
    std::string name;
    while (std::getline(names, name, ','))
      reader.insert(level.empty() ? Trim(name) : level + "." + Trim(name));
  }

  std::set<std::string> documented;
  for (const DocumentedField& f : DocumentedFields()) {
    EXPECT_TRUE(documented.insert(f.path).second) << f.path << " is documented twice";
  }
  for (const std::string& f : reader)
    EXPECT_TRUE(documented.count(f)) << "the simulator reads " << f
                                     << "; docs/simulated-client.md does not document it";
  for (const std::string& f : documented)
    EXPECT_TRUE(reader.count(f)) << "docs/simulated-client.md documents " << f
                                 << ", which the simulator does not read";
}

TEST_F(SimulatedClientDoc, Defaults_AreWhatTheSimulatorTakesForAnAbsentField) {
  int checked = 0;
  for (const DocumentedField& f : DocumentedFields()) {
    const json written = Written(MachineWith(f.path, std::nullopt));
    const std::optional<json> actual = ValueAt(written, f.path);
    if (const std::optional<json> expected = JsonCell(f.defaultCell)) {
      ASSERT_TRUE(actual) << f.path << ": documented default " << *expected
                          << ", the simulator writes nothing";
      EXPECT_EQ(*expected, *actual) << f.path;
      ++checked;
    } else if (Trim(f.defaultCell).rfind("absent", 0) == 0) {
      EXPECT_FALSE(actual) << f.path << ": documented as absent, the simulator writes " << *actual;
      ++checked;
    }
  }
  EXPECT_GT(checked, 50);
}

TEST_F(SimulatedClientDoc, Examples_AreAcceptedAndWrittenBackUnchanged) {
  int roundTrips = 0;
  for (const DocumentedField& f : DocumentedFields()) {
    const std::optional<json> example = JsonCell(f.exampleCell);
    ASSERT_TRUE(example) << f.path << ": the example is not one JSON value in backticks: "
                         << f.exampleCell;
    const json machine = MachineWith(f.path, example);
    const std::optional<std::string> refusal = Refusal(machine);
    EXPECT_FALSE(refusal) << f.path << ": the simulator refuses the example: " << *refusal;
    if (refusal) continue;
    // Where the simulator writes the field back in this form, it is the
    // example unchanged.
    if (const std::optional<json> back = ValueAt(Written(machine), f.path)) {
      EXPECT_EQ(*example, *back) << f.path;
      ++roundTrips;
    }
  }
  EXPECT_GT(roundTrips, 50);
}

}  // namespace
