// zandolin-fleet check: one test per finding, on INI files written for it.
#include "app/zandolin-fleet/IniCheck.h"

#include "IniFileBuilder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using fleet::CheckIniBytes;
using fleet::Finding;

const std::string kLoadFails =
    "so the load fails: every run stops at the message box \"Unable to get INI file contents, please check your "
    "file path and permissions.\" and waits there until someone clicks OK";

// A sound file: every Boolean key, the default kept when it moves.
testini::IniFile Clean() {
  testini::IniFile ini = testini::ValidIni();
  ini.Set("SET_DEFAULT", "DefaultType", "1");
  return ini;
}

// The line (from 1) of the first line of text that begins with head.
int LineOf(const std::string& text, const std::string& head) {
  int line = 1;
  size_t start = 0;
  while (start < text.size()) {
    if (text.compare(start, head.size(), head) == 0) return line;
    size_t end = text.find('\n', start);
    if (end == std::string::npos) break;
    start = end + 1;
    ++line;
  }
  return 0;
}

std::vector<Finding> Check(const testini::IniFile& ini, const fleet::CheckOptions& options = {}) {
  return CheckIniBytes(ini.Text(), options);
}

// The findings about one key.
std::vector<Finding> About(const std::vector<Finding>& findings, const std::string& key) {
  std::vector<Finding> about;
  for (const Finding& f : findings)
    if (f.key == key) about.push_back(f);
  return about;
}

void ExpectOne(const std::vector<Finding>& findings, Finding::Severity severity, const std::string& section,
               const std::string& key, int line, const std::string& message) {
  std::vector<Finding> about = About(findings, key);
  ASSERT_EQ(about.size(), 1u) << key;
  EXPECT_EQ(about[0].severity, severity);
  EXPECT_EQ(about[0].section, section);
  EXPECT_EQ(about[0].line, line);
  EXPECT_EQ(about[0].message, message);
}

TEST(IniCheckTest, CleanFile_GivesNoFinding) { EXPECT_TRUE(Check(Clean()).empty()); }

TEST(IniCheckTest, BooleanKeyMissing_IsAnErrorAtItsSection) {
  testini::IniFile ini = Clean();
  ini.Remove("GENERAL", "AlwaysRun");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kError, "GENERAL", "AlwaysRun", LineOf(ini.Text(), "[GENERAL]"),
            "missing; every Boolean key must hold True or False, " + kLoadFails);
}

TEST(IniCheckTest, BooleanKeyInAMissingSection_NamesTheSection) {
  testini::IniFile ini = Clean();
  ini.RemoveSection("SUPPORT");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kError, "SUPPORT", "DebugOn", 0,
            "missing (the file has no section [SUPPORT]); every Boolean key must hold True or False, " + kLoadFails);
}

TEST(IniCheckTest, BooleanKeyEmpty_IsAnError) {
  testini::IniFile ini = Clean();
  ini.Set("NOTIFICATION SMTP", "UseSMTP", "");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kError, "NOTIFICATION SMTP", "UseSMTP", LineOf(ini.Text(), "UseSMTP="),
            "empty; every Boolean key must hold True or False, " + kLoadFails);
}

TEST(IniCheckTest, BooleanKeyWithNeitherWord_IsAnError) {
  testini::IniFile ini = Clean();
  ini.Set("PRUNE", "DeleteADOrphans", "Yes");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kError, "PRUNE", "DeleteADOrphans", LineOf(ini.Text(), "DeleteADOrphans="),
            "the value \"Yes\" holds neither True nor False; every Boolean key must hold True or False, " +
                kLoadFails);
}

TEST(IniCheckTest, BooleanKeyHoldingTrueInAWord_IsNoError) {
  testini::IniFile ini = Clean();
  ini.Set("GENERAL", "AlwaysRun", "Untrue");
  EXPECT_TRUE(Check(ini).empty());
}

TEST(IniCheckTest, EmptyFile_NamesEveryBooleanKeyOneByOne) {
  std::vector<Finding> findings = CheckIniBytes("", {});
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"GENERAL", "UseActiveDirectory"},
      {"GENERAL", "UseManualDefinitions"},
      {"GENERAL", "AlwaysRun"},
      {"GENERAL", "ShowProgress"},
      {"NOTIFICATION SMTP", "UseSMTP"},
      {"NOTIFICATION FILE OUTPUT", "UseFileOutput"},
      {"NOTIFICATION FILE OUTPUT", "IncludeComputerName"},
      {"NOTIFICATION FILE OUTPUT", "IncludeOutcome"},
      {"NOTIFICATION FILE OUTPUT", "WriteToEventLog"},
      {"NOTIFICATION CLIENT POP-UP", "UseClientPopup"},
      {"NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup"},
      {"NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup"},
      {"DEPLOYMENT", "CreateWebLaunchPage"},
      {"DEPLOYMENT", "CreateBatchFile"},
      {"DEPLOYMENT", "IncludeMDAC"},
      {"PRUNE", "DeleteADOrphans"},
      {"PRUNE", "DeleteAllNonNetworked"},
      {"SUPPORT", "DebugOn"}};
  std::vector<Finding> errors;
  for (const Finding& f : findings)
    if (f.severity == Finding::kError) errors.push_back(f);
  ASSERT_EQ(errors.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(errors[i].section, expected[i].first);
    EXPECT_EQ(errors[i].key, expected[i].second);
    EXPECT_EQ(errors[i].message, "missing (the file has no section [" + expected[i].first +
                                     "]); every Boolean key must hold True or False, " + kLoadFails);
  }
}

TEST(IniCheckTest, FileThatCannotBeRead_IsOneError) {
  std::vector<Finding> findings =
      fleet::CheckIniFile(std::filesystem::temp_directory_path() / "zandolin-no-such-file.ini", {});
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].severity, Finding::kError);
  EXPECT_EQ(findings[0].line, 0);
  EXPECT_EQ(findings[0].message,
            "the file cannot be read (no such file); the engine reads every key as empty, " + kLoadFails);
  EXPECT_EQ(fleet::FindingLine("x.ini", findings[0]),
            "x.ini: error: the file cannot be read (no such file); the engine reads every key as empty, " + kLoadFails);
}

TEST(IniCheckTest, LaterListKeyWithMorePieces_StopsTheEngine) {
  testini::IniFile ini = Clean();
  ini.Set("GENERAL", "UseManualDefinitions", "True")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD1,OLD2")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "NEW1,NEW2,NEW3");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kError, "MANUAL DEFINITIONS SERVERS", "ToServers", LineOf(ini.Text(), "ToServers="),
            "3 names, but FromServers makes room for 2 records: the engine stops at once with the fatal error 9 "
            "(Subscript out of range): nothing moves, no notification goes out and no debug file is written");
}

TEST(IniCheckTest, ListSizedByOneEmptyKey_HoldsOneName) {
  testini::IniFile ini = Clean();
  ini.Set("PRUNE", "PrinterNames", "laser,color");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kError, "PRUNE", "PrinterNames", LineOf(ini.Text(), "PrinterNames="),
            "2 names, but ServerNames makes room for 1 record: the engine stops at once with the fatal error 9 "
            "(Subscript out of range): nothing moves, no notification goes out and no debug file is written");
}

TEST(IniCheckTest, EveryKeyThatStopsTheEngine_IsNamed) {
  testini::IniFile ini = Clean();
  ini.Set("MANUAL DEFINITIONS MIXED", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS MIXED", "ToPrinters", "a,b,c")
      .Set("DEPLOYMENT", "MDACOption", "-40000")
      .Set("PRINTER_DRIVER", "PrinterName", "p")
      .Set("PRINTER_DRIVER", "PortName", "LPT1:,LPT2:,LPT3:");
  std::vector<Finding> findings = Check(ini);
  // In the order of the file: [DEPLOYMENT] stands before the sections added.
  ASSERT_EQ(findings.size(), 3u);
  EXPECT_EQ(findings[1].key, "ToPrinters");
  EXPECT_EQ(findings[0].key, "MDACOption");
  EXPECT_EQ(findings[0].message,
            "the value -40000 does not fit a 16-bit integer (-32768 to 32767): the engine stops at once with the "
            "fatal error 6 (Overflow): nothing moves, no notification goes out and no debug file is written");
  EXPECT_EQ(findings[2].key, "PortName");
  EXPECT_EQ(findings[2].message.substr(0, 41), "3 names, but PrinterName makes room for 2");
}

TEST(IniCheckTest, IntegerOutOfRange_StopsTheEngine) {
  testini::IniFile ini = Clean();
  ini.Set("SET_DEFAULT", "DefaultType", "32767.5");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kError, "SET_DEFAULT", "DefaultType", LineOf(ini.Text(), "DefaultType="),
            "the value 32767.5 does not fit a 16-bit integer (-32768 to 32767): the engine stops at once with the "
            "fatal error 6 (Overflow): nothing moves, no notification goes out and no debug file is written");
}

testini::IniFile WithMail() {
  testini::IniFile ini = Clean();
  ini.Set("NOTIFICATION SMTP", "UseSMTP", "True")
      .Set("NOTIFICATION SMTP", "SMTPServerNameOrIP", "mail.example.com")
      .Set("NOTIFICATION SMTP", "ServerPort", "25")
      .Set("NOTIFICATION SMTP", "EmailTo", "admin@example.com");
  return ini;
}

const std::string kMailWaits =
    "True: when the mail server cannot be reached (an unknown name, a refused connection), drops the connection or "
    "stops answering in the middle of the dialogue, the mail session waits for ever and the process never ends; "
    "only a refused step, or no answer at all within 30 seconds, ends it";

TEST(IniCheckTest, Mail_WarnsOfTheSessionThatWaitsForEver) {
  testini::IniFile ini = WithMail();
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kWarning, "NOTIFICATION SMTP", "UseSMTP", LineOf(ini.Text(), "UseSMTP="), kMailWaits);
}

TEST(IniCheckTest, MailWithProgressWindow_TheLogonWaitsToo) {
  testini::IniFile ini = WithMail();
  ini.Set("GENERAL", "ShowProgress", "True");
  ExpectOne(Check(ini), Finding::kWarning, "NOTIFICATION SMTP", "UseSMTP", LineOf(ini.Text(), "UseSMTP="),
            kMailWaits + "; with ShowProgress True the logon waits too, behind the progress window");
}

TEST(IniCheckTest, MailWithoutServer_NeverEnds) {
  testini::IniFile ini = WithMail();
  ini.Remove("NOTIFICATION SMTP", "SMTPServerNameOrIP");
  ExpectOne(Check(ini), Finding::kWarning, "NOTIFICATION SMTP", "SMTPServerNameOrIP",
            LineOf(ini.Text(), "[NOTIFICATION SMTP]"),
            "empty while UseSMTP is True: the connection fails at once and the process never ends");
}

TEST(IniCheckTest, MailPortThatIsNoNumber_NeverEnds) {
  testini::IniFile ini = WithMail();
  ini.Set("NOTIFICATION SMTP", "ServerPort", "smtp");
  ExpectOne(Check(ini), Finding::kWarning, "NOTIFICATION SMTP", "ServerPort", LineOf(ini.Text(), "ServerPort="),
            "\"smtp\" is not a port number from 1 to 65535 while UseSMTP is True: the connection fails at once and "
            "the process never ends");
}

TEST(IniCheckTest, TwoAddresses_OnlyTheFirstReceives) {
  testini::IniFile ini = Clean();
  ini.Set("NOTIFICATION SMTP", "EmailTo", "a@example.com, b@example.com");
  ExpectOne(Check(ini), Finding::kWarning, "NOTIFICATION SMTP", "EmailTo", LineOf(ini.Text(), "EmailTo="),
            "2 addresses, but the engine leaves the last one out: only a@example.com receives the mail");
}

TEST(IniCheckTest, ThreeAddresses_AllButTheLastReceive) {
  testini::IniFile ini = Clean();
  ini.Set("NOTIFICATION SMTP", "EmailTo", "a@example.com,b@example.com,c@example.com");
  ExpectOne(Check(ini), Finding::kWarning, "NOTIFICATION SMTP", "EmailTo", LineOf(ini.Text(), "EmailTo="),
            "3 addresses, but the engine leaves the last one out: only a@example.com;b@example.com receive the mail");
}

TEST(IniCheckTest, HiddenProgressWindowOnWindows9x_NeverEnds) {
  testini::IniFile ini = Clean();
  ini.Set("POPULATE", "ServerNames", "PRN1")
      .Set("POPULATE", "PrinterNames", "laser")
      .Set("PRINTER_DRIVER", "PrinterName", "laser")
      .Set("PRINTER_DRIVER", "DriverName", "HP LaserJet")
      .Set("PRINTER_DRIVER", "DriverFileName", "hplj.drv");
  ExpectOne(Check(ini), Finding::kWarning, "POPULATE", "PrinterNames", LineOf(ini.Text(), "PrinterNames="),
            "\"laser\" on the server PRN1 has a driver in [PRINTER_DRIVER] while ShowProgress is False: on Windows "
            "95/98/ME the engine installs it through a hidden progress window that it never closes, so the process "
            "never ends");
  ini.Set("GENERAL", "ShowProgress", "True");
  EXPECT_TRUE(Check(ini).empty());
}

TEST(IniCheckTest, SuccessPopup_WaitsForAClick) {
  testini::IniFile ini = Clean();
  ini.Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "True")
      .Set("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup", "True");
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kWarning, "NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup",
            LineOf(ini.Text(), "UseSuccessClientPopup="),
            "True: after a run that went well the engine waits behind a message box until someone clicks OK; in an "
            "unattended start no one does, and the process never ends");
}

TEST(IniCheckTest, FailurePopup_WaitsForAClick) {
  testini::IniFile ini = Clean();
  ini.Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "True")
      .Set("NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup", "True");
  ExpectOne(Check(ini), Finding::kWarning, "NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup",
            LineOf(ini.Text(), "UseFailureClientPopup="),
            "True: after an aborted run the engine waits behind a message box until someone clicks OK; in an "
            "unattended start no one does, and the process never ends");
}

TEST(IniCheckTest, PopupsSwitchedOffByUseClientPopup_AreNoWarning) {
  testini::IniFile ini = Clean();
  ini.Set("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup", "True")
      .Set("NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup", "True");
  EXPECT_TRUE(Check(ini).empty());
}

TEST(IniCheckTest, DefaultTypeOtherThanOneOrTwo_DefaultIsNotCarried) {
  testini::IniFile ini = Clean();
  ini.Set("SET_DEFAULT", "DefaultType", "3");
  ExpectOne(Check(ini), Finding::kWarning, "SET_DEFAULT", "DefaultType", LineOf(ini.Text(), "DefaultType="),
            "3: neither 1 (keep the user's default when it moves) nor 2 (DefaultPrinterName for all): a default "
            "printer that moves is not kept as the default, and its users are left without one");
  ini.Remove("SET_DEFAULT", "DefaultType");
  ExpectOne(Check(ini), Finding::kWarning, "SET_DEFAULT", "DefaultType", LineOf(ini.Text(), "[SET_DEFAULT]"),
            "missing, which reads as 0: neither 1 (keep the user's default when it moves) nor 2 (DefaultPrinterName "
            "for all): a default printer that moves is not kept as the default, and its users are left without one");
}

testini::IniFile WithDirectory() {
  testini::IniFile ini = Clean();
  ini.Set("GENERAL", "UseActiveDirectory", "True")
      .Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com")
      .Set("PRUNE", "DeleteADOrphans", "True");
  return ini;
}

const std::string kSizeLimit =
    "True: the engine reads the print queues of the directory without paging, so a domain controller answers with "
    "its first 1000 at most (its default size limit): with more queues published, printers whose queue is not among "
    "them are not moved, and are removed as orphans";

TEST(IniCheckTest, DirectoryMode_WarnsOfTheSizeLimit) {
  testini::IniFile ini = WithDirectory();
  std::vector<Finding> findings = Check(ini);
  ASSERT_EQ(findings.size(), 1u);
  ExpectOne(findings, Finding::kWarning, "GENERAL", "UseActiveDirectory", LineOf(ini.Text(), "UseActiveDirectory="),
            kSizeLimit);
}

TEST(IniCheckTest, DirectoryOverItsSizeLimit_SaysHowManyAreCut) {
  fleet::CheckOptions options;
  options.directory.emplace();
  options.directory->printQueues.resize(1500);
  std::vector<Finding> findings = Check(WithDirectory(), options);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].message,
            "True: the directory publishes 1500 print queues, but answers the engine's query with the first 1000: "
            "printers whose queue is among the other 500 are not moved, and are removed as orphans");
  options.directory->printQueues.resize(1000);
  EXPECT_TRUE(Check(WithDirectory(), options).empty());
}

TEST(IniCheckTest, DeleteADOrphansFalseInDirectoryMode_OrphansGoAnyway) {
  testini::IniFile ini = WithDirectory();
  ini.Set("PRUNE", "DeleteADOrphans", "False");
  ExpectOne(Check(ini), Finding::kWarning, "PRUNE", "DeleteADOrphans", LineOf(ini.Text(), "DeleteADOrphans="),
            "False, but with UseActiveDirectory True the engine removes every connection whose queue is not in the "
            "directory all the same");
}

TEST(IniCheckTest, HyphenInAServerNameInDirectoryMode_IsCutThere) {
  testini::IniFile ini = WithDirectory();
  ini.Set("GENERAL", "UseManualDefinitions", "True")
      .Set("MANUAL DEFINITIONS SERVERS", "FromServers", "OLD")
      .Set("MANUAL DEFINITIONS SERVERS", "ToServers", "PRN-02");
  ExpectOne(Check(ini), Finding::kWarning, "MANUAL DEFINITIONS SERVERS", "ToServers", LineOf(ini.Text(), "ToServers="),
            "the server name \"PRN-02\" holds a hyphen while UseActiveDirectory is True: the engine cuts the "
            "directory's queue names at the first hyphen, so a queue of PRN-02 reads as one of the server \"PRN\" and "
            "clients are moved to \\\\PRN");
  ini.Set("GENERAL", "UseActiveDirectory", "False");
  EXPECT_TRUE(About(Check(ini), "ToServers").empty());
}

TEST(IniCheckTest, PruneOfLocalPrintersWithNoName_RemovesThemAll) {
  testini::IniFile ini = Clean();
  ini.Set("PRUNE", "ServerNames", ".").Set("PRUNE", "PrinterNames", "");
  ExpectOne(Check(ini), Finding::kWarning, "PRUNE", "PrinterNames", LineOf(ini.Text(), "PrinterNames="),
            "entry 1 (ServerNames \".\", PrinterNames \"\") removes every local printer of every client: an empty "
            "printer name matches them all");
}

TEST(IniCheckTest, PruneWithStarOnAServer_RemovesAllItsPrinters) {
  testini::IniFile ini = Clean();
  ini.Set("PRUNE", "ServerNames", "OLD,NEW").Set("PRUNE", "PrinterNames", "laser,*");
  ExpectOne(Check(ini), Finding::kWarning, "PRUNE", "PrinterNames", LineOf(ini.Text(), "PrinterNames="),
            "entry 2 (ServerNames \"NEW\", PrinterNames \"*\") removes every printer of the server NEW");
}

TEST(IniCheckTest, PruneListWhoseFirstEntryIsEmpty_IsIgnoredAndWarnsOfNothing) {
  testini::IniFile ini = Clean();
  ini.Set("PRUNE", "ServerNames", ",NEW").Set("PRUNE", "PrinterNames", ",*");
  EXPECT_TRUE(Check(ini).empty());
}

TEST(IniCheckTest, DeleteAllNonNetworked_RemovesEveryLocalPrinter) {
  testini::IniFile ini = Clean();
  ini.Set("PRUNE", "DeleteAllNonNetworked", "True");
  ExpectOne(Check(ini), Finding::kWarning, "PRUNE", "DeleteAllNonNetworked",
            LineOf(ini.Text(), "DeleteAllNonNetworked="), "True: every local printer of every client is removed");
}

}  // namespace
