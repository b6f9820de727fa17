// The printer layer on the simulated client: the inventory, removing and
// adding one printer, installing a printer with its driver, and reading and
// setting the default printer in each generation of the platform.

#include "printers/modPrinterAPIs.h"

#include "ScenarioHelpers.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "notification/modNotification.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

using nlohmann::json;

namespace {

using scenario::Client;
using scenario::Log;
using scenario::Names;
using scenario::Report;

// Printer records with their attributes, which the default printer and the
// driver installation read.
json Net(const std::string& server, const std::string& queue, uint32_t attributes = 0) {
  return {{"name", "\\\\" + server + "\\" + queue},
          {"serverName", "\\\\" + server},
          {"shareName", queue},
          {"attributes", attributes}};
}

json Local(const std::string& name, uint32_t attributes = 0) {
  return {{"name", name}, {"serverName", nullptr}, {"portName", "LPT1:"},
          {"attributes", attributes}};
}

std::string Text(const char* pointer) { return pointer ? std::string(pointer) : "(null)"; }

// Records the spooler calls the engine makes, with the arguments that
// matter, and hands each on to the simulated spooler.
class RecordingSpooler : public platform::Spooler {
 public:
  explicit RecordingSpooler(platform::Spooler* inner) : inner_(inner) {}
  std::vector<std::string> calls;
  DRIVER_INFO_2A lastDriver{};
  std::vector<std::string> lastDriverTexts;
  std::vector<std::string> lastPrinterTexts;
  DWORD lastPrinterAttributes = 0;

  bool UserPrinters(std::vector<std::string>& names) override {
    calls.push_back("UserPrinters");
    return inner_->UserPrinters(names);
  }
  BOOL OpenPrinterA(LPSTR name, HANDLE* printer, PRINTER_DEFAULTSA* defaults) override {
    std::string call = "OpenPrinterA " + Text(name);
    if (defaults) {
      call += " access " + std::to_string(defaults->DesiredAccess) +
              (defaults->pDatatype == nullptr && defaults->pDevMode == nullptr ? " nulls" : "");
    }
    calls.push_back(call);
    return inner_->OpenPrinterA(name, printer, defaults);
  }
  BOOL ClosePrinter(HANDLE printer) override {
    calls.push_back("ClosePrinter");
    return inner_->ClosePrinter(printer);
  }
  BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size,
                   LPDWORD needed) override {
    calls.push_back("GetPrinterA " + std::to_string(level) + (buffer ? " buffer " : " null ") +
                    std::to_string(size));
    return inner_->GetPrinterA(printer, level, buffer, size, needed);
  }
  BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) override {
    PRINTER_INFO_2A info;
    std::memcpy(&info, buffer, sizeof info);
    calls.push_back("SetPrinterA " + std::to_string(level) + " attributes " +
                    std::to_string(info.Attributes) + " command " + std::to_string(command));
    return inner_->SetPrinterA(printer, level, buffer, command);
  }
  BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size,
                     LPDWORD needed, LPDWORD returned) override {
    calls.push_back("EnumPrintersA " + std::to_string(flags) + " " + Text(name) + " " +
                    std::to_string(level) + (buffer ? " buffer " : " null ") +
                    std::to_string(size));
    return inner_->EnumPrintersA(flags, name, level, buffer, size, needed, returned);
  }
  BOOL GetDefaultPrinterA(LPSTR buffer, LPDWORD size) override {
    std::string blanks(buffer, *size);
    calls.push_back("GetDefaultPrinterA " + std::to_string(*size) +
                    (blanks == std::string(*size, ' ') ? " blanks" : " not blanks"));
    return inner_->GetDefaultPrinterA(buffer, size);
  }
  BOOL SetDefaultPrinterA(LPCSTR name) override {
    calls.push_back("SetDefaultPrinterA " + Text(name));
    return inner_->SetDefaultPrinterA(name);
  }
  BOOL AddPrinterConnectionA(LPSTR name) override {
    calls.push_back("AddPrinterConnectionA " + Text(name));
    return inner_->AddPrinterConnectionA(name);
  }
  BOOL DeletePrinterConnectionA(LPSTR name) override {
    calls.push_back("DeletePrinterConnectionA " + Text(name));
    return inner_->DeletePrinterConnectionA(name);
  }
  BOOL DeletePrinter(HANDLE printer) override {
    calls.push_back("DeletePrinter");
    return inner_->DeletePrinter(printer);
  }
  BOOL AddPrinterDriverA(LPSTR name, DWORD level, LPBYTE info) override {
    DRIVER_INFO_2A driver;
    std::memcpy(&driver, info, sizeof driver);
    lastDriverTexts = {std::to_string(driver.cVersion), Text(driver.pName),
                       Text(driver.pEnvironment), Text(driver.pDriverPath),
                       Text(driver.pDataFile), Text(driver.pConfigFile)};
    calls.push_back("AddPrinterDriverA " + Text(name) + " " + std::to_string(level));
    return inner_->AddPrinterDriverA(name, level, info);
  }
  HANDLE AddPrinterA(LPSTR name, DWORD level, LPBYTE info) override {
    PRINTER_INFO_2A printer;
    std::memcpy(&printer, info, sizeof printer);
    lastPrinterTexts = {Text(printer.pServerName),   Text(printer.pPrinterName),
                        Text(printer.pShareName),    Text(printer.pPortName),
                        Text(printer.pDriverName),   Text(printer.pComment),
                        Text(printer.pLocation),     Text(printer.pSepFile),
                        Text(printer.pPrintProcessor), Text(printer.pDatatype),
                        Text(printer.pParameters)};
    lastPrinterAttributes = printer.Attributes;
    calls.push_back("AddPrinterA " + Text(name) + " " + std::to_string(level));
    return inner_->AddPrinterA(name, level, info);
  }
  BOOL AddPortA(LPSTR name, HWND window, LPSTR monitor) override {
    calls.push_back("AddPortA " + Text(name) + (window ? " window " : " no window ") +
                    Text(monitor));
    return inner_->AddPortA(name, window, monitor);
  }
  BOOL EnumPrinterDriversA(LPSTR name, LPSTR environment, DWORD level, LPBYTE buffer, DWORD size,
                           LPDWORD needed, LPDWORD returned) override {
    return inner_->EnumPrinterDriversA(name, environment, level, buffer, size, needed, returned);
  }
  BOOL EnumPortsA(LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                  LPDWORD returned) override {
    return inner_->EnumPortsA(name, level, buffer, size, needed, returned);
  }

 private:
  platform::Spooler* inner_;
};

// Records the version and system folder requests and the file copies.
class RecordingSystem : public platform::System {
 public:
  explicit RecordingSystem(platform::System* inner) : inner_(inner) {}
  std::vector<std::string> calls;

  DWORD GetLastError() override { return inner_->GetLastError(); }
  void SetLastError(DWORD code) override { inner_->SetLastError(code); }
  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    calls.push_back("GetVersionExA " + std::to_string(info->dwOSVersionInfoSize));
    return inner_->GetVersionExA(info);
  }
  UINT GetSystemDirectoryA(LPSTR buffer, UINT size) override {
    std::string before(buffer, size);
    calls.push_back("GetSystemDirectoryA " + std::to_string(size) +
                    (before == std::string(size, ' ') ? " blanks" : " not blanks"));
    return inner_->GetSystemDirectoryA(buffer, size);
  }
  UINT GetWindowsDirectoryA(LPSTR buffer, UINT size) override {
    return inner_->GetWindowsDirectoryA(buffer, size);
  }
  DWORD GetFullPathNameA(LPCSTR name, DWORD size, LPSTR buffer, LPSTR* filePart) override {
    return inner_->GetFullPathNameA(name, size, buffer, filePart);
  }
  UINT GetACP() override { return inner_->GetACP(); }
  BOOL IsUserAnAdmin() override { return inner_->IsUserAnAdmin(); }
  DWORD GetTempPathA(DWORD size, LPSTR buffer) override { return inner_->GetTempPathA(size, buffer); }
  BOOL GetUserNameA(LPSTR buffer, LPDWORD size) override { return inner_->GetUserNameA(buffer, size); }
  HANDLE GetCurrentProcess() override { return inner_->GetCurrentProcess(); }
  BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) override {
    return inner_->OpenProcessToken(process, access, token);
  }
  BOOL GetUserProfileDirectoryA(HANDLE token, LPSTR dir, LPDWORD size) override {
    return inner_->GetUserProfileDirectoryA(token, dir, size);
  }
  platform::Failure CreateNetworkObject() override { return inner_->CreateNetworkObject(); }
  platform::Failure NetworkComputerName(std::string& name) override {
    return inner_->NetworkComputerName(name);
  }
  std::string CommandLine() override { return inner_->CommandLine(); }
  std::string AppPath() override { return inner_->AppPath(); }
  std::u16string AnsiToUtf16(const std::string& text) override { return inner_->AnsiToUtf16(text); }

 private:
  platform::System* inner_;
};

class RecordingFiles : public platform::Files {
 public:
  explicit RecordingFiles(platform::Files* inner) : inner_(inner) {}
  std::vector<std::string> copies;

  std::string FirstFile(const std::string& pattern) override { return inner_->FirstFile(pattern); }
  platform::Failure ReadText(const std::string& path, std::string& content) override {
    return inner_->ReadText(path, content);
  }
  platform::Failure AppendText(const std::string& path, const std::string& content) override {
    return inner_->AppendText(path, content);
  }
  platform::Failure ReplaceText(const std::string& path, const std::string& content) override {
    return inner_->ReplaceText(path, content);
  }
  platform::Failure WriteBinary(const std::string& path, const std::vector<uint8_t>& bytes) override {
    return inner_->WriteBinary(path, bytes);
  }
  platform::Failure FileCopy(const std::string& source, const std::string& target) override {
    copies.push_back(source + " -> " + target);
    return inner_->FileCopy(source, target);
  }
  DWORD GetFileAttributesA(LPCSTR name) override { return inner_->GetFileAttributesA(name); }

 private:
  platform::Files* inner_;
};

class PrinterAPIsTest : public SimFixture {
 protected:
  // Installs the client for direct calls: the log on, no failure so far,
  // and the platform wrapped so that the calls can be looked at.
  void Prepare() {
    Install();
    INIDocument.DebugOn = true;
    OperationsSucceeded = true;
    AbortStatus = false;
    gOutcomeText.clear();
    gDebugBuffer.clear();
    original_ = platform::Services();
    spooler_ = std::make_unique<RecordingSpooler>(original_.spooler);
    system_ = std::make_unique<RecordingSystem>(original_.system);
    files_ = std::make_unique<RecordingFiles>(original_.files);
    platform::ServiceSet wrapped = original_;
    wrapped.spooler = spooler_.get();
    wrapped.system = system_.get();
    wrapped.files = files_.get();
    platform::SetServices(wrapped);
    wrapped_ = true;
  }

  void TearDown() override {
    if (wrapped_) platform::SetServices(original_);
    SimFixture::TearDown();
  }

  std::vector<std::string>& SpoolerCalls() { return spooler_->calls; }
  std::vector<std::string>& SystemCalls() { return system_->calls; }

  // Builds the client with these printers and runs GetClientPrinters.
  void Inventory(const json& printers, bool report = true) {
    machine["printers"] = printers;
    Prepare();
    GetClientPrinters(report);
  }

  static std::string ProfileValue(const char* section, const char* key) {
    std::string buffer(1024, '\0');
    DWORD length = Sys().profile->GetProfileStringA(section, key, "", buffer.data(), 1024);
    return buffer.substr(0, length);
  }

  std::unique_ptr<RecordingSpooler> spooler_;
  std::unique_ptr<RecordingSystem> system_;
  std::unique_ptr<RecordingFiles> files_;
  platform::ServiceSet original_;
  bool wrapped_ = false;
};

using scenario::kHeader;
const std::string kBlanks1024(1024, ' ');

// ---------------------------------------------------------------------------
// The inventory

TEST_F(PrinterAPIsTest, GetClientPrinters_NoPrinters_HeaderAloneAndBothListsAtSlotZero) {
  Inventory(json::array());
  EXPECT_EQ(gOutcomeText, Report({kHeader}));
  EXPECT_EQ(gDebugBuffer,
            Log({">> Getting client's list of printers <<", ">> * ----- My Printers ----- * <<"}));
  EXPECT_EQ(UBound(gClientPrinters), 0);
  EXPECT_EQ(UBound(gClientLocalPrinters), 0);
}

TEST_F(PrinterAPIsTest, GetClientPrinters_NetworkAndLocal_FilesEachInItsListWithAllFields) {
  json laser = Net("OLD", "laser");
  laser["portName"] = "Ne00:";
  laser["driverName"] = "HP Universal";
  laser["comment"] = "second floor";
  laser["location"] = "Room 12";
  json nullServer = Local("Desk Printer");
  json emptyServer = Local("Label Printer");
  emptyServer["serverName"] = "";
  Inventory(json::array({laser, nullServer, emptyServer, Net("NEW", "color")}));

  ASSERT_EQ(UBound(gClientPrinters), 2);
  const ClientPrinter& first = gClientPrinters[1];
  EXPECT_EQ(first.ServerName, "\\\\OLD");
  EXPECT_EQ(first.PrinterName, "\\\\OLD\\laser");
  EXPECT_EQ(first.QueueName, "laser");
  EXPECT_EQ(first.ShareName, "laser");
  EXPECT_EQ(first.PortName, "Ne00:");
  EXPECT_EQ(first.DriverName, "HP Universal");
  EXPECT_EQ(first.Comment, "second floor");
  EXPECT_EQ(first.Location, "Room 12");
  EXPECT_EQ(gClientPrinters[2].PrinterName, "\\\\NEW\\color");
  EXPECT_EQ(gClientPrinters[0].PrinterName, "");

  ASSERT_EQ(UBound(gClientLocalPrinters), 2);
  EXPECT_EQ(gClientLocalPrinters[1].PrinterName, "Desk Printer");
  EXPECT_EQ(gClientLocalPrinters[1].ServerName, "");
  EXPECT_EQ(gClientLocalPrinters[1].QueueName, "");
  EXPECT_EQ(gClientLocalPrinters[1].PortName, "LPT1:");
  EXPECT_EQ(gClientLocalPrinters[2].PrinterName, "Label Printer");
  EXPECT_EQ(gClientLocalPrinters[2].QueueName, "");

  EXPECT_EQ(gOutcomeText, Report({kHeader, "\\\\OLD\\laser (\\\\OLD)", "Local Printer: Desk Printer",
                                  "Local Printer: Label Printer", "\\\\NEW\\color (\\\\NEW)"}));
  EXPECT_EQ(gDebugBuffer, Log({">> Getting client's list of printers <<",
                               ">> * ----- My Printers ----- * <<",
                               ">> Found networked printer: \\\\OLD\\laser (\\\\OLD)",
                               ">> Found local printer: Desk Printer",
                               ">> Found local printer: Label Printer",
                               ">> Found networked printer: \\\\NEW\\color (\\\\NEW)"}));
}

TEST_F(PrinterAPIsTest, GetClientPrinters_OnePrinter_OpensSizesReadsAndClosesWithExactBuffer) {
  Inventory(json::array({Net("OLD", "laser")}));
  ASSERT_EQ(SpoolerCalls().size(), 5u);
  EXPECT_EQ(SpoolerCalls()[0], "UserPrinters");
  EXPECT_EQ(SpoolerCalls()[1], "OpenPrinterA \\\\OLD\\laser");
  EXPECT_EQ(SpoolerCalls()[2], "GetPrinterA 2 null 0");
  // The second call gets a buffer of exactly the size the first one asked for.
  const std::string second = SpoolerCalls()[3];
  ASSERT_EQ(second.rfind("GetPrinterA 2 buffer ", 0), 0u) << second;
  DWORD needed = 0;
  HANDLE printer = nullptr;
  std::string name = "\\\\OLD\\laser";
  Sys().spooler->OpenPrinterA(name.data(), &printer, nullptr);
  Sys().spooler->GetPrinterA(printer, 2, nullptr, 0, &needed);
  Sys().spooler->ClosePrinter(printer);
  EXPECT_EQ(second, "GetPrinterA 2 buffer " + std::to_string(needed));
  EXPECT_EQ(SpoolerCalls()[4], "ClosePrinter");
}

TEST_F(PrinterAPIsTest, GetClientPrinters_QueueName_TakesTextBehindFirstBackslashFromThirdCharacter) {
  json noSlash = {{"name", "\\\\OLDlaser"}, {"serverName", "\\\\OLD"}};
  json trailing = {{"name", "\\\\srv\\"}, {"serverName", "\\\\srv"}};
  json deep = {{"name", "\\\\srv\\a\\b"}, {"serverName", "\\\\srv"}};
  json plain = {{"name", "laser"}, {"serverName", "\\\\srv"}};
  json tiny = {{"name", "a"}, {"serverName", "\\\\srv"}};
  json third = {{"name", "ab\\c"}, {"serverName", "\\\\srv"}};
  Inventory(json::array({noSlash, trailing, deep, plain, tiny, third}));
  ASSERT_EQ(UBound(gClientPrinters), 6);
  EXPECT_EQ(gClientPrinters[1].QueueName, "\\\\OLDlaser");
  EXPECT_EQ(gClientPrinters[2].QueueName, "");
  EXPECT_EQ(gClientPrinters[3].QueueName, "a\\b");
  EXPECT_EQ(gClientPrinters[4].QueueName, "laser");
  EXPECT_EQ(gClientPrinters[5].QueueName, "a");
  EXPECT_EQ(gClientPrinters[6].QueueName, "c");
}

TEST_F(PrinterAPIsTest, GetClientPrinters_LongNamesWithBlanksAndCommas_GoThroughWhole) {
  const std::string queue = std::string(3000, 'q') + " with, commas ,and blanks ";
  const std::string local = "Local, " + std::string(5000, 'L') + " end";
  Inventory(json::array({Net("OLD", queue), Local(local)}));
  ASSERT_EQ(UBound(gClientPrinters), 1);
  EXPECT_EQ(gClientPrinters[1].PrinterName, "\\\\OLD\\" + queue);
  EXPECT_EQ(gClientPrinters[1].QueueName, queue);
  ASSERT_EQ(UBound(gClientLocalPrinters), 1);
  EXPECT_EQ(gClientLocalPrinters[1].PrinterName, local);
  EXPECT_EQ(gOutcomeText, Report({kHeader, "\\\\OLD\\" + queue + " (\\\\OLD)",
                                  "Local Printer: " + local}));
}

TEST_F(PrinterAPIsTest, GetClientPrinters_PrinterNotOpened_RowOneWithoutSystemErrorAndRunGoesOn) {
  machine["faults"] = json::array(
      {{{"call", "OpenPrinterA"}, {"match", "\\\\OLD\\gone"}, {"result", 0}, {"lastError", 1801}}});
  Inventory(json::array({Net("OLD", "gone"), Net("OLD", "laser")}));
  ASSERT_EQ(UBound(gClientPrinters), 1);
  EXPECT_EQ(gClientPrinters[1].PrinterName, "\\\\OLD\\laser");
  EXPECT_EQ(UBound(gClientLocalPrinters), 0);
  EXPECT_EQ(gOutcomeText, Report({kHeader, "Error getting handle to printer: \\\\OLD\\gone",
                                  "\\\\OLD\\laser (\\\\OLD)"}));
  EXPECT_EQ(gDebugBuffer, Log({">> Getting client's list of printers <<",
                               ">> * ----- My Printers ----- * <<",
                               "ERROR: Getting client printer (no handle): \\\\OLD\\gone",
                               ">> Found networked printer: \\\\OLD\\laser (\\\\OLD)"}));
  EXPECT_TRUE(OperationsSucceeded);
  EXPECT_FALSE(AbortStatus);
  // No handle: nothing to close for the first printer.
  EXPECT_EQ(SpoolerCalls()[1], "OpenPrinterA \\\\OLD\\gone");
  EXPECT_EQ(SpoolerCalls()[2], "OpenPrinterA \\\\OLD\\laser");
}

TEST_F(PrinterAPIsTest, GetClientPrinters_MiddlePrinterNotOpened_OnlyItIsSkippedAndNothingClosedForIt) {
  machine["faults"] = json::array(
      {{{"call", "OpenPrinterA"}, {"match", "\\\\OLD\\b"}, {"result", 0}, {"lastError", 1801}}});
  Inventory(json::array({Net("OLD", "a"), Net("OLD", "b"), Net("OLD", "c")}));
  EXPECT_EQ(gOutcomeText, Report({kHeader, "\\\\OLD\\a (\\\\OLD)",
                                  "Error getting handle to printer: \\\\OLD\\b",
                                  "\\\\OLD\\c (\\\\OLD)"}));
  ASSERT_EQ(SpoolerCalls().size(), 10u);
  EXPECT_EQ(SpoolerCalls()[4], "ClosePrinter");
  EXPECT_EQ(SpoolerCalls()[5], "OpenPrinterA \\\\OLD\\b");
  EXPECT_EQ(SpoolerCalls()[6], "OpenPrinterA \\\\OLD\\c");
  ASSERT_EQ(UBound(gClientPrinters), 2);
  EXPECT_EQ(gClientPrinters[2].QueueName, "c");
}

TEST_F(PrinterAPIsTest, GetClientPrinters_SizingFails_RowTwoWithItsErrorAndPrinterClosed) {
  machine["faults"] = json::array(
      {{{"call", "GetPrinterA"}, {"match", "\\\\OLD\\laser"}, {"result", 0}, {"lastError", 5}}});
  Inventory(json::array({Net("OLD", "laser"), Local("Desk")}));
  EXPECT_EQ(UBound(gClientPrinters), 0);
  EXPECT_EQ(UBound(gClientLocalPrinters), 1);
  EXPECT_EQ(gOutcomeText, Report({kHeader, "Error getting printer information: \\\\OLD\\laser",
                                  "Local Printer: Desk"}));
  EXPECT_EQ(gDebugBuffer, Log({">> Getting client's list of printers <<",
                               ">> * ----- My Printers ----- * <<",
                               "ERROR: Getting client printer memory information: \\\\OLD\\laser",
                               "SYSTEM ERROR: 5", ">> Found local printer: Desk"}));
  EXPECT_EQ(SpoolerCalls()[1], "OpenPrinterA \\\\OLD\\laser");
  EXPECT_EQ(SpoolerCalls()[2], "GetPrinterA 2 null 0");
  EXPECT_EQ(SpoolerCalls()[3], "ClosePrinter");
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(PrinterAPIsTest, GetClientPrinters_SizingSucceeds_CountsAsRowTwoWithErrorLeftStanding) {
  machine["faults"] = json::array(
      {{{"call", "GetPrinterA"}, {"match", "\\\\OLD\\laser"}, {"result", 1}, {"lastError", 0}}});
  Inventory(json::array({Net("OLD", "laser")}));
  EXPECT_EQ(UBound(gClientPrinters), 0);
  EXPECT_EQ(gOutcomeText, Report({kHeader, "Error getting printer information: \\\\OLD\\laser"}));
  EXPECT_EQ(gDebugBuffer, Log({">> Getting client's list of printers <<",
                               ">> * ----- My Printers ----- * <<",
                               "ERROR: Getting client printer memory information: \\\\OLD\\laser",
                               "SYSTEM ERROR: 0"}));
}

TEST_F(PrinterAPIsTest, GetClientPrinters_SecondReadFails_RowThreeWithItsErrorAndPrinterClosed) {
  machine["faults"] = json::array({{{"call", "GetPrinterA"},
                                    {"match", "\\\\OLD\\laser"},
                                    {"skip", 1},
                                    {"result", 0},
                                    {"lastError", 1722}}});
  Inventory(json::array({Net("OLD", "laser")}));
  EXPECT_EQ(UBound(gClientPrinters), 0);
  EXPECT_EQ(gOutcomeText, Report({kHeader, "Error getting printer information: \\\\OLD\\laser"}));
  EXPECT_EQ(gDebugBuffer, Log({">> Getting client's list of printers <<",
                               ">> * ----- My Printers ----- * <<",
                               "ERROR: Getting client printer information: \\\\OLD\\laser",
                               "SYSTEM ERROR: 1722"}));
  ASSERT_EQ(SpoolerCalls().size(), 5u);
  EXPECT_EQ(SpoolerCalls()[4], "ClosePrinter");
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(PrinterAPIsTest, GetClientPrinters_WithoutReport_RebuildsListsSilentlyButPulsesPerPrinter) {
  machine["faults"] = json::array(
      {{{"call", "OpenPrinterA"}, {"match", "\\\\OLD\\gone"}, {"result", 0}, {"lastError", 1801}}});
  machine["printers"] = json::array({Net("OLD", "gone"), Net("OLD", "laser"), Local("Desk")});
  Prepare();
  INIDocument.ShowProgress = true;
  gClientPrinters.push_back(Client("\\\\X", "\\\\X\\old", "old"));
  gOutcomeText = "before";
  GetClientPrinters(false);
  EXPECT_EQ(gOutcomeText, "before");
  EXPECT_EQ(gDebugBuffer, Log({">> Getting client's list of printers <<"}));
  ASSERT_EQ(UBound(gClientPrinters), 1);
  EXPECT_EQ(gClientPrinters[1].PrinterName, "\\\\OLD\\laser");
  ASSERT_EQ(UBound(gClientLocalPrinters), 1);
  // One pulse for each printer filed, none for the one that failed.
  EXPECT_EQ(Transcript()["progress"]["steps"], 2);
}

TEST_F(PrinterAPIsTest, GetClientPrinters_ListCannotBeHad_ListsStayAtSlotZero) {
  machine["faults"] = json::array({{{"call", "UserPrinters"}, {"result", 0}, {"lastError", 5}}});
  Inventory(json::array({Net("OLD", "laser")}));
  EXPECT_EQ(UBound(gClientPrinters), 0);
  EXPECT_EQ(UBound(gClientLocalPrinters), 0);
  EXPECT_EQ(gOutcomeText, Report({kHeader}));
}

TEST_F(PrinterAPIsTest, GetClientPrinters_NoComputerObjectNoUser_HeaderShowsWhatIdentityGives) {
  machine["computerName"] = nullptr;
  machine["userName"] = nullptr;
  Inventory(json::array());
  EXPECT_EQ(gOutcomeText,
            Report({"* ----- Computer: Computer UNKNOWN Username:  Printers ----- *"}));
}

TEST_F(PrinterAPIsTest, GetClientPrinters_AddsAndRemovesAfterwards_LeaveTheSnapshotAsItWas) {
  machine["printServers"] = {{"NEW", {{"queues", {"laser"}}}}};
  Inventory(json::array({Net("OLD", "laser")}));
  AddNetworkPrinter("\\\\NEW\\laser");
  RemoveNetworkPrinter("\\\\OLD\\laser");
  ASSERT_EQ(UBound(gClientPrinters), 1);
  EXPECT_EQ(gClientPrinters[1].PrinterName, "\\\\OLD\\laser");
  EXPECT_EQ(Names(Transcript()["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
}

TEST(PointerToStringTest, NullEmptyAndText) {
  EXPECT_EQ(PointerToString(nullptr), "");
  EXPECT_EQ(PointerToString(""), "");
  char buffer[] = {'l', 'a', 's', 'e', 'r', '\0', 'x', '\0'};
  std::string copy = PointerToString(buffer);
  buffer[0] = 'X';
  EXPECT_EQ(copy, "laser");
}

// ---------------------------------------------------------------------------
// Removing printers

TEST_F(PrinterAPIsTest, RemoveNetworkPrinter_Existing_OneLogLineOneReportLine) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  Prepare();
  RemoveNetworkPrinter("\\\\old\\LASER");
  EXPECT_EQ(gDebugBuffer, Log({">> Removed networked printer: \\\\old\\LASER"}));
  EXPECT_EQ(gOutcomeText, Report({"Deleted networked printer: \\\\old\\LASER"}));
  EXPECT_TRUE(OperationsSucceeded);
  EXPECT_TRUE(Transcript()["printersAfter"].empty());
}

TEST_F(PrinterAPIsTest, RemoveNetworkPrinter_MissingConnection_ReportsErrorAndClearsSuccess) {
  Prepare();
  RemoveNetworkPrinter("\\\\OLD\\laser");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Removing client networked printer: \\\\OLD\\laser",
                               "SYSTEM ERROR: 1801"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1801) deleting network printer: \\\\OLD\\laser"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_FALSE(AbortStatus);
}

TEST_F(PrinterAPIsTest, RemoveNetworkPrinter_SuccessWithPositiveLastError_CountsAsFailure) {
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["faults"] = json::array(
      {{{"call", "DeletePrinterConnectionA"}, {"result", 1}, {"lastError", 87}}});
  Prepare();
  RemoveNetworkPrinter("\\\\OLD\\laser");
  EXPECT_EQ(gOutcomeText, Report({"Error (87) deleting network printer: \\\\OLD\\laser"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(PrinterAPIsTest, RemoveNetworkPrinter_FailureWithZeroLastError_CountsAsRemoved) {
  machine["faults"] = json::array(
      {{{"call", "DeletePrinterConnectionA"}, {"result", 0}, {"lastError", 0}}});
  Prepare();
  RemoveNetworkPrinter("\\\\OLD\\laser");
  EXPECT_EQ(gOutcomeText, Report({"Deleted networked printer: \\\\OLD\\laser"}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(PrinterAPIsTest, RemoveLocalPrinter_Existing_OpensWithFullAccessDeletesAndCloses) {
  machine["printers"] = json::array({Local("Desk"), Local("Other")});
  Prepare();
  RemoveLocalPrinter("Desk");
  EXPECT_EQ(gDebugBuffer, Log({">> Removed local printer: Desk"}));
  EXPECT_EQ(gOutcomeText, Report({"Deleted local printer: Desk"}));
  EXPECT_TRUE(OperationsSucceeded);
  EXPECT_EQ(SpoolerCalls(), (std::vector<std::string>{"OpenPrinterA Desk access 983052 nulls",
                                                       "DeletePrinter", "ClosePrinter"}));
  EXPECT_EQ(Names(Transcript()["printersAfter"]), std::vector<std::string>{"Other"});
}

TEST_F(PrinterAPIsTest, RemoveLocalPrinter_NotOpened_ReportsAndNeverDeletesOrCloses) {
  Prepare();
  RemoveLocalPrinter("Nowhere");
  EXPECT_EQ(gDebugBuffer,
            Log({"ERROR: Opening client local printer: Nowhere", "SYSTEM ERROR: 1801"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1801) opening local printer: Nowhere"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_EQ(SpoolerCalls(),
            (std::vector<std::string>{"OpenPrinterA Nowhere access 983052 nulls"}));
}

TEST_F(PrinterAPIsTest, RemoveLocalPrinter_DeleteFails_ReportsAndStillCloses) {
  machine["printers"] = json::array({Local("Desk")});
  machine["faults"] = json::array({{{"call", "DeletePrinter"}, {"result", 0}, {"lastError", 5}}});
  Prepare();
  RemoveLocalPrinter("Desk");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Deleting client local printer: Desk", "SYSTEM ERROR: 5"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (5) deleting local printer: Desk"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_EQ(SpoolerCalls(), (std::vector<std::string>{"OpenPrinterA Desk access 983052 nulls",
                                                       "DeletePrinter", "ClosePrinter"}));
  EXPECT_EQ(Names(Transcript()["printersAfter"]), std::vector<std::string>{"Desk"});
}

TEST_F(PrinterAPIsTest, RemoveLocalPrinter_DeleteReturnsZeroWithoutError_CountsAsRemoved) {
  machine["printers"] = json::array({Local("Desk")});
  machine["faults"] = json::array({{{"call", "DeletePrinter"}, {"result", 0}, {"lastError", 0}}});
  Prepare();
  RemoveLocalPrinter("Desk");
  EXPECT_EQ(gOutcomeText, Report({"Deleted local printer: Desk"}));
  EXPECT_TRUE(OperationsSucceeded);
}

// ---------------------------------------------------------------------------
// Adding a network connection

TEST_F(PrinterAPIsTest, AddNetworkPrinter_QueueOnServer_AddedAndReportedAsPopulated) {
  machine["printServers"] = {{"NEW", {{"queues", {"laser"}}}}};
  Prepare();
  AddNetworkPrinter("\\\\NEW\\laser");
  EXPECT_EQ(gDebugBuffer, Log({">> Added networked printer: \\\\NEW\\laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Populated networked printer: \\\\NEW\\laser"}));
  EXPECT_TRUE(OperationsSucceeded);
  EXPECT_EQ(Names(Transcript()["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
}

TEST_F(PrinterAPIsTest, AddNetworkPrinter_UnknownQueue_ReportsNetworkWordAndClearsSuccess) {
  machine["printServers"] = {{"NEW", {{"queues", {"laser"}}}}};
  Prepare();
  AddNetworkPrinter("\\\\NEW\\color");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Adding client networked printer: \\\\NEW\\color",
                               "SYSTEM ERROR: 1801"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1801) populating network printer: \\\\NEW\\color"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_FALSE(AbortStatus);
}

TEST_F(PrinterAPIsTest, AddNetworkPrinter_EmptyName_GoesToPlatformAndFails) {
  Prepare();
  AddNetworkPrinter("");
  EXPECT_EQ(SpoolerCalls(), std::vector<std::string>{"AddPrinterConnectionA "});
  EXPECT_EQ(gOutcomeText, Report({"Error (1801) populating network printer: "}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(PrinterAPIsTest, AddNetworkPrinter_AlreadyConnected_PlatformAnswerDecides) {
  machine["printServers"] = {{"NEW", {{"queues", {"laser"}}}}};
  machine["printers"] = json::array({Net("NEW", "laser")});
  Prepare();
  AddNetworkPrinter("\\\\NEW\\laser");
  EXPECT_EQ(gOutcomeText, Report({"Populated networked printer: \\\\NEW\\laser"}));
  EXPECT_EQ(Names(Transcript()["printersAfter"]), std::vector<std::string>{"\\\\NEW\\laser"});
}

TEST_F(PrinterAPIsTest, AddNetworkPrinter_NonZeroReturnWithLastError_JudgedByReturnValue) {
  machine["faults"] = json::array(
      {{{"call", "AddPrinterConnectionA"}, {"result", 1}, {"lastError", 5}}});
  Prepare();
  AddNetworkPrinter("\\\\NEW\\laser");
  EXPECT_EQ(gOutcomeText, Report({"Populated networked printer: \\\\NEW\\laser"}));
  EXPECT_TRUE(OperationsSucceeded);
}

// ---------------------------------------------------------------------------
// Installing printers with a driver

class InstallPrinterTest : public PrinterAPIsTest {
 protected:
  void PrepareInstall() {
    WriteFile("\\\\files\\drivers\\hpdrv.dll", "driver bytes");
    Prepare();
  }
};

TEST_F(InstallPrinterTest, AddLocalPrinter_AllWell_CopiesAddsDriverAndPrinter) {
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gDebugBuffer, Log({">> Populated local printer: Desk"}));
  EXPECT_EQ(gOutcomeText, Report({"Populated local printer: Desk"}));
  EXPECT_TRUE(OperationsSucceeded);

  EXPECT_EQ(files_->copies, std::vector<std::string>{
                                "\\\\files\\drivers\\hpdrv.dll -> C:\\Windows\\system32\\hpdrv.dll"});
  EXPECT_EQ(ReadFile("C:\\Windows\\system32\\hpdrv.dll"), "driver bytes");
  EXPECT_EQ(SystemCalls(), std::vector<std::string>{"GetSystemDirectoryA 255 blanks"});
  EXPECT_EQ(spooler_->lastDriverTexts,
            (std::vector<std::string>{"1024", "HP Driver", "Windows 4.0",
                                      "C:\\Windows\\system32\\hpdrv.dll",
                                      "C:\\Windows\\system32\\hpdrv.dll",
                                      "C:\\Windows\\system32\\hpdrv.dll"}));
  EXPECT_EQ(spooler_->lastPrinterTexts,
            (std::vector<std::string>{"(null)", "Desk", "(null)", "LPT1:", "HP Driver",
                                      "Adding using Zandolin", "(null)", "(null)", "WinPrint",
                                      "RAW", "(null)"}));
  EXPECT_EQ(spooler_->lastPrinterAttributes, 64u);
  EXPECT_EQ(SpoolerCalls(), (std::vector<std::string>{"AddPrinterDriverA (null) 2",
                                                       "AddPrinterA (null) 2", "ClosePrinter"}));

  json after = Transcript()["printersAfter"];
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(after[0]["name"], "Desk");
  EXPECT_EQ(after[0]["portName"], "LPT1:");
  EXPECT_EQ(after[0]["driverName"], "HP Driver");
  EXPECT_EQ(after[0]["comment"], "Adding using Zandolin");
  EXPECT_EQ(after[0]["attributes"], 64);
}

TEST_F(InstallPrinterTest, AddLocalPrinter_EmptyDriverFileName_SkipsCopyAndDriverButAddsPrinter) {
  machine["drivers"] = json::array({"HP Driver"});
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "", "HP Driver", "Desk");
  EXPECT_TRUE(files_->copies.empty());
  EXPECT_EQ(SpoolerCalls(),
            (std::vector<std::string>{"AddPrinterA (null) 2", "ClosePrinter"}));
  EXPECT_EQ(spooler_->lastPrinterTexts[4], "HP Driver");
  EXPECT_EQ(gOutcomeText, Report({"Populated local printer: Desk"}));
}

TEST_F(InstallPrinterTest, AddLocalPrinter_EmptyDriverName_SkipsDriverBlockAndFailsAtPlatform) {
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "", "Desk");
  EXPECT_TRUE(files_->copies.empty());
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Adding local printer : Desk", "SYSTEM ERROR: 1797"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1797) populating local printer: Desk"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddLocalPrinter_MissingDriverFile_RowCThenDriverAndPrinterAdded) {
  WriteFile("\\\\files\\drivers\\other.dll", "another driver");
  Prepare();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Copying printer driver to windows folder.", "ERROR: 53",
                               "ERROR DESCRIPTION: File not found", ">> Populated local printer: Desk"}));
  EXPECT_EQ(gOutcomeText, Report({"Warning (File not found) unable to install provided driver: Desk",
                                  "Populated local printer: Desk"}));
  // The driver is added all the same, with a path that does not exist.
  EXPECT_EQ(spooler_->lastDriverTexts[3], "C:\\Windows\\system32\\hpdrv.dll");
  EXPECT_EQ(SpoolerCalls(), (std::vector<std::string>{"AddPrinterDriverA (null) 2",
                                                       "AddPrinterA (null) 2", "ClosePrinter"}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddLocalPrinter_SharePathEndingInBackslash_SourcePathDoubled) {
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers\\", "hpdrv.dll", "HP Driver", "Desk");
  // The engine does not normalise the path; the file system takes the
  // doubled backslash as one.
  EXPECT_EQ(files_->copies, std::vector<std::string>{
                                "\\\\files\\drivers\\\\hpdrv.dll -> C:\\Windows\\system32\\hpdrv.dll"});
  EXPECT_EQ(gOutcomeText, Report({"Populated local printer: Desk"}));
  EXPECT_EQ(ReadFile("C:\\Windows\\system32\\hpdrv.dll"), "driver bytes");
}

TEST_F(InstallPrinterTest, AddLocalPrinter_DriverNotAdded_RowDNamesDriverInLogAndPrinterInReport) {
  machine["faults"] = json::array({{{"call", "AddPrinterDriverA"}, {"result", 0}, {"lastError", 5}}});
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Adding printer driver: HP Driver", "SYSTEM ERROR: 5",
                               "ERROR: Adding local printer : Desk", "SYSTEM ERROR: 1797"}));
  EXPECT_EQ(gOutcomeText,
            Report({"Warning (5) unable to add provided driver information: Desk",
                    "Error (1797) populating local printer: Desk"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddLocalPrinter_DriverAlreadyInstalled_IsSilent) {
  machine["drivers"] = json::array({"HP Driver"});
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gDebugBuffer, Log({">> Populated local printer: Desk"}));
  EXPECT_EQ(gOutcomeText, Report({"Populated local printer: Desk"}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddLocalPrinter_PrinterExists_RowEKeepsSuccessAndPrinter) {
  machine["printers"] = json::array({Local("Desk", 0x840)});
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Adding local printer, printer already existed : Desk",
                               "SYSTEM ERROR: 1802"}));
  EXPECT_EQ(gOutcomeText, Report({"Populating local printer, printer already exists: Desk"}));
  EXPECT_TRUE(OperationsSucceeded);
  json after = Transcript()["printersAfter"];
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(after[0]["attributes"], 0x840);
}

TEST_F(InstallPrinterTest, AddLocalPrinter_UnknownPort_RowFClearsSuccess) {
  PrepareInstall();
  AddLocalPrinter("COM9:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Adding local printer : Desk", "SYSTEM ERROR: 1796"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1796) populating local printer: Desk"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddLocalPrinter_HandleWithPositiveLastError_RowFAndHandleClosed) {
  machine["faults"] = json::array({{{"call", "AddPrinterA"}, {"result", 77}, {"lastError", 5}}});
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gOutcomeText, Report({"Error (5) populating local printer: Desk"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_EQ(SpoolerCalls().back(), "ClosePrinter");
}

TEST_F(InstallPrinterTest, AddLocalPrinter_NoHandleAndNoError_RowSAndNothingClosed) {
  machine["faults"] = json::array({{{"call", "AddPrinterA"}, {"result", 0}, {"lastError", 0}}});
  PrepareInstall();
  AddLocalPrinter("LPT1:", "\\\\files\\drivers", "hpdrv.dll", "HP Driver", "Desk");
  EXPECT_EQ(gOutcomeText, Report({"Populated local printer: Desk"}));
  EXPECT_EQ(SpoolerCalls().back(), "AddPrinterA (null) 2");
}

TEST_F(InstallPrinterTest, AddNetworkPrinterWithDriver_AllWell_AddsPortThenNetworkedWording) {
  PrepareInstall();
  AddNetworkPrinterWithDriver("\\\\NEW\\laser", "\\\\files\\drivers", "hpdrv.dll", "HP Driver",
                              "laser");
  EXPECT_EQ(SpoolerCalls(),
            (std::vector<std::string>{"AddPortA (null) window \\\\NEW\\laser",
                                      "AddPrinterDriverA (null) 2", "AddPrinterA (null) 2",
                                      "ClosePrinter"}));
  EXPECT_EQ(spooler_->lastPrinterTexts[1], "laser");
  EXPECT_EQ(spooler_->lastPrinterTexts[3], "\\\\NEW\\laser");
  EXPECT_EQ(spooler_->lastPrinterAttributes, 64u);
  EXPECT_EQ(gDebugBuffer, Log({">> Populated networked printer: laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Populated networked printer: laser"}));
  // The port call needs the progress window's handle: the form is loaded, unseen.
  EXPECT_TRUE(frmProgress.Loaded);
  EXPECT_EQ(LoadedFormCount(), 1);
  json after = Transcript()["printersAfter"];
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(after[0]["name"], "laser");
  EXPECT_EQ(after[0]["portName"], "\\\\NEW\\laser");
}

TEST_F(InstallPrinterTest, AddNetworkPrinterWithDriver_PortFails_RowPLogsOnlyAndPrinterStillAdded) {
  machine["faults"] = json::array({{{"call", "AddPortA"}, {"result", 0}, {"lastError", 5}}});
  machine["ports"] = json::array({"LPT1:", "\\\\NEW\\laser"});
  PrepareInstall();
  AddNetworkPrinterWithDriver("\\\\NEW\\laser", "\\\\files\\drivers", "hpdrv.dll", "HP Driver",
                              "laser");
  EXPECT_EQ(gDebugBuffer,
            Log({"ERROR: Adding network port to client local printer: laser : \\\\NEW\\laser",
                 "SYSTEM ERROR: 5", ">> Populated networked printer: laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Populated networked printer: laser"}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddNetworkPrinterWithDriver_PrinterExists_RowENetworkedWording) {
  machine["printers"] = json::array({Local("laser")});
  PrepareInstall();
  AddNetworkPrinterWithDriver("\\\\NEW\\laser", "\\\\files\\drivers", "hpdrv.dll", "HP Driver",
                              "laser");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Adding networked printer, printer already existed : laser",
                               "SYSTEM ERROR: 1802"}));
  EXPECT_EQ(gOutcomeText, Report({"Populating networked printer, printer already exists: laser"}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddNetworkPrinterWithDriver_PrinterFails_RowFNetworkedWording) {
  machine["faults"] = json::array({{{"call", "AddPrinterA"}, {"result", 0}, {"lastError", 1797}}});
  PrepareInstall();
  AddNetworkPrinterWithDriver("\\\\NEW\\laser", "\\\\files\\drivers", "hpdrv.dll", "HP Driver",
                              "laser");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Adding networked printer : laser", "SYSTEM ERROR: 1797"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1797) populating networked printer: laser"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(InstallPrinterTest, AddNetworkPrinterWithDriver_CopyAndDriverFail_WarningsInBothRows) {
  machine["faults"] = json::array({{{"call", "AddPrinterDriverA"}, {"result", 0}, {"lastError", 1797}}});
  machine["drivers"] = json::array({"HP Driver"});
  Prepare();
  AddNetworkPrinterWithDriver("\\\\NEW\\laser", "C:\\none", "hpdrv.dll", "HP Driver",
                              "laser");
  EXPECT_EQ(files_->copies, std::vector<std::string>{
                                "C:\\none\\hpdrv.dll -> C:\\Windows\\system32\\hpdrv.dll"});
  EXPECT_EQ(gOutcomeText,
            Report({"Warning (Path not found) unable to install provided driver: laser",
                    "Warning (1797) unable to add provided driver information: laser",
                    "Populated networked printer: laser"}));
  EXPECT_TRUE(OperationsSucceeded);
}

// ---------------------------------------------------------------------------
// Reading the default printer

class DefaultPrinterTest : public PrinterAPIsTest {
 protected:
  void OnPlatform(int platformId, int major) {
    machine["os"] = {{"platformId", platformId}, {"majorVersion", major}};
  }
};

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_Windows2000On_ReadsTheDefault) {
  OnPlatform(2, 5);
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["defaultPrinter"] = "\\\\OLD\\laser";
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "\\\\OLD\\laser");
  EXPECT_EQ(gDebugBuffer, Log({"Default printer:\\\\OLD\\laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Default Printer:\\\\OLD\\laser"}));
  EXPECT_EQ(SystemCalls(), std::vector<std::string>{"GetVersionExA 148"});
  EXPECT_EQ(SpoolerCalls(), std::vector<std::string>{"GetDefaultPrinterA 1024 blanks"});
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_NoDefault_WarningAndBlanksWithSuccessKept) {
  Prepare();
  std::string name = GetClientDefaultPrinter();
  EXPECT_EQ(name, kBlanks1024);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: No default printer set.", "SYSTEM ERROR: 2"}));
  EXPECT_EQ(gOutcomeText, Report({"Warning no currently set default printer."}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_OtherFailure_ErrorRowWithSuccessKept) {
  machine["faults"] = json::array({{{"call", "GetDefaultPrinterA"}, {"result", 0}, {"lastError", 5}}});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), kBlanks1024);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Getting default printer name.", "SYSTEM ERROR: 5"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (5) determining default printer."}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_NameLongerThanBuffer_ErrorRowWithSuccessKept) {
  const std::string queue(1100, 'q');
  machine["printers"] = json::array({Net("OLD", queue)});
  machine["defaultPrinter"] = "\\\\OLD\\" + queue;
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), kBlanks1024);
  EXPECT_EQ(gOutcomeText, Report({"Error (122) determining default printer."}));
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_NT4_NameInFrontOfFirstComma) {
  OnPlatform(2, 4);
  machine["winIni"] = {{"Windows", {{"device", "laser,winspool,Ne00:"}}}};
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "laser");
  EXPECT_EQ(gOutcomeText, Report({"Default Printer:laser"}));
  EXPECT_EQ(gDebugBuffer, Log({"Default printer:laser"}));
  EXPECT_TRUE(SpoolerCalls().empty());
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_NT4KeyNotRead_ErrorRowClearsSuccess) {
  OnPlatform(2, 4);
  machine["faults"] = json::array({{{"call", "GetProfileStringA"}, {"result", 0}, {"lastError", 1168}}});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), kBlanks1024);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Getting default printer name.", "SYSTEM ERROR: 1168"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1168) determining default printer."}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_NT4NoDeviceKey_RowR5WithTheErrorLeft) {
  OnPlatform(2, 4);
  Prepare();
  // The buffer as the failed read left it: the empty default and its NUL.
  EXPECT_EQ(GetClientDefaultPrinter(), std::string(1, '\0') + std::string(1023, ' '));
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Getting default printer name.", "SYSTEM ERROR: 0"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (0) determining default printer."}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_Windows9x_EnumeratesTheDefault) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("Desk"), Local("laser", 0x4)});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "laser");
  EXPECT_EQ(gOutcomeText, Report({"Default Printer:laser"}));
  ASSERT_EQ(SpoolerCalls().size(), 2u);
  EXPECT_EQ(SpoolerCalls()[0], "EnumPrintersA 1 (null) 2 null 0");
  EXPECT_EQ(SpoolerCalls()[1].rfind("EnumPrintersA 1 (null) 2 buffer ", 0), 0u);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_Windows9xNoDefault_EnumerationRowClearsSuccess) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("Desk")});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "");
  EXPECT_EQ(gDebugBuffer,
            Log({"ERROR: Getting default printer name by enumeration.", "SYSTEM ERROR: 0"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (0) determining default printer."}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_Windows9xSecondCallFails_EnumerationRow) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("laser", 0x4)});
  machine["faults"] = json::array(
      {{{"call", "EnumPrintersA"}, {"skip", 1}, {"result", 0}, {"lastError", 1722}}});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "");
  EXPECT_EQ(gOutcomeText, Report({"Error (1722) determining default printer."}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_VersionFails_ErrorRowAndEmptyName) {
  machine["os"] = {{"versionError", 87}};
  machine["defaultPrinter"] = "Desk";
  machine["printers"] = json::array({Local("Desk")});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "");
  EXPECT_EQ(gDebugBuffer,
            Log({"ERROR: Getting OS version for Default printer.", "SYSTEM ERROR: 87"}));
  EXPECT_EQ(gOutcomeText,
            Report({"Error (87) determining OS version for setting default printer."}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, GetClientDefaultPrinter_OtherPlatform_EmptyWithoutAWord) {
  OnPlatform(3, 10);
  machine["defaultPrinter"] = "Desk";
  machine["printers"] = json::array({Local("Desk")});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "");
  EXPECT_EQ(gDebugBuffer, "");
  EXPECT_EQ(gOutcomeText, "");
  EXPECT_TRUE(OperationsSucceeded);
  EXPECT_TRUE(SpoolerCalls().empty());
}

TEST_F(DefaultPrinterTest, LongNameWithBlanksAndCommas_ReadAndSetWholeOnWindows9x) {
  OnPlatform(1, 4);
  const std::string name = "Floor 2, " + std::string(4000, 'x') + " , end";
  machine["printers"] = json::array({Local(name, 0x4), Local("Desk")});
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), name);
  std::string desk = "Desk";
  SetClientDefaultPrinter(desk);
  std::string again = name;
  SetClientDefaultPrinter(again);
  EXPECT_EQ(again, name);
  EXPECT_EQ(gOutcomeText, Report({"Default Printer:" + name, "Set default printer: Desk",
                                  "Set default printer: " + name}));
  EXPECT_EQ(Transcript()["defaultAfter"], name);
}

TEST_F(DefaultPrinterTest, LongNameWithBlanksAndCommas_ReadAndSetWholeFromWindows2000On) {
  const std::string queue = "queue, with blanks " + std::string(900, 'q');
  machine["printers"] = json::array({Net("OLD", queue), Local("Desk")});
  machine["defaultPrinter"] = "\\\\OLD\\" + queue;
  Prepare();
  EXPECT_EQ(GetClientDefaultPrinter(), "\\\\OLD\\" + queue);
  std::string desk = "Desk";
  SetClientDefaultPrinter(desk);
  EXPECT_EQ(Transcript()["defaultAfter"], "Desk");
}

// ---------------------------------------------------------------------------
// Setting the default printer

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_Windows2000On_WholeNameSetAndReported) {
  OnPlatform(2, 5);
  machine["printers"] = json::array({Net("NEW", "laser"), Local("Desk")});
  machine["defaultPrinter"] = "Desk";
  Prepare();
  std::string name = "\\\\NEW\\laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(name, "\\\\NEW\\laser");
  EXPECT_EQ(SystemCalls(), std::vector<std::string>{"GetVersionExA 148"});
  EXPECT_EQ(SpoolerCalls(), std::vector<std::string>{"SetDefaultPrinterA \\\\NEW\\laser"});
  EXPECT_EQ(gDebugBuffer, Log({"Set default printer: \\\\NEW\\laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Set default printer: \\\\NEW\\laser"}));
  EXPECT_EQ(Transcript()["defaultAfter"], "\\\\NEW\\laser");
  EXPECT_TRUE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_UnknownPrinter_RowN1AndDefaultKept) {
  machine["printers"] = json::array({Local("Desk")});
  machine["defaultPrinter"] = "Desk";
  Prepare();
  std::string name = "\\\\NEW\\gone";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Setting default printer: \\\\NEW\\gone", "SYSTEM ERROR: 1801"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1801) setting default printer: \\\\NEW\\gone"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_EQ(Transcript()["defaultAfter"], "Desk");
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_NT4_WritesDeviceStringFromPrinterPorts) {
  OnPlatform(2, 4);
  machine["winIni"] = {{"Windows", {{"device", "Desk,winspool,LPT1:"}}},
                       {"PrinterPorts", {{"laser", "winspool,Ne00:,15,45"}}}};
  Prepare();
  std::string name = "laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(ProfileValue("Windows", "device"), "laser,winspool,Ne00:");
  EXPECT_EQ(gDebugBuffer, Log({"Set default printer: laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Set default printer: laser"}));
  EXPECT_TRUE(OperationsSucceeded);
  EXPECT_EQ(Transcript()["defaultAfter"], "laser");
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_NT4OneComma_RowN3WritesNothing) {
  OnPlatform(2, 4);
  machine["winIni"] = {{"Windows", {{"device", "Desk,winspool,LPT1:"}}},
                       {"PrinterPorts", {{"laser", "winspool,Ne00:"}}}};
  Prepare();
  std::string name = "laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(ProfileValue("Windows", "device"), "Desk,winspool,LPT1:");
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Parsing default printer string: laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Error parsing default printer settings: laser"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_NT4PrinterNotInPrinterPorts_RowN2) {
  OnPlatform(2, 4);
  machine["winIni"] = {{"Windows", {{"device", "Desk,winspool,LPT1:"}}},
                       {"PrinterPorts", {{"Desk", "winspool,LPT1:,15,45"}}}};
  Prepare();
  std::string name = "\\\\NEW\\laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gOutcomeText,
            Report({"Error (0) getting reference for setting default printer: \\\\NEW\\laser"}));
  EXPECT_EQ(ProfileValue("Windows", "device"), "Desk,winspool,LPT1:");
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_NT4NoEntry_RowN2) {
  OnPlatform(2, 4);
  machine["faults"] = json::array({{{"call", "GetProfileStringA"}, {"result", 0}, {"lastError", 1168}}});
  Prepare();
  std::string name = "laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: getting reference for setting default printer: laser",
                               "SYSTEM ERROR: 1168"}));
  EXPECT_EQ(gOutcomeText,
            Report({"Error (1168) getting reference for setting default printer: laser"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_NT4WriteFails_RowN4) {
  OnPlatform(2, 4);
  machine["winIni"] = {{"PrinterPorts", {{"laser", "winspool,Ne00:,15,45"}}}};
  machine["faults"] = json::array({{{"call", "WriteProfileStringA"}, {"result", 0}, {"lastError", 5}}});
  Prepare();
  std::string name = "laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Writing default printer settings : laser", "SYSTEM ERROR: 5"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (5) setting default printer: laser"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_Windows9x_BareNameAndOtherBitsKept) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("Desk", 0x4 | 0x40), Local("laser", 0x40 | 0x200)});
  Prepare();
  std::string name = "\\\\srv\\laser";
  SetClientDefaultPrinter(name);
  // The shortened name reaches the caller's variable.
  EXPECT_EQ(name, "laser");
  ASSERT_GE(SpoolerCalls().size(), 4u);
  EXPECT_EQ(SpoolerCalls()[0], "OpenPrinterA laser");
  EXPECT_EQ(SpoolerCalls()[1], "GetPrinterA 2 null 0");
  EXPECT_EQ(SpoolerCalls()[3], "SetPrinterA 2 attributes 580 command 0");
  EXPECT_EQ(SpoolerCalls().back(), "ClosePrinter");
  EXPECT_EQ(gDebugBuffer, Log({"Default printer set: laser"}));
  EXPECT_EQ(gOutcomeText, Report({"Set default printer: laser"}));
  json after = Transcript()["printersAfter"];
  EXPECT_EQ(after[0]["attributes"], 0x40);
  EXPECT_EQ(after[1]["attributes"], 0x244);
  EXPECT_EQ(Transcript()["defaultAfter"], "laser");
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_Windows9xLocalName_ReachesOpenUnchanged) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("Desk")});
  Prepare();
  std::string name = "Desk";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(SpoolerCalls()[0], "OpenPrinterA Desk");
  EXPECT_EQ(gOutcomeText, Report({"Set default printer: Desk"}));
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_Windows9xNotOpened_RowA1) {
  OnPlatform(1, 4);
  Prepare();
  std::string name = "\\\\srv\\laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer,
            Log({"ERROR: Opening printer for set default : laser", "SYSTEM ERROR: 1801"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (1801) opening printer for set default: laser"}));
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_Windows9xSizingFails_RowA2AndClosed) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("laser")});
  machine["faults"] = json::array({{{"call", "GetPrinterA"}, {"result", 0}, {"lastError", 5}}});
  Prepare();
  std::string name = "laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Getting printer reference for set default : laser",
                               "SYSTEM ERROR: 5"}));
  EXPECT_EQ(gOutcomeText,
            Report({"Error (5) getting a reference to printer for set default: laser"}));
  EXPECT_EQ(SpoolerCalls().back(), "ClosePrinter");
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_Windows9xReadFails_RowA2WithItsError) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("laser")});
  machine["faults"] = json::array(
      {{{"call", "GetPrinterA"}, {"skip", 1}, {"result", 0}, {"lastError", 1722}}});
  Prepare();
  std::string name = "laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gOutcomeText,
            Report({"Error (1722) getting a reference to printer for set default: laser"}));
  EXPECT_EQ(SpoolerCalls().back(), "ClosePrinter");
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_Windows9xSetFails_RowA3) {
  OnPlatform(1, 4);
  machine["printers"] = json::array({Local("laser")});
  machine["faults"] = json::array({{{"call", "SetPrinterA"}, {"result", 0}, {"lastError", 5}}});
  Prepare();
  std::string name = "laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Setting default printer: laser", "SYSTEM ERROR: 5"}));
  EXPECT_EQ(gOutcomeText, Report({"Error (5) setting default printer: laser"}));
  EXPECT_EQ(SpoolerCalls().back(), "ClosePrinter");
  EXPECT_FALSE(OperationsSucceeded);
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_VersionFails_RowV1WithItsWords) {
  machine["os"] = {{"versionError", 87}};
  Prepare();
  std::string name = "\\\\NEW\\laser";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer, Log({"ERROR: Getting OS version for Defualt printer : \\\\NEW\\laser",
                               "SYSTEM ERROR: 87"}));
  EXPECT_EQ(gOutcomeText,
            Report({"Error (87) determining OS version for setting default printer: \\\\NEW\\laser"}));
  EXPECT_FALSE(OperationsSucceeded);
  EXPECT_TRUE(SpoolerCalls().empty());
}

TEST_F(DefaultPrinterTest, SetClientDefaultPrinter_OtherPlatform_DoesNothingSilently) {
  OnPlatform(0, 3);
  machine["printers"] = json::array({Local("Desk")});
  Prepare();
  std::string name = "Desk";
  SetClientDefaultPrinter(name);
  EXPECT_EQ(gDebugBuffer, "");
  EXPECT_EQ(gOutcomeText, "");
  EXPECT_TRUE(SpoolerCalls().empty());
  EXPECT_TRUE(OperationsSucceeded);
}

}  // namespace
