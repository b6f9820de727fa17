// Manual migration on the simulated client: the driver and its fixed order of
// modes, printer to printer, server to server and mixed, run end to end from
// an INI file, and single procedures called on an installed client.

#include "migration/modMoveNetworkPrinters.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "notification/modNotification.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

using nlohmann::json;

namespace {

using namespace scenario;

// A valid INI file that asks for the manual migration.
class IniFile : public testini::ManualIni<IniFile> {};

class MoveNetworkPrintersTest : public scenario::ScenarioFixture {};

const std::string kPrinterBanner = Banner(22, "     MOVING USING PRINTER TO PRINTER    ", 22);
const std::string kServerBanner = Banner(20, "     MOVING USING SERVER TO SERVER    ", 20);
const std::string kMixedBanner = Banner(21, "     MOVING USING MIXED TO MIXED    ", 20);

const std::string kPrinterHeader = "* ----- Migrating Networked Printers Between Printers ----- *";
const std::string kServerHeader = "* ----- Migrating Networked Printers Between Servers ----- *";
const std::string kMixedHeader =
    "* ----- Migrating Networked Servers and Printers Between Servers and Printers----- *";

// ---------------------------------------------------------------------------
// The driver

TEST_F(MoveNetworkPrintersTest, MoveManualPrinters_NoLists_NoModeRunsButMaintenanceDoes) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  json t = RunWith(IniFile().Set("GENERAL", "ShowProgress", "True"));
  EXPECT_EQ(t["ended"], "returned");
  const std::string debug = t["debugBuffer"];
  EXPECT_EQ(debug.find("MOVING USING"), std::string::npos);
  EXPECT_EQ(debug.find("Migrating"), std::string::npos);
  ExpectBlock(debug, Log({">> Finished maintenance: False",
                          ">> Finished moving manual, abort status: False"}));
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault}));
  EXPECT_TRUE(t["spoolerCalls"].empty());

  std::vector<std::string> labels = t["progress"]["labels"];
  std::vector<std::string> expected = {
      "Initializing migration via Manual Configuration ...",
      "Performing maintenance ...",
      "Populating maintenance printers ...",
      "Finished populating maintenance printers ...",
      "Pruning maintenance networked printers ...",
      "Finished pruning maintenance networked printers ...",
      "Pruning maintenance local printers ...",
      "Finished pruning maintenance local printers ...",
      "Completed maintenance ...",
      "Error migrating via Manual Configuration ..."};
  auto start = std::find(labels.begin(), labels.end(), expected.front());
  ASSERT_NE(start, labels.end());
  ASSERT_GE(labels.end() - start, static_cast<long>(expected.size()));
  EXPECT_EQ(std::vector<std::string>(start, start + expected.size()), expected);
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(MoveNetworkPrintersTest, MoveManualPrinters_AllThreeLists_FixedOrderWithBannersAndTexts) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"OLD", {"laser2"}}, {"NEW", {"laser", "mixed"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS MIXED", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS MIXED", "FromPrinters", "laser")
      .Set("MANUAL DEFINITIONS MIXED", "ToServers", "NEW")
      .Set("MANUAL DEFINITIONS MIXED", "ToPrinters", "mixed")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "laser2")
      .Set("GENERAL", "ShowProgress", "True");
  json t = RunWith(ini);

  const std::string debug = t["debugBuffer"];
  size_t printer = debug.find(kPrinterBanner);
  size_t server = debug.find(kServerBanner);
  size_t mixed = debug.find(kMixedBanner);
  ASSERT_NE(printer, std::string::npos);
  ASSERT_NE(server, std::string::npos);
  ASSERT_NE(mixed, std::string::npos);
  EXPECT_LT(printer, server);
  EXPECT_LT(server, mixed);

  // Every mode still sees \\OLD\laser: the old connection is removed by the
  // first mode and again, failing, by the two after it.
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault, "", kPrinterHeader,
                    "Migrating: \\\\OLD\\laser to \\\\OLD\\laser2",
                    "Populated networked printer: \\\\OLD\\laser2",
                    "Deleted networked printer: \\\\OLD\\laser", "", kServerHeader,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Error (1801) deleting network printer: \\\\OLD\\laser", "", kMixedHeader,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\mixed",
                    "Populated networked printer: \\\\NEW\\mixed",
                    "Error (1801) deleting network printer: \\\\OLD\\laser"}));
  EXPECT_EQ(Names(t["printersAfter"]),
            (std::vector<std::string>{"\\\\OLD\\laser2", "\\\\NEW\\laser", "\\\\NEW\\mixed"}));
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");

  std::vector<std::string> labels = t["progress"]["labels"];
  std::vector<std::string> modeLabels;
  for (const auto& label : labels) {
    if (label.find("migration ...") != std::string::npos && label.find("Running") == 0) {
      modeLabels.push_back(label);
    }
    if (label.find("Completed") == 0) modeLabels.push_back(label);
  }
  EXPECT_EQ(modeLabels, (std::vector<std::string>{
                            "Running Printer to Printer migration ...",
                            "Completed Printer to Printer migration ...",
                            "Running Server to Server migration ...",
                            "Completed Server to Server migration ...",
                            "Running Mixed Server and Printer migration ...",
                            "Completed Mixed Server and Printer migration ...",
                            "Completed maintenance ..."}));
}

TEST_F(MoveNetworkPrintersTest, MoveManualPrinters_Banners_KeepTheirUnevenWidths) {
  Prepare();
  INIDocument.PrinterDefinitions = {{"x", "y"}, {}};
  INIDocument.ServerDefinitions = {{"x", "y"}, {}};
  INIDocument.MixedDefinitions = {{"x", "y", "z", "w"}, {}};
  MoveManualPrinters();
  const std::string expected =
      kPrinterBanner + Log({">> " + kPrinterHeader + " <<"}) + kServerBanner +
      Log({">> " + kServerHeader + " <<"}) + kMixedBanner + Log({">> " + kMixedHeader + " <<"}) +
      Log({">> Finished maintenance: False"});
  EXPECT_EQ(gDebugBuffer, expected);
  // The title lines are not centred to one width.
  std::vector<size_t> widths;
  for (size_t start = 0, end; (end = gDebugBuffer.find("\r\n", start)) != std::string::npos;
       start = end + 2) {
    std::string line = gDebugBuffer.substr(start, end - start);
    if (line.find("MOVING USING") != std::string::npos) widths.push_back(line.size());
  }
  EXPECT_EQ(widths, (std::vector<size_t>{84, 78, 77}));
}

TEST_F(MoveNetworkPrintersTest, MoveManualPrinters_AbortStatusSet_StillRunsAndReportsTrue) {
  Prepare();
  AbortStatus = true;
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\laser", "laser"));
  INIDocument.ServerDefinitions = {{"OLD", "NEW"}, {}};
  MoveManualPrinters();
  EXPECT_NE(gDebugBuffer.find(">> Found a server match <<"), std::string::npos);
  const std::string last = ">> Finished maintenance: True\r\n";
  ASSERT_GE(gDebugBuffer.size(), last.size());
  EXPECT_EQ(gDebugBuffer.substr(gDebugBuffer.size() - last.size()), last);
}

// ---------------------------------------------------------------------------
// Printer to printer

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_SingleDefinition_MovesMatchAndReportsTheRest) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OLD", "color")});
  machine["printServers"] = Servers({{"OLD", {"laser", "color", "laser2"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "LASER")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "laser2");
  json t = RunWith(ini);

  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", "\\\\OLD\\color (\\\\OLD)", kNoDefault, "",
                    kPrinterHeader, "Migrating: \\\\OLD\\laser to \\\\OLD\\laser2",
                    "Populated networked printer: \\\\OLD\\laser2",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Printer already migrated: \\\\OLD\\color (\\\\OLD)"}));
  ExpectBlock(t["debugBuffer"],
              kPrinterBanner + Log({">> " + kPrinterHeader + " <<", ">> Found a printer match <<",
                                    ">> Client printer: laser", ">> INI Printer: LASER",
                                    ">> Added networked printer: \\\\OLD\\laser2",
                                    ">> Removed networked printer: \\\\OLD\\laser",
                                    ">> Printer already migrated: \\\\OLD\\color (\\\\OLD)",
                                    ">> Finished maintenance: False"}));
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\OLD\\laser2",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
  EXPECT_EQ(Names(t["printersAfter"]),
            (std::vector<std::string>{"\\\\OLD\\color", "\\\\OLD\\laser2"}));
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_OnePulsePerPrinterAndDefinitionPair) {
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\a", "a"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\b", "b"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\c", "c"));
  INIDocument.PrinterDefinitions = {{"x", "y"}, {}};
  MovePrinterToPrinter();
  EXPECT_EQ(Transcript()["progress"]["steps"], 6);
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_FromPrinterWithServer_NoMatch) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "\\\\OLD\\laser,OLD\\laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "a,b");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault, "",
                                      kPrinterHeader,
                                      "Printer already migrated: \\\\OLD\\laser (\\\\OLD)"}));
  EXPECT_TRUE(t["spoolerCalls"].empty());
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_SameNameOnTwoServers_EachMovedOnItsOwnServer) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OTHER", "Laser")});
  machine["printServers"] = Servers({{"OLD", {"new"}}, {"OTHER", {"new"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "new");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\OLD\\new",
                                                "DeletePrinterConnectionA \\\\OLD\\laser",
                                                "AddPrinterConnectionA \\\\OTHER\\new",
                                                "DeletePrinterConnectionA \\\\OTHER\\Laser"}));
  EXPECT_EQ(Names(t["printersAfter"]),
            (std::vector<std::string>{"\\\\OLD\\new", "\\\\OTHER\\new"}));
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_TwoDefinitionsSameFrom_BothAddedOldRemovedTwice) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"OLD", {"a", "b"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser,Laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "a,b");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault, "", kPrinterHeader,
                    "Migrating: \\\\OLD\\laser to \\\\OLD\\a", "Populated networked printer: \\\\OLD\\a",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Migrating: \\\\OLD\\laser to \\\\OLD\\b", "Populated networked printer: \\\\OLD\\b",
                    "Error (1801) deleting network printer: \\\\OLD\\laser"}));
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_ToPrinterMissing_AddFailsOldRemovedAllTheSame) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OLD", "color")});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser,color")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", " ");
  json t = RunWith(ini);
  // A blank value gives no piece: the ToPrinter fields stay empty.
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", "\\\\OLD\\color (\\\\OLD)", kNoDefault, "",
                    kPrinterHeader, "Migrating: \\\\OLD\\laser to \\\\OLD\\",
                    "Error (1801) populating network printer: \\\\OLD\\",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Migrating: \\\\OLD\\color to \\\\OLD\\",
                    "Error (1801) populating network printer: \\\\OLD\\",
                    "Deleted networked printer: \\\\OLD\\color"}));
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_ToPrinterErrorText_TravelsAsName) {
  IniFile errorText;
  errorText.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser,color")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", " ,x");
  machine["printers"] = json::array({Net("OLD", "laser")});
  json t = RunWith(errorText);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault, "", kPrinterHeader,
                    "Migrating: \\\\OLD\\laser to \\\\OLD\\Error in To Printer Name",
                    "Error (1801) populating network printer: \\\\OLD\\Error in To Printer Name",
                    "Deleted networked printer: \\\\OLD\\laser"}));
  EXPECT_TRUE(t["printersAfter"].empty());
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_NoClientPrinters_HeaderOnly) {
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "a");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"], Report({kHeader, kNoDefault, "", kPrinterHeader}));
  ExpectBlock(t["debugBuffer"], kPrinterBanner + Log({">> " + kPrinterHeader + " <<",
                                                       ">> Finished maintenance: False"}));
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_FirstFromPrinterEmpty_ReturnsWithoutAWord) {
  Prepare();
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\laser", "laser"));
  INIDocument.PrinterDefinitions = {{"", "a"}, {"laser", "b"}};
  MovePrinterToPrinter();
  EXPECT_EQ(gOutcomeText, "");
  EXPECT_EQ(gDebugBuffer, "");
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_DefaultTypeOne_DefaultCarriedOverCaseBlind) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"OLD", {"laser2"}}});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "laser2")
      .Set("SET_DEFAULT", "DefaultType", "1");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", "Default Printer:\\\\OLD\\laser", "",
                    kPrinterHeader, "Migrating: \\\\OLD\\laser to \\\\OLD\\laser2",
                    "Populated networked printer: \\\\OLD\\laser2",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Set default printer: \\\\OLD\\laser2"}));
  EXPECT_EQ(t["defaultAfter"], "\\\\OLD\\laser2");
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_DefaultInOtherCase_StillRecognised) {
  Prepare();
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\laser", "laser"));
  gDefaultPrinterName = "\\\\old\\LASER";
  INIDocument.DefaultType = 1;
  INIDocument.PrinterDefinitions = {{"laser", "gone"}, {}};
  MovePrinterToPrinter();
  EXPECT_EQ(gOutcomeText,
            Report({"", kPrinterHeader, "Migrating: \\\\OLD\\laser to \\\\OLD\\gone",
                    "Error (1801) populating network printer: \\\\OLD\\gone",
                    "Error (1801) deleting network printer: \\\\OLD\\laser",
                    "Error (1801) setting default printer: \\\\OLD\\gone"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(MoveNetworkPrintersTest, MovePrinterToPrinter_DefaultTypeNotOne_DefaultNotCarried) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"OLD", {"laser2"}}});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "laser2")
      .Set("SET_DEFAULT", "DefaultType", "0");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\OLD\\laser2",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
  EXPECT_EQ(std::string(t["outcomeText"]).find("Set default printer"), std::string::npos);
}

// ---------------------------------------------------------------------------
// Server to server

TEST_F(MoveNetworkPrintersTest, MoveServerToServer_SmallLetterServer_MatchesAndKeepsQueueName) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("KEEP", "color")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "old")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("SET_DEFAULT", "DefaultType", "1");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", "\\\\KEEP\\color (\\\\KEEP)",
                    "Default Printer:\\\\OLD\\laser", "", kServerHeader,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Set default printer: \\\\NEW\\laser",
                    "Printer already migrated: \\\\KEEP\\color (\\\\KEEP)"}));
  ExpectBlock(t["debugBuffer"],
              kServerBanner + Log({">> " + kServerHeader + " <<", ">> Found a server match <<",
                                   ">> Client server: \\\\OLD", ">> INI server: old",
                                   ">> Added networked printer: \\\\NEW\\laser",
                                   ">> Removed networked printer: \\\\OLD\\laser",
                                   "Set default printer: \\\\NEW\\laser",
                                   ">> Printer already migrated: \\\\KEEP\\color (\\\\KEEP)",
                                   ">> Finished maintenance: False"}));
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\laser");
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(MoveNetworkPrintersTest, MoveServerToServer_OnePulsePerPairAndOneMorePerPrinter) {
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\a", "a"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\b", "b"));
  INIDocument.ServerDefinitions = {{"X", "Y"}, {"Z", "W"}, {}};
  MoveServerToServer();
  EXPECT_EQ(Transcript()["progress"]["steps"], 8);
}

TEST_F(MoveNetworkPrintersTest, MoveServerToServer_BackslashedNames_NoMatchAndFourBackslashes) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("SRC", "color")});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "\\\\OLD,SRC")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW,\\\\DST");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", "\\\\SRC\\color (\\\\SRC)", kNoDefault, "",
                    kServerHeader, "Printer already migrated: \\\\OLD\\laser (\\\\OLD)",
                    "Migrating: \\\\SRC\\color to \\\\\\\\DST\\color",
                    "Error (1801) populating network printer: \\\\\\\\DST\\color",
                    "Deleted networked printer: \\\\SRC\\color"}));
}

TEST_F(MoveNetworkPrintersTest, MoveServerToServer_EmptyToServer_AddFailsOldRemoved) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault, "", kServerHeader,
                    "Migrating: \\\\OLD\\laser to \\\\\\laser",
                    "Error (1801) populating network printer: \\\\\\laser",
                    "Deleted networked printer: \\\\OLD\\laser"}));
  EXPECT_TRUE(t["printersAfter"].empty());
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");
}

TEST_F(MoveNetworkPrintersTest, MoveServerToServer_NewNameFromQueueNameWhateverTheShares) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser-new"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\NEW\\laser",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
}

TEST_F(MoveNetworkPrintersTest, MoveServerToServer_AfterPrinterToPrinter_SeesTheOldNames) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"OLD", {"laser2"}}, {"NEW", {"laser", "laser2"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", "laser")
      .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", "laser2")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\OLD\\laser2",
                                                "DeletePrinterConnectionA \\\\OLD\\laser",
                                                "AddPrinterConnectionA \\\\NEW\\laser",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
  EXPECT_EQ(Names(t["printersAfter"]),
            (std::vector<std::string>{"\\\\OLD\\laser2", "\\\\NEW\\laser"}));
}

// ---------------------------------------------------------------------------
// Mixed

TEST_F(MoveNetworkPrintersTest, MoveMixed_SingleEntry_MovesNamedPrinterOnlyWithAllDebugLines) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OTHER", "laser"), Net("OLD", "color")});
  machine["printServers"] = Servers({{"NEW", {"big"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS MIXED", "FromServers", "old")
      .Set("MANUAL DEFINITIONS MIXED", "FromPrinters", "LASER")
      .Set("MANUAL DEFINITIONS MIXED", "ToServers", "NEW")
      .Set("MANUAL DEFINITIONS MIXED", "ToPrinters", "big");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", "\\\\OTHER\\laser (\\\\OTHER)",
                    "\\\\OLD\\color (\\\\OLD)", kNoDefault, "", kMixedHeader,
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\big",
                    "Populated networked printer: \\\\NEW\\big",
                    "Deleted networked printer: \\\\OLD\\laser",
                    "Printer already migrated: \\\\OTHER\\laser (\\\\OTHER)",
                    "Printer already migrated: \\\\OLD\\color (\\\\OLD)"}));
  ExpectBlock(t["debugBuffer"],
              kMixedBanner + Log({">> " + kMixedHeader + " <<",
                                  ">> Found a Printer and Server match <<",
                                  ">> Client printer: laser", ">> Client Server: \\\\OLD",
                                  ">> INI printer: LASER", ">> INI Server: old",
                                  ">> Added networked printer: \\\\NEW\\big",
                                  ">> Removed networked printer: \\\\OLD\\laser",
                                  ">> Printer already migrated: \\\\OTHER\\laser (\\\\OTHER)",
                                  ">> Printer already migrated: \\\\OLD\\color (\\\\OLD)",
                                  ">> Finished maintenance: False"}));
}

TEST_F(MoveNetworkPrintersTest, MoveMixed_NoFromPrinters_BannerButNoHeader) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS MIXED", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS MIXED", "ToServers", "NEW")
      .Set("MANUAL DEFINITIONS MIXED", "ToPrinters", "x");
  json t = RunWith(ini);
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault}));
  ExpectBlock(t["debugBuffer"], kMixedBanner + Log({">> Finished maintenance: False"}));
}

TEST_F(MoveNetworkPrintersTest, MoveMixed_EmptyFromServerInFirstEntry_DoesNotStopTheMode) {
  Prepare();
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\laser", "laser"));
  INIDocument.MixedDefinitions = {{"", "laser", "x", "NEW"}, {}};
  MoveMixed();
  EXPECT_EQ(gOutcomeText,
            Report({"", kMixedHeader, "Printer already migrated: \\\\OLD\\laser (\\\\OLD)"}));
}

TEST_F(MoveNetworkPrintersTest, MoveMixed_NamesWithBytesAbove127_OnlyAToZFoldCase) {
  Prepare();
  // \xC9 and \xE9 are É and é, \xC4 and \xE4 Ä and ä of code page 1252.
  gClientPrinters.push_back(
      Client("\\\\\xC9tage", "\\\\\xC9tage\\Drucker-\xC4", "Drucker-\xC4"));
  INIDocument.MixedDefinitions = {{"\xE9tage", "Drucker-\xC4", "x", "NEW"},
                                  {"\xC9tage", "Drucker-\xE4", "y", "NEW"},
                                  {"\xC9TAGE", "DRUCKER-\xC4", "z", "NEW"}};
  MoveMixed();
  EXPECT_EQ(Count(gDebugBuffer, ">> Found a Printer and Server match <<"), 1u);
  ExpectBlock(gDebugBuffer,
              Log({">> Found a Printer and Server match <<", ">> Client printer: Drucker-\xC4",
                   ">> Client Server: \\\\\xC9tage", ">> INI printer: DRUCKER-\xC4",
                   ">> INI Server: \xC9TAGE"}));
  EXPECT_EQ(Count(gOutcomeText, "Migrating: \\\\\xC9tage\\Drucker-\xC4 to \\\\NEW\\z"), 1u);
}

TEST_F(MoveNetworkPrintersTest, MoveMixed_OnePulsePerPairAndOneMorePerPrinter) {
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\a", "a"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\b", "b"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\c", "c"));
  INIDocument.MixedDefinitions = {{"X", "x", "y", "Y"}, {}};
  MoveMixed();
  EXPECT_EQ(Transcript()["progress"]["steps"], 9);
}

TEST_F(MoveNetworkPrintersTest, MoveMixed_AfterServerToServer_UnnamedPrinterReportedUnderOldName) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OLD", "color")});
  machine["printServers"] = Servers({{"NEW", {"laser", "color", "c2"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("MANUAL DEFINITIONS MIXED", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS MIXED", "FromPrinters", "color")
      .Set("MANUAL DEFINITIONS MIXED", "ToServers", "NEW")
      .Set("MANUAL DEFINITIONS MIXED", "ToPrinters", "c2");
  json t = RunWith(ini);
  const std::string outcome = t["outcomeText"];
  const std::string mixedPart = outcome.substr(outcome.find(kMixedHeader));
  EXPECT_EQ(mixedPart, kMixedHeader + Report({"Printer already migrated: \\\\OLD\\laser (\\\\OLD)",
                                              "Migrating: \\\\OLD\\color to \\\\NEW\\c2",
                                              "Populated networked printer: \\\\NEW\\c2",
                                              "Error (1801) deleting network printer: \\\\OLD\\color"}));
}

// ---------------------------------------------------------------------------
// The default printer carried over in each generation of the platform

class DefaultCarriedTest : public MoveNetworkPrintersTest {
 protected:
  json MoveOldToNew() {
    machine["printServers"] = Servers({{"NEW", {"laser"}}});
    IniFile ini;
    ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
        .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
        .Set("SET_DEFAULT", "DefaultType", "1");
    return RunWith(ini);
  }
  static std::string Moved() {
    return Report({"", kServerHeader, "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                   "Populated networked printer: \\\\NEW\\laser",
                   "Deleted networked printer: \\\\OLD\\laser"});
  }
};

TEST_F(DefaultCarriedTest, Windows2000On_ReadByGetDefaultAndSetBySetDefault) {
  machine["os"] = {{"platformId", 2}, {"majorVersion", 5}};
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  json t = MoveOldToNew();
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)",
                                      "Default Printer:\\\\OLD\\laser"}) +
                                  Moved() + Report({"Set default printer: \\\\NEW\\laser"}));
  EXPECT_EQ(Calls(t).back(), "SetDefaultPrinterA \\\\NEW\\laser");
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\laser");
}

TEST_F(DefaultCarriedTest, NT4_ReadFromDeviceKeyAndWrittenFromPrinterPorts) {
  machine["os"] = {{"platformId", 2}, {"majorVersion", 4}};
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["winIni"] = {{"Windows", {{"device", "\\\\OLD\\laser,winspool,Ne00:"}}},
                       {"PrinterPorts", {{"\\\\NEW\\laser", "winspool,Ne01:,15,45"}}}};
  json t = MoveOldToNew();
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)",
                                      "Default Printer:\\\\OLD\\laser"}) +
                                  Moved() + Report({"Set default printer: \\\\NEW\\laser"}));
  ExpectBlock(t["debugBuffer"], Log({"Default printer:\\\\OLD\\laser"}));
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\laser");
}

TEST_F(DefaultCarriedTest, Windows9x_ReadByEnumerationAndSetOnTheBareName) {
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}};
  // This family knows a network printer by a local printer of its bare name.
  machine["printers"] = json::array({Net("OLD", "laser"), {{"name", "laser"}, {"attributes", 0x40}}});
  machine["printers"][0]["attributes"] = 0x4;
  json t = MoveOldToNew();
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)",
                                      "Local Printer: laser", "Default Printer:\\\\OLD\\laser"}) +
                                  Moved() + Report({"Set default printer: laser"}));
  ExpectBlock(t["debugBuffer"], Log({"Default printer set: laser"}));
  EXPECT_EQ(t["defaultAfter"], "laser");
}

TEST_F(DefaultCarriedTest, Windows9xWithoutBarePrinter_OpeningFailsAndIsReported) {
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}};
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printers"][0]["attributes"] = 0x4;
  json t = MoveOldToNew();
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)",
                                      "Default Printer:\\\\OLD\\laser"}) +
                                  Moved() +
                                  Report({"Error (1801) opening printer for set default: laser"}));
}

TEST_F(DefaultCarriedTest, OtherPlatform_NeitherReadNorSet) {
  machine["os"] = {{"platformId", 3}, {"majorVersion", 10}};
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  json t = MoveOldToNew();
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, "\\\\OLD\\laser (\\\\OLD)"}) + Moved());
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\NEW\\laser",
                                                "DeletePrinterConnectionA \\\\OLD\\laser"}));
}

}  // namespace
