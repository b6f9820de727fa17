// zandolin-sim as a program: its command line, exit status, report and
// transcript, run as a subprocess.
#include "Version.h"
#include "tests/IniFileBuilder.h"
#include "tests/servers/smtp/SmtpPeer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/IniFileBuilder.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <unistd.h>
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
                                            "filesWritten", "outcomeText", "debugBuffer"}));
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
  // The name is no UTF-8: its stray byte is U+FFFD, which code page 1252 lacks.
  EXPECT_NE(debug.find(">> First found INI file : caf?.ini\r\n"), std::string::npos) << debug;
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
  std::vector<std::string> heads = {"Run ended: returned", "Message boxes:", "  [Error] (style 16)",
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

TEST_F(ZandolinSimTest, Version_PrintsTheProjectVersionOnStandardOutput) {
  Result r = Sim({"--version"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::string("zandolin-sim ") + ZANDOLIN_VERSION + "\n");
  EXPECT_EQ(r.err, "");
}

TEST_F(ZandolinSimTest, Help_PrintsTheUsageOnStandardOutputAndRunsNothing) {
  Result r = Sim({client.string(), "--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.substr(0, r.out.find('\n')),
            "usage: zandolin-sim [MACHINE_DIR] [--cmdline TEXT] [--json] [--report FILE]");
  EXPECT_NE(r.out.find("\n  --version          print the version\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.err, "");
  EXPECT_TRUE(fs::is_empty(client));
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

TEST_F(ZandolinSimTest, BadMachineJson_NumberBeyondADoubleOrFieldTwice_ExitsWith2) {
  WriteClientFile("machine.json", "{\n  \"printers\": [],\n  \"timerIntervalMs\": 1e400\n}\n");
  Result number = Sim({client.string(), "--json"});
  EXPECT_EQ(number.status, 2);
  EXPECT_EQ(number.err, "zandolin-sim: " + (client / "machine.json").string() +
                            ": line 3, column 22: the number 1e400 is beyond the range of a double (expected a "
                            "number from -1.7976931348623157e308 to 1.7976931348623157e308)\n");
  EXPECT_EQ(number.out, "");

  WriteClientFile("machine.json", R"({"userName": "a", "userName": "b"})");
  Result twice = Sim({client.string()});
  EXPECT_EQ(twice.status, 2);
  EXPECT_EQ(twice.err, "zandolin-sim: " + (client / "machine.json").string() +
                           ": field 'userName': stands twice in its object (expected each field once)\n");
  EXPECT_EQ(twice.out, "");
}

TEST_F(ZandolinSimTest, Report_FolderWithoutMachineJson_SaysTheDefaultsWereUsed) {
  WriteClientFile("files/C/Deploy/readme.txt", "");
  Result r = Sim({client.string(), "--dry-run"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, r.out.find("\n\n")),
            "Simulated client: " + client.string() + "\nDry run: the run worked on a copy; " + client.string() +
                " is unchanged.\nNo machine.json in the client folder: the run used the default of every field.");
  WriteClientFile("machine.json", "{}");
  Result given = Sim({client.string(), "--dry-run"});
  ASSERT_EQ(given.status, 0) << given.err;
  EXPECT_EQ(given.out.find("No machine.json"), std::string::npos) << given.out;
}

TEST_F(ZandolinSimTest, Report_CodePageOtherThanTheDefault_IsNamed) {
  const std::string head = "Simulated client: " + client.string() + "\nDry run: the run worked on a copy; " +
                           client.string() + " is unchanged.";
  WriteClientFile("machine.json", R"({"os": {"ansiCodePage": 932}})");
  Result japanese = Sim({client.string(), "--dry-run"});
  ASSERT_EQ(japanese.status, 0) << japanese.err;
  EXPECT_EQ(japanese.out.substr(0, japanese.out.find("\n\n")),
            head + "\nANSI code page: 932 (the engine's text is in it).");
  WriteClientFile("machine.json", R"({"os": {"ansiCodePage": 1252}})");
  Result western = Sim({client.string(), "--dry-run"});
  ASSERT_EQ(western.status, 0) << western.err;
  EXPECT_EQ(western.out.substr(0, western.out.find("\n\n")), head);
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

// --------------------------------------------------------------- code page

// A client with the printers \\OLD\Drücker and \\OLD\日本, both of which the
// INI file moves to NEW, reporting by e-mail to a real server and to a file.
class CodePageScenario : public ZandolinSimTest {
 protected:
  struct Outcome {
    json transcript;
    std::string wire;        // the message as the server received it, a byte a character
    std::string file;        // the report file's bytes
    std::string debugLog;    // the debug file as zandolin-debug reads it (UTF-8)
  };

  Outcome RunOn(const json& os) {
    auto server = smtppeer::Peer::Server();
    json machine = json::parse(R"({"clock": "2026-11-21T14:05:09", "timerIntervalMs": 5,
        "printers": [{"name": "\\\\OLD\\Drücker", "serverName": "\\\\OLD", "shareName": "Drücker"},
                     {"name": "\\\\OLD\\日本", "serverName": "\\\\OLD", "shareName": "日本"}],
        "printServers": {"NEW": {"queues": ["Drücker", "日本"]}}})");
    if (!os.is_null()) machine["os"] = os;
    WriteClientFile("machine.json", machine.dump());
    testini::IniFile ini = testini::ValidIni();
    ini.Set("GENERAL", "UseManualDefinitions", "True")
        .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
        .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
        .Set("NOTIFICATION SMTP", "UseSMTP", "True")
        .Set("NOTIFICATION SMTP", "SMTPServerNameOrIP", "127.0.0.1")
        .Set("NOTIFICATION SMTP", "ServerPort", server->Port())
        .Set("NOTIFICATION SMTP", "EmailSubject", "Report")
        .Set("NOTIFICATION SMTP", "EmailTo", "admin@corp.test")
        .Set("NOTIFICATION SMTP", "EmailFrom", "zandolin@corp.test")
        .Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
        .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "C:\\Reports")
        .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "report.txt")
        .Set("NOTIFICATION FILE OUTPUT", "IncludeOutcome", "True");
    WriteClientFile("files/C/Deploy/migration.ini", ini.Text());
    fs::create_directories(client / "files" / "C" / "Reports");
    Result r = Sim({client.string(), "--json"});
    EXPECT_EQ(r.status, 0) << r.err;
    Outcome o;
    o.transcript = json::parse(r.out);
    o.wire = server->Record()["data"].get<std::string>();
    o.file = Slurp(client / "files" / "C" / "Reports" / "SUCCESS_report.txt");
    std::string command = Quote(ZANDOLIN_DEBUG_EXE) + " " +
                          Quote((client / "files" / "C" / "Deploy" / "PC042.debug").string()) + " >" +
                          Quote((work / "debug.txt").string()) + " 2>/dev/null";
    EXPECT_EQ(0, std::system(command.c_str()));
    o.debugLog = Slurp(work / "debug.txt");
    return o;
  }

  static bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
};

TEST_F(CodePageScenario, Cp1252Default_DruckerMovesAndGoesOnTheWireAsFC_JapaneseNameIsLost) {
  Outcome o = RunOn(nullptr);
  EXPECT_EQ(o.transcript["spoolerCalls"], json::parse(R"([
      {"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\Drücker"], "result": 1, "lastError": 0},
      {"call": "DeletePrinterConnectionA", "args": ["\\\\OLD\\Drücker"], "result": 1, "lastError": 0}])"));
  const std::string outcome = o.transcript["outcomeText"];
  EXPECT_TRUE(Has(outcome, "\r\nError getting handle to printer: \\\\OLD\\??\r\n")) << outcome;
  EXPECT_TRUE(Has(outcome, "\r\nMigrating: \\\\OLD\\Drücker to \\\\NEW\\Drücker\r\n")) << outcome;
  EXPECT_TRUE(Has(o.file, "\r\nMigrating: \\\\OLD\\Dr\xFC" "cker to \\\\NEW\\Dr\xFC" "cker\r\n")) << o.file;
  EXPECT_TRUE(Has(o.wire, smtppeer::Peer::BytesAsCharacters("\r\nMigrating: \\\\OLD\\Dr\xFC" "cker to \\\\NEW\\Dr\xFC" "cker\r\n"))) << o.wire;
  EXPECT_TRUE(Has(o.debugLog, ">> Found networked printer: \\\\OLD\\Drücker (\\\\OLD)\r\n")) << o.debugLog;
  EXPECT_TRUE(Has(o.debugLog, "ERROR: Getting client printer (no handle): \\\\OLD\\??\r\n")) << o.debugLog;
}

TEST_F(CodePageScenario, Cp932_JapaneseNameMovesInItsTwoByteCharacters_DruckerIsLostToBestFit) {
  Outcome o = RunOn(json{{"ansiCodePage", 932}});
  EXPECT_EQ(o.transcript["spoolerCalls"], json::parse(R"([
      {"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\日本"], "result": 1, "lastError": 0},
      {"call": "DeletePrinterConnectionA", "args": ["\\\\OLD\\日本"], "result": 1, "lastError": 0}])"));
  const std::string outcome = o.transcript["outcomeText"];
  EXPECT_TRUE(Has(outcome, "\r\nError getting handle to printer: \\\\OLD\\Drucker\r\n")) << outcome;
  EXPECT_TRUE(Has(outcome, "\r\nMigrating: \\\\OLD\\日本 to \\\\NEW\\日本\r\n")) << outcome;
  const std::string moved = "\r\nMigrating: \\\\OLD\\\x93\xFA\x96\x7B to \\\\NEW\\\x93\xFA\x96\x7B\r\n";
  EXPECT_TRUE(Has(o.file, moved)) << o.file;
  EXPECT_TRUE(Has(o.wire, smtppeer::Peer::BytesAsCharacters(moved))) << o.wire;
  EXPECT_TRUE(Has(o.debugLog, ">> Found networked printer: \\\\OLD\\日本 (\\\\OLD)\r\n")) << o.debugLog;
  EXPECT_TRUE(Has(o.debugLog, "ERROR: Getting client printer (no handle): \\\\OLD\\Drucker\r\n")) << o.debugLog;
}

}  // namespace


namespace {

// --------------------------------------------------------------- INI files as Windows reads them

// A client with \\OLD\laser, which the INI file moves to NEW and reports by a
// pop-up; the INI file's bytes are the test's.
class IniScenario : public ZandolinSimTest {
 protected:
  static testini::IniFile Ini() {
    testini::IniFile ini = testini::ValidIni();
    ini.Set("GENERAL", "UseManualDefinitions", "True")
        .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
        .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
        .Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "True")
        .Set("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup", "True")
        .Set("NOTIFICATION CLIENT POP-UP", "SuccessMessage", "Moved.");
    return ini;
  }

  json RunWith(const std::string& iniBytes, const json& os = nullptr) {
    json machine = json::parse(R"({"clock": "2026-11-21T14:05:09",
        "printers": [{"name": "\\\\OLD\\laser", "serverName": "\\\\OLD", "shareName": "laser"}],
        "printServers": {"NEW": {"queues": ["laser"]}}})");
    if (!os.is_null()) machine["os"] = os;
    WriteClientFile("machine.json", machine.dump());
    WriteClientFile("files/C/Deploy/migration.ini", iniBytes);
    Result r = Sim({client.string(), "--json", "--dry-run"});
    EXPECT_EQ(r.status, 0) << r.err;
    return json::parse(r.out);
  }

  static std::string Utf16(const std::u16string& text) {
    std::string bytes = "\xFF\xFE";
    for (char16_t u : text) bytes += std::string{static_cast<char>(u & 0xFF), static_cast<char>(u >> 8)};
    return bytes;
  }

  static const json& Moved() {
    static const json calls = json::parse(R"([
        {"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\laser"], "result": 1, "lastError": 0},
        {"call": "DeletePrinterConnectionA", "args": ["\\\\OLD\\laser"], "result": 1, "lastError": 0}])");
    return calls;
  }
};

TEST_F(IniScenario, BlanksInBracketsNoClosingBracketAndLoneCr_RunAsThePlainFile) {
  const std::string plain = Ini().Text();
  json t = RunWith(plain);
  ASSERT_EQ(t["spoolerCalls"], Moved());
  EXPECT_EQ(t["messageBoxes"], (json{{{"title", "Zandolin"}, {"text", "Moved."}, {"style", 0}}}));

  std::string odd = plain;
  odd.replace(odd.find("[GENERAL]"), 9, "[ GENERAL\t]");
  odd.replace(odd.find("[SUPPORT]"), 9, "[SUPPORT");
  for (size_t at = odd.find("\r\n"); at != std::string::npos; at = odd.find("\r\n", at)) odd.erase(at + 1, 1);
  json same = RunWith(odd);
  EXPECT_EQ(same["spoolerCalls"], t["spoolerCalls"]);
  EXPECT_EQ(same["messageBoxes"], t["messageBoxes"]);
  EXPECT_EQ(same["outcomeText"], t["outcomeText"]);
}

TEST_F(IniScenario, Utf8ByteOrderMark_LosesTheFirstSectionAndTheRunAborts) {
  json t = RunWith("\xEF\xBB\xBF" + Ini().Text());
  EXPECT_EQ(t["spoolerCalls"], json::array());
  EXPECT_EQ(t["messageBoxes"],
            (json{{{"title", "Zandolin"},
                   {"text", "Unable to get INI file contents, please check your file path and permissions."},
                   {"style", 16}}}));
  const std::string debug = t["debugBuffer"];
  EXPECT_NE(debug.find(">> UseActiveDirectory: False\r\n>> UseManualDefinitions: False\r\n"), std::string::npos)
      << debug;
}

TEST_F(IniScenario, Utf16File_MessageReachesTheUserInTheCodePage) {
  testini::IniFile ini = Ini();
  ini.Set("NOTIFICATION CLIENT POP-UP", "SuccessMessage", "@");
  const std::string ascii = ini.Text();
  std::u16string text(ascii.begin(), ascii.end());
  text.replace(text.find(u'@'), 1, u"Drucker 日本 verschoben");
  json western = RunWith(Utf16(text));
  EXPECT_EQ(western["spoolerCalls"], Moved());
  EXPECT_EQ(western["messageBoxes"][0]["text"], "Drucker ?? verschoben");
  json japanese = RunWith(Utf16(text), json{{"ansiCodePage", 932}});
  EXPECT_EQ(japanese["spoolerCalls"], Moved());
  EXPECT_EQ(japanese["messageBoxes"][0]["text"], "Drucker 日本 verschoben");
}

// The engine killed at any moment of runs that rewrite a large status file:
// no record is lost, the file is always the old or the new one whole, and
// a replacement left by a killed rewrite is gone after the next run.
TEST_F(ZandolinSimTest, StatusFileRewrite_KilledAtAnyMoment_LosesNothingAndLeavesNothingBehind) {
  WriteClientFile("machine.json", R"({"clock": "2026-11-21T14:05:09"})");
  WriteClientFile("files/C/Deploy/a.ini", ValidIni().Set("GENERAL", "AlwaysRun", "True").Text());
  constexpr int kRecords = 50000;
  std::string before;
  for (int i = 0; i < kRecords; ++i) before += "C:\\Deploy\\other" + std::to_string(i) + ".ini,True\r\n";
  const fs::path profile = client / "files" / "C" / "Users" / "jdoe";
  // A finished run records the INI file as succeeded, and the rewrite ends
  // in a blank line; later runs write the same text again.
  const std::string after = before + "C:\\Deploy\\a.ini,True\r\n\r\n";
  before += "C:\\Deploy\\a.ini,False\r\n";
  WriteClientFile("files/C/Users/jdoe/Zandolin_status.log", before);

  auto replacements = [&] {
    int count = 0;
    for (const auto& e : fs::directory_iterator(profile))
      count += e.path().filename().string().rfind(".Zandolin_status.log.", 0) == 0;
    return count;
  };
  auto start = [&] {
    const pid_t pid = fork();
    if (pid == 0) {
      const int null = open("/dev/null", O_WRONLY);
      dup2(null, 1);
      dup2(null, 2);
      execl(ZANDOLIN_SIM_EXE, ZANDOLIN_SIM_EXE, client.c_str(), "--json", static_cast<char*>(nullptr));
      _exit(127);
    }
    return pid;
  };
  auto elapsed = [](std::chrono::steady_clock::time_point from) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
  };
  // One whole run, to learn how long a run takes.
  auto begun = std::chrono::steady_clock::now();
  int status = 0;
  waitpid(start(), &status, 0);
  const double runSeconds = elapsed(begun);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ASSERT_EQ(Slurp(profile / "Zandolin_status.log"), after);

  std::mt19937 random(16);
  int kills = 0, killedMidRewrite = 0, torn = 0, lost = 0;
  const auto testBegun = std::chrono::steady_clock::now();
  for (int round = 0; round < 60 && elapsed(testBegun) < 20; ++round) {
    const pid_t pid = start();
    if (round % 2 == 0) {
      // As soon as the replacement appears, while it is being written.
      while (replacements() == 0 && waitpid(pid, &status, WNOHANG) == 0) usleep(20);
    } else {
      usleep(static_cast<useconds_t>(std::uniform_real_distribution<double>(0, 1.2 * runSeconds)(random) * 1e6));
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    ++kills;
    killedMidRewrite += replacements() > 0;
    const std::string now = Slurp(profile / "Zandolin_status.log");
    torn += now != before && now != after;
    for (int i = 0; i < kRecords; i += 997)
      lost += now.find("C:\\Deploy\\other" + std::to_string(i) + ".ini,True\r\n") == std::string::npos;
  }
  Result next = Sim({client.string(), "--json"});
  ASSERT_EQ(next.status, 0) << next.err;
  EXPECT_EQ(json::parse(next.out)["ended"], "returned");
  EXPECT_EQ(Slurp(profile / "Zandolin_status.log"), after);
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(replacements(), 0);
  EXPECT_GE(kills, 10);
  EXPECT_GE(killedMidRewrite, 1);
  RecordProperty("Kills", kills);
  RecordProperty("KilledMidRewrite", killedMidRewrite);
}

}  // namespace
