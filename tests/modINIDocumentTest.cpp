#include "config/modINIDocument.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>
#include <vector>

namespace {

using scenario::CatchFatal;

const char* const kIniPath = "C:\\Deploy\\test.ini";

class modINIDocumentTest : public SimFixture {
 protected:
  // Puts the INI file on the client and makes it the file in force.
  void UseIni(const std::string& text) {
    WriteFile(kIniPath, text);
    Install();
    INIFilePath = kIniPath;
  }

  // Loads the file as Main does: DebugOn forced True beforehand.
  void Load(const IniFile& ini) {
    UseIni(ini.Text());
    INIDocument.DebugOn = true;
    LoadINIDocument();
  }
};

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs ServerPairs(const std::vector<ServerDefinition>& list) {
  Pairs pairs;
  for (const ServerDefinition& d : list) pairs.emplace_back(d.FromServer, d.ToServer);
  return pairs;
}

// ----- the reading procedure and the scalar readers -----

TEST_F(modINIDocumentTest, ReadINIString_ValueWithBlanksAround_ComesWithoutThem) {
  UseIni("[A]\r\nKey =   some value   \r\n");
  EXPECT_EQ("some value", ReadINIString("A", "Key"));
  EXPECT_FALSE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIString_AbsentKeyOrSection_GivesEmptyWithoutError) {
  UseIni("[A]\r\nKey=x\r\n");
  EXPECT_EQ("", ReadINIString("A", "Other"));
  EXPECT_EQ("", ReadINIString("B", "Key"));
  EXPECT_FALSE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIString_SectionAndKeyNamesAreCaseBlind) {
  UseIni("[General]\r\nDomainName=corp\r\n");
  EXPECT_EQ("corp", ReadINIString("GENERAL", "domainname"));
}

TEST_F(modINIDocumentTest, ReadINIString_LongValue_IsCutAt999Characters) {
  const std::string value(1200, 'm');
  UseIni("[A]\r\nSuccessMessage=" + value + "\r\n");
  EXPECT_EQ(std::string(999, 'm'), ReadINIString("A", "SuccessMessage"));
  EXPECT_FALSE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIString_TrailingBackslash_IsKept) {
  UseIni("[PRINTER_DRIVER]\r\nDriverSharePath=\\\\srv\\drivers\\\r\n");
  EXPECT_EQ("\\\\srv\\drivers\\", ReadINIString("PRINTER_DRIVER", "DriverSharePath"));
}

TEST_F(modINIDocumentTest, ReadINIString_MissingFile_SetsReadError) {
  Install();
  INIFilePath = "C:\\Deploy\\missing.ini";
  EXPECT_EQ("", ReadINIString("A", "Key"));
  EXPECT_TRUE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIBoolean_TrueAnywhereCaseBlind_IsTrue) {
  UseIni("[A]\r\nA=TRUE\r\nB=  true  \r\nC=Untrue\r\nD=True, not False\r\nE=False before True\r\n");
  for (const char* key : {"A", "B", "C", "D", "E"}) EXPECT_TRUE(ReadINIBoolean("A", key)) << key;
  EXPECT_FALSE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIBoolean_FalseWithoutTrue_IsFalseWithoutError) {
  UseIni("[A]\r\nA=False\r\nB=falsely\r\nC=FALSE\r\n");
  for (const char* key : {"A", "B", "C"}) EXPECT_FALSE(ReadINIBoolean("A", key)) << key;
  EXPECT_FALSE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIBoolean_Yes_IsFalseAndSetsReadError) {
  UseIni("[A]\r\nUseSMTP=Yes\r\n");
  EXPECT_FALSE(ReadINIBoolean("A", "UseSMTP"));
  EXPECT_TRUE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIBoolean_NumbersEmptyAndAbsent_AreReadErrors) {
  for (const char* line : {"K=1", "K=0", "K=", "Other=True"}) {
    UseIni(std::string("[A]\r\n") + line + "\r\n");
    EXPECT_FALSE(ReadINIBoolean("A", "K")) << line;
    EXPECT_TRUE(INIReadError) << line;
  }
}

TEST_F(modINIDocumentTest, ReadINIBoolean_LooksOnlyAtTheFirst99Characters) {
  UseIni("[A]\r\nIn=" + std::string(95, 'x') + "True\r\nOut=" + std::string(96, 'x') + "True\r\n");
  EXPECT_TRUE(ReadINIBoolean("A", "In"));
  EXPECT_FALSE(INIReadError);
  EXPECT_FALSE(ReadINIBoolean("A", "Out"));
  EXPECT_TRUE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIInteger_TakesTheLeadingNumberRoundedToEven) {
  UseIni("[A]\r\nA=12abc\r\nB=abc\r\nC=2.5\r\nD=3.5\r\nE=-7\r\nF=\r\n");
  EXPECT_EQ(12, ReadINIInteger("A", "A"));
  EXPECT_EQ(0, ReadINIInteger("A", "B"));
  EXPECT_EQ(2, ReadINIInteger("A", "C"));
  EXPECT_EQ(4, ReadINIInteger("A", "D"));
  EXPECT_EQ(-7, ReadINIInteger("A", "E"));
  EXPECT_EQ(0, ReadINIInteger("A", "F"));
  EXPECT_EQ(0, ReadINIInteger("A", "Absent"));
  EXPECT_FALSE(INIReadError);
}

TEST_F(modINIDocumentTest, ReadINIInteger_40000_IsFatalOverflow) {
  UseIni("[DEPLOYMENT]\r\nMDACOption=40000\r\n");
  const FatalError e = CatchFatal([] { ReadINIInteger("DEPLOYMENT", "MDACOption"); });
  EXPECT_EQ(6, e.Number);
  EXPECT_EQ("Overflow", e.Description);
}

// ----- the load -----

TEST_F(modINIDocumentTest, LoadINIDocument_ValidFile_FillsTheRecordWithoutAbort) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "UseManualDefinitions", "TRUE")
      .Set("GENERAL", "ShowProgress", " true ")
      .Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com")
      .Set("NOTIFICATION SMTP", "SMTPServerNameOrIP", "mail.example.com")
      .Set("NOTIFICATION SMTP", "ServerPort", "0025")
      .Set("NOTIFICATION SMTP", "EmailSubject", "Printers")
      .Set("NOTIFICATION SMTP", "EmailFrom", "zandolin@example.com")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "out.txt")
      .Set("NOTIFICATION CLIENT POP-UP", "SuccessMessage", "Done^CRLFThanks")
      .Set("NOTIFICATION CLIENT POP-UP", "FailureMessage", "Failed")
      .Set("DEPLOYMENT", "MDACOption", "3.5")
      .Set("SET_DEFAULT", "DefaultType", "2")
      .Set("SET_DEFAULT", "DefaultPrinterName", "\\\\NEW\\laser")
      .Set("SUPPORT", "DebugOn", "False");
  Load(ini);

  const INIDocumentRecord& d = INIDocument;
  EXPECT_FALSE(AbortStatus);
  EXPECT_FALSE(INIReadError);
  EXPECT_FALSE(d.ClearedOnLoad);
  EXPECT_FALSE(d.UseActiveDirectory);
  EXPECT_TRUE(d.UseManualDefinitions);
  EXPECT_TRUE(d.ShowProgress);
  EXPECT_EQ("corp.example.com", d.DomainName);
  EXPECT_EQ("mail.example.com", d.SMTPServerNameOrIP);
  EXPECT_EQ("0025", d.ServerPort);
  EXPECT_EQ("Printers", d.EmailSubject);
  EXPECT_EQ("zandolin@example.com", d.EmailFrom);
  EXPECT_EQ("out.txt", d.FileOutputName);
  EXPECT_EQ("Done^CRLFThanks", d.SuccessMessage);
  EXPECT_EQ("Failed", d.FailureMessage);
  EXPECT_EQ(4, d.MDACOption);
  EXPECT_EQ(2, d.DefaultType);
  EXPECT_EQ("\\\\NEW\\laser", d.DefaultPrinterName);
  EXPECT_FALSE(d.DebugOn);
  EXPECT_EQ(1u, d.ServerDefinitions.size());
  EXPECT_EQ(1u, d.EmailTo.size());
  EXPECT_EQ(1u, d.DriverDefinitions.size());
}

TEST_F(modINIDocumentTest, LoadINIDocument_OutputAndDeploymentPaths_LoseOneTrailingBackslash) {
  IniFile ini = ValidIni();
  ini.Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "\\\\srv\\reports\\")
      .Set("DEPLOYMENT", "DeploymentPath", "C:\\")
      .Set("PRINTER_DRIVER", "DriverSharePath", "\\\\srv\\drivers\\");
  Load(ini);
  EXPECT_EQ("\\\\srv\\reports", INIDocument.FileOutputPath);
  EXPECT_EQ("C:", INIDocument.DeploymentPath);
  EXPECT_EQ("\\\\srv\\drivers\\", INIDocument.DriverSharePath);

  ini.Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "C:\\out\\\\")
      .Set("DEPLOYMENT", "DeploymentPath", "");
  Load(ini);
  EXPECT_EQ("C:\\out\\", INIDocument.FileOutputPath);
  EXPECT_EQ("", INIDocument.DeploymentPath);
}

TEST_F(modINIDocumentTest, LoadINIDocument_UseSMTPYes_AbortsAlthoughAllElseIsFine) {
  IniFile ini = ValidIni();
  ini.Set("NOTIFICATION SMTP", "UseSMTP", "Yes").Set("ACTIVE DIRECTORY", "DomainName", "corp");
  Load(ini);
  EXPECT_TRUE(INIReadError);
  EXPECT_TRUE(AbortStatus);
  EXPECT_FALSE(INIDocument.UseSMTP);
  EXPECT_EQ("corp", INIDocument.DomainName);
  EXPECT_TRUE(INIDocument.DebugOn);
}

TEST_F(modINIDocumentTest, LoadINIDocument_NoSupportSection_LoadsAllElseAndAborts) {
  IniFile ini = ValidIni();
  ini.RemoveSection("SUPPORT").Set("GENERAL", "AlwaysRun", "True");
  Load(ini);
  EXPECT_TRUE(INIDocument.AlwaysRun);
  EXPECT_FALSE(INIDocument.DebugOn);
  EXPECT_TRUE(AbortStatus);
  // DebugOn went False before the echo, so the echo is not kept.
  EXPECT_EQ("", gDebugBuffer);
}

TEST_F(modINIDocumentTest, LoadINIDocument_DeleteADOrphansIsMandatoryLikeEveryBooleanKey) {
  IniFile ini = ValidIni();
  ini.Remove("PRUNE", "DeleteADOrphans");
  Load(ini);
  EXPECT_TRUE(AbortStatus);
}

TEST_F(modINIDocumentTest, LoadINIDocument_MissingFile_AbortsWithEmptyValues) {
  Install();
  INIFilePath = "C:\\Deploy\\missing.ini";
  INIDocument.DebugOn = true;
  LoadINIDocument();
  EXPECT_TRUE(INIReadError);
  EXPECT_TRUE(AbortStatus);
  EXPECT_FALSE(INIDocument.DebugOn);
}

TEST_F(modINIDocumentTest, LoadINIDocument_MDACOption40000_EndsBeforeTheEcho) {
  IniFile ini = ValidIni();
  ini.Set("DEPLOYMENT", "MDACOption", "40000");
  UseIni(ini.Text());
  INIDocument.DebugOn = true;
  const FatalError e = CatchFatal([] { LoadINIDocument(); });
  EXPECT_EQ(6, e.Number);
  EXPECT_EQ("", gDebugBuffer);
}

TEST_F(modINIDocumentTest, LoadINIDocument_MDACOptionForms_AreStored) {
  IniFile ini = ValidIni();
  ini.Set("DEPLOYMENT", "MDACOption", "12abc");
  Load(ini);
  EXPECT_EQ(12, INIDocument.MDACOption);
  ini.Set("DEPLOYMENT", "MDACOption", "abc");
  Load(ini);
  EXPECT_EQ(0, INIDocument.MDACOption);
  EXPECT_FALSE(AbortStatus);
  ini.Set("DEPLOYMENT", "MDACOption", "2.5");
  Load(ini);
  EXPECT_EQ(2, INIDocument.MDACOption);
}

// ----- definition lists -----

struct ServerCase {
  std::optional<std::string> from;
  std::optional<std::string> to;
  Pairs expected;
};

TEST_F(modINIDocumentTest, ReadServerDefinitions_SizingAndElementRules) {
  const std::vector<ServerCase> cases = {
      {std::nullopt, std::nullopt, {{"", ""}}},
      {"a", "b", {{"a", "b"}, {"", ""}}},
      {"a", "b,c", {{"a", "b"}, {"", "c"}}},
      {"a,b", "c", {{"a", "c"}, {"b", ""}}},
      {"a,,b", "x,y,z", {{"a", "x"}, {"Error in From Server Name", "y"}, {"b", "z"}}},
      {"a,", "x", {{"a", "x"}, {"Error in From Server Name", ""}}},
      {",", std::nullopt, {{"Error in From Server Name", ""}, {"Error in From Server Name", ""}}},
      {std::nullopt, "b", {{"", "b"}}},
      {"a, ,b", " x , y ,z", {{"a", "x"}, {"Error in From Server Name", "y"}, {"b", "z"}}},
      {"OLD,OLD2", "NEW, ", {{"OLD", "NEW"}, {"OLD2", "Error in To Server Name"}}},
      {"Old", "New", {{"Old", "New"}, {"", ""}}},
  };
  for (const ServerCase& c : cases) {
    std::string text = "[MANUAL DEFINITIONS SERVERS]\r\n";
    if (c.from) text += "FromServers=" + *c.from + "\r\n";
    if (c.to) text += "ToServers=" + *c.to + "\r\n";
    UseIni(text);
    std::vector<ServerDefinition> list;
    ReadServerDefinitions(list);
    EXPECT_EQ(c.expected, ServerPairs(list)) << text;
    EXPECT_FALSE(INIReadError);
  }
}

TEST_F(modINIDocumentTest, ReadServerDefinitions_ReadAgain_DropsTheOldRecords) {
  UseIni("[MANUAL DEFINITIONS SERVERS]\r\nFromServers=a\r\n");
  std::vector<ServerDefinition> list(5, ServerDefinition{"x", "y"});
  ReadServerDefinitions(list);
  EXPECT_EQ((Pairs{{"a", ""}, {"", ""}}), ServerPairs(list));
}

TEST_F(modINIDocumentTest, ReadServerDefinitions_ToKeyWithMorePieces_IsFatalSubscriptOutOfRange) {
  for (const char* text : {"FromServers=a,b\r\nToServers=c,d,e\r\n", "ToServers=b,c\r\n",
                           "FromServers=a\r\nToServers=b,c,d\r\n"}) {
    UseIni(std::string("[MANUAL DEFINITIONS SERVERS]\r\n") + text);
    std::vector<ServerDefinition> list;
    const FatalError e = CatchFatal([&] { ReadServerDefinitions(list); });
    EXPECT_EQ(9, e.Number) << text;
    EXPECT_EQ("Subscript out of range", e.Description) << text;
  }
}

TEST_F(modINIDocumentTest, ReadPrinterDefinitions_ErrorTextsOfPrinters) {
  UseIni(
      "[MANUAL DEFINITIONS PRINTERS]\r\nFromPrinters=\\\\OLD\\a,\r\nToPrinters= ,\\\\NEW\\b\r\n");
  std::vector<PrinterDefinition> list;
  ReadPrinterDefinitions(list);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("\\\\OLD\\a", list[0].FromPrinter);
  EXPECT_EQ("Error in To Printer Name", list[0].ToPrinter);
  EXPECT_EQ("Error in From Printer Name", list[1].FromPrinter);
  EXPECT_EQ("\\\\NEW\\b", list[1].ToPrinter);
}

TEST_F(modINIDocumentTest, ReadMixedDefinitions_SizedByFromServersAlone) {
  UseIni(
      "[MANUAL DEFINITIONS MIXED]\r\nFromServers=OLD\r\nFromPrinters=a,b\r\n"
      "ToServers=NEW\r\nToPrinters=,\r\n");
  std::vector<MixedDefinition> list;
  ReadMixedDefinitions(list);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("OLD", list[0].FromServer);
  EXPECT_EQ("a", list[0].FromPrinter);
  EXPECT_EQ("NEW", list[0].ToServer);
  EXPECT_EQ("Error in To Printer Name", list[0].ToPrinter);
  EXPECT_EQ("", list[1].FromServer);
  EXPECT_EQ("b", list[1].FromPrinter);
  EXPECT_EQ("", list[1].ToServer);
  EXPECT_EQ("Error in To Printer Name", list[1].ToPrinter);

  UseIni("[MANUAL DEFINITIONS MIXED]\r\nFromServers=OLD\r\nToPrinters=a,b,c\r\n");
  EXPECT_EQ(9, CatchFatal([&] { ReadMixedDefinitions(list); }).Number);
}

TEST_F(modINIDocumentTest, ReadMixedDefinitions_IndependentOfServerSection) {
  UseIni(
      "[MANUAL DEFINITIONS SERVERS]\r\nFromServers=S1\r\nToServers=S2\r\n"
      "[MANUAL DEFINITIONS MIXED]\r\nFromServers=M1,M2\r\n");
  std::vector<MixedDefinition> mixed;
  ReadMixedDefinitions(mixed);
  ASSERT_EQ(2u, mixed.size());
  EXPECT_EQ("M1", mixed[0].FromServer);
  EXPECT_EQ("", mixed[0].ToServer);
  std::vector<ServerDefinition> servers;
  ReadServerDefinitions(servers);
  EXPECT_EQ((Pairs{{"S1", "S2"}, {"", ""}}), ServerPairs(servers));
}

TEST_F(modINIDocumentTest, ReadEmailTo_KeepsTheBlankAfterACommaAndMarksBlankPieces) {
  UseIni("[NOTIFICATION SMTP]\r\nEmailTo=  a@x.com, b@x.com ,, ,c@x.com  \r\n");
  std::vector<std::string> list;
  ReadEmailTo(list);
  EXPECT_EQ((std::vector<std::string>{"a@x.com", " b@x.com ", "Error in To Email Address",
                                      "Error in To Email Address", "c@x.com"}),
            list);
}

TEST_F(modINIDocumentTest, ReadEmailTo_OneAddress_HasASpareEmptyElement) {
  UseIni("[NOTIFICATION SMTP]\r\nEmailTo=admin@example.com\r\n");
  std::vector<std::string> list;
  ReadEmailTo(list);
  EXPECT_EQ((std::vector<std::string>{"admin@example.com", ""}), list);
  UseIni("[NOTIFICATION SMTP]\r\n");
  ReadEmailTo(list);
  EXPECT_EQ((std::vector<std::string>{""}), list);
}

TEST_F(modINIDocumentTest, ReadPopulateDefinitions_BlankPiecesGetErrorTexts) {
  UseIni("[POPULATE]\r\nServerNames=NEW, \r\nPrinterNames=,laser\r\n");
  std::vector<NameDefinition> list;
  ReadPopulateDefinitions(list);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("NEW", list[0].ServerName);
  EXPECT_EQ("Error in Printer Name", list[0].PrinterName);
  EXPECT_EQ("Error in Server Name", list[1].ServerName);
  EXPECT_EQ("laser", list[1].PrinterName);
}

TEST_F(modINIDocumentTest, ReadPruneDefinitions_BlankPiecesGiveEmptyFields) {
  UseIni("[PRUNE]\r\nServerNames= OLD , \r\nPrinterNames=,laser\r\n");
  std::vector<NameDefinition> list;
  ReadPruneDefinitions(list);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("OLD", list[0].ServerName);
  EXPECT_EQ("", list[0].PrinterName);
  EXPECT_EQ("", list[1].ServerName);
  EXPECT_EQ("laser", list[1].PrinterName);
}

TEST_F(modINIDocumentTest, ReadPruneDefinitions_EmptyServersAndOneOrTwoPrinters) {
  UseIni("[PRUNE]\r\nServerNames=\r\nPrinterNames=laser\r\n");
  std::vector<NameDefinition> list;
  ReadPruneDefinitions(list);
  ASSERT_EQ(1u, list.size());
  EXPECT_EQ("", list[0].ServerName);
  EXPECT_EQ("laser", list[0].PrinterName);

  UseIni("[PRUNE]\r\nServerNames=\r\nPrinterNames=laser,color\r\n");
  EXPECT_EQ(9, CatchFatal([&] { ReadPruneDefinitions(list); }).Number);
}

TEST_F(modINIDocumentTest, ReadPopulateAndPrune_SameKeyNamesAreIndependent) {
  UseIni("[POPULATE]\r\nServerNames=P1\r\n[PRUNE]\r\nServerNames=Q1,Q2,Q3\r\n");
  std::vector<NameDefinition> populate, prune;
  ReadPopulateDefinitions(populate);
  ReadPruneDefinitions(prune);
  EXPECT_EQ(2u, populate.size());
  EXPECT_EQ("P1", populate[0].ServerName);
  EXPECT_EQ(3u, prune.size());
  EXPECT_EQ("Q3", prune[2].ServerName);
}

TEST_F(modINIDocumentTest, ReadDriverDefinitions_OnePrinter_HasASpareEmptyRecord) {
  UseIni(
      "[PRINTER_DRIVER]\r\nPrinterName=Lab Laser\r\nDriverName=HP LaserJet 4\r\n"
      "DriverFileName=hpdrv.inf\r\nPortName=IP_10.0.0.5\r\n");
  std::vector<DriverDefinition> list;
  ReadDriverDefinitions(list);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("Lab Laser", list[0].PrinterName);
  EXPECT_EQ("HP LaserJet 4", list[0].DriverName);
  EXPECT_EQ("hpdrv.inf", list[0].DriverFileName);
  EXPECT_EQ("IP_10.0.0.5", list[0].PortName);
  EXPECT_EQ("", list[1].PrinterName);
  EXPECT_EQ("", list[1].DriverName);
  EXPECT_EQ("", list[1].DriverFileName);
  EXPECT_EQ("", list[1].PortName);
}

TEST_F(modINIDocumentTest, ReadDriverDefinitions_SecondPortLandsInTheSpareRecord) {
  UseIni("[PRINTER_DRIVER]\r\nPrinterName=Lab\r\nPortName=LPT1:, LPT2: \r\n");
  std::vector<DriverDefinition> list;
  ReadDriverDefinitions(list);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("LPT1:", list[0].PortName);
  EXPECT_EQ("", list[1].PrinterName);
  EXPECT_EQ("LPT2:", list[1].PortName);
}

TEST_F(modINIDocumentTest, ReadDriverDefinitions_NoPrinterAndOneDriver_OneRecord) {
  UseIni("[PRINTER_DRIVER]\r\nDriverName=HP\r\n");
  std::vector<DriverDefinition> list;
  ReadDriverDefinitions(list);
  ASSERT_EQ(1u, list.size());
  EXPECT_EQ("", list[0].PrinterName);
  EXPECT_EQ("HP", list[0].DriverName);
}

TEST_F(modINIDocumentTest, ReadDriverDefinitions_TestsNamesUntrimmed) {
  UseIni("[PRINTER_DRIVER]\r\nPrinterName=a, ,\r\nDriverName=,\r\nDriverFileName=, \r\n");
  std::vector<DriverDefinition> list;
  ReadDriverDefinitions(list);
  ASSERT_EQ(3u, list.size());
  EXPECT_EQ("a", list[0].PrinterName);
  EXPECT_EQ("", list[1].PrinterName);  // a blank passes the test and is trimmed away
  EXPECT_EQ("Error in Printer Name", list[2].PrinterName);
  EXPECT_EQ("Error in Driver Name", list[0].DriverName);
  EXPECT_EQ("Error in Driver Name", list[1].DriverName);
  EXPECT_EQ("", list[2].DriverName);
  EXPECT_EQ("", list[0].DriverFileName);
  EXPECT_EQ("", list[1].DriverFileName);
}

TEST_F(modINIDocumentTest, ReadDriverDefinitions_MoreFileNamesThanPrinters_IsFatal) {
  UseIni("[PRINTER_DRIVER]\r\nPrinterName=a,b\r\nDriverFileName=x,y,z\r\n");
  std::vector<DriverDefinition> list;
  EXPECT_EQ(9, CatchFatal([&] { ReadDriverDefinitions(list); }).Number);
}

TEST_F(modINIDocumentTest, ListValue_IsCutAt9999Characters) {
  const std::string first(9990, 'a');
  UseIni("[MANUAL DEFINITIONS SERVERS]\r\nFromServers=" + first + ",bcdefghijklmn\r\n");
  std::vector<ServerDefinition> list;
  ReadServerDefinitions(list);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ(first, list[0].FromServer);
  EXPECT_EQ("bcdefghi", list[1].FromServer);
}

// ----- the echo -----

TEST_F(modINIDocumentTest, Echo_FileWithoutLists_ShowsHeadingsWithOneEmptyRecordEach) {
  Load(ValidIni());
  EXPECT_EQ(kEchoOfValidIni, gDebugBuffer);
}

TEST_F(modINIDocumentTest, Echo_ShowsValuesInRecordOrderWithItsDepartures) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "UseActiveDirectory", "True")
      .Set("ACTIVE DIRECTORY", "DomainName", "corp")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("MANUAL DEFINITIONS MIXED", "FromServers", "S1,")
      .Set("MANUAL DEFINITIONS MIXED", "FromPrinters", "p1")
      .Set("MANUAL DEFINITIONS MIXED", "ToServers", "S2")
      .Set("MANUAL DEFINITIONS MIXED", "ToPrinters", "p2")
      .Set("NOTIFICATION SMTP", "EmailTo", "a@x, b@x")
      .Set("DEPLOYMENT", "CreateWebLaunchPage", "True")
      .Set("DEPLOYMENT", "MDACOption", "-3")
      .Set("SET_DEFAULT", "DefaultType", "1")
      .Set("SET_DEFAULT", "DefaultPrinterName", "hidden");
  Load(ini);
  std::string expected = kEchoOfValidIni;
  auto replace = [&](const std::string& from, const std::string& to) {
    const size_t at = expected.find(from);
    ASSERT_NE(std::string::npos, at) << from;
    expected.replace(at, from.size(), to);
  };
  replace(">> UseActiveDirectory: False", ">> UseActiveDirectory: True");
  replace(">> DomainName: \r\n", ">> DomainName: corp\r\n");
  replace(">> From Server: \r\n>> To Server: \r\n>> Printer",
          ">> From Server: OLD\r\n>> To Server: NEW\r\n>> From Server: \r\n>> To Server: \r\n"
          ">> Printer");
  replace(">> From Server: \r\n>> From Printer: \r\n>> To Server: \r\n>> To Printer: \r\n",
          ">> From Server: S1\r\n>> From Printer: p1\r\n>> To Server: S2\r\n>> To Printer: p2\r\n"
          ">> From Server: Error in From Server Name\r\n>> From Printer: \r\n>> To Server: \r\n"
          ">> To Printer: \r\n");
  replace(">> To Email Address: \r\n", ">> To Email Address: a@x\r\n>> To Email Address:  b@x\r\n");
  replace(">> CreateHTMLLaunchPage: False", ">> CreateHTMLLaunchPage: True");
  replace(">> MDACOption: 0", ">> MDACOption: -3");
  EXPECT_EQ(expected, gDebugBuffer);
  EXPECT_EQ(std::string::npos, gDebugBuffer.find("hidden"));
}

TEST_F(modINIDocumentTest, Echo_DebugOnFalse_KeepsNothing) {
  IniFile ini = ValidIni();
  ini.Set("SUPPORT", "DebugOn", "False").Set("ACTIVE DIRECTORY", "DomainName", "corp");
  Load(ini);
  EXPECT_EQ("", gDebugBuffer);
}

TEST_F(modINIDocumentTest, Echo_RunsAfterAReadErrorWithAllRows) {
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "AlwaysRun", "maybe");
  Load(ini);
  EXPECT_TRUE(AbortStatus);
  std::string expected = kEchoOfValidIni;
  EXPECT_EQ(expected, gDebugBuffer);
  EXPECT_TRUE(Transcript()["messageBoxes"].empty());
}

TEST_F(modINIDocumentTest, Echo_WriteErrorFlag_ShowsTheWriteErrorBox) {
  Install();
  INIDocument.DebugOn = true;
  INIWriteError = true;
  EchoINIDocument();
  const nlohmann::json boxes = Transcript()["messageBoxes"];
  ASSERT_EQ(1u, boxes.size());
  EXPECT_EQ("Write Error", boxes[0]["title"]);
  EXPECT_EQ(
      "Unable to save INI file. Please check your permissions to the folder and file you are "
      "attempting to save.",
      boxes[0]["text"]);
  EXPECT_EQ(16, boxes[0]["style"]);
}

}  // namespace
