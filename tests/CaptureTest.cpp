// zandolin-capture on the simulated platform: a simulated client captured
// through the same boundary as a real one, every field it writes, the run of
// zandolin-sim on the capture against the run on the original, and what it
// does with bad input.
#include "app/zandolin-capture/Capture.h"

#include "FleetTestSupport.h"
#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "Version.h"
#include "platform/sim/SimCodePage.h"
#include "platform/sim/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <set>

namespace {

namespace fs = std::filesystem;
using fleettest::ReadAll;
using nlohmann::json;
using scenario::Net;

// The output folder on the host; a failure can be set on one file name.
// Paths come in the ANSI code page of the clients captured here (1252), and
// are names on the host in UTF-8, as the A-calls of Windows take them.
class HostOutput : public capture::Output {
 public:
  explicit HostOutput(fs::path root, std::string failOn = "") : root_(std::move(root)), failOn_(std::move(failOn)) {}

  std::optional<std::string> MakeFolder(const std::string& path) override {
    std::error_code ec;
    fs::create_directories(Full(path), ec);
    if (ec) return ec.message();
    return std::nullopt;
  }
  std::optional<std::string> WriteFile(const std::string& path, const std::string& content) override {
    if (!failOn_.empty() && Full(path).filename() == failOn_) return "the disk is full";
    std::ofstream out(Full(path), std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out) return "cannot be written";
    return std::nullopt;
  }
  bool Exists(const std::string& path) override { return fs::exists(Full(path)); }
  std::optional<std::string> Rename(const std::string& from, const std::string& to) override {
    std::error_code ec;
    fs::rename(Full(from), Full(to), ec);
    if (ec) return ec.message();
    return std::nullopt;
  }
  void Remove(const std::string& path) override {
    std::error_code ec;
    fs::remove_all(Full(path), ec);
  }

 private:
  fs::path Full(const std::string& path) const {
    std::string relative = sim::CodePage::Find(1252)->ToUtf8(path);
    for (char& ch : relative)
      if (ch == '\\') ch = '/';
    return relative.empty() ? root_ : root_ / relative;
  }
  fs::path root_;
  std::string failOn_;
};

// Every file below a folder, by its path relative to it, with its content.
std::map<std::string, std::string> Tree(const fs::path& dir) {
  std::map<std::string, std::string> files;
  for (const auto& e : fs::recursive_directory_iterator(dir))
    if (e.is_regular_file()) files[fs::relative(e.path(), dir).string()] = ReadAll(e.path());
  return files;
}

// What a capture cannot know of a client, and the test hands over from the
// original: the clock and timer of a run, how the SMTP peer and folders
// behave, the event log already written, and injected failures that no call
// of the capture meets.
const char* const kNotCaptured[] = {"clock", "timerIntervalMs", "smtp", "readOnly", "eventLog"};

class CaptureTest : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    out = dir.parent_path() / (dir.filename().string() + "-out");
    fs::remove_all(out);
    machine["clock"] = "2026-11-21T14:05:09";
    // The folder the INI files of these tests write their report into.
    fs::create_directories(dir / "files" / "C" / "Reports");
  }
  void TearDown() override {
    fs::remove_all(out);
    SimFixture::TearDown();
  }

  // Installs the client and runs zandolin-capture on it with these
  // arguments; the output folder is out unless a host path is given.
  int Capture(std::vector<std::string> arguments, std::string failOn = "") {
    Install();
    stdOut.clear();
    stdErr.clear();
    const int status = capture::Main(
        arguments,
        [&](const std::string& folder) {
          made.push_back(folder);
          // A folder of the host is taken as it is; any other is out.
          return std::make_unique<HostOutput>(folder.rfind('/', 0) == 0 ? fs::path(folder) : out, failOn);
        },
        stdOut, stdErr);
    client.reset();
    return status;
  }
  int CaptureWithIni(const std::string& ini = "C:\\Deploy\\move.ini") {
    return Capture({"(out)", "--ini", ini});
  }

  fs::path Captured() const { return out / "PC042_jdoe"; }
  json CapturedMachine() const { return json::parse(ReadAll(Captured() / "machine.json")); }
  std::vector<std::string> Notes() const { return CapturedMachine()["capture"]["notes"]; }

  // The transcript of zandolin-sim's run on a client folder (the
  // original: this fixture's), the command line empty.
  static json RunOn(const fs::path& folder) {
    std::unique_ptr<sim::Client> run = sim::Client::Load(folder);
    json t = run->Run(sim::RunOptions{});
    run.reset();
    return t;
  }

  // Captures with the INI file and checks that zandolin-sim runs the
  // capture exactly as the original: the whole transcript is the same.
  void ExpectSameRunAsTheOriginal() {
    ASSERT_EQ(CaptureWithIni(), 0) << stdErr;
    json captured = CapturedMachine();
    for (const char* field : kNotCaptured)
      if (machine.contains(field)) captured[field] = machine[field];
    // The run goes on a copy: the capture stays as it was written.
    const fs::path copy = out / "run";
    fs::copy(Captured(), copy, fs::copy_options::recursive);
    std::ofstream(copy / "machine.json", std::ios::trunc) << captured.dump(2);
    json onCapture = RunOn(copy);
    json onOriginal = Run();
    // The capture holds the queues as the server gave them, already cut
    // (sizeLimit 0); the original's simulated server cuts at its own limit.
    // What each query gave is compared in directoryQueries.
    onCapture["client"].erase("directorySizeLimit");
    onOriginal["client"].erase("directorySizeLimit");
    EXPECT_EQ(onOriginal["ended"], "returned");
    for (auto it = onOriginal.begin(); it != onOriginal.end(); ++it)
      EXPECT_EQ(it.value(), onCapture[it.key()]) << "transcript field " << it.key();
  }

  fs::path out;
  std::string stdOut, stdErr;
  std::vector<std::string> made;
};

// An INI file moving server OLD to NEW, keeping the moved default, adding
// NEW's color queue and writing a report into C:\Reports.
testini::IniFile MoveIni() {
  return ValidIni()
      .Set("GENERAL", "UseManualDefinitions", "True")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW")
      .Set("POPULATE", "ServerNames", "NEW")
      .Set("POPULATE", "PrinterNames", "color")
      .Set("SET_DEFAULT", "DefaultType", "1")
      .Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "C:\\Reports")
      .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "moves.txt")
      .Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "True");
}

const json kServers = {{"OLD", {{"queues", {"laser", "color"}}}},
                       {"NEW", {{"queues", {{{"name", "laser"}, {"driver", "HP Universal Printing PCL 6"}}, "color"}}}}};

// A Windows 10 client of a standard user: two connections to OLD, a local
// printer, a connection to a retired server that cannot be opened, Point and
// Print restricted (its policy key in the registry, where the capture reads
// it), the event source registered, an earlier INI file's status.
void Windows10Client(json& machine) {
  json laser = Net("OLD", "laser");
  laser["driverName"] = "HP LaserJet 4050";
  laser["comment"] = "second floor";
  laser["location"] = "Room 204";
  laser["attributes"] = 0x210;
  machine["os"] = {{"platformId", 2}, {"majorVersion", 10}, {"minorVersion", 0}, {"ansiCodePage", 1252}};
  machine["user"] = {{"isAdmin", false}};
  machine["printers"] = {laser, Net("OLD", "color"),
                         {{"name", "Labels"}, {"serverName", nullptr}, {"portName", "LPT1:"},
                          {"driverName", "Generic / Text Only"}, {"attributes", 0x40}},
                         Net("GONE", "plot")};
  machine["faults"] = {{{"call", "OpenPrinterA"}, {"match", "\\\\GONE\\plot"}, {"lastError", 1801}}};
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  machine["printServers"] = kServers;
  machine["drivers"] = {"Generic / Text Only", "HP LaserJet 4050"};
  machine["ports"] = {"LPT1:", "FILE:", "IP_10.0.0.5"};
  machine["registry"] = {
      {"HKEY_LOCAL_MACHINE\\Software\\Policies\\Microsoft\\Windows NT\\Printers\\PointAndPrint",
       {{"RestrictDriverInstallationToAdministrators", {{"type", 4}, {"data", 1}}},
        {"TrustedServers", {{"type", 4}, {"data", 1}}},
        {"ServerList", "NEW;OLD"}}},
      {"HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin",
       {{"EventMessageFile", "C:\\Windows\\system32\\EvntMsg.dll"}}},
      {"HKEY_CURRENT_USER\\Software\\Other", {{"Secret", "not the engine's"}}}};
}

// ---------------------------------------------------------------------------
// The run on the capture is the run on the original

TEST_F(CaptureTest, Windows10_RunOnTheCapture_IsTheRunOnTheOriginal) {
  Windows10Client(machine);
  WriteFile("C:\\Deploy\\move.ini", MoveIni().Text());
  WriteFile("C:\\Users\\jdoe\\Zandolin_status.log", "C:\\Deploy\\old.ini,True\r\n");
  ExpectSameRunAsTheOriginal();
}

TEST_F(CaptureTest, WindowsNT4_RunOnTheCapture_IsTheRunOnTheOriginal) {
  machine["os"] = {{"platformId", 2}, {"majorVersion", 4}, {"minorVersion", 0}};
  machine["printers"] = {Net("OLD", "laser"), Net("OLD", "color")};
  machine["printServers"] = kServers;
  machine["winIni"] = {{"Windows", {{"device", "\\\\OLD\\laser,winspool,Ne00:"}}},
                       {"PrinterPorts", {{"\\\\OLD\\laser", "winspool,Ne00:,15,45"},
                                         {"\\\\NEW\\laser", "winspool,Ne01:,15,45"}}}};
  machine["registry"] = {
      {"HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\C:\\Deploy\\move.ini\\jdoe", {{"SUCCESS", "False"}}},
      {"HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\C:\\Deploy\\old.ini\\jdoe", {{"SUCCESS", "True"}}}};
  WriteFile("C:\\Deploy\\move.ini", MoveIni().Text());
  ExpectSameRunAsTheOriginal();
}

TEST_F(CaptureTest, Windows98_RunOnTheCapture_IsTheRunOnTheOriginal) {
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}, {"minorVersion", 10}};
  json laser = Net("OLD", "laser");
  laser["attributes"] = 0x4;
  machine["printers"] = {laser, Net("OLD", "color")};
  machine["printServers"] = kServers;
  WriteFile("C:\\Deploy\\move.ini", MoveIni().Text());
  ExpectSameRunAsTheOriginal();
}

TEST_F(CaptureTest, Directory_RunOnTheCapture_IsTheRunOnTheOriginal) {
  machine["printers"] = {Net("OLD", "laser"), Net("OLD", "plot")};
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  machine["printServers"] = {{"NEW", {{"queues", {"laser"}}}}, {"OLD", {{"queues", {"laser", "plot"}}}}};
  machine["directory"] = {{"domain", "corp.example.com"},
                          {"namingContext", "DC=corp,DC=example,DC=com"},
                          {"printQueues", {{{"name", "NEW-laser"}, {"printShareName", {"laser"}}},
                                           {{"name", "nohyphen"}},
                                           {{"name", "NEW-SRV-LaserJet"}, {"printShareName", {"LaserJet"}}}}}};
  WriteFile("C:\\Deploy\\move.ini", ValidIni()
                                        .Set("GENERAL", "UseActiveDirectory", "True")
                                        .Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com")
                                        .Set("SET_DEFAULT", "DefaultType", "1")
                                        .Text());
  ExpectSameRunAsTheOriginal();
  const json captured = CapturedMachine();
  EXPECT_EQ(captured["directory"],
            json::parse(R"({"domain": "corp.example.com", "namingContext": "DC=corp,DC=example,DC=com",
                            "printQueues": [{"name": "NEW-laser", "printShareName": ["laser"]},
                                            {"name": "nohyphen", "printShareName": []},
                                            {"name": "NEW-SRV-LaserJet", "printShareName": ["LaserJet"]}],
                            "queryError": null, "sizeLimit": 0})"));
  // The servers the directory names are asked too.
  EXPECT_EQ(captured["printServers"], json::parse(R"({"NEW": {"queues": ["laser"]}, "OLD": {"queues": ["laser", "plot"]}})"));
}

TEST_F(CaptureTest, DirectoryRefusesTheQuery_TheRefusalIsCapturedAndRehearsed) {
  machine["directory"] = {{"domain", "corp.example.com"},
                          {"namingContext", "DC=corp,DC=example,DC=com"},
                          {"queryError", {{"number", -2147016656}, {"description", "There is no such object on the server."}}}};
  WriteFile("C:\\Deploy\\move.ini", ValidIni()
                                        .Set("GENERAL", "UseActiveDirectory", "True")
                                        .Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com")
                                        .Text());
  ExpectSameRunAsTheOriginal();
  const json captured = CapturedMachine();
  EXPECT_EQ(captured["directory"]["queryError"],
            json::parse(R"({"number": -2147016656, "description": "There is no such object on the server."})"));
  EXPECT_EQ(Notes(), std::vector<std::string>{
                         "The directory refused the query (-2147016656, There is no such object on the "
                         "server.); the rehearsal meets the same refusal."});
}

TEST_F(CaptureTest, DirectoryThatDoesNotAnswer_NoDirectoryIsCapturedAndTheBindFailsAlike) {
  WriteFile("C:\\Deploy\\move.ini", ValidIni()
                                        .Set("GENERAL", "UseActiveDirectory", "True")
                                        .Set("ACTIVE DIRECTORY", "DomainName", "nowhere.example.com")
                                        .Text());
  ExpectSameRunAsTheOriginal();
  EXPECT_FALSE(CapturedMachine().contains("directory"));
  EXPECT_EQ(Notes(), std::vector<std::string>{
                         "The directory LDAP://nowhere.example.com could not be reached (-2147016646, The "
                         "server is not operational.); the rehearsal meets the same failure."});
}

TEST_F(CaptureTest, BindFailingOtherwise_IsKeptAsAFaultOfTheBind) {
  machine["faults"] = {{{"call", "BindObject"}, {"lastError", 0x80072030u}}};
  WriteFile("C:\\Deploy\\move.ini", ValidIni()
                                        .Set("GENERAL", "UseActiveDirectory", "True")
                                        .Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com")
                                        .Text());
  ExpectSameRunAsTheOriginal();
  EXPECT_EQ(CapturedMachine()["faults"],
            json::parse(R"([{"call": "BindObject", "match": "LDAP://corp.example.com", "result": 0,
                             "lastError": 2147950640, "skip": 0}])"));
}

TEST_F(CaptureTest, AlreadySucceeded_TheCaptureRehearsesTheSucceededRun) {
  Windows10Client(machine);
  WriteFile("C:\\Deploy\\move.ini", ValidIni().Set("GENERAL", "UseManualDefinitions", "True").Text());
  WriteFile("C:\\Users\\jdoe\\Zandolin_status.log", "C:\\Deploy\\move.ini,True\r\n");
  ExpectSameRunAsTheOriginal();
  EXPECT_EQ(RunOn(Captured())["outcomeText"],
            "\r\nThis INI file has already succeeded on this machine.\r\nIf you would like to run this INI "
            "file again, please save it as a different name or \r\nplease select the Always Run feature on "
            "the General step.");
}

// ---------------------------------------------------------------------------
// What the capture writes

TEST_F(CaptureTest, Windows10_WritesEveryFieldAsTheEngineReadsIt) {
  Windows10Client(machine);
  WriteFile("C:\\Deploy\\move.ini", MoveIni().Text());
  WriteFile("C:\\Users\\jdoe\\Zandolin_status.log", "C:\\Deploy\\old.ini,True\r\n");
  ASSERT_EQ(CaptureWithIni(), 0) << stdErr;
  EXPECT_EQ(stdOut, "(out)\\PC042_jdoe\n");
  EXPECT_EQ(stdErr, "");
  const json m = CapturedMachine();

  EXPECT_EQ(m["capture"]["at"], "2026-11-21T14:05:09");
  EXPECT_EQ(m["capture"]["version"], ZANDOLIN_VERSION);
  EXPECT_EQ(m["os"], json::parse(R"({"platformId": 2, "majorVersion": 10, "minorVersion": 0,
                                     "versionError": 0, "ansiCodePage": 1252})"));
  EXPECT_EQ(m["user"], json::parse(R"({"isAdmin": false})"));
  EXPECT_EQ(m["computerName"], "PC042");
  EXPECT_EQ(m["userName"], "jdoe");
  EXPECT_EQ(m["exePath"], "C:\\Deploy\\ZandolinEngine.exe");
  EXPECT_EQ(m["profileDir"], "C:\\Users\\jdoe");
  EXPECT_EQ(m["windowsDir"], "C:\\Windows");
  EXPECT_EQ(m["systemDir"], "C:\\Windows\\system32");
  EXPECT_EQ(m["tempDir"], "C:\\Users\\jdoe\\AppData\\Local\\Temp\\");
  EXPECT_FALSE(m.contains("localHostName"));   // the same as the computer's name
  EXPECT_FALSE(m.contains("clock"));
  EXPECT_EQ(m["printers"], json::parse(R"([
    {"name": "\\\\OLD\\laser", "serverName": "\\\\OLD", "shareName": "laser", "portName": "",
     "driverName": "HP LaserJet 4050", "comment": "second floor", "location": "Room 204", "attributes": 528},
    {"name": "\\\\OLD\\color", "serverName": "\\\\OLD", "shareName": "color", "portName": "",
     "driverName": "", "comment": "", "location": "", "attributes": 0},
    {"name": "Labels", "serverName": null, "shareName": "", "portName": "LPT1:",
     "driverName": "Generic / Text Only", "comment": "", "location": "", "attributes": 64},
    {"name": "\\\\GONE\\plot", "serverName": "\\\\GONE", "shareName": "plot", "portName": "",
     "driverName": "", "comment": "", "location": "", "attributes": 0}])"));
  EXPECT_EQ(m["faults"], json::parse(R"([{"call": "OpenPrinterA", "match": "\\\\GONE\\plot", "result": 0,
                                          "lastError": 1801, "skip": 0}])"));
  EXPECT_EQ(m["defaultPrinter"], "\\\\OLD\\laser");
  EXPECT_EQ(m["printServers"], kServers);
  EXPECT_EQ(m["drivers"], json::parse(R"(["Generic / Text Only", "HP LaserJet 4050"])"));
  EXPECT_EQ(m["ports"], json::parse(R"(["LPT1:", "FILE:", "IP_10.0.0.5"])"));
  EXPECT_EQ(m["winIni"], json::object());
  // The engine's event source, and nothing else of the registry.
  EXPECT_EQ(m["registry"], json::parse(R"({
    "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin":
      {"EventMessageFile": "C:\\Windows\\system32\\EvntMsg.dll"}})"));
  EXPECT_EQ(m["pointAndPrint"], json::parse(R"({"RestrictDriverInstallationToAdministrators": 1,
                                                 "TrustedServers": 1, "ServerList": "NEW;OLD"})"));
  EXPECT_FALSE(m.contains("directory"));
  EXPECT_EQ(m["capture"]["notes"], json::parse(R"([
    "The printer \"\\\\GONE\\plot\" could not be opened (error 1801, the printer name is not valid; if its name holds characters the code page 1252 lacks, Windows lists it under a name by which it cannot be opened); the rehearsal meets the same failure.",
    "The print server \\\\GONE did not answer (error 1722, the RPC server is unavailable); it is left out of the print servers, so a rehearsal cannot connect to its queues."])"));

  EXPECT_EQ(Tree(Captured() / "files"),
            (std::map<std::string, std::string>{{"C/Deploy/move.ini", MoveIni().Text()},
                                                {"C/Users/jdoe/Zandolin_status.log", "C:\\Deploy\\old.ini,True\r\n"}}));
  EXPECT_TRUE(fs::is_directory(Captured() / "files" / "C" / "Reports"));
  EXPECT_EQ(made, std::vector<std::string>{"(out)"});
}

TEST_F(CaptureTest, OutputFolderOfTheIniThatIsNotThere_IsNamed) {
  fs::remove_all(dir / "files" / "C" / "Reports");
  WriteFile("C:\\Deploy\\move.ini", MoveIni().Text());
  machine["printServers"] = kServers;
  ExpectSameRunAsTheOriginal();
  EXPECT_FALSE(fs::exists(Captured() / "files" / "C" / "Reports"));
  EXPECT_EQ(Notes(), std::vector<std::string>{"The output folder C:\\Reports of the INI file is not there: the "
                                              "engine cannot write its output file into it."});
}

TEST_F(CaptureTest, WithoutIni_CapturesTheClientAndAsksNoServer) {
  Windows10Client(machine);
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  const json m = CapturedMachine();
  EXPECT_EQ(m["printServers"], json::object());
  // No print server is asked: only the printer that cannot be opened is noted.
  EXPECT_EQ(m["capture"]["notes"], json::parse(R"([
    "The printer \"\\\\GONE\\plot\" could not be opened (error 1801, the printer name is not valid; if its name holds characters the code page 1252 lacks, Windows lists it under a name by which it cannot be opened); the rehearsal meets the same failure."])"));
  EXPECT_EQ(Tree(Captured() / "files"), (std::map<std::string, std::string>{}));
}

TEST_F(CaptureTest, WindowsNT4_WritesTheProfileEntriesAndTheRegistryStatus) {
  machine["os"] = {{"platformId", 2}, {"majorVersion", 4}, {"minorVersion", 0}};
  machine["winIni"] = {{"Windows", {{"device", "Labels,winspool,LPT1:"}, {"Other", "kept out"}}},
                       {"PrinterPorts", {{"Labels", "winspool,LPT1:,15,45"}, {"Fax", "winspool,FILE:,15,45"}}},
                       {"Desktop", {{"Wallpaper", "kept out"}}}};
  machine["registry"] = {
      {"HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\srv\\netlogon\\a.ini\\jdoe", {{"SUCCESS", "True"}}},
      {"HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Other", {{"X", "1"}}}};
  WriteFile("C:\\Users\\jdoe\\Zandolin_status.log", "not read on NT 4\r\n");
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  const json m = CapturedMachine();
  EXPECT_EQ(m["winIni"], json::parse(R"({"Windows": {"device": "Labels,winspool,LPT1:"},
                                          "PrinterPorts": {"Fax": "winspool,FILE:,15,45",
                                                           "Labels": "winspool,LPT1:,15,45"}})"));
  EXPECT_EQ(m["defaultPrinter"], "Labels");
  EXPECT_EQ(m["registry"], json::parse(R"({
    "HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\srv\\netlogon\\a.ini\\jdoe": {"SUCCESS": "True"}})"));
  EXPECT_EQ(Tree(Captured() / "files"), (std::map<std::string, std::string>{}));
}

TEST_F(CaptureTest, Windows98_TheDefaultIsThePrinterWindowsEnumeratesAsDefault) {
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}, {"minorVersion", 90}};
  machine["printers"] = {{{"name", "Labels"}, {"attributes", 0x44}}, {{"name", "Fax"}, {"attributes", 0x40}}};
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  const json m = CapturedMachine();
  EXPECT_EQ(m["defaultPrinter"], "Labels");
  EXPECT_EQ(m["printers"][0]["attributes"], 0x44);
  EXPECT_EQ(m["printers"][1]["attributes"], 0x40);
  EXPECT_EQ(m["profileDir"], "C:\\Users\\jdoe");
  EXPECT_EQ(m["user"]["isAdmin"], true);
  EXPECT_EQ(m["capture"]["notes"], json::array());
}

TEST_F(CaptureTest, ClientWithoutUserOrComputerName_KeepsThemAbsentAndSaysSo) {
  machine["userName"] = nullptr;
  machine["computerName"] = nullptr;
  machine["os"] = {{"versionError", 87}};
  machine["localHostName"] = "pc042.corp.example.com";
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  const json m = json::parse(ReadAll(out / "UNKNOWN_UNKNOWN" / "machine.json"));
  EXPECT_EQ(m["userName"], nullptr);
  EXPECT_EQ(m["computerName"], nullptr);
  EXPECT_EQ(m["os"]["versionError"], 87);
  EXPECT_EQ(m["localHostName"], "pc042.corp.example.com");
  EXPECT_EQ(m["capture"]["notes"], json::parse(R"([
    "Windows did not report its version (error 87, a parameter is not valid); the rehearsal fails to read it the same way.",
    "The computer's name could not be read; the engine reports it as \"Computer UNKNOWN\".",
    "The user's name could not be read (error 1245); the engine works with an empty user name."])"));
}

TEST_F(CaptureTest, DefaultPrinterThatCannotBeRead_IsAFaultOfItsCall) {
  machine["faults"] = {{{"call", "GetDefaultPrinterA"}, {"lastError", 1722}}};
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  const json m = CapturedMachine();
  EXPECT_EQ(m["defaultPrinter"], nullptr);
  EXPECT_EQ(m["faults"], json::parse(R"([{"call": "GetDefaultPrinterA", "result": 0, "lastError": 1722, "skip": 0}])"));
}

TEST_F(CaptureTest, PrinterReadFailures_AreKeptAsFaultsOfTheCallThatFails) {
  machine["printers"] = {Net("OLD", "a"), Net("OLD", "b")};
  machine["faults"] = {{{"call", "GetPrinterA"}, {"match", "\\\\OLD\\a"}, {"lastError", 5}},
                       {{"call", "GetPrinterA"}, {"match", "\\\\OLD\\b"}, {"lastError", 1722}, {"skip", 1}}};
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  const json m = CapturedMachine();
  EXPECT_EQ(m["faults"], json::parse(R"([
    {"call": "GetPrinterA", "match": "\\\\OLD\\a", "result": 0, "lastError": 5, "skip": 0},
    {"call": "GetPrinterA", "match": "\\\\OLD\\b", "result": 0, "lastError": 1722, "skip": 1}])"));
  EXPECT_EQ(m["capture"]["notes"], json::parse(R"([
    "The printer \"\\\\OLD\\a\" could not be read (error 5, access is denied); the rehearsal meets the same failure.",
    "The printer \"\\\\OLD\\b\" could not be read (error 1722, the RPC server is unavailable); the rehearsal meets the same failure."])"));
}

TEST_F(CaptureTest, PrinterNameOutsideTheCodePage_IsKeptWithTheFailureWindowsGives) {
  // Windows lists such a printer with "?" for what its code page lacks, and
  // cannot open it by that name.
  machine["printers"] = {{{"name", "Dr?cker 3"}}, {{"name", "Labels"}, {"portName", "LPT1:"}}};
  machine["faults"] = {{{"call", "OpenPrinterA"}, {"match", "Dr?cker 3"}, {"lastError", 1801}}};
  WriteFile("C:\\Deploy\\move.ini", ValidIni().Text());
  ExpectSameRunAsTheOriginal();
  EXPECT_EQ(Notes(), std::vector<std::string>{
                         "The printer \"Dr?cker 3\" could not be opened (error 1801, the printer name is not "
                         "valid; if its name holds characters the code page 1252 lacks, Windows lists it under a "
                         "name by which it cannot be opened); the rehearsal meets the same failure."});
}

TEST_F(CaptureTest, TextOfTheClient_IsWrittenInUtf8) {
  machine["printers"] = {{{"name", "Drucker Büro"}, {"comment", "Größe A3"}, {"portName", "LPT1:"}}};
  machine["userName"] = "jürgen";
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  const json m = json::parse(ReadAll(out / "PC042_jürgen" / "machine.json"));
  EXPECT_EQ(m["printers"][0]["name"], "Drucker Büro");
  EXPECT_EQ(m["printers"][0]["comment"], "Größe A3");
  EXPECT_EQ(m["userName"], "jürgen");
}

TEST_F(CaptureTest, WithIni_KeepsTheDriverFilesItNamesAsEmptyFiles) {
  WriteFile("C:\\Deploy\\move.ini", ValidIni()
                                        .Set("GENERAL", "UseManualDefinitions", "True")
                                        .Set("POPULATE", "ServerNames", ".,.")
                                        .Set("POPULATE", "PrinterNames", "Labels,Fresh")
                                        .Set("PRINTER_DRIVER", "PrinterName", "Labels,Fresh")
                                        .Set("PRINTER_DRIVER", "DriverName", "Label Driver,Fresh Driver")
                                        .Set("PRINTER_DRIVER", "DriverFileName", "label.dll,absent.dll")
                                        .Set("PRINTER_DRIVER", "PortName", "LPT1:,LPT1:")
                                        .Set("PRINTER_DRIVER", "DriverSharePath", "\\\\srv\\drivers")
                                        .Text());
  WriteFile("\\\\srv\\drivers\\label.dll", std::string(4096, 'x'));
  ExpectSameRunAsTheOriginal();
  EXPECT_EQ(Tree(Captured() / "files"),
            (std::map<std::string, std::string>{{"C/Deploy/move.ini", ReadAll(dir / "files/C/Deploy/move.ini")},
                                                {"UNC/srv/drivers/label.dll", ""}}));
  EXPECT_EQ(Notes(), std::vector<std::string>{
                         "Driver files the INI file names are recorded empty: the engine only copies them "
                         "into the system folder."});
}

TEST_F(CaptureTest, IniNamedRelatively_IsTakenFromTheCurrentFolder) {
  WriteFile("C:\\Deploy\\move.ini", MoveIni().Text());
  machine["printServers"] = kServers;
  ASSERT_EQ(CaptureWithIni("move.ini"), 0) << stdErr;
  EXPECT_EQ(Tree(Captured() / "files"), (std::map<std::string, std::string>{{"C/Deploy/move.ini", MoveIni().Text()}}));
  EXPECT_EQ(CapturedMachine()["printServers"], kServers);
}

TEST_F(CaptureTest, IniTheEngineCannotLoad_AsksNothingAndSaysWhy) {
  machine["printers"] = {Net("OLD", "laser")};
  machine["printServers"] = kServers;
  WriteFile("C:\\Deploy\\move.ini", ValidIni().Remove("GENERAL", "AlwaysRun").Text());
  ExpectSameRunAsTheOriginal();
  EXPECT_EQ(CapturedMachine()["printServers"], json::object());
  EXPECT_EQ(Notes(), std::vector<std::string>{
                         "The engine cannot load the INI file (a key it needs is missing or cannot be read): "
                         "its run stops there, so no print server and no directory was asked."});
}

TEST_F(CaptureTest, AnEarlierCapture_IsReplacedWhole) {
  machine["printers"] = {Net("OLD", "laser")};
  ASSERT_EQ(Capture({"(out)"}), 0);
  fs::create_directories(Captured() / "files" / "C" / "stale");
  machine["printers"] = json::array();
  ASSERT_EQ(Capture({"(out)"}), 0) << stdErr;
  EXPECT_EQ(CapturedMachine()["printers"], json::array());
  EXPECT_FALSE(fs::exists(Captured() / "files" / "C" / "stale"));
  EXPECT_EQ(Tree(out).size(), 1u);   // machine.json alone, nothing beside it
}

// ---------------------------------------------------------------------------
// Bad input

TEST_F(CaptureTest, OutputFolderThatCannotBeWritten_SaysWhyAndExitsWith1) {
  fs::create_directories(out);
  std::ofstream(out / "file") << "a file, not a folder";
  const std::string folder = (out / "file" / "captures").string();
  EXPECT_EQ(Capture({folder}), 1);
  EXPECT_EQ(stdErr, "zandolin-capture: the capture cannot be written into " + folder + ": Not a directory\n");
  EXPECT_EQ(stdOut, "");
  EXPECT_EQ(Tree(out), (std::map<std::string, std::string>{{"file", "a file, not a folder"}}));
}

TEST_F(CaptureTest, WriteFailingHalfWay_LeavesTheEarlierCaptureAndNothingHalfWritten) {
  machine["printers"] = {Net("OLD", "laser")};
  WriteFile("C:\\Deploy\\move.ini", ValidIni().Text());
  ASSERT_EQ(Capture({"(out)"}), 0);
  const std::string earlier = ReadAll(Captured() / "machine.json");
  machine["printers"] = json::array();
  EXPECT_EQ(Capture({"(out)", "--ini", "C:\\Deploy\\move.ini"}, "machine.json"), 1);
  EXPECT_EQ(stdErr, "zandolin-capture: the capture cannot be written into (out): the disk is full\n");
  EXPECT_EQ(Tree(out), (std::map<std::string, std::string>{{"PC042_jdoe/machine.json", earlier}}));
}

TEST_F(CaptureTest, IniThatCannotBeRead_IsNamedAndTheClientCapturedWithoutIt) {
  machine["printers"] = {Net("OLD", "laser")};
  machine["printServers"] = kServers;
  EXPECT_EQ(CaptureWithIni("C:\\Deploy\\missing.ini"), 1);
  EXPECT_EQ(stdErr, "zandolin-capture: the INI file C:\\Deploy\\missing.ini cannot be read (File not found); "
                    "the capture holds the client without what it names\n");
  EXPECT_EQ(stdOut, "(out)\\PC042_jdoe\n");
  const json m = CapturedMachine();
  EXPECT_EQ(m["printers"].size(), 1u);
  EXPECT_EQ(m["printServers"], json::object());
  EXPECT_EQ(Notes(), std::vector<std::string>{"The INI file C:\\Deploy\\missing.ini could not be read (File "
                                              "not found): no print server and no directory was asked."});
}

TEST_F(CaptureTest, PrintServerThatDoesNotExist_IsLeftOutAndNamed) {
  machine["printServers"] = {{"NEW", {{"queues", {"laser"}}}}};
  WriteFile("C:\\Deploy\\move.ini", MoveIni().Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NOSUCH").Text());
  ASSERT_EQ(CaptureWithIni(), 0) << stdErr;
  EXPECT_EQ(CapturedMachine()["printServers"], json::parse(R"({"NEW": {"queues": ["laser"]}})"));
  EXPECT_EQ(Notes(), (std::vector<std::string>{
                         "The print server \\\\OLD did not answer (error 1722, the RPC server is unavailable); it "
                         "is left out of the print servers, so a rehearsal cannot connect to its queues.",
                         "The print server \\\\NOSUCH did not answer (error 1722, the RPC server is unavailable); "
                         "it is left out of the print servers, so a rehearsal cannot connect to its queues."}));
}

TEST_F(CaptureTest, CommandLine_HelpVersionAndMistakes) {
  EXPECT_EQ(Capture({"--help"}), 0);
  const std::string usage = stdOut;
  EXPECT_EQ(usage.rfind("usage: zandolin-capture [OUTPUT_FOLDER] [--ini FILE]\n", 0), 0u);
  EXPECT_EQ(stdErr, "");
  EXPECT_EQ(Capture({"--version"}), 0);
  EXPECT_EQ(stdOut, std::string("zandolin-capture ") + ZANDOLIN_VERSION + "\n");
  // A mistake is named on stderr, followed by the usage.
  EXPECT_EQ(Capture({"--bogus"}), 2);
  EXPECT_EQ(stdErr, "zandolin-capture: unknown option '--bogus'\n" + usage);
  EXPECT_EQ(Capture({"a", "b"}), 2);
  EXPECT_EQ(stdErr, "zandolin-capture: only one OUTPUT_FOLDER may be given ('a' and 'b')\n" + usage);
  EXPECT_EQ(Capture({"(out)", "--ini"}), 2);
  EXPECT_EQ(stdErr, "zandolin-capture: --ini needs a file name\n" + usage);
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(CaptureTest, NoOutputFolder_WritesBesideTheProgram) {
  ASSERT_EQ(Capture({}), 0) << stdErr;
  EXPECT_EQ(made, std::vector<std::string>{"C:\\Deploy"});
  EXPECT_EQ(stdOut, "C:\\Deploy\\PC042_jdoe\n");
  EXPECT_TRUE(fs::exists(Captured() / "machine.json"));
}

}  // namespace
