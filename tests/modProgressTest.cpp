// The progress window: start, one statement a step, finish; the hidden form
// for its handle.
#include "diagnostics/modProgress.h"

#include "IniFileBuilder.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "engine/Runtime.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using nlohmann::json;

class modProgressTest : public SimFixture {
 protected:
  json Progress() { return Transcript()["progress"]; }
};

TEST_F(modProgressTest, ShowProgressFalse_NothingIsLoadedOrShown) {
  Install();
  INIDocument.ShowProgress = false;
  StartProgress();
  UpdateProgress("Getting current list of client printers ...");
  UpdateProgress("");
  FinishProgress();
  EXPECT_EQ(0, LoadedFormCount());
  EXPECT_FALSE(frmProgress.Loaded);
  EXPECT_EQ(json::parse(R"({"shown":false,"labels":[],"steps":0,"value":0})"), Progress());
}

TEST_F(modProgressTest, StartProgress_LoadsSetsLabelAndBarThenShows) {
  Install();
  INIDocument.ShowProgress = true;
  StartProgress();
  EXPECT_EQ(1, LoadedFormCount());
  EXPECT_TRUE(frmProgress.Loaded);
  EXPECT_EQ("Zandolin starting ...", frmProgress.Label);
  EXPECT_EQ(100, frmProgress.Max);
  EXPECT_EQ(1, frmProgress.Value);
  EXPECT_EQ(json::parse(R"({"shown":true,"labels":["Zandolin starting ..."],"steps":0,"value":1})"),
            Progress());
}

TEST_F(modProgressTest, UpdateProgress_TextSetsTheLabelAndEmptyTextOnlyMovesTheBar) {
  Install();
  INIDocument.ShowProgress = true;
  StartProgress();
  UpdateProgress("Saving Zandolin status ...");
  UpdateProgress("");
  UpdateProgress("");
  EXPECT_EQ("Saving Zandolin status ...", frmProgress.Label);
  EXPECT_EQ(4, frmProgress.Value);
  EXPECT_EQ(json::parse(R"({"shown":true,
      "labels":["Zandolin starting ...","Saving Zandolin status ..."],"steps":3,"value":4})"),
            Progress());
}

TEST_F(modProgressTest, UpdateProgress_HundredthStepWrapsTo1) {
  Install();
  INIDocument.ShowProgress = true;
  StartProgress();
  for (int i = 0; i < 99; ++i) UpdateProgress("");
  EXPECT_EQ(100, frmProgress.Value);
  UpdateProgress("");
  EXPECT_EQ(1, frmProgress.Value);
  UpdateProgress("");
  EXPECT_EQ(2, frmProgress.Value);
  EXPECT_EQ(101, Progress()["steps"]);
  EXPECT_EQ(2, Progress()["value"]);
}

// The simulated user interface, with its pumps counted.
class CountingUserInterface : public platform::UserInterface {
 public:
  explicit CountingUserInterface(platform::UserInterface* inner) : inner_(inner) {}
  int pumps = 0;

  int MessageBox(const std::string& text, const std::string& title, UINT style) override {
    return inner_->MessageBox(text, title, style);
  }
  void DoEvents() override {
    ++pumps;
    inner_->DoEvents();
  }
  int CreateTimer(platform::TimerEvents* owner, DWORD intervalMs, bool enabled) override {
    return inner_->CreateTimer(owner, intervalMs, enabled);
  }
  void EnableTimer(int timer, bool enabled) override { inner_->EnableTimer(timer, enabled); }
  void DestroyTimer(int timer) override { inner_->DestroyTimer(timer); }
  HWND CreateProgressWindow() override { return inner_->CreateProgressWindow(); }
  void ShowProgressWindow() override { inner_->ShowProgressWindow(); }
  void SetProgressLabel(const std::string& text) override { inner_->SetProgressLabel(text); }
  void SetProgressBar(int maximum, int value) override { inner_->SetProgressBar(maximum, value); }
  void MoveProgressBar(int value) override { inner_->MoveProgressBar(value); }
  void RedrawProgressWindow() override { inner_->RedrawProgressWindow(); }
  void DestroyProgressWindow() override { inner_->DestroyProgressWindow(); }

 private:
  platform::UserInterface* inner_;
};

class QuietPulsesTest : public modProgressTest {
 protected:
  // Installs the client with its pumps counted, and starts the window.
  void Start() {
    Install();
    counting = std::make_unique<CountingUserInterface>(Sys().ui);
    platform::ServiceSet services = platform::Services();
    services.ui = counting.get();
    platform::SetServices(services);
    INIDocument.ShowProgress = true;
    StartProgress();
    counting->pumps = 0;
  }

  std::unique_ptr<CountingUserInterface> counting;
};

struct NoTicks : platform::TimerEvents {
  void OnTimer() override {}
};

TEST_F(QuietPulsesTest, NothingDue_EveryStepCountedButFewPumps) {
  Start();
  for (int i = 0; i < 10000; ++i) UpdateProgress("");
  EXPECT_EQ(1, frmProgress.Value);  // 1 + 10000 steps, wrapping every 100
  EXPECT_EQ(json::parse(R"({"shown":true,"labels":["Zandolin starting ..."],"steps":10000,
      "value":1})"),
            Progress());
  // The first step pumps and lets the next 4095 go quiet, and so on.
  EXPECT_EQ(3, counting->pumps);
}

TEST(ProgressValueAfterTest, IsThatManyNextProgressValues) {
  for (int value = 0; value <= 100; ++value) {
    int stepped = value;
    for (int steps = 1; steps <= 250; ++steps) {
      stepped = NextProgressValue(stepped);
      ASSERT_EQ(stepped, ProgressValueAfter(value, steps)) << value << " " << steps;
    }
  }
}

TEST_F(QuietPulsesTest, PulseProgress_AsManyEmptyUpdates_SameStepsValueAndPumps) {
  Start();
  PulseProgress(0);
  EXPECT_EQ(0, counting->pumps);
  PulseProgress(10000);
  EXPECT_EQ(1, frmProgress.Value);
  EXPECT_EQ(json::parse(R"({"shown":true,"labels":["Zandolin starting ..."],"steps":10000,
      "value":1})"),
            Progress());
  EXPECT_EQ(3, counting->pumps);
  Sys().clock->Now();  // takes the grant back: the next pulse pumps
  PulseProgress(150);
  EXPECT_EQ(4, counting->pumps);
  EXPECT_EQ(51, frmProgress.Value);
  EXPECT_EQ(10150, Progress()["steps"]);
}

TEST_F(QuietPulsesTest, PulseProgress_FaultsInjected_EveryStepReachesThePlatform) {
  machine["faults"] = json::parse(R"([{"call":"MoveProgressBar","skip":499,"times":1}])");
  Start();
  PulseProgress(1000);
  EXPECT_EQ(1000, counting->pumps);
  EXPECT_EQ(999, Progress()["steps"]);
  EXPECT_EQ(1001 % 100, frmProgress.Value);
}

TEST_F(modProgressTest, PulseProgress_ShowProgressFalse_NothingIsLoaded) {
  Install();
  INIDocument.ShowProgress = false;
  PulseProgress(5);
  EXPECT_FALSE(frmProgress.Loaded);
  EXPECT_EQ(json::parse(R"({"shown":false,"labels":[],"steps":0,"value":0})"), Progress());
}

TEST_F(QuietPulsesTest, StatementsAndTheFinish_AlwaysReachThePlatform) {
  Start();
  for (int i = 0; i < 50; ++i) UpdateProgress("");
  UpdateProgress("Saving Zandolin status ...");
  for (int i = 0; i < 50; ++i) UpdateProgress("");
  EXPECT_EQ(2, counting->pumps);
  EXPECT_EQ(json::parse(R"({"shown":true,
      "labels":["Zandolin starting ...","Saving Zandolin status ..."],"steps":101,"value":2})"),
            Progress());
  UpdateProgress("");
  FinishProgress();
  EXPECT_EQ(json::parse(R"({"shown":true,"labels":["Zandolin starting ...",
      "Saving Zandolin status ...","Zandolin finished ..."],"steps":102,"value":100})"),
            Progress());
}

TEST_F(QuietPulsesTest, OtherCallsBetweenSteps_EveryStepPumps) {
  Start();
  for (int i = 0; i < 1000; ++i) {
    Sys().clock->Now();
    UpdateProgress("");
  }
  EXPECT_EQ(1000, counting->pumps);
  EXPECT_EQ(1000, Progress()["steps"]);
}

TEST_F(QuietPulsesTest, TimerRunning_EveryStepPumps) {
  Start();
  NoTicks owner;
  Sys().ui->CreateTimer(&owner, 1000, true);
  for (int i = 0; i < 1000; ++i) UpdateProgress("");
  EXPECT_EQ(1000, counting->pumps);
}

TEST_F(QuietPulsesTest, FaultsInjected_EveryStepReachesThePlatform) {
  // The 500th move of the bar fails: it is not counted.
  machine["faults"] = json::parse(R"([{"call":"MoveProgressBar","skip":499,"times":1}])");
  Start();
  for (int i = 0; i < 1000; ++i) UpdateProgress("");
  EXPECT_EQ(1000, counting->pumps);
  EXPECT_EQ(999, Progress()["steps"]);
  EXPECT_EQ(1001 % 100, frmProgress.Value);
}

TEST_F(QuietPulsesTest, FormUnloaded_AStepAfterAPumpLoadsItAgain) {
  Start();
  FinishProgress();
  ASSERT_FALSE(frmProgress.Loaded);
  Sys().ui->DoEvents();
  UpdateProgress("");
  EXPECT_TRUE(frmProgress.Loaded);
  EXPECT_EQ(1, LoadedFormCount());
  EXPECT_EQ(1, frmProgress.Value);
}

TEST_F(modProgressTest, FinishProgress_SetsTheLastStatementAndUnloads) {
  Install();
  INIDocument.ShowProgress = true;
  StartProgress();
  UpdateProgress("Initializing notification methods ...");
  FinishProgress();
  EXPECT_FALSE(frmProgress.Loaded);
  EXPECT_EQ(0, LoadedFormCount());
  EXPECT_EQ(json::parse(R"({"shown":true,"labels":["Zandolin starting ...",
      "Initializing notification methods ...","Zandolin finished ..."],"steps":1,"value":100})"),
            Progress());
}

TEST_F(modProgressTest, ProgressWindowHandle_LoadsTheFormHiddenOnce) {
  Install();
  INIDocument.ShowProgress = false;
  const HWND handle = ProgressWindowHandle();
  EXPECT_NE(nullptr, handle);
  EXPECT_EQ(handle, ProgressWindowHandle());
  EXPECT_EQ(1, LoadedFormCount());
  EXPECT_EQ("Progress statements ...", frmProgress.Label);
  // With the window off the finish does nothing, so the form stays loaded.
  FinishProgress();
  EXPECT_EQ(1, LoadedFormCount());
  EXPECT_FALSE(Progress()["shown"]);
  UnloadProgressForm();
  EXPECT_EQ(0, LoadedFormCount());
}

TEST_F(modProgressTest, ProgressWindowHandle_WhileShown_GivesTheShownWindow) {
  Install();
  INIDocument.ShowProgress = true;
  StartProgress();
  const HWND shown = frmProgress.Window;
  EXPECT_EQ(shown, ProgressWindowHandle());
  EXPECT_EQ(1, LoadedFormCount());
}

TEST_F(modProgressTest, Run_WithProgress_ShowsTheWindowAndEndsUnloaded) {
  WriteFile("C:\\Deploy\\deploy.ini",
            "[GENERAL]\r\nUseActiveDirectory=False\r\nUseManualDefinitions=False\r\n"
            "AlwaysRun=False\r\nShowProgress=True\r\n[NOTIFICATION SMTP]\r\nUseSMTP=False\r\n"
            "[NOTIFICATION FILE OUTPUT]\r\nUseFileOutput=False\r\nIncludeComputerName=False\r\n"
            "IncludeOutcome=False\r\nWriteToEventLog=False\r\n[NOTIFICATION CLIENT POP-UP]\r\n"
            "UseClientPopup=False\r\nUseSuccessClientPopup=False\r\n"
            "UseFailureClientPopup=False\r\n[DEPLOYMENT]\r\nCreateWebLaunchPage=False\r\n"
            "CreateBatchFile=False\r\nIncludeMDAC=False\r\n[PRUNE]\r\nDeleteADOrphans=False\r\n"
            "DeleteAllNonNetworked=False\r\n[SUPPORT]\r\nDebugOn=True\r\n");
  const json t = Run();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_TRUE(t["progress"]["shown"]);
  EXPECT_EQ("Zandolin starting ...", t["progress"]["labels"][0]);
  EXPECT_EQ("Zandolin finished ...", t["progress"]["labels"].back());
  EXPECT_EQ(100, t["progress"]["value"]);
  EXPECT_EQ(0, LoadedFormCount());
}

// ----- what a whole run shows -----

class ProgressRunTest : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    machine["printers"] = json::parse(R"([
        {"name": "\\\\OLD\\laser", "serverName": "\\\\OLD", "shareName": "laser"},
        {"name": "\\\\OLD\\color", "serverName": "\\\\OLD", "shareName": "color"}])");
    machine["printServers"] = json::parse(R"({"NEW": {"queues": ["laser", "color", "extra"]}})");
    ini.Set("GENERAL", "ShowProgress", "True");
  }

  json RunIni() {
    WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
    return Run();
  }

  testini::IniFile ini = testini::ValidIni();
};

TEST_F(ProgressRunTest, CleanRun_LabelsAndOneStepAStatementOrPrinter) {
  const json t = RunIni();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_EQ(json::parse(R"({"shown": true, "labels": [
      "Zandolin starting ...",
      "Getting current list of client printers ...",
      "Error getting list of client printers ...",
      "Getting current default printer ...",
      "Finished getting current default printer ...",
      "Saving Zandolin status ...",
      "Initializing notification methods ...",
      "Zandolin finished ..."], "steps": 8, "value": 100})"),
            t["progress"]);
  // The log beside the reversed text tells the truth.
  EXPECT_NE(std::string::npos,
            std::string(t["debugBuffer"]).find(">> Finished getting network printers, abort status: False\r\n"));
}

TEST_F(ProgressRunTest, ManualMigrationAndMaintenance_EveryStatementAndPulse) {
  ini.Set("GENERAL", "UseManualDefinitions", "True")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("POPULATE", "ServerNames", "NEW")
      .Set("POPULATE", "PrinterNames", "extra");
  const json t = RunIni();
  EXPECT_EQ("returned", t["ended"]);
  // Two printers pulse the inventory; the server move pulses once per
  // printer and definition (one definition and its spare slot) and once
  // more per printer; populate once per entry, the spare one included.
  EXPECT_EQ(json::parse(R"({"shown": true, "labels": [
      "Zandolin starting ...",
      "Getting current list of client printers ...",
      "Error getting list of client printers ...",
      "Getting current default printer ...",
      "Finished getting current default printer ...",
      "Initializing migration via Manual Configuration ...",
      "Running Server to Server migration ...",
      "Completed Server to Server migration ...",
      "Performing maintenance ...",
      "Populating maintenance printers ...",
      "Finished populating maintenance printers ...",
      "Pruning maintenance networked printers ...",
      "Finished pruning maintenance networked printers ...",
      "Pruning maintenance local printers ...",
      "Finished pruning maintenance local printers ...",
      "Completed maintenance ...",
      "Error migrating via Manual Configuration ...",
      "Saving Zandolin status ...",
      "Initializing notification methods ...",
      "Zandolin finished ..."], "steps": 28, "value": 100})"),
            t["progress"]);
  EXPECT_NE(std::string::npos,
            std::string(t["debugBuffer"]).find(">> Finished moving manual, abort status: False\r\n"));
}

TEST_F(ProgressRunTest, AlreadySucceeded_OnlyTheNotificationStatement) {
  const json first = RunIni();
  ASSERT_EQ("returned", first["ended"]);
  const json t = RunIni();
  EXPECT_EQ(json::parse(R"({"shown": true, "labels": [
      "Zandolin starting ...",
      "Initializing notification methods ...",
      "Zandolin finished ..."], "steps": 1, "value": 100})"),
            t["progress"]);
  EXPECT_NE(std::string::npos,
            std::string(t["debugBuffer"]).find(">> This INI file has already successed on this machine.\r\n"));
}

TEST_F(ProgressRunTest, FailedDirectoryQuery_ShowsCompletedAndSkipsTheManualMigration) {
  machine["printers"] = json::array();
  ini.Set("GENERAL", "UseActiveDirectory", "True")
      .Set("GENERAL", "UseManualDefinitions", "True")
      .Set("GENERAL", "DomainName", "corp.example.com")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW");
  const json t = RunIni();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_EQ(json::parse(R"({"shown": true, "labels": [
      "Zandolin starting ...",
      "Getting current list of client printers ...",
      "Error getting list of client printers ...",
      "Getting current default printer ...",
      "Finished getting current default printer ...",
      "Initializing migration via Active Directory ...",
      "Getting current list of Active Directory printers ...",
      "Error getting current list of Active Directory printers ...",
      "Completed migration via Active Directory ...",
      "Saving Zandolin status ...",
      "Initializing notification methods ...",
      "Zandolin finished ..."], "steps": 10, "value": 100})"),
            t["progress"]);
  EXPECT_NE(std::string::npos,
            std::string(t["debugBuffer"]).find(">> Finished moving via AD, abort status: True\r\n"));
}

TEST_F(ProgressRunTest, WindowOff_NothingIsShownOrMoved) {
  ini.Set("GENERAL", "ShowProgress", "False");
  const json t = RunIni();
  EXPECT_EQ(json::parse(R"({"shown": false, "labels": [], "steps": 0, "value": 0})"), t["progress"]);
}

}  // namespace
