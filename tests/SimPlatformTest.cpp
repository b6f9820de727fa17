// The services of the simulated client, called through the platform
// boundary as the engine calls them.
#include "SimFixture.h"
#include "tests/IniFileBuilder.h"

#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "notification/modNotification.h"
#include "platform/sim/SimContext.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <set>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using platform::Failure;

class SimPlatformTest : public SimFixture {
 protected:
  // GetPrivateProfileStringA into a buffer of size blanks, as the engine
  // reads; the buffer, the count and the last error.
  struct ProfileRead {
    std::string buffer;
    DWORD count;
    DWORD lastError;
  };
  ProfileRead ReadProfile(const char* section, const char* key, const char* file, DWORD size = 100,
                          const char* defaultValue = nullptr) {
    ProfileRead r;
    r.buffer.assign(size, ' ');
    r.count = Sys().profile->GetPrivateProfileStringA(section, key, defaultValue, r.buffer.data(), size, file);
    r.lastError = Sys().system->GetLastError();
    return r;
  }
  // The value as the engine takes it: the text before the NUL.
  static std::string Value(const ProfileRead& r) { return r.buffer.substr(0, r.buffer.find('\0')); }
};

// ---------------------------------------------------------------- profile

TEST_F(SimPlatformTest, PrivateProfile_ReadsAsWindows_CaseBlindTrimmedUnquoted) {
  WriteFile("C:\\Deploy\\a.ini",
            "; a comment\r\n"
            "[GENERAL]\r\n"
            "  UseSMTP   =   TRUE  \r\n"
            "Quoted=\"  in quotes  \"\r\n"
            "Single='x'\r\n"
            "Half=\"open\r\n"
            ";Hidden=1\r\n"
            "Dup=first\r\n"
            "dup=second\r\n"
            "NoEquals\r\n"
            "Empty=\r\n"
            "[general]\r\n"
            "Later=1\r\n"
            "[ACTIVE DIRECTORY]\r\n"
            "DomainName=corp.example.com\n");
  Install();
  EXPECT_EQ(Value(ReadProfile("general", "usesmtp", "C:\\Deploy\\a.ini")), "TRUE");
  EXPECT_EQ(Value(ReadProfile("GENERAL", "Quoted", "C:\\Deploy\\a.ini")), "  in quotes  ");
  EXPECT_EQ(Value(ReadProfile("GENERAL", "Single", "C:\\Deploy\\a.ini")), "x");
  EXPECT_EQ(Value(ReadProfile("GENERAL", "Half", "C:\\Deploy\\a.ini")), "\"open");
  EXPECT_EQ(Value(ReadProfile("GENERAL", ";Hidden", "C:\\Deploy\\a.ini")), "");
  EXPECT_EQ(Value(ReadProfile("GENERAL", "DUP", "C:\\Deploy\\a.ini")), "first");
  EXPECT_EQ(Value(ReadProfile("GENERAL", "NoEquals", "C:\\Deploy\\a.ini", 100, "dflt")), "dflt");
  EXPECT_EQ(Value(ReadProfile("GENERAL", "Empty", "C:\\Deploy\\a.ini", 100, "dflt")), "");
  // The first of two sections of one name wins: its keys only.
  EXPECT_EQ(Value(ReadProfile("GENERAL", "Later", "C:\\Deploy\\a.ini", 100, "none")), "none");
  EXPECT_EQ(Value(ReadProfile(" ACTIVE DIRECTORY ", " DomainName ", "c:\\DEPLOY\\A.INI")), "corp.example.com");
  ProfileRead r = ReadProfile("GENERAL", "UseSMTP", "C:\\Deploy\\a.ini");
  EXPECT_EQ(r.count, 4u);
  EXPECT_EQ(r.lastError, 0u);
  // The value and its NUL; the blanks behind stay as they were.
  EXPECT_EQ(r.buffer, std::string("TRUE") + '\0' + std::string(95, ' '));
}

TEST_F(SimPlatformTest, PrivateProfile_ValueLongerThanBuffer_IsCutToSizeMinusOne) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nK=" + std::string(1200, 'm') + "\r\n");
  Install();
  ProfileRead r = ReadProfile("S", "K", "C:\\Deploy\\a.ini", 1000);
  EXPECT_EQ(r.count, 999u);
  EXPECT_EQ(Value(r), std::string(999, 'm'));
  EXPECT_EQ(r.buffer[999], '\0');
}

TEST_F(SimPlatformTest, PrivateProfile_MissingFile_LeavesLastError2AndGivesDefault) {
  Install();
  ProfileRead r = ReadProfile("S", "K", "C:\\Deploy\\none.ini", 100, "fallback  ");
  EXPECT_EQ(r.lastError, 2u);
  EXPECT_EQ(Value(r), "fallback");
  EXPECT_EQ(r.count, 8u);
  ProfileRead nothing = ReadProfile("S", "K", "C:\\Nowhere\\none.ini");
  EXPECT_EQ(nothing.lastError, 2u);
  EXPECT_EQ(Value(nothing), "");
  EXPECT_EQ(nothing.count, 0u);
}

TEST_F(SimPlatformTest, PrivateProfile_MissingSectionOrKey_LeavesLastError0) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nK=v\r\n");
  Install();
  ProfileRead section = ReadProfile("T", "K", "C:\\Deploy\\a.ini");
  EXPECT_EQ(section.lastError, 0u);
  EXPECT_EQ(section.count, 0u);
  EXPECT_EQ(section.buffer[0], '\0');
  ProfileRead key = ReadProfile("S", "L", "C:\\Deploy\\a.ini");
  EXPECT_EQ(key.lastError, 0u);
  EXPECT_EQ(Value(key), "");
}

TEST_F(SimPlatformTest, PrivateProfile_NameWithoutPath_IsTakenInWindowsDir) {
  machine["windowsDir"] = "C:\\WINNT";
  WriteFile("C:\\WINNT\\bare.ini", "[S]\r\nK=windows folder\r\n");
  WriteFile("C:\\WINNT\\sub\\rel.ini", "[S]\r\nK=below it\r\n");
  WriteFile("C:\\Deploy\\bare.ini", "[S]\r\nK=beside the executable\r\n");
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "K", "bare.ini")), "windows folder");
  EXPECT_EQ(Value(ReadProfile("S", "K", "sub\\rel.ini")), "below it");
}

TEST_F(SimPlatformTest, PrivateProfile_NullKeyOrSection_ListsNames) {
  WriteFile("C:\\Deploy\\a.ini", "[One]\r\nA=1\r\nB=2\r\n[Two]\r\n");
  Install();
  ProfileRead keys = ReadProfile("one", nullptr, "C:\\Deploy\\a.ini", 10);
  EXPECT_EQ(keys.count, 4u);
  EXPECT_EQ(keys.buffer.substr(0, 5), std::string("A\0B\0\0", 5));
  ProfileRead sections = ReadProfile(nullptr, nullptr, "C:\\Deploy\\a.ini", 10);
  EXPECT_EQ(sections.count, 8u);
  EXPECT_EQ(sections.buffer.substr(0, 9), std::string("One\0Two\0\0", 9));
  // Too small: cut, double NUL, size - 2.
  ProfileRead cut = ReadProfile(nullptr, nullptr, "C:\\Deploy\\a.ini", 6);
  EXPECT_EQ(cut.count, 4u);
  EXPECT_EQ(cut.buffer, std::string("One\0\0\0", 6));
}

TEST_F(SimPlatformTest, PrivateProfile_Utf16File_IsReadAsText) {
  std::string bytes = "\xFF\xFE";
  for (char c : std::string("[S]\r\nK=v\xC3\xA9\r\n")) {
    if (static_cast<unsigned char>(c) == 0xC3) continue;
    bytes += static_cast<char>(static_cast<unsigned char>(c) == 0xA9 ? 0xE9 : c);
    bytes += '\0';
  }
  WriteFile("C:\\Deploy\\u.ini", bytes);
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "K", "C:\\Deploy\\u.ini")), "v\xE9");
}

TEST_F(SimPlatformTest, PrivateProfile_SectionLines_AsWindowsReadsThem) {
  // Blanks inside the brackets, a name that ends at the first "]", a line
  // without "]", and text after the "]".
  WriteFile("C:\\Deploy\\a.ini",
            "[ GENERAL ]\r\nA=1\r\n[\t\vTAB \t]\r\nB=2\r\n  [OPEN  \r\nC=3\r\n[FIRST]x]\r\nD=4\r\n"
            "[S]E=5\r\nF=6\r\n");
  Install();
  EXPECT_EQ(Value(ReadProfile("GENERAL", "A", "C:\\Deploy\\a.ini")), "1");
  EXPECT_EQ(Value(ReadProfile("TAB", "B", "C:\\Deploy\\a.ini")), "2");
  EXPECT_EQ(Value(ReadProfile("OPEN", "C", "C:\\Deploy\\a.ini")), "3");
  EXPECT_EQ(Value(ReadProfile("FIRST", "D", "C:\\Deploy\\a.ini")), "4");
  EXPECT_EQ(Value(ReadProfile("FIRST]x", "D", "C:\\Deploy\\a.ini")), "");
  EXPECT_EQ(Value(ReadProfile("S", "E", "C:\\Deploy\\a.ini")), "");
  EXPECT_EQ(Value(ReadProfile("S", "F", "C:\\Deploy\\a.ini")), "6");
  ProfileRead sections = ReadProfile(nullptr, nullptr, "C:\\Deploy\\a.ini", 40);
  EXPECT_EQ(sections.count, 25u);
  EXPECT_EQ(sections.buffer.substr(0, 26), std::string("GENERAL\0TAB\0OPEN\0FIRST\0S\0\0", 26));
}

TEST_F(SimPlatformTest, PrivateProfile_LoneCarriageReturn_EndsALine) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\rA=1\rB=2\r\n\n[T]\nC=3");
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "A", "C:\\Deploy\\a.ini")), "1");
  EXPECT_EQ(Value(ReadProfile("S", "B", "C:\\Deploy\\a.ini")), "2");
  EXPECT_EQ(Value(ReadProfile("T", "C", "C:\\Deploy\\a.ini")), "3");
}

TEST_F(SimPlatformTest, PrivateProfile_NulInsideAValue_IsPartOfIt) {
  WriteFile("C:\\Deploy\\a.ini", std::string("[S]\r\nA=ab\0cd\r\n", 15));
  Install();
  ProfileRead r = ReadProfile("S", "A", "C:\\Deploy\\a.ini", 10);
  EXPECT_EQ(r.count, 5u);
  EXPECT_EQ(r.buffer.substr(0, 6), std::string("ab\0cd\0", 6));
}

TEST_F(SimPlatformTest, PrivateProfile_Utf16BigEndian_IsNotUnderstood) {
  std::string bytes = "\xFE\xFF";
  for (char c : std::string("[S]\r\nA=1\r\n")) bytes += std::string(1, '\0') + c;
  WriteFile("C:\\Deploy\\a.ini", bytes);
  Install();
  ProfileRead r = ReadProfile("S", "A", "C:\\Deploy\\a.ini");
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(r.lastError, 0u);
  ProfileRead sections = ReadProfile(nullptr, nullptr, "C:\\Deploy\\a.ini", 10);
  EXPECT_EQ(sections.count, 0u);
  EXPECT_EQ(sections.buffer.substr(0, 2), std::string("\0 ", 2));   // one NUL, the blank after it left
}

TEST_F(SimPlatformTest, PrivateProfile_Utf8ByteOrderMark_BreaksTheFirstLine) {
  WriteFile("C:\\Deploy\\a.ini", "\xEF\xBB\xBF[S]\r\nA=Grüße\r\n[T]\r\nB=Grüße\r\n");
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "A", "C:\\Deploy\\a.ini", 100, "none")), "none");
  // The rest is read in the code page: UTF-8 bytes are 1252 characters.
  EXPECT_EQ(Value(ReadProfile("T", "B", "C:\\Deploy\\a.ini")), "Gr\xC3\xBC\xC3\x9F" "e");
}

TEST_F(SimPlatformTest, PrivateProfile_Utf16LittleEndian_GivesTheCodePagesBytes) {
  std::u16string text = u"[S]\r\nA=Drücker 日本\r\n";
  std::string bytes = "\xFF\xFE";
  for (char16_t u : text) bytes += std::string{static_cast<char>(u & 0xFF), static_cast<char>(u >> 8)};
  WriteFile("C:\\Deploy\\a.ini", bytes);
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "A", "C:\\Deploy\\a.ini")), "Dr\xFC" "cker ??");
  machine["os"] = {{"ansiCodePage", 932}};
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "A", "C:\\Deploy\\a.ini")), "Drucker \x93\xFA\x96\x7B");
}

TEST_F(SimPlatformTest, PrivateProfile_BytesAbove7F_AreCharactersOfTheCodePage) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nA=\x93\xFA\x96\x7B\r\nB=\x81\r\n[\x93\xFA]\r\nC=\xFC\r\n");
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "A", "C:\\Deploy\\a.ini")), "\x93\xFA\x96\x7B");
  EXPECT_EQ(Value(ReadProfile("S", "B", "C:\\Deploy\\a.ini")), "\x81");
  EXPECT_EQ(Value(ReadProfile("\x93\xFA", "C", "C:\\Deploy\\a.ini")), "\xFC");
  machine["os"] = {{"ansiCodePage", 932}};
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "A", "C:\\Deploy\\a.ini")), "\x93\xFA\x96\x7B");
  // A lead byte takes the CR along: the line goes on to the LF, and the
  // pair, no character, becomes the default character U+30FB.
  EXPECT_EQ(Value(ReadProfile("S", "B", "C:\\Deploy\\a.ini")), "\x81\x45");
  // 0xFC starts a pair with the CR: the value is U+30FB, bytes 81 45.
  EXPECT_EQ(Value(ReadProfile("\x93\xFA", "C", "C:\\Deploy\\a.ini")), "\x81\x45");
}

TEST_F(SimPlatformTest, PrivateProfile_QuotedValueOneLongerThanTheBuffer_KeepsAllItFits) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nQ=  \"abcd\"  \r\n");
  Install();
  for (DWORD size : {4u, 5u, 6u}) {
    ProfileRead r = ReadProfile("S", "Q", "C:\\Deploy\\a.ini", size);
    std::string expected = size == 4 ? "abc" : "abcd";
    EXPECT_EQ(r.count, expected.size()) << size;
    EXPECT_EQ(Value(r), expected) << size;
  }
}

TEST_F(SimPlatformTest, PrivateProfile_DoubleByteValueCutToTheBuffer_KeepsWholeCharacters) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nA=a\x93\xFA\x96\x7B\r\n");
  machine["os"] = {{"ansiCodePage", 932}};
  Install();
  ProfileRead r = ReadProfile("S", "A", "C:\\Deploy\\a.ini", 3);
  EXPECT_EQ(r.count, 1u);
  EXPECT_EQ(r.buffer.substr(0, 2), std::string("a\0", 2));
  r = ReadProfile("S", "A", "C:\\Deploy\\a.ini", 4);
  EXPECT_EQ(r.count, 3u);
  EXPECT_EQ(r.buffer.substr(0, 4), std::string("a\x93\xFA\0", 4));
}

TEST_F(SimPlatformTest, PrivateProfile_KeysAndNames_AsWindowsListsAndFindsThem) {
  WriteFile("C:\\Deploy\\a.ini",
            "A=before any section\r\n[S]\r\nname1=v1\r\nname3\r\n;name5=hidden\r\nname4=v4\r\n[S]\r\nname6=v6\r\n");
  Install();
  ProfileRead keys = ReadProfile("S", nullptr, "C:\\Deploy\\a.ini", 40);
  EXPECT_EQ(keys.count, 12u);
  EXPECT_EQ(keys.buffer.substr(0, 13), std::string("name1\0name4\0\0", 13));
  EXPECT_EQ(Value(ReadProfile("S", "name6", "C:\\Deploy\\a.ini", 100, "first section only")),
            "first section only");
  EXPECT_EQ(Value(ReadProfile("", "A", "C:\\Deploy\\a.ini", 100, "none")), "none");
  EXPECT_EQ(Value(ReadProfile("  S  ", "  name1 ", "C:\\Deploy\\a.ini")), "v1");
  EXPECT_EQ(Value(ReadProfile("\tS", "name1", "C:\\Deploy\\a.ini", 100, "tab kept")), "tab kept");
}

TEST_F(SimPlatformTest, ProfileString_ReadsAndWritesWinIni) {
  machine["winIni"] = {{"Windows", {{"device", "laser,winspool,Ne00:"}}}};
  Install();
  std::string buffer(100, ' ');
  DWORD n = Sys().profile->GetProfileStringA("windows", "DEVICE", "", buffer.data(), 100);
  EXPECT_EQ(n, 20u);
  EXPECT_EQ(buffer.substr(0, 21), std::string("laser,winspool,Ne00:\0", 21));
  EXPECT_EQ(Sys().system->GetLastError(), 0u);

  EXPECT_EQ(Sys().profile->WriteProfileStringA("Windows", "device", "\\\\NEW\\laser,winspool,Ne01:"), TRUE);
  EXPECT_EQ(Sys().profile->WriteProfileStringA("PrinterPorts", "\\\\NEW\\laser", "winspool,Ne01:,15,45"), TRUE);
  client->Save();
  sim::Machine saved = sim::LoadMachine(dir);
  ASSERT_EQ(saved.winIni.size(), 2u);
  EXPECT_EQ(saved.winIni[0].second[0].second, "\\\\NEW\\laser,winspool,Ne01:");
  EXPECT_EQ(saved.winIni[1].first, "PrinterPorts");
  EXPECT_EQ(saved.winIni[1].second[0],
            (std::pair<std::string, std::string>{"\\\\NEW\\laser", "winspool,Ne01:,15,45"}));
  // The default printer of NT 4 follows the device key.
  EXPECT_EQ(sim::Current().machine.winIni[0].second.size(), 1u);
  EXPECT_EQ(Sys().profile->WriteProfileStringA("Windows", "device", nullptr), TRUE);
  n = Sys().profile->GetProfileStringA("Windows", "device", "none", buffer.data(), 100);
  EXPECT_EQ(buffer.substr(0, n), "none");
}

TEST_F(SimPlatformTest, ProfileString_TheDefaultWrittenToWindowsDevice_IsASpoolerCall) {
  Install();
  EXPECT_EQ(Sys().profile->WriteProfileStringA("windows", "Device", "laser,winspool,Ne00:"), TRUE);
  EXPECT_EQ(Sys().profile->WriteProfileStringA("Other", "Device", "x"), TRUE);
  EXPECT_EQ(Transcript()["spoolerCalls"], nlohmann::json::parse(R"([{"call": "WriteProfileStringA",
      "args": ["windows", "Device", "laser,winspool,Ne00:"], "result": 1, "lastError": 0}])"));
}

TEST_F(SimPlatformTest, CurrentDefault_FollowsEachGeneration) {
  machine["printers"] = {{{"name", "A"}, {"attributes", 0}}, {{"name", "B"}, {"attributes", 4}}};
  machine["defaultPrinter"] = "A";
  machine["winIni"] = {{"Windows", {{"device", "C,winspool,LPT1:"}}}};
  Install();
  sim::Context& c = sim::Current();
  EXPECT_EQ(c.CurrentDefault(), std::optional<std::string>("A"));
  c.machine.platformId = 1;
  EXPECT_EQ(c.CurrentDefault(), std::optional<std::string>("B"));
  c.machine.platformId = 2;
  c.machine.majorVersion = 4;
  EXPECT_EQ(c.CurrentDefault(), std::optional<std::string>("C"));
  c.machine.winIni.clear();
  EXPECT_EQ(c.CurrentDefault(), std::nullopt);
}

// ---------------------------------------------------------------- drives

TEST_F(SimPlatformTest, Files_PathsResolveCaseBlindOnTheDrives) {
  WriteFile("C:\\Deploy\\Config\\A.ini", "one");
  WriteFile("\\\\SRV\\Share\\Drivers\\x.inf", "two");
  Install();
  std::string content;
  EXPECT_FALSE(Sys().files->ReadText("c:\\deploy\\CONFIG\\a.INI", content).failed());
  EXPECT_EQ(content, "one");
  EXPECT_FALSE(Sys().files->ReadText("\\\\srv\\SHARE\\drivers\\X.INF", content).failed());
  EXPECT_EQ(content, "two");
  EXPECT_FALSE(Sys().files->ReadText("C:/Deploy/./Other/../Config/A.ini", content).failed());
  EXPECT_EQ(content, "one");
  // A relative name is taken from the executable's folder.
  EXPECT_FALSE(Sys().files->ReadText("Config\\A.ini", content).failed());
  EXPECT_EQ(content, "one");
  EXPECT_EQ(dir / "files" / "C" / "Deploy" / "Config" / "A.ini", sim::Current().HostPath("C:\\DEPLOY\\config\\a.ini"));
}

TEST_F(SimPlatformTest, Files_SamePathAgain_LooksAtTheDrivesAgain) {
  WriteFile("C:\\Deploy\\A.INI", "upper");
  WriteFile("D:\\Deploy\\a.ini", "d");
  Install();
  const std::filesystem::path deploy = dir / "files" / "C" / "Deploy";
  EXPECT_EQ(deploy / "A.INI", sim::ResolveWindowsPath(dir, "C:\\Deploy\\a.ini").host);
  // The exact name, once it exists, is taken first.
  std::ofstream(deploy / "a.ini") << "lower";
  EXPECT_EQ(deploy / "a.ini", sim::ResolveWindowsPath(dir, "C:\\Deploy\\a.ini").host);
  std::filesystem::remove(deploy / "a.ini");
  EXPECT_EQ(deploy / "A.INI", sim::ResolveWindowsPath(dir, "C:\\Deploy\\a.ini").host);
  // The same relative text in another current folder is another file.
  EXPECT_EQ(deploy / "A.INI", sim::ResolveWindowsPath(dir, "a.ini", "C:\\Deploy").host);
  EXPECT_EQ(dir / "files" / "D" / "Deploy" / "a.ini", sim::ResolveWindowsPath(dir, "a.ini", "D:\\Deploy").host);
  EXPECT_EQ(sim::ResolvedPath::kBadName, sim::ResolveWindowsPath(dir, "a*.ini", "D:\\Deploy").status);
  EXPECT_EQ(sim::ResolvedPath::kOk, sim::ResolveWindowsPath(dir, "a*.ini", "D:\\Deploy", true).status);
}

TEST_F(SimPlatformTest, Files_ReadFailures_GiveTheRunTimeErrors) {
  WriteFile("C:\\Deploy\\a.ini", "x");
  Install();
  std::string content;
  Failure missing = Sys().files->ReadText("C:\\Deploy\\b.ini", content);
  EXPECT_EQ(missing.Number, 53);
  EXPECT_EQ(missing.Description, "File not found");
  Failure noFolder = Sys().files->ReadText("C:\\Nowhere\\b.ini", content);
  EXPECT_EQ(noFolder.Number, 76);
  EXPECT_EQ(noFolder.Description, "Path not found");
  Failure folder = Sys().files->ReadText("C:\\Deploy", content);
  EXPECT_EQ(folder.Number, 75);
  EXPECT_EQ(folder.Description, "Path/File access error");
  Failure badName = Sys().files->ReadText("C:\\Deploy\\a?.ini", content);
  EXPECT_EQ(badName.Number, 52);
  EXPECT_EQ(badName.Description, "Bad file name or number");
  Failure noShare = Sys().files->ReadText("\\\\NOSRV\\share\\a.ini", content);
  EXPECT_EQ(noShare.Number, 76);
  Failure noDrive = Sys().files->ReadText("Q:\\a.ini", content);
  EXPECT_EQ(noDrive.Number, 76);
  EXPECT_EQ(noDrive.Description, "Path not found");
}

TEST_F(SimPlatformTest, Files_AppendText_CreatesAndAddsAndIsRecorded) {
  WriteFile("C:\\Deploy\\Log.txt", "old\r\n");
  Install();
  EXPECT_FALSE(Sys().files->AppendText("C:\\deploy\\log.TXT", "new\r\n").failed());
  EXPECT_FALSE(Sys().files->AppendText("C:\\Deploy\\fresh.txt", "a").failed());
  EXPECT_FALSE(Sys().files->AppendText("C:\\Deploy\\fresh.txt", "b").failed());
  EXPECT_EQ(ReadFile("C:\\Deploy\\Log.txt"), "old\r\nnew\r\n");
  EXPECT_EQ(ReadFile("C:\\Deploy\\fresh.txt"), "ab");
  Failure noFolder = Sys().files->AppendText("C:\\Nowhere\\x.txt", "a");
  EXPECT_EQ(noFolder.Number, 76);
  Failure folder = Sys().files->AppendText("C:\\Deploy\\", "a");
  EXPECT_EQ(folder.Number, 75);
  EXPECT_EQ(Transcript()["filesWritten"], (nlohmann::json{"C:\\Deploy\\Log.txt", "C:\\Deploy\\fresh.txt"}));
}

TEST_F(SimPlatformTest, Files_ReplaceText_ReplacesWholeAndLeavesNoTemporary) {
  WriteFile("C:\\Users\\jdoe\\status.log", "a long old content\r\n");
  Install();
  EXPECT_FALSE(Sys().files->ReplaceText("C:\\Users\\jdoe\\status.log", "new\r\n").failed());
  EXPECT_EQ(ReadFile("C:\\Users\\jdoe\\status.log"), "new\r\n");
  int entries = 0;
  for (const auto& e : std::filesystem::directory_iterator(dir / "files" / "C" / "Users" / "jdoe"))
    entries += e.is_regular_file() ? 1 : 0;
  EXPECT_EQ(entries, 1);
}

// A replacement left by a process that was killed before it could move it
// into place: the next process that reads or writes the file removes it,
// but never one of a process that still runs.
TEST_F(SimPlatformTest, Files_ReplacementOfAKilledProcess_IsRemovedByTheNextAccess) {
  WriteFile("C:\\Users\\jdoe\\status.log", "old\r\n");
  const std::filesystem::path profile = dir / "files" / "C" / "Users" / "jdoe";
  const pid_t gone = fork();
  if (gone == 0) _exit(0);
  ASSERT_GT(gone, 0);
  waitpid(gone, nullptr, 0);
  const pid_t running = fork();
  if (running == 0) {
    pause();
    _exit(0);
  }
  ASSERT_GT(running, 0);
  const std::string dead = ".status.log." + std::to_string(gone) + "-0.new";
  const std::string live = ".status.log." + std::to_string(running) + "-3.new";
  const std::string mine = ".status.log." + std::to_string(getpid()) + "-7.new";
  const std::string other = ".other.log." + std::to_string(gone) + "-0.new";
  for (const std::string& name : {dead, live, mine, other, std::string(".status.log.x-0.new")})
    std::ofstream(profile / name) << "half a file";
  Install();

  std::string content;
  EXPECT_FALSE(Sys().files->ReadText("C:\\Users\\jdoe\\status.log", content).failed());
  EXPECT_EQ(content, "old\r\n");
  std::set<std::string> left;
  for (const auto& e : std::filesystem::directory_iterator(profile))
    if (e.is_regular_file()) left.insert(e.path().filename().string());
  EXPECT_EQ(left, (std::set<std::string>{"status.log", live, other, ".status.log.x-0.new"}));

  EXPECT_FALSE(Sys().files->ReplaceText("C:\\Users\\jdoe\\status.log", "new\r\n").failed());
  EXPECT_EQ(ReadFile("C:\\Users\\jdoe\\status.log"), "new\r\n");
  EXPECT_TRUE(std::filesystem::exists(profile / live));
  kill(running, SIGKILL);
  waitpid(running, nullptr, 0);
  EXPECT_FALSE(Sys().files->AppendText("C:\\Users\\jdoe\\status.log", "more\r\n").failed());
  EXPECT_FALSE(std::filesystem::exists(profile / live));
  EXPECT_TRUE(std::filesystem::exists(profile / other));
}

TEST_F(SimPlatformTest, Files_WriteBinary_DoesNotTruncate) {
  WriteFile("C:\\Deploy\\PC042.debug", "0123456789");
  Install();
  EXPECT_FALSE(Sys().files->WriteBinary("C:\\Deploy\\PC042.debug", {'a', 'b', 'c'}).failed());
  EXPECT_EQ(ReadFile("C:\\Deploy\\PC042.debug"), "abc3456789");
  EXPECT_FALSE(Sys().files->WriteBinary("C:\\Deploy\\new.debug", {0, 1}).failed());
  EXPECT_EQ(ReadFile("C:\\Deploy\\new.debug"), std::string("\0\1", 2));
}

TEST_F(SimPlatformTest, Files_FileCopy_CopiesAndReplaces) {
  WriteFile("\\\\SRV\\drivers\\hp.dll", "driver");
  WriteFile("C:\\Windows\\system32\\hp.dll", "older driver, longer");
  Install();
  EXPECT_FALSE(Sys().files->FileCopy("\\\\srv\\drivers\\HP.DLL", "C:\\Windows\\system32\\hp.dll").failed());
  EXPECT_EQ(ReadFile("C:\\Windows\\system32\\hp.dll"), "driver");
  EXPECT_EQ(Sys().files->FileCopy("\\\\SRV\\drivers\\none.dll", "C:\\Windows\\system32\\none.dll").Number, 53);
  EXPECT_EQ(Sys().files->FileCopy("\\\\SRV\\drivers\\hp.dll", "C:\\No\\hp.dll").Number, 76);
  EXPECT_EQ(Transcript()["filesWritten"], (nlohmann::json{"C:\\Windows\\system32\\hp.dll"}));
}

TEST_F(SimPlatformTest, Files_ReadOnlyPaths_RefuseWritesWithPermissionDenied) {
  machine["readOnly"] = {"c:\\deploy", "C:\\Users\\jdoe\\locked.txt"};
  WriteFile("C:\\Deploy\\a.ini", "x");
  WriteFile("C:\\Users\\jdoe\\locked.txt", "kept");
  WriteFile("C:\\Users\\jdoe\\free.txt", "");
  Install();
  for (const Failure& f : {Sys().files->AppendText("C:\\Deploy\\report.txt", "x"),
                           Sys().files->ReplaceText("C:\\Deploy\\a.ini", "y"),
                           Sys().files->WriteBinary("C:\\DEPLOY\\Sub\\PC042.debug", {1}),
                           Sys().files->FileCopy("C:\\Deploy\\a.ini", "C:\\Users\\jdoe\\locked.txt"),
                           Sys().files->AppendText("C:\\Users\\jdoe\\locked.txt", "x")}) {
    EXPECT_EQ(f.Number, 70);
    EXPECT_EQ(f.Description, "Permission denied");
  }
  EXPECT_FALSE(Sys().files->AppendText("C:\\Users\\jdoe\\free.txt", "ok").failed());
  EXPECT_FALSE(Sys().files->FileCopy("C:\\Deploy\\a.ini", "C:\\Users\\jdoe\\copy.ini").failed());
  EXPECT_EQ(ReadFile("C:\\Deploy\\a.ini"), "x");
  EXPECT_EQ(ReadFile("C:\\Users\\jdoe\\locked.txt"), "kept");
  EXPECT_FALSE(FileExists("C:\\Deploy\\report.txt"));
  std::string content;
  EXPECT_FALSE(Sys().files->ReadText("C:\\Deploy\\a.ini", content).failed());
  EXPECT_EQ(Transcript()["filesWritten"], (nlohmann::json{"C:\\Users\\jdoe\\free.txt", "C:\\Users\\jdoe\\copy.ini"}));
}

TEST_F(SimPlatformTest, Files_StandardUser_SystemFolderRefusesWritesWithPermissionDenied) {
  machine["user"] = {{"isAdmin", false}};
  Install();
  WriteFile("\\\\fileserver\\drivers\\hp.dll", "driver");
  Failure copy = Sys().files->FileCopy("\\\\fileserver\\drivers\\hp.dll", "C:\\WINDOWS\\System32\\hp.dll");
  EXPECT_EQ(copy.Number, 70);
  EXPECT_EQ(copy.Description, "Permission denied");
  EXPECT_EQ(Sys().files->AppendText("C:\\Windows\\system32\\sub\\log.txt", "x").Number, 70);
  EXPECT_FALSE(FileExists("C:\\Windows\\system32\\hp.dll"));
  // Elsewhere the user writes.
  EXPECT_FALSE(Sys().files->FileCopy("\\\\fileserver\\drivers\\hp.dll", "C:\\Users\\jdoe\\hp.dll").failed());
  EXPECT_FALSE(Sys().files->AppendText("C:\\Windows\\log.txt", "x").failed());
}

// ---------------------------------------------------------------- the drives as a boundary

// Every file below the client folder, by its path in the folder.
std::set<std::string> FilesBelow(const std::filesystem::path& folder) {
  std::set<std::string> files;
  for (const auto& e : std::filesystem::recursive_directory_iterator(folder))
    if (e.is_regular_file()) files.insert(std::filesystem::relative(e.path(), folder).string());
  return files;
}

// However a path is written, it reaches no file outside the drives: it
// fails as Windows fails it, with the run-time error of that failure.
TEST_F(SimPlatformTest, Files_PathsThatWouldLeaveTheDrives_FailAsWindowsFailsThem) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nK=v\r\n");
  WriteFile("\\\\SRV\\share\\x.txt", "x");
  Install();
  const std::set<std::string> before = FilesBelow(dir);
  struct Case {
    std::string path;
    int32_t number;
  };
  const std::vector<Case> cases = {
      // ".." or "." as a server or share: one the client does not have.
      {"\\\\..\\..\\escape.txt", 76},
      {"\\\\..\\share\\escape.txt", 76},
      {"\\\\SRV\\..\\escape.txt", 76},
      {"\\\\SRV\\.\\escape.txt", 76},
      {"//../../escape.txt", 76},
      // "\\?\" takes every name as it stands: "..", "." and an empty name are none.
      {"\\\\?\\C:\\Deploy\\..\\..\\escape.txt", 52},
      {"\\\\?\\C:\\.\\escape.txt", 52},
      {"\\\\?\\UNC\\..\\..\\escape.txt", 52},
      {"\\\\?\\C:\\Deploy\\\\escape.txt", 52},
      // "\\.\" is the root of a device path: ".." takes the drive away, and
      // what is left names a device the client does not have.
      {"\\\\.\\C:\\..\\escape.txt", 53},
      {"\\\\.\\..\\..\\escape.txt", 53},
      {"\\\\.\\PhysicalDrive0", 53},
      {"\\\\?\\GLOBALROOT\\Device\\escape.txt", 76},
      // Devices in every folder, with any extension.
      {"C:\\Deploy\\CON", 53},
      {"C:\\Deploy\\com1.txt", 53},
      {"LPT1", 53},
      {"C:\\Deploy\\aux .log", 53},
      {"C:PRN:", 53},
      {"\\\\.\\CONOUT$", 53},
      // Alternate data streams: the drives hold none.
      {"C:\\Deploy\\a.txt:stream", 52},
      {"C:\\Deploy\\a.txt::$DATA", 52},
      // More than MAX_PATH characters, before or after the path is made whole.
      {"C:\\Deploy\\" + std::string(300, 'a'), 75},
      {std::string(251, 'a'), 75},
      // A folder name keeps trailing blanks and a second dot: no such folder.
      {"C:\\Deploy..\\escape.txt", 76},
      {"C:\\Deploy \\escape.txt", 76},
      {"C:\\...\\escape.txt", 76},
      {"C:\\Deploy\\.. \\escape.txt", 76},
  };
  for (const Case& c : cases) {
    std::string content;
    EXPECT_EQ(Sys().files->ReadText(c.path, content).Number, c.number) << c.path;
    EXPECT_EQ(Sys().files->AppendText(c.path, "x").Number, c.number) << c.path;
    EXPECT_EQ(Sys().files->ReplaceText(c.path, "x").Number, c.number) << c.path;
    EXPECT_EQ(Sys().files->WriteBinary(c.path, {'x'}).Number, c.number) << c.path;
    EXPECT_EQ(Sys().files->FileCopy("C:\\Deploy\\a.ini", c.path).Number, c.number) << c.path;
    EXPECT_EQ(Sys().files->FirstFile(c.path), "") << c.path;
  }
  EXPECT_EQ(FilesBelow(dir), before);
  EXPECT_EQ(Transcript()["filesWritten"], nlohmann::json::array());
}

TEST_F(SimPlatformTest, Files_OtherFormsOfAPath_ReachTheSameFile) {
  WriteFile("C:\\Deploy\\a.ini", "one");
  WriteFile("\\\\SRV\\share\\x.txt", "two");
  Install();
  for (const std::string& path :
       {"\\\\?\\C:\\Deploy\\a.ini", "\\\\.\\C:\\Deploy\\a.ini", "//?/C:/Deploy/a.ini", "\\\\.\\c:\\Deploy\\sub\\..\\a.ini",
        "C:a.ini", "C:..\\..\\Deploy\\a.ini", "\\Deploy\\a.ini", "C:\\Deploy.\\a.ini", "C:\\Deploy\\a.ini. . "}) {
    std::string content;
    EXPECT_FALSE(Sys().files->ReadText(path, content).failed()) << path;
    EXPECT_EQ(content, "one") << path;
  }
  for (const std::string& path : {"\\\\SRV\\share\\..\\..\\..\\x.txt", "\\\\?\\UNC\\srv\\SHARE\\x.txt",
                                  "\\\\.\\UNC\\SRV\\share\\x.txt"}) {
    std::string content;
    EXPECT_FALSE(Sys().files->ReadText(path, content).failed()) << path;
    EXPECT_EQ(content, "two") << path;
  }
  // "\\?\" keeps trailing dots: another name.
  std::string content;
  EXPECT_EQ(Sys().files->ReadText("\\\\?\\C:\\Deploy\\a.ini.", content).Number, 53);
}

TEST_F(SimPlatformTest, Files_NulInAnyFolder_TakesWritesAndGivesNothing) {
  WriteFile("C:\\Deploy\\a.ini", "one");
  Install();
  const std::set<std::string> before = FilesBelow(dir);
  EXPECT_FALSE(Sys().files->AppendText("C:\\Deploy\\NUL", "x").failed());
  EXPECT_FALSE(Sys().files->ReplaceText("C:\\Users\\nul.txt", "x").failed());
  EXPECT_FALSE(Sys().files->WriteBinary("Nul  .log", {'x'}).failed());
  EXPECT_FALSE(Sys().files->FileCopy("C:\\Deploy\\a.ini", "\\\\.\\NUL").failed());
  std::string content = "left";
  EXPECT_FALSE(Sys().files->ReadText("C:\\nowhere\\NUL", content).failed());
  EXPECT_EQ(content, "");
  EXPECT_EQ(FilesBelow(dir), before);
  EXPECT_EQ(Transcript()["filesWritten"], nlohmann::json::array());
}

TEST_F(SimPlatformTest, PrivateProfile_PathsThatWouldLeaveTheDrives_ReadNothing) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nK=v\r\n");
  Install();
  std::ofstream(dir / "escape.ini") << "[S]\r\nK=outside\r\n";
  struct Case {
    std::string path;
    DWORD lastError;
  };
  for (const Case& c : std::vector<Case>{{"\\\\..\\..\\escape.ini", 2},
                                         {"\\\\..\\..\\files\\C\\Deploy\\a.ini", 2},
                                         {"\\\\?\\C:\\..\\..\\escape.ini", 123},
                                         {"C:\\Deploy\\" + std::string(300, 'a'), 206},
                                         {"C:\\Deploy\\CON", 2},
                                         {"C:\\Deploy\\nul.ini", 0}}) {
    const ProfileRead r = ReadProfile("S", "K", c.path.c_str());
    EXPECT_EQ(Value(r), "") << c.path;
    EXPECT_EQ(r.lastError, c.lastError) << c.path;
  }
  EXPECT_EQ(Value(ReadProfile("S", "K", "\\\\?\\C:\\Deploy\\a.ini")), "v");
}

// An output file whose folder is "\\..\.." fails as a server the client
// does not have, and nothing lands beside machine.json.
TEST_F(SimPlatformTest, Engine_OutputPathOutsideTheDrives_WritesNothingThere) {
  WriteFile("C:\\Deploy\\a.ini", ValidIni()
                                   .Set("GENERAL", "AlwaysRun", "True")
                                   .Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
                                   .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", "\\\\..\\..\\")
                                   .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "report.txt")
                                   .Text());
  const nlohmann::json t = Run("\\\\..\\..\\..\\files\\C\\Deploy\\a.ini");
  EXPECT_EQ(t["ended"], "returned");
  EXPECT_NE(std::string(t["debugBuffer"]).find(">> Opening INI File: \\\\..\\..\\..\\files\\C\\Deploy\\a.ini\r\n"),
            std::string::npos);
  EXPECT_EQ(t["messageBoxes"][0]["text"], "Unable to get INI file contents, please check your file path and permissions.");
  const nlohmann::json second = Run("C:\\Deploy\\a.ini");
  EXPECT_NE(std::string(second["debugBuffer"]).find(">> Writing to notification output file: \\\\..\\..\\report.txt\r\n"
                                                    "ERROR: Saving notification output file <<\r\nERROR: 76\r\n"),
            std::string::npos);
  for (const auto& e : std::filesystem::directory_iterator(dir))
    EXPECT_TRUE(e.path().filename() == "files" || e.path().filename() == "machine.json") << e.path();
}

TEST_F(SimPlatformTest, Files_GetFileAttributes_TellsFolderFileAndAbsence) {
  WriteFile("C:\\Reports\\old.txt", "x");
  Install();
  EXPECT_EQ(Sys().files->GetFileAttributesA("c:\\reports"), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
  EXPECT_EQ(Sys().files->GetFileAttributesA("C:\\Reports\\OLD.txt"), static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));
  EXPECT_EQ(Sys().files->GetFileAttributesA("C:\\Reports\\new.txt"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(Sys().system->GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Sys().files->GetFileAttributesA("C:\\Nowhere\\new.txt"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(Sys().system->GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(Sys().files->GetFileAttributesA("C:\\a|b"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(Sys().system->GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
}

TEST_F(SimPlatformTest, Files_GetFileAttributes_SeesFilesKeptInMemory) {
  WriteFile("C:\\Reports\\old.txt", "x");
  Install();
  client->KeepFilesInMemory();
  EXPECT_FALSE(Sys().files->AppendText("C:\\Reports\\new.txt", "y").failed());
  EXPECT_FALSE(FileExists("C:\\Reports\\new.txt"));
  EXPECT_EQ(Sys().files->GetFileAttributesA("C:\\Reports\\new.txt"), static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));
  EXPECT_EQ(Sys().system->GetLastError(), 0u);
}

TEST_F(SimPlatformTest, Files_FirstFile_GivesFirstMatchInNameOrder) {
  WriteFile("C:\\Deploy\\zeta.ini", "");
  WriteFile("C:\\Deploy\\Beta.INI", "");
  WriteFile("C:\\Deploy\\alpha.txt", "");
  WriteFile("C:\\Deploy\\sub.ini\\inner.txt", "");
  Install();
  EXPECT_EQ(Sys().files->FirstFile("C:\\Deploy\\*.ini"), "Beta.INI");
  EXPECT_EQ(Sys().files->FirstFile("c:\\DEPLOY\\*.txt"), "alpha.txt");
  EXPECT_EQ(Sys().files->FirstFile("C:\\Deploy\\*.*"), "alpha.txt");
  EXPECT_EQ(Sys().files->FirstFile("C:\\Deploy\\z?ta.ini"), "zeta.ini");
  EXPECT_EQ(Sys().files->FirstFile("C:\\Deploy\\*.cfg"), "");
  EXPECT_EQ(Sys().files->FirstFile("C:\\Missing\\*.ini"), "");
  // The executable in a drive's root: a doubled backslash is taken as one.
  WriteFile("C:\\root.ini", "");
  EXPECT_EQ(Sys().files->FirstFile("C:\\\\*.ini"), "root.ini");
}

TEST_F(SimPlatformTest, Files_FaultOnAFileCall_GivesItsFailure) {
  machine["faults"] = {{{"call", "AppendText"}, {"match", "C:\\Deploy\\out.txt"}, {"lastError", 57}, {"times", 1}}};
  Install();
  Failure first = Sys().files->AppendText("c:\\deploy\\OUT.txt", "a");
  EXPECT_EQ(first.Number, 57);
  EXPECT_EQ(first.Description, "Device I/O error");
  EXPECT_FALSE(FileExists("C:\\Deploy\\out.txt"));
  EXPECT_FALSE(Sys().files->AppendText("C:\\Deploy\\out.txt", "b").failed());
  EXPECT_EQ(ReadFile("C:\\Deploy\\out.txt"), "b");
}

// ---------------------------------------------------------------- registry

TEST_F(SimPlatformTest, Registry_OpenQueryWithSizing) {
  machine["registry"] = {{"HKEY_LOCAL_MACHINE\\SYSTEM\\Source", {{"EventMessageFile", "C:\\x.dll"},
                                                                  {"TypesSupported", {{"type", 4}, {"data", 7}}}}}};
  Install();
  HKEY key = nullptr;
  EXPECT_EQ(Sys().registry->RegOpenKeyA(HKEY_LOCAL_MACHINE, "system\\SOURCE", &key), ERROR_SUCCESS);
  DWORD type = 0, size = 0;
  EXPECT_EQ(Sys().registry->RegQueryValueExA(key, "eventmessagefile", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, 1u);
  EXPECT_EQ(size, 9u);
  std::string small(4, '#');
  DWORD smallSize = 4;
  EXPECT_EQ(Sys().registry->RegQueryValueExA(key, "EventMessageFile", nullptr, &type,
                                             reinterpret_cast<LPBYTE>(small.data()), &smallSize), ERROR_MORE_DATA);
  EXPECT_EQ(smallSize, 9u);
  std::string value(20, '#');
  size = 20;
  EXPECT_EQ(Sys().registry->RegQueryValueExA(key, "EventMessageFile", nullptr, &type,
                                             reinterpret_cast<LPBYTE>(value.data()), &size), ERROR_SUCCESS);
  EXPECT_EQ(size, 9u);
  EXPECT_EQ(value.substr(0, 10), std::string("C:\\x.dll\0#", 10));
  DWORD number = 0;
  size = 4;
  EXPECT_EQ(Sys().registry->RegQueryValueExA(key, "TypesSupported", nullptr, &type,
                                             reinterpret_cast<LPBYTE>(&number), &size), ERROR_SUCCESS);
  EXPECT_EQ(type, 4u);
  EXPECT_EQ(number, 7u);
  EXPECT_EQ(Sys().registry->RegQueryValueExA(key, "Missing", nullptr, &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Sys().registry->RegCloseKey(key), ERROR_SUCCESS);
  EXPECT_EQ(Sys().registry->RegCloseKey(key), ERROR_INVALID_HANDLE);

  HKEY missing = nullptr;
  EXPECT_EQ(Sys().registry->RegOpenKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\Nothing", &missing), ERROR_FILE_NOT_FOUND);
  // A key above a listed key exists.
  HKEY parent = nullptr;
  EXPECT_EQ(Sys().registry->RegOpenKeyA(HKEY_LOCAL_MACHINE, "SYSTEM", &parent), ERROR_SUCCESS);
  EXPECT_EQ(Sys().system->GetLastError(), 0u);
}

TEST_F(SimPlatformTest, Registry_EnumKeys_GivesSubKeysOnceByNameCaseBlind) {
  machine["registry"] = {{"HKEY_CURRENT_USER\\Software\\c\\x", {{"V", "1"}}},
                         {"HKEY_CURRENT_USER\\Software\\a", {{"V", "2"}}},
                         {"HKEY_CURRENT_USER\\Software\\c\\y", {{"V", "3"}}},
                         {"HKEY_CURRENT_USER\\Software\\B", nlohmann::json::object()}};
  Install();
  HKEY key = nullptr;
  ASSERT_EQ(Sys().registry->RegOpenKeyA(HKEY_CURRENT_USER, "Software", &key), ERROR_SUCCESS);
  std::vector<std::string> names;
  char name[256];
  DWORD size = sizeof name;
  LONG status = ERROR_SUCCESS;
  for (DWORD index = 0; (size = sizeof name, status = Sys().registry->RegEnumKeyExA(
                             key, index, name, &size, nullptr, nullptr, nullptr, nullptr)) == ERROR_SUCCESS;
       ++index) {
    EXPECT_EQ(size, std::strlen(name));
    names.emplace_back(name);
  }
  EXPECT_EQ(status, ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(names, (std::vector<std::string>{"a", "B", "c"}));
  char small[1];
  size = 1;
  EXPECT_EQ(Sys().registry->RegEnumKeyExA(key, 0, small, &size, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
  EXPECT_EQ(size, 1u);
  DWORD reserved = 0;
  size = sizeof name;
  EXPECT_EQ(Sys().registry->RegEnumKeyExA(key, 0, name, &size, &reserved, nullptr, nullptr, nullptr),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Sys().registry->RegCloseKey(key), ERROR_SUCCESS);
  EXPECT_EQ(Sys().registry->RegEnumKeyExA(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr),
            ERROR_INVALID_HANDLE);
}

TEST_F(SimPlatformTest, Registry_EnumValues_InTheirOrderWithTypeAndData) {
  machine["registry"] = {{"HKEY_LOCAL_MACHINE\\Policy", {{"Restrict", {{"type", 4}, {"data", 1}}},
                                                          {"ServerList", "srv1;srv2"}}}};
  Install();
  HKEY key = nullptr;
  ASSERT_EQ(Sys().registry->RegOpenKeyA(HKEY_LOCAL_MACHINE, "policy", &key), ERROR_SUCCESS);
  char name[64];
  BYTE data[64];
  DWORD nameSize = sizeof name, dataSize = sizeof data, type = 0;
  EXPECT_EQ(Sys().registry->RegEnumValueA(key, 0, name, &nameSize, nullptr, &type, data, &dataSize), ERROR_SUCCESS);
  EXPECT_EQ(std::string(name), "Restrict");
  EXPECT_EQ(nameSize, 8u);
  EXPECT_EQ(type, 4u);
  EXPECT_EQ(dataSize, 4u);
  EXPECT_EQ(data[0], 1);
  nameSize = sizeof name, dataSize = sizeof data;
  EXPECT_EQ(Sys().registry->RegEnumValueA(key, 1, name, &nameSize, nullptr, &type, data, &dataSize), ERROR_SUCCESS);
  EXPECT_EQ(std::string(name), "ServerList");
  EXPECT_EQ(type, 1u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(data), dataSize), std::string("srv1;srv2\0", 10));
  nameSize = sizeof name, dataSize = 3;
  EXPECT_EQ(Sys().registry->RegEnumValueA(key, 1, name, &nameSize, nullptr, &type, data, &dataSize), ERROR_MORE_DATA);
  EXPECT_EQ(dataSize, 10u);
  nameSize = 4, dataSize = sizeof data;
  EXPECT_EQ(Sys().registry->RegEnumValueA(key, 1, name, &nameSize, nullptr, &type, data, &dataSize), ERROR_MORE_DATA);
  EXPECT_EQ(std::string(name), "Ser");   // cut to the buffer
  nameSize = sizeof name, dataSize = sizeof data;
  EXPECT_EQ(Sys().registry->RegEnumValueA(key, 2, name, &nameSize, nullptr, &type, data, &dataSize),
            ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(Sys().registry->RegEnumValueA(key, 0, nullptr, &nameSize, nullptr, &type, data, &dataSize),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Sys().registry->RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(SimPlatformTest, Registry_CreateAndSet_AreSavedWithTheMachine) {
  Install();
  HKEY key = nullptr;
  ASSERT_EQ(Sys().registry->RegCreateKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin", &key),
            ERROR_SUCCESS);
  const char file[] = "C:\\Windows\\system32\\msg.dll";
  EXPECT_EQ(Sys().registry->RegSetValueExA(key, "EventMessageFile", 0, REG_EXPAND_SZ,
                                           reinterpret_cast<const BYTE*>(file), sizeof file), ERROR_SUCCESS);
  DWORD types = 7;
  EXPECT_EQ(Sys().registry->RegSetValueExA(key, "TypesSupported", 0, REG_DWORD,
                                           reinterpret_cast<const BYTE*>(&types), 4), ERROR_SUCCESS);
  EXPECT_EQ(Sys().registry->RegCloseKey(key), ERROR_SUCCESS);
  client->Save();
  sim::Machine saved = sim::LoadMachine(dir);
  ASSERT_EQ(saved.registry.size(), 1u);
  EXPECT_EQ(saved.registry[0].first,
            "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin");
  EXPECT_EQ(saved.registry[0].second[0].second.type, 2u);
  EXPECT_EQ(std::string(saved.registry[0].second[0].second.data.begin(), saved.registry[0].second[0].second.data.end()),
            std::string(file, sizeof file));
  EXPECT_EQ(saved.registry[0].second[1].second.data, (std::vector<uint8_t>{7, 0, 0, 0}));
}

TEST_F(SimPlatformTest, Registry_StandardUser_ReadsButNeitherCreatesNorSetsBelowTheMachine) {
  machine["user"] = {{"isAdmin", false}};
  machine["registry"] = {{"HKEY_LOCAL_MACHINE\\SYSTEM\\Source", {{"EventMessageFile", "C:\\x.dll"}}}};
  Install();
  // A new key below HKEY_LOCAL_MACHINE cannot be made: the handle stays.
  HKEY key = reinterpret_cast<HKEY>(1);
  EXPECT_EQ(Sys().registry->RegCreateKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\New", &key), ERROR_ACCESS_DENIED);
  EXPECT_EQ(key, reinterpret_cast<HKEY>(1));
  // An existing one opens, for reading.
  HKEY existing = nullptr;
  EXPECT_EQ(Sys().registry->RegCreateKeyA(HKEY_LOCAL_MACHINE, "system\\source", &existing), ERROR_SUCCESS);
  const char file[] = "C:\\y.dll";
  EXPECT_EQ(Sys().registry->RegSetValueExA(existing, "EventMessageFile", 0, REG_SZ,
                                           reinterpret_cast<const BYTE*>(file), sizeof file), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Sys().registry->RegSetValueExA(HKEY_LOCAL_MACHINE, "Value", 0, REG_SZ,
                                           reinterpret_cast<const BYTE*>(file), sizeof file), ERROR_ACCESS_DENIED);
  DWORD type = 0, size = 0;
  EXPECT_EQ(Sys().registry->RegQueryValueExA(existing, "EventMessageFile", nullptr, &type, nullptr, &size),
            ERROR_SUCCESS);
  EXPECT_EQ(size, 9u);
  EXPECT_EQ(Sys().registry->RegCloseKey(existing), ERROR_SUCCESS);
  // The user's own keys are the user's.
  HKEY mine = nullptr;
  EXPECT_EQ(Sys().registry->RegCreateKeyA(HKEY_CURRENT_USER, "Software\\Mine", &mine), ERROR_SUCCESS);
  EXPECT_EQ(Sys().registry->RegSetValueExA(mine, "V", 0, REG_SZ, reinterpret_cast<const BYTE*>(file), sizeof file),
            ERROR_SUCCESS);
  client->Save();
  sim::Machine saved = sim::LoadMachine(dir);
  ASSERT_EQ(saved.registry.size(), 2u);
  EXPECT_EQ(saved.registry[0].second[0].second.data, (std::vector<uint8_t>{'C', ':', '\\', 'x', '.', 'd', 'l', 'l', 0}));
  EXPECT_EQ(saved.registry[1].first, "HKEY_CURRENT_USER\\Software\\Mine");
}

TEST_F(SimPlatformTest, Registry_StandardUserOnWindows9x_WritesEverywhere) {
  machine["user"] = {{"isAdmin", false}};
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}};
  Install();
  HKEY key = nullptr;
  EXPECT_EQ(Sys().registry->RegCreateKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\New", &key), ERROR_SUCCESS);
  const char file[] = "C:\\y.dll";
  EXPECT_EQ(Sys().registry->RegSetValueExA(key, "V", 0, REG_SZ, reinterpret_cast<const BYTE*>(file), sizeof file),
            ERROR_SUCCESS);
}

TEST_F(SimPlatformTest, Settings_LiveBelowTheSettingsRoot) {
  machine["registry"] = {{"HKEY_CURRENT_USER\\Software\\Zandolin Engine\\Zandolin\\C:\\Deploy\\a.ini\\jdoe",
                          {{"SUCCESS", "True"}}}};
  Install();
  EXPECT_EQ(Sys().registry->GetSetting("Zandolin", "C:\\Deploy\\a.ini\\jdoe", "success", "False"), "True");
  EXPECT_EQ(Sys().registry->GetSetting("Zandolin", "C:\\Deploy\\b.ini\\jdoe", "SUCCESS", "False"), "False");
  EXPECT_FALSE(Sys().registry->SaveSetting("Zandolin", "C:\\Deploy\\b.ini\\jdoe", "SUCCESS", "False").failed());
  EXPECT_EQ(Sys().registry->GetSetting("Zandolin", "c:\\deploy\\B.INI\\jdoe", "SUCCESS", "x"), "False");
  HKEY key = nullptr;
  ASSERT_EQ(Sys().registry->RegOpenKeyA(HKEY_CURRENT_USER, "Software\\Zandolin Engine\\Zandolin\\C:\\Deploy\\b.ini\\jdoe", &key),
            ERROR_SUCCESS);
  DWORD type = 0, size = 0;
  EXPECT_EQ(Sys().registry->RegQueryValueExA(key, "SUCCESS", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, 1u);
  EXPECT_EQ(size, 6u);   // "False" and its NUL
}

// ---------------------------------------------------------------- event log

TEST_F(SimPlatformTest, EventLog_ReportEvent_AppendsToLogAndTranscript) {
  machine["eventLog"] = {{{"source", "Old"}, {"type", 1}, {"category", 0}, {"id", 1}, {"strings", {"before"}}, {"data", ""}}};
  Install();
  HANDLE source = Sys().eventLog->RegisterEventSourceA(nullptr, "Zandolin");
  ASSERT_NE(source, nullptr);
  LPCSTR strings[] = {"line one\r\nline two"};
  const char data[] = "raw";
  EXPECT_EQ(Sys().eventLog->ReportEventA(source, EVENTLOG_INFORMATION_TYPE, 0, 20001, nullptr, 1, 3, strings,
                                         const_cast<char*>(data)), TRUE);
  EXPECT_EQ(Sys().eventLog->DeregisterEventSource(source), TRUE);
  EXPECT_EQ(Sys().eventLog->DeregisterEventSource(source), FALSE);
  EXPECT_EQ(Sys().system->GetLastError(), 6u);
  EXPECT_EQ(Transcript()["eventLogWritten"],
            (nlohmann::json{{{"source", "Zandolin"}, {"type", 4}, {"category", 0}, {"id", 20001},
                             {"strings", {"line one\r\nline two"}}, {"data", "raw"}}}));
  client->Save();
  sim::Machine saved = sim::LoadMachine(dir);
  ASSERT_EQ(saved.eventLog.size(), 2u);
  EXPECT_EQ(saved.eventLog[0].source, "Old");
  EXPECT_EQ(saved.eventLog[1].id, 20001u);
  EXPECT_EQ(saved.eventLog[1].strings[0], "line one\r\nline two");
}

TEST_F(SimPlatformTest, EventLog_StringOver31839Characters_RefusedWith1500AndNothingWritten) {
  Install();
  HANDLE source = Sys().eventLog->RegisterEventSourceA(nullptr, "Zandolin");
  const std::string longest(31839, 'x'), longer(31840, 'x');
  LPCSTR ok[] = {longest.c_str()};
  EXPECT_EQ(Sys().eventLog->ReportEventA(source, 4, 0, 20001, nullptr, 1, 31840, ok,
                                         const_cast<char*>(longest.c_str())), TRUE);
  EXPECT_EQ(Sys().system->GetLastError(), 0u);
  LPCSTR tooLong[] = {longer.c_str()};
  EXPECT_EQ(Sys().eventLog->ReportEventA(source, 4, 0, 20001, nullptr, 1, 31841, tooLong,
                                         const_cast<char*>(longer.c_str())), FALSE);
  EXPECT_EQ(Sys().system->GetLastError(), 1500u);
  // More data than the event log takes.
  const std::string data(61441, 'd');
  LPCSTR small[] = {"x"};
  EXPECT_EQ(Sys().eventLog->ReportEventA(source, 4, 0, 20001, nullptr, 1, 61441, small,
                                         const_cast<char*>(data.c_str())), FALSE);
  EXPECT_EQ(Sys().system->GetLastError(), 1734u);
  // The longest string is counted in characters of the code page: "ü" is
  // one byte of 1252.
  const std::string umlauts(31840, '\xFC');
  LPCSTR tooManyUmlauts[] = {umlauts.c_str()};
  EXPECT_EQ(Sys().eventLog->ReportEventA(source, 4, 0, 20001, nullptr, 1, 0, tooManyUmlauts, nullptr), FALSE);
  EXPECT_EQ(Sys().system->GetLastError(), 1500u);
  const nlohmann::json t = Transcript();
  EXPECT_EQ(t["eventLogWritten"].size(), 1u);
  EXPECT_EQ(t["eventLogRefused"], nlohmann::json::parse(R"([
      {"id": 20001, "lastError": 1500, "longestString": 31840, "dataSize": 31841},
      {"id": 20001, "lastError": 1734, "longestString": 1, "dataSize": 61441},
      {"id": 20001, "lastError": 1500, "longestString": 31840, "dataSize": 0}])"));

  // Characters count, not bytes: 31,839 two-byte characters of code page 932
  // pass.
  machine["os"] = {{"ansiCodePage", 932}};
  Install();
  source = Sys().eventLog->RegisterEventSourceA(nullptr, "Zandolin");
  std::string japanese;
  for (int i = 0; i < 31839; ++i) japanese += "\x93\xFA";
  LPCSTR wide[] = {japanese.c_str()};
  EXPECT_EQ(Sys().eventLog->ReportEventA(source, 4, 0, 20001, nullptr, 1, 0, wide, nullptr), TRUE);
  EXPECT_EQ(Transcript()["eventLogWritten"].size(), 1u);
  EXPECT_EQ(Transcript()["eventLogRefused"], nlohmann::json::array());
}

TEST_F(SimPlatformTest, EventLog_BeforeWindowsVista_TheLimitIsNotServed) {
  machine["os"] = {{"platformId", 2}, {"majorVersion", 5}};
  Install();
  HANDLE source = Sys().eventLog->RegisterEventSourceA(nullptr, "Zandolin");
  const std::string longer(31840, 'x');
  LPCSTR strings[] = {longer.c_str()};
  EXPECT_EQ(Sys().eventLog->ReportEventA(source, 4, 0, 20001, nullptr, 1, 0, strings, nullptr), TRUE);
}

// ---------------------------------------------------------------- system

TEST_F(SimPlatformTest, System_GetVersionEx_GivesTheMachinesVersion) {
  machine["os"] = {{"platformId", 2}, {"majorVersion", 4}, {"minorVersion", 0}};
  Install();
  OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = 148;
  EXPECT_EQ(Sys().system->GetVersionExA(&info), TRUE);
  EXPECT_EQ(Sys().system->GetLastError(), 0u);
  EXPECT_EQ(info.dwPlatformId, 2u);
  EXPECT_EQ(info.dwMajorVersion, 4u);
  EXPECT_EQ(info.dwMinorVersion, 0u);
  EXPECT_EQ(info.dwBuildNumber, 1381u);
  OSVERSIONINFOA wrongSize{};
  wrongSize.dwOSVersionInfoSize = 10;
  EXPECT_EQ(Sys().system->GetVersionExA(&wrongSize), FALSE);
  EXPECT_EQ(Sys().system->GetLastError(), 122u);
}

TEST_F(SimPlatformTest, System_VersionError_IsTheLastError) {
  machine["os"] = {{"versionError", 1150}};
  Install();
  OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = 148;
  EXPECT_EQ(Sys().system->GetVersionExA(&info), FALSE);
  EXPECT_EQ(Sys().system->GetLastError(), 1150u);
}

TEST_F(SimPlatformTest, System_FoldersAndUser) {
  machine["systemDir"] = "C:\\WINNT\\system32";
  Install();
  std::string buffer(100, '\0');
  EXPECT_EQ(Sys().system->GetSystemDirectoryA(buffer.data(), 100), 17u);
  EXPECT_EQ(buffer.c_str(), std::string("C:\\WINNT\\system32"));
  EXPECT_EQ(Sys().system->GetSystemDirectoryA(buffer.data(), 5), 18u);   // too small: the size needed
  std::string temp(100, '\0');
  EXPECT_EQ(Sys().system->GetTempPathA(100, temp.data()), 33u);
  EXPECT_EQ(temp.c_str(), std::string("C:\\Users\\jdoe\\AppData\\Local\\Temp\\"));
  std::string user(100, '\0');
  DWORD size = 100;
  EXPECT_EQ(Sys().system->GetUserNameA(user.data(), &size), TRUE);
  EXPECT_EQ(user.c_str(), std::string("jdoe"));
  EXPECT_EQ(size, 5u);
  HANDLE token = nullptr;
  EXPECT_EQ(Sys().system->OpenProcessToken(Sys().system->GetCurrentProcess(), TOKEN_QUERY, &token), TRUE);
  std::string profile(255, '\0');
  DWORD profileSize = 255;
  EXPECT_EQ(Sys().system->GetUserProfileDirectoryA(token, profile.data(), &profileSize), TRUE);
  EXPECT_EQ(profile.c_str(), std::string("C:\\Users\\jdoe"));
  EXPECT_EQ(profileSize, 14u);
}

TEST_F(SimPlatformTest, System_WindowsFolderCodePageAndAdministrator) {
  machine["windowsDir"] = "C:\\WINNT";
  machine["os"] = {{"ansiCodePage", 932}};
  machine["user"] = {{"isAdmin", false}};
  Install();
  std::string buffer(100, '\0');
  EXPECT_EQ(Sys().system->GetWindowsDirectoryA(buffer.data(), 100), 8u);
  EXPECT_EQ(buffer.c_str(), std::string("C:\\WINNT"));
  EXPECT_EQ(Sys().system->GetACP(), 932u);
  EXPECT_EQ(Sys().system->IsUserAnAdmin(), FALSE);
  machine["os"] = {{"platformId", 1}, {"majorVersion", 4}, {"minorVersion", 10}};
  Install();
  EXPECT_EQ(Sys().system->IsUserAnAdmin(), TRUE);   // Windows 98 knows no rights
}

TEST_F(SimPlatformTest, System_GetFullPathName_MakesPathsWholeWithoutLookingAtTheDrives) {
  Install();   // the current folder is C:\Deploy
  auto full = [](const char* name) {
    std::string buffer(MAX_PATH, '\0');
    LPSTR part = nullptr;
    DWORD length = Sys().system->GetFullPathNameA(name, MAX_PATH, buffer.data(), &part);
    std::string text = buffer.substr(0, length);
    return part ? text + "|" + part : text + "|";
  };
  EXPECT_EQ(full("move.ini"), "C:\\Deploy\\move.ini|move.ini");
  EXPECT_EQ(full("..\\Other/./x.ini"), "C:\\Other\\x.ini|x.ini");
  EXPECT_EQ(full("\\Root.ini"), "C:\\Root.ini|Root.ini");
  EXPECT_EQ(full("D:x.ini"), "D:\\x.ini|x.ini");
  EXPECT_EQ(full("\\\\srv\\share\\a\\..\\b.ini"), "\\\\srv\\share\\b.ini|b.ini");
  EXPECT_EQ(full("C:\\Folder\\"), "C:\\Folder\\|");
  char small[4];
  EXPECT_EQ(Sys().system->GetFullPathNameA("move.ini", 4, small, nullptr), 19u);   // with its NUL
  EXPECT_EQ(Sys().system->GetFullPathNameA("", MAX_PATH, small, nullptr), 0u);
  EXPECT_EQ(Sys().system->GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
}

TEST_F(SimPlatformTest, System_GetFullPathName_FromAShare_StaysOnTheShare) {
  machine["exePath"] = "\\\\SRV\\netlogon\\Deploy\\ZandolinEngine.exe";
  Install();
  auto full = [](const char* name) {
    std::string buffer(MAX_PATH, '\0');
    DWORD length = Sys().system->GetFullPathNameA(name, MAX_PATH, buffer.data(), nullptr);
    return buffer.substr(0, length);
  };
  EXPECT_EQ(full("move.ini"), "\\\\SRV\\netlogon\\Deploy\\move.ini");
  EXPECT_EQ(full("..\\..\\..\\x.ini"), "\\\\SRV\\netlogon\\x.ini");
  EXPECT_EQ(full("\\Root.ini"), "\\\\SRV\\netlogon\\Root.ini");
  EXPECT_EQ(full("C:x.ini"), "C:\\x.ini");
  EXPECT_EQ(full("."), "\\\\SRV\\netlogon\\Deploy");
}

TEST_F(SimPlatformTest, System_NoUser_GetUserNameFailsAndLeavesBuffer) {
  machine["userName"] = nullptr;
  Install();
  std::string user(100, '\0');
  DWORD size = 100;
  EXPECT_EQ(Sys().system->GetUserNameA(user.data(), &size), FALSE);
  EXPECT_EQ(user, std::string(100, '\0'));
  EXPECT_EQ(Sys().system->GetLastError(), 1245u);
}

TEST_F(SimPlatformTest, System_ComputerName_AndItsAbsence) {
  Install();
  EXPECT_FALSE(Sys().system->CreateNetworkObject().failed());
  std::string name;
  EXPECT_FALSE(Sys().system->NetworkComputerName(name).failed());
  EXPECT_EQ(name, "PC042");
  EXPECT_EQ(Sys().sockets->LocalHostName(), "PC042");

  machine["computerName"] = nullptr;
  Install();
  Failure f = Sys().system->CreateNetworkObject();
  EXPECT_EQ(f.Number, 429);
  EXPECT_EQ(f.Description, "ActiveX component can't create object");
}

TEST_F(SimPlatformTest, System_AppPath_KeepsTheBackslashOfADriveRoot) {
  Install();
  EXPECT_EQ(Sys().system->AppPath(), "C:\\Deploy");
  machine["exePath"] = "C:\\ZandolinEngine.exe";
  Install();
  EXPECT_EQ(Sys().system->AppPath(), "C:\\");
}

TEST_F(SimPlatformTest, System_AnsiToUtf16_FollowsTheCodePage) {
  Install();
  EXPECT_EQ(Sys().system->AnsiToUtf16("A\xE9\x80\x81"), u"A\u00E9\u20AC\u0081");
  machine["os"] = {{"ansiCodePage", 932}};
  Install();
  EXPECT_EQ(Sys().system->AnsiToUtf16("A\x93\xFA\x96\x7B\x81"), u"A\u65E5\u672C\u30FB");
  machine["os"] = {{"ansiCodePage", 65001}};
  Install();
  EXPECT_EQ(Sys().system->AnsiToUtf16("A\xC3\xA9\xF0\x9F\x98\x80x\xE9"), u"A\u00E9\U0001F600x\uFFFD");
}

// ---------------------------------------------------------------- clock

TEST_F(SimPlatformTest, Clock_GeneralDateText_IsUsEnglish) {
  machine["clock"] = "2026-11-21T14:05:09";
  Install();
  platform::LocalTime now = Sys().clock->Now();
  EXPECT_EQ(Sys().clock->GeneralDateText(now), "11/21/2026 2:05:09 PM");
  EXPECT_EQ(Sys().clock->GeneralDateText({2026, 1, 2, 0, 0, 0}), "1/2/2026 12:00:00 AM");
  EXPECT_EQ(Sys().clock->GeneralDateText({2026, 12, 31, 12, 30, 5}), "12/31/2026 12:30:05 PM");
}

TEST_F(SimPlatformTest, Clock_SleepAdvancesWithoutWaiting) {
  machine["clock"] = "2026-12-31T23:59:58";
  Install();
  auto start = std::chrono::steady_clock::now();
  Sys().clock->Sleep(1500);
  Sys().clock->Sleep(600);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_EQ(Sys().clock->GeneralDateText(Sys().clock->Now()), "1/1/2027 12:00:00 AM");
}

// ---------------------------------------------------------------- user interface

struct TickCounter : platform::TimerEvents {
  int ticks = 0;
  void OnTimer() override { ++ticks; }
};

TEST_F(SimPlatformTest, Timer_TicksInsideDoEvents_AndAdvancesTheClock) {
  machine["clock"] = "2026-11-21T14:05:09";
  machine["timerIntervalMs"] = 0;
  Install();
  TickCounter counter;
  int timer = Sys().ui->CreateTimer(&counter, 1000, true);
  EXPECT_EQ(counter.ticks, 0);
  Sys().ui->DoEvents();
  Sys().ui->DoEvents();
  Sys().ui->DoEvents();
  EXPECT_EQ(counter.ticks, 3);
  EXPECT_EQ(Sys().clock->GeneralDateText(Sys().clock->Now()), "11/21/2026 2:05:12 PM");
  Sys().ui->EnableTimer(timer, false);
  Sys().ui->DoEvents();
  EXPECT_EQ(counter.ticks, 3);
  Sys().ui->DestroyTimer(timer);
}

TEST_F(SimPlatformTest, Timer_TickLastsTimerIntervalOfWallClock) {
  machine["timerIntervalMs"] = 30;
  Install();
  TickCounter counter;
  Sys().ui->CreateTimer(&counter, 1000, true);
  Sys().ui->DoEvents();
  EXPECT_EQ(counter.ticks, 0);
  auto start = std::chrono::steady_clock::now();
  while (counter.ticks == 0) Sys().ui->DoEvents();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST_F(SimPlatformTest, DoEvents_PastTheLimitWithAFormLoaded_IsStuck) {
  Install();
  int form = 0;
  FormLoaded(&form);
  sim::Current().deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
  std::string why;
  try {
    for (;;) Sys().ui->DoEvents();
  } catch (const sim::StuckError& stuck) {
    why = stuck.why;
  }
  FormUnloaded(&form);
  EXPECT_EQ(why, "forms still loaded: 1");
}

TEST_F(SimPlatformTest, MessageBoxAndProgress_AreRecorded) {
  Install();
  EXPECT_EQ(Sys().ui->MessageBox("Unable to find INI file.", "Error", MB_OK | MB_ICONERROR), 1);
  HWND window = Sys().ui->CreateProgressWindow();
  EXPECT_NE(window, nullptr);
  Sys().ui->SetProgressBar(100, 1);
  Sys().ui->ShowProgressWindow();
  Sys().ui->SetProgressLabel("Zandolin starting ...");
  Sys().ui->MoveProgressBar(2);
  Sys().ui->SetProgressLabel("Zandolin starting ...");
  Sys().ui->MoveProgressBar(3);
  Sys().ui->SetProgressBar(100, 100);
  Sys().ui->DestroyProgressWindow();
  nlohmann::json t = Transcript();
  EXPECT_EQ(t["messageBoxes"],
            (nlohmann::json{{{"title", "Error"}, {"text", "Unable to find INI file."}, {"style", 16}}}));
  EXPECT_EQ(t["progress"], (nlohmann::json{{"shown", true},
                                           {"labels", {"Zandolin starting ...", "Zandolin starting ..."}},
                                           {"steps", 2},
                                           {"value", 100}}));
}

// ---------------------------------------------------------------- code page

TEST_F(SimPlatformTest, CodePage_SystemGivesNamesAndFoldersInTheCodePage) {
  machine["userName"] = "jürgen";
  machine["computerName"] = "PC-MÜNCHEN";
  machine["profileDir"] = "C:\\Users\\jürgen";
  machine["systemDir"] = "C:\\Windows\\system32";
  Install();
  char buffer[64] = {};
  DWORD size = sizeof buffer;
  ASSERT_TRUE(Sys().system->GetUserNameA(buffer, &size));
  EXPECT_STREQ("j\xFCrgen", buffer);
  EXPECT_EQ(7u, size);
  std::string computer;
  EXPECT_FALSE(Sys().system->NetworkComputerName(computer).failed());
  EXPECT_EQ("PC-M\xDCNCHEN", computer);
  HANDLE token = nullptr;
  ASSERT_TRUE(Sys().system->OpenProcessToken(Sys().system->GetCurrentProcess(), 8, &token));
  size = sizeof buffer;
  ASSERT_TRUE(Sys().system->GetUserProfileDirectoryA(token, buffer, &size));
  EXPECT_STREQ("C:\\Users\\j\xFCrgen", buffer);

  sim::Current().commandLine = "\"C:\\Déploiement\\a.ini\"";
  EXPECT_EQ("\"C:\\D\xE9ploiement\\a.ini\"", Sys().system->CommandLine());

  machine["os"] = {{"ansiCodePage", 932}};
  Install();
  size = sizeof buffer;
  ASSERT_TRUE(Sys().system->GetUserNameA(buffer, &size));
  EXPECT_STREQ("jurgen", buffer);   // best fit
}

TEST_F(SimPlatformTest, CodePage_FullPathsAndTheWindowsFolder_KeepDoubleByteCharactersWhole) {
  // 表 is 95 5C in code page 932: its trail byte is a backslash.
  machine["os"] = {{"ansiCodePage", 932}};
  machine["exePath"] = "C:\\表\\ZandolinEngine.exe";
  machine["windowsDir"] = "C:\\表";
  Install();
  std::string buffer(MAX_PATH, '\0');
  LPSTR part = nullptr;
  DWORD length = Sys().system->GetFullPathNameA("\x95\x5C.ini", MAX_PATH, buffer.data(), &part);
  EXPECT_EQ(std::string(buffer.data(), length), "C:\\\x95\x5C\\\x95\x5C.ini");
  EXPECT_STREQ(part, "\x95\x5C.ini");
  EXPECT_EQ(Sys().system->GetWindowsDirectoryA(buffer.data(), MAX_PATH), 5u);
  EXPECT_STREQ(buffer.c_str(), "C:\\\x95\x5C");
}

TEST_F(SimPlatformTest, CodePage_RegistryEnumerationGivesTheCodePagesBytes) {
  machine["registry"] = {{"HKEY_CURRENT_USER\\Software\\Drücker", {{"Näme", "Grüße"}}}};
  Install();
  HKEY software = nullptr, key = nullptr;
  ASSERT_EQ(Sys().registry->RegOpenKeyA(HKEY_CURRENT_USER, "Software", &software), ERROR_SUCCESS);
  char name[32];
  DWORD size = sizeof name;
  ASSERT_EQ(Sys().registry->RegEnumKeyExA(software, 0, name, &size, nullptr, nullptr, nullptr, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(std::string(name, size), "Dr\xFC" "cker");
  ASSERT_EQ(Sys().registry->RegOpenKeyA(software, name, &key), ERROR_SUCCESS);
  BYTE data[32];
  DWORD nameSize = sizeof name, dataSize = sizeof data, type = 0;
  ASSERT_EQ(Sys().registry->RegEnumValueA(key, 0, name, &nameSize, nullptr, &type, data, &dataSize), ERROR_SUCCESS);
  EXPECT_EQ(std::string(name, nameSize), "N\xE4me");
  EXPECT_EQ(std::string(reinterpret_cast<char*>(data), dataSize), std::string("Gr\xFC\xDF" "e\0", 6));
}

TEST_F(SimPlatformTest, CodePage_RegistryKeepsTextAndGivesTheCodePagesBytes) {
  Install();
  HKEY key = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, Sys().registry->RegCreateKeyA(HKEY_CURRENT_USER, "Software\\Dr\xFC" "cker", &key));
  const char text[] = "Gr\xFC\xDF" "e";
  ASSERT_EQ(ERROR_SUCCESS, Sys().registry->RegSetValueExA(key, "N\xE4me", 0, REG_SZ,
                                                          reinterpret_cast<const BYTE*>(text), sizeof text));
  const BYTE raw[] = {0xFC, 0x00, 0x81};
  ASSERT_EQ(ERROR_SUCCESS, Sys().registry->RegSetValueExA(key, "Raw", 0, REG_BINARY, raw, sizeof raw));
  DWORD type = 0, size = 0;
  ASSERT_EQ(ERROR_SUCCESS, Sys().registry->RegQueryValueExA(key, "N\xE4me", nullptr, &type, nullptr, &size));
  EXPECT_EQ(6u, size);
  char back[16] = {};
  ASSERT_EQ(ERROR_SUCCESS,
            Sys().registry->RegQueryValueExA(key, "n\xE4me", nullptr, &type, reinterpret_cast<BYTE*>(back), &size));
  EXPECT_EQ(std::string(text, sizeof text), std::string(back, size));
  Sys().registry->RegCloseKey(key);
  client->Save();
  nlohmann::json saved = nlohmann::json::parse(std::ifstream(dir / "machine.json"));
  EXPECT_EQ(saved["registry"]["HKEY_CURRENT_USER\\Software\\Drücker"],
            (nlohmann::json{{"Näme", "Grüße"}, {"Raw", {{"type", 3}, {"data", {252, 0, 129}}}}}));
}

TEST_F(SimPlatformTest, CodePage_EventLogKeepsTheEntryAsText) {
  Install();
  HANDLE source = Sys().eventLog->RegisterEventSourceA(nullptr, "Zandolin");
  std::string message = "\\\\OLD\\Dr\xFC" "cker";
  LPCSTR strings[] = {message.c_str()};
  ASSERT_TRUE(Sys().eventLog->ReportEventA(source, 4, 0, 20001, nullptr, 1,
                                           static_cast<DWORD>(message.size() + 1), strings, message.data()));
  nlohmann::json entry = Transcript()["eventLogWritten"][0];
  EXPECT_EQ(entry["strings"], nlohmann::json::array({"\\\\OLD\\Drücker"}));
  EXPECT_EQ(entry["data"], std::string("\\\\OLD\\Drücker\0", 15));
}

TEST_F(SimPlatformTest, CodePage_FilesNamedInTheCodePageHoldTheEnginesBytes) {
  std::filesystem::create_directories(dir / "files" / "C" / "Ausgänge");
  Install();
  EXPECT_FALSE(Sys().files->AppendText("C:\\Ausg\xE4nge\\Dr\xFC" "cker.txt", "Dr\xFC" "cker\r\n").failed());
  EXPECT_EQ("Dr\xFC" "cker\r\n", ReadFile("C:\\Ausgänge\\Drücker.txt"));
  EXPECT_EQ("Dr\xFC" "cker.txt", Sys().files->FirstFile("C:\\Ausg\xE4nge\\*.txt"));
  EXPECT_EQ(Transcript()["filesWritten"], nlohmann::json::array({"C:\\Ausgänge\\Drücker.txt"}));
}

TEST_F(SimPlatformTest, CodePage_MessageBoxesLabelsAndReportsAreTextInTheTranscript) {
  Install();
  Sys().ui->MessageBox("Dr\xFC" "cker", "Zandolin \x80", 0);
  Sys().ui->CreateProgressWindow();
  Sys().ui->SetProgressLabel("Dr\xFC" "cker ...");
  gOutcomeText = "\r\n\\\\OLD\\Dr\xFC" "cker";
  gDebugBuffer = ">> Dr\xFC" "cker\r\n";
  nlohmann::json t = Transcript();
  EXPECT_EQ(t["messageBoxes"], (nlohmann::json{{{"title", "Zandolin €"}, {"text", "Drücker"}, {"style", 0}}}));
  EXPECT_EQ(t["progress"]["labels"], nlohmann::json::array({"Drücker ..."}));
  EXPECT_EQ(t["outcomeText"], "\r\n\\\\OLD\\Drücker");
  EXPECT_EQ(t["debugBuffer"], ">> Drücker\r\n");
}

// ---------------------------------------------------------------- faults

TEST_F(SimPlatformTest, Fault_SkipAndTimes_PickWhichCallsFail) {
  machine["registry"] = {{"HKEY_CURRENT_USER\\Software\\X", nlohmann::json::object()}};
  machine["faults"] = {{{"call", "RegOpenKeyA"}, {"match", "HKEY_CURRENT_USER\\Software"}, {"result", 5},
                        {"lastError", 5}, {"skip", 1}, {"times", 2}}};
  Install();
  HKEY key = nullptr;
  std::vector<LONG> results;
  for (int i = 0; i < 4; ++i) results.push_back(Sys().registry->RegOpenKeyA(HKEY_CURRENT_USER, "software", &key));
  EXPECT_EQ(results, (std::vector<LONG>{0, 5, 5, 0}));
  EXPECT_EQ(Sys().registry->RegOpenKeyA(HKEY_CURRENT_USER, "Other", &key), ERROR_FILE_NOT_FOUND);
}

TEST_F(SimPlatformTest, Fault_OnAWin32Call_ReturnsResultAndLeavesLastError) {
  machine["faults"] = {{{"call", "GetUserNameA"}, {"result", 0}, {"lastError", 1332}}};
  Install();
  std::string user(100, '\0');
  DWORD size = 100;
  EXPECT_EQ(Sys().system->GetUserNameA(user.data(), &size), FALSE);
  EXPECT_EQ(Sys().system->GetLastError(), 1332u);
  EXPECT_EQ(user, std::string(100, '\0'));
}

TEST_F(SimPlatformTest, Fault_OnProfileRead_MatchesTheFile) {
  WriteFile("C:\\Deploy\\a.ini", "[S]\r\nK=v\r\n");
  machine["faults"] = {{{"call", "GetPrivateProfileStringA"}, {"match", "C:\\Deploy\\a.ini"}, {"result", 0},
                        {"lastError", 87}, {"skip", 1}}};
  Install();
  EXPECT_EQ(Value(ReadProfile("S", "K", "C:\\Deploy\\a.ini")), "v");
  ProfileRead failed = ReadProfile("S", "K", "C:\\Deploy\\a.ini");
  EXPECT_EQ(failed.lastError, 87u);
  EXPECT_EQ(failed.count, 0u);
  EXPECT_EQ(failed.buffer, std::string(100, ' '));
}

}  // namespace

namespace {

// ---------------------------------------------------------------- directory

TEST_F(SimPlatformTest, Directory_NoServerAnswers_BindFails) {
  Install();
  std::string adsPath = "unchanged";
  Failure bind = Sys().directory->BindObject("LDAP://corp.example.com", adsPath);
  EXPECT_EQ(bind.Number, -2147016646);
  EXPECT_EQ(bind.Description, "The server is not operational.");
  EXPECT_EQ(adsPath, "unchanged");
}

}  // namespace
