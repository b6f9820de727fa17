#include "platform/sim/SimContext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using nlohmann::json;

sim::SimPrinter Connection(const std::string& server, const std::string& queue) {
  sim::SimPrinter p;
  p.name = "\\\\" + server + "\\" + queue;
  p.serverName = "\\\\" + server;
  p.shareName = queue;
  return p;
}

sim::SimPrinter Local(const std::string& name, const std::string& port = "LPT1:") {
  sim::SimPrinter p;
  p.name = name;
  p.portName = port;
  p.driverName = "Generic / Text Only";
  return p;
}

class SimSpoolerTest : public ::testing::Test {
 protected:
  void SetUp() override { sim::SetCurrent(&context); }
  void TearDown() override { sim::SetCurrent(nullptr); }

  platform::Spooler& spooler() { return sim::SpoolerService(); }
  sim::Machine& machine() { return context.machine; }
  DWORD lastError() const { return context.lastError; }

  HANDLE Open(const std::string& name) {
    std::string text = name;
    HANDLE handle = nullptr;
    EXPECT_TRUE(spooler().OpenPrinterA(text.data(), &handle, nullptr)) << name;
    return handle;
  }

  // GetPrinterA the way the engine calls it: sizing call, then the buffer.
  std::vector<uint8_t> Info(HANDLE handle) {
    DWORD needed = 0;
    EXPECT_FALSE(spooler().GetPrinterA(handle, 2, nullptr, 0, &needed));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, lastError());
    std::vector<uint8_t> buffer(needed);
    EXPECT_TRUE(spooler().GetPrinterA(handle, 2, buffer.data(), needed, &needed));
    EXPECT_EQ(0u, lastError());
    return buffer;
  }

  static PRINTER_INFO_2A Record(const std::vector<uint8_t>& buffer, size_t index = 0) {
    PRINTER_INFO_2A info;
    std::memcpy(&info, buffer.data() + index * sizeof info, sizeof info);
    return info;
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const sim::SimPrinter& p : context.machine.printers) names.push_back(p.name);
    return names;
  }

  sim::Fault& AddFault(const std::string& call, const std::string& match, int64_t result,
                       uint32_t error) {
    sim::Fault f;
    f.call = call;
    if (!match.empty()) f.match = match;
    f.result = result;
    f.lastError = error;
    machine().faults.push_back(f);
    return machine().faults.back();
  }

  sim::Context context;
};

TEST_F(SimSpoolerTest, UserPrinters_GivesTheDeviceNamesInListOrder) {
  machine().printers = {Connection("OLD", "laser"), Local("Fax"), Connection("OLD", "color")};
  std::vector<std::string> names = {"stale"};
  EXPECT_TRUE(spooler().UserPrinters(names));
  EXPECT_EQ((std::vector<std::string>{"\\\\OLD\\laser", "Fax", "\\\\OLD\\color"}), names);
}

TEST_F(SimSpoolerTest, OpenPrinterA_NameInAnotherCase_GivesAHandle) {
  machine().printers = {Connection("OLD", "laser")};
  context.lastError = 99;
  std::string name = "\\\\old\\LASER";
  HANDLE handle = nullptr;
  EXPECT_TRUE(spooler().OpenPrinterA(name.data(), &handle, nullptr));
  EXPECT_NE(nullptr, handle);
  EXPECT_EQ(0u, lastError());
}

TEST_F(SimSpoolerTest, OpenPrinterA_UnknownName_ClearsTheHandleAndLeaves1801) {
  machine().printers = {Connection("OLD", "laser")};
  HANDLE handle = Open("\\\\OLD\\laser");
  std::string name = "\\\\OLD\\missing";
  EXPECT_FALSE(spooler().OpenPrinterA(name.data(), &handle, nullptr));
  EXPECT_EQ(nullptr, handle);
  EXPECT_EQ(1801u, lastError());
  EXPECT_FALSE(spooler().OpenPrinterA(nullptr, &handle, nullptr));
  EXPECT_EQ(1801u, lastError());
}

TEST_F(SimSpoolerTest, GetPrinterA_SizingCall_Leaves122AndTheNeededSize) {
  sim::SimPrinter p = Connection("OLD", "laser");
  p.driverName = "HP";
  p.comment = "c";
  p.location = "l";
  machine().printers = {p};
  HANDLE handle = Open("\\\\OLD\\laser");
  DWORD needed = 0;
  EXPECT_FALSE(spooler().GetPrinterA(handle, 2, nullptr, 0, &needed));
  EXPECT_EQ(122u, lastError());
  // The record, then "\\OLD" "\\OLD\laser" "laser" "" "HP" "c" "l" "" "winprint"
  // "RAW" "", each with its NUL.
  EXPECT_EQ(sizeof(PRINTER_INFO_2A) + 6 + 12 + 6 + 1 + 3 + 2 + 2 + 1 + 9 + 4 + 1, needed);

  std::vector<uint8_t> small(needed - 1);
  DWORD again = 0;
  EXPECT_FALSE(spooler().GetPrinterA(handle, 2, small.data(), needed - 1, &again));
  EXPECT_EQ(122u, lastError());
  EXPECT_EQ(needed, again);
}

TEST_F(SimSpoolerTest, GetPrinterA_Buffer_HoldsTheRecordAndThenTheStringsItPointsTo) {
  sim::SimPrinter p = Connection("OLD", "laser");
  p.portName = "Ne00:";
  p.driverName = "HP LaserJet";
  p.comment = "2nd floor";
  p.location = "Room 12";
  p.attributes = 0x210;
  machine().printers = {p};
  std::vector<uint8_t> buffer = Info(Open("\\\\OLD\\laser"));
  PRINTER_INFO_2A info = Record(buffer);

  const char* begin = reinterpret_cast<const char*>(buffer.data());
  const char* strings = begin + sizeof(PRINTER_INFO_2A);
  EXPECT_EQ(strings, info.pServerName);
  EXPECT_STREQ("\\\\OLD", info.pServerName);
  EXPECT_EQ(strings + 6, info.pPrinterName);
  EXPECT_STREQ("\\\\OLD\\laser", info.pPrinterName);
  EXPECT_STREQ("laser", info.pShareName);
  EXPECT_STREQ("Ne00:", info.pPortName);
  EXPECT_STREQ("HP LaserJet", info.pDriverName);
  EXPECT_STREQ("2nd floor", info.pComment);
  EXPECT_STREQ("Room 12", info.pLocation);
  EXPECT_EQ(nullptr, info.pDevMode);
  EXPECT_STREQ("", info.pSepFile);
  EXPECT_STREQ("winprint", info.pPrintProcessor);
  EXPECT_STREQ("RAW", info.pDatatype);
  EXPECT_STREQ("", info.pParameters);
  EXPECT_EQ(begin + buffer.size() - 1, info.pParameters);
  EXPECT_EQ(nullptr, info.pSecurityDescriptor);
  EXPECT_EQ(0x210u, info.Attributes);
  EXPECT_EQ(1u, info.Priority);
}

TEST_F(SimSpoolerTest, GetPrinterA_LocalPrinter_NullOrEmptyServerName) {
  sim::SimPrinter withNull = Local("Fax");
  sim::SimPrinter withEmpty = Local("PDF");
  withEmpty.serverName = "";
  machine().printers = {withNull, withEmpty};
  PRINTER_INFO_2A nullServer = Record(Info(Open("Fax")));
  EXPECT_EQ(nullptr, nullServer.pServerName);
  std::vector<uint8_t> buffer = Info(Open("PDF"));
  PRINTER_INFO_2A emptyServer = Record(buffer);
  EXPECT_EQ(reinterpret_cast<char*>(buffer.data()) + sizeof(PRINTER_INFO_2A), emptyServer.pServerName);
  EXPECT_STREQ("", emptyServer.pServerName);
}

TEST_F(SimSpoolerTest, GetPrinterA_OtherLevelOrBadHandle_FailsWithItsCode) {
  machine().printers = {Local("Fax")};
  HANDLE handle = Open("Fax");
  DWORD needed = 0;
  EXPECT_FALSE(spooler().GetPrinterA(handle, 1, nullptr, 0, &needed));
  EXPECT_EQ(124u, lastError());
  EXPECT_FALSE(spooler().GetPrinterA(nullptr, 2, nullptr, 0, &needed));
  EXPECT_EQ(6u, lastError());
}

TEST_F(SimSpoolerTest, ClosePrinter_HandleClosedOrNeverOpened_Leaves6) {
  machine().printers = {Local("Fax")};
  HANDLE handle = Open("Fax");
  EXPECT_TRUE(spooler().ClosePrinter(handle));
  EXPECT_EQ(0u, lastError());
  EXPECT_FALSE(spooler().ClosePrinter(handle));
  EXPECT_EQ(6u, lastError());
  EXPECT_FALSE(spooler().ClosePrinter(nullptr));
  EXPECT_EQ(6u, lastError());
}

TEST_F(SimSpoolerTest, SetPrinterA_Windows9x_DefaultBitMovesToThisPrinter) {
  machine().platformId = 1;
  machine().majorVersion = 4;
  sim::SimPrinter laser = Local("laser", "\\\\SRV\\laser");
  laser.attributes = 0x40;
  sim::SimPrinter fax = Local("Fax");
  fax.attributes = 0x44;
  machine().printers = {fax, laser};
  HANDLE handle = Open("LASER");
  std::vector<uint8_t> buffer = Info(handle);
  PRINTER_INFO_2A info = Record(buffer);
  info.Attributes |= PRINTER_ATTRIBUTE_DEFAULT;
  std::memcpy(buffer.data(), &info, sizeof info);

  EXPECT_TRUE(spooler().SetPrinterA(handle, 2, buffer.data(), 0));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ(0x40u, machine().printers[0].attributes);
  EXPECT_EQ(0x44u, machine().printers[1].attributes);
  EXPECT_EQ(std::optional<std::string>("laser"), context.CurrentDefault());
  EXPECT_EQ(json::parse(R"([{"call":"SetPrinterA","args":["LASER",2,68,0],"result":1,"lastError":0}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, SetPrinterA_WindowsNT_TakesTheAttributesOnly) {
  sim::SimPrinter fax = Local("Fax");
  machine().printers = {fax};
  machine().defaultPrinter = "Other";
  HANDLE handle = Open("Fax");
  std::vector<uint8_t> buffer = Info(handle);
  PRINTER_INFO_2A info = Record(buffer);
  info.Attributes = 0x244;
  std::memcpy(buffer.data(), &info, sizeof info);
  EXPECT_TRUE(spooler().SetPrinterA(handle, 2, buffer.data(), 0));
  EXPECT_EQ(0x244u, machine().printers[0].attributes);
  EXPECT_EQ(std::optional<std::string>("Other"), context.CurrentDefault());
  EXPECT_FALSE(spooler().SetPrinterA(handle, 2, buffer.data(), 1));
  EXPECT_EQ(87u, lastError());
}

TEST_F(SimSpoolerTest, EnumPrintersA_DefaultOnWindows9x_TwoPassesGiveThePrinter) {
  machine().platformId = 1;
  sim::SimPrinter laser = Local("laser");
  laser.attributes = 0x44;
  machine().printers = {Local("Fax"), laser};
  DWORD needed = 0, returned = 7;
  EXPECT_FALSE(spooler().EnumPrintersA(PRINTER_ENUM_DEFAULT, nullptr, 2, nullptr, 0, &needed, &returned));
  EXPECT_EQ(122u, lastError());
  EXPECT_EQ(0u, returned);
  EXPECT_EQ(sizeof(PRINTER_INFO_2A) + 6 + 1 + 6 + 20 + 1 + 1 + 1 + 9 + 4 + 1, needed);
  std::vector<uint8_t> buffer(needed);
  EXPECT_TRUE(spooler().EnumPrintersA(PRINTER_ENUM_DEFAULT, nullptr, 2, buffer.data(), needed, &needed,
                                      &returned));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ(1u, returned);
  EXPECT_STREQ("laser", Record(buffer).pPrinterName);
}

TEST_F(SimSpoolerTest, EnumPrintersA_NoDefaultOnWindows9x_GivesNothingAndSucceeds) {
  machine().platformId = 1;
  machine().printers = {Local("Fax")};
  DWORD needed = 5, returned = 5;
  EXPECT_TRUE(spooler().EnumPrintersA(PRINTER_ENUM_DEFAULT, nullptr, 2, nullptr, 0, &needed, &returned));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ(0u, needed);
  EXPECT_EQ(0u, returned);
}

TEST_F(SimSpoolerTest, EnumPrintersA_LocalAndConnections_RecordsFirstThenStrings) {
  machine().printers = {Connection("OLD", "laser"), Local("Fax")};
  DWORD needed = 0, returned = 0;
  EXPECT_FALSE(spooler().EnumPrintersA(PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS, nullptr, 2,
                                       nullptr, 0, &needed, &returned));
  EXPECT_EQ(122u, lastError());
  std::vector<uint8_t> buffer(needed);
  EXPECT_TRUE(spooler().EnumPrintersA(PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS, nullptr, 2,
                                      buffer.data(), needed, &needed, &returned));
  EXPECT_EQ(2u, returned);
  PRINTER_INFO_2A first = Record(buffer, 0), second = Record(buffer, 1);
  EXPECT_EQ(reinterpret_cast<char*>(buffer.data()) + 2 * sizeof(PRINTER_INFO_2A), first.pServerName);
  EXPECT_STREQ("\\\\OLD\\laser", first.pPrinterName);
  EXPECT_EQ(nullptr, second.pServerName);
  EXPECT_STREQ("Fax", second.pPrinterName);

  EXPECT_FALSE(spooler().EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(124u, lastError());
}

TEST_F(SimSpoolerTest, EnumPrintersA_LocalOnly_LeavesTheConnectionsOut) {
  machine().printers = {Connection("OLD", "laser"), Local("Fax")};
  DWORD needed = 0, returned = 0;
  spooler().EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &returned);
  std::vector<uint8_t> buffer(needed);
  EXPECT_TRUE(spooler().EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer.data(), needed, &needed,
                                      &returned));
  EXPECT_EQ(1u, returned);
  EXPECT_STREQ("Fax", Record(buffer).pPrinterName);
}

TEST_F(SimSpoolerTest, GetDefaultPrinterA_Windows2000On_GivesTheNameWithItsSize) {
  machine().printers = {Connection("OLD", "laser")};
  machine().defaultPrinter = "\\\\OLD\\laser";
  std::string buffer(1024, ' ');
  DWORD size = 1024;
  EXPECT_TRUE(spooler().GetDefaultPrinterA(buffer.data(), &size));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ(12u, size);
  EXPECT_STREQ("\\\\OLD\\laser", buffer.c_str());

  char small[4];
  size = 4;
  EXPECT_FALSE(spooler().GetDefaultPrinterA(small, &size));
  EXPECT_EQ(122u, lastError());
  EXPECT_EQ(12u, size);
}

TEST_F(SimSpoolerTest, GetDefaultPrinterA_NoDefault_Leaves2) {
  machine().printers = {Connection("OLD", "laser")};
  std::string buffer(1024, ' ');
  DWORD size = 1024;
  EXPECT_FALSE(spooler().GetDefaultPrinterA(buffer.data(), &size));
  EXPECT_EQ(2u, lastError());
  EXPECT_EQ(std::string(1024, ' '), buffer);
}

TEST_F(SimSpoolerTest, GetDefaultPrinterA_WindowsNT4_ReadsTheDeviceKey) {
  machine().majorVersion = 4;
  machine().defaultPrinter = "ignored";
  machine().winIni = {{"Windows", {{"device", "laser,winspool,Ne00:"}}}};
  std::string buffer(1024, ' ');
  DWORD size = 1024;
  EXPECT_TRUE(spooler().GetDefaultPrinterA(buffer.data(), &size));
  EXPECT_STREQ("laser", buffer.c_str());
}

TEST_F(SimSpoolerTest, SetDefaultPrinterA_UnknownPrinter_Leaves1801AndIsRecorded) {
  machine().printers = {Connection("OLD", "laser")};
  machine().defaultPrinter = "\\\\OLD\\laser";
  EXPECT_FALSE(spooler().SetDefaultPrinterA("\\\\NEW\\laser"));
  EXPECT_EQ(1801u, lastError());
  EXPECT_EQ(std::optional<std::string>("\\\\OLD\\laser"), machine().defaultPrinter);
  EXPECT_EQ(json::parse(R"([{"call":"SetDefaultPrinterA","args":["\\\\NEW\\laser"],"result":0,"lastError":1801}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, SetDefaultPrinterA_EachGeneration_KeepsTheDefaultItsOwnWay) {
  sim::SimPrinter laser = Local("laser", "Ne00:");
  machine().printers = {Local("Fax"), laser};

  EXPECT_TRUE(spooler().SetDefaultPrinterA("LASER"));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ(std::optional<std::string>("laser"), machine().defaultPrinter);

  machine().majorVersion = 4;
  EXPECT_TRUE(spooler().SetDefaultPrinterA("laser"));
  ASSERT_EQ(1u, machine().winIni.size());
  EXPECT_EQ("Windows", machine().winIni[0].first);
  EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"device", "laser,winspool,Ne00:"}}),
            machine().winIni[0].second);
  EXPECT_EQ(std::optional<std::string>("laser"), context.CurrentDefault());

  machine().platformId = 1;
  machine().printers[0].attributes = 0x4;
  EXPECT_TRUE(spooler().SetDefaultPrinterA("laser"));
  EXPECT_EQ(0u, machine().printers[0].attributes);
  EXPECT_EQ(0x4u, machine().printers[1].attributes);
}

TEST_F(SimSpoolerTest, SetDefaultPrinterA_NoName_KeepsADefaultThatIsSet) {
  machine().printers = {Local("Fax"), Local("laser")};
  machine().defaultPrinter = "laser";
  EXPECT_TRUE(spooler().SetDefaultPrinterA(nullptr));
  EXPECT_EQ(std::optional<std::string>("laser"), machine().defaultPrinter);
  machine().defaultPrinter.reset();
  EXPECT_TRUE(spooler().SetDefaultPrinterA(""));
  EXPECT_EQ(std::optional<std::string>("Fax"), machine().defaultPrinter);
}

TEST_F(SimSpoolerTest, AddPrinterConnectionA_QueueOfAKnownServer_AddsTheConnectionAtTheEnd) {
  machine().printers = {Local("Fax")};
  machine().printServers["NEW"].queues = {{"laser"}, {"color"}};
  std::string name = "\\\\new\\Laser";
  EXPECT_TRUE(spooler().AddPrinterConnectionA(name.data()));
  EXPECT_EQ(0u, lastError());
  ASSERT_EQ(2u, machine().printers.size());
  const sim::SimPrinter& added = machine().printers[1];
  EXPECT_EQ("\\\\new\\Laser", added.name);
  EXPECT_EQ(std::optional<std::string>("\\\\new"), added.serverName);
  EXPECT_EQ("Laser", added.shareName);
  EXPECT_EQ("", added.portName);
  EXPECT_EQ(0u, added.attributes);
  EXPECT_EQ(json::parse(R"([{"call":"AddPrinterConnectionA","args":["\\\\new\\Laser"],"result":1,"lastError":0}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, AddPrinterConnectionA_ConnectionTheUserHas_SucceedsAndChangesNothing) {
  machine().printServers["NEW"].queues = {{"laser"}};
  machine().printers = {Connection("NEW", "laser"), Local("Fax")};
  std::string name = "\\\\NEW\\LASER";
  EXPECT_TRUE(spooler().AddPrinterConnectionA(name.data()));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ((std::vector<std::string>{"\\\\NEW\\laser", "Fax"}), Names());
}

TEST_F(SimSpoolerTest, AddPrinterConnectionA_UnknownServerQueueOrForm_Leaves1801) {
  machine().printServers["NEW"].queues = {{"laser"}};
  for (std::string name : {"\\\\OTHER\\laser", "\\\\NEW\\color", "NEW\\laser", "\\\\NEW", "\\\\NEW\\",
                           "\\\\\\laser", "\\\\NEW\\laser\\x", ""}) {
    EXPECT_FALSE(spooler().AddPrinterConnectionA(name.data())) << name;
    EXPECT_EQ(1801u, lastError()) << name;
  }
  EXPECT_TRUE(machine().printers.empty());
  EXPECT_EQ(8u, context.spoolerCalls.size());
}

TEST_F(SimSpoolerTest, DeletePrinterConnectionA_ConnectionInAnotherCase_RemovesIt) {
  machine().printers = {Connection("OLD", "laser"), Connection("OLD", "color")};
  std::string name = "\\\\old\\LASER";
  EXPECT_TRUE(spooler().DeletePrinterConnectionA(name.data()));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ((std::vector<std::string>{"\\\\OLD\\color"}), Names());
  EXPECT_EQ(json::parse(R"([{"call":"DeletePrinterConnectionA","args":["\\\\old\\LASER"],"result":1,"lastError":0}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, DeletePrinterConnectionA_NoSuchConnection_Leaves1801) {
  machine().printers = {Local("\\\\OLD\\laser")};
  std::string name = "\\\\OLD\\laser";
  EXPECT_FALSE(spooler().DeletePrinterConnectionA(name.data()));
  EXPECT_EQ(1801u, lastError());
  EXPECT_EQ(1u, machine().printers.size());
}

TEST_F(SimSpoolerTest, DeletePrinterConnectionA_TheDefaultPrinter_LeavesNoDefault) {
  machine().printers = {Connection("OLD", "laser"), Local("Fax")};
  machine().defaultPrinter = "\\\\OLD\\laser";
  std::string name = "\\\\OLD\\laser";
  EXPECT_TRUE(spooler().DeletePrinterConnectionA(name.data()));
  EXPECT_EQ(std::nullopt, machine().defaultPrinter);
}

TEST_F(SimSpoolerTest, DeletePrinter_OpenHandle_RemovesThePrinterAndTheHandleStillCloses) {
  machine().printers = {Local("Fax"), Local("PDF")};
  std::string name = "fax";
  PRINTER_DEFAULTSA defaults{nullptr, nullptr, PRINTER_ALL_ACCESS};
  HANDLE handle = nullptr;
  ASSERT_TRUE(spooler().OpenPrinterA(name.data(), &handle, &defaults));
  EXPECT_TRUE(spooler().DeletePrinter(handle));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ((std::vector<std::string>{"PDF"}), Names());
  DWORD needed = 0;
  EXPECT_FALSE(spooler().GetPrinterA(handle, 2, nullptr, 0, &needed));
  EXPECT_EQ(1905u, lastError());
  EXPECT_FALSE(spooler().DeletePrinter(handle));
  EXPECT_EQ(1905u, lastError());
  EXPECT_TRUE(spooler().ClosePrinter(handle));
  EXPECT_EQ(json::parse(R"([{"call":"DeletePrinter","args":["fax"],"result":1,"lastError":0},
                            {"call":"DeletePrinter","args":["fax"],"result":0,"lastError":1905}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, AddPrinterDriverA_NewAndInstalledDriver_AddsOnceThen1795) {
  machine().drivers = {"Generic / Text Only"};
  std::string name = "HP LaserJet 4", environment = "Windows 4.0", path = "C:\\Windows\\system32\\hp.dll";
  DRIVER_INFO_2A info{1024, name.data(), environment.data(), path.data(), path.data(), path.data()};
  EXPECT_TRUE(spooler().AddPrinterDriverA(nullptr, 2, reinterpret_cast<LPBYTE>(&info)));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ((std::vector<std::string>{"Generic / Text Only", "HP LaserJet 4"}), machine().drivers);
  EXPECT_FALSE(spooler().AddPrinterDriverA(nullptr, 2, reinterpret_cast<LPBYTE>(&info)));
  EXPECT_EQ(1795u, lastError());
  EXPECT_EQ(2u, machine().drivers.size());
  EXPECT_EQ(json::parse(R"([{"call":"AddPrinterDriverA","args":[null,2,"HP LaserJet 4"],"result":1,"lastError":0},
                            {"call":"AddPrinterDriverA","args":[null,2,"HP LaserJet 4"],"result":0,"lastError":1795}])"),
            context.spoolerCalls);
}

class SimSpoolerAddPrinterTest : public SimSpoolerTest {
 protected:
  HANDLE Add(const std::string& printer, const std::string& port, const std::string& driver) {
    name = printer;
    portName = port;
    driverName = driver;
    PRINTER_INFO_2A info;
    std::memset(&info, 0, sizeof info);
    info.pPrinterName = name.data();
    info.pPortName = portName.data();
    info.pDriverName = driverName.data();
    info.pComment = comment.data();
    info.pPrintProcessor = processor.data();
    info.pDatatype = datatype.data();
    info.Attributes = PRINTER_ATTRIBUTE_LOCAL;
    return spooler().AddPrinterA(nullptr, 2, reinterpret_cast<LPBYTE>(&info));
  }
  std::string name, portName, driverName, comment = "Adding using Zandolin", processor = "WinPrint",
                                               datatype = "RAW";
};

TEST_F(SimSpoolerAddPrinterTest, AddPrinterA_KnownDriverAndPort_AddsALocalPrinterAndGivesAHandle) {
  machine().drivers = {"HP LaserJet 4"};
  HANDLE handle = Add("Accounting", "lpt1:", "hp laserjet 4");
  EXPECT_NE(nullptr, handle);
  EXPECT_EQ(0u, lastError());
  ASSERT_EQ(1u, machine().printers.size());
  const sim::SimPrinter& p = machine().printers[0];
  EXPECT_EQ("Accounting", p.name);
  EXPECT_EQ(std::nullopt, p.serverName);
  EXPECT_EQ("lpt1:", p.portName);
  EXPECT_EQ("hp laserjet 4", p.driverName);
  EXPECT_EQ("Adding using Zandolin", p.comment);
  EXPECT_EQ(0x40u, p.attributes);
  EXPECT_STREQ("Accounting", Record(Info(handle)).pPrinterName);
  EXPECT_TRUE(spooler().ClosePrinter(handle));
  EXPECT_EQ(json::parse(R"([{"call":"AddPrinterA","args":[null,2,"Accounting","lpt1:","hp laserjet 4"],"result":1,"lastError":0}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerAddPrinterTest, AddPrinterA_MissingDriverPortOrExistingName_FailsWithItsCode) {
  machine().drivers = {"HP LaserJet 4"};
  machine().printers = {Local("Accounting")};
  EXPECT_EQ(nullptr, Add("Sales", "LPT1:", "Unknown driver"));
  EXPECT_EQ(1797u, lastError());
  EXPECT_EQ(nullptr, Add("Sales", "\\\\SRV\\sales", "HP LaserJet 4"));
  EXPECT_EQ(1796u, lastError());
  EXPECT_EQ(nullptr, Add("accounting", "LPT1:", "HP LaserJet 4"));
  EXPECT_EQ(1802u, lastError());
  EXPECT_EQ((std::vector<std::string>{"Accounting"}), Names());
  EXPECT_EQ("Generic / Text Only", machine().printers[0].driverName);
}

TEST_F(SimSpoolerTest, AddPortA_NewPort_AddsTheThirdArgument) {
  std::string port = "\\\\SRV\\laser";
  EXPECT_TRUE(spooler().AddPortA(nullptr, nullptr, port.data()));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ((std::vector<std::string>{"LPT1:", "FILE:", "\\\\SRV\\laser"}), machine().ports);
  std::string again = "\\\\srv\\LASER";
  EXPECT_FALSE(spooler().AddPortA(nullptr, nullptr, again.data()));
  EXPECT_EQ(183u, lastError());
  EXPECT_EQ(3u, machine().ports.size());
  EXPECT_EQ(json::parse(R"([{"call":"AddPortA","args":[null,"\\\\SRV\\laser"],"result":1,"lastError":0},
                            {"call":"AddPortA","args":[null,"\\\\srv\\LASER"],"result":0,"lastError":183}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, Fault_SkipOne_FailsTheSecondGetPrinterAOnThatPrinterOnly) {
  machine().printers = {Connection("OLD", "laser"), Connection("OLD", "color")};
  sim::Fault& fault = AddFault("GetPrinterA", "\\\\OLD\\LASER", 0, 5);
  fault.skip = 1;
  fault.times = 1;
  HANDLE color = Open("\\\\OLD\\color");
  HANDLE laser = Open("\\\\OLD\\laser");
  DWORD needed = 0;
  EXPECT_FALSE(spooler().GetPrinterA(color, 2, nullptr, 0, &needed));
  EXPECT_EQ(122u, lastError());
  EXPECT_FALSE(spooler().GetPrinterA(laser, 2, nullptr, 0, &needed));
  EXPECT_EQ(122u, lastError());
  std::vector<uint8_t> buffer(needed);
  EXPECT_FALSE(spooler().GetPrinterA(laser, 2, buffer.data(), needed, &needed));
  EXPECT_EQ(5u, lastError());
  EXPECT_TRUE(spooler().GetPrinterA(laser, 2, buffer.data(), needed, &needed));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ(3, machine().faults[0].seen);
  EXPECT_EQ(1, machine().faults[0].fired);
}

TEST_F(SimSpoolerTest, Fault_OnOpenPrinterA_GivesNoHandle) {
  machine().printers = {Local("Fax")};
  AddFault("OpenPrinterA", "", 0, 5);
  std::string name = "Fax";
  HANDLE handle = reinterpret_cast<HANDLE>(0x1234);
  EXPECT_FALSE(spooler().OpenPrinterA(name.data(), &handle, nullptr));
  EXPECT_EQ(nullptr, handle);
  EXPECT_EQ(5u, lastError());
}

TEST_F(SimSpoolerTest, Fault_OnAChange_DoesNothingButIsRecordedWithItsResult) {
  machine().printers = {Connection("OLD", "laser")};
  AddFault("DeletePrinterConnectionA", "\\\\old\\laser", 1, 1801);
  std::string name = "\\\\OLD\\laser";
  EXPECT_TRUE(spooler().DeletePrinterConnectionA(name.data()));
  EXPECT_EQ(1801u, lastError());
  EXPECT_EQ(1u, machine().printers.size());
  EXPECT_EQ(json::parse(R"([{"call":"DeletePrinterConnectionA","args":["\\\\OLD\\laser"],"result":1,"lastError":1801}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, Fault_OnUserPrinters_GivesNoList) {
  machine().printers = {Local("Fax")};
  AddFault("UserPrinters", "", 0, 0);
  std::vector<std::string> names;
  EXPECT_FALSE(spooler().UserPrinters(names));
  EXPECT_TRUE(names.empty());
}

TEST_F(SimSpoolerTest, Fault_MatchingTheDriverName_FailsAddPrinterDriverA) {
  AddFault("AddPrinterDriverA", "HP LaserJet 4", 0, 5);
  std::string name = "HP LaserJet 4";
  DRIVER_INFO_2A info{1024, name.data(), nullptr, nullptr, nullptr, nullptr};
  EXPECT_FALSE(spooler().AddPrinterDriverA(nullptr, 2, reinterpret_cast<LPBYTE>(&info)));
  EXPECT_EQ(5u, lastError());
  EXPECT_TRUE(machine().drivers.empty());
}

// ---------------------------------------------------------------------------
// What zandolin-capture asks: a print server's queues, drivers, ports

TEST_F(SimSpoolerTest, EnumPrintersA_NameOfAServer_ListsItsQueuesWithTheirDrivers) {
  machine().printServers["NEW"].queues = {{"laser", std::nullopt}, {"color", "HP Universal Printing PCL 6"}};
  std::string name = "\\\\new";
  DWORD needed = 0, returned = 7;
  EXPECT_FALSE(spooler().EnumPrintersA(PRINTER_ENUM_NAME, name.data(), 2, nullptr, 0, &needed, &returned));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, lastError());
  EXPECT_EQ(0u, returned);
  std::vector<uint8_t> buffer(needed);
  EXPECT_TRUE(spooler().EnumPrintersA(PRINTER_ENUM_NAME, name.data(), 2, buffer.data(), needed, &needed,
                                      &returned));
  ASSERT_EQ(2u, returned);
  PRINTER_INFO_2A laser = Record(buffer, 0), color = Record(buffer, 1);
  EXPECT_STREQ("\\\\NEW", laser.pServerName);
  EXPECT_STREQ("\\\\NEW\\laser", laser.pPrinterName);
  EXPECT_STREQ("laser", laser.pShareName);
  EXPECT_STREQ("", laser.pDriverName);
  EXPECT_EQ(static_cast<DWORD>(PRINTER_ATTRIBUTE_SHARED), laser.Attributes);
  EXPECT_STREQ("\\\\NEW\\color", color.pPrinterName);
  EXPECT_STREQ("color", color.pShareName);
  EXPECT_STREQ("HP Universal Printing PCL 6", color.pDriverName);
}

TEST_F(SimSpoolerTest, EnumPrintersA_NameOfAnUnknownServer_FailsAsAServerThatDoesNotAnswer) {
  machine().printServers["NEW"].queues = {{"laser", std::nullopt}};
  std::string unknown = "\\\\GONE", notServer = "\\\\NEW\\laser";
  DWORD needed = 0, returned = 0;
  EXPECT_FALSE(spooler().EnumPrintersA(PRINTER_ENUM_NAME, unknown.data(), 2, nullptr, 0, &needed, &returned));
  EXPECT_EQ(static_cast<DWORD>(RPC_S_SERVER_UNAVAILABLE), lastError());
  EXPECT_FALSE(spooler().EnumPrintersA(PRINTER_ENUM_NAME, notServer.data(), 2, nullptr, 0, &needed, &returned));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_NAME), lastError());
}

TEST_F(SimSpoolerTest, EnumPrinterDriversAndPorts_ListTheClientsOwnAtLevel1) {
  machine().drivers = {"Generic / Text Only", "HP LaserJet 4"};
  machine().ports = {"LPT1:", "FILE:", "IP_10.0.0.5"};
  DWORD needed = 0, returned = 0;
  EXPECT_FALSE(spooler().EnumPrinterDriversA(nullptr, nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, lastError());
  EXPECT_EQ(2 * sizeof(DRIVER_INFO_1A) + 20 + 14, needed);
  std::vector<uint8_t> drivers(needed);
  EXPECT_TRUE(spooler().EnumPrinterDriversA(nullptr, nullptr, 1, drivers.data(), needed, &needed, &returned));
  ASSERT_EQ(2u, returned);
  const auto* d = reinterpret_cast<const DRIVER_INFO_1A*>(drivers.data());
  EXPECT_STREQ("Generic / Text Only", d[0].pName);
  EXPECT_STREQ("HP LaserJet 4", d[1].pName);

  EXPECT_FALSE(spooler().EnumPortsA(nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, lastError());
  EXPECT_EQ(3 * sizeof(PORT_INFO_1A) + 6 + 6 + 12, needed);
  std::vector<uint8_t> ports(needed);
  EXPECT_TRUE(spooler().EnumPortsA(nullptr, 1, ports.data(), needed, &needed, &returned));
  ASSERT_EQ(3u, returned);
  const auto* p = reinterpret_cast<const PORT_INFO_1A*>(ports.data());
  EXPECT_STREQ("LPT1:", p[0].pName);
  EXPECT_STREQ("FILE:", p[1].pName);
  EXPECT_STREQ("IP_10.0.0.5", p[2].pName);

  EXPECT_FALSE(spooler().EnumPortsA(nullptr, 2, nullptr, 0, &needed, &returned));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_LEVEL), lastError());
  std::string server = "\\\\NEW";
  EXPECT_FALSE(spooler().EnumPrinterDriversA(server.data(), nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_NAME), lastError());
}

TEST_F(SimSpoolerTest, EnumPrinterDriversA_NoDrivers_SucceedsWithNothing) {
  DWORD needed = 5, returned = 5;
  EXPECT_TRUE(spooler().EnumPrinterDriversA(nullptr, nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(0u, needed);
  EXPECT_EQ(0u, returned);
}

}  // namespace

namespace {

// ---------------------------------------------------------------- a standard user

class SimSpoolerStandardUserTest : public SimSpoolerAddPrinterTest {
 protected:
  void SetUp() override {
    SimSpoolerAddPrinterTest::SetUp();
    machine().isAdmin = false;
  }

  // OpenPrinterA with the access asked for; the handle, or null.
  HANDLE OpenWith(const std::string& name, DWORD access) {
    std::string text = name;
    PRINTER_DEFAULTSA defaults{nullptr, nullptr, access};
    HANDLE handle = reinterpret_cast<HANDLE>(1);
    BOOL opened = spooler().OpenPrinterA(text.data(), &handle, &defaults);
    EXPECT_EQ(opened != 0, handle != nullptr) << name;
    return handle;
  }
};

TEST_F(SimSpoolerStandardUserTest, OpenPrinterA_LocalPrinterWithFullAccess_Refused5) {
  machine().printers = {Local("Fax"), Connection("SRV", "laser")};
  EXPECT_EQ(nullptr, OpenWith("Fax", PRINTER_ALL_ACCESS));
  EXPECT_EQ(5u, lastError());
  EXPECT_EQ(nullptr, OpenWith("Fax", 0x10000));   // DELETE alone
  EXPECT_EQ(5u, lastError());
  EXPECT_EQ(nullptr, OpenWith("Fax", 0x10000000));   // GENERIC_ALL
  EXPECT_EQ(5u, lastError());
  // The right to print is everyone's; a connection's rights are its server's.
  EXPECT_NE(nullptr, Open("Fax"));
  EXPECT_NE(nullptr, OpenWith("Fax", 0x00000008));
  EXPECT_NE(nullptr, OpenWith("Fax", 0x80000000));   // GENERIC_READ
  EXPECT_NE(nullptr, OpenWith("Fax", 0x02000000));   // MAXIMUM_ALLOWED: the right to print
  EXPECT_NE(nullptr, OpenWith("\\\\SRV\\laser", PRINTER_ALL_ACCESS));
  EXPECT_EQ(0u, lastError());
}

TEST_F(SimSpoolerStandardUserTest, DeletePrinter_HandleWithTheRightToPrintOnly_Refused5) {
  machine().printers = {Local("Fax")};
  HANDLE handle = OpenWith("Fax", 0x02000000);
  EXPECT_FALSE(spooler().DeletePrinter(handle));
  EXPECT_EQ(5u, lastError());
  EXPECT_EQ((std::vector<std::string>{"Fax"}), Names());
  EXPECT_TRUE(spooler().ClosePrinter(handle));
  EXPECT_EQ(json::parse(R"([{"call":"DeletePrinter","args":["Fax"],"result":0,"lastError":5}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerStandardUserTest, AddDriverPortAndPrinter_Refused5) {
  std::string driver = "HP LaserJet 4", environment = "Windows 4.0", path = "C:\\Windows\\system32\\hp.dll";
  DRIVER_INFO_2A info{1024, driver.data(), environment.data(), path.data(), path.data(), path.data()};
  EXPECT_FALSE(spooler().AddPrinterDriverA(nullptr, 2, reinterpret_cast<LPBYTE>(&info)));
  EXPECT_EQ(5u, lastError());
  std::string port = "\\\\SRV\\laser";
  EXPECT_FALSE(spooler().AddPortA(nullptr, nullptr, port.data()));
  EXPECT_EQ(5u, lastError());
  machine().drivers = {"HP LaserJet 4"};
  EXPECT_EQ(nullptr, Add("Accounting", "LPT1:", "HP LaserJet 4"));
  EXPECT_EQ(5u, lastError());
  // Arguments are looked at first.
  EXPECT_FALSE(spooler().AddPrinterDriverA(nullptr, 3, reinterpret_cast<LPBYTE>(&info)));
  EXPECT_EQ(124u, lastError());
  EXPECT_TRUE(machine().printers.empty());
  EXPECT_EQ((std::vector<std::string>{"LPT1:", "FILE:"}), machine().ports);
  EXPECT_EQ((std::vector<std::string>{"HP LaserJet 4"}), machine().drivers);
}

TEST_F(SimSpoolerStandardUserTest, Windows9x_ChecksNoRights) {
  machine().platformId = 1;
  machine().printers = {Local("Fax")};
  HANDLE handle = OpenWith("Fax", PRINTER_ALL_ACCESS);
  ASSERT_NE(nullptr, handle);
  EXPECT_TRUE(spooler().DeletePrinter(handle));
  std::string port = "\\\\SRV\\laser";
  EXPECT_TRUE(spooler().AddPortA(nullptr, nullptr, port.data()));
}

// ---------------------------------------------------------------- Point and Print

class SimSpoolerPointAndPrintTest : public SimSpoolerTest {
 protected:
  void SetUp() override {
    SimSpoolerTest::SetUp();
    machine().printServers["NEW"].queues = {{"laser", std::string("HP Universal Printing PCL 6")}, {"color"}};
  }

  BOOL Connect(const std::string& name) {
    std::string text = name;
    return spooler().AddPrinterConnectionA(text.data());
  }

  void Policy(const std::string& name, uint32_t value) {
    sim::RegistryValue dword;
    dword.type = REG_DWORD;
    dword.data = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
                  static_cast<uint8_t>(value >> 24)};
    machine().pointAndPrint.emplace_back(name, dword);
  }
};

TEST_F(SimSpoolerPointAndPrintTest, StandardUser_DriverNotInstalled_3019AndNothingAdded) {
  machine().isAdmin = false;
  EXPECT_FALSE(Connect("\\\\NEW\\laser"));
  EXPECT_EQ(3019u, lastError());
  EXPECT_TRUE(machine().printers.empty());
  EXPECT_TRUE(machine().drivers.empty());
  // A queue with no driver named connects as before.
  EXPECT_TRUE(Connect("\\\\NEW\\color"));
  // With the driver on the client the connection needs no install.
  machine().drivers = {"hp universal printing pcl 6"};
  EXPECT_TRUE(Connect("\\\\NEW\\laser"));
  EXPECT_EQ(0u, lastError());
  EXPECT_EQ("HP Universal Printing PCL 6", machine().printers.back().driverName);
  EXPECT_EQ(json::parse(R"([
      {"call":"AddPrinterConnectionA","args":["\\\\NEW\\laser"],"result":0,"lastError":3019},
      {"call":"AddPrinterConnectionA","args":["\\\\NEW\\color"],"result":1,"lastError":0},
      {"call":"AddPrinterConnectionA","args":["\\\\NEW\\laser"],"result":1,"lastError":0}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerPointAndPrintTest, Administrator_TheServersDriverIsInstalledWithTheConnection) {
  EXPECT_TRUE(Connect("\\\\NEW\\laser"));
  EXPECT_EQ((std::vector<std::string>{"HP Universal Printing PCL 6"}), machine().drivers);
  EXPECT_EQ("HP Universal Printing PCL 6", machine().printers[0].driverName);
}

TEST_F(SimSpoolerPointAndPrintTest, StandardUser_PolicyAllowsInstallsWithoutAPrompt) {
  machine().isAdmin = false;
  Policy("RestrictDriverInstallationToAdministrators", 0);
  Policy("NoWarningNoElevationOnInstall", 1);
  EXPECT_TRUE(Connect("\\\\NEW\\laser"));
  EXPECT_EQ((std::vector<std::string>{"HP Universal Printing PCL 6"}), machine().drivers);
}

TEST_F(SimSpoolerPointAndPrintTest, StandardUser_PolicyInTheRegistryKey_CountsAsPointAndPrint) {
  machine().isAdmin = false;
  sim::RegistryValue zero, one;
  zero.type = one.type = REG_DWORD;
  zero.data = {0, 0, 0, 0};
  one.data = {1, 0, 0, 0};
  machine().registry.push_back(
      {"hkey_local_machine\\software\\policies\\microsoft\\windows nt\\printers\\pointandprint",
       {{"RestrictDriverInstallationToAdministrators", zero}, {"NoWarningNoElevationOnInstall", one}}});
  EXPECT_TRUE(Connect("\\\\NEW\\laser"));
  // pointAndPrint names the same key and wins over it.
  machine().printers.clear();
  machine().drivers.clear();
  Policy("restrictdriverinstallationtoadministrators", 1);
  EXPECT_FALSE(Connect("\\\\NEW\\laser"));
  EXPECT_EQ(3019u, lastError());
}

TEST_F(SimSpoolerPointAndPrintTest, StandardUser_BeforeWindowsVista_NoRestriction) {
  machine().isAdmin = false;
  machine().majorVersion = 5;
  EXPECT_TRUE(Connect("\\\\NEW\\laser"));
  machine().printers.clear();
  machine().drivers.clear();
  machine().platformId = 1;
  machine().majorVersion = 4;
  EXPECT_TRUE(Connect("\\\\NEW\\laser"));
  EXPECT_EQ((std::vector<std::string>{"HP Universal Printing PCL 6"}), machine().drivers);
}

}  // namespace

// ---------------------------------------------------------------- code page

TEST_F(SimSpoolerTest, CodePage1252_NamesReachTheEngineInItsBytesAndComeBack) {
  machine().printers = {Connection("OLD", "Drücker")};
  machine().printServers["NEW"].queues = {{"Drücker", std::nullopt}, {"日本", std::nullopt}};
  std::vector<std::string> names;
  ASSERT_TRUE(spooler().UserPrinters(names));
  EXPECT_EQ(std::vector<std::string>{"\\\\OLD\\Dr\xFC" "cker"}, names);
  const std::vector<uint8_t> buffer = Info(Open(names[0]));
  const PRINTER_INFO_2A info = Record(buffer);
  EXPECT_STREQ("\\\\OLD\\Dr\xFC" "cker", info.pPrinterName);
  EXPECT_STREQ("Dr\xFC" "cker", info.pShareName);

  std::string moved = "\\\\NEW\\Dr\xFC" "cker";
  EXPECT_TRUE(spooler().AddPrinterConnectionA(moved.data()));
  EXPECT_EQ("\\\\NEW\\Drücker", machine().printers.back().name);
  // The queue 日本 has no name in code page 1252: the engine can only ask for "??".
  std::string japanese = "\\\\NEW\\??";
  EXPECT_FALSE(spooler().AddPrinterConnectionA(japanese.data()));
  EXPECT_EQ(ERROR_INVALID_PRINTER_NAME, lastError());
  EXPECT_EQ(json::parse(R"([{"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\Drücker"], "result": 1, "lastError": 0},
      {"call": "AddPrinterConnectionA", "args": ["\\\\NEW\\??"], "result": 0, "lastError": 1801}])"),
            context.spoolerCalls);
}

TEST_F(SimSpoolerTest, CodePage1252_DriversPortsAndAServersQueuesInItsBytes) {
  machine().drivers = {"Drücker-Treiber"};
  machine().ports = {"Büro:"};
  machine().printServers["SRV-MÜ"].queues = {{"Drücker", "Treiber ü"}};
  DWORD needed = 0, returned = 0;
  EXPECT_FALSE(spooler().EnumPrinterDriversA(nullptr, nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(sizeof(DRIVER_INFO_1A) + 16, needed);
  std::vector<uint8_t> drivers(needed);
  ASSERT_TRUE(spooler().EnumPrinterDriversA(nullptr, nullptr, 1, drivers.data(), needed, &needed, &returned));
  EXPECT_STREQ("Dr\xFC" "cker-Treiber", reinterpret_cast<const DRIVER_INFO_1A*>(drivers.data())->pName);
  EXPECT_FALSE(spooler().EnumPortsA(nullptr, 1, nullptr, 0, &needed, &returned));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, lastError());
  EXPECT_EQ(sizeof(PORT_INFO_1A) + 6, needed);
  std::vector<uint8_t> ports(needed);
  ASSERT_TRUE(spooler().EnumPortsA(nullptr, 1, ports.data(), needed, &needed, &returned));
  EXPECT_STREQ("B\xFCro:", reinterpret_cast<const PORT_INFO_1A*>(ports.data())->pName);

  std::string server = "\\\\srv-m\xDC";
  EXPECT_FALSE(spooler().EnumPrintersA(PRINTER_ENUM_NAME, server.data(), 2, nullptr, 0, &needed, &returned));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, lastError());
  std::vector<uint8_t> buffer(needed);
  ASSERT_TRUE(spooler().EnumPrintersA(PRINTER_ENUM_NAME, server.data(), 2, buffer.data(), needed, &needed,
                                      &returned));
  ASSERT_EQ(1u, returned);
  EXPECT_STREQ("\\\\SRV-M\xDC\\Dr\xFC" "cker", Record(buffer, 0).pPrinterName);
  EXPECT_STREQ("Treiber \xFC", Record(buffer, 0).pDriverName);
}

TEST_F(SimSpoolerTest, CodePage932_ABestFitNameNoLongerOpens) {
  machine().ansiCodePage = 932;
  machine().printers = {Connection("OLD", "Drücker"), Connection("OLD", "日本")};
  machine().defaultPrinter = "\\\\OLD\\日本";
  std::vector<std::string> names;
  ASSERT_TRUE(spooler().UserPrinters(names));
  EXPECT_EQ((std::vector<std::string>{"\\\\OLD\\Drucker", "\\\\OLD\\\x93\xFA\x96\x7B"}), names);
  std::string bestFit = names[0];
  HANDLE handle = nullptr;
  EXPECT_FALSE(spooler().OpenPrinterA(bestFit.data(), &handle, nullptr));
  EXPECT_EQ(ERROR_INVALID_PRINTER_NAME, lastError());
  EXPECT_STREQ("\\\\OLD\\\x93\xFA\x96\x7B", Record(Info(Open(names[1]))).pPrinterName);
  char buffer[32];
  DWORD size = sizeof buffer;
  ASSERT_TRUE(spooler().GetDefaultPrinterA(buffer, &size));
  EXPECT_EQ(11u, size);   // ten bytes and the NUL
  EXPECT_STREQ("\\\\OLD\\\x93\xFA\x96\x7B", buffer);
}
