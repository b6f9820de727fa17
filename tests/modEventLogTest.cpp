// Entries of the application event log, the registration of the source and
// the registry helpers behind it.
#include "notification/modEventLog.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "notification/modNotification.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using nlohmann::json;

const char* const kSourceKey =
    "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin";
const char* const kSubKey = "System\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin";

// A REG_SZ value written with the length of its text as size: no NUL.
json StringWithoutNul(const std::string& text) {
  return {{"type", 1}, {"data", std::vector<uint8_t>(text.begin(), text.end())}};
}

class modEventLogTest : public scenario::ScenarioFixture {
 protected:
  void Start() {
    Install();
    INIDocument.DebugOn = true;
  }

  json Events() { return Transcript()["eventLogWritten"]; }
};

TEST_F(modEventLogTest, WriteOutcomeToEventLog_FirstRun_RegistersTheSourceAndWritesTheEntry) {
  Start();
  gOutcomeText = "\r\n* ----- Computer: PC042 Username: jdoe Printers ----- *";
  WriteOutcomeToEventLog();
  EXPECT_EQ(json({{"EventMessageFile", StringWithoutNul("C:\\Windows\\system32\\EvntMsg.dll")}}),
            RegistryKey(kSourceKey));
  const json events = Events();
  ASSERT_EQ(1u, events.size());
  EXPECT_EQ("Zandolin", events[0]["source"]);
  EXPECT_EQ(4, events[0]["type"]);
  EXPECT_EQ(0, events[0]["category"]);
  EXPECT_EQ(20001, events[0]["id"]);
  EXPECT_EQ(json::array({gOutcomeText}), events[0]["strings"]);
  EXPECT_EQ(gOutcomeText + std::string(1, '\0'), events[0]["data"]);
  EXPECT_EQ(">> Logged event in application event log.\r\n", gDebugBuffer);
}

TEST_F(modEventLogTest, WriteOutcomeToEventLog_AbortedRun_IsAWarning) {
  Start();
  AbortStatus = true;
  gOutcomeText = "\r\nError quering Active Directory printers.";
  WriteOutcomeToEventLog();
  ASSERT_EQ(1u, Events().size());
  EXPECT_EQ(2, Events()[0]["type"]);
  EXPECT_EQ(20001, Events()[0]["id"]);
}

TEST_F(modEventLogTest, WriteEventLogEntry_ValueAlreadyThere_IsLeftAlone) {
  machine["registry"] = {{kSourceKey, {{"EventMessageFile", "D:\\Elsewhere\\msg.dll"}}}};
  Start();
  WriteEventLogEntry("Zandolin", "second run", 4, 20001);
  EXPECT_EQ(json::parse(R"({"EventMessageFile":"D:\\Elsewhere\\msg.dll"})"),
            RegistryKey(kSourceKey));
  EXPECT_EQ(1u, Events().size());
}

TEST_F(modEventLogTest, WriteEventLogEntry_ValueOfAnotherType_IsOverwritten) {
  machine["registry"] = {{kSourceKey, {{"EventMessageFile", {{"type", 4}, {"data", 7}}}}}};
  Start();
  WriteEventLogEntry("Zandolin", "text", 4, 20001);
  EXPECT_EQ(json({{"EventMessageFile", StringWithoutNul("C:\\Windows\\system32\\EvntMsg.dll")}}),
            RegistryKey(kSourceKey));
}

TEST_F(modEventLogTest, WriteEventLogEntry_EmptyValue_IsOverwritten) {
  machine["registry"] = {{kSourceKey, {{"EventMessageFile", ""}}}};
  machine["systemDir"] = "C:\\WINNT\\System32";
  Start();
  WriteEventLogEntry("Zandolin", "text", 4, 20001);
  EXPECT_EQ(json({{"EventMessageFile", StringWithoutNul("C:\\WINNT\\System32\\EvntMsg.dll")}}),
            RegistryKey(kSourceKey));
}

TEST_F(modEventLogTest, WriteEventLogEntry_RegistrationRefused_StillWritesTheEntry) {
  machine["faults"] = json::parse(R"([{"call":"RegSetValueExA","result":5}])");
  Start();
  WriteEventLogEntry("Zandolin", "text", 4, 20001);
  EXPECT_EQ(nullptr, RegistryKey(kSourceKey)["EventMessageFile"]);
  EXPECT_EQ(1u, Events().size());
  EXPECT_EQ(">> Logged event in application event log.\r\n", gDebugBuffer);
}

TEST_F(modEventLogTest, WriteEventLogEntry_ReportRefused_StillLogsTheLoggedLine) {
  machine["faults"] = json::parse(R"([{"call":"ReportEventA","result":0,"lastError":5}])");
  Start();
  WriteEventLogEntry("Zandolin", "text", 2, 20002);
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(">> Logged event in application event log.\r\n", gDebugBuffer);
}

TEST_F(modEventLogTest, WriteEventLogEntry_EmptyMessage_GoesInAsOneNul) {
  Start();
  WriteEventLogEntry("Zandolin", "", 4, 20001);
  ASSERT_EQ(1u, Events().size());
  EXPECT_EQ(json::array({""}), Events()[0]["strings"]);
  EXPECT_EQ(std::string(1, '\0'), Events()[0]["data"]);
}

TEST_F(modEventLogTest, WriteEventLogEntry_SourceIsClosedAfterwards) {
  Start();
  WriteEventLogEntry("Zandolin", "one", 4, 20001);
  WriteEventLogEntry("Zandolin", "two", 4, 20001);
  EXPECT_EQ(2u, Events().size());
  EXPECT_EQ(nullptr, EventMessagePointer);
  EXPECT_EQ(4, EventMessageSize);
  EXPECT_EQ(1, EventStringCount);
}

TEST_F(modEventLogTest, Run_EventLogChannel_RegistersOnFirstRunNotOnSecond) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "AlwaysRun", "True")
      .Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "True");
  WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
  const json first = Run();
  ASSERT_EQ(1u, first["eventLogWritten"].size());
  EXPECT_EQ(4, first["eventLogWritten"][0]["type"]);
  EXPECT_EQ(json::array({first["outcomeText"]}), first["eventLogWritten"][0]["strings"]);
  EXPECT_EQ(json({{"EventMessageFile", StringWithoutNul("C:\\Windows\\system32\\EvntMsg.dll")}}),
            RegistryKey(kSourceKey));

  // The second run finds the value and leaves it as it is, even pointing
  // elsewhere.
  machine["registry"] = {{kSourceKey, {{"EventMessageFile", "C:\\Windows\\system32\\Other.dll"}}}};
  const json second = Run();
  ASSERT_EQ(1u, second["eventLogWritten"].size());
  EXPECT_EQ(json::parse(R"({"EventMessageFile":"C:\\Windows\\system32\\Other.dll"})"),
            RegistryKey(kSourceKey));
}

TEST_F(modEventLogTest, GetRegistryString_MissingKeyOrValue_GivesEmpty) {
  machine["registry"] = {{"HKEY_LOCAL_MACHINE\\Software\\Test", {{"Name", "value"}}}};
  Start();
  EXPECT_EQ("value", GetRegistryString(HKEY_LOCAL_MACHINE, "Software\\Test", "Name"));
  EXPECT_EQ("value", GetRegistryString(HKEY_LOCAL_MACHINE, "software\\TEST", "name"));
  EXPECT_EQ("", GetRegistryString(HKEY_LOCAL_MACHINE, "Software\\Test", "Other"));
  EXPECT_EQ("", GetRegistryString(HKEY_LOCAL_MACHINE, "Software\\Missing", "Name"));
}

TEST_F(modEventLogTest, SetRegistryString_CreatesTheKeyAndReadsBack) {
  Start();
  SetRegistryString(HKEY_LOCAL_MACHINE, kSubKey, "EventMessageFile", "C:\\x\\EvntMsg.dll");
  EXPECT_EQ("C:\\x\\EvntMsg.dll",
            GetRegistryString(HKEY_LOCAL_MACHINE, kSubKey, "EventMessageFile"));
  EXPECT_EQ(json({{"EventMessageFile", StringWithoutNul("C:\\x\\EvntMsg.dll")}}),
            RegistryKey(kSourceKey));
}

TEST_F(modEventLogTest, QueryRegistryString_OnlyAStringValueIsRead) {
  machine["registry"] = {{"HKEY_LOCAL_MACHINE\\Software\\Test",
                          {{"Text", "abc"}, {"Number", {{"type", 4}, {"data", 7}}}}}};
  Start();
  HKEY key = nullptr;
  ASSERT_EQ(0, Sys().registry->RegOpenKeyA(HKEY_LOCAL_MACHINE, "Software\\Test", &key));
  EXPECT_EQ("abc", QueryRegistryString(key, "Text"));
  EXPECT_EQ("", QueryRegistryString(key, "Number"));
  EXPECT_EQ("", QueryRegistryString(key, "Absent"));
  Sys().registry->RegCloseKey(key);
}

TEST_F(modEventLogTest, GetSystemFolder_GivesTheSystemDirectory) {
  machine["systemDir"] = "C:\\WINDOWS\\SYSTEM";
  Start();
  EXPECT_EQ("C:\\WINDOWS\\SYSTEM", GetSystemFolder());
}

TEST_F(modEventLogTest, GetSystemFolder_CallFails_GivesEmpty) {
  machine["faults"] = json::parse(R"([{"call":"GetSystemDirectoryA","result":0}])");
  Start();
  EXPECT_EQ("", GetSystemFolder());
  WriteEventLogEntry("Zandolin", "text", 4, 20001);
  EXPECT_EQ(json({{"EventMessageFile", StringWithoutNul("\\EvntMsg.dll")}}),
            RegistryKey(kSourceKey));
}

}  // namespace
