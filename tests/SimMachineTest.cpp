// machine.json: defaults, every field read, each kind of mistake named, and
// the state written back.
#include "platform/sim/SimMachine.h"
#include "platform/sim/Simulator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

class SimMachineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "zandolin-machine-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir = pattern;
  }
  void TearDown() override { fs::remove_all(dir); }

  void Write(const std::string& text) {
    std::ofstream out(dir / "machine.json", std::ios::binary | std::ios::trunc);
    out << text;
  }
  std::string Read() const {
    std::ifstream in(dir / "machine.json", std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  // The message of the MachineError that loading text gives.
  std::string ErrorOf(const std::string& text) {
    Write(text);
    try {
      sim::LoadMachine(dir);
    } catch (const sim::MachineError& e) {
      return e.message;
    }
    return "(loaded)";
  }
  std::string File() const { return "machine.json"; }

  fs::path dir;
};

TEST_F(SimMachineTest, LoadMachine_NoFile_GivesEveryDefault) {
  sim::Machine m = sim::LoadMachine(dir);
  EXPECT_EQ(m.platformId, 2u);
  EXPECT_EQ(m.majorVersion, 10u);
  EXPECT_EQ(m.minorVersion, 0u);
  EXPECT_EQ(m.versionError, 0u);
  EXPECT_EQ(m.computerName, std::optional<std::string>("PC042"));
  EXPECT_EQ(m.userName, std::optional<std::string>("jdoe"));
  EXPECT_EQ(m.exePath, "C:\\Deploy\\ZandolinEngine.exe");
  EXPECT_EQ(m.profileDir, "C:\\Users\\jdoe");
  EXPECT_EQ(m.windowsDir, "C:\\Windows");
  EXPECT_EQ(m.systemDir, "C:\\Windows\\system32");
  EXPECT_EQ(m.tempDir, "C:\\Users\\jdoe\\AppData\\Local\\Temp\\");
  EXPECT_FALSE(m.localHostName.has_value());
  EXPECT_FALSE(m.clock.has_value());
  EXPECT_EQ(m.timerIntervalMs, 1000u);
  EXPECT_TRUE(m.printers.empty());
  EXPECT_FALSE(m.defaultPrinter.has_value());
  EXPECT_TRUE(m.printServers.empty());
  EXPECT_TRUE(m.drivers.empty());
  EXPECT_EQ(m.ports, (std::vector<std::string>{"LPT1:", "FILE:"}));
  EXPECT_TRUE(m.winIni.empty());
  EXPECT_TRUE(m.registry.empty());
  EXPECT_FALSE(m.directory.has_value());
  EXPECT_TRUE(m.eventLog.empty());
  EXPECT_TRUE(m.readOnly.empty());
  EXPECT_TRUE(m.faults.empty());
}

TEST_F(SimMachineTest, LoadMachine_EveryField_IsRead) {
  Write(R"({
    "os": {"platformId": 1, "majorVersion": 4, "minorVersion": 10, "versionError": 87},
    "computerName": null, "userName": "ann", "exePath": "D:\\X\\e.exe", "profileDir": "C:\\P",
    "windowsDir": "C:\\WINNT", "systemDir": "C:\\WINNT\\system", "tempDir": "C:\\T\\",
    "localHostName": "pc.example.com", "clock": "2026-02-28T23:59:58", "timerIntervalMs": 5,
    "printers": [{"name": "\\\\OLD\\laser", "serverName": "\\\\OLD", "shareName": "laser",
                  "portName": "Ne00:", "driverName": "HP", "comment": "c", "location": "l",
                  "attributes": 20},
                 {"name": "Local", "serverName": null}],
    "defaultPrinter": "Local",
    "printServers": {"NEW": {"queues": ["laser", "color"]}},
    "drivers": ["HP"], "ports": ["LPT1:"],
    "winIni": {"Windows": {"device": "Local,winspool,LPT1:"}, "PrinterPorts": {"Local": "winspool,LPT1:,15,45"}},
    "registry": {"HKCU\\Software\\X": {"V": "text", "D": {"type": 4, "data": 7}}},
    "directory": {"domain": "corp.example.com", "namingContext": "DC=corp,DC=example,DC=com",
                  "printQueues": [{"name": "NEW-laser", "printShareName": ["laser", "l2"]}, {}],
                  "queryError": {"number": 5, "description": "boom"}},
    "eventLog": [{"source": "S", "type": 1, "category": 2, "id": 3, "strings": ["a"], "data": "d"}],
    "readOnly": ["C:\\Deploy"],
    "faults": [{"call": "DeletePrinter", "match": "laser", "result": 0, "lastError": 5, "skip": 1, "times": 2},
               {"call": "OpenPrinterA"}]
  })");
  sim::Machine m = sim::LoadMachine(dir);
  EXPECT_EQ(m.platformId, 1u);
  EXPECT_EQ(m.majorVersion, 4u);
  EXPECT_EQ(m.minorVersion, 10u);
  EXPECT_EQ(m.versionError, 87u);
  EXPECT_FALSE(m.computerName.has_value());
  EXPECT_EQ(m.userName, std::optional<std::string>("ann"));
  EXPECT_EQ(m.exePath, "D:\\X\\e.exe");
  EXPECT_EQ(m.profileDir, "C:\\P");
  EXPECT_EQ(m.windowsDir, "C:\\WINNT");
  EXPECT_EQ(m.systemDir, "C:\\WINNT\\system");
  EXPECT_EQ(m.tempDir, "C:\\T\\");
  EXPECT_EQ(m.localHostName, std::optional<std::string>("pc.example.com"));
  EXPECT_EQ(m.clock, std::optional<std::string>("2026-02-28T23:59:58"));
  EXPECT_EQ(m.timerIntervalMs, 5u);
  ASSERT_EQ(m.printers.size(), 2u);
  EXPECT_EQ(m.printers[0].name, "\\\\OLD\\laser");
  EXPECT_EQ(m.printers[0].serverName, std::optional<std::string>("\\\\OLD"));
  EXPECT_EQ(m.printers[0].shareName, "laser");
  EXPECT_EQ(m.printers[0].portName, "Ne00:");
  EXPECT_EQ(m.printers[0].driverName, "HP");
  EXPECT_EQ(m.printers[0].comment, "c");
  EXPECT_EQ(m.printers[0].location, "l");
  EXPECT_EQ(m.printers[0].attributes, 20u);
  EXPECT_EQ(m.printers[1].name, "Local");
  EXPECT_FALSE(m.printers[1].serverName.has_value());
  EXPECT_EQ(m.printers[1].attributes, 0u);
  EXPECT_EQ(m.defaultPrinter, std::optional<std::string>("Local"));
  ASSERT_EQ(m.printServers.count("NEW"), 1u);
  ASSERT_EQ(m.printServers["NEW"].queues.size(), 2u);
  EXPECT_EQ(m.printServers["NEW"].queues[0].name, "laser");
  EXPECT_EQ(m.printServers["NEW"].queues[1].name, "color");
  EXPECT_EQ(m.drivers, (std::vector<std::string>{"HP"}));
  EXPECT_EQ(m.ports, (std::vector<std::string>{"LPT1:"}));
  ASSERT_EQ(m.winIni.size(), 2u);
  EXPECT_EQ(m.winIni[0].first, "Windows");
  EXPECT_EQ(m.winIni[0].second[0], (std::pair<std::string, std::string>{"device", "Local,winspool,LPT1:"}));
  EXPECT_EQ(m.winIni[1].first, "PrinterPorts");
  ASSERT_EQ(m.registry.size(), 1u);
  EXPECT_EQ(m.registry[0].first, "HKEY_CURRENT_USER\\Software\\X");   // the short root is spelt out
  ASSERT_EQ(m.registry[0].second.size(), 2u);
  EXPECT_EQ(m.registry[0].second[0].first, "V");
  EXPECT_EQ(m.registry[0].second[0].second.type, 1u);
  EXPECT_EQ(m.registry[0].second[0].second.data, (std::vector<uint8_t>{'t', 'e', 'x', 't', 0}));
  EXPECT_EQ(m.registry[0].second[1].second.type, 4u);
  EXPECT_EQ(m.registry[0].second[1].second.data, (std::vector<uint8_t>{7, 0, 0, 0}));
  ASSERT_TRUE(m.directory.has_value());
  EXPECT_EQ(m.directory->domain, "corp.example.com");
  EXPECT_EQ(m.directory->namingContext, "DC=corp,DC=example,DC=com");
  ASSERT_EQ(m.directory->printQueues.size(), 2u);
  EXPECT_EQ(m.directory->printQueues[0].name, std::optional<std::string>("NEW-laser"));
  EXPECT_EQ(m.directory->printQueues[0].printShareName, (std::vector<std::string>{"laser", "l2"}));
  EXPECT_FALSE(m.directory->printQueues[1].name.has_value());
  ASSERT_TRUE(m.directory->queryError.has_value());
  EXPECT_EQ(m.directory->queryError->number, 5);
  EXPECT_EQ(m.directory->queryError->description, "boom");
  EXPECT_FALSE(m.directory->ldap.has_value());
  ASSERT_EQ(m.eventLog.size(), 1u);
  EXPECT_EQ(m.eventLog[0].source, "S");
  EXPECT_EQ(m.eventLog[0].type, 1);
  EXPECT_EQ(m.eventLog[0].category, 2);
  EXPECT_EQ(m.eventLog[0].id, 3u);
  EXPECT_EQ(m.eventLog[0].strings, (std::vector<std::string>{"a"}));
  EXPECT_EQ(m.eventLog[0].data, "d");
  EXPECT_EQ(m.readOnly, (std::vector<std::string>{"C:\\Deploy"}));
  ASSERT_EQ(m.faults.size(), 2u);
  EXPECT_EQ(m.faults[0].call, "DeletePrinter");
  EXPECT_EQ(m.faults[0].match, std::optional<std::string>("laser"));
  EXPECT_EQ(m.faults[0].result, 0);
  EXPECT_EQ(m.faults[0].lastError, 5u);
  EXPECT_EQ(m.faults[0].skip, 1);
  EXPECT_EQ(m.faults[0].times, std::optional<int>(2));
  EXPECT_EQ(m.faults[1].call, "OpenPrinterA");
  EXPECT_FALSE(m.faults[1].match.has_value());
  EXPECT_EQ(m.faults[1].skip, 0);
  EXPECT_FALSE(m.faults[1].times.has_value());
}

TEST_F(SimMachineTest, LoadMachine_WrongType_NamesTheFieldAndWhatWasExpected) {
  struct Case {
    const char* json;
    const char* message;
  };
  const Case cases[] = {
      {R"({"os": {"platformId": "2"}})", "field 'os.platformId': expected an integer"},
      {R"({"os": {"majorVersion": 5.5}})", "field 'os.majorVersion': expected an integer"},
      {R"({"os": {"minorVersion": true}})", "field 'os.minorVersion': expected an integer"},
      {R"({"os": {"versionError": -1}})", "field 'os.versionError': expected an integer from 0 to 4294967295"},
      {R"({"os": 2})", "field 'os': expected an object"},
      {R"({"computerName": 42})", "field 'computerName': expected a string or null"},
      {R"({"userName": ["jdoe"]})", "field 'userName': expected a string or null"},
      {R"({"exePath": null})", "field 'exePath': expected a string"},
      {R"({"profileDir": 1})", "field 'profileDir': expected a string"},
      {R"({"windowsDir": {}})", "field 'windowsDir': expected a string"},
      {R"({"systemDir": false})", "field 'systemDir': expected a string"},
      {R"({"tempDir": 0})", "field 'tempDir': expected a string"},
      {R"({"localHostName": 0})", "field 'localHostName': expected a string or null"},
      {R"({"clock": "2026-11-21 14:05:09"})",
       "field 'clock': expected a local date and time \"YYYY-MM-DDTHH:MM:SS\""},
      {R"({"clock": "2026-02-30T10:00:00"})",
       "field 'clock': expected a local date and time \"YYYY-MM-DDTHH:MM:SS\""},
      {R"({"timerIntervalMs": "50"})", "field 'timerIntervalMs': expected an integer"},
      {R"({"printers": {}})", "field 'printers': expected an array"},
      {R"({"printers": ["x"]})", "field 'printers[0]': expected an object"},
      {R"({"printers": [{"name": "a"}, {}]})", "field 'printers[1].name': expected a string (missing)"},
      {R"({"printers": [{"name": "a", "serverName": 1}]})",
       "field 'printers[0].serverName': expected a string or null"},
      {R"({"printers": [{"name": "a", "shareName": null}]})", "field 'printers[0].shareName': expected a string"},
      {R"({"printers": [{"name": "a", "attributes": "16"}]})",
       "field 'printers[0].attributes': expected an integer"},
      {R"({"defaultPrinter": 3})", "field 'defaultPrinter': expected a string or null"},
      {R"({"printServers": []})", "field 'printServers': expected an object"},
      {R"({"printServers": {"NEW": {"queues": "laser"}}})", "field 'printServers.NEW.queues': expected an array"},
      {R"({"printServers": {"NEW": {"queues": ["laser", 2]}}})",
       "field 'printServers.NEW.queues[1]': expected a string or an object {\"name\": N, \"driver\": D}"},
      {R"({"drivers": "HP"})", "field 'drivers': expected an array"},
      {R"({"ports": [null]})", "field 'ports[0]': expected a string"},
      {R"({"winIni": {"Windows": {"device": 1}}})", "field 'winIni.Windows.device': expected a string"},
      {R"({"winIni": {"Windows": "device"}})", "field 'winIni.Windows': expected an object"},
      {R"({"registry": {"HKEY_CURRENT_USER\\X": {"V": 1}}})",
       "field 'registry.HKEY_CURRENT_USER\\X.V': expected a string or an object {\"type\": T, \"data\": D}"},
      {R"({"registry": {"HKEY_CURRENT_USER\\X": {"V": {"type": 4, "data": "7"}}}})",
       "field 'registry.HKEY_CURRENT_USER\\X.V.data': expected an integer or an array of byte values 0-255"},
      {R"({"registry": {"HKEY_CURRENT_USER\\X": {"V": {"type": 3, "data": [1, 256]}}}})",
       "field 'registry.HKEY_CURRENT_USER\\X.V.data[1]': expected an integer from 0 to 255"},
      {R"({"registry": {"Software\\X": {}}})",
       "field 'registry.Software\\X': expected a key path that begins with HKEY_LOCAL_MACHINE, "
       "HKEY_CURRENT_USER, HKEY_CLASSES_ROOT or HKEY_USERS"},
      {R"({"directory": {"domain": 1}})", "field 'directory.domain': expected a string"},
      {R"({"directory": {"printQueues": [{"name": "a", "printShareName": [1]}]}})",
       "field 'directory.printQueues[0].printShareName[0]': expected a string"},
      {R"({"directory": {"queryError": {"number": "5"}}})",
       "field 'directory.queryError.number': expected an integer"},
      {R"({"directory": {"ldap": 389}})", "field 'directory.ldap': expected a string or null"},
      {R"({"eventLog": [{"id": "20001"}]})", "field 'eventLog[0].id': expected an integer"},
      {R"({"eventLog": [{"strings": "a"}]})", "field 'eventLog[0].strings': expected an array"},
      {R"({"readOnly": "C:\\Deploy"})", "field 'readOnly': expected an array"},
      {R"({"faults": [{"match": "x"}]})", "field 'faults[0].call': expected a string (missing)"},
      {R"({"faults": [{"call": "X", "skip": -1}]})",
       "field 'faults[0].skip': expected an integer from 0 to 2147483647"},
      {R"({"faults": [{"call": "X", "times": "1"}]})", "field 'faults[0].times': expected an integer"},
      {R"({"faults": [{"call": "X", "lastError": 1.5}]})", "field 'faults[0].lastError': expected an integer"},
      {R"({"faults": [{"call": "X", "result": "0"}]})", "field 'faults[0].result': expected an integer"},
  };
  for (const Case& c : cases) EXPECT_EQ(ErrorOf(c.json), File() + ": " + c.message) << c.json;
}

TEST_F(SimMachineTest, LoadMachine_UnknownField_IsRefusedWithItsName) {
  EXPECT_EQ(ErrorOf(R"({"printer": []})"),
            File() + ": field 'printer': unknown field (expected one of: os, computerName, userName, "
                     "exePath, profileDir, windowsDir, systemDir, tempDir, localHostName, clock, "
                     "timerIntervalMs, printers, defaultPrinter, printServers, drivers, ports, winIni, "
                     "registry, directory, eventLog, readOnly, faults, user, pointAndPrint, smtp, capture)");
  EXPECT_EQ(ErrorOf(R"({"os": {"platformID": 2}})"),
            File() + ": field 'os.platformID': unknown field (expected one of: platformId, "
                     "majorVersion, minorVersion, versionError, ansiCodePage)");
  EXPECT_EQ(ErrorOf(R"({"printers": [{"name": "a", "server": "\\\\S"}]})"),
            File() + ": field 'printers[0].server': unknown field (expected one of: name, serverName, "
                     "shareName, portName, driverName, comment, location, attributes)");
  EXPECT_EQ(ErrorOf(R"({"faults": [{"call": "X", "time": 1}]})"),
            File() + ": field 'faults[0].time': unknown field (expected one of: call, match, result, "
                     "lastError, skip, times)");
  EXPECT_EQ(ErrorOf(R"({"directory": {"domains": "x"}})"),
            File() + ": field 'directory.domains': unknown field (expected one of: domain, "
                     "namingContext, printQueues, queryError, ldap, sizeLimit)");
}

TEST_F(SimMachineTest, LoadMachine_SyntaxError_GivesLineAndColumn) {
  EXPECT_EQ(ErrorOf("{\n  \"os\": {\n    \"platformId\": 2,\n  }\n}\n"),
            File() + ": line 4, column 3: invalid JSON: syntax error while parsing object key - "
                     "unexpected '}'; expected string literal");
  EXPECT_EQ(ErrorOf("\n\n   [1, 2"),
            File() + ": line 3, column 9: invalid JSON: syntax error while parsing array - unexpected "
                     "end of input; expected ']'");
}

TEST_F(SimMachineTest, LoadMachine_TopLevelNotAnObject_IsRefused) {
  EXPECT_EQ(ErrorOf("[]"), File() + ": field '(top level)': expected an object");
}

TEST_F(SimMachineTest, LoadMachine_RegistryValueForms_GiveTheirBytes) {
  Write(R"({"registry": {"HKEY_LOCAL_MACHINE\\K": {
      "sz": "ab",
      "expand": {"type": 2, "data": "%T%"},
      "dword": {"type": 4, "data": 258},
      "negative": {"type": 4, "data": -1},
      "bigEndian": {"type": 5, "data": 258},
      "qword": {"type": 11, "data": 1},
      "multi": {"type": 7, "data": ["a", "bc"]},
      "bytes": {"type": 3, "data": [0, 255, 16]},
      "binaryText": {"type": 3, "data": "hi"},
      "none": {"type": 0}}}})");
  sim::Machine m = sim::LoadMachine(dir);
  ASSERT_EQ(m.registry.size(), 1u);
  const auto& v = m.registry[0].second;
  ASSERT_EQ(v.size(), 10u);
  using Bytes = std::vector<uint8_t>;
  EXPECT_EQ(v[0].second.type, 1u);
  EXPECT_EQ(v[0].second.data, (Bytes{'a', 'b', 0}));
  EXPECT_EQ(v[1].second.type, 2u);
  EXPECT_EQ(v[1].second.data, (Bytes{'%', 'T', '%', 0}));
  EXPECT_EQ(v[2].second.data, (Bytes{2, 1, 0, 0}));
  EXPECT_EQ(v[3].second.data, (Bytes{255, 255, 255, 255}));
  EXPECT_EQ(v[4].second.data, (Bytes{0, 0, 1, 2}));
  EXPECT_EQ(v[5].second.data, (Bytes{1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(v[6].second.data, (Bytes{'a', 0, 'b', 'c', 0, 0}));
  EXPECT_EQ(v[7].second.data, (Bytes{0, 255, 16}));
  EXPECT_EQ(v[8].second.data, (Bytes{'h', 'i'}));
  EXPECT_EQ(v[9].second.type, 0u);
  EXPECT_TRUE(v[9].second.data.empty());
}

TEST_F(SimMachineTest, SaveMachine_WritesEveryFieldBack_AndLoadsTheSame) {
  Write(R"({
    "os": {"platformId": 2, "majorVersion": 4, "minorVersion": 0},
    "computerName": null, "userName": null, "localHostName": "h", "clock": "2026-11-21T14:05:09",
    "printers": [{"name": "\\\\OLD\\laser", "serverName": "\\\\OLD", "shareName": "laser", "attributes": 16},
                 {"name": "Local", "serverName": null}],
    "defaultPrinter": null,
    "printServers": {"NEW": {"queues": ["laser"]}},
    "winIni": {"Windows": {"device": "Local,winspool,LPT1:"}},
    "registry": {"HKEY_CURRENT_USER\\X": {"V": "text", "D": {"type": 4, "data": 7},
                 "M": {"type": 7, "data": ["a", "b"]}, "B": {"type": 3, "data": [1, 2]},
                 "Odd": {"type": 1, "data": [104, 105]}}},
    "directory": {"domain": "d", "namingContext": "DC=d", "printQueues": [{"name": "S-q", "printShareName": ["q"]}],
                  "queryError": null, "ldap": "ldap://127.0.0.1:3890"},
    "eventLog": [{"source": "Zandolin", "type": 4, "category": 0, "id": 20001, "strings": ["x"], "data": "x"}],
    "readOnly": ["C:\\Deploy"],
    "faults": [{"call": "DeletePrinter", "match": "laser", "lastError": 5, "times": 1}]
  })");
  sim::Machine first = sim::LoadMachine(dir);
  sim::SaveMachine(dir, first);
  nlohmann::json saved = nlohmann::json::parse(Read());
  EXPECT_EQ(saved["registry"]["HKEY_CURRENT_USER\\X"]["V"], "text");
  EXPECT_EQ(saved["registry"]["HKEY_CURRENT_USER\\X"]["D"], (nlohmann::json{{"type", 4}, {"data", 7}}));
  EXPECT_EQ(saved["registry"]["HKEY_CURRENT_USER\\X"]["M"],
            (nlohmann::json{{"type", 7}, {"data", {"a", "b"}}}));
  EXPECT_EQ(saved["registry"]["HKEY_CURRENT_USER\\X"]["B"], (nlohmann::json{{"type", 3}, {"data", {1, 2}}}));
  // A REG_SZ without its NUL cannot be a plain string: its bytes stand as they are.
  EXPECT_EQ(saved["registry"]["HKEY_CURRENT_USER\\X"]["Odd"],
            (nlohmann::json{{"type", 1}, {"data", {104, 105}}}));
  EXPECT_EQ(saved["computerName"], nullptr);
  EXPECT_EQ(saved["printers"][1]["serverName"], nullptr);
  EXPECT_EQ(saved["clock"], "2026-11-21T14:05:09");
  EXPECT_EQ(saved["ports"], (nlohmann::json{"LPT1:", "FILE:"}));

  sim::Machine second = sim::LoadMachine(dir);
  sim::SaveMachine(dir, second);
  EXPECT_EQ(nlohmann::json::parse(Read()), saved);
  EXPECT_EQ(second.registry[0].second[4].second.data, (std::vector<uint8_t>{104, 105}));
  ASSERT_EQ(second.faults.size(), 1u);
  EXPECT_EQ(second.faults[0].times, std::optional<int>(1));
  EXPECT_EQ(second.directory->ldap, std::optional<std::string>("ldap://127.0.0.1:3890"));
}

TEST_F(SimMachineTest, LoadMachine_CaptureFields_DefaultsReadAndWrittenBack) {
  sim::Machine defaults = sim::LoadMachine(dir);
  EXPECT_EQ(defaults.ansiCodePage, 1252u);
  EXPECT_TRUE(defaults.isAdmin);
  EXPECT_TRUE(defaults.pointAndPrint.empty());
  EXPECT_FALSE(defaults.smtp.has_value());
  EXPECT_FALSE(defaults.capture.has_value());

  Write(R"({
    "capture": {"at": "2026-11-24T08:00:00", "version": "1.0.0", "notes": ["no print server was asked"]},
    "os": {"ansiCodePage": 932},
    "user": {"isAdmin": false},
    "pointAndPrint": {"RestrictDriverInstallationToAdministrators": 1, "ServerList": "NEW;NEW2"},
    "smtp": {"refuse": 3},
    "printServers": {"NEW": {"queues": ["laser", {"name": "color", "driver": "HP Universal Printing PCL 6"}]}},
    "directory": {"domain": "d", "sizeLimit": 0}
  })");
  sim::Machine m = sim::LoadMachine(dir);
  EXPECT_EQ(m.ansiCodePage, 932u);
  EXPECT_FALSE(m.isAdmin);
  ASSERT_EQ(m.pointAndPrint.size(), 2u);
  EXPECT_EQ(m.pointAndPrint[0].first, "RestrictDriverInstallationToAdministrators");
  EXPECT_EQ(m.pointAndPrint[0].second.type, static_cast<uint32_t>(REG_DWORD));
  EXPECT_EQ(m.pointAndPrint[0].second.data, (std::vector<uint8_t>{1, 0, 0, 0}));
  EXPECT_EQ(m.pointAndPrint[1].second.type, static_cast<uint32_t>(REG_SZ));
  ASSERT_TRUE(m.smtp.has_value());
  EXPECT_EQ(m.smtp->mode, sim::SmtpPeer::kRefuse);
  EXPECT_EQ(m.smtp->refuseStep, 3);
  ASSERT_TRUE(m.capture.has_value());
  EXPECT_EQ(m.capture->notes, std::vector<std::string>{"no print server was asked"});
  const auto& queues = m.printServers.at("NEW").queues;
  ASSERT_EQ(queues.size(), 2u);
  EXPECT_EQ(queues[0].name, "laser");
  EXPECT_FALSE(queues[0].driver.has_value());
  EXPECT_EQ(queues[1].name, "color");
  EXPECT_EQ(queues[1].driver, std::optional<std::string>("HP Universal Printing PCL 6"));
  EXPECT_EQ(m.directory->sizeLimit, 0u);

  sim::SaveMachine(dir, m);
  nlohmann::json saved = nlohmann::json::parse(Read());
  EXPECT_EQ(saved["capture"], (nlohmann::json{{"at", "2026-11-24T08:00:00"}, {"version", "1.0.0"},
                                              {"notes", {"no print server was asked"}}}));
  EXPECT_EQ(saved["os"]["ansiCodePage"], 932);
  EXPECT_EQ(saved["user"], (nlohmann::json{{"isAdmin", false}}));
  EXPECT_EQ(saved["pointAndPrint"], (nlohmann::json{{"RestrictDriverInstallationToAdministrators", 1},
                                                    {"ServerList", "NEW;NEW2"}}));
  EXPECT_EQ(saved["smtp"], (nlohmann::json{{"refuse", 3}}));
  EXPECT_EQ(saved["printServers"]["NEW"]["queues"],
            (nlohmann::json{"laser", {{"name", "color"}, {"driver", "HP Universal Printing PCL 6"}}}));
  EXPECT_EQ(saved["directory"]["sizeLimit"], 0);

  for (const char* mode : {"accept", "silent"}) {
    Write(std::string(R"({"smtp": ")") + mode + R"("})");
    sim::Machine peer = sim::LoadMachine(dir);
    sim::SaveMachine(dir, peer);
    EXPECT_EQ(nlohmann::json::parse(Read())["smtp"], mode);
  }
}

TEST_F(SimMachineTest, LoadMachine_CaptureFieldsWrong_NameTheFieldAndWhatWasExpected) {
  EXPECT_EQ(ErrorOf(R"({"user": {"isAdmin": 1}})"), File() + ": field 'user.isAdmin': expected true or false");
  EXPECT_EQ(ErrorOf(R"({"user": {"admin": true}})"),
            File() + ": field 'user.admin': unknown field (expected one of: isAdmin)");
  EXPECT_EQ(ErrorOf(R"({"smtp": "refuse"})"),
            File() + ": field 'smtp': expected \"accept\", \"silent\" or {\"refuse\": STEP} with STEP from 1 to 6");
  EXPECT_EQ(ErrorOf(R"({"smtp": {"refuse": 7}})"),
            File() + ": field 'smtp.refuse': expected an integer from 1 to 6");
  EXPECT_EQ(ErrorOf(R"({"printServers": {"NEW": {"queues": [{"driver": "x"}]}}})"),
            File() + ": field 'printServers.NEW.queues[0].name': expected a string (missing)");
  EXPECT_EQ(ErrorOf(R"({"printServers": {"NEW": {"queues": [{"name": "q", "drv": "x"}]}}})"),
            File() + ": field 'printServers.NEW.queues[0].drv': unknown field (expected one of: name, driver)");
  EXPECT_EQ(ErrorOf(R"({"capture": {"notes": "x"}})"), File() + ": field 'capture.notes': expected an array");
  EXPECT_EQ(ErrorOf(R"({"directory": {"sizeLimit": -1}})"),
            File() + ": field 'directory.sizeLimit': expected an integer from 0 to 4294967295");
  EXPECT_EQ(ErrorOf(R"({"os": {"ansiCodePage": "1252"}})"), File() + ": field 'os.ansiCodePage': expected an integer");
}

TEST_F(SimMachineTest, ClientLoad_BadMachineJson_ThrowsMachineError) {
  Write(R"({"os": {"platformId": "x"}})");
  try {
    sim::Client::Load(dir);
    ADD_FAILURE() << "loaded";
  } catch (const sim::MachineError& e) {
    EXPECT_EQ(e.message, File() + ": field 'os.platformId': expected an integer");
  }
}

// ---------------------------------------------------------------- input that is no machine.json

// Found by fuzz/fuzz_machine: the parser's out-of-range error escaped.
TEST_F(SimMachineTest, LoadMachine_NumberBeyondADouble_NamesItsPlaceWherever) {
  const std::string range = " is beyond the range of a double (expected a number from "
                            "-1.7976931348623157e308 to 1.7976931348623157e308)";
  EXPECT_EQ(ErrorOf("{\n  \"timerIntervalMs\": 1e400\n}\n"), File() + ": line 2, column 22: the number 1e400" + range);
  EXPECT_EQ(ErrorOf("[-1e663]"), File() + ": line 1, column 2: the number -1e663" + range);
  EXPECT_EQ(ErrorOf(R"({"os": {"platformId": 1e400}})"),
            File() + ": line 1, column 23: the number 1e400" + range);
  EXPECT_EQ(ErrorOf("{\n  \"unknownField\": [1, 2,\n    -1E+999]\n}"),
            File() + ": line 3, column 5: the number -1E+999" + range);
  EXPECT_EQ(ErrorOf(R"({"registry": {"HKCU\\X": {"V": {"type": 4, "data": 9.9e9999}}}})"),
            File() + ": line 1, column 52: the number 9.9e9999" + range);
  EXPECT_EQ(ErrorOf("1e400"), File() + ": line 1, column 1: the number 1e400" + range);
}

TEST_F(SimMachineTest, LoadMachine_FieldTwiceInAnObject_NamesTheField) {
  const std::string twice = "': stands twice in its object (expected each field once)";
  EXPECT_EQ(ErrorOf(R"({"os": {}, "os": {}})"), File() + ": field 'os" + twice);
  EXPECT_EQ(ErrorOf(R"({"printers": [{"name": "a"}, {"name": "b", "name": "c"}]})"),
            File() + ": field 'printers[1].name" + twice);
  EXPECT_EQ(ErrorOf(R"({"registry": {"HKCU\\X": {"V": "a", "V": "b"}}})"),
            File() + ": field 'registry.HKCU\\X.V" + twice);
  // Names that differ in case are two fields, as JSON has it.
  EXPECT_EQ(ErrorOf(R"({"winIni": {"Windows": {}, "windows": {}}})"), "(loaded)");
}

TEST_F(SimMachineTest, LoadMachine_TextThatIsNoUtf8OrHoldsNul_IsRefused) {
  EXPECT_EQ(ErrorOf("{\"userName\": \"J\xFCrgen\"}"),
            File() + ": line 1, column 16: invalid JSON: syntax error while parsing value - invalid string: "
                     "ill-formed UTF-8 byte; last read: '\"J\xFC'");
  EXPECT_EQ(ErrorOf(R"({"userName": "\ud800"})"),
            File() + ": line 1, column 21: invalid JSON: syntax error while parsing value - invalid string: "
                     "surrogate U+D800..U+DBFF must be followed by U+DC00..U+DFFF; last read: '\"\\ud800\"'");
  EXPECT_EQ(ErrorOf(R"({"userName": "a\u0000b"})"),
            File() + ": field 'userName': expected a string without NUL characters");
  EXPECT_EQ(ErrorOf(R"({"printServers": {"N\u0000": {}}})"),
            File() + ": field 'printServers.N\\u0000': expected a name without NUL characters");
  // A registry value and an event's data are bytes: NULs are theirs.
  EXPECT_EQ(ErrorOf(R"({"registry": {"HKCU\\X": {"V": "a\u0000b"}}, "eventLog": [{"data": "x\u0000"}]})"),
            "(loaded)");
}

TEST_F(SimMachineTest, LoadMachine_DeepNestingAndHugeNumbers_AreNamedNotFatal) {
  EXPECT_EQ(ErrorOf("{\"capture\": {\"notes\": " + std::string(200000, '[') + std::string(200000, ']') + "}}"),
            File() + ": field 'capture.notes[0]': expected a string");
  EXPECT_EQ(ErrorOf(std::string(200000, '[') + std::string(200000, ']')),
            File() + ": field '(top level)': expected an object");
  EXPECT_EQ(ErrorOf(R"({"timerIntervalMs": 18446744073709551616})"),
            File() + ": field 'timerIntervalMs': expected an integer");
  EXPECT_EQ(ErrorOf(R"({"os": {"majorVersion": 4294967296}})"),
            File() + ": field 'os.majorVersion': expected an integer from 0 to 4294967295");
  EXPECT_EQ(ErrorOf(R"({"faults": [{"call": "X", "skip": 1.5}]})"),
            File() + ": field 'faults[0].skip': expected an integer");
  EXPECT_EQ(ErrorOf(R"({"printers": [{"name": "x", "attributes": -1}]})"),
            File() + ": field 'printers[0].attributes': expected an integer from 0 to 4294967295");
}

TEST_F(SimMachineTest, LoadMachine_NoDocumentOrNoFile_IsNamed) {
  EXPECT_EQ(ErrorOf(""), File() + ": line 1, column 1: invalid JSON: syntax error while parsing value - "
                                  "unexpected end of input; expected '[', '{', or a literal");
  EXPECT_EQ(ErrorOf("{} {}"), File() + ": line 1, column 4: invalid JSON: syntax error while parsing value - "
                                       "unexpected '{'; expected end of input");
  fs::remove(dir / "machine.json");
  fs::create_directory(dir / "machine.json");
  try {
    sim::LoadMachine(dir);
    ADD_FAILURE() << "loaded";
  } catch (const sim::MachineError& e) {
    EXPECT_EQ(e.message, File() + ": is a folder (expected a file)");
  }
}

TEST_F(SimMachineTest, LoadMachine_CodePageNotServed_NamesTheServedOnes) {
  EXPECT_EQ(ErrorOf(R"({"os": {"ansiCodePage": 437}})"),
            File() + ": field 'os.ansiCodePage': expected an ANSI code page the simulated client serves: "
                     "874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258, 65001");
}

TEST_F(SimMachineTest, SaveMachine_FolderGone_IsAMachineError) {
  sim::Machine m;
  fs::path gone = dir / "gone";
  try {
    sim::SaveMachine(gone, m);
    ADD_FAILURE() << "saved";
  } catch (const sim::MachineError& e) {
    EXPECT_EQ(e.message, (gone / "machine.json").string() + ": cannot be written");
  }
}

}  // namespace

