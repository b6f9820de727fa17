// The dispatch of the run's report: e-mail, output file, pop-up, event log;
// the computer name; the error outcome of the directory query.
#include "notification/modNotification.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "tests/servers/smtp/SmtpPeer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <set>

namespace {

using nlohmann::json;

using scenario::Banner;
using scenario::Line;

const std::string kEmailBanner = Banner(24, "     NOTFICATION VIA EMAIL    ", 24);
const std::string kFileBanner = Banner(22, "     NOTIFICATION VIA FILE OUTPUT     ", 21);
const std::string kPopupBanner = Banner(21, "     NOTIFICATION VIA CLIENT POP-UP    ", 20);
const std::string kEventLogBanner = Banner(23, "     NOTIFICATION VIA EVENT LOG    ", 22);

const char* const kReportHead = "\r\n\r\nReport At: 11/21/2026 2:05:09 PM\r\n\r\n";

class modNotificationTest : public SimFixture {
 protected:
  // A client whose clock starts at a known time, with the log on.
  void Start() {
    machine["clock"] = "2026-11-21T14:05:09";
    std::filesystem::create_directories(dir / "files" / "C" / "Reports");
    Install();
    INIDocument.DebugOn = true;
  }

  json Boxes() { return Transcript()["messageBoxes"]; }
  json Events() { return Transcript()["eventLogWritten"]; }
};

// ----- the dispatch -----

TEST_F(modNotificationTest, Dispatch_AllFlagsOff_DoesNothingAtAll) {
  Start();
  INIDocument.UseSuccessClientPopup = true;
  gOutcomeText = "\r\nreport";
  DispatchNotifications();
  EXPECT_EQ("", gDebugBuffer);
  EXPECT_EQ("\r\nreport", gOutcomeText);
  const json t = Transcript();
  EXPECT_TRUE(t["messageBoxes"].empty());
  EXPECT_TRUE(t["eventLogWritten"].empty());
  EXPECT_TRUE(t["filesWritten"].empty());
}

// The session's log lines for a whole dialogue with the real server.
std::string SessionLines(const std::string& port, const std::string& outcome) {
  return Line(">> Sending nofication via STMP, server (port): 127.0.0.1(" + port + ")") +
         Line(">> Connected to SMTP Server << ") + Line(">> Sending HELLO: HELO PC042") +
         Line(">> Sending FROM list: MAIL FROM:<zandolin@corp.test>") +
         Line(">> Sending TO list: RCPT TO:<admin@corp.test>") + Line(">> Sending DATA start <<") +
         Line(">> Sending DATA: From: <zandolin@corp.test>\r\nTo: admin@corp.test\r\nSubject: Report\r\n"
              "X-Mailer: Zandolin\r\nMime-Version: 1.0\r\nContent-Type: text/charset=us-ascii\r\n\r\n" +
              outcome) +
         Line(">> Sending QUIT <<");
}

std::string WireMessage(const std::string& outcome) {
  return "From: <zandolin@corp.test>\r\nTo: admin@corp.test\r\nSubject: Computer (PC042-jdoe) Report\r\n"
         "X-Mailer: Zandolin\r\nMime-Version: 1.0\r\nContent-Type: text/charset=us-ascii\r\n\r\n" +
         outcome + "\r\n";
}

void UseServer(const std::string& port) {
  INIDocument.UseSMTP = true;
  INIDocument.SMTPServerNameOrIP = "127.0.0.1";
  INIDocument.ServerPort = port;
  INIDocument.EmailFrom = "zandolin@corp.test";
  INIDocument.EmailTo = {"admin@corp.test", ""};
  INIDocument.EmailSubject = "Report";
}

TEST_F(modNotificationTest, Dispatch_EmailChannel_WritesItsBannerAndStatementAndSendsTheReport) {
  machine["timerIntervalMs"] = 60000;
  auto server = smtppeer::Peer::Server();
  Start();
  INIDocument.ShowProgress = true;
  UseServer(server->Port());
  gOutcomeText = "\r\nreport";
  DispatchNotifications();
  // The window's form and the hidden one: the dispatch waited for the end.
  EXPECT_EQ(1, LoadedFormCount());
  EXPECT_EQ(kEmailBanner + SessionLines(server->Port(), "\r\nreport"), gDebugBuffer);
  EXPECT_EQ(json::array({"Sending SMTP mail ..."}), Transcript()["progress"]["labels"]);
  client.reset();
  EXPECT_EQ(WireMessage("\r\nreport"), server->Record()["data"]);
}

TEST_F(modNotificationTest, Dispatch_AllChannels_InTheirOrderWithTheirStatements) {
  machine["timerIntervalMs"] = 60000;
  auto server = smtppeer::Peer::Server();
  Start();
  INIDocument.ShowProgress = true;
  UseServer(server->Port());
  INIDocument.UseFileOutput = true;
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "out.txt";
  INIDocument.UseClientPopup = true;
  INIDocument.UseSuccessClientPopup = true;
  INIDocument.SuccessMessage = "All done";
  INIDocument.WriteToEventLog = true;
  gOutcomeText = "\r\nreport";
  DispatchNotifications();

  EXPECT_EQ(kEmailBanner + SessionLines(server->Port(), "\r\nreport") + kFileBanner +
                Line(">> Writing to notification output file: C:\\Reports\\out.txt") +
                kPopupBanner + Line(">> Showing client pop-up success message. <<") +
                kEventLogBanner + Line(">> Logged event in application event log."),
            gDebugBuffer);
  const json t = Transcript();
  EXPECT_EQ(json::parse(R"(["Sending SMTP mail ...", "Saving migration file ...",
      "Writing to event log ..."])"),
            t["progress"]["labels"]);
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","text":"All done","style":0}])"),
            t["messageBoxes"]);
  ASSERT_EQ(1u, t["eventLogWritten"].size());
  EXPECT_EQ(json::array({std::string(kReportHead) + "\r\nreport"}),
            t["eventLogWritten"][0]["strings"]);
  // The e-mail went before the file channel put its head in front.
  client.reset();
  EXPECT_EQ(WireMessage("\r\nreport"), server->Record()["data"]);
}

TEST_F(modNotificationTest, Dispatch_ProgressOff_SessionRunsAfterTheDispatchWithTheReportHead) {
  machine["timerIntervalMs"] = 60000;
  auto server = smtppeer::Peer::Server();
  Start();
  UseServer(server->Port());
  INIDocument.UseFileOutput = true;
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "out.txt";
  gOutcomeText = "\r\nreport";
  DispatchNotifications();
  // The hidden form alone: the wait ended at once, nothing has been sent.
  EXPECT_EQ(1, LoadedFormCount());
  EXPECT_EQ(kEmailBanner + Line(">> Sending nofication via STMP, server (port): 127.0.0.1(" +
                                server->Port() + ")") +
                kFileBanner + Line(">> Writing to notification output file: C:\\Reports\\out.txt"),
            gDebugBuffer);
  EXPECT_EQ("", Transcript()["sockets"][0]["sent"]);

  // What the process does after Main.
  const std::string before = gDebugBuffer;
  while (LoadedFormCount() > 0) Sys().ui->WaitForEvents();
  const std::string report = std::string(kReportHead) + "\r\nreport";
  EXPECT_EQ(before + SessionLines(server->Port(), report).substr(
                         Line(">> Sending nofication via STMP, server (port): 127.0.0.1(" + server->Port() + ")")
                             .size()),
            gDebugBuffer);
  client.reset();
  EXPECT_EQ(WireMessage(report), server->Record()["data"]);
}

// With the window off but its form loaded for its handle, the wait counts
// two forms and lasts to the session's end, as with the window on.
TEST_F(modNotificationTest, Dispatch_HiddenProgressFormLoaded_TheDispatchWaitsForTheSession) {
  machine["timerIntervalMs"] = 60000;
  auto server = smtppeer::Peer::Server();
  Start();
  ProgressWindowHandle();
  UseServer(server->Port());
  gOutcomeText = "\r\nreport";
  DispatchNotifications();
  EXPECT_EQ(kEmailBanner + SessionLines(server->Port(), "\r\nreport"), gDebugBuffer);
  EXPECT_EQ(1, LoadedFormCount());
  EXPECT_FALSE(Transcript()["progress"]["shown"]);
  client.reset();
  EXPECT_EQ(WireMessage("\r\nreport"), server->Record()["data"]);
}

TEST_F(modNotificationTest, Dispatch_EmailChannelWithEmptyReport_SendsTheHeadAlone) {
  machine["timerIntervalMs"] = 60000;
  auto server = smtppeer::Peer::Server();
  Start();
  INIDocument.ShowProgress = true;
  UseServer(server->Port());
  DispatchNotifications();
  EXPECT_EQ(kEmailBanner + SessionLines(server->Port(), ""), gDebugBuffer);
  client.reset();
  EXPECT_EQ(WireMessage(""), server->Record()["data"]);
}

// ----- the pop-up -----

TEST_F(modNotificationTest, Popup_NeitherMessageWanted_BannerOnly) {
  Start();
  INIDocument.UseClientPopup = true;
  DispatchNotifications();
  EXPECT_EQ(kPopupBanner, gDebugBuffer);
  EXPECT_TRUE(Boxes().empty());
}

TEST_F(modNotificationTest, Popup_ChannelOff_NoBannerNoBox) {
  Start();
  INIDocument.UseClientPopup = false;
  INIDocument.UseSuccessClientPopup = true;
  INIDocument.SuccessMessage = "Done";
  DispatchNotifications();
  EXPECT_EQ("", gDebugBuffer);
  EXPECT_TRUE(Boxes().empty());
}

TEST_F(modNotificationTest, Popup_Success_ReplacesEveryCaretCRLFExactly) {
  Start();
  INIDocument.UseClientPopup = true;
  INIDocument.UseSuccessClientPopup = true;
  INIDocument.UseFailureClientPopup = true;
  INIDocument.SuccessMessage = "Your printers^CRLFhave moved.^CRLFThanks^crlf!";
  INIDocument.FailureMessage = "not this one";
  DispatchNotifications();
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","style":0,
      "text":"Your printers\r\nhave moved.\r\nThanks^crlf!"}])"),
            Boxes());
  EXPECT_EQ(kPopupBanner + Line(">> Showing client pop-up success message. <<"), gDebugBuffer);
}

TEST_F(modNotificationTest, Popup_AbortedRun_ShowsTheFailureMessage) {
  Start();
  AbortStatus = true;
  INIDocument.UseClientPopup = true;
  INIDocument.UseSuccessClientPopup = true;
  INIDocument.UseFailureClientPopup = true;
  INIDocument.SuccessMessage = "ok";
  INIDocument.FailureMessage = "Please call^CRLFthe help desk";
  DispatchNotifications();
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","style":0,
      "text":"Please call\r\nthe help desk"}])"),
            Boxes());
  EXPECT_EQ(kPopupBanner + Line(">> Showing client pop-up failure message. <<"), gDebugBuffer);
}

TEST_F(modNotificationTest, Popup_AbortedRunWithOnlySuccessWanted_ShowsNothing) {
  Start();
  AbortStatus = true;
  INIDocument.UseClientPopup = true;
  INIDocument.UseSuccessClientPopup = true;
  INIDocument.SuccessMessage = "ok";
  DispatchNotifications();
  EXPECT_TRUE(Boxes().empty());
  EXPECT_EQ(kPopupBanner, gDebugBuffer);
}

TEST_F(modNotificationTest, Popup_EmptyMessage_IsShownToo) {
  Start();
  INIDocument.UseClientPopup = true;
  INIDocument.UseSuccessClientPopup = true;
  DispatchNotifications();
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","style":0,"text":""}])"), Boxes());
}

// ----- the output file -----

TEST_F(modNotificationTest, OutputFile_NameWithComputerUserAndOutcome) {
  Start();
  INIDocument.UseFileOutput = true;
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "migration.log";
  INIDocument.IncludeComputerName = true;
  INIDocument.IncludeOutcome = true;
  gOutcomeText = "\r\n* ----- report ----- *";
  WriteNotificationFile();
  EXPECT_EQ(
      Line(">> Writing to notification output file: C:\\Reports\\PC042_jdoe_SUCCESS_migration.log"),
      gDebugBuffer);
  EXPECT_EQ(std::string(kReportHead) + "\r\n* ----- report ----- *\r\n",
            ReadFile("C:\\Reports\\PC042_jdoe_SUCCESS_migration.log"));
  EXPECT_EQ(std::string(kReportHead) + "\r\n* ----- report ----- *", gOutcomeText);
}

TEST_F(modNotificationTest, OutputFile_AbortedRun_NamedFailed) {
  Start();
  AbortStatus = true;
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "r.txt";
  INIDocument.IncludeOutcome = true;
  WriteNotificationFile();
  EXPECT_TRUE(FileExists("C:\\Reports\\FAILED_r.txt"));
}

TEST_F(modNotificationTest, OutputFile_NoPrefixes_PathAndNameOnly) {
  Start();
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "r.txt";
  WriteNotificationFile();
  EXPECT_EQ(json::array({"C:\\Reports\\r.txt"}), Transcript()["filesWritten"]);
}

TEST_F(modNotificationTest, OutputFile_EmptyPath_NameBeginsWithABackslash) {
  Start();
  INIDocument.FileOutputName = "r.txt";
  WriteNotificationFile();
  EXPECT_TRUE(gDebugBuffer.starts_with(Line(">> Writing to notification output file: \\r.txt")));
}

TEST_F(modNotificationTest, OutputFile_EmptyName_FailsWithThreeErrorLinesAndKeepsTheHead) {
  Start();
  INIDocument.FileOutputPath = "C:\\Reports";
  gOutcomeText = "\r\nreport";
  WriteNotificationFile();
  EXPECT_EQ(Line(">> Writing to notification output file: C:\\Reports\\") +
                Line("ERROR: Saving notification output file <<") + Line("ERROR: 75") +
                Line("ERROR DESCRIPTION: Path/File access error"),
            gDebugBuffer);
  EXPECT_EQ(std::string(kReportHead) + "\r\nreport", gOutcomeText);
  EXPECT_EQ(0, Err.Number);
  EXPECT_FALSE(AbortStatus);
}

TEST_F(modNotificationTest, OutputFile_WriteRefused_ReportsTheErrorAndTheDispatchGoesOn) {
  machine["faults"] = json::parse(R"([{"call":"AppendText","lastError":70}])");
  Start();
  INIDocument.UseFileOutput = true;
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "r.txt";
  INIDocument.UseClientPopup = true;
  INIDocument.UseSuccessClientPopup = true;
  INIDocument.WriteToEventLog = true;
  DispatchNotifications();
  EXPECT_EQ(kFileBanner + Line(">> Writing to notification output file: C:\\Reports\\r.txt") +
                Line("ERROR: Saving notification output file <<") + Line("ERROR: 70") +
                Line("ERROR DESCRIPTION: Permission denied") + kPopupBanner +
                Line(">> Showing client pop-up success message. <<") + kEventLogBanner +
                Line(">> Logged event in application event log."),
            gDebugBuffer);
  EXPECT_EQ(1u, Boxes().size());
  ASSERT_EQ(1u, Events().size());
  EXPECT_EQ(4, Events()[0]["type"]);
}

TEST_F(modNotificationTest, OutputFile_TwoRuns_LeaveBothTextsInOrder) {
  Start();
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "shared.txt";
  gOutcomeText = "\r\nfirst";
  WriteNotificationFile();
  Start();
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "shared.txt";
  gOutcomeText = "\r\nsecond";
  WriteNotificationFile();
  EXPECT_EQ(std::string(kReportHead) + "\r\nfirst\r\n" + kReportHead + "\r\nsecond\r\n",
            ReadFile("C:\\Reports\\shared.txt"));
}

TEST_F(modNotificationTest, EventLogText_HasTheReportHeadOnlyWithTheOutputFile) {
  Start();
  INIDocument.WriteToEventLog = true;
  gOutcomeText = "\r\nreport";
  DispatchNotifications();
  EXPECT_EQ(json::array({"\r\nreport"}), Events()[0]["strings"]);

  Start();
  INIDocument.WriteToEventLog = true;
  INIDocument.UseFileOutput = true;
  INIDocument.FileOutputPath = "C:\\Reports";
  INIDocument.FileOutputName = "r.txt";
  gOutcomeText = "\r\nreport";
  DispatchNotifications();
  EXPECT_EQ(json::array({std::string(kReportHead) + "\r\nreport"}), Events()[0]["strings"]);
}

TEST_F(modNotificationTest, Run_OutputFileAndPopup_CarryTheRunsOutcome) {
  IniFile ini = ValidIni();
  ini.Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "C:\\Reports\\")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "report.txt")
      .Set("NOTIFICATION FILE OUTPUT", "IncludeOutcome", "True")
      .Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "True")
      .Set("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup", "True")
      .Set("NOTIFICATION CLIENT POP-UP", "SuccessMessage", "Done^CRLFThanks");
  WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
  std::filesystem::create_directories(dir / "files" / "C" / "Reports");
  machine["clock"] = "2026-11-21T14:05:09";
  const json t = Run();
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","style":0,"text":"Done\r\nThanks"}])"),
            t["messageBoxes"]);
  const std::string outcome = t["outcomeText"];
  EXPECT_TRUE(outcome.starts_with(kReportHead));
  EXPECT_EQ(outcome + "\r\n", ReadFile("C:\\Reports\\SUCCESS_report.txt"));
}

// ----- the computer name, the report and the error outcome -----

TEST_F(modNotificationTest, GetClientComputerName_GivesTheNameAsItStands) {
  machine["computerName"] = "lab-Pc 7 ";
  Install();
  EXPECT_EQ("lab-Pc 7 ", GetClientComputerName());
}

TEST_F(modNotificationTest, GetClientComputerName_NoNetworkObject_ComputerUnknown) {
  machine["computerName"] = nullptr;
  Install();
  EXPECT_EQ("Computer UNKNOWN", GetClientComputerName());
  EXPECT_EQ("Computer UNKNOWN", GetClientComputerName());
  EXPECT_EQ(0, Err.Number);
}

TEST_F(modNotificationTest, GetClientComputerName_NameUnreadable_GivesEmpty) {
  machine["faults"] = json::parse(R"([{"call":"NetworkComputerName","lastError":5}])");
  Install();
  EXPECT_EQ("", GetClientComputerName());
  EXPECT_EQ(0, Err.Number);
}

TEST_F(modNotificationTest, AppendOutcome_PutsTheLineEndInFront) {
  Install();
  AppendOutcome("first");
  AppendOutcome("");
  AppendOutcome("third");
  EXPECT_EQ("\r\nfirst\r\n\r\nthird", gOutcomeText);
}

TEST_F(modNotificationTest, ReportErrorOutcome_AbortsAndReportsThePendingError) {
  Install();
  gOutcomeText = "\r\nhead";
  Err.Number = 424;
  Err.Description = "Object required";
  ReportErrorOutcome("Error accessing Active Directory. Try installing an MDAC update.");
  EXPECT_TRUE(AbortStatus);
  EXPECT_EQ(
      "\r\nhead\r\nError accessing Active Directory. Try installing an MDAC update.\r\n"
      "> Error Number: 424\r\n> Error Description: Object required",
      gOutcomeText);
  EXPECT_EQ(0, Err.Number);
  EXPECT_EQ("", Err.Description);
}

}  // namespace

namespace {

// Fifty engines at once, each on its own client, all writing one output
// file in one shared folder: every report arrives whole, none is lost.
TEST(modNotificationSharedFileTest, FiftyEnginesAtOnce_OneSharedOutputFile_NoReportLostOrTorn) {
  namespace fs = std::filesystem;
  constexpr int kEngines = 50;
  constexpr int kPrinters = 40;
  std::string pattern = (fs::temp_directory_path() / "zandolin-shared-XXXXXX").string();
  ASSERT_NE(nullptr, mkdtemp(pattern.data()));
  const fs::path root = pattern;
  const fs::path shared = root / "share";
  fs::create_directories(shared);

  IniFile ini = ValidIni();
  ini.Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "\\\\srv\\share")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "reports.txt");
  std::vector<fs::path> clients;
  for (int i = 0; i < kEngines; ++i) {
    const std::string name = "PC" + std::to_string(100 + i);
    const fs::path client = root / name;
    fs::create_directories(client / "files" / "C" / "Deploy");
    fs::create_directories(client / "files" / "UNC" / "srv");
    fs::create_directory_symlink(shared, client / "files" / "UNC" / "srv" / "share");
    std::ofstream(client / "files" / "C" / "Deploy" / "deploy.ini", std::ios::binary) << ini.Text();
    json printers = json::array();
    for (int p = 0; p < kPrinters; ++p) {
      const std::string queue = name + "-queue-" + std::to_string(p);
      printers.push_back({{"name", "\\\\OLD\\" + queue}, {"serverName", "\\\\OLD"}, {"shareName", queue}});
    }
    std::ofstream(client / "machine.json") << json{{"computerName", name}, {"printers", printers}}.dump();
    clients.push_back(client);
  }

  std::vector<pid_t> pids;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  for (const fs::path& client : clients) {
    const std::string dirArg = client.string(), reportArg = (client / "transcript.json").string();
    std::vector<char*> argv = {const_cast<char*>(ZANDOLIN_SIM_EXE), const_cast<char*>(dirArg.c_str()),
                               const_cast<char*>("--json"), const_cast<char*>("--report"),
                               const_cast<char*>(reportArg.c_str()), nullptr};
    pid_t pid = -1;
    ASSERT_EQ(0, posix_spawn(&pid, ZANDOLIN_SIM_EXE, &actions, nullptr, argv.data(), environ));
    pids.push_back(pid);
  }
  posix_spawn_file_actions_destroy(&actions);
  for (pid_t pid : pids) {
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }

  // Each report is the run's outcome text with its line end; every report
  // opens with its head, and the reports follow each other whole.
  std::multiset<std::string> expected;
  size_t total = 0;
  for (const fs::path& client : clients) {
    std::ifstream in(client / "transcript.json");
    const json t = json::parse(in);
    EXPECT_EQ("returned", t["ended"]);
    const std::string report = std::string(t["outcomeText"]) + "\r\n";
    ASSERT_TRUE(report.starts_with("\r\n\r\nReport At: "));
    expected.insert(report);
    total += report.size();
  }
  std::ifstream in(shared / "reports.txt", std::ios::binary);
  const std::string file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(total, file.size());
  std::multiset<std::string> found;
  size_t start = 0;
  while (start < file.size()) {
    size_t next = file.find("\r\n\r\nReport At: ", start + 1);
    if (next == std::string::npos) next = file.size();
    found.insert(file.substr(start, next - start));
    start = next;
  }
  EXPECT_EQ(static_cast<size_t>(kEngines), found.size());
  EXPECT_TRUE(expected == found) << "a report is missing or torn";

  std::error_code ec;
  fs::remove_all(root, ec);
}

}  // namespace
