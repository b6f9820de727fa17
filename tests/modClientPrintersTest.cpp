// The run driver's ends, the run status gate on both stores, and the user
// name.
#include "engine/modClientPrinters.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

namespace {

using nlohmann::json;

const char* const kIni = "C:\\Deploy\\deploy.ini";
const char* const kStatusFile = "C:\\Users\\jdoe\\Zandolin_status.log";
const char* const kRegistryKey =
    "HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\C:\\Deploy\\deploy.ini\\jdoe";

const char* const kAlreadySucceeded =
    "\r\nThis INI file has already succeeded on this machine."
    "\r\nIf you would like to run this INI file again, please save it as a different name or "
    "\r\nplease select the Always Run feature on the General step.";

using scenario::Contains;
using scenario::Line;

class modClientPrintersTest : public scenario::ScenarioFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    WriteFile(kIni, ValidIni().Text());
  }

};

// ----- the file store (Windows 2000 and later) -----

TEST_F(modClientPrintersTest, FileStore_FirstRun_RecordsTrue) {
  const json t = Run();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile(kStatusFile));
  EXPECT_FALSE(Contains(t["debugBuffer"], "Registry"));
}

TEST_F(modClientPrintersTest, FileStore_SecondRun_TakesTheAlreadySucceededPath) {
  Run();
  const json t = Run();
  EXPECT_EQ(kAlreadySucceeded, t["outcomeText"]);
  const std::string log = t["debugBuffer"];
  EXPECT_TRUE(Contains(log, Line(">> This INI file has already successed on this machine.") +
                                Line(">> Finished notification, abort status: False")));
  EXPECT_FALSE(Contains(log, ">> Running Zandolin"));
  EXPECT_FALSE(Contains(log, "NETWORK PRINTERS"));
  // The stored status is left as it was.
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_AlwaysRun_RunsAgainAndRewritesWithABlankLastLine) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "AlwaysRun", "True");
  WriteFile(kIni, ini.Text());
  Run();
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile(kStatusFile));
  const json t = Run();
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin, abort status: False"));
  EXPECT_FALSE(Contains(t["outcomeText"], "already succeeded"));
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n\r\n", ReadFile(kStatusFile));
  Run();
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n\r\n", ReadFile(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_Rewrite_KeepsOtherRecordsAndDropsBlankAndBrokenLines) {
  WriteFile(
      kStatusFile,
      "C:\\Deploy\\other.ini,True,extra\r\n\r\nno comma here\rC:\\Deploy\\deploy.ini,False\r\n"
      "\r\nC:\\Deploy\\third.ini,False");
  const json t = Run();
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin"));
  EXPECT_EQ(
      "C:\\Deploy\\other.ini,True\r\nC:\\Deploy\\deploy.ini,True\r\nC:\\Deploy\\third.ini,False\r\n"
      "\r\n",
      ReadFile(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_LastOfSeveralMatchingLinesWins) {
  WriteFile(kStatusFile, "C:\\Deploy\\deploy.ini,True\r\nC:\\Deploy\\deploy.ini,False\r\n");
  Run();
  // Not stopped, and both records rewritten with the new outcome.
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\nC:\\Deploy\\deploy.ini,True\r\n\r\n",
            ReadFile(kStatusFile));
  WriteFile(kStatusFile, "C:\\Deploy\\deploy.ini,False\r\nC:\\Deploy\\deploy.ini,True\r\n");
  const json t = Run();
  EXPECT_EQ(kAlreadySucceeded, t["outcomeText"]);
}

TEST_F(modClientPrintersTest, FileStore_LowerCaseTrue_CountsAsFalse) {
  WriteFile(kStatusFile, "C:\\Deploy\\deploy.ini,true\r\n");
  const json t = Run();
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin"));
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n\r\n", ReadFile(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_TwoSpellingsOfOnePath_AreTwoRecords) {
  Run("C:\\Deploy\\deploy.ini");
  const json t = Run("c:\\deploy\\DEPLOY.ini");
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin"));
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\nc:\\deploy\\DEPLOY.ini,True\r\n",
            ReadFile(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_PathWithAComma_NeverMatches) {
  WriteFile("C:\\Deploy\\a,b.ini", ValidIni().Text());
  Run("C:\\Deploy\\a,b.ini");
  const json t = Run("C:\\Deploy\\a,b.ini");
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin"));
  EXPECT_EQ("C:\\Deploy\\a,b.ini,True\r\nC:\\Deploy\\a,b.ini,True\r\n", ReadFile(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_UnreadableFile_CountsAsNoSuccessAndAppends) {
  WriteFile(kStatusFile, "C:\\Deploy\\deploy.ini,True\r\n");
  machine["faults"] = json::parse(R"([{"call":"ReadText","lastError":70}])");
  const json t = Run();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin"));
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\nC:\\Deploy\\deploy.ini,True\r\n",
            ReadFile(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_AppendFails_EndsTheProcessWithTheFileError) {
  IniFile ini = ValidIni();
  ini.Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "True");
  WriteFile(kIni, ini.Text());
  machine["faults"] = json::parse(R"([{"call":"AppendText","lastError":70}])");
  const json t = Run();
  EXPECT_EQ("fatal", t["ended"]);
  EXPECT_EQ(json::parse(R"({"number":70,"description":"Permission denied"})"), t["fatal"]);
  EXPECT_TRUE(t["eventLogWritten"].empty());
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
  EXPECT_FALSE(FileExists(kStatusFile));
}

TEST_F(modClientPrintersTest, FileStore_RewriteFails_EndsTheProcessWithTheFileError) {
  WriteFile(kStatusFile, "C:\\Deploy\\deploy.ini,False\r\n");
  machine["faults"] = json::parse(R"([{"call":"ReplaceText","lastError":75}])");
  const json t = Run();
  EXPECT_EQ("fatal", t["ended"]);
  EXPECT_EQ(json::parse(R"({"number":75,"description":"Path/File access error"})"), t["fatal"]);
  EXPECT_EQ("C:\\Deploy\\deploy.ini,False\r\n", ReadFile(kStatusFile));
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
}

TEST_F(modClientPrintersTest, FileStore_LiesInTheProfileOfTheUser) {
  machine["profileDir"] = "C:\\Users\\other";
  Run();
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile("C:\\Users\\other\\Zandolin_status.log"));
  EXPECT_FALSE(FileExists(kStatusFile));
}

TEST_F(modClientPrintersTest, ReadRunStatus_EmptyINIFilePath_IsFalseAndWriteRecordsNothing) {
  Install();
  WriteFile(kStatusFile, "C:\\Deploy\\deploy.ini,True\r\n");
  EXPECT_FALSE(ReadRunStatus());
  WriteRunStatus();
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile(kStatusFile));
  EXPECT_EQ("", gDebugBuffer);
}

TEST_F(modClientPrintersTest, WriteRunStatus_FailedOperationOrAbort_RecordsFalse) {
  Install();
  INIFilePath = kIni;
  AbortStatus = false;
  OperationsSucceeded = false;
  WriteRunStatus();
  EXPECT_EQ("C:\\Deploy\\deploy.ini,False\r\n", ReadFile(kStatusFile));
  EXPECT_FALSE(ReadRunStatus());
  AbortStatus = true;
  OperationsSucceeded = true;
  WriteRunStatus();
  EXPECT_EQ("C:\\Deploy\\deploy.ini,False\r\n\r\n", ReadFile(kStatusFile));
  AbortStatus = false;
  WriteRunStatus();
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n\r\n", ReadFile(kStatusFile));
  EXPECT_TRUE(ReadRunStatus());
}

// ----- the registry store (9x family, NT 4, failed version query) -----

TEST_F(modClientPrintersTest, RegistryStore_Platform1_FirstRunReadsFalseAndSavesTrue) {
  machine["os"] = json::parse(R"({"platformId":1,"majorVersion":4,"minorVersion":10})");
  machine["printers"] = json::parse(R"([{"name":"laser","serverName":null,"attributes":4}])");
  const json t = Run();
  EXPECT_TRUE(
      Contains(t["debugBuffer"], Line(">> Getting Registry key: C:\\Deploy\\deploy.ini\\jdoe") +
                                     Line(">> Registry Key Value: False") +
                                     Line(">> Running Zandolin, abort status: False")));
  EXPECT_EQ(json::parse(R"({"SUCCESS":"True"})"), RegistryKey(kRegistryKey));
  EXPECT_FALSE(FileExists(kStatusFile));

  const json second = Run();
  EXPECT_TRUE(Contains(second["debugBuffer"],
                       Line(">> Registry Key Value: True") +
                           Line(">> This INI file has already successed on this machine.")));
  EXPECT_EQ(kAlreadySucceeded, second["outcomeText"]);
}

TEST_F(modClientPrintersTest, RegistryStore_NT4_IsUsed) {
  machine["os"] = json::parse(R"({"platformId":2,"majorVersion":4})");
  machine["printers"] = json::parse(R"([{"name":"laser","serverName":null}])");
  machine["winIni"] = json::parse(R"({"Windows":{"device":"laser,winspool,LPT1:"}})");
  const json t = Run();
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Registry Key Value: False"));
  EXPECT_EQ(json::parse(R"({"SUCCESS":"True"})"), RegistryKey(kRegistryKey));
  EXPECT_FALSE(FileExists(kStatusFile));
}

TEST_F(modClientPrintersTest, RegistryStore_FailedVersionQuery_IsUsed) {
  machine["os"] = json::parse(R"({"versionError":87})");
  const json t = Run();
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Getting Registry key: C:\\Deploy\\deploy.ini\\jdoe"));
  EXPECT_FALSE(FileExists(kStatusFile));
}

TEST_F(modClientPrintersTest, RegistryStore_ValueInAnyCaseOrANumber_ConvertsToBoolean) {
  machine["os"] = json::parse(R"({"platformId":1,"majorVersion":4})");
  for (const char* value : {"true", "TRUE", "-1", "1"}) {
    machine["registry"] = {{kRegistryKey, {{"SUCCESS", value}}}};
    const json t = Run();
    EXPECT_EQ(kAlreadySucceeded, t["outcomeText"]) << value;
  }
  for (const char* value : {"false", "0"}) {
    machine["registry"] = {{kRegistryKey, {{"SUCCESS", value}}}};
    const json t = Run();
    EXPECT_TRUE(Contains(t["debugBuffer"], ">> Registry Key Value: False")) << value;
    EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin")) << value;
  }
}

TEST_F(modClientPrintersTest, RegistryStore_ValueNotABoolean_EndsTheProcessWithTypeMismatch) {
  machine["os"] = json::parse(R"({"platformId":1,"majorVersion":4})");
  machine["registry"] = {{kRegistryKey, {{"SUCCESS", "yes"}}}};
  const json t = Run();
  EXPECT_EQ("fatal", t["ended"]);
  EXPECT_EQ(json::parse(R"({"number":13,"description":"Type mismatch"})"), t["fatal"]);
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
}

TEST_F(modClientPrintersTest, RegistryStore_AlwaysRunAfterAFailure_OverwritesWithFalse) {
  machine["os"] = json::parse(R"({"platformId":1,"majorVersion":4})");
  machine["registry"] = {{kRegistryKey, {{"SUCCESS", "True"}}}};
  Install();
  INIFilePath = kIni;
  INIDocument.DebugOn = true;
  OperationsSucceeded = false;
  WriteRunStatus();
  EXPECT_FALSE(ReadRunStatus());
  EXPECT_EQ(Line(">> Getting Registry key: C:\\Deploy\\deploy.ini\\jdoe") +
                Line(">> Registry Key Value: False"),
            gDebugBuffer);
}

TEST_F(modClientPrintersTest, RegistryStore_EmptyINIFilePath_ReadsNothingButLogs) {
  machine["os"] = json::parse(R"({"platformId":1,"majorVersion":4})");
  machine["registry"] = {
      {"HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\jdoe", {{"SUCCESS", "True"}}}};
  Install();
  INIDocument.DebugOn = true;
  EXPECT_FALSE(ReadRunStatus());
  EXPECT_EQ(Line(">> Getting Registry key: \\jdoe") + Line(">> Registry Key Value: False"),
            gDebugBuffer);
  WriteRunStatus();
  EXPECT_EQ(json::parse(R"({"SUCCESS":"True"})"),
            RegistryKey("HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\jdoe"));
}

TEST_F(modClientPrintersTest, RegistryStore_TwoUsers_HaveSeparateRecords) {
  machine["os"] = json::parse(R"({"platformId":1,"majorVersion":4})");
  machine["printers"] = json::parse(R"([{"name":"laser","serverName":null,"attributes":4}])");
  Run();
  KeepMachine();
  machine["userName"] = "asmith";
  const json t = Run();
  EXPECT_TRUE(
      Contains(t["debugBuffer"], ">> Getting Registry key: C:\\Deploy\\deploy.ini\\asmith"));
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Running Zandolin"));
  EXPECT_EQ(json::parse(R"({"SUCCESS":"True"})"),
            RegistryKey("HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\C:\\Deploy\\"
                        "deploy.ini\\asmith"));
}

// ----- identity and helpers -----

TEST_F(modClientPrintersTest, GetCurrentUserName_GivesTheLoggedOnUser) {
  machine["userName"] = "J.Doe Admin";
  Install();
  EXPECT_EQ("J.Doe Admin", GetCurrentUserName());
}

TEST_F(modClientPrintersTest, GetCurrentUserName_GetUserNameFails_GivesEmpty) {
  machine["userName"] = nullptr;
  Install();
  EXPECT_EQ("", GetCurrentUserName());
}

TEST_F(modClientPrintersTest, TrimAtNul_CutsAtTheFirstNul) {
  std::string a("C:\\Users\\jdoe\0\0\0", 16);
  EXPECT_EQ("C:\\Users\\jdoe", TrimAtNul(a));
  std::string b("\0C:", 3);
  EXPECT_EQ("", TrimAtNul(b));
  std::string c("plain");
  EXPECT_EQ("plain", TrimAtNul(c));
}

// ----- the ends of RunMigration -----

TEST_F(modClientPrintersTest, RunMigration_CleanRunWithProgress_ShowsTheReversedClosingText) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "ShowProgress", "True");
  WriteFile(kIni, ini.Text());
  const json t = Run();
  EXPECT_EQ(json::parse(R"(["Zandolin starting ...",
      "Getting current list of client printers ...",
      "Error getting list of client printers ...",
      "Getting current default printer ...",
      "Finished getting current default printer ...",
      "Saving Zandolin status ...",
      "Initializing notification methods ...",
      "Zandolin finished ..."])"),
            t["progress"]["labels"]);
  EXPECT_EQ(6, t["progress"]["steps"]);
  EXPECT_EQ(100, t["progress"]["value"]);
  EXPECT_TRUE(t["progress"]["shown"]);
  EXPECT_TRUE(Contains(t["debugBuffer"],
                       Line(">> Finished getting network printers, abort status: False")));
}

TEST_F(modClientPrintersTest, RunMigration_AlreadySucceededWithProgress_OnlyTheNotification) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "ShowProgress", "True");
  WriteFile(kIni, ini.Text());
  WriteFile(kStatusFile, "C:\\Deploy\\deploy.ini,True\r\n");
  const json t = Run();
  EXPECT_EQ(json::parse(R"(["Zandolin starting ...", "Initializing notification methods ...",
      "Zandolin finished ..."])"),
            t["progress"]["labels"]);
  EXPECT_EQ(1, t["progress"]["steps"]);
}

TEST_F(modClientPrintersTest, RunMigration_ManualMigration_ClosesWithTheErrorText) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "ShowProgress", "True").Set("GENERAL", "UseManualDefinitions", "True");
  WriteFile(kIni, ini.Text());
  const json t = Run();
  const std::vector<std::string> labels = t["progress"]["labels"];
  const auto at = [&](const std::string& label) {
    return std::find(labels.begin(), labels.end(), label) - labels.begin();
  };
  const auto n = static_cast<long>(labels.size());
  EXPECT_LT(at("Finished getting current default printer ..."),
            at("Initializing migration via Manual Configuration ..."));
  EXPECT_LT(at("Initializing migration via Manual Configuration ..."),
            at("Error migrating via Manual Configuration ..."));
  EXPECT_LT(at("Error migrating via Manual Configuration ..."), at("Saving Zandolin status ..."));
  EXPECT_LT(at("Saving Zandolin status ..."), n);
  EXPECT_EQ(n, at("Completed migration via Manual Configuration ..."));
  EXPECT_TRUE(Contains(t["debugBuffer"], Line(">> Finished moving manual, abort status: False")));
  EXPECT_FALSE(Contains(t["debugBuffer"], "MOVING USING AD"));
}

TEST_F(modClientPrintersTest, RunMigration_BothWaysOn_DirectoryFirstThenManual) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "ShowProgress", "True")
      .Set("GENERAL", "UseActiveDirectory", "True")
      .Set("GENERAL", "UseManualDefinitions", "True")
      .Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com");
  WriteFile(kIni, ini.Text());
  machine["directory"] = json::parse(
      R"({"domain":"corp.example.com","namingContext":"DC=corp,DC=example,DC=com",
          "printQueues":[]})");
  const json t = Run();
  const std::vector<std::string> labels = t["progress"]["labels"];
  const auto at = [&](const std::string& label) {
    return std::find(labels.begin(), labels.end(), label) - labels.begin();
  };
  const auto n = static_cast<long>(labels.size());
  EXPECT_LT(at("Finished getting current default printer ..."),
            at("Initializing migration via Active Directory ..."));
  EXPECT_LT(at("Initializing migration via Active Directory ..."),
            at("Error migrating via Active Directory ..."));
  EXPECT_LT(at("Error migrating via Active Directory ..."),
            at("Initializing migration via Manual Configuration ..."));
  EXPECT_LT(at("Error migrating via Manual Configuration ..."), n);
  EXPECT_EQ(n, at("Completed migration via Active Directory ..."));

  const std::string log = t["debugBuffer"];
  const std::string rule(80, '*');
  const size_t banner = log.find(Line(rule) + Line(std::string(28, '*') + "     MOVING USING AD    " +
                                                   std::string(27, '*')) +
                                 Line(rule));
  const size_t directoryEnd = log.find(Line(">> Finished moving via AD, abort status: False"));
  const size_t manualEnd = log.find(Line(">> Finished moving manual, abort status: False"));
  ASSERT_NE(std::string::npos, banner);
  ASSERT_NE(std::string::npos, directoryEnd);
  ASSERT_NE(std::string::npos, manualEnd);
  EXPECT_LT(log.find(">> Finished getting network printers"), banner);
  EXPECT_LT(banner, directoryEnd);
  EXPECT_LT(directoryEnd, manualEnd);
}

TEST_F(modClientPrintersTest, RunMigration_BothWaysOff_NothingMovesButStatusAndNotificationRun) {
  const json t = Run();
  EXPECT_TRUE(t["spoolerCalls"].empty());
  EXPECT_FALSE(Contains(t["debugBuffer"], ">> Finished moving"));
  EXPECT_TRUE(Contains(t["debugBuffer"], ">> Finished notification, abort status: False"));
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile(kStatusFile));
}

}  // namespace
