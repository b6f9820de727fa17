// zandolin-sim as a program: its command line, exit status, report and
// transcript, run as a subprocess.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string Slurp(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

struct Result {
  int status = -1;
  std::string out, err;
};

class ZandolinSimTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "zandolin-cli-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    work = pattern;
    client = work / "client";
    fs::create_directories(client);
  }
  void TearDown() override { fs::remove_all(work); }

  Result Sim(const std::vector<std::string>& args) {
    std::string command = Quote(ZANDOLIN_SIM_EXE);
    for (const std::string& a : args) command += " " + Quote(a);
    command += " >" + Quote((work / "out").string()) + " 2>" + Quote((work / "err").string());
    int raw = std::system(command.c_str());
    Result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = Slurp(work / "out");
    r.err = Slurp(work / "err");
    return r;
  }

  void WriteClientFile(const std::string& relative, const std::string& content) {
    fs::path file = client / relative;
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << content;
  }

  // Every file below a folder and its content.
  static std::map<std::string, std::string> Snapshot(const fs::path& dir) {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(dir))
      if (e.is_regular_file()) files[fs::relative(e.path(), dir).string()] = Slurp(e.path());
    return files;
  }

  fs::path work, client;
};

const char kNoIniBox[] = "Unable to find INI file. Please check your deployment and try again.";

TEST_F(ZandolinSimTest, Json_MachineWithoutIni_EndsReturnedWithTheEnginesBox) {
  WriteClientFile("machine.json", R"({"clock": "2026-11-21T14:05:09"})");
  Result r = Sim({client.string(), "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  json t = json::parse(r.out);
  EXPECT_EQ(t["ended"], "returned");
  EXPECT_EQ(t["fatal"], nullptr);
  EXPECT_EQ(t["stuckIn"], nullptr);
  EXPECT_EQ(t["messageBoxes"], (json{{{"title", "Error"}, {"text", kNoIniBox}, {"style", 16}}}));
  EXPECT_EQ(t["printersBefore"], json::array());
  EXPECT_EQ(t["printersAfter"], json::array());
  EXPECT_EQ(t["defaultBefore"], nullptr);
  EXPECT_EQ(t["defaultAfter"], nullptr);
  EXPECT_EQ(t["sockets"], json::array());
  EXPECT_EQ(t["progress"]["shown"], false);
  EXPECT_EQ(t["filesWritten"], (json{"C:\\Deploy\\PC042.debug"}));
  EXPECT_TRUE(fs::is_regular_file(client / "files" / "C" / "Deploy" / "PC042.debug"));
  // The fields in the order of the transcript's description.
  std::vector<std::string> keys;
  nlohmann::ordered_json ordered = nlohmann::ordered_json::parse(r.out);
  for (auto it = ordered.begin(); it != ordered.end(); ++it) keys.push_back(it.key());
  EXPECT_EQ(keys, (std::vector<std::string>{"ended", "fatal", "stuckIn", "messageBoxes", "progress",
                                            "printersBefore", "printersAfter", "defaultBefore",
                                            "defaultAfter", "spoolerCalls", "eventLogWritten", "sockets",
                                            "filesWritten", "outcomeText", "debugBuffer", "stuckReason",
                                            "runStatus", "client", "directoryQueries", "eventLogRefused"}));
  // What the run was served with: the defaults.
  EXPECT_EQ(t["client"], json::parse(R"({"isAdmin": true,
      "pointAndPrint": {"RestrictDriverInstallationToAdministrators": 1},
      "smtp": "network", "directorySizeLimit": null})"));
  EXPECT_EQ(t["runStatus"], nullptr);
  EXPECT_EQ(t["stuckReason"], nullptr);
  EXPECT_FALSE(t.contains("calls"));
  EXPECT_EQ(t["debugBuffer"].get<std::string>().substr(0, 82), std::string(80, '*') + "\r\n");
}

TEST_F(ZandolinSimTest, Json_CommandLine_ReachesTheEngineUntouched) {
  WriteClientFile("files/C/Deploy/readme.txt", "");
  Result r = Sim({client.string(), "--json", "--cmdline", "\"C:\\Deploy\\none.ini\" "});
  ASSERT_EQ(r.status, 0) << r.err;
  json t = json::parse(r.out);
  const std::string debug = t["debugBuffer"];
  EXPECT_NE(debug.find(">> Command line parameter: \"C:\\Deploy\\none.ini\" \r\n"), std::string::npos) << debug;
}

TEST_F(ZandolinSimTest, Json_FatalStop_IsReportedWithNumberAndDescription) {
  WriteClientFile("files/C/Deploy/a.ini", "[DEPLOYMENT]\r\nMDACOption=40000\r\n");
  Result r = Sim({client.string(), "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  json t = json::parse(r.out);
  EXPECT_EQ(t["ended"], "fatal");
  EXPECT_EQ(t["fatal"], (json{{"number", 6}, {"description", "Overflow"}}));
  EXPECT_EQ(t["stuckIn"], nullptr);
  // A run that dies leaves no debug file.
  EXPECT_EQ(t["filesWritten"], json::array());
}

TEST_F(ZandolinSimTest, Json_LimitReached_EndsStuckWithWhatWasWritten) {
  fs::copy(fs::path(ZANDOLIN_SOURCE_DIR) / "examples" / "basic", client, fs::copy_options::recursive);
  Result r = Sim({client.string(), "--json", "--limit", "0"});
  ASSERT_EQ(r.status, 0) << r.err;
  json t = json::parse(r.out);
  EXPECT_EQ(t["ended"], "stuck");
  EXPECT_EQ(t["fatal"], nullptr);
  EXPECT_EQ(t["stuckIn"], "forms still loaded: 1");
  EXPECT_EQ(t["progress"]["labels"], (json{"Zandolin starting ..."}));
  EXPECT_EQ(t["debugBuffer"].get<std::string>().substr(0, 82), std::string(80, '*') + "\r\n");
}

TEST_F(ZandolinSimTest, Json_TextThatIsNotUtf8_StillGivesValidJson) {
  WriteClientFile("files/C/Deploy/caf\xE9.ini", "");
  Result r = Sim({client.string(), "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  json t = json::parse(r.out);
  const std::string debug = t["debugBuffer"];
  EXPECT_NE(debug.find(">> First found INI file : caf\xEF\xBF\xBD.ini\r\n"), std::string::npos) << debug;
}

TEST_F(ZandolinSimTest, Run_SavesTheMachineBack_DryRunLeavesTheFolderAlone) {
  WriteClientFile("machine.json", R"({"clock": "2026-11-21T14:05:09"})");
  auto before = Snapshot(client);
  Result dry = Sim({client.string(), "--dry-run", "--json"});
  ASSERT_EQ(dry.status, 0) << dry.err;
  EXPECT_EQ(json::parse(dry.out)["filesWritten"], (json{"C:\\Deploy\\PC042.debug"}));
  EXPECT_EQ(Snapshot(client), before);

  Result real = Sim({client.string()});
  ASSERT_EQ(real.status, 0) << real.err;
  EXPECT_TRUE(fs::is_regular_file(client / "files" / "C" / "Deploy" / "PC042.debug"));
  json saved = json::parse(Slurp(client / "machine.json"));
  EXPECT_EQ(saved["clock"], "2026-11-21T14:05:09");
  EXPECT_EQ(saved["computerName"], "PC042");
}

TEST_F(ZandolinSimTest, Report_WritesTheTranscriptToTheFile) {
  fs::path report = work / "transcript.json";
  Result r = Sim({client.string(), "--report", report.string(), "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(json::parse(Slurp(report)), json::parse(r.out));
  Result readable = Sim({client.string(), "--report", report.string()});
  ASSERT_EQ(readable.status, 0) << readable.err;
  EXPECT_EQ(json::parse(Slurp(report))["messageBoxes"][0]["text"], kNoIniBox);
}

TEST_F(ZandolinSimTest, ReadableReport_ShowsTheRunInOrder) {
  WriteClientFile("machine.json", R"({"printers": [{"name": "\\\\OLD\\laser", "serverName": "\\\\OLD", "shareName": "laser"}]})");
  Result r = Sim({client.string()});
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> heads = {"User: an administrator", "Run ended: returned",
                                    "  The engine finished and the process ended.", "Run status recorded: nothing",
                                    "Message boxes:", "  [Error] (style 16: an OK button, a critical (stop) icon)",
                                    std::string("    ") + kNoIniBox, "Printers before:",
                                    "  \\\\OLD\\laser  (network: server \\\\OLD, share laser)",
                                    "Default printer before: (none)", "Printers after:",
                                    "Default printer after: (none)", "Outcome text:",
                                    "Event log entries written: none", "Files written or changed:",
                                    "  C:\\Deploy\\PC042.debug", "Debug file: C:\\Deploy\\PC042.debug ("};
  size_t at = 0;
  for (const std::string& head : heads) {
    size_t found = r.out.find(head, at);
    ASSERT_NE(found, std::string::npos) << "missing or out of order: " << head << "\n" << r.out;
    at = found + head.size();
  }
}

TEST_F(ZandolinSimTest, UsageErrors_ExitWith2AndSayWhy) {
  Result unknown = Sim({client.string(), "--jsn"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.err.substr(0, unknown.err.find('\n')), "zandolin-sim: unknown option '--jsn'");
  Result limit = Sim({client.string(), "--limit", "soon"});
  EXPECT_EQ(limit.status, 2);
  EXPECT_EQ(limit.err.substr(0, limit.err.find('\n')),
            "zandolin-sim: --limit: expected a number of seconds, not 'soon'");
  Result missingValue = Sim({client.string(), "--cmdline"});
  EXPECT_EQ(missingValue.status, 2);
  EXPECT_EQ(missingValue.err.substr(0, missingValue.err.find('\n')),
            "zandolin-sim: --cmdline needs the command line text");
  Result two = Sim({client.string(), client.string()});
  EXPECT_EQ(two.status, 2);
  Result noFolder = Sim({(work / "nothing").string()});
  EXPECT_EQ(noFolder.status, 2);
  EXPECT_EQ(noFolder.err, "zandolin-sim: MACHINE_DIR '" + (work / "nothing").string() + "' is not a folder\n");
  EXPECT_EQ(noFolder.out, "");
}

TEST_F(ZandolinSimTest, BadMachineJson_ExitsWith2NamingFileAndPlace) {
  WriteClientFile("machine.json", "{\n  \"os\": {\"platformId\": \"2\"}\n}\n");
  Result field = Sim({client.string(), "--json"});
  EXPECT_EQ(field.status, 2);
  EXPECT_EQ(field.err, "zandolin-sim: " + (client / "machine.json").string() +
                           ": field 'os.platformId': expected an integer\n");
  EXPECT_EQ(field.out, "");

  WriteClientFile("machine.json", "{\n  \"os\": {\"platformId\": 2,}\n}\n");
  Result syntax = Sim({client.string(), "--dry-run"});
  EXPECT_EQ(syntax.status, 2);
  EXPECT_EQ(syntax.err, "zandolin-sim: " + (client / "machine.json").string() +
                            ": line 2, column 26: invalid JSON: syntax error while parsing object key - "
                            "unexpected '}'; expected string literal\n");
}

TEST_F(ZandolinSimTest, NoFolder_RunsOnACopyOfTheBundledExample) {
  auto example = Snapshot(fs::path(ZANDOLIN_SOURCE_DIR) / "examples" / "basic");
  Result r = Sim({"--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  json t = json::parse(r.out);
  EXPECT_EQ(t["ended"], "returned");
  EXPECT_EQ(t["messageBoxes"], json::array());
  EXPECT_EQ(t["printersBefore"].size(), 3u);
  EXPECT_EQ(t["defaultBefore"], "\\\\OLD\\laser");
  // Where the copy is, on standard error beside the JSON.
  const std::string prefix = "zandolin-sim: Running on a copy of the bundled example client, in ";
  ASSERT_EQ(r.err.substr(0, prefix.size()), prefix) << r.err;
  fs::path copy = r.err.substr(prefix.size(), r.err.size() - prefix.size() - 2);
  EXPECT_TRUE(fs::is_regular_file(copy / "files" / "C" / "Deploy" / "PC042.debug"));
  EXPECT_EQ(Snapshot(fs::path(ZANDOLIN_SOURCE_DIR) / "examples" / "basic"), example);
  fs::remove_all(copy);
}

}  // namespace
