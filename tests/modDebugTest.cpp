// The debug log in memory and the scrambled debug file.
#include "diagnostics/modDebug.h"

#include "SimFixture.h"
#include "app/zandolin-debug/DebugFileReader.h"
#include "config/modINIDocument.h"
#include "diagnostics/modFileEncoding.h"
#include "engine/Runtime.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using nlohmann::json;

class modDebugTest : public SimFixture {
 protected:
  std::vector<uint8_t> ReadBytes(const std::string& windowsPath) {
    const std::string content = ReadFile(windowsPath);
    return std::vector<uint8_t>(content.begin(), content.end());
  }

  DecodedDebugFile Decode(const std::string& windowsPath) {
    DecodedDebugFile decoded;
    std::string error;
    EXPECT_TRUE(DecodeDebugFile(ReadBytes(windowsPath), decoded, error)) << error;
    return decoded;
  }

  // A log of a few lines, with DebugOn as Main leaves it.
  void SomeLog() {
    INIDocument.DebugOn = true;
    WriteBanner(30, "     BEGIN DEBUG     ", 29);
    WriteDebug(">> Opening INI File: C:\\Deploy\\deploy.ini");
    WriteDebug("ERROR: Getting client printer (no handle): \\\\OLD\\laser");
  }
};

TEST_F(modDebugTest, WriteDebug_AppendsTheTextAndALineEnd) {
  Install();
  INIDocument.DebugOn = true;
  WriteDebug("first");
  WriteDebug("");
  WriteDebug(">> second");
  EXPECT_EQ("first\r\n\r\n>> second\r\n", gDebugBuffer);
}

TEST_F(modDebugTest, WriteDebug_DebugOnFalse_DoesNothingAndKeepsEarlierLines) {
  Install();
  INIDocument.DebugOn = true;
  WriteDebug("kept");
  INIDocument.DebugOn = false;
  WriteDebug("dropped");
  WriteBanner(1, "x", 1);
  EXPECT_EQ("kept\r\n", gDebugBuffer);
}

TEST_F(modDebugTest, ClearDebug_EmptiesTheLog) {
  Install();
  INIDocument.DebugOn = true;
  WriteDebug("line");
  ClearDebug();
  EXPECT_EQ("", gDebugBuffer);
}

TEST_F(modDebugTest, WriteBanner_WritesThreeLinesWithTheGivenCounts) {
  Install();
  INIDocument.DebugOn = true;
  WriteBanner(24, "     COMMAND LINE PARAMETERS    ", 23);
  const std::string rule(80, '*');
  EXPECT_EQ(rule + "\r\n" + std::string(24, '*') + "     COMMAND LINE PARAMETERS    " +
                std::string(23, '*') + "\r\n" + rule + "\r\n",
            gDebugBuffer);
}

TEST_F(modDebugTest, StringToBytes_KeepUnicode_GivesUtf16LittleEndian) {
  Install();
  EXPECT_EQ((std::vector<uint8_t>{'A', 0, 'b', 0, '\r', 0, '\n', 0}),
            StringToBytes("Ab\r\n", true, false));
  EXPECT_EQ((std::vector<uint8_t>{'A', 0, 'b', 0, 0}), StringToBytes("Ab", true, true));
  EXPECT_TRUE(StringToBytes("", true, false).empty());
  EXPECT_EQ((std::vector<uint8_t>{0}), StringToBytes("", true, true));
}

TEST_F(modDebugTest, StringToBytes_Ansi_GivesOneByteACharacter) {
  Install();
  EXPECT_EQ((std::vector<uint8_t>{'A', 'b', 'c'}), StringToBytes("Abc", false, false));
  EXPECT_EQ((std::vector<uint8_t>{'A', 'b', 'c', 0}), StringToBytes("Abc", false, true));
}

TEST_F(modDebugTest, SaveDebugFile_WritesTheInterleavedAndSummedUtf16) {
  Install();
  INIDocument.DebugOn = true;
  WriteDebug("Hi");
  SaveDebugFile();
  // "Hi\r\n" in UTF-16: 48 00 69 00 0D 00 0A 00; taken in the order 0 1 7 2 6 3 5 4
  // and summed.
  EXPECT_EQ((std::vector<uint8_t>{0x48, 0x48, 0x48, 0xB1, 0xBB, 0xBB, 0xBB, 0xC8}),
            ReadBytes("C:\\Deploy\\PC042.debug"));
  EXPECT_EQ(json::parse(R"(["C:\\Deploy\\PC042.debug"])"), Transcript()["filesWritten"]);
}

TEST_F(modDebugTest, SaveDebugFile_DecodesBackToTheLogAndShowsNoReadableText) {
  Install();
  SomeLog();
  SaveDebugFile();
  const DecodedDebugFile decoded = Decode("C:\\Deploy\\PC042.debug");
  EXPECT_EQ(gDebugBuffer, decoded.text);
  EXPECT_EQ(0u, decoded.droppedBytes);
  EXPECT_EQ(std::string::npos, ReadFile("C:\\Deploy\\PC042.debug").find("BEGIN"));
}

TEST_F(modDebugTest, SaveDebugFile_NamedByTheComputerBesideTheExecutable) {
  machine["computerName"] = "lab-PC 7";
  machine["exePath"] = "C:\\Tools\\Zandolin\\ZandolinEngine.exe";
  WriteFile("C:\\Tools\\Zandolin\\ZandolinEngine.exe", "");
  Install();
  SomeLog();
  SaveDebugFile();
  EXPECT_EQ(gDebugBuffer, Decode("C:\\Tools\\Zandolin\\lab-PC 7.debug").text);
}

TEST_F(modDebugTest, SaveDebugFile_NoNetworkObject_UsesComputerUnknown) {
  machine["computerName"] = nullptr;
  Install();
  SomeLog();
  SaveDebugFile();
  EXPECT_EQ(gDebugBuffer, Decode("C:\\Deploy\\Computer UNKNOWN.debug").text);
}

TEST_F(modDebugTest, SaveDebugFile_EmptyLogOrDebugOff_WritesNothing) {
  Install();
  INIDocument.DebugOn = true;
  SaveDebugFile();
  SomeLog();
  INIDocument.DebugOn = false;
  SaveDebugFile();
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
  EXPECT_TRUE(Transcript()["filesWritten"].empty());
}

TEST_F(modDebugTest, SaveDebugFile_OlderLongerFile_KeepsItsTailBehindTheNewBytes) {
  const std::string old(5000, 'z');
  WriteFile("C:\\Deploy\\PC042.debug", old);
  Install();
  SomeLog();
  SaveDebugFile();
  const std::string file = ReadFile("C:\\Deploy\\PC042.debug");
  ASSERT_EQ(5000u, file.size());
  const size_t written = gDebugBuffer.size() * 2;
  EXPECT_EQ(old.substr(written), file.substr(written));
  const DecodedDebugFile decoded = Decode("C:\\Deploy\\PC042.debug");
  EXPECT_EQ(gDebugBuffer, decoded.text);
  EXPECT_EQ(5000u - written, decoded.droppedBytes);
}

TEST_F(modDebugTest, SaveDebugFile_FolderNotWritable_WarnsInTheEventLogOnly) {
  machine["faults"] = json::parse(R"([{"call":"WriteBinary","lastError":70}])");
  Install();
  SomeLog();
  const std::string log = gDebugBuffer;
  SaveDebugFile();
  const json t = Transcript();
  ASSERT_EQ(1u, t["eventLogWritten"].size());
  const json entry = t["eventLogWritten"][0];
  const std::string message = "Unable to create debug file within folder: 70: Permission denied";
  EXPECT_EQ("Zandolin", entry["source"]);
  EXPECT_EQ(2, entry["type"]);
  EXPECT_EQ(0, entry["category"]);
  EXPECT_EQ(20002, entry["id"]);
  EXPECT_EQ(json::array({message}), entry["strings"]);
  EXPECT_EQ(message + std::string(1, '\0'), entry["data"]);
  EXPECT_TRUE(t["messageBoxes"].empty());
  EXPECT_EQ(log + ">> Logged event in application event log.\r\n", gDebugBuffer);
  EXPECT_EQ(0, Err.Number);
}

TEST_F(modDebugTest, SaveDebugFile_ReadOnlyFolder_ReportsThePlatformsFileError) {
  machine["readOnly"] = json::array({"C:\\Deploy"});
  Install();
  SomeLog();
  SaveDebugFile();
  EXPECT_FALSE(FileExists("C:\\Deploy\\PC042.debug"));
  const json t = Transcript();
  ASSERT_EQ(1u, t["eventLogWritten"].size());
  EXPECT_EQ(json::array({"Unable to create debug file within folder: 70: Permission denied"}),
            t["eventLogWritten"][0]["strings"]);
}

// The file's bytes as the three stages make them, one after the other, on
// the whole log at once.
std::vector<uint8_t> ReferenceEncoding(const std::string& log) {
  std::vector<uint8_t> bytes = StringToBytes(log, true, false);
  InterleaveBytes(bytes);
  AddRunningSum(bytes);
  return bytes;
}

// Equal byte arrays; a difference is reported by its first index, not by
// printing megabytes.
void ExpectSameBytes(const std::vector<uint8_t>& expected, const std::vector<uint8_t>& actual) {
  ASSERT_EQ(expected.size(), actual.size());
  const auto [e, a] = std::mismatch(expected.begin(), expected.end(), actual.begin());
  EXPECT_TRUE(e == expected.end()) << "first difference at byte " << (e - expected.begin())
                                   << " of " << expected.size();
}

// About size bytes of log lines of varied length, each ended by CR LF;
// every line holds piece.
std::string LargeLog(size_t size, const std::string& piece) {
  std::string log;
  for (int i = 0; log.size() < size; ++i)
    log += ">> Found networked printer: \\\\OLD\\" + piece + std::to_string(i) +
           std::string(static_cast<size_t>(i % 97), '.') + "\r\n";
  return log;
}

TEST_F(modDebugTest, EncodeDebugLog_LargeLog_IsTheReferenceEncoding) {
  Install();
  const std::string log = LargeLog(3500000, "laser");
  ExpectSameBytes(ReferenceEncoding(log), EncodeDebugLog(log));
  // One byte more or less: the middle of the interleaving moves.
  ExpectSameBytes(ReferenceEncoding(log + "x"), EncodeDebugLog(log + "x"));
  ExpectSameBytes(ReferenceEncoding(log.substr(1)), EncodeDebugLog(log.substr(1)));
}

TEST_F(modDebugTest, EncodeDebugLog_LargeLogOfCharactersOfSeveralBytes_IsTheReferenceEncoding) {
  machine["os"] = {{"ansiCodePage", 65001}};
  Install();
  // Characters of two, three and four bytes of the client's code page (UTF-8),
  // and bytes 0x80 to 0xFF that begin no character: fewer UTF-16 units than
  // bytes.
  std::string strays;
  for (int b = 0x80; b <= 0xFF; ++b) strays += static_cast<char>(b);
  const std::string log = LargeLog(3000000, "Dru\xC3\xA7ker \xE2\x82\xAC \xF0\x9F\x96\xA8 " + strays);
  ASSERT_LT(StringToBytes(log, true, false).size(), 2 * log.size());
  ExpectSameBytes(ReferenceEncoding(log), EncodeDebugLog(log));
}

TEST_F(modDebugTest, EncodeDebugLog_DoubleByteCodePage_IsTheReferenceEncoding) {
  machine["os"] = {{"ansiCodePage", 932}};
  Install();
  const std::string log = LargeLog(1000000, "\\\\OLD\\\x93\xFA\x96\x7B");   // \\OLD\日本
  ASSERT_LT(StringToBytes(log, true, false).size(), 2 * log.size());
  ExpectSameBytes(ReferenceEncoding(log), EncodeDebugLog(log));
}

TEST_F(modDebugTest, EncodeDebugLog_LinesLongerThanAPiece_AreTheReferenceEncoding) {
  Install();
  std::string log = LargeLog(100000, "laser");
  log += std::string(2500000, 'a') + "\xC3\xA9\r\n";
  log += LargeLog(100000, "color");
  log += std::string(1500000, 'z');  // no line end at all
  ExpectSameBytes(ReferenceEncoding(log), EncodeDebugLog(log));
}

TEST_F(modDebugTest, EncodeDebugLog_FewBytes_AsInterleaveBytesHasThem) {
  machine["os"] = {{"ansiCodePage", 65001}};
  Install();
  // One character: two bytes of UTF-16, the second taken twice.
  EXPECT_EQ((std::vector<uint8_t>{'x', 'x', 'x'}), EncodeDebugLog("x"));
  EXPECT_EQ((std::vector<uint8_t>{0xE9, 0xE9, 0xE9}), EncodeDebugLog("\xC3\xA9"));   // é in UTF-8
  EXPECT_EQ(ReferenceEncoding("Hi"), EncodeDebugLog("Hi"));
  try {
    EncodeDebugLog("");
    FAIL() << "no FatalError";
  } catch (const FatalError& e) {
    EXPECT_EQ(9, e.Number);
  }
}

TEST_F(modDebugTest, SaveDebugFile_LargeLog_WritesTheReferenceEncoding) {
  Install();
  INIDocument.DebugOn = true;
  gDebugBuffer = LargeLog(3500000, "laser");
  SaveDebugFile();
  ExpectSameBytes(ReferenceEncoding(gDebugBuffer), ReadBytes("C:\\Deploy\\PC042.debug"));
}

TEST_F(modDebugTest, WriteDebugBytes_WritesFromTheFirstByte) {
  WriteFile("C:\\Deploy\\x.bin", "abcdef");
  Install();
  WriteDebugBytes("C:\\Deploy\\x.bin", {'1', '2'});
  EXPECT_EQ("12cdef", ReadFile("C:\\Deploy\\x.bin"));
  WriteDebugBytes("C:\\Deploy\\new.bin", {'9'});
  EXPECT_EQ("9", ReadFile("C:\\Deploy\\new.bin"));
  EXPECT_TRUE(Transcript()["eventLogWritten"].empty());
}

}  // namespace
