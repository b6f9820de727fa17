// zandolin-fleet collect on output files written by real runs of the engine
// on simulated clients: runs that went well and that failed, several runs
// in one file, a file cut in the middle, files that are no output files, and
// predicted against actual with one client made to differ.
#include "FleetMaker.h"
#include "FleetTestSupport.h"
#include "platform/sim/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <string>

namespace {

namespace fs = std::filesystem;
using fleettest::Quote;
using nlohmann::json;

constexpr int kClients = 24;
constexpr int kTwice = 16;        // Windows 10 without q7: runs again, and has already succeeded
constexpr int kTwiceFailed = 17;  // Windows XP with \\OLD\q7: its status is False, it runs in full again
constexpr int kCut = 13;          // its file ends in the middle of a line
constexpr int kDiffers = 12;      // Windows 10 without q7 in the rehearsal; q7 added before the real run

std::string OutputName(const fleetmaker::Client& c) { return c.computer + "_" + c.user + "_migration.txt"; }

class CollectTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = fleettest::FreshFolder("zandolin-fleet-collect");
    clients_ = fleetmaker::WriteFleet(dir_ / "captures", kClients);
    std::ofstream(dir_ / fleetmaker::kIniName, std::ios::binary) << fleetmaker::Ini();
    std::ofstream(dir_ / "servers.json") << fleetmaker::Servers().dump();
    rehearsalStatus_ = fleettest::Run(std::string(ZANDOLIN_FLEET_EXE) + " rehearse --ini " +
                                          Quote(dir_ / fleetmaker::kIniName) + " --servers " +
                                          Quote(dir_ / "servers.json") + " " + Quote(dir_ / "captures") + " --out " +
                                          Quote(dir_ / "rehearsal") + " --jobs 1",
                                      dir_);

    // The deployment: each client's real run, on a copy of its capture with
    // the INI file and the new servers in place.
    fs::create_directories(dir_ / "share");
    fs::create_directories(dir_ / "clean-share");
    fs::create_directories(dir_ / "real");
    json servers = fleetmaker::Servers()["printServers"];
    for (const fleetmaker::Client& c : clients_) {
      const std::string name = c.computer + "_" + c.user;
      fs::path real = dir_ / "real" / name;
      fs::copy(dir_ / "captures" / name, real, fs::copy_options::recursive);
      json machine = json::parse(fleettest::ReadAll(real / "machine.json"));
      machine["printServers"] = servers;
      if (c.computer == clients_[kDiffers].computer)
        machine["printers"].push_back(fleetmaker::Printer("OLD", "q7", false));
      std::ofstream(real / "machine.json") << machine.dump();
      std::ofstream(real / "files" / "C" / "Deploy" / fleetmaker::kIniName, std::ios::binary) << fleetmaker::Ini();
      int runs = c.computer == clients_[kTwice].computer || c.computer == clients_[kTwiceFailed].computer ? 2 : 1;
      sim::RunOptions options;
      options.limitSeconds = 30;
      options.stuckAtOnce = true;
      for (int run = 0; run < runs; ++run) {
        std::unique_ptr<sim::Client> client = sim::Client::Load(real);
        client->Run(options);
        client->Save();
      }
      fs::path output = real / "files" / "C" / "Deploy" / OutputName(c);
      if (!fs::exists(output)) continue;   // the run that died wrote none
      fs::copy_file(output, dir_ / "share" / OutputName(c));
      if (runs == 1) fs::copy_file(output, dir_ / "clean-share" / OutputName(c));
    }
    // A file cut in the middle of a line, a line no engine writes, and two
    // files that are no output files.
    std::string cut = fleettest::ReadAll(dir_ / "share" / OutputName(clients_[kCut]));
    cutText_ = cut.substr(0, cut.find("Migrating: ") + 21);
    std::ofstream(dir_ / "share" / OutputName(clients_[kCut]), std::ios::binary | std::ios::trunc) << cutText_;
    std::ofstream(dir_ / "share" / OutputName(clients_[0]), std::ios::binary | std::ios::app)
        << "A line no engine writes\r\n";
    std::ofstream(dir_ / "share" / "notes.txt") << "Deployment notes: all done.\r\n";
    fs::create_directories(dir_ / "share" / "old");
    std::ofstream(dir_ / "share" / "old" / "picture.bin", std::ios::binary) << std::string("\x89PNG\r\n\x1a\n\0\0", 10);

    collectStatus_ = fleettest::Run(std::string(ZANDOLIN_FLEET_EXE) + " collect " + Quote(dir_ / "share") +
                                        " --out " + Quote(dir_ / "collected"),
                                    dir_);
    collectErrors_ = fleettest::ReadAll(dir_ / "stderr.txt");
    compareStatus_ = fleettest::Run(std::string(ZANDOLIN_FLEET_EXE) + " collect " + Quote(dir_ / "clean-share") +
                                        " --out " + Quote(dir_ / "compared") + " --rehearsal " +
                                        Quote(dir_ / "rehearsal"),
                                    dir_);
    compareOutput_ = fleettest::ReadAll(dir_ / "stdout.txt");
  }
  static void TearDownTestSuite() { fs::remove_all(dir_); }

  static std::map<std::string, std::map<std::string, std::string>> Rows(const char* report) {
    std::map<std::string, std::map<std::string, std::string>> rows;
    for (auto& row : fleettest::ReadCsv(dir_ / report / "fleet.csv")) rows[row["computer"]] = row;
    return rows;
  }

  static inline fs::path dir_;
  static inline std::vector<fleetmaker::Client> clients_;
  static inline int rehearsalStatus_ = -1, collectStatus_ = -1, compareStatus_ = -1;
  static inline std::string collectErrors_, compareOutput_, cutText_;
};

TEST_F(CollectTest, ReadsEveryOutputFileAndSkipsTheOthers) {
  ASSERT_EQ(rehearsalStatus_, 0);
  EXPECT_EQ(collectStatus_, 0);
  EXPECT_NE(collectErrors_.find("zandolin-fleet: skipped '" + (dir_ / "share" / "notes.txt").string() +
                                "': not an output file of the engine (it does not begin with \"Report At: \")"),
            std::string::npos)
      << collectErrors_;
  EXPECT_NE(collectErrors_.find((dir_ / "share" / "old" / "picture.bin").string()), std::string::npos);
  json report = json::parse(fleettest::ReadAll(dir_ / "collected" / "fleet.json"));
  // Every client but the one whose run died (no output file).
  EXPECT_EQ(report["counts"]["clients"], kClients - 1);
  EXPECT_EQ(report["counts"]["files"], kClients - 1 + 2);
  EXPECT_EQ(report["counts"]["notOutputFiles"], 2);
  EXPECT_EQ(report["counts"]["skipped"], 2);
  EXPECT_EQ(report["counts"]["cutReports"], 1);
}

TEST_F(CollectTest, EachClientAsItsRunsWent) {
  auto rows = Rows("collected");
  for (int i = 0; i < kClients; ++i) {
    const fleetmaker::Client& c = clients_[i];
    if (c.Fatal() || i == kCut || i == kTwice || i == kTwiceFailed || i == kDiffers) continue;
    SCOPED_TRACE(c.computer);
    ASSERT_EQ(rows.count(c.computer), 1u);
    const auto& row = rows[c.computer];
    EXPECT_EQ(row.at("user"), c.user);
    EXPECT_EQ(row.at("run"), c.alreadySucceeded ? "already succeeded" : "full run");
    EXPECT_EQ(row.at("runs"), "1");
    EXPECT_EQ(row.at("source"), (dir_ / "share" / OutputName(c)).string());
    EXPECT_EQ(row.at("movedCount"), std::to_string(c.Moved()));
    EXPECT_EQ(row.at("failedAddsCount"), std::to_string(c.FailedAdds()));
    EXPECT_EQ(row.at("lostCount"), std::to_string(c.Lost()));
    EXPECT_EQ(row.at("defaultLost"), c.DefaultLost() ? "yes" : "no");
    EXPECT_EQ(row.at("statusRecorded"), c.Status());
    EXPECT_EQ(row.at("unknownLines"), i == 0 ? "1" : "0");
    if (c.FullRun()) {
      EXPECT_EQ(row.at("printersBeforeCount"), std::to_string(c.PrintersBefore()));
    }
  }
  json report = json::parse(fleettest::ReadAll(dir_ / "collected" / "fleet.json"));
  for (const json& client : report["clients"]) {
    if (client["computer"] == clients_[0].computer) {
      EXPECT_EQ(client["unknownLines"], json::array({"A line no engine writes"}));
    }
  }
}

TEST_F(CollectTest, TwoRunsInOneFile_TheSecondAlreadySucceeded) {
  const auto row = Rows("collected")[clients_[kTwice].computer];
  EXPECT_EQ(row.at("runs"), "2");
  EXPECT_EQ(row.at("run"), "already succeeded");
  EXPECT_EQ(row.at("movedCount"), std::to_string(clients_[kTwice].Moved()));
  EXPECT_EQ(row.at("statusRecorded"), "True");
}

TEST_F(CollectTest, TwoFullRunsInOneFile_TheAddThatFailedIsGoneFromTheSecond) {
  const fleetmaker::Client& c = clients_[kTwiceFailed];
  const auto row = Rows("collected")[c.computer];
  EXPECT_EQ(row.at("runs"), "2");
  EXPECT_EQ(row.at("run"), "full run");
  // The first run moved what it could and lost \\OLD\q7; the second found
  // nothing on OLD any more.
  EXPECT_EQ(row.at("movedCount"), std::to_string(c.Moved()));
  EXPECT_EQ(row.at("lost"), "\\\\OLD\\q7");
  EXPECT_EQ(row.at("failedAddsCount"), "0");
  EXPECT_EQ(row.at("printersBeforeCount"), std::to_string(c.PrintersBefore()));
}

TEST_F(CollectTest, FileCutInTheMiddle_KeepsWhatItHasAndSaysSo) {
  const fleetmaker::Client& c = clients_[kCut];
  const auto row = Rows("collected")[c.computer];
  EXPECT_EQ(row.at("notes"), "the report of " + row.at("reportAt") + " in " + (dir_ / "share" / OutputName(c)).string() +
                                 " is cut short");
  // The half line the cut left is kept as a line not understood.
  EXPECT_EQ(row.at("unknownLines"), "1");
  EXPECT_EQ(row.at("movedCount"), "0");
}

TEST_F(CollectTest, SideBySide_OneClientDiffers) {
  EXPECT_EQ(compareStatus_, 0);
  json report = json::parse(fleettest::ReadAll(dir_ / "compared" / "fleet.json"));
  const json& comparison = report["comparison"];
  EXPECT_EQ(comparison["differing"], 1);
  EXPECT_EQ(comparison["compared"], kClients - 3);
  const fleetmaker::Client& c = clients_[kDiffers];
  json expected = json::array();
  auto difference = [&](const char* field, const std::string& predicted, const std::string& actual) {
    expected.push_back({{"computer", c.computer}, {"user", c.user}, {"field", field}, {"predicted", predicted},
                        {"actual", actual}});
  };
  difference("failed adds", "", "\\\\NEW\\q7 (1801)");
  difference("lost", "", "\\\\OLD\\q7");
  difference("status recorded", "True", "False");
  EXPECT_EQ(comparison["differences"], expected);
  // Not collected: the client whose run died, and the two run twice.
  EXPECT_EQ(comparison["notCollected"],
            json::array({clients_[2].computer + "_" + clients_[2].user,
                         clients_[kTwice].computer + "_" + clients_[kTwice].user,
                         clients_[kTwiceFailed].computer + "_" + clients_[kTwiceFailed].user}));
  EXPECT_EQ(report["counts"]["differing"], 1);
  EXPECT_NE(compareOutput_.find("; 1 differ from the rehearsal: "), std::string::npos) << compareOutput_;
  std::string page = fleettest::ReadAll(dir_ / "compared" / "index.html");
  EXPECT_NE(page.find("Predicted against actual"), std::string::npos);
}

}  // namespace
