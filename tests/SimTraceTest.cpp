// The record of every call of the boundary: each call with its arguments,
// result, what it gave back and its last error; repeated blocks folded.
// A whole traced run is tested through zandolin-sim --trace
// (zandolinSimTest.cpp).
#include "SimFixture.h"

#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace {

using nlohmann::json;

class SimTraceTest : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    machine["printers"] = {{{"name", "Fax"}, {"serverName", nullptr}, {"portName", "LPT1:"}}};
    Install();
    traced = sim::TracedServices(sim::SimulatedServices());
  }

  const json& Calls() { return sim::Current().trace.calls; }

  platform::ServiceSet traced;
};

TEST_F(SimTraceTest, EachCall_ArgumentsResultOutAndLastError) {
  std::string name = "Fax", missing = "None";
  HANDLE handle = nullptr;
  PRINTER_DEFAULTSA all{nullptr, nullptr, PRINTER_ALL_ACCESS};
  EXPECT_TRUE(traced.spooler->OpenPrinterA(name.data(), &handle, &all));
  HANDLE first = handle;
  EXPECT_FALSE(traced.spooler->OpenPrinterA(missing.data(), &handle, nullptr));
  EXPECT_EQ(traced.system->GetLastError(), 1801u);
  char opened[32];
  std::snprintf(opened, sizeof opened, "0x%llx", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(
                                                     first)));
  EXPECT_EQ(Calls(), json::parse(R"([
      {"call": "OpenPrinterA", "args": ["Fax", {"DesiredAccess": 983052}], "result": 1, "out": ")" +
                                 std::string(opened) + R"(", "lastError": 0},
      {"call": "OpenPrinterA", "args": ["None", null], "result": 0, "lastError": 1801},
      {"call": "GetLastError", "args": [], "result": 1801, "lastError": 1801}])"))
      << Calls().dump();
}

TEST_F(SimTraceTest, TheCapturesCalls_AreTracedToo) {
  char windows[16];
  EXPECT_EQ(traced.system->GetWindowsDirectoryA(windows, sizeof windows), 10u);
  EXPECT_EQ(traced.system->GetACP(), 1252u);
  EXPECT_TRUE(traced.system->IsUserAnAdmin());
  EXPECT_EQ(traced.files->GetFileAttributesA("C:\\Nowhere\\x.ini"), INVALID_FILE_ATTRIBUTES);
  DWORD needed = 0, returned = 0;
  EXPECT_FALSE(traced.spooler->EnumPortsA(nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(Calls(), json::parse(R"([
      {"call": "GetWindowsDirectoryA", "args": [16], "result": 10, "out": "C:\\Windows", "lastError": 0},
      {"call": "GetACP", "args": [], "result": 1252, "lastError": 0},
      {"call": "IsUserAnAdmin", "args": [], "result": 1, "lastError": 0},
      {"call": "GetFileAttributesA", "args": ["C:\\Nowhere\\x.ini"], "result": 4294967295, "lastError": 3},
      {"call": "EnumPortsA", "args": [null, 1, null], "result": 0, "out": {"needed": )" +
                                 std::to_string(2 * sizeof(PORT_INFO_1A) + 12) +
                                 R"(, "returned": 0}, "lastError": 122}])"))
      << Calls().dump();
}

TEST_F(SimTraceTest, ARepeatedCall_IsFoldedAndCounted) {
  for (int i = 0; i < 5; ++i) traced.ui->RedrawProgressWindow();
  traced.ui->ShowProgressWindow();
  EXPECT_EQ(Calls(), json::parse(R"([
      {"repeat": 5, "calls": [{"call": "RedrawProgressWindow", "args": [], "result": null, "lastError": 0}]},
      {"call": "ShowProgressWindow", "args": [], "result": null, "lastError": 0}])"));
}

TEST_F(SimTraceTest, ARepeatedBlock_IsFolded_AnUnfinishedOneStaysAsItIs) {
  for (int i = 0; i < 4; ++i) {
    traced.ui->SetProgressBar(100, 1);
    traced.ui->RedrawProgressWindow();
  }
  traced.ui->SetProgressBar(100, 1);
  EXPECT_EQ(Calls(), json::parse(R"([
      {"repeat": 4, "calls": [{"call": "SetProgressBar", "args": [100, 1], "result": null, "lastError": 0},
                              {"call": "RedrawProgressWindow", "args": [], "result": null, "lastError": 0}]},
      {"call": "SetProgressBar", "args": [100, 1], "result": null, "lastError": 0}])"));
  // Another call ends the block; the same block later folds anew.
  traced.ui->ShowProgressWindow();
  traced.ui->RedrawProgressWindow();
  traced.ui->RedrawProgressWindow();
  EXPECT_EQ(Calls(), json::parse(R"([
      {"repeat": 4, "calls": [{"call": "SetProgressBar", "args": [100, 1], "result": null, "lastError": 0},
                              {"call": "RedrawProgressWindow", "args": [], "result": null, "lastError": 0}]},
      {"call": "SetProgressBar", "args": [100, 1], "result": null, "lastError": 0},
      {"call": "ShowProgressWindow", "args": [], "result": null, "lastError": 0},
      {"repeat": 2, "calls": [{"call": "RedrawProgressWindow", "args": [], "result": null, "lastError": 0}]}])"));
}

TEST_F(SimTraceTest, CallsInsideAPump_FollowItsEntryAndItNeverFolds) {
  struct Ticks : platform::TimerEvents {
    platform::ServiceSet* services = nullptr;
    void OnTimer() override { services->ui->SetProgressLabel("tick"); }
  } ticks;
  ticks.services = &traced;
  machine["timerIntervalMs"] = 1;
  Install();
  int timer = traced.ui->CreateTimer(&ticks, 1000, true);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  traced.ui->DoEvents();
  ASSERT_EQ(Calls().size(), 3u);
  EXPECT_EQ(Calls()[0], (json{{"call", "CreateTimer"}, {"args", {1000, true}}, {"result", timer}, {"lastError", 0}}));
  EXPECT_EQ(Calls()[1], (json{{"call", "DoEvents"}, {"args", json::array()}, {"result", nullptr}, {"lastError", 0}}));
  EXPECT_EQ(Calls()[2],
            (json{{"call", "SetProgressLabel"}, {"args", {"tick"}}, {"result", nullptr}, {"lastError", 0}}));
}

TEST_F(SimTraceTest, LongText_IsCutWithItsLength) {
  const std::string text(600, 'x');
  traced.ui->SetProgressLabel(text);
  EXPECT_EQ(Calls()[0]["args"][0], std::string(512, 'x') + "[... 600 characters]");
}

}  // namespace
