// The SMTP session against peers that really behave so: a real SMTP server
// for the normal dialogue, scripted peers for every refusal and failure, a
// port where nothing listens and one whose connections never complete.
#include "notification/frmWinsockContainer.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "notification/modNotification.h"
#include "platform/sim/SimContext.h"
#include "tests/servers/smtp/SmtpPeer.h"
#include "app/zandolin-debug/DebugFileReader.h"

#include <gtest/gtest.h>

namespace {

// The socket control's text of its error 40014, a port that is no number.
const std::string kBadArgument =
    "The argument passed to a function was not in the correct format or in the "
    "specified range";

using nlohmann::json;
using smtppeer::Peer;
using testini::IniFile;

using scenario::Banner;
using scenario::Line;

const std::string kEmailBanner = Banner(24, "     NOTFICATION VIA EMAIL    ", 24);
const std::string kEndBanner = Banner(31, "     END DEBUG     ", 30);
const char* const kBackupFile = "C:\\Deploy\\PC042_11.21.2026_14.05.09_EmailFailure.txt";
const char* const kFinished = ">> Finished notification, abort status: False\r\n";

// The head of the message as it goes on the wire, and as the log shows it.
std::string WireHead(const std::string& to = "admin@corp.test") {
  return "From: <zandolin@corp.test>\r\nTo: " + to +
         "\r\nSubject: Computer (PC042-jdoe) Printer report\r\nX-Mailer: Zandolin\r\n"
         "Mime-Version: 1.0\r\nContent-Type: text/charset=us-ascii\r\n\r\n";
}
std::string LoggedHead(const std::string& to = "admin@corp.test") {
  return "From: <zandolin@corp.test>\r\nTo: " + to +
         "\r\nSubject: Printer report\r\nX-Mailer: Zandolin\r\n"
         "Mime-Version: 1.0\r\nContent-Type: text/charset=us-ascii\r\n\r\n";
}

// The log lines of a session, step by step, up to the step given (1 to 7).
std::string SessionLines(const std::string& port, int steps, const std::string& outcome,
                         const std::string& to = "admin@corp.test") {
  std::string text = Line(">> Sending nofication via STMP, server (port): 127.0.0.1(" + port + ")");
  if (steps >= 1) text += Line(">> Connected to SMTP Server << ");
  if (steps >= 2) text += Line(">> Sending HELLO: HELO PC042");
  if (steps >= 3) text += Line(">> Sending FROM list: MAIL FROM:<zandolin@corp.test>");
  if (steps >= 4) text += Line(">> Sending TO list: RCPT TO:<" + to + ">");
  if (steps >= 5) text += Line(">> Sending DATA start <<");
  if (steps >= 6) text += Line(">> Sending DATA: " + LoggedHead(to) + outcome);
  if (steps >= 7) text += Line(">> Sending QUIT <<");
  return text;
}

std::string FailureLines() {
  return Line("ERROR: Sending SMTP email <<") + Line("ERROR: 0") + Line("ERROR DESCRIPTION: ") +
         Line(std::string(">> Writing to back-up file: ") + kBackupFile);
}

// What the client sends in a whole dialogue.
std::string WireDialogue(const std::string& outcome, const std::string& to = "admin@corp.test") {
  return "HELO PC042\r\nMAIL FROM:<zandolin@corp.test>\r\nRCPT TO:<" + to + ">\r\nDATA\r\n" + WireHead(to) +
         outcome + "\r\n.\r\nQUIT";
}

// The text from the first from up to and with the first to behind it.
std::string Span(const std::string& text, const std::string& from, const std::string& to) {
  size_t start = text.find(from);
  if (start == std::string::npos) return "<not found: " + from + ">";
  size_t end = text.find(to, start + from.size());
  if (end == std::string::npos) return "<not found: " + to + "> in " + text.substr(start);
  return text.substr(start, end + to.size() - start);
}

// A scripted server that answers every step as asked; "" leaves a step
// unanswered and ends the script there.
json Script(const std::vector<std::string>& replies) {
  static const char* const kAwaited[] = {nullptr, "\r\n", "\r\n", "\r\n", "\r\n", "\r\n.\r\n"};
  json steps = json::array();
  for (size_t i = 0; i < replies.size(); ++i) {
    if (i > 0) steps.push_back({"until", kAwaited[i]});
    if (replies[i].empty()) return steps;
    steps.push_back({"send", replies[i]});
  }
  steps.push_back({"until", "QUIT"});
  return steps;
}

const std::vector<std::string> kGoodReplies = {"220 mail.test ready\r\n", "250 hello\r\n", "250 sender ok\r\n",
                                               "250 recipient ok\r\n", "354 go ahead\r\n",
                                               "250 queued\r\n"};

class frmWinsockContainerTest : public SimFixture {
 protected:
  // A client whose clock is known; ticks last tickMs.
  void Machine(int tickMs) {
    machine["clock"] = "2026-11-21T14:05:09";
    machine["timerIntervalMs"] = tickMs;
  }

  IniFile SmtpIni(const std::string& port, bool progress, const std::string& emailTo = "admin@corp.test") {
    IniFile ini = testini::ValidIni();
    ini.Set("GENERAL", "ShowProgress", progress ? "True" : "False")
        .Set("NOTIFICATION SMTP", "UseSMTP", "True")
        .Set("NOTIFICATION SMTP", "SMTPServerNameOrIP", "127.0.0.1")
        .Set("NOTIFICATION SMTP", "ServerPort", port)
        .Set("NOTIFICATION SMTP", "EmailSubject", "Printer report")
        .Set("NOTIFICATION SMTP", "EmailTo", emailTo)
        .Set("NOTIFICATION SMTP", "EmailFrom", "zandolin@corp.test");
    return ini;
  }

  json RunIni(const IniFile& ini, double limitSeconds = 20) {
    WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
    return Run("", limitSeconds);
  }

  // The run's log from the session's first line on.
  static std::string SessionLog(const json& t) {
    const std::string debug = t["debugBuffer"];
    size_t at = debug.find(">> Sending nofication via STMP");
    return at == std::string::npos ? "<no session>" : debug.substr(at);
  }

  // A session run inside the dispatch (progress window on) against a
  // scripted peer, to its end; slow ticks, so that no tick changes the clock.
  json RunScripted(const json& steps, std::string& port, std::string& wire) {
    Machine(60000);
    auto peer = Peer::Script(steps);
    port = peer->Port();
    json t = RunIni(SmtpIni(port, true));
    client.reset();
    wire = peer->Log();
    return t;
  }
};

// ----- the recipients -----

class RecipientListTest : public SimFixture {
 protected:
  std::string For(const std::vector<std::string>& slots) {
    Install();
    INIDocument.EmailTo = slots;
    return frmWinsockContainer.RecipientList();
  }
};

TEST_F(RecipientListTest, OneAddressWithItsSpareSlot_IsSent) {
  EXPECT_EQ("admin@corp.test", For({"admin@corp.test", ""}));
}

TEST_F(RecipientListTest, TwoAddresses_OnlyTheFirstIsSent) {
  EXPECT_EQ("first@corp.test", For({"first@corp.test", "second@corp.test"}));
}

TEST_F(RecipientListTest, ThreeAddresses_TheFirstTwoJoinedBySemicolon) {
  EXPECT_EQ("a@corp.test;b@corp.test", For({"a@corp.test", "b@corp.test", "c@corp.test"}));
}

TEST_F(RecipientListTest, EmptySlots_AreSkipped) {
  EXPECT_EQ("b@x;d@x", For({"", "b@x", "", "d@x", "e@x"}));
}

TEST_F(RecipientListTest, NoAddress_GivesEmpty) { EXPECT_EQ("", For({""})); }

TEST_F(RecipientListTest, ErrorTexts_AreTakenAsAddresses) {
  EXPECT_EQ("Error in To Email Address;Error in To Email Address",
            For({"Error in To Email Address", "Error in To Email Address", "Error in To Email Address"}));
}

// ----- the normal dialogue against a real SMTP server -----

TEST_F(frmWinsockContainerTest, RealServer_ProgressOn_SendsTheMessageInsideTheDispatch) {
  Machine(20);
  auto server = Peer::Server();
  const std::string port = server->Port();
  const json t = RunIni(SmtpIni(port, true));
  client.reset();
  const json record = server->Record();

  EXPECT_EQ("returned", t["ended"]);
  const std::string outcome = t["outcomeText"];
  EXPECT_EQ(kEmailBanner + SessionLines(port, 7, outcome) + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ(json({{"helo", "PC042"},
                  {"mailFrom", "zandolin@corp.test"},
                  {"rcptTos", {"admin@corp.test"}},
                  {"data", WireHead() + outcome + "\r\n"}}),
            record);
  ASSERT_EQ(1u, t["sockets"].size());
  EXPECT_EQ(json({{"host", "127.0.0.1"},
                  {"port", port},
                  {"peer", "network"},
                  {"connected", true},
                  {"error", nullptr},
                  {"sent", WireDialogue(outcome)},
                  {"received",
                   "220 mail.test Zandolin test server\r\n250 mail.test\r\n250 OK\r\n250 OK\r\n"
                   "354 End data with <CR><LF>.<CR><LF>\r\n250 Message accepted for delivery\r\n"}}),
            t["sockets"][0]);
  EXPECT_EQ(0, LoadedFormCount());
  EXPECT_FALSE(FileExists(kBackupFile));
}

// ----- a step refused, at each of the six steps -----

struct Refusal {
  int step;
  std::string reply;
};

class RefusedStepTest : public frmWinsockContainerTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RefusedStepTest, RefusedStep_FailureLinesAndBackupFile_RestSkipped) {
  const Refusal refusal = GetParam();
  std::vector<std::string> replies(kGoodReplies.begin(), kGoodReplies.begin() + refusal.step - 1);
  replies.push_back(refusal.reply);
  std::string port, wire;
  const json t = RunScripted(Script(replies), port, wire);

  EXPECT_EQ("returned", t["ended"]);
  const std::string outcome = t["outcomeText"];
  EXPECT_EQ(kEmailBanner + SessionLines(port, refusal.step, outcome) + FailureLines() + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  // The client sent the commands up to the refused one, and then nothing.
  const std::string whole = WireDialogue(outcome);
  const size_t cut[] = {0, 0, whole.find("MAIL"), whole.find("RCPT"), whole.find("DATA"),
                        whole.find("From: <"), whole.find("QUIT")};
  EXPECT_EQ(whole.substr(0, cut[refusal.step]), wire);
  EXPECT_EQ(wire, t["sockets"][0]["sent"]);
  EXPECT_EQ(outcome + "\r\n", ReadFile(kBackupFile));
  EXPECT_EQ(0, LoadedFormCount());
  EXPECT_FALSE(AbortStatus);
}

INSTANTIATE_TEST_SUITE_P(EachStep, RefusedStepTest,
                         ::testing::Values(Refusal{1, "554 no service\r\n"}, Refusal{2, "501 bad hello\r\n"},
                                           Refusal{3, "550 sender refused\r\n"},
                                           Refusal{4, "550 no such user\r\n"},
                                           Refusal{5, "503 bad sequence\r\n"},
                                           Refusal{6, "552 too big\r\n"}),
                         [](const ::testing::TestParamInfo<Refusal>& info) {
                           return "Step" + std::to_string(info.param.step);
                         });

// ----- replies in pieces, odd replies -----

TEST_F(frmWinsockContainerTest, ReplyInTwoPieces_IsJoined) {
  json steps = Script(kGoodReplies);
  steps[0] = {"send", "220 mail.test"};
  steps.insert(steps.begin() + 1, json{"sleep", 150});
  steps.insert(steps.begin() + 2, json{"send", " ready\r\n"});
  std::string port, wire;
  const json t = RunScripted(steps, port, wire);
  const std::string outcome = t["outcomeText"];
  EXPECT_EQ(kEmailBanner + SessionLines(port, 7, outcome) + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ(WireDialogue(outcome), wire);
  EXPECT_FALSE(FileExists(kBackupFile));
}

TEST_F(frmWinsockContainerTest, FirstPieceEndingInLineEnd_IsJudgedAloneAndTheRestAnswersTheNextStep) {
  // A greeting of two lines whose second line comes only after HELO: the
  // first line passes as the greeting, the second is taken as the answer to
  // HELO, and 220 is not 250.
  const json steps = json::array({json{"send", "220-mail.test first line\r\n"}, json{"until", "\r\n"},
                                   json{"send", "220 mail.test second line\r\n"}, json{"until", "QUIT"}});
  std::string port, wire;
  const json t = RunScripted(steps, port, wire);
  const std::string outcome = t["outcomeText"];
  EXPECT_EQ(kEmailBanner + SessionLines(port, 2, outcome) + FailureLines() + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ("HELO PC042\r\n", wire);
  EXPECT_EQ(outcome + "\r\n", ReadFile(kBackupFile));
}

TEST_F(frmWinsockContainerTest, ManyLinesInOnePiece_PassOnTheFirstLinesCode) {
  std::vector<std::string> replies = kGoodReplies;
  replies[0] = "220-mail.test ESMTP\r\n220-second\r\n220 last\r\n";
  replies[1] = "250-mail.test\r\n250-SIZE 1000\r\n554 would fail alone\r\n";
  std::string port, wire;
  const json t = RunScripted(Script(replies), port, wire);
  const std::string outcome = t["outcomeText"];
  EXPECT_EQ(kEmailBanner + SessionLines(port, 7, outcome) + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ(WireDialogue(outcome), wire);
}

TEST_F(frmWinsockContainerTest, Garbage_IsARefusedStep) {
  std::string port, wire;
  const json t = RunScripted(Script({"\x01\x02garbage \xff\xfe 220\r\n"}), port, wire);
  EXPECT_EQ(kEmailBanner + SessionLines(port, 1, t["outcomeText"]) + FailureLines() + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ("", wire);
  EXPECT_TRUE(FileExists(kBackupFile));
}

TEST_F(frmWinsockContainerTest, ReplyWithoutDigits_IsARefusedStep) {
  std::vector<std::string> replies = kGoodReplies;
  replies[2] = "OK sender accepted\r\n";
  std::string port, wire;
  const json t = RunScripted(Script(replies), port, wire);
  EXPECT_EQ(kEmailBanner + SessionLines(port, 3, t["outcomeText"]) + FailureLines() + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
}

TEST_F(frmWinsockContainerTest, HugeReplies_AreJoinedAndJudgedByTheirFirstPiece) {
  std::vector<std::string> replies = kGoodReplies;
  replies[0] = "220 " + std::string(3 << 20, 'x') + "\r\n";    // 3 MiB, passes
  replies[1] = std::string(1 << 20, '2') + " hello\r\n";          // a number of a million digits
  std::string port, wire;
  const json t = RunScripted(Script(replies), port, wire);
  EXPECT_EQ(kEmailBanner + SessionLines(port, 2, t["outcomeText"]) + FailureLines() + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ(replies[0] + replies[1], t["sockets"][0]["received"]);
  EXPECT_EQ("HELO PC042\r\n", wire);
}

TEST_F(frmWinsockContainerTest, LocalHostName_IsTheMachinesOwn) {
  machine["localHostName"] = "pc042.corp.test";
  std::string port, wire;
  const json t = RunScripted(Script({"220 hi\r\n", "421 bye\r\n"}), port, wire);
  EXPECT_EQ("HELO pc042.corp.test\r\n", wire);
  EXPECT_NE(std::string::npos,
            std::string(t["debugBuffer"]).find(Line(">> Sending HELLO: HELO pc042.corp.test")));
}

TEST_F(frmWinsockContainerTest, BackupFileCannotBeWritten_ThreeMoreErrorLines) {
  machine["faults"] = json{{{"call", "AppendText"}, {"match", kBackupFile}, {"lastError", 70}}};
  std::string port, wire;
  const json t = RunScripted(Script({"554 go away\r\n"}), port, wire);
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_EQ(kEmailBanner + SessionLines(port, 1, t["outcomeText"]) + FailureLines() +
                Line("ERROR: Saving email failure file <<") + Line("ERROR: 70") +
                Line("ERROR DESCRIPTION: Permission denied") + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_FALSE(FileExists(kBackupFile));
}

TEST_F(frmWinsockContainerTest, BackupFile_IsAppendedTo) {
  WriteFile(kBackupFile, "earlier\r\n");
  std::string port, wire;
  const json t = RunScripted(Script({"554 go away\r\n"}), port, wire);
  EXPECT_EQ("earlier\r\n" + std::string(t["outcomeText"]) + "\r\n", ReadFile(kBackupFile));
}

// ----- the real server refuses, recipients of every kind -----

TEST_F(frmWinsockContainerTest, RealServer_ThreeRecipients_FirstTwoInOneCommandAreRefused) {
  Machine(60000);
  auto server = Peer::Server();
  const std::string port = server->Port();
  const json t = RunIni(SmtpIni(port, true, "a@corp.test,b@corp.test,c@corp.test"));
  client.reset();
  const json record = server->Record();
  const std::string outcome = t["outcomeText"];
  EXPECT_EQ(kEmailBanner + SessionLines(port, 4, outcome, "a@corp.test;b@corp.test") + FailureLines() +
                kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ("220 mail.test Zandolin test server\r\n250 mail.test\r\n250 OK\r\n"
            "501 Syntax: RCPT TO: <address>\r\n",
            t["sockets"][0]["received"]);
  EXPECT_EQ(nullptr, record["data"]);
  EXPECT_EQ(outcome + "\r\n", ReadFile(kBackupFile));
}

TEST_F(frmWinsockContainerTest, RealServer_ErrorTextAsRecipient_IsSentAsAnAddress) {
  Machine(60000);
  auto server = Peer::Server();
  const std::string port = server->Port();
  const json t = RunIni(SmtpIni(port, true, ","));
  client.reset();
  const json record = server->Record();
  const std::string outcome = t["outcomeText"];
  const std::string to = "Error in To Email Address";
  EXPECT_EQ(kEmailBanner + SessionLines(port, 7, outcome, to) + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ(json::array({"\"Error in To Email Address\""}), record["rcptTos"]);
  EXPECT_EQ(WireHead(to) + outcome + "\r\n", record["data"]);
}

// ----- the session after Main (progress window off) -----

TEST_F(frmWinsockContainerTest, ProgressOff_SessionRunsAfterMain_OutsideTheSavedLogWithTheFileHead) {
  Machine(20);
  std::filesystem::create_directories(dir / "files" / "C" / "Reports");
  auto server = Peer::Server();
  const std::string port = server->Port();
  IniFile ini = SmtpIni(port, false);
  ini.Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "C:\\Reports")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "report.txt");
  const json t = RunIni(ini);
  client.reset();
  const json record = server->Record();

  EXPECT_EQ("returned", t["ended"]);
  const std::string outcome = t["outcomeText"];
  EXPECT_TRUE(outcome.starts_with("\r\n\r\nReport At: 11/21/2026 2:05:09 PM\r\n\r\n")) << outcome;
  EXPECT_EQ(WireHead() + outcome + "\r\n", record["data"]);

  // The log holds the session behind the closing banner; the saved file
  // ends with the banner.
  const std::string debug = t["debugBuffer"];
  const std::string firstLine = SessionLines(port, 0, "");
  const std::string afterMain = SessionLines(port, 7, outcome).substr(firstLine.size());
  ASSERT_TRUE(debug.ends_with(kEndBanner + afterMain)) << debug;
  EXPECT_NE(std::string::npos, debug.find(kEmailBanner + firstLine + Banner(22, "     NOTIFICATION VIA FILE OUTPUT     ", 21)));
  std::ifstream in(dir / "files" / "C" / "Deploy" / "PC042.debug", std::ios::binary);
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  DecodedDebugFile decoded;
  std::string error;
  ASSERT_TRUE(DecodeDebugFile(bytes, decoded, error)) << error;
  EXPECT_EQ(debug.substr(0, debug.size() - afterMain.size()), decoded.text);
}

TEST_F(frmWinsockContainerTest, ProgressOff_RefusedStep_BackupWrittenAfterMain) {
  Machine(60000);
  auto peer = Peer::Script(Script({kGoodReplies[0], "550 no\r\n"}));
  const std::string port = peer->Port();
  const json t = RunIni(SmtpIni(port, false));
  client.reset();
  EXPECT_EQ("HELO PC042\r\n", peer->Log());
  EXPECT_EQ("returned", t["ended"]);
  const std::string debug = t["debugBuffer"];
  EXPECT_TRUE(debug.ends_with(kEndBanner + SessionLines(port, 2, t["outcomeText"]).substr(SessionLines(port, 0, "").size()) +
                              FailureLines()))
      << debug;
  EXPECT_EQ(std::string(t["outcomeText"]) + "\r\n", ReadFile(kBackupFile));
}

// ----- the rows that never end -----

class HangingSessionTest : public frmWinsockContainerTest {
 protected:
  // Ticks of 20 ms: thirty of them pass in well under the limit.
  json RunHanging(const std::string& port, bool progress) {
    Machine(20);
    return RunIni(SmtpIni(port, progress), 1.0);
  }
};

TEST_F(HangingSessionTest, SilentServer_TimesOutUnloadsAndTheReplyWaitGoesOn) {
  auto peer = Peer::Script(json::array({json{"hold"}}));
  const json t = RunHanging(peer->Port(), true);
  client.reset();
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("forms still loaded: 1", t["stuckIn"]);   // the progress window alone
  EXPECT_EQ("the e-mail session waits for a server that does not answer; at logon this process would never end",
            t["stuckReason"]);
  EXPECT_EQ(SessionLines(peer->Port(), 1, ""), SessionLog(t));
  EXPECT_EQ("", peer->Log());
  EXPECT_FALSE(FileExists(kBackupFile));
}

TEST_F(HangingSessionTest, SilentServer_ProgressOff_StuckAfterMainWithNoFormLoaded) {
  auto peer = Peer::Script(json::array({json{"hold"}}));
  const json t = RunHanging(peer->Port(), false);
  client.reset();
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("a wait that does not end", t["stuckIn"]);
  const std::string debug = t["debugBuffer"];
  EXPECT_TRUE(debug.ends_with(kEndBanner + Line(">> Connected to SMTP Server << "))) << debug;
}

TEST_F(HangingSessionTest, ReplyWithoutLineEnd_TimesOut) {
  auto peer = Peer::Script(json::array({json{"send", "220 mail.test ready"}, json{"hold"}}));
  const json t = RunHanging(peer->Port(), true);
  client.reset();
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("forms still loaded: 1", t["stuckIn"]);
  // An answer without its line end is no answer.
  EXPECT_EQ("the e-mail session waits for a server that does not answer; at logon this process would never end",
            t["stuckReason"]);
  EXPECT_EQ(SessionLines(peer->Port(), 1, ""), SessionLog(t));
  EXPECT_EQ("220 mail.test ready", t["sockets"][0]["received"]);
  EXPECT_FALSE(FileExists(kBackupFile));
}

TEST_F(HangingSessionTest, ServerClosesTheConnection_TimesOut) {
  auto peer = Peer::Script(json::array({json{"send", "220 mail.test\r\n"}, json{"until", "\r\n"},
                                        json{"close"}, json{"hold"}}));
  const json t = RunHanging(peer->Port(), true);
  client.reset();
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("forms still loaded: 1", t["stuckIn"]);
  EXPECT_EQ("the e-mail server 127.0.0.1 port " + peer->Port() +
                " closed the connection while the e-mail session waited for its answer; at logon this process "
                "would never end",
            t["stuckReason"]);
  EXPECT_EQ(SessionLines(peer->Port(), 2, ""), SessionLog(t));
  EXPECT_EQ("HELO PC042\r\n", peer->Log());
  EXPECT_FALSE(FileExists(kBackupFile));
}

TEST_F(HangingSessionTest, ErrorWhileAReplyIsAwaited_FormStaysLoaded) {
  auto peer = Peer::Script(json::array({json{"send", "220 mail.test\r\n"}, json{"until", "\r\n"},
                                        json{"reset"}}));
  const json t = RunHanging(peer->Port(), true);
  client.reset();
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("forms still loaded: 2", t["stuckIn"]);
  EXPECT_EQ("the connection to the e-mail server 127.0.0.1 port " + peer->Port() +
                " broke (error 10054, The connection is reset by remote side) while the e-mail session waited "
                "for its answer; at logon this process would never end",
            t["stuckReason"]);
  EXPECT_EQ(SessionLines(peer->Port(), 2, ""), SessionLog(t));
  EXPECT_FALSE(FileExists(kBackupFile));
}

TEST_F(HangingSessionTest, NothingListens_ErrorBeforeConnect_FormStaysLoaded) {
  const std::string port = smtppeer::ClosedPort();
  const json t = RunHanging(port, true);
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("forms still loaded: 2", t["stuckIn"]);
  EXPECT_EQ(SessionLines(port, 0, ""), SessionLog(t));
  EXPECT_EQ(json::parse(R"([{"host": "127.0.0.1", "port": ")" + port + R"(", "sent": "",
              "received": "", "peer": "network", "connected": false,
              "error": {"number": 10061, "description": "Connection is forcefully rejected"}}])"),
            t["sockets"]);
  EXPECT_EQ("the e-mail server 127.0.0.1 port " + port +
                " could not be reached (error 10061, Connection is forcefully rejected), and the e-mail "
                "session stays open waiting for it; at logon this process would never end",
            t["stuckReason"]);
}

TEST_F(HangingSessionTest, NothingListens_ProgressOff_TheProcessNeverEnds) {
  const std::string port = smtppeer::ClosedPort();
  const json t = RunHanging(port, false);
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("forms still loaded: 1", t["stuckIn"]);
  EXPECT_TRUE(std::string(t["debugBuffer"]).ends_with(kEndBanner));
}

TEST_F(HangingSessionTest, PortThatIsNoNumber_GoesToConnectAsItStands) {
  const json t = RunHanging("smtp", true);
  EXPECT_EQ("stuck", t["ended"]);
  EXPECT_EQ("forms still loaded: 2", t["stuckIn"]);
  EXPECT_EQ(Line(">> Sending nofication via STMP, server (port): 127.0.0.1(smtp)"), SessionLog(t));
  json socket = t["sockets"][0];
  EXPECT_EQ(socket["error"]["number"], 40014);
  EXPECT_EQ(socket["error"]["description"], kBadArgument);
  socket.erase("error");
  EXPECT_EQ(json::parse(R"({"host": "127.0.0.1", "port": "smtp", "sent": "", "received": "", "peer": "network",
                            "connected": false})"),
            socket);
}

// A send the socket refuses is trapped nowhere: the process ends with the
// socket's error, without the failure branch. (The socket is closed under
// a step that goes on when an error event comes while the message goes out,
// or when the thirtieth tick falls in the very round its reply arrives.)
TEST_F(frmWinsockContainerTest, SendOfTheClosingDotRefused_EndsTheProcessWithTheSocketsError) {
  machine["faults"] = {{{"call", "SendData"}, {"match", "\r\n.\r\n"}, {"lastError", 40006}}};
  std::vector<std::string> replies(kGoodReplies.begin(), kGoodReplies.begin() + 5);
  replies.push_back("");
  std::string port, wire;
  const json t = RunScripted(Script(replies), port, wire);

  EXPECT_EQ("fatal", t["ended"]);
  EXPECT_EQ(json::parse(R"({"number":40006,"description":)"
                        R"("Wrong protocol or connection state for the requested transaction or request"})"),
            t["fatal"]);
  const std::string outcome = t["outcomeText"];
  EXPECT_EQ(SessionLines(port, 6, outcome), SessionLog(t));
  const std::string whole = WireDialogue(outcome);
  EXPECT_EQ(whole.substr(0, whole.find("\r\n.\r\n")), wire);
  EXPECT_FALSE(FileExists(kBackupFile));
}

// No Connect event within thirty ticks: the form goes silently and the run
// ends.
TEST_F(frmWinsockContainerTest, ConnectionNeverCompletes_UnloadedSilentlyAndTheRunEnds) {
  Machine(20);
  auto peer = Peer::Blackhole(10);
  const std::string port = peer->Port();
  const json t = RunIni(SmtpIni(port, true), 10);
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_EQ(kEmailBanner + SessionLines(port, 0, "") + kFinished + kEndBanner,
            Span(t["debugBuffer"], kEmailBanner, kEndBanner));
  EXPECT_EQ(0, LoadedFormCount());
  EXPECT_FALSE(FileExists(kBackupFile));
}

}  // namespace
