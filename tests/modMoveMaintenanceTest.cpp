// Maintenance on the simulated client: the driver's steps, populate with and
// without driver definitions, the prunes and their pattern rules, and the
// fixed default printer.

#include "migration/modMoveMaintenance.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "migration/modMoveADPrinters.h"
#include "notification/modNotification.h"
#include "printers/modPrinterAPIs.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

using nlohmann::json;

namespace {

using namespace scenario;

const std::string kPopulate = "* ----- Maintenance Populate ----- *";
const std::string kPruneNetwork = "* ----- Maintenance Prune Network Printers ----- *";
const std::string kPruneLocal = "* ----- Maintenance Prune Local Printers ----- *";

// A valid INI file that asks for the manual migration; tests set the keys
// they need.
class IniFile : public testini::ManualIni<IniFile> {
 public:
  IniFile& Populate(const std::string& servers, const std::string& printers) {
    return Set("POPULATE", "ServerNames", servers).Set("POPULATE", "PrinterNames", printers);
  }
  IniFile& Prune(const std::string& servers, const std::string& printers) {
    return Set("PRUNE", "ServerNames", servers).Set("PRUNE", "PrinterNames", printers);
  }
  IniFile& Driver(const std::string& printers, const std::string& drivers, const std::string& files,
                  const std::string& ports, const std::string& share) {
    return Set("PRINTER_DRIVER", "PrinterName", printers)
        .Set("PRINTER_DRIVER", "DriverName", drivers)
        .Set("PRINTER_DRIVER", "DriverFileName", files)
        .Set("PRINTER_DRIVER", "PortName", ports)
        .Set("PRINTER_DRIVER", "DriverSharePath", share);
  }
};

class MaintenanceTest : public scenario::ScenarioFixture {
 protected:
  // The outcome text from the first maintenance header on.
  static std::string MaintenancePart(const json& t) {
    const std::string outcome = t["outcomeText"];
    size_t start = outcome.find("* ----- Maintenance");
    if (start == std::string::npos) return "";
    return outcome.substr(start - 4);
  }
};

// ---------------------------------------------------------------------------
// The driver

TEST_F(MaintenanceTest, RunMaintenance_NothingAsked_StepsOneToThreeOnlyPulseTheWindow) {
  Prepare();
  INIDocument.ShowProgress = true;
  RunMaintenance();
  EXPECT_EQ(gOutcomeText, "");
  EXPECT_EQ(gDebugBuffer, "");
  EXPECT_EQ(Transcript()["progress"]["labels"],
            json::array({"Populating maintenance printers ...",
                         "Finished populating maintenance printers ...",
                         "Pruning maintenance networked printers ...",
                         "Finished pruning maintenance networked printers ...",
                         "Pruning maintenance local printers ...",
                         "Finished pruning maintenance local printers ..."}));
  EXPECT_TRUE(Transcript()["spoolerCalls"].empty());
}

TEST_F(MaintenanceTest, RunMaintenance_UseActiveDirectory_RefreshesListsSilentlyBeforeOrphans) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk")});
  machine["printServers"] = Servers({{"NEW", {"color"}}});
  Prepare();
  INIDocument.ShowProgress = true;
  INIDocument.UseActiveDirectory = true;
  INIDocument.PopulateDefinitions = {{"NEW", "color"}, {}};
  gDirectoryPrinters = {{}, {"laser", "OLD", "laser"}, {"color", "NEW", "color"}};
  RunMaintenance();
  // The refresh sees what populate has just added, and reports nothing.
  ASSERT_EQ(UBound(gClientPrinters), 2);
  EXPECT_EQ(gClientPrinters[1].PrinterName, "\\\\OLD\\laser");
  EXPECT_EQ(gClientPrinters[2].PrinterName, "\\\\NEW\\color");
  ASSERT_EQ(UBound(gClientLocalPrinters), 1);
  EXPECT_EQ(gDebugBuffer.rfind(Log({">> " + kPopulate + " <<",
                                    ">> Added networked printer: \\\\NEW\\color",
                                    ">> Getting client's list of printers <<"}),
                               0),
            0u)
      << gDebugBuffer;
  EXPECT_EQ(gOutcomeText.rfind(Report({"", kPopulate, "Populated networked printer: \\\\NEW\\color"}),
                               0),
            0u)
      << gOutcomeText;
  EXPECT_EQ(gOutcomeText.find("Found"), std::string::npos);
  json labels = Transcript()["progress"]["labels"];
  ASSERT_EQ(labels.size(), 9u);
  EXPECT_EQ(labels[6], "Refreshing list of printers ...");
  EXPECT_EQ(labels[7], "Pruning maintenance all orphaned Active Directory printers ...");
  EXPECT_EQ(labels[8], "Finished pruning maintenance all orphaned Active Directory printers ...");
}

TEST_F(MaintenanceTest, RunMaintenance_DeleteADOrphansWithoutActiveDirectory_NoRefresh) {
  Prepare();
  INIDocument.ShowProgress = true;
  INIDocument.DeleteADOrphans = true;
  RunMaintenance();
  EXPECT_EQ(Transcript()["progress"]["labels"].size(), 6u);
  EXPECT_EQ(gDebugBuffer, "");
}

TEST_F(MaintenanceTest, RunMaintenance_DefaultTypeTwo_FixedDefaultIsTheLastAction) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk")});
  machine["printServers"] = Servers({{"NEW", {"color"}}});
  machine["defaultPrinter"] = "Desk";
  IniFile ini;
  ini.Populate("NEW", "color")
      .Prune("OLD", "laser")
      .Set("SET_DEFAULT", "DefaultType", "2")
      .Set("SET_DEFAULT", "DefaultPrinterName", "\\\\NEW\\color");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), (std::vector<std::string>{"AddPrinterConnectionA \\\\NEW\\color",
                                                "DeletePrinterConnectionA \\\\OLD\\laser",
                                                "SetDefaultPrinterA \\\\NEW\\color"}));
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate, "Populated networked printer: \\\\NEW\\color", "", kPruneNetwork,
                    "Deleted networked printer: \\\\OLD\\laser", "", kPruneLocal,
                    "Set default printer: \\\\NEW\\color"}));
  EXPECT_EQ(t["defaultAfter"], "\\\\NEW\\color");
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(MaintenanceTest, RunMaintenance_DefaultTypeTwoWithEmptyName_SetIsCalledWithEmptyString) {
  IniFile ini;
  ini.Set("SET_DEFAULT", "DefaultType", "2");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), std::vector<std::string>{"SetDefaultPrinterA "});
  // With no printer at all the client has none to make the default.
  EXPECT_EQ(t["outcomeText"],
            Report({kHeader, kNoDefault, "Error (259) setting default printer: "}));
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");
}

TEST_F(MaintenanceTest, RunMaintenance_TwoPassesWithActiveDirectory_SecondPassSeesRefreshedLists) {
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  Prepare();
  INIDocument.UseActiveDirectory = true;
  INIDocument.PopulateDefinitions = {{"NEW", "laser"}, {}};
  INIDocument.PruneDefinitions = {{"NEW", "laser"}, {}};
  gDirectoryPrinters = {{}, {"laser", "NEW", "laser"}};
  RunMaintenance();
  const std::string firstPass = gOutcomeText;
  RunMaintenance();
  const std::string secondPass = gOutcomeText.substr(firstPass.size());
  // The first prune works on the lists of the start; the second on the
  // refreshed ones, which hold the connection populate added.
  EXPECT_EQ(firstPass.rfind(Report({"", kPopulate, "Populated networked printer: \\\\NEW\\laser", "",
                                    kPruneNetwork, "", kPruneLocal}),
                            0),
            0u)
      << firstPass;
  EXPECT_EQ(secondPass.rfind(Report({"", kPopulate, "Populated networked printer: \\\\NEW\\laser",
                                     "", kPruneNetwork, "Deleted networked printer: \\\\NEW\\laser",
                                     "", kPruneLocal}),
                             0),
            0u)
      << secondPass;
  EXPECT_TRUE(Transcript()["printersAfter"].empty());
}

// ---------------------------------------------------------------------------
// Populate

TEST_F(MaintenanceTest, PopulatePrinters_SectionAbsent_NoHeaderNoLine) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  json t = RunWith(IniFile());
  EXPECT_EQ(t["outcomeText"], Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", kNoDefault}));
  EXPECT_EQ(std::string(t["debugBuffer"]).find("Maintenance"), std::string::npos);
}

TEST_F(MaintenanceTest, PopulatePrinters_SingleNetworkEntry_AddedAndSpareSlotSilent) {
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  IniFile ini;
  ini.Populate("NEW", "laser");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate, "Populated networked printer: \\\\NEW\\laser"}));
  ExpectBlock(t["debugBuffer"], Log({">> " + kPopulate + " <<",
                                     ">> Added networked printer: \\\\NEW\\laser",
                                     ">> Finished maintenance: False"}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
}

TEST_F(MaintenanceTest, PopulatePrinters_PrinterUserAlreadyHas_AddedAgainAndPlatformAnswers) {
  machine["printers"] = json::array({Net("NEW", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  IniFile ini;
  ini.Populate("NEW", "laser");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), std::vector<std::string>{"AddPrinterConnectionA \\\\NEW\\laser"});
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate, "Populated networked printer: \\\\NEW\\laser"}));
}

TEST_F(MaintenanceTest, PopulatePrinters_ErrorTextInList_UsedAsNameAndFailsAtPlatform) {
  machine["printServers"] = Servers({{"NEW", {"laser", "color"}}});
  IniFile ini;
  ini.Populate("NEW, ,NEW", "laser,x,");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate, "Populated networked printer: \\\\NEW\\laser",
                    "Error (1801) populating network printer: \\\\Error in Server Name\\x",
                    "Error (1801) populating network printer: \\\\NEW\\Error in Printer Name"}));
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");
}

TEST_F(MaintenanceTest, PopulatePrinters_LocalWithDriverDefinition_InstalledFromShare) {
  WriteFile("\\\\files\\drivers\\hp.dll", "hp driver");
  IniFile ini;
  ini.Populate(".", "Desk").Driver("Desk", "HP Driver", "hp.dll", "LPT1:", "\\\\files\\drivers");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t), Report({"", kPopulate, "Populated local printer: Desk"}));
  EXPECT_EQ(CallNames(t), (std::vector<std::string>{"AddPrinterDriverA", "AddPrinterA"}));
  json after = t["printersAfter"];
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(after[0]["name"], "Desk");
  EXPECT_EQ(after[0]["driverName"], "HP Driver");
  EXPECT_EQ(after[0]["portName"], "LPT1:");
  EXPECT_EQ(ReadFile("C:\\Windows\\system32\\hp.dll"), "hp driver");
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(MaintenanceTest, PopulatePrinters_LocalNameInOtherCase_NoDriverInfoLineSuccessKept) {
  IniFile ini;
  ini.Populate(".", "desk").Driver("Desk", "HP Driver", "hp.dll", "LPT1:", "\\\\files\\drivers");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate,
                    "Error populating Maintenance Local Printer, no driver information available : desk"}));
  ExpectBlock(t["debugBuffer"], Log({">> " + kPopulate + " <<",
                                     ">> Error local populating, no driver info: desk"}));
  EXPECT_TRUE(t["spoolerCalls"].empty());
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(MaintenanceTest, PopulatePrinters_DotServersWithoutDriverDefinitions_ErrorLineForEach) {
  IniFile ini;
  ini.Populate(".,.", "Desk,Label");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate,
                    "Error populating Maintenance Local Printer, no driver information available : Desk",
                    "Error populating Maintenance Local Printer, no driver information available : Label"}));
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,True\r\n");
}

TEST_F(MaintenanceTest, PopulatePrinters_FirstDriverDefinitionOfTheNameWins) {
  machine["drivers"] = json::array({"First", "Second"});
  Prepare();
  INIDocument.PopulateDefinitions = {{".", "Desk"}, {}};
  INIDocument.DriverDefinitions = {{"Other", "X", "", "LPT1:"},
                                   {"Desk", "First", "", "LPT1:"},
                                   {"Desk", "Second", "", "FILE:"}};
  PopulatePrinters();
  json after = Transcript()["printersAfter"];
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(after[0]["driverName"], "First");
  EXPECT_EQ(gOutcomeText, Report({"", kPopulate, "Populated local printer: Desk"}));
}

TEST_F(MaintenanceTest, PopulatePrinters_HalfFilledEntries_PassedOverInSilence) {
  Prepare();
  INIDocument.PopulateDefinitions = {{"NEW", ""}, {"", "laser"}, {}};
  PopulatePrinters();
  EXPECT_EQ(gOutcomeText, Report({"", kPopulate}));
  EXPECT_EQ(gDebugBuffer, Log({">> " + kPopulate + " <<"}));
  EXPECT_TRUE(Transcript()["spoolerCalls"].empty());
}

TEST_F(MaintenanceTest, PopulatePrinters_FirstEntryEmpty_LaterEntriesIgnored) {
  Prepare();
  INIDocument.PopulateDefinitions = {{"", ""}, {"NEW", "laser"}};
  PopulatePrinters();
  EXPECT_EQ(gOutcomeText, "");
  EXPECT_EQ(gDebugBuffer, "");
}

TEST_F(MaintenanceTest, PopulatePrinters_Windows9xWithDriver_InstallsNetworkPrinterOnPort) {
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}};
  WriteFile("\\\\files\\drivers\\hp.dll", "hp driver");
  IniFile ini;
  ini.Populate("NEW,NEW", "laser,color")
      .Driver("laser", "HP Driver", "hp.dll", "LPT1:", "\\\\files\\drivers")
      .Set("GENERAL", "ShowProgress", "True");
  json t = RunWith(ini);
  EXPECT_EQ(t["ended"], "returned");
  EXPECT_EQ(CallNames(t),
            (std::vector<std::string>{"AddPortA", "AddPrinterDriverA", "AddPrinterA"}));
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate, "Populated networked printer: laser",
                    "Error populating Maintenance Networked Printer on Windows 95/98/ME, "
                    "no driver information available : color"}));
  ExpectBlock(t["debugBuffer"],
              Log({">> " + kPopulate + " <<", ">> Populated networked printer: laser",
                   ">> Error network populating Windows 95/98/ME, no driver info: color"}));
  json after = t["printersAfter"];
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(after[0]["name"], "laser");
  EXPECT_EQ(after[0]["portName"], "\\\\NEW\\laser");
}

TEST_F(MaintenanceTest, PopulatePrinters_Windows9xHiddenProgressForm_KeepsProcessAlive) {
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}};
  IniFile ini;
  ini.Populate("NEW", "laser").Driver("laser", "HP Driver", "", "LPT1:", "");
  WriteFile("C:\\Deploy\\x.ini", ini.Text());
  json t = Run("", 1);
  EXPECT_EQ(t["ended"], "stuck");
  EXPECT_EQ(t["progress"]["shown"], false);
}

TEST_F(MaintenanceTest, PopulatePrinters_VersionUnreadable_TakesTheConnectionPath) {
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}, {"versionError", 87}};
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  Prepare();
  INIDocument.PopulateDefinitions = {{"NEW", "laser"}, {}};
  INIDocument.DriverDefinitions = {{"laser", "HP Driver", "", "LPT1:"}, {}};
  PopulatePrinters();
  EXPECT_EQ(gOutcomeText, Report({"", kPopulate, "Populated networked printer: \\\\NEW\\laser"}));
}

// ---------------------------------------------------------------------------
// Prune

TEST_F(MaintenanceTest, Prune_SectionEmpty_NeitherHeader) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk")});
  json t = RunWith(IniFile());
  EXPECT_EQ(MaintenancePart(t), "");
  EXPECT_TRUE(t["spoolerCalls"].empty());
}

TEST_F(MaintenanceTest, Prune_DeleteAllNonNetworked_LocalHeaderAndEveryLocalPrinterGone) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk"), Local("Label")});
  IniFile ini;
  ini.Set("PRUNE", "DeleteAllNonNetworked", "True");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t), Report({"", kPruneLocal, "Deleted local printer: Desk",
                                        "Deleted local printer: Label"}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\OLD\\laser"});
  ExpectBlock(t["debugBuffer"], Log({">> " + kPruneLocal + " <<", ">> Removed local printer: Desk",
                                     ">> Removed local printer: Label",
                                     ">> Finished maintenance: False"}));
}

TEST_F(MaintenanceTest, Prune_DotStarEntry_NetworkOnAnyServerAndLocalOfThatName) {
  machine["printers"] = json::array({Net("OLD", "Laser"), Net("OTHER", "laser"),
                                     Net("OLD", "color"), Local("LASER"), Local("Desk")});
  IniFile ini;
  ini.Prune(".*", "Laser");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPruneNetwork, "Deleted networked printer: \\\\OLD\\Laser",
                    "Deleted networked printer: \\\\OTHER\\laser", "", kPruneLocal,
                    "Deleted local printer: LASER"}));
  EXPECT_EQ(Names(t["printersAfter"]), (std::vector<std::string>{"\\\\OLD\\color", "Desk"}));
}

TEST_F(MaintenanceTest, Prune_StarStar_RemovesOnlyAPrinterCalledStar) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OLD", "*"), Local("*")});
  IniFile ini;
  ini.Prune("*", "*");
  json t = RunWith(ini);
  // "*" as server is not considered by the local prune.
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPruneNetwork, "Deleted networked printer: \\\\OLD\\*", "", kPruneLocal}));
  EXPECT_EQ(Names(t["printersAfter"]), (std::vector<std::string>{"\\\\OLD\\laser", "*"}));
}

TEST_F(MaintenanceTest, Prune_NamedServerStar_EveryConnectionOfThatServerInAnyCase) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("old", "color"),
                                     Net("NEW", "laser"), Local("OLD")});
  IniFile ini;
  ini.Prune("Old", "*");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPruneNetwork, "Deleted networked printer: \\\\OLD\\laser",
                    "Deleted networked printer: \\\\old\\color", "", kPruneLocal}));
  EXPECT_EQ(Names(t["printersAfter"]), (std::vector<std::string>{"\\\\NEW\\laser", "OLD"}));
}

TEST_F(MaintenanceTest, Prune_WholeNameWithServer_MatchesByPrinterName) {
  machine["printers"] = json::array({Net("OLD", "laser"), Net("OLD", "color")});
  IniFile ini;
  ini.Prune("OLD", "\\\\old\\LASER");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPruneNetwork, "Deleted networked printer: \\\\OLD\\laser", "",
                    kPruneLocal}));
}

TEST_F(MaintenanceTest, Prune_NamedPrinterOnOtherServer_NotRemoved) {
  machine["printers"] = json::array({Net("NEW", "laser")});
  IniFile ini;
  ini.Prune("OLD", "laser");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t), Report({"", kPruneNetwork, "", kPruneLocal}));
  EXPECT_TRUE(t["spoolerCalls"].empty());
}

TEST_F(MaintenanceTest, Prune_DotWithEmptyPrinterName_EveryLocalPrinterRemoved) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk"), Local("Label")});
  IniFile ini;
  ini.Prune(".", "");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPruneNetwork, "", kPruneLocal, "Deleted local printer: Desk",
                    "Deleted local printer: Label"}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\OLD\\laser"});
}

TEST_F(MaintenanceTest, Prune_DotAsServer_IsAnOrdinaryNameForTheNetworkPrune) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("laser")});
  IniFile ini;
  ini.Prune(".", "laser");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t), Report({"", kPruneNetwork, "", kPruneLocal,
                                        "Deleted local printer: laser"}));
}

TEST_F(MaintenanceTest, Prune_FirstEntryBothEmptyLaterFilled_WholeListIgnored) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk")});
  IniFile ini;
  ini.Prune(",OLD", ",laser");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t), "");
  EXPECT_TRUE(t["spoolerCalls"].empty());
}

TEST_F(MaintenanceTest, Prune_FirstEntryBothEmptyWithDeleteAll_LocalPruneOnly) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk")});
  IniFile ini;
  ini.Prune(",OLD", ",laser").Set("PRUNE", "DeleteAllNonNetworked", "True");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t), Report({"", kPruneLocal, "Deleted local printer: Desk"}));
}

TEST_F(MaintenanceTest, Prune_FirstEntryPrinterOnly_ListPresentButNothingMatches) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("laser")});
  IniFile ini;
  ini.Prune("", "laser");
  json t = RunWith(ini);
  // One record with an empty server: no server has that name, and the local
  // prune passes it over.
  EXPECT_EQ(MaintenancePart(t), Report({"", kPruneNetwork, "", kPruneLocal}));
  EXPECT_TRUE(t["spoolerCalls"].empty());
}

TEST_F(MaintenanceTest, Prune_FirstEntryServerOnly_ListPresentButNothingMatches) {
  Prepare();
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\laser", "laser"));
  INIDocument.PruneDefinitions = {{"OLD", ""}, {}};
  PruneNetworkPrinters();
  EXPECT_EQ(gOutcomeText, Report({"", kPruneNetwork}));
  EXPECT_EQ(gDebugBuffer, Log({">> " + kPruneNetwork + " <<"}));
}

TEST_F(MaintenanceTest, Prune_SeveralEntriesMatch_PrinterRemovedOnce) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  IniFile ini;
  ini.Prune("OLD,*,.*", "laser,laser,*");
  json t = RunWith(ini);
  EXPECT_EQ(Calls(t), std::vector<std::string>{"DeletePrinterConnectionA \\\\OLD\\laser"});
}

TEST_F(MaintenanceTest, Prune_StarInsideAName_IsAnOrdinaryCharacter) {
  machine["printers"] = json::array({Net("OLD", "laser"), Local("Desk")});
  IniFile ini;
  ini.Prune("O*,. *", "*,Desk");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t), Report({"", kPruneNetwork, "", kPruneLocal}));
  EXPECT_TRUE(t["spoolerCalls"].empty());
}

TEST_F(MaintenanceTest, Prune_NetworkPulsesOncePerPrinterLocalOncePerPrinter) {
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\a", "a"));
  gClientPrinters.push_back(Client("\\\\OLD", "\\\\OLD\\b", "b"));
  gClientLocalPrinters.push_back(Client("", "Desk", ""));
  INIDocument.PruneDefinitions = {{"X", "x"}, {"Y", "y"}, {}};
  PruneNetworkPrinters();
  PruneLocalPrinters();
  EXPECT_EQ(Transcript()["progress"]["steps"], 3);
}

// ---------------------------------------------------------------------------
// Across phases: the lists are the snapshot of the start of the run

TEST_F(MaintenanceTest, Snapshot_PruneNamesPrinterMigrationRemoved_SecondRemovalReported) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  IniFile ini;
  ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Prune("OLD", "*");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPruneNetwork, "Error (1801) deleting network printer: \\\\OLD\\laser", "",
                    kPruneLocal}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
  EXPECT_EQ(Status(), "C:\\Deploy\\x.ini,False\r\n");
}

TEST_F(MaintenanceTest, Snapshot_PopulatedThenPruned_NewConnectionOutOfReach) {
  machine["printServers"] = Servers({{"NEW", {"laser"}}});
  IniFile ini;
  ini.Populate("NEW", "laser").Prune("NEW", "laser");
  json t = RunWith(ini);
  EXPECT_EQ(MaintenancePart(t),
            Report({"", kPopulate, "Populated networked printer: \\\\NEW\\laser", "",
                    kPruneNetwork, "", kPruneLocal}));
  EXPECT_EQ(Names(t["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
}

}  // namespace
