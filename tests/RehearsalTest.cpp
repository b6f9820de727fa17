// zandolin-fleet rehearse on a fleet made here: 240 captured clients of four
// generations, with the expected outcome of each worked out from how it was
// made; the report page opened in a real browser.
#include "FleetMaker.h"
#include "FleetTestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <map>
#include <string>

namespace {

namespace fs = std::filesystem;
using fleettest::Quote;
using nlohmann::json;

constexpr int kClients = 240;

class RehearsalTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = fleettest::FreshFolder("zandolin-fleet-rehearsal");
    captures_ = dir_ / "captures";
    clients_ = fleetmaker::WriteFleet(captures_, kClients);
    fs::create_directories(captures_ / "broken");
    std::ofstream(captures_ / "broken" / "machine.json") << "{\"printers\": [}";
    fs::create_directories(captures_ / "no-machine" / "files" / "C");
    std::ofstream(dir_ / fleetmaker::kIniName, std::ios::binary) << fleetmaker::Ini();
    std::ofstream(dir_ / "servers.json") << fleetmaker::Servers().dump();
    before_ = fleettest::Snapshot(captures_);
    status_ = fleettest::Run(std::string(ZANDOLIN_FLEET_EXE) + " rehearse --ini " + Quote(dir_ / fleetmaker::kIniName) +
                                 " --servers " + Quote(dir_ / "servers.json") + " " + Quote(captures_) + " --out " +
                                 Quote(dir_ / "out") + " --jobs 2",
                             dir_);
  }
  static void TearDownTestSuite() { fs::remove_all(dir_); }

  static inline fs::path dir_, captures_;
  static inline std::vector<fleetmaker::Client> clients_;
  static inline std::map<std::string, std::string> before_;
  static inline int status_ = -1;
};

TEST_F(RehearsalTest, EndsWellAndNamesTheSkippedCaptures) {
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(fleettest::ReadAll(dir_ / "stdout.txt"),
            "Rehearsed 240 clients (2 skipped): " + (dir_ / "out" / "index.html").string() + "\n");
  const std::string errors = fleettest::ReadAll(dir_ / "stderr.txt");
  EXPECT_NE(errors.find("zandolin-fleet: skipped '" + (captures_ / "no-machine").string() +
                        "': it holds files/ but no machine.json\n"),
            std::string::npos)
      << errors;
  EXPECT_NE(errors.find("zandolin-fleet: skipped '" + (captures_ / "broken").string() + "': " +
                        (captures_ / "broken" / "machine.json").string() + ": line 1, column 15: invalid JSON: "),
            std::string::npos)
      << errors;
}

TEST_F(RehearsalTest, NoCaptureChanges) { EXPECT_EQ(fleettest::Snapshot(captures_), before_); }

TEST_F(RehearsalTest, EveryRowTellsWhatTheFleetAsMadeExpects) {
  std::vector<std::map<std::string, std::string>> rows = fleettest::ReadCsv(dir_ / "out" / "fleet.csv");
  ASSERT_EQ(rows.size(), clients_.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const fleetmaker::Client& c = clients_[i];
    const auto& row = rows[i];
    SCOPED_TRACE(c.computer);
    EXPECT_EQ(row.at("computer"), c.computer);
    EXPECT_EQ(row.at("user"), c.user);
    EXPECT_EQ(row.at("ended"), c.Fatal() ? "fatal" : c.Stuck() ? "stuck" : "returned");
    EXPECT_EQ(row.at("run"), c.alreadySucceeded ? "already succeeded" : c.Fatal() ? "stopped before its report" : "full run");
    EXPECT_EQ(row.at("printersBeforeCount"), std::to_string(c.PrintersBefore()));
    EXPECT_EQ(row.at("movedCount"), std::to_string(c.Moved()));
    EXPECT_EQ(row.at("failedAddsCount"), std::to_string(c.FailedAdds()));
    EXPECT_EQ(row.at("lostCount"), std::to_string(c.Lost()));
    EXPECT_EQ(row.at("defaultLost"), c.DefaultLost() ? "yes" : "no");
    EXPECT_EQ(row.at("statusRecorded"), c.Status());
    EXPECT_EQ(row.at("untouchedCount"),
              std::to_string(c.FullRun() ? (c.local ? 1 : 0) + (c.other ? 1 : 0) : c.PrintersBefore()));
    if (c.FailedAdds()) {
      EXPECT_EQ(row.at("failedAdds"), "\\\\NEW\\q7 (1801: the queue is missing on the target server)");
    }
    if (c.Fatal()) {
      EXPECT_EQ(row.at("endedDetail"), "13 Type mismatch");
    }
    if (c.Stuck()) {
      EXPECT_EQ(row.at("endedDetail"),
                "the progress window, made hidden to install a printer with its driver on Windows 95/98/ME while "
                "ShowProgress is False, is never closed: the process never ends");
    }
  }
}

TEST_F(RehearsalTest, OneClientInFull) {
  // Client 1: Windows XP, \\OLD\q1 (its default) and \\OLD\q4.
  std::vector<std::map<std::string, std::string>> rows = fleettest::ReadCsv(dir_ / "out" / "fleet.csv");
  ASSERT_GT(rows.size(), 1u);
  const auto& row = rows[1];
  EXPECT_EQ(row.at("source"), (captures_ / "PC1001_u1").string());
  EXPECT_EQ(row.at("generation"), "Windows XP");
  EXPECT_EQ(row.at("printersBefore"), "\\\\OLD\\q1; \\\\OLD\\q4");
  EXPECT_EQ(row.at("printersAfter"), "\\\\NEW\\q1; \\\\NEW\\q4; \\\\NEW\\q0");
  EXPECT_EQ(row.at("moved"), "\\\\OLD\\q1 -> \\\\NEW\\q1; \\\\OLD\\q4 -> \\\\NEW\\q4");
  EXPECT_EQ(row.at("defaultBefore"), "\\\\OLD\\q1");
  EXPECT_EQ(row.at("defaultAfter"), "\\\\NEW\\q1");
  EXPECT_EQ(row.at("runsAgain"), "no");
  EXPECT_EQ(row.at("outputFile"), "C:\\Deploy\\PC1001_u1_migration.txt");
  EXPECT_EQ(row.at("eventLog"), "information (4)");
  EXPECT_EQ(row.at("unknownLines"), "0");
  EXPECT_EQ(row.at("transcript"), "clients/00002-PC1001_u1.json");
  json transcript = json::parse(fleettest::ReadAll(dir_ / "out" / row.at("transcript")));
  EXPECT_EQ(transcript["ended"], "returned");
  EXPECT_NE(transcript["outcomeText"].get<std::string>().find("Migrating: \\\\OLD\\q4 to \\\\NEW\\q4"), std::string::npos);
}

TEST_F(RehearsalTest, CountsAtTheTopAgreeWithTheFleetAsMade) {
  size_t moved = 0, clientsMoved = 0, atRisk = 0, lost = 0, lostDefaults = 0, stuck = 0, fatal = 0, failed = 0;
  for (const fleetmaker::Client& c : clients_) {
    moved += c.Moved();
    clientsMoved += c.Moved() > 0;
    atRisk += c.AtRisk();
    lost += c.Lost();
    lostDefaults += c.DefaultLost();
    stuck += c.Stuck();
    fatal += c.Fatal();
    failed += c.FailedAdds();
  }
  json report = json::parse(fleettest::ReadAll(dir_ / "out" / "fleet.json"));
  const json& counts = report["counts"];
  EXPECT_EQ(counts["clients"], kClients);
  EXPECT_EQ(counts["printersMoved"], moved);
  EXPECT_EQ(counts["clientsMoved"], clientsMoved);
  EXPECT_EQ(counts["atRisk"], atRisk);
  EXPECT_EQ(counts["failedAdds"], failed);
  EXPECT_EQ(counts["lostPrinters"], lost);
  EXPECT_EQ(counts["lostDefaults"], lostDefaults);
  EXPECT_EQ(counts["stuck"], stuck);
  EXPECT_EQ(counts["fatal"], fatal);
  EXPECT_EQ(counts["skipped"], 2);
  // The to-do list: NEW lacks q7, which every client that has it needs.
  ASSERT_EQ(report["todo"].size(), 1u);
  EXPECT_EQ(report["todo"][0]["server"], "\\\\NEW");
  EXPECT_EQ(report["todo"][0]["queues"],
            json::parse(R"([{"queue":"q7","error":1801,"meaning":"the queue is missing on the target server","clients":)" +
                        std::to_string(failed) + "}]"));
}

TEST_F(RehearsalTest, PageInABrowser_ShowsTheCsvCountsAndFilters) {
  const fs::path pictures = fs::temp_directory_path() / "zandolin-fleet-pictures";
  fs::create_directories(pictures);
  int status = fleettest::Run("python3 " + Quote(fs::path(ZANDOLIN_SOURCE_DIR) / "tests" / "browser" / "report_page.py") +
                                  " " + Quote(dir_ / "out") + " " + Quote(pictures / "rehearsal.png"),
                              dir_);
  EXPECT_EQ(status, 0) << fleettest::ReadAll(dir_ / "stdout.txt") << fleettest::ReadAll(dir_ / "stderr.txt");
  EXPECT_TRUE(fs::file_size(pictures / "rehearsal.png") > 10000);
}

// Mail on: the played SMTP peer answers in place of the server, the one
// that accepts unless the capture names another.
class RehearsalMailTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = fleettest::FreshFolder("zandolin-fleet-rehearsal-mail");
    const fs::path captures = dir_ / "captures";
    const std::pair<int, json> kClients[] = {
        {0, nullptr}, {1, nullptr}, {5, "silent"}, {9, {{"refuse", 4}}}};
    for (const auto& [i, peer] : kClients) {
      fs::path folder = fleetmaker::Write(captures, fleetmaker::Make(i));
      if (peer.is_null()) continue;
      json machine = json::parse(fleettest::ReadAll(folder / "machine.json"));
      machine["smtp"] = peer;
      std::ofstream(folder / "machine.json", std::ios::trunc) << machine.dump();
    }
    std::string ini = fleetmaker::Ini();
    const std::string off = "[NOTIFICATION SMTP]\r\nUseSMTP=False\r\n";
    ini.replace(ini.find(off), off.size(),
                "[NOTIFICATION SMTP]\r\nUseSMTP=True\r\nSMTPServerNameOrIP=mail.example.com\r\nServerPort=25\r\n"
                "EmailSubject=Printers\r\nEmailTo=admin@example.com\r\nEmailFrom=zandolin@example.com\r\n");
    std::ofstream(dir_ / fleetmaker::kIniName, std::ios::binary) << ini;
    std::ofstream(dir_ / "servers.json") << fleetmaker::Servers().dump();
    const auto start = std::chrono::steady_clock::now();
    status_ = fleettest::Run(std::string(ZANDOLIN_FLEET_EXE) + " rehearse --ini " + Quote(dir_ / fleetmaker::kIniName) +
                                 " --servers " + Quote(dir_ / "servers.json") + " " + Quote(captures) + " --out " +
                                 Quote(dir_ / "out") + " --jobs 2 --limit 100",
                             dir_);
    seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rows_ = fleettest::ReadCsv(dir_ / "out" / "fleet.csv");
  }
  static void TearDownTestSuite() { fs::remove_all(dir_); }

  static json Transcript(const std::map<std::string, std::string>& row) {
    return json::parse(fleettest::ReadAll(dir_ / "out" / row.at("transcript")));
  }

  static inline fs::path dir_;
  static inline int status_ = -1;
  static inline double seconds_ = 0;
  static inline std::vector<std::map<std::string, std::string>> rows_;
};

TEST_F(RehearsalMailTest, NoPeerNamed_TheMailIsAcceptedAndNothingLeavesTheMachine) {
  ASSERT_EQ(status_, 0) << fleettest::ReadAll(dir_ / "stderr.txt");
  ASSERT_EQ(rows_.size(), 4u);
  // PC1000 has no default printer, PC1001 has one.
  const char* const kNotes[] = {"Warning no currently set default printer.", ""};
  for (int i : {0, 1}) {
    const auto& row = rows_[i];
    SCOPED_TRACE(row.at("computer"));
    EXPECT_EQ(row.at("ended"), "returned");
    EXPECT_EQ(row.at("statusRecorded"), "True");
    EXPECT_EQ(row.at("mailTo"), "admin@example.com");
    EXPECT_EQ(row.at("notes"), kNotes[i]);
    json t = Transcript(row);
    EXPECT_EQ(t["client"]["smtp"], "accept");
    ASSERT_EQ(t["sockets"].size(), 1u);
    EXPECT_EQ(t["sockets"][0]["host"], "mail.example.com");
    EXPECT_EQ(t["sockets"][0]["peer"], "accept");
    EXPECT_EQ(t["sockets"][0]["received"],
              "220 mail.example.com Service ready\r\n250 mail.example.com\r\n250 OK\r\n250 OK\r\n"
              "354 Start mail input; end with <CRLF>.<CRLF>\r\n250 OK\r\n");
  }
}

TEST_F(RehearsalMailTest, SilentPeer_StuckAtOnceInTheMailSession) {
  ASSERT_EQ(rows_.size(), 4u);
  const auto& row = rows_[2];
  EXPECT_EQ(row.at("computer"), "PC1005");
  EXPECT_EQ(row.at("ended"), "stuck");
  EXPECT_EQ(row.at("endedDetail"),
            "the e-mail session waits for a server that does not answer; at logon this process would never end");
  EXPECT_EQ(row.at("mailTo"), "");
  EXPECT_EQ(row.at("notes"), "the mail was not sent");
  EXPECT_EQ(Transcript(row)["sockets"][0]["peer"], "silent");
  // The session gives up on the server and then waits for nothing: stuck at
  // once, not when --limit runs out.
  EXPECT_LT(seconds_, 100);
}

TEST_F(RehearsalMailTest, RefusingPeer_TheMailIsNotSentAndTheRunEnds) {
  ASSERT_EQ(rows_.size(), 4u);
  const auto& row = rows_[3];
  EXPECT_EQ(row.at("computer"), "PC1009");
  EXPECT_EQ(row.at("ended"), "returned");
  EXPECT_EQ(row.at("mailTo"), "");
  EXPECT_EQ(row.at("notes"), "the mail was not sent");
  json t = Transcript(row);
  EXPECT_EQ(t["sockets"][0]["peer"], (json{{"refuse", 4}}));
  EXPECT_EQ(t["sockets"][0]["received"], "220 mail.example.com Service ready\r\n250 mail.example.com\r\n250 OK\r\n"
                                        "550 Requested action not taken\r\n");
}

}  // namespace
