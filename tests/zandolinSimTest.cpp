// zandolin-sim as a program: its command line, exit status, report and
// transcript, run as a subprocess.
#include "Version.h"
#include "tests/IniFileBuilder.h"
#include "tests/ScenarioHelpers.h"
#include "tests/servers/smtp/SmtpPeer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
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
using scenario::Contains;
using scenario::Count;
using scenario::Net;
using scenario::Report;

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

  // Writes machine.json and the INI file C:\\Deploy\\x.ini and runs with args.
  Result RunClient(const json& machine, const testini::IniFile& ini, std::vector<std::string> args) {
    WriteClientFile("machine.json", machine.dump(2));
    WriteClientFile("files/C/Deploy/x.ini", ini.Text());
    args.insert(args.begin(), client.string());
    Result r = Sim(args);
    EXPECT_EQ(r.status, 0) << r.err;
    return r;
  }

  // The --json transcript of such a run.
  json RunJson(const json& machine, const testini::IniFile& ini, std::vector<std::string> args = {}) {
    args.push_back("--json");
    return json::parse(RunClient(machine, ini, std::move(args)).out);
  }

  // Its readable report.
  std::string RunReport(const json& machine, const testini::IniFile& ini, std::vector<std::string> args = {}) {
    return RunClient(machine, ini, std::move(args)).out;
  }

  fs::path work, client;
};

// The parts stand in text in this order.
void ExpectInOrder(const std::string& text, const std::vector<std::string>& parts) {
  size_t at = 0;
  for (const std::string& part : parts) {
    size_t found = text.find(part, at);
    ASSERT_NE(found, std::string::npos) << "missing or out of order: " << part << "\n" << text;
    at = found + part.size();
  }
}

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
      "pointAndPrint": {"RestrictDriverInstallationToAdministrators": 1}, "standardUserInstallsDrivers": false,
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
  // The notes stand under the head, before the client's facts.
  const std::string head = "Simulated client: " + client.string() + "\nDry run: the run worked on a copy; " +
                           client.string() +
                           " is unchanged.\nNo machine.json in the client folder: the run used the default of every "
                           "field.\nUser: ";
  EXPECT_EQ(r.out.substr(0, head.size()), head);
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
  const std::string named = head + "\nANSI code page: 932 (the engine's text is in it).\nUser: ";
  EXPECT_EQ(japanese.out.substr(0, named.size()), named);
  WriteClientFile("machine.json", R"({"os": {"ansiCodePage": 1252}})");
  Result western = Sim({client.string(), "--dry-run"});
  ASSERT_EQ(western.status, 0) << western.err;
  EXPECT_EQ(western.out.substr(0, head.size() + 7), head + "\nUser: ");
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

// ---------------------------------------------------------------- SMTP without the network

testini::IniFile MailIni(const std::string& server, const std::string& port) {
  return testini::ValidIni()
      .Set("GENERAL", "ShowProgress", "True")
      .Set("NOTIFICATION SMTP", "UseSMTP", "True")
      .Set("NOTIFICATION SMTP", "SMTPServerNameOrIP", server)
      .Set("NOTIFICATION SMTP", "ServerPort", port)
      .Set("NOTIFICATION SMTP", "EmailSubject", "Printers")
      .Set("NOTIFICATION SMTP", "EmailTo", "admin@example.com")
      .Set("NOTIFICATION SMTP", "EmailFrom", "zandolin@example.com");
}

const json kMailMachine = {{"clock", "2026-11-21T14:05:09"}, {"timerIntervalMs", 20}};

// What the engine sends for this outcome text.
std::string MailSent(const std::string& outcome) {
  return "HELO PC042\r\nMAIL FROM:<zandolin@example.com>\r\nRCPT TO:<admin@example.com>\r\nDATA\r\n"
         "From: <zandolin@example.com>\r\nTo: admin@example.com\r\nSubject: Computer (PC042-jdoe) Printers\r\n"
         "X-Mailer: Zandolin\r\nMime-Version: 1.0\r\nContent-Type: text/charset=us-ascii\r\n\r\n" +
         outcome + "\r\n.\r\nQUIT";
}

const std::string kAccepted =
    "220 mail.example.com Service ready\r\n250 mail.example.com\r\n250 OK\r\n250 OK\r\n"
    "354 Start mail input; end with <CRLF>.<CRLF>\r\n250 OK\r\n";

TEST_F(ZandolinSimTest, Smtp_DryRun_TheAcceptingPeerPlaysTheServer_NothingLeavesTheMachine) {
  json t = RunJson(kMailMachine, MailIni("mail.example.com", "25"), {"--dry-run"});
  EXPECT_EQ(t["ended"], "returned");
  EXPECT_EQ(t["client"]["smtp"], "accept");
  ASSERT_EQ(t["sockets"].size(), 1u);
  const json& s = t["sockets"][0];
  EXPECT_EQ(s["host"], "mail.example.com");
  EXPECT_EQ(s["port"], "25");
  EXPECT_EQ(s["peer"], "accept");
  EXPECT_EQ(s["connected"], true);
  EXPECT_EQ(s["error"], nullptr);
  EXPECT_EQ(s["sent"], MailSent(t["outcomeText"]));
  // QUIT goes without its line end and the engine closes at once: the
  // peer's 221 is never asked for.
  EXPECT_EQ(s["received"], kAccepted);
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Sending QUIT <<\r\n"));
  EXPECT_FALSE(Contains(t["debugBuffer"], "ERROR: Sending SMTP email"));
}

TEST_F(ZandolinSimTest, Smtp_Defaults_RealSockets_DryRunWithNetworkToo) {
  // Nothing listens on port 1 of the loopback: the connection is refused.
  json plain = RunJson(kMailMachine, MailIni("127.0.0.1", "1"), {"--limit", "2"});
  EXPECT_EQ(plain["client"]["smtp"], "network");
  ASSERT_EQ(plain["sockets"].size(), 1u);
  EXPECT_EQ(plain["sockets"][0]["peer"], "network");
  EXPECT_EQ(plain["sockets"][0]["error"],
            (json{{"number", 10061}, {"description", "Connection is forcefully rejected"}}));
  json network = RunJson(kMailMachine, MailIni("127.0.0.1", "1"), {"--dry-run", "--network", "--limit", "2"});
  EXPECT_EQ(network["sockets"], plain["sockets"]);
  EXPECT_EQ(network["client"]["smtp"], "network");
}

TEST_F(ZandolinSimTest, Smtp_MachineJsonPeer_WinsOverDryRunAndNetwork) {
  json machine = kMailMachine;
  machine["smtp"] = {{"refuse", 4}};
  json t = RunJson(machine, MailIni("mail.example.com", "25"), {"--dry-run", "--network"});
  EXPECT_EQ(t["client"]["smtp"], (json{{"refuse", 4}}));
  const json& s = t["sockets"][0];
  EXPECT_EQ(s["peer"], (json{{"refuse", 4}}));
  EXPECT_EQ(s["sent"], "HELO PC042\r\nMAIL FROM:<zandolin@example.com>\r\nRCPT TO:<admin@example.com>\r\n");
  EXPECT_EQ(s["received"], "220 mail.example.com Service ready\r\n250 mail.example.com\r\n250 OK\r\n"
                           "550 Requested action not taken\r\n");
  // A refused step saves the message beside the executable.
  EXPECT_TRUE(Contains(t["debugBuffer"], "ERROR: Sending SMTP email <<\r\nERROR: 0\r\nERROR DESCRIPTION: \r\n"
                                    ">> Writing to back-up file: C:\\Deploy\\PC042_11.21.2026_14.05.09_EmailFailure.txt"));
  EXPECT_EQ(t["filesWritten"], (json{"C:\\Users\\jdoe\\Zandolin_status.log",
                                   "C:\\Deploy\\PC042_11.21.2026_14.05.09_EmailFailure.txt",
                                   "C:\\Deploy\\PC042.debug"}));
}

TEST_F(ZandolinSimTest, Smtp_RefuseEachStep_TheEngineStopsThere) {
  // What the engine has sent when the server refuses step N: the commands
  // before it, and at step 6 the whole message but QUIT.
  const char* const kCommands[] = {"HELO PC042\r\n", "MAIL FROM:<zandolin@example.com>\r\n",
                                   "RCPT TO:<admin@example.com>\r\n", "DATA\r\n"};
  for (int step = 1; step <= 6; ++step) {
    json machine = kMailMachine;
    machine["smtp"] = {{"refuse", step}};
    json t = RunJson(machine, MailIni("mail.example.com", "25"));
    std::string sent;
    if (step == 6) {
      sent = MailSent(t["outcomeText"]);
      sent.erase(sent.size() - 4);
    } else {
      for (int i = 0; i + 1 < step; ++i) sent += kCommands[i];
    }
    // The replies before the refused one, then the refusal.
    size_t end = 0;
    for (int i = 1; i < step; ++i) end = kAccepted.find('\n', end) + 1;
    const std::string received = kAccepted.substr(0, end) + "550 Requested action not taken\r\n";
    EXPECT_EQ(t["sockets"][0]["sent"], sent) << step;
    EXPECT_EQ(t["sockets"][0]["received"], received) << step;
    EXPECT_TRUE(Contains(t["debugBuffer"], "ERROR: Sending SMTP email <<")) << step;
  }
}

TEST_F(ZandolinSimTest, Smtp_SilentPeer_StuckWithAPlainReason) {
  json machine = kMailMachine;
  machine["smtp"] = "silent";
  ExpectInOrder(RunReport(machine, MailIni("mail.example.com", "25"), {"--limit", "2"}),
                {"Run ended: stuck\n  Why: the e-mail session waits for a server that does not answer; at logon "
                 "this process would never end\n",
                 "\nE-mail:\n  mail.example.com port 25, simulated server (silent)\n    (the server never answered)\n"});
  json t = RunJson(machine, MailIni("mail.example.com", "25"), {"--limit", "2"});
  EXPECT_EQ(t["ended"], "stuck");
  EXPECT_EQ(t["stuckIn"], "forms still loaded: 1");
  EXPECT_EQ(t["stuckReason"],
            "the e-mail session waits for a server that does not answer; at logon this process would never end");
  EXPECT_EQ(t["sockets"][0]["connected"], true);
  EXPECT_EQ(t["sockets"][0]["sent"], "");
  EXPECT_EQ(t["sockets"][0]["received"], "");
}

TEST_F(ZandolinSimTest, Smtp_ReadableReport_ShowsTheDialogueInShort) {
  std::string out = RunReport(kMailMachine, MailIni("mail.example.com", "25"), {"--dry-run"});
  ExpectInOrder(out, {"E-mail: a simulated server inside zandolin-sim accepts it; nothing leaves this machine\n",
                      "\nE-mail:\n  mail.example.com port 25, simulated server (accept)\n"
                      "    < 220 mail.example.com Service ready\n"
                      "    > HELO PC042\n"
                      "    < 250 mail.example.com\n"
                      "    > MAIL FROM:<zandolin@example.com>\n"
                      "    < 250 OK\n"
                      "    > RCPT TO:<admin@example.com>\n"
                      "    < 250 OK\n"
                      "    > DATA\n"
                      "    < 354 Start mail input; end with <CRLF>.<CRLF>\n"
                      "    > (the message: ",
                      "    < 250 OK\n"
                      "    > QUIT (no line end)\n",
                      "Files written or changed:"});
}

// ---------------------------------------------------------------- a standard user

// A label printer populated with its driver from a share, an old one pruned,
// the report to the event log.
testini::IniFile LocalPrintersIni() {
  return testini::ValidIni()
      .Set("POPULATE", "ServerNames", ".")
      .Set("POPULATE", "PrinterNames", "Label Printer")
      .Set("PRUNE", "ServerNames", ".")
      .Set("PRUNE", "PrinterNames", "Old Label")
      .Set("PRINTER_DRIVER", "PrinterName", "Label Printer")
      .Set("PRINTER_DRIVER", "DriverName", "ZDesigner GK420d")
      .Set("PRINTER_DRIVER", "DriverFileName", "zdesigner.dll")
      .Set("PRINTER_DRIVER", "PortName", "USB001")
      .Set("PRINTER_DRIVER", "DriverSharePath", "\\\\fileserver\\drivers")
      .Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "True")
      .Set("GENERAL", "UseManualDefinitions", "True");
}

json LocalPrintersMachine(bool isAdmin) {
  return {{"user", {{"isAdmin", isAdmin}}},
          {"printers", {{{"name", "Old Label"}, {"serverName", nullptr}, {"portName", "USB001"},
                         {"driverName", "ZDesigner LP2844"}}}},
          {"drivers", {"ZDesigner LP2844"}},
          {"ports", {"LPT1:", "USB001"}}};
}

const std::string kEventSourceKey =
    "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin";

TEST_F(ZandolinSimTest, StandardUser_LocalPrinterDriverPortAndTheEventSource_AccessDenied5) {
  WriteClientFile("files/UNC/fileserver/drivers/zdesigner.dll", "driver");
  json t = RunJson(LocalPrintersMachine(false), LocalPrintersIni());
  EXPECT_EQ(t["client"]["isAdmin"], false);
  const std::string outcome = t["outcomeText"];
  EXPECT_TRUE(Contains(outcome, Report({"* ----- Maintenance Populate ----- *",
                                  "Warning (Permission denied) unable to install provided driver: Label Printer",
                                  "Warning (5) unable to add provided driver information: Label Printer",
                                  "Error (5) populating local printer: Label Printer"})))
      << outcome;
  // The delete is never reached: the handle with full access is refused.
  EXPECT_TRUE(Contains(outcome, Report({"* ----- Maintenance Prune Local Printers ----- *",
                                  "Error (5) opening local printer: Old Label"})))
      << outcome;
  EXPECT_TRUE(Contains(t["debugBuffer"], "ERROR: Opening client local printer: Old Label\r\nSYSTEM ERROR: 5\r\n"));
  EXPECT_EQ(t["spoolerCalls"], json::parse(R"([
      {"call": "AddPrinterDriverA", "args": [null, 2, "ZDesigner GK420d"], "result": 0, "lastError": 5},
      {"call": "AddPrinterA", "args": [null, 2, "Label Printer", "USB001", "ZDesigner GK420d"],
       "result": 0, "lastError": 5}])"));
  EXPECT_EQ(t["printersAfter"], t["printersBefore"]);
  EXPECT_FALSE(fs::exists(client / "files" / "C" / "Windows" / "system32" / "zdesigner.dll"));
  // The source is not registered, the entry is written all the same.
  json saved = json::parse(Slurp(client / "machine.json"));
  EXPECT_FALSE(saved["registry"].contains(kEventSourceKey));
  EXPECT_EQ(t["eventLogWritten"].size(), 1u);
  EXPECT_EQ(t["runStatus"]["value"], "False");
}

TEST_F(ZandolinSimTest, StandardUser_TheSameRunAsAnAdministrator_Succeeds) {
  WriteClientFile("files/UNC/fileserver/drivers/zdesigner.dll", "driver");
  json t = RunJson(LocalPrintersMachine(true), LocalPrintersIni());
  const std::string outcome = t["outcomeText"];
  EXPECT_TRUE(Contains(outcome, Report({"* ----- Maintenance Populate ----- *", "Populated local printer: Label Printer"})))
      << outcome;
  EXPECT_TRUE(Contains(outcome, Report({"* ----- Maintenance Prune Local Printers ----- *",
                                  "Deleted local printer: Old Label"})))
      << outcome;
  EXPECT_EQ(Slurp(client / "files" / "C" / "Windows" / "system32" / "zdesigner.dll"), "driver");
  json saved = json::parse(Slurp(client / "machine.json"));
  EXPECT_EQ(saved["registry"][kEventSourceKey]["EventMessageFile"],
            (json{{"type", 1}, {"data", {67, 58, 92, 87, 105, 110, 100, 111, 119, 115, 92, 115, 121, 115,
                                         116, 101, 109, 51, 50, 92, 69, 118, 110, 116, 77, 115, 103, 46,
                                         100, 108, 108}}}));
  EXPECT_EQ(t["runStatus"]["value"], "True");
}

// ---------------------------------------------------------------- Point and Print

testini::IniFile MoveIni() {
  return testini::ValidIni()
      .Set("GENERAL", "UseManualDefinitions", "True")
      .Set("GENERAL", "AlwaysRun", "True")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("SET_DEFAULT", "DefaultType", "1");
}

json MoveMachine(bool isAdmin) {
  return {{"user", {{"isAdmin", isAdmin}}},
          {"printers", {Net("OLD", "laser")}},
          {"defaultPrinter", "\\\\OLD\\laser"},
          {"printServers",
           {{"OLD", {{"queues", {"laser"}}}},
            {"NEW", {{"queues", {{{"name", "laser"}, {"driver", "HP Universal Printing PCL 6"}}}}}}}},
          {"drivers", json::array()}};
}

TEST_F(ZandolinSimTest, PointAndPrint_StandardUser_DriverFromTheServerRefused3019) {
  json t = RunJson(MoveMachine(false), MoveIni());
  EXPECT_EQ(t["client"]["pointAndPrint"], (json{{"RestrictDriverInstallationToAdministrators", 1}}));
  EXPECT_TRUE(Contains(t["outcomeText"], Report({"Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                                           "Error (3019) populating network printer: \\\\NEW\\laser",
                                           "Deleted networked printer: \\\\OLD\\laser"})))
      << t["outcomeText"];
  EXPECT_EQ(t["spoolerCalls"][0],
            (json{{"call", "AddPrinterConnectionA"}, {"args", {"\\\\NEW\\laser"}}, {"result", 0}, {"lastError", 3019}}));
  EXPECT_EQ(t["printersAfter"], json::array());
  EXPECT_EQ(t["defaultAfter"], nullptr);
  json saved = json::parse(Slurp(client / "machine.json"));
  EXPECT_EQ(saved["drivers"], json::array());
}

TEST_F(ZandolinSimTest, PointAndPrint_DriverInstalled_TheStandardUserConnects) {
  json machine = MoveMachine(false);
  machine["drivers"] = {"HP Universal Printing PCL 6"};
  json t = RunJson(machine, MoveIni());
  EXPECT_TRUE(Contains(t["outcomeText"], Report({"Populated networked printer: \\\\NEW\\laser"})));
  EXPECT_EQ(t["printersAfter"][0]["driverName"], "HP Universal Printing PCL 6");
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\laser");
}

TEST_F(ZandolinSimTest, PointAndPrint_Defaults_TheAdministratorBringsTheDriver) {
  json t = RunJson(MoveMachine(true), MoveIni());
  EXPECT_TRUE(Contains(t["outcomeText"], Report({"Populated networked printer: \\\\NEW\\laser"})));
  EXPECT_EQ(t["spoolerCalls"][0],
            (json{{"call", "AddPrinterConnectionA"}, {"args", {"\\\\NEW\\laser"}}, {"result", 1}, {"lastError", 0}}));
  json saved = json::parse(Slurp(client / "machine.json"));
  EXPECT_EQ(saved["drivers"], (json{"HP Universal Printing PCL 6"}));
}

TEST_F(ZandolinSimTest, PointAndPrint_PolicyValues_DecideForTheStandardUser) {
  struct Case {
    json policy;
    int64_t lastError;
  };
  const Case cases[] = {
      {json::object(), 3019},
      {{{"RestrictDriverInstallationToAdministrators", 1}, {"NoWarningNoElevationOnInstall", 1}}, 3019},
      {{{"RestrictDriverInstallationToAdministrators", 0}}, 3019},   // a prompt nobody answers
      {{{"RestrictDriverInstallationToAdministrators", 0}, {"NoWarningNoElevationOnInstall", 0}}, 3019},
      {{{"RestrictDriverInstallationToAdministrators", 0}, {"NoWarningNoElevationOnInstall", 1}}, 0},
      {{{"RestrictDriverInstallationToAdministrators", 0}, {"Restricted", 0}}, 0},
      // A value of another type is no policy at all: absent counts as 1.
      {{{"RestrictDriverInstallationToAdministrators", "0"}, {"NoWarningNoElevationOnInstall", 1}}, 3019},
  };
  for (const Case& c : cases) {
    json machine = MoveMachine(false);
    machine["pointAndPrint"] = c.policy;
    json t = RunJson(machine, MoveIni());
    EXPECT_EQ(t["spoolerCalls"][0]["lastError"], c.lastError) << c.policy;
    EXPECT_EQ(t["client"]["standardUserInstallsDrivers"], c.lastError == 0) << c.policy;
  }
}

TEST_F(ZandolinSimTest, PointAndPrint_QueueWithoutADriverNamed_ConnectsAsBefore) {
  json machine = MoveMachine(false);
  machine["printServers"]["NEW"]["queues"] = {"laser"};
  json t = RunJson(machine, MoveIni());
  EXPECT_EQ(t["spoolerCalls"][0],
            (json{{"call", "AddPrinterConnectionA"}, {"args", {"\\\\NEW\\laser"}}, {"result", 1}, {"lastError", 0}}));
  EXPECT_EQ(t["printersAfter"][0]["driverName"], "");
}

TEST_F(ZandolinSimTest, PointAndPrint_ReadableReport_SaysWhatTheUserLost) {
  std::string out = RunReport(MoveMachine(false), MoveIni());
  ExpectInOrder(out, {"User: a standard user: local printers, drivers, ports, HKEY_LOCAL_MACHINE and the "
                      "system folder are closed to it\n",
                      "Point and Print: only administrators may install a print server's driver "
                      "(RestrictDriverInstallationToAdministrators 1)\n",
                      "Run status recorded: False for C:\\Deploy\\x.ini, in C:\\Users\\jdoe\\Zandolin_status.log\n"
                      "  The next logon runs this INI file again.\n",
                      "Printers removed:\n  \\\\OLD\\laser: removed with no replacement: \\\\NEW\\laser could not "
                      "be added (error 3019: a driver download is needed: Point and Print lets only administrators "
                      "install the queue's driver)\n",
                      "Printers added: none\n",
                      "Default printer: lost: the user had \\\\OLD\\laser and now has none\n"});
}

// ---------------------------------------------------------------- the directory's size limit

json DirectoryMachine(int queues) {
  json list = json::array();
  for (int i = 1; i <= queues; ++i) {
    const std::string share = std::string("q").append(std::to_string(i));
    list.push_back({{"name", "NEW-" + share}, {"printShareName", {share}}});
  }
  return {{"directory",
           {{"domain", "corp.example.com"}, {"namingContext", "DC=corp,DC=example,DC=com"}, {"printQueues", list}}}};
}

testini::IniFile DirectoryIni() {
  return testini::ValidIni()
      .Set("GENERAL", "UseActiveDirectory", "True")
      .Set("GENERAL", "AlwaysRun", "True")
      .Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com");
}

TEST_F(ZandolinSimTest, DirectorySizeLimit_Default1000_CutsTheAnswerWithoutFailure) {
  json t = RunJson(DirectoryMachine(1200), DirectoryIni());
  EXPECT_EQ(Count(t["outcomeText"], " (\\\\NEW\\q"), 1000u);
  EXPECT_TRUE(Contains(t["outcomeText"], Report({"q1000 (\\\\NEW\\q1000)"})));
  EXPECT_FALSE(Contains(t["outcomeText"], "q1001"));
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Finished getting list of AD printers, abort status: False"));
  EXPECT_EQ(t["directoryQueries"], json::parse(R"([{"entries": 1000, "cut": 200}])"));
  EXPECT_EQ(t["client"]["directorySizeLimit"], 1000);
}

TEST_F(ZandolinSimTest, DirectorySizeLimit_ZeroOrAboveTheList_GivesEveryQueue) {
  json machine = DirectoryMachine(1200);
  machine["directory"]["sizeLimit"] = 0;
  json none = RunJson(machine, DirectoryIni());
  EXPECT_EQ(Count(none["outcomeText"], " (\\\\NEW\\q"), 1200u);
  EXPECT_EQ(none["directoryQueries"], json::parse(R"([{"entries": 1200, "cut": 0}])"));
  machine["directory"]["sizeLimit"] = 1200;
  EXPECT_EQ(Count(RunJson(machine, DirectoryIni())["outcomeText"], " (\\\\NEW\\q"), 1200u);
  machine["directory"]["sizeLimit"] = 3;
  json three = RunJson(machine, DirectoryIni());
  EXPECT_EQ(Count(three["outcomeText"], " (\\\\NEW\\q"), 3u);
  EXPECT_EQ(three["directoryQueries"], json::parse(R"([{"entries": 3, "cut": 1197}])"));
}

TEST_F(ZandolinSimTest, DirectorySizeLimit_ReadableReport_SaysHowManyWereCut) {
  std::string cut = RunReport(DirectoryMachine(1200), DirectoryIni());
  ExpectInOrder(cut, {"Directory: at most 1000 entries a query (the server's size limit)\n",
                      "\nDirectory query: 1000 print queues came; the size limit of 1000 left out 200 more "
                      "(the engine's query is not paged)\n",
                      "Outcome text:"});
  std::string all = RunReport(DirectoryMachine(5), DirectoryIni());
  EXPECT_TRUE(Contains(all, "\nDirectory query: 5 print queues came\n")) << all;
}

// ---------------------------------------------------------------- the event log's limit

json ManyPrinters(int n) {
  json printers = json::array();
  for (int i = 0; i < n; ++i) printers.push_back(Net("OLD", "printer-queue-" + std::to_string(10000 + i)));
  return {{"printers", printers}};
}

testini::IniFile EventLogIni() {
  return testini::ValidIni().Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "True").Set("GENERAL", "AlwaysRun", "True");
}

TEST_F(ZandolinSimTest, EventLog_TextLongerThan31839_RefusedWith1500_TheEngineLogsItAsWritten) {
  json t = RunJson(ManyPrinters(1000), EventLogIni(), {"--trace"});
  const std::string outcome = t["outcomeText"];
  ASSERT_GT(outcome.size(), 31839u);
  EXPECT_EQ(t["eventLogWritten"], json::array());
  EXPECT_EQ(t["eventLogRefused"],
            (json::array({{{"id", 20001}, {"lastError", 1500}, {"longestString", outcome.size()},
                           {"dataSize", outcome.size() + 1}}})));
  // The refusal is no run-time error: the engine's log says what it always says.
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Logged event in application event log.\r\n"));
  EXPECT_FALSE(Contains(t["debugBuffer"], "ERROR: Writing event to application event log"));
  // The call itself, and the last error the engine reads and drops.
  json report = nullptr, lastError = nullptr;
  for (size_t i = 0; i < t["calls"].size(); ++i)
    if (t["calls"][i].value("call", "") == "ReportEventA") {
      report = t["calls"][i];
      lastError = t["calls"][i + 1];
    }
  ASSERT_FALSE(report.is_null());
  EXPECT_EQ(report["result"], 0);
  EXPECT_EQ(report["lastError"], 1500);
  EXPECT_EQ(lastError["call"], "GetLastError");
  EXPECT_EQ(lastError["result"], 1500);

  json shortRun = RunJson(ManyPrinters(3), EventLogIni());
  EXPECT_EQ(shortRun["eventLogWritten"].size(), 1u);
  EXPECT_EQ(shortRun["eventLogRefused"], json::array());
  EXPECT_TRUE(Contains(shortRun["debugBuffer"], ">> Logged event in application event log.\r\n"));
}

TEST_F(ZandolinSimTest, EventLog_ReadableReport_SaysWhyTheEntryIsMissing) {
  std::string out = RunReport(ManyPrinters(1000), EventLogIni());
  json t = RunJson(ManyPrinters(1000), EventLogIni());
  ExpectInOrder(out, {"Event log entries written: none\n"
                      "  refused: id 20001, error 1500: its text of " +
                          std::to_string(t["outcomeText"].get<std::string>().size()) +
                          " characters is longer than the 31,839 Windows takes; the engine's log still says the "
                          "event was logged\n"});
}

// ---------------------------------------------------------------- every call

TEST_F(ZandolinSimTest, Trace_EveryCallWithArgumentsResultAndLastError_ClosePrinterIncluded) {
  json machine = {{"printers", {Net("OLD", "laser")}}};
  json t = RunJson(machine, testini::ValidIni(), {"--trace"});
  const json& calls = t["calls"];
  ASSERT_TRUE(calls.is_array());
  json open = nullptr, close = nullptr;
  for (const json& call : calls) {
    if (call.value("call", "") == "OpenPrinterA") open = call;
    if (call.value("call", "") == "ClosePrinter") close = call;
  }
  EXPECT_EQ(open, json::parse(R"({"call": "OpenPrinterA", "args": ["\\\\OLD\\laser", null], "result": 1,
                                  "out": "0x5000", "lastError": 0})"));
  EXPECT_EQ(close, json::parse(R"({"call": "ClosePrinter", "args": ["0x5000"], "result": 1, "lastError": 0})"));
  EXPECT_EQ(calls[0], json::parse(R"({"call": "CommandLine", "args": [], "result": "", "lastError": 0})"));
  // Without --trace there is no calls field.
  EXPECT_FALSE(RunJson(machine, testini::ValidIni()).contains("calls"));
}

TEST_F(ZandolinSimTest, Trace_AHandleNeverClosed_ShowsInTheReport) {
  json machine = {{"printers", {Net("OLD", "laser")}}};
  const testini::IniFile ini = testini::ValidIni().Set("GENERAL", "AlwaysRun", "True");
  std::string closed = RunReport(machine, ini, {"--trace"});
  ExpectInOrder(closed, {"Debug file: ", "\nCalls of the boundary: recorded in the transcript's calls (--json)\n",
                         "Handles never closed: none\n"});
  machine["faults"] = {{{"call", "ClosePrinter"}, {"match", "\\\\OLD\\laser"}, {"result", 0}, {"lastError", 6}}};
  std::string open = RunReport(machine, ini, {"--trace"});
  ExpectInOrder(open, {"Handles never closed:\n  0x5000 (printer \\\\OLD\\laser, from OpenPrinterA)\n"});
  EXPECT_FALSE(Contains(RunReport(machine, ini), "Handles never closed"));
}

TEST_F(ZandolinSimTest, Trace_AWaitThatNeverEnds_IsFoldedIntoOneEntry) {
  json machine = kMailMachine;
  machine["smtp"] = "silent";
  json t = RunJson(machine, MailIni("mail.example.com", "25"), {"--trace", "--limit", "2"});
  EXPECT_EQ(t["ended"], "stuck");
  std::vector<json> folds;
  for (const json& call : t["calls"])
    if (call.contains("repeat")) folds.push_back(call);
  // The wait for the greeting asks the socket and pumps; thirty ticks later
  // the session gives up, the socket is gone and the wait only pumps.
  const json askAndPump = json::parse(R"([{"call": "State", "args": [1], "result": 7, "lastError": 0},
                                          {"call": "DoEvents", "args": [], "result": null, "lastError": 0}])");
  const json pump = json::parse(R"([{"call": "DoEvents", "args": [], "result": null, "lastError": 0}])");
  auto repeats = [&](const json& calls) -> int64_t {
    int64_t n = 0;
    for (const json& fold : folds)
      if (fold["calls"] == calls) n += fold["repeat"].get<int64_t>();
    return n;
  };
  EXPECT_GE(repeats(askAndPump), 25);
  EXPECT_GE(repeats(pump), 5);
  EXPECT_EQ(folds.back()["calls"], pump);
  EXPECT_LT(t["calls"].size(), 400u);
}

TEST_F(ZandolinSimTest, SpoolerCalls_WindowsNT4_TheDefaultWrittenToTheProfileIsRecorded) {
  json machine = {{"os", {{"platformId", 2}, {"majorVersion", 4}}},
                  {"printers", {Net("OLD", "laser")}},
                  {"printServers", {{"NEW", {{"queues", {"laser"}}}}}},
                  {"winIni", {{"Windows", {{"device", "\\\\OLD\\laser,winspool,Ne00:"}}},
                              {"PrinterPorts", {{"\\\\NEW\\laser", "winspool,Ne01:,15,45"}}}}}};
  json t = RunJson(machine, MoveIni());
  EXPECT_EQ(t["spoolerCalls"], json::parse(R"([
      {"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\laser"], "result": 1, "lastError": 0},
      {"call": "DeletePrinterConnectionA", "args": ["\\\\OLD\\laser"], "result": 1, "lastError": 0},
      {"call": "WriteProfileStringA", "args": ["Windows", "device", "\\\\NEW\\laser,winspool,Ne01:"],
       "result": 1, "lastError": 0}])"));
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\laser");
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
};

TEST_F(CodePageScenario, Cp1252Default_DruckerMovesAndGoesOnTheWireAsFC_JapaneseNameIsLost) {
  Outcome o = RunOn(nullptr);
  EXPECT_EQ(o.transcript["spoolerCalls"], json::parse(R"([
      {"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\Drücker"], "result": 1, "lastError": 0},
      {"call": "DeletePrinterConnectionA", "args": ["\\\\OLD\\Drücker"], "result": 1, "lastError": 0}])"));
  const std::string outcome = o.transcript["outcomeText"];
  EXPECT_TRUE(Contains(outcome, "\r\nError getting handle to printer: \\\\OLD\\??\r\n")) << outcome;
  EXPECT_TRUE(Contains(outcome, "\r\nMigrating: \\\\OLD\\Drücker to \\\\NEW\\Drücker\r\n")) << outcome;
  EXPECT_TRUE(Contains(o.file, "\r\nMigrating: \\\\OLD\\Dr\xFC" "cker to \\\\NEW\\Dr\xFC" "cker\r\n")) << o.file;
  EXPECT_TRUE(Contains(o.wire, smtppeer::Peer::BytesAsCharacters("\r\nMigrating: \\\\OLD\\Dr\xFC" "cker to \\\\NEW\\Dr\xFC" "cker\r\n"))) << o.wire;
  EXPECT_TRUE(Contains(o.debugLog, ">> Found networked printer: \\\\OLD\\Drücker (\\\\OLD)\r\n")) << o.debugLog;
  EXPECT_TRUE(Contains(o.debugLog, "ERROR: Getting client printer (no handle): \\\\OLD\\??\r\n")) << o.debugLog;
}

TEST_F(CodePageScenario, Cp932_JapaneseNameMovesInItsTwoByteCharacters_DruckerIsLostToBestFit) {
  Outcome o = RunOn(json{{"ansiCodePage", 932}});
  EXPECT_EQ(o.transcript["spoolerCalls"], json::parse(R"([
      {"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\日本"], "result": 1, "lastError": 0},
      {"call": "DeletePrinterConnectionA", "args": ["\\\\OLD\\日本"], "result": 1, "lastError": 0}])"));
  const std::string outcome = o.transcript["outcomeText"];
  EXPECT_TRUE(Contains(outcome, "\r\nError getting handle to printer: \\\\OLD\\Drucker\r\n")) << outcome;
  EXPECT_TRUE(Contains(outcome, "\r\nMigrating: \\\\OLD\\日本 to \\\\NEW\\日本\r\n")) << outcome;
  const std::string moved = "\r\nMigrating: \\\\OLD\\\x93\xFA\x96\x7B to \\\\NEW\\\x93\xFA\x96\x7B\r\n";
  EXPECT_TRUE(Contains(o.file, moved)) << o.file;
  EXPECT_TRUE(Contains(o.wire, smtppeer::Peer::BytesAsCharacters(moved))) << o.wire;
  EXPECT_TRUE(Contains(o.debugLog, ">> Found networked printer: \\\\OLD\\日本 (\\\\OLD)\r\n")) << o.debugLog;
  EXPECT_TRUE(Contains(o.debugLog, "ERROR: Getting client printer (no handle): \\\\OLD\\Drucker\r\n")) << o.debugLog;
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
