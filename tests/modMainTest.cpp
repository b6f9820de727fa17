#include "engine/modMain.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "app/zandolin-debug/DebugFileReader.h"
#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modINIFile.h"
#include "migration/modMoveADPrinters.h"
#include "notification/modNotification.h"

#include <gtest/gtest.h>

namespace {

using nlohmann::json;

using scenario::Banner;
using scenario::Contains;
using scenario::Line;

const std::string kBeginBanner = Banner(30, "     BEGIN DEBUG     ", 29);
const std::string kEndBanner = Banner(31, "     END DEBUG     ", 30);
const std::string kCommandLineBanner = Banner(24, "     COMMAND LINE PARAMETERS    ", 23);

class modMainTest : public SimFixture {
 protected:
  std::vector<uint8_t> ReadBytes(const std::string& windowsPath) {
    const std::string content = ReadFile(windowsPath);
    return std::vector<uint8_t>(content.begin(), content.end());
  }

  // The debug file of the default client, read back into text.
  std::string DebugFileText() {
    DecodedDebugFile decoded;
    std::string error;
    EXPECT_TRUE(DecodeDebugFile(ReadBytes("C:\\Deploy\\PC042.debug"), decoded, error)) << error;
    EXPECT_EQ(0u, decoded.droppedBytes);
    return decoded.text;
  }
};

TEST_F(modMainTest, Banners_HaveTheirAsteriskCountsAndWidths) {
  EXPECT_EQ(80u, (30 + std::string("     BEGIN DEBUG     ").size() + 29));
  EXPECT_EQ(80u, (31 + std::string("     END DEBUG     ").size() + 30));
  EXPECT_EQ(79u, (24 + std::string("     COMMAND LINE PARAMETERS    ").size() + 23));
  Install();
  INIDocument.DebugOn = true;
  WriteBanner(28, "     NETWORK PRINTERS    ", 27);
  EXPECT_EQ(std::string(80, '*') + "\r\n" + std::string(28, '*') + "     NETWORK PRINTERS    " +
                std::string(27, '*') + "\r\n" + std::string(80, '*') + "\r\n",
            gDebugBuffer);
}

TEST_F(modMainTest, Main_NoINIFile_ShowsErrorBoxAndRunsWithEmptyDocument) {
  const json t = Run();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_EQ(json::parse(R"([{"title":"Error","style":16,
      "text":"Unable to find INI file. Please check your deployment and try again."}])"),
            t["messageBoxes"]);

  const std::string log = t["debugBuffer"];
  const std::string head = kBeginBanner + kCommandLineBanner + Line(">> Command line parameter: ") +
                           Line(">> First found INI file : ") +
                           Line("ERROR: Unable to find an INI File.") +
                           Line(">> Running Zandolin, abort status: False") +
                           Banner(28, "     NETWORK PRINTERS    ", 27);
  EXPECT_EQ(head, log.substr(0, head.size()));
  EXPECT_TRUE(Contains(log, Line(">> Finished getting network printers, abort status: False")));
  EXPECT_TRUE(log.ends_with(Line(">> Finished notification, abort status: False") + kEndBanner));
  EXPECT_FALSE(Contains(log, "Registry"));

  // No progress window, no status record, no notification.
  EXPECT_FALSE(t["progress"]["shown"]);
  EXPECT_TRUE(t["eventLogWritten"].empty());
  EXPECT_FALSE(FileExists("C:\\Users\\jdoe\\Zandolin_status.log"));
  EXPECT_EQ(log, DebugFileText());
}

TEST_F(modMainTest, Main_LoadFails_ShowsTheBoxAndSavesOnlyTheDebugFile) {
  IniFile ini = ValidIni();
  ini.Set("NOTIFICATION SMTP", "UseSMTP", "Yes")
      .Set("GENERAL", "ShowProgress", "True")
      .Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "True");
  WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
  const json t = Run();

  EXPECT_EQ("returned", t["ended"]);
  const std::string message =
      "Unable to get INI file contents, please check your file path and permissions.";
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","style":16,"text":")" + message + "\"}]"),
            t["messageBoxes"]);

  std::string echo = kEchoOfValidIni;
  echo.replace(echo.find(">> ShowProgress: False"), 22, ">> ShowProgress: True");
  echo.replace(echo.find(">> WriteToEventLog: False"), 25, ">> WriteToEventLog: True");
  EXPECT_EQ(kBeginBanner + kCommandLineBanner + Line(">> Command line parameter: ") +
                Line(">> First found INI file : deploy.ini") +
                Line(">> Opening INI File: C:\\Deploy\\deploy.ini") + echo + Line(message) +
                kEndBanner,
            t["debugBuffer"]);

  EXPECT_EQ("", t["outcomeText"]);
  EXPECT_FALSE(t["progress"]["shown"]);
  EXPECT_TRUE(t["progress"]["labels"].empty());
  EXPECT_TRUE(t["eventLogWritten"].empty());
  EXPECT_EQ(json::parse(R"(["C:\\Deploy\\PC042.debug"])"), t["filesWritten"]);
  EXPECT_FALSE(FileExists("C:\\Users\\jdoe\\Zandolin_status.log"));
  EXPECT_EQ(t["debugBuffer"], DebugFileText());
}

TEST_F(modMainTest, Main_LoadFailsWithDebugOnReadFalse_WritesNoDebugFile) {
  IniFile ini = ValidIni();
  ini.Set("NOTIFICATION SMTP", "UseSMTP", "Yes").Set("SUPPORT", "DebugOn", "False");
  WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
  const json t = Run();
  EXPECT_EQ(1u, t["messageBoxes"].size());
  EXPECT_EQ(kBeginBanner + kCommandLineBanner + Line(">> Command line parameter: ") +
                Line(">> First found INI file : deploy.ini") +
                Line(">> Opening INI File: C:\\Deploy\\deploy.ini"),
            t["debugBuffer"]);
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
  EXPECT_TRUE(t["filesWritten"].empty());
}

TEST_F(modMainTest, Main_CleanRun_RecordsSuccessAndSavesTheDebugFile) {
  WriteFile("C:\\Deploy\\deploy.ini", ValidIni().Text());
  const json t = Run();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_TRUE(t["messageBoxes"].empty());
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile("C:\\Users\\jdoe\\Zandolin_status.log"));

  const std::string log = t["debugBuffer"];
  const std::string head = kBeginBanner + kCommandLineBanner + Line(">> Command line parameter: ") +
                           Line(">> First found INI file : deploy.ini") +
                           Line(">> Opening INI File: C:\\Deploy\\deploy.ini") + kEchoOfValidIni +
                           Line(">> Running Zandolin, abort status: False") +
                           Banner(28, "     NETWORK PRINTERS    ", 27);
  EXPECT_EQ(head, log.substr(0, head.size()));
  EXPECT_TRUE(Contains(log, Line(">> Finished getting network printers, abort status: False")));
  EXPECT_FALSE(Contains(log, "MOVING USING AD"));
  EXPECT_FALSE(Contains(log, ">> Finished moving"));
  EXPECT_FALSE(Contains(log, "NOTIFICATION VIA"));
  EXPECT_TRUE(log.ends_with(Line(">> Finished notification, abort status: False") + kEndBanner));

  const std::string file = DebugFileText();
  EXPECT_EQ(log, file);
  EXPECT_TRUE(file.starts_with(Line(std::string(80, '*'))));
  EXPECT_TRUE(file.ends_with(kEndBanner));
}

TEST_F(modMainTest, Main_IntegerOverflowInTheLoad_EndsTheProcessWithoutDebugFile) {
  IniFile ini = ValidIni();
  ini.Set("DEPLOYMENT", "MDACOption", "40000")
      .Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "True");
  WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
  const json t = Run();
  EXPECT_EQ("fatal", t["ended"]);
  EXPECT_EQ(json::parse(R"({"number":6,"description":"Overflow"})"), t["fatal"]);
  EXPECT_TRUE(t["messageBoxes"].empty());
  EXPECT_TRUE(
      std::string(t["debugBuffer"]).ends_with(Line(">> Opening INI File: C:\\Deploy\\deploy.ini")));
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
  EXPECT_FALSE(FileExists("C:\\Users\\jdoe\\Zandolin_status.log"));
}

TEST_F(modMainTest, Main_ListKeyWithTooManyPieces_EndsTheProcessWithSubscriptOutOfRange) {
  IniFile ini = ValidIni();
  ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD1,OLD2")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW1,NEW2,NEW3");
  WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
  const json t = Run();
  EXPECT_EQ("fatal", t["ended"]);
  EXPECT_EQ(json::parse(R"({"number":9,"description":"Subscript out of range"})"), t["fatal"]);
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
  EXPECT_TRUE(t["filesWritten"].empty());
}

TEST_F(modMainTest, Main_DebugOnFalse_StopsTheLogAtTheLoadAndWritesNoFile) {
  IniFile ini = ValidIni();
  ini.Set("SUPPORT", "DebugOn", "False");
  WriteFile("C:\\Deploy\\deploy.ini", ini.Text());
  const json t = Run();
  EXPECT_EQ("returned", t["ended"]);
  EXPECT_EQ(kBeginBanner + kCommandLineBanner + Line(">> Command line parameter: ") +
                Line(">> First found INI file : deploy.ini") +
                Line(">> Opening INI File: C:\\Deploy\\deploy.ini"),
            t["debugBuffer"]);
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
  EXPECT_EQ("C:\\Deploy\\deploy.ini,True\r\n", ReadFile("C:\\Users\\jdoe\\Zandolin_status.log"));
}

TEST_F(modMainTest, ResetProcessState_PutsEveryGlobalBackToItsStartValue) {
  Install();
  AbortStatus = true;
  OperationsSucceeded = true;
  INIDocument.DebugOn = true;
  INIDocument.DomainName = "corp";
  INIDocument.ServerDefinitions.resize(3);
  INIWriteError = true;
  INIReadError = true;
  INIFilePath = "C:\\a.ini";
  Err.Number = 5;
  Err.Description = "x";
  gOutcomeText = "text";
  gDebugBuffer = "log";
  gDefaultPrinterName = "\\\\OLD\\laser";
  gClientPrinters.resize(4);
  gClientLocalPrinters.resize(2);
  gDirectoryPrinters.resize(3);
  gClientPrinters[0].PrinterName = "x";
  LoadProgressForm();
  ASSERT_EQ(1, LoadedFormCount());

  ResetProcessState();

  EXPECT_FALSE(AbortStatus);
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_FALSE(INIDocument.DebugOn);
  EXPECT_EQ("", INIDocument.DomainName);
  EXPECT_TRUE(INIDocument.ServerDefinitions.empty());
  EXPECT_FALSE(INIWriteError);
  EXPECT_FALSE(INIReadError);
  EXPECT_EQ("", INIFilePath);
  EXPECT_EQ(0, Err.Number);
  EXPECT_EQ("", Err.Description);
  EXPECT_EQ("", gOutcomeText);
  EXPECT_EQ("", gDebugBuffer);
  EXPECT_EQ("", gDefaultPrinterName);
  ASSERT_EQ(1u, gClientPrinters.size());
  EXPECT_EQ("", gClientPrinters[0].PrinterName);
  EXPECT_EQ(1u, gClientLocalPrinters.size());
  EXPECT_EQ(1u, gDirectoryPrinters.size());
  EXPECT_FALSE(frmProgress.Loaded);
  EXPECT_EQ(0, LoadedFormCount());
}

TEST_F(modMainTest, RunEngineProcess_TwoRunsInOneProcess_StartAlike) {
  WriteFile("C:\\Deploy\\deploy.ini", ValidIni().Text());
  const json first = Run();
  const json second = Run("C:\\Deploy\\deploy.ini");
  EXPECT_EQ("returned", second["ended"]);
  EXPECT_TRUE(std::string(second["debugBuffer"])
                  .starts_with(kBeginBanner + kCommandLineBanner +
                               Line(">> Command line parameter: C:\\Deploy\\deploy.ini")));
  EXPECT_EQ(std::string::npos, std::string(second["debugBuffer"]).find("First found"));
  EXPECT_NE(std::string::npos,
            std::string(second["outcomeText"]).find("This INI file has already succeeded"));
  EXPECT_EQ(std::string::npos,
            std::string(first["outcomeText"]).find("This INI file has already succeeded"));
}

}  // namespace
