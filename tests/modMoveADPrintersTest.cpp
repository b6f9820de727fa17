// Directory-driven migration on the simulated client with its in-memory
// directory: the query and its two failure paths, the cut of the queue
// names, the matching and the moves, the orphan prune of maintenance, and
// both ways of migration in one run.

#include "migration/modMoveADPrinters.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "migration/modMoveMaintenance.h"
#include "notification/modNotification.h"
#include "printers/modPrinterAPIs.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

using nlohmann::json;

namespace {

using namespace scenario;

// A print queue of the directory.
json Queue(const std::string& name, std::vector<std::string> shares) {
  return {{"name", name}, {"printShareName", shares}};
}

const std::string kDomain = "corp.example.com";
const std::string kContext = "DC=corp,DC=example,DC=com";
const std::string kADPrinters = "* ----- AD Printers ----- *";
const std::string kMigrating = "* ----- Migrating Printers using AD ----- *";
const std::string kOrphans =
    "* ----- Maintenance Prune All Orphaned Active Directory Printers ----- *";
const std::string kQuery =
    "Select name, printShareName FROM 'LDAP://corp.example.com/DC=corp,DC=example,DC=com' "
    "WHERE objectCategory='printQueue'";
const std::string kAccessText = "Error accessing Active Directory. Try installing an MDAC update.";
const std::string kQueryText = "Error quering Active Directory printers.";
const std::string kServerDown = "-2147016646";
const std::string kServerDownText = "The server is not operational.";

class ADTest : public scenario::ScenarioFixture {
 protected:
  // The domain's directory with these queues.
  void Directory(json queues) {
    machine["directory"] = {{"domain", kDomain}, {"namingContext", kContext},
                            {"printQueues", std::move(queues)}};
  }

  // An INI file for directory-driven migration of the domain.
  static IniFile AdIni(const std::string& domain = kDomain) {
    IniFile ini = ValidIni();
    ini.Set("GENERAL", "UseActiveDirectory", "True").Set("ACTIVE DIRECTORY", "DomainName", domain);
    return ini;
  }

  // Installs the client for direct calls, with the log on and the domain set.
  void Prepare() {
    ScenarioFixture::Prepare();
    INIDocument.DomainName = kDomain;
  }

  // The outcome text from the directory's header on.
  static std::string FromDirectory(const json& t) {
    const std::string text = t["outcomeText"];
    const size_t at = text.find("\r\n\r\n" + kADPrinters);
    return at == std::string::npos ? text : text.substr(at);
  }

  static std::vector<std::string> Labels(const json& t) { return t["progress"]["labels"]; }
};

// ---------------------------------------------------------------------------
// The query

TEST_F(ADTest, GetADPrinters_Published_ListFilledInResultOrderWithLines) {
  Directory(json::array({Queue("NEW-laser", {"laser"}), Queue("OLD-color", {"color"})}));
  Prepare();
  GetADPrinters();
  EXPECT_FALSE(AbortStatus);
  ASSERT_EQ(gDirectoryPrinters.size(), 3u);
  EXPECT_EQ(gDirectoryPrinters[0].PrinterName, "");
  EXPECT_EQ(gDirectoryPrinters[0].ServerName, "");
  EXPECT_EQ(gDirectoryPrinters[1].PrinterName, "laser");
  EXPECT_EQ(gDirectoryPrinters[1].ServerName, "NEW");
  EXPECT_EQ(gDirectoryPrinters[1].ShareName, "laser");
  EXPECT_EQ(gDirectoryPrinters[2].PrinterName, "color");
  EXPECT_EQ(gDirectoryPrinters[2].ServerName, "OLD");
  EXPECT_EQ(gOutcomeText, Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "color (\\\\OLD\\color)"}));
  EXPECT_EQ(gDebugBuffer, Log({">> Created connection to AD: LDAP://corp.example.com",
                               ">> Querying AD for printers, command:" + kQuery,
                               ">> " + kADPrinters + " <<", ">> AD Printer: laser (\\\\NEW\\laser)",
                               ">> AD Printer: color (\\\\OLD\\color)"}));
  EXPECT_EQ(Err.Number, 0);
}

TEST_F(ADTest, GetADPrinters_DomainInOtherCase_BindsAndQueriesTheDomainsPath) {
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  Prepare();
  INIDocument.DomainName = "CORP.Example.COM";
  GetADPrinters();
  EXPECT_FALSE(AbortStatus);
  EXPECT_EQ(gDebugBuffer.substr(0, gDebugBuffer.find(">> *")),
            Log({">> Created connection to AD: LDAP://CORP.Example.COM",
                 ">> Querying AD for printers, command:" + kQuery}));
}

TEST_F(ADTest, GetADPrinters_WrongDomain_FailurePathAWithServerNotOperational) {
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  Prepare();
  INIDocument.DomainName = "other.example.com";
  GetADPrinters();
  EXPECT_TRUE(AbortStatus);
  EXPECT_EQ(gDirectoryPrinters.size(), 1u);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Accessing Active Directory. <<", "ERROR: " + kServerDown,
                               "ERROR DESCRIPTION: " + kServerDownText}));
  EXPECT_EQ(gOutcomeText, "\r\n" + kAccessText + "\r\n> Error Number: " + kServerDown +
                              "\r\n> Error Description: " + kServerDownText);
  EXPECT_EQ(Err.Number, 0);
  EXPECT_EQ(Err.Description, "");
}

TEST_F(ADTest, GetADPrinters_EmptyDomain_FailurePathA) {
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  Prepare();
  INIDocument.DomainName = "";
  GetADPrinters();
  EXPECT_TRUE(AbortStatus);
  EXPECT_EQ(gOutcomeText, "\r\n" + kAccessText + "\r\n> Error Number: " + kServerDown +
                              "\r\n> Error Description: " + kServerDownText);
}

TEST_F(ADTest, GetADPrinters_ClientWithoutDirectory_FailurePathA) {
  Prepare();
  GetADPrinters();
  EXPECT_TRUE(AbortStatus);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Accessing Active Directory. <<", "ERROR: " + kServerDown,
                               "ERROR DESCRIPTION: " + kServerDownText}));
}

TEST_F(ADTest, GetADPrinters_QueryFails_FailurePathBWithTheQuerysError) {
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  machine["directory"]["queryError"] = {{"number", -2147217865},
                                        {"description", "Table does not exist."}};
  Prepare();
  GetADPrinters();
  EXPECT_TRUE(AbortStatus);
  EXPECT_EQ(gDirectoryPrinters.size(), 1u);
  EXPECT_EQ(gDebugBuffer, Log({">> Created connection to AD: LDAP://corp.example.com",
                               ">> Querying AD for printers, command:" + kQuery,
                               "ERROR: Quering Active Directory printers. <<", "ERROR: -2147217865",
                               "ERROR DESCRIPTION: Table does not exist."}));
  EXPECT_EQ(gOutcomeText, Report({kQueryText, "> Error Number: -2147217865",
                                  "> Error Description: Table does not exist."}));
}

TEST_F(ADTest, GetADPrinters_QueryFaultWithDirectoryNumber_ReportsItsSystemText) {
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  // 0x80072030 as the fault's 32-bit last error.
  machine["faults"] = json::array({{{"call", "Execute"}, {"lastError", 2147950640u}}});
  Prepare();
  GetADPrinters();
  EXPECT_TRUE(AbortStatus);
  EXPECT_EQ(gOutcomeText, Report({kQueryText, "> Error Number: -2147016656",
                                  "> Error Description: There is no such object on the server."}));
}

TEST_F(ADTest, GetADPrinters_QueryErrorWithPositiveNumber_AlsoFailurePathB) {
  Directory(json::array());
  machine["directory"]["queryError"] = {{"number", 3709},
                                        {"description", "The connection cannot be used."}};
  Prepare();
  GetADPrinters();
  EXPECT_TRUE(AbortStatus);
  EXPECT_EQ(gOutcomeText, Report({kQueryText, "> Error Number: 3709",
                                  "> Error Description: The connection cannot be used."}));
}

TEST_F(ADTest, GetADPrinters_NoQueue_HeaderOnlyAndNoAbort) {
  Directory(json::array());
  Prepare();
  GetADPrinters();
  EXPECT_FALSE(AbortStatus);
  EXPECT_EQ(gDirectoryPrinters.size(), 1u);
  EXPECT_EQ(gOutcomeText, Report({"", kADPrinters}));
}

TEST_F(ADTest, GetADPrinters_HyphenatedServer_CutAtTheFirstHyphen) {
  Directory(json::array({Queue("NEW-SRV-LaserJet", {"LaserJet"})}));
  Prepare();
  GetADPrinters();
  ASSERT_EQ(gDirectoryPrinters.size(), 2u);
  EXPECT_EQ(gDirectoryPrinters[1].ServerName, "NEW");
  EXPECT_EQ(gDirectoryPrinters[1].PrinterName, "SRV-LaserJet");
  EXPECT_EQ(gOutcomeText, Report({"", kADPrinters, "SRV-LaserJet (\\\\NEW\\LaserJet)"}));
}

TEST_F(ADTest, GetADPrinters_NameWithoutHyphen_WholeNameIsPrinterServerEmpty) {
  Directory(json::array({Queue("laser", {"laser"}), Queue("NEW-color", {"color"})}));
  Prepare();
  GetADPrinters();
  EXPECT_FALSE(AbortStatus);
  ASSERT_EQ(gDirectoryPrinters.size(), 3u);
  EXPECT_EQ(gDirectoryPrinters[1].PrinterName, "laser");
  EXPECT_EQ(gDirectoryPrinters[1].ServerName, "");
  EXPECT_EQ(gDirectoryPrinters[1].ShareName, "laser");
  EXPECT_EQ(gOutcomeText,
            Report({"", kADPrinters, "laser (\\\\\\laser)", "color (\\\\NEW\\color)"}));
  EXPECT_EQ(Err.Number, 0);
}

TEST_F(ADTest, GetADPrinters_SeveralShareNames_OnlyElementZeroCounts) {
  Directory(json::array({Queue("NEW-laser", {"laser-a", "laser-b", "laser-c"})}));
  Prepare();
  GetADPrinters();
  ASSERT_EQ(gDirectoryPrinters.size(), 2u);
  EXPECT_EQ(gDirectoryPrinters[1].ShareName, "laser-a");
  EXPECT_EQ(gOutcomeText, Report({"", kADPrinters, "laser (\\\\NEW\\laser-a)"}));
}

TEST_F(ADTest, GetADPrinters_SameShareOnTwoServers_TwoEntriesInResultOrder) {
  Directory(json::array({Queue("OLD-laser", {"laser"}), Queue("NEW-laser", {"laser"})}));
  Prepare();
  GetADPrinters();
  ASSERT_EQ(gDirectoryPrinters.size(), 3u);
  EXPECT_EQ(gDirectoryPrinters[1].ServerName, "OLD");
  EXPECT_EQ(gDirectoryPrinters[2].ServerName, "NEW");
  EXPECT_EQ(gOutcomeText,
            Report({"", kADPrinters, "laser (\\\\OLD\\laser)", "laser (\\\\NEW\\laser)"}));
}

TEST_F(ADTest, GetADPrinters_MissingOrEmptyValues_EntryKeptWithWhatCouldBeRead) {
  Directory(json::array({
      {{"printShareName", {"noname"}}},                // no name at all
      {{"name", "NEW-noshare"}},                       // no printShareName
      {{"name", "NEW-emptylist"}, {"printShareName", json::array()}},
      {{"name", ""}, {"printShareName", {""}}},        // empty values
      {{"name", "-lead"}, {"printShareName", {"x"}}},  // hyphen first
      {{"name", "trail-"}, {"printShareName", {"y"}}}, // hyphen last
  }));
  Prepare();
  GetADPrinters();
  EXPECT_FALSE(AbortStatus);
  ASSERT_EQ(gDirectoryPrinters.size(), 7u);
  EXPECT_EQ(gOutcomeText, Report({"", kADPrinters, " (\\\\\\noname)", "noshare (\\\\NEW\\)",
                                  "emptylist (\\\\NEW\\)", " (\\\\\\)", "lead (\\\\\\x)",
                                  " (\\\\trail\\y)"}));
  EXPECT_EQ(gDirectoryPrinters[5].PrinterName, "lead");
  EXPECT_EQ(gDirectoryPrinters[5].ServerName, "");
  EXPECT_EQ(gDirectoryPrinters[6].PrinterName, "");
  EXPECT_EQ(gDirectoryPrinters[6].ServerName, "trail");
}

TEST_F(ADTest, GetADPrinters_VeryLongValues_KeptWhole) {
  const std::string server(5000, 'S');
  const std::string printer(20000, 'p');
  const std::string share(30000, 'q');
  Directory(json::array({Queue(server + "-" + printer, {share})}));
  Prepare();
  GetADPrinters();
  ASSERT_EQ(gDirectoryPrinters.size(), 2u);
  EXPECT_EQ(gDirectoryPrinters[1].ServerName, server);
  EXPECT_EQ(gDirectoryPrinters[1].PrinterName, printer);
  EXPECT_EQ(gDirectoryPrinters[1].ShareName, share);
  EXPECT_EQ(gOutcomeText, Report({"", kADPrinters, printer + " (\\\\" + server + "\\" + share + ")"}));
}

TEST_F(ADTest, GetADPrinters_OnePulsePerRecord) {
  Directory(json::array({Queue("A-a", {"a"}), Queue("B-b", {"b"}), Queue("C-c", {"c"})}));
  Prepare();
  INIDocument.ShowProgress = true;
  GetADPrinters();
  EXPECT_EQ(Transcript()["progress"]["steps"], 3);
  EXPECT_TRUE(Transcript()["progress"]["labels"].empty());
}

TEST_F(ADTest, GetADPrinters_SecondQuery_ListStartsAfresh) {
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  Prepare();
  gDirectoryPrinters = {{}, {"x", "y", "z"}, {"x", "y", "z"}};
  GetADPrinters();
  ASSERT_EQ(gDirectoryPrinters.size(), 2u);
  EXPECT_EQ(gDirectoryPrinters[1].PrinterName, "laser");
}

TEST_F(ADTest, GetADPrinters_MoreQueuesThanTheIndexHolds_LastSlotTakesTheLaterRecords) {
  json queues = json::array();
  for (int i = 1; i <= 32770; ++i) {
    queues.push_back(i == 32770 ? json{{"name", "noserver"}, {"printShareName", {"z"}}}
                                : Queue("S" + std::to_string(i) + "-p" + std::to_string(i),
                                        {"q" + std::to_string(i)}));
  }
  Directory(queues);
  machine["directory"]["sizeLimit"] = 0;   // a server without a size limit
  Prepare();
  GetADPrinters();
  EXPECT_FALSE(AbortStatus);
  ASSERT_EQ(gDirectoryPrinters.size(), 32768u);
  EXPECT_EQ(gDirectoryPrinters[32766].PrinterName, "p32766");
  // Records 32768 to 32770 are written into slot 32767 one after the other;
  // the last has no hyphen, so its server's cut fails and the server of the
  // record before it stays.
  EXPECT_EQ(gDirectoryPrinters[32767].PrinterName, "noserver");
  EXPECT_EQ(gDirectoryPrinters[32767].ServerName, "S32769");
  EXPECT_EQ(gDirectoryPrinters[32767].ShareName, "z");
  EXPECT_EQ(Count(gOutcomeText, "\r\n"), 32770u + 2u);
  const std::string tail = Report({"p32767 (\\\\S32767\\q32767)", "p32768 (\\\\S32768\\q32768)",
                                   "p32769 (\\\\S32769\\q32769)", "noserver (\\\\S32769\\z)"});
  EXPECT_EQ(gOutcomeText.substr(gOutcomeText.size() - tail.size()), tail);
  EXPECT_EQ(Err.Number, 0);
}

// ---------------------------------------------------------------------------
// The driver

TEST_F(ADTest, MoveADPrinters_Success_QueryMigrationMaintenanceInOrder) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  json t = RunWith(AdIni().Set("GENERAL", "ShowProgress", "True"));
  EXPECT_EQ(t["ended"], "returned");
  ExpectBlock(t["debugBuffer"],
              Log({">> Moving Printers Using AD <<",
                   ">> Created connection to AD: LDAP://corp.example.com",
                   ">> Querying AD for printers, command:" + kQuery, ">> " + kADPrinters + " <<",
                   ">> AD Printer: laser (\\\\NEW\\laser)",
                   ">> Finished getting list of AD printers, abort status: False",
                   ">> " + kMigrating + " <<", ">> Found a printer match <<",
                   ">> Printer share names (Client/AD): laser / laser",
                   ">> Printer names (Client/AD): laser / laser", ">> Found a server difference <<",
                   ">> Server names (Client/AD): \\\\OLD / NEW",
                   ">> Added networked printer: \\\\NEW\\laser",
                   ">> Removed networked printer: \\\\OLD\\laser",
                   ">> Finished moving printers using AD, abort status: False",
                   ">> Getting client's list of printers <<", ">> " + kOrphans + " <<",
                   ">> Found a printer match <<",
                   ">> Printer share names (Client/AD): laser \\ laser",
                   ">> Printer names (Client/AD): laser \\ laser", ">> Found a server match <<",
                   ">> Server names (Client/AD): \\\\NEW \\ NEW", ">> Finished maintenance: False",
                   ">> Finished moving via AD, abort status: False"}));
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault, "", kADPrinters,
                    "laser (\\\\NEW\\laser)", "", kMigrating,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser", "", kOrphans}));

  const std::vector<std::string> labels = Labels(t);
  const std::vector<std::string> expected = {
      "Initializing migration via Active Directory ...",
      "Getting current list of Active Directory printers ...",
      "Completed getting current list of Active Directory printers ...",
      "Active Directory, migrating printers ...",
      "Completed Active Directory printer migration ...",
      "Performing maintenance ...",
      "Populating maintenance printers ...",
      "Finished populating maintenance printers ...",
      "Pruning maintenance networked printers ...",
      "Finished pruning maintenance networked printers ...",
      "Pruning maintenance local printers ...",
      "Finished pruning maintenance local printers ...",
      "Refreshing list of printers ...",
      "Pruning maintenance all orphaned Active Directory printers ...",
      "Finished pruning maintenance all orphaned Active Directory printers ...",
      "Completed maintenace ...",
      "Error migrating via Active Directory ..."};
  auto start = std::find(labels.begin(), labels.end(), expected.front());
  ASSERT_NE(start, labels.end());
  ASSERT_GE(labels.end() - start, static_cast<long>(expected.size()));
  EXPECT_EQ(std::vector<std::string>(start, start + expected.size()), expected);
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(ADTest, MoveADPrinters_QueryFails_NoMigrationNoMaintenanceNoManualDriver) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  IniFile ini = AdIni("nowhere.example.com");
  ini.Set("GENERAL", "UseManualDefinitions", "True")
      .Set("GENERAL", "ShowProgress", "True")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("POPULATE", "ServerNames", "NEW")
      .Set("POPULATE", "PrinterNames", "laser");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault, kAccessText,
                    "> Error Number: " + kServerDown, "> Error Description: " + kServerDownText}));
  ExpectBlock(t["debugBuffer"],
              Log({">> Moving Printers Using AD <<", "ERROR: Accessing Active Directory. <<",
                   "ERROR: " + kServerDown, "ERROR DESCRIPTION: " + kServerDownText,
                   ">> Finished getting list of AD printers, abort status: True",
                   ">> Finished moving via AD, abort status: True"}));
  EXPECT_EQ(std::string(t["debugBuffer"]).find("MOVING USING SERVER"), std::string::npos);
  EXPECT_TRUE(t["spoolerCalls"].empty());
  const std::vector<std::string> labels = Labels(t);
  auto start = std::find(labels.begin(), labels.end(),
                         "Getting current list of Active Directory printers ...");
  ASSERT_NE(start, labels.end());
  ASSERT_GE(labels.end() - start, 3);
  EXPECT_EQ(start[1], "Error getting current list of Active Directory printers ...");
  EXPECT_EQ(start[2], "Completed migration via Active Directory ...");
  EXPECT_EQ(std::count(labels.begin(), labels.end(), "Performing maintenance ..."), 0);
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");
}

TEST_F(ADTest, MoveADPrinters_FailedQuery_ReportedInTheOutputFileAsFailed) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  Directory(json::array());
  machine["directory"]["queryError"] = {{"number", -2147016646},
                                        {"description", "The server is not operational."}};
  WriteFile("C:\\Out\\earlier.txt", "");
  IniFile ini = AdIni();
  ini.Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
      .Set("NOTIFICATION FILE OUTPUT", "IncludeOutcome", "True")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "C:\\Out")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "out.txt");
  json t = RunWith(ini);
  ASSERT_TRUE(FileExists("C:\\Out\\FAILED_out.txt")) << std::string(t["debugBuffer"]);
  const std::string file = ReadFile("C:\\Out\\FAILED_out.txt");
  const std::string tail = Report({kQueryText, "> Error Number: -2147016646",
                                   "> Error Description: The server is not operational."});
  ASSERT_GE(file.size(), tail.size() + 2);
  EXPECT_EQ(file.substr(file.size() - tail.size() - 2), tail + "\r\n") << file;
}

// ---------------------------------------------------------------------------
// Migration

TEST_F(ADTest, Migrate_QueueOnlyOnNew_MovedWithItsOwnQueueName) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "", kMigrating,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser", "", kOrphans}));
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\NEW\\laser",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
  EXPECT_EQ(Count(t["outcomeText"], "Migrating: "), 1u);
}

TEST_F(ADTest, Migrate_PublishedOnOldAndNew_ClientOnOld_AlreadyMigratedThenMoved) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}, {"OLD", {"laser"}}});
  Directory(json::array({Queue("OLD-laser", {"laser"}), Queue("NEW-laser", {"laser"})}));
  json t = RunWith(AdIni());
  // The orphan prune then finds the refreshed \\NEW\laser on NEW: kept.
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\OLD\\laser)", "laser (\\\\NEW\\laser)", "",
                    kMigrating, "Printer already migrated: \\\\OLD\\laser (\\\\OLD)",
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser", "", kOrphans}));
  ExpectBlock(t["debugBuffer"],
              Log({">> Printer names (Client/AD): laser / laser",
                   ">> Printer already migrated: \\\\OLD\\laser (\\\\OLD)",
                   ">> Found a printer match <<"}));
}

TEST_F(ADTest, Migrate_PublishedOnOldAndNew_ClientOnNew_MovedBackToOldThenAlreadyMigrated) {
  machine["printers"] = json::array({Net("NEW", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}, {"OLD", {"laser"}}});
  Directory(json::array({Queue("OLD-laser", {"laser"}), Queue("NEW-laser", {"laser"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\OLD\\laser)", "laser (\\\\NEW\\laser)", "",
                    kMigrating, "Migrating: \\\\NEW\\laser to \\\\OLD\\laser",
                    "Populated networked printer: \\\\OLD\\laser",
                    "Deleted networked printer: \\\\NEW\\laser",
                    "Printer already migrated: \\\\NEW\\laser (\\\\NEW)", "", kOrphans}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\OLD\\laser"});
}

TEST_F(ADTest, Migrate_PublishedOnTwoOtherServers_AddedTwiceRemovedTwice) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}, {"NEXT", {"laser"}}});
  Directory(json::array({Queue("NEW-laser", {"laser"}), Queue("NEXT-laser", {"laser"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "laser (\\\\NEXT\\laser)", "",
                    kMigrating, "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Migrating: \\\\OLD\\laser to \\\\NEXT\\laser",
                    "Populated networked printer: \\\\NEXT\\laser",
                    "Error (1801) deleting network printer: \\\\OLD\\laser", "", kOrphans}));
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\NEW\\laser",
                                                "DeletePrinterConnectionA \\\\OLD\\laser",
                                                "AddPrinterConnectionA \\\\NEXT\\laser",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");
}

TEST_F(ADTest, ServerInOtherCase_AlreadyMigratedButOrphanForThePrune) {
  machine["printers"] = json::array({Net("new", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "", kMigrating,
                    "Printer already migrated: \\\\new\\laser (\\\\new)", "", kOrphans,
                    "Deleted networked printer: \\\\new\\laser"}));
  ExpectBlock(t["debugBuffer"],
              Log({">> " + kOrphans + " <<", ">> Found a printer match <<",
                   ">> Printer share names (Client/AD): laser \\ laser",
                   ">> Printer names (Client/AD): laser \\ laser",
                   ">> Removed networked printer: \\\\new\\laser"}));
  EXPECT_TRUE(t["printersAfter"].empty());
}

TEST_F(ADTest, ServerInOtherCase_KeptWhenAnotherEntryMatchesExactly) {
  machine["printers"] = json::array({Net("new", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  Directory(json::array({Queue("NEW-laser", {"laser"}), Queue("new-laser", {"laser"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "laser (\\\\new\\laser)", "",
                    kMigrating, "Printer already migrated: \\\\new\\laser (\\\\new)",
                    "Printer already migrated: \\\\new\\laser (\\\\new)", "", kOrphans}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\new\\laser"});
}

TEST_F(ADTest, Migrate_MatchOnPrinterNameOnly_NewConnectionKeepsTheClientsQueueName) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  // The queue is shared on NEW as lj4; a connection by the client's name
  // does not exist there.
  machine["printServers"] = Servers({{"NEW", {"lj4"}}});
  Directory(json::array({Queue("NEW-laser", {"lj4"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\lj4)", "", kMigrating,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Error (1801) populating network printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser", "", kOrphans}));
  ExpectBlock(t["debugBuffer"], Log({">> Found a printer match <<",
                                     ">> Printer share names (Client/AD): laser / lj4",
                                     ">> Printer names (Client/AD): laser / laser",
                                     ">> Found a server difference <<"}));
  EXPECT_TRUE(t["printersAfter"].empty());
}

TEST_F(ADTest, Migrate_NameTestIsCaseBlindOnShareName) {
  machine["printers"] = json::array({Net("OLD", "Laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  Directory(json::array({Queue("NEW-HP4000", {"LASER"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "HP4000 (\\\\NEW\\LASER)", "", kMigrating,
                    "Migrating: \\\\OLD\\Laser to \\\\NEW\\Laser",
                    "Populated networked printer: \\\\NEW\\Laser",
                    "Deleted networked printer: \\\\OLD\\Laser", "", kOrphans}));
}

TEST_F(ADTest, NoQueue_EveryPrinterNotFoundAndEveryConnectionPruned) {
  machine["printers"] =
      json::array({Net("OLD", "laser"), Net("NEW", "color"), Local("Desk Printer")});
  Directory(json::array());
  json t = RunWith(AdIni());
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "", kMigrating,
                    "Printer NOT FOUND IN AD: \\\\OLD\\laser (\\\\OLD)",
                    "Printer NOT FOUND IN AD: \\\\NEW\\color (\\\\NEW)", "", kOrphans,
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Deleted networked printer: \\\\NEW\\color"}));
  ExpectBlock(t["debugBuffer"], Log({">> " + kMigrating + " <<",
                                     ">> Printer not found in AD: \\\\OLD\\laser (\\\\OLD)",
                                     ">> Printer not found in AD: \\\\NEW\\color (\\\\NEW)",
                                     ">> Finished moving printers using AD, abort status: False"}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"Desk Printer"});
}

TEST_F(ADTest, Migrate_NoClientPrinters_HeaderOnly) {
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(t["outcomeText"], Report({kHeader, kNoDefault, "", kADPrinters,
                                      "laser (\\\\NEW\\laser)", "", kMigrating, "", kOrphans}));
}

TEST_F(ADTest, Migrate_DefaultTypeOne_MovedDefaultStaysTheDefault) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OLD", "color")});
  machine["printServers"] = Servers({{"NEW", {"laser", "color"}}});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  Directory(json::array({Queue("NEW-laser", {"laser"}), Queue("NEW-color", {"color"})}));
  json t = RunWith(AdIni().Set("SET_DEFAULT", "DefaultType", "1"));
  EXPECT_EQ(Calls(t), (std::vector<std::string>{
                          "AddPrinterConnectionA \\\\NEW\\laser",
                          "DeletePrinterConnectionA \\\\OLD\\laser", "SetDefaultPrinterA \\\\NEW\\laser",
                          "AddPrinterConnectionA \\\\NEW\\color",
                          "DeletePrinterConnectionA \\\\OLD\\color"}));
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\laser");
  ExpectBlock(t["outcomeText"], Report({"Deleted networked printer: \\\\OLD\\laser",
                                        "Set default printer: \\\\NEW\\laser",
                                        "Migrating: \\\\OLD\\color to \\\\NEW\\color"}));
}

TEST_F(ADTest, Migrate_DefaultTypeZero_DefaultNotCarried) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  json t = RunWith(AdIni());
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\NEW\\laser",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
}

TEST_F(ADTest, Migrate_RecordWithoutNameOrServer_LoggedButNotReported) {
  Prepare();
  gClientPrinters.push_back(Client("", "lonely", ""));
  gClientPrinters.push_back(Client("\\\\OLD", "", "x"));
  MigrateADPrinters();
  EXPECT_EQ(gOutcomeText, Report({"", kMigrating}));
  EXPECT_EQ(gDebugBuffer, Log({">> " + kMigrating + " <<", ">> Printer not found in AD: lonely ()",
                               ">> Printer not found in AD:  (\\\\OLD)"}));
}

TEST_F(ADTest, Migrate_EmptyQueueNameMeetsEmptyShareName_CountsAsMatch) {
  Prepare();
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\", ""));
  gDirectoryPrinters = {{}, {"nameonly", "OLD", ""}};
  MigrateADPrinters();
  EXPECT_EQ(gOutcomeText,
            Report({"", kMigrating, "Printer already migrated: \\\\OLD\\ (\\\\OLD)"}));
}

TEST_F(ADTest, Migrate_NamesWithBytesAbove127_OnlyAToZFoldCase) {
  Prepare();
  // \xC9 and \xE9 are É and é of code page 1252: not the same name.
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\\xC9tage-Laser", "\xC9tage-Laser"));
  gDirectoryPrinters = {{},
                        {"p1", "NEW", "\xE9tage-laser"},
                        {"\xC9TAGE-LASER", "NEXT", "s2"},
                        {"p3", "OLD", "\xC9tage-laser\xFF"},
                        {"p4", "LAST", "\xC9tAGE-lASER"}};
  MigrateADPrinters();
  EXPECT_EQ(Count(gDebugBuffer, ">> Found a printer match <<"), 2u);
  ExpectBlock(gDebugBuffer,
              Log({">> Found a printer match <<",
                   ">> Printer share names (Client/AD): \xC9tage-Laser / s2",
                   ">> Printer names (Client/AD): \xC9tage-Laser / \xC9TAGE-LASER",
                   ">> Found a server difference <<",
                   ">> Server names (Client/AD): \\\\OLD / NEXT"}));
  ExpectBlock(gDebugBuffer,
              Log({">> Found a printer match <<",
                   ">> Printer share names (Client/AD): \xC9tage-Laser / \xC9tAGE-lASER",
                   ">> Printer names (Client/AD): \xC9tage-Laser / p4",
                   ">> Found a server difference <<",
                   ">> Server names (Client/AD): \\\\OLD / LAST"}));
  EXPECT_EQ(Count(gOutcomeText, "Migrating: "), 2u);
}

TEST_F(ADTest, Migrate_OnePulsePerPairAndOnePerPrinter) {
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\a", "a"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\b", "b"));
  gDirectoryPrinters = {{}, {"x", "OLD", "x"}, {"y", "OLD", "y"}, {"b", "OLD", "b"}};
  MigrateADPrinters();
  EXPECT_EQ(Transcript()["progress"]["steps"], 2 * (3 + 1));
}

// ---------------------------------------------------------------------------
// The orphan prune

TEST_F(ADTest, PruneADOrphans_HeaderWhateverTheListsHold) {
  Prepare();
  PruneADOrphans();
  EXPECT_EQ(gOutcomeText, Report({"", kOrphans}));
  EXPECT_EQ(gDebugBuffer, Log({">> " + kOrphans + " <<"}));
}

TEST_F(ADTest, PruneADOrphans_OtherQueueOnPublishedServer_Removed) {
  machine["printers"] = json::array({Net("NEW", "old-queue")});
  Prepare();
  GetClientPrinters(false);
  gDirectoryPrinters = {{}, {"laser", "NEW", "laser"}};
  PruneADOrphans();
  EXPECT_EQ(gOutcomeText, Report({"", kOrphans, "Deleted networked printer: \\\\NEW\\old-queue"}));
  EXPECT_TRUE(Transcript()["printersAfter"].empty());
}

TEST_F(ADTest, PruneADOrphans_MatchOnPrinterNameOnRightServer_Kept) {
  machine["printers"] = json::array({Net("NEW", "laser")});
  Prepare();
  GetClientPrinters(false);
  gDebugBuffer.clear();
  gDirectoryPrinters = {{}, {"laser", "NEW", "lj4"}};
  PruneADOrphans();
  EXPECT_EQ(gOutcomeText, Report({"", kOrphans}));
  EXPECT_EQ(gDebugBuffer, Log({">> " + kOrphans + " <<", ">> Found a printer match <<",
                               ">> Printer share names (Client/AD): laser \\ lj4",
                               ">> Printer names (Client/AD): laser \\ laser",
                               ">> Found a server match <<",
                               ">> Server names (Client/AD): \\\\NEW \\ NEW"}));
}

TEST_F(ADTest, PruneADOrphans_NamesWithBytesAbove127_OnlyAToZFoldCase) {
  Prepare();
  gClientPrinters.push_back(Client("\\\\NEW", "\\\\NEW\\\xC9tage", "\xC9tage"));
  gClientPrinters.push_back(Client("\\\\NEW", "\\\\NEW\\\xDC" "ber", "\xDC" "ber"));
  // The first printer's queue is published only as é (not É), the second's
  // as ÜBER (only the ASCII letters in another case).
  gDirectoryPrinters = {{}, {"p1", "NEW", "\xE9tage"}, {"p2", "NEW", "\xDC" "BER"}};
  PruneADOrphans();
  EXPECT_EQ(Count(gDebugBuffer, ">> Found a server match <<"), 1u);
  ExpectBlock(gDebugBuffer, Log({">> Printer share names (Client/AD): \xDC" "ber \\ \xDC" "BER"}));
  EXPECT_EQ(Count(gDebugBuffer, "\\\\NEW\\\xC9tage"), 1u);  // its removal
  EXPECT_EQ(Count(gDebugBuffer, "\\\\NEW\\\xDC" "ber"), 0u);
}

TEST_F(ADTest, PruneADOrphans_MatchEndsTheInnerLoopWithoutItsPulse) {
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\NEW", "\\\\NEW\\a", "a"));
  gDirectoryPrinters = {{}, {"x", "NEW", "x"}, {"a", "NEW", "a"}, {"a", "NEW", "a"}};
  PruneADOrphans();
  // One pulse for the entry before the match, none for the match and none
  // for the entry after it, one for the printer.
  EXPECT_EQ(Transcript()["progress"]["steps"], 2);
  EXPECT_EQ(Count(gDebugBuffer, ">> Found a server match <<"), 1u);
  EXPECT_TRUE(Transcript()["spoolerCalls"].empty());
}

TEST_F(ADTest, PruneADOrphans_NameMatchOnOtherServer_LoggedAndRemoved) {
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\a", "a"));
  gDirectoryPrinters = {{}, {"a", "NEW", "a"}};
  PruneADOrphans();
  EXPECT_EQ(gDebugBuffer, Log({">> " + kOrphans + " <<", ">> Found a printer match <<",
                               ">> Printer share names (Client/AD): a \\ a",
                               ">> Printer names (Client/AD): a \\ a",
                               "ERROR: Removing client networked printer: \\\\OLD\\a",
                               "SYSTEM ERROR: 1801"}));
  EXPECT_EQ(gOutcomeText,
            Report({"", kOrphans, "Error (1801) deleting network printer: \\\\OLD\\a"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_EQ(Transcript()["progress"]["steps"], 2);
}

TEST_F(ADTest, PruneADOrphans_RecordWithoutServerOrQueue_NotRemoved) {
  Prepare();
  gClientPrinters.push_back(Client("", "x", "x"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\", ""));
  PruneADOrphans();
  EXPECT_EQ(gOutcomeText, Report({"", kOrphans}));
  EXPECT_TRUE(Transcript()["spoolerCalls"].empty());
}

TEST_F(ADTest, Maintenance_PopulatedPrinterOnUnpublishedServer_AddedThenRemovedAsOrphan) {
  machine["printers"] = json::array({Net("NEW", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}, {"HIDDEN", {"plot"}}});
  Directory(json::array({Queue("NEW-laser", {"laser"})}));
  IniFile ini = AdIni();
  ini.Set("POPULATE", "ServerNames", "HIDDEN").Set("POPULATE", "PrinterNames", "plot");
  json t = RunWith(ini);
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "", kMigrating,
                    "Printer already migrated: \\\\NEW\\laser (\\\\NEW)", "",
                    "* ----- Maintenance Populate ----- *",
                    "Populated networked printer: \\\\HIDDEN\\plot", "", kOrphans,
                    "Deleted networked printer: \\\\HIDDEN\\plot"}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
}

TEST_F(ADTest, Maintenance_DeleteADOrphansFalse_PruneStillRuns) {
  machine["printers"] = json::array({Net("GONE", "laser")});
  Directory(json::array());
  json t = RunWith(AdIni().Set("PRUNE", "DeleteADOrphans", "False"));
  ExpectBlock(t["outcomeText"], Report({"", kOrphans, "Deleted networked printer: \\\\GONE\\laser"}));
}

TEST_F(ADTest, Maintenance_DeleteADOrphansWithoutDirectoryWay_NoPrune) {
  machine["printers"] = json::array({Net("GONE", "laser")});
  Directory(json::array());
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "UseManualDefinitions", "True")
      .Set("ACTIVE DIRECTORY", "DomainName", kDomain)
      .Set("PRUNE", "DeleteADOrphans", "True");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\GONE\\laser (\\\\GONE)", kNoDefault}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\GONE\\laser"});
}

// ---------------------------------------------------------------------------
// Both ways in one run

TEST_F(ADTest, BothWays_DirectoryFirstThenManual_MaintenanceAndPruneTwice) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OLD", "color"), Net("GONE", "plot")});
  machine["printServers"] = Servers({{"NEW", {"laser", "color"}}, {"OLD", {"color"}}});
  Directory(json::array({Queue("NEW-laser", {"laser"}), Queue("OLD-color", {"color"})}));
  IniFile ini = AdIni();
  ini.Set("GENERAL", "UseManualDefinitions", "True")
      .Set("GENERAL", "ShowProgress", "True")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW");
  json t = RunWith(ini);
  EXPECT_EQ(t["ended"], "returned");
  // The first maintenance refreshed the lists ahead of its orphan prune, so
  // the manual driver works on that list: \\GONE\plot, pruned since, is
  // still in it. Its own maintenance refreshes again and prunes against the
  // same directory list: \\NEW\color is not published on NEW.
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "color (\\\\OLD\\color)", "",
                    kMigrating, "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Printer already migrated: \\\\OLD\\color (\\\\OLD)",
                    "Printer NOT FOUND IN AD: \\\\GONE\\plot (\\\\GONE)", "", kOrphans,
                    "Deleted networked printer: \\\\GONE\\plot", "",
                    "* ----- Migrating Networked Printers Between Servers ----- *",
                    "Migrating: \\\\OLD\\color to \\\\NEW\\color",
                    "Populated networked printer: \\\\NEW\\color",
                    "Deleted networked printer: \\\\OLD\\color",
                    "Printer already migrated: \\\\GONE\\plot (\\\\GONE)",
                    "Printer already migrated: \\\\NEW\\laser (\\\\NEW)", "", kOrphans,
                    "Deleted networked printer: \\\\NEW\\color"}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});

  const std::string debug = t["debugBuffer"];
  EXPECT_EQ(Count(debug, ">> Finished maintenance: False"), 2u);
  EXPECT_LT(debug.find("MOVING USING AD"), debug.find("MOVING USING SERVER TO SERVER"));
  const std::vector<std::string> labels = Labels(t);
  EXPECT_EQ(std::count(labels.begin(), labels.end(), "Refreshing list of printers ..."), 2);
  EXPECT_EQ(std::count(labels.begin(), labels.end(), "Completed maintenace ..."), 1);
  EXPECT_EQ(std::count(labels.begin(), labels.end(), "Completed maintenance ..."), 1);
  EXPECT_LT(std::find(labels.begin(), labels.end(), "Completed maintenace ..."),
            std::find(labels.begin(), labels.end(), "Completed maintenance ..."));
}

// ---------------------------------------------------------------------------
// The bundled example

TEST_F(ADTest, Example_DirectoryMove_MovesKeepsAndPrunesAsItsIniSays) {
  std::filesystem::copy(std::filesystem::path(ZANDOLIN_SOURCE_DIR) / "examples" / "directory-move",
                        dir, std::filesystem::copy_options::recursive);
  client = sim::Client::Load(dir);
  json t = client->Run(sim::RunOptions{});
  EXPECT_EQ(t["ended"], "returned");
  EXPECT_EQ(FromDirectory(t),
            Report({"", kADPrinters, "laser (\\\\NEW\\laser)", "color (\\\\NEW\\color)",
                    "plotter (\\\\KEEP\\plotter)", "", kMigrating,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Set default printer: \\\\NEW\\laser",
                    "Migrating: \\\\OLD\\color to \\\\NEW\\color",
                    "Populated networked printer: \\\\NEW\\color",
                    "Deleted networked printer: \\\\OLD\\color",
                    "Printer already migrated: \\\\KEEP\\plotter (\\\\KEEP)",
                    "Printer NOT FOUND IN AD: \\\\RETIRED\\fax (\\\\RETIRED)", "", kOrphans,
                    "Deleted networked printer: \\\\RETIRED\\fax"}));
  EXPECT_EQ(Names(t["printersAfter"]),
            (std::vector<std::string>{"\\\\KEEP\\plotter", "Desk Printer", "\\\\NEW\\laser",
                                      "\\\\NEW\\color"}));
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\laser");
}

}  // namespace
