#include "app/DebugFileReader.h"

#include "diagnostics/modFileEncoding.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kStars(80, '*');
const std::string kBegin = kStars + "\r\n" + std::string(30, '*') + "     BEGIN DEBUG     " +
                           std::string(29, '*') + "\r\n" + kStars + "\r\n";
const std::string kEnd = kStars + "\r\n" + std::string(31, '*') + "     END DEBUG     " +
                         std::string(30, '*') + "\r\n" + kStars + "\r\n";

// UTF-8 to UTF-16LE bytes, as the engine keeps its log in memory.
std::vector<uint8_t> Utf16Bytes(const std::string& utf8) {
  std::vector<uint8_t> out;
  auto unit = [&out](uint32_t u) {
    out.push_back(static_cast<uint8_t>(u & 0xFF));
    out.push_back(static_cast<uint8_t>(u >> 8));
  };
  for (size_t i = 0; i < utf8.size();) {
    unsigned char b = static_cast<unsigned char>(utf8[i]);
    int extra = b < 0x80 ? 0 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : 3;
    uint32_t cp = extra == 0 ? b : extra == 1 ? (b & 0x1F) : extra == 2 ? (b & 0x0F) : (b & 0x07);
    for (int j = 1; j <= extra; ++j) cp = cp << 6 | (static_cast<unsigned char>(utf8[i + j]) & 0x3F);
    i += extra + 1;
    if (cp >= 0x10000) {
      unit(0xD800 + ((cp - 0x10000) >> 10));
      unit(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      unit(cp);
    }
  }
  return out;
}

// The debug file the engine writes for a log.
std::vector<uint8_t> Encode(const std::string& log) {
  std::vector<uint8_t> bytes = Utf16Bytes(log);
  InterleaveBytes(bytes);
  AddRunningSum(bytes);
  return bytes;
}

// A file written over an older one without truncating it.
std::vector<uint8_t> WrittenOver(std::vector<uint8_t> older, const std::vector<uint8_t>& newer) {
  if (older.size() < newer.size()) older.resize(newer.size());
  std::copy(newer.begin(), newer.end(), older.begin());
  return older;
}

std::string Log(const std::string& body, bool endBanner = true) {
  return kBegin + body + (endBanner ? kEnd : std::string());
}

std::string Lines(const std::string& stem, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += stem + std::to_string(i) + "\r\n";
  return text;
}

DecodedDebugFile MustDecode(const std::vector<uint8_t>& file) {
  DecodedDebugFile decoded;
  std::string error;
  EXPECT_TRUE(DecodeDebugFile(file, decoded, error)) << error;
  EXPECT_EQ("", error);
  return decoded;
}

TEST(DebugFileReaderTest, DecodeDebugFile_EngineEncodedLog_GivesTheTextBack) {
  std::string log = Log(">> UseActiveDirectory: False\r\n>> Found networked printer: \\\\OLD\\laser (\\\\OLD)\r\n");
  DecodedDebugFile decoded = MustDecode(Encode(log));
  EXPECT_EQ(log, decoded.text);
  EXPECT_EQ(0u, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_EveryLengthOfLog_GivesTheTextBack) {
  // Lengths that are and are not multiples of four bytes, short and long.
  std::string body;
  for (int i = 0; i < 120; ++i) {
    std::string log = Log(body);
    DecodedDebugFile decoded = MustDecode(Encode(log));
    ASSERT_EQ(log, decoded.text) << "body of " << body.size() << " characters";
    EXPECT_EQ(0u, decoded.droppedBytes);
    body += i % 7 == 0 ? "\r\n" : std::string(1, static_cast<char>('a' + i % 26));
  }
}

TEST(DebugFileReaderTest, DecodeDebugFile_OnlyTheFirstLine_IsTheShortestLog) {
  DecodedDebugFile decoded = MustDecode(Encode(kStars + "\r\n"));
  EXPECT_EQ(kStars + "\r\n", decoded.text);
}

TEST(DebugFileReaderTest, DecodeDebugFile_LogWithoutEndBanner_GivesTheTextBack) {
  std::string log = Log(">> Running Zandolin, abort status: False\r\n>> Getting client's list of printers <<\r\n",
                        false);
  DecodedDebugFile decoded = MustDecode(Encode(log));
  EXPECT_EQ(log, decoded.text);
  EXPECT_EQ(0u, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_TextBeyondAscii_ComesOutAsUtf8) {
  std::string log = Log(">> Found networked printer: \\\\SRV\\Büro-Drucker (\\\\SRV)\r\n"
                        ">> Comment: Café – 5 € ™\r\n"
                        ">> Location: 東京 本社\r\n"
                        ">> Принтер отдела\r\n"
                        ">> 😀 ok\r\n" +
                        Lines(">> padding ", 6));
  DecodedDebugFile decoded = MustDecode(Encode(log));
  EXPECT_EQ(log, decoded.text);
  EXPECT_EQ(0u, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_SingleCharacterOfItsScriptInTheFrontHalf_IsKept) {
  std::string log = Log(">> Printer: 印\r\n" + Lines(">> Found networked printer: \\\\OLD\\p", 30));
  DecodedDebugFile decoded = MustDecode(Encode(log));
  EXPECT_EQ(log, decoded.text);
  EXPECT_EQ(0u, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_SingleAccentedLetterInTheBackHalf_IsKept) {
  std::string log = Log(Lines(">> Found networked printer: \\\\OLD\\p", 30) + ">> Added networked printer: \\\\NEW\\Büro\r\n" +
                        Lines(">> Removed networked printer: \\\\OLD\\p", 10));
  DecodedDebugFile decoded = MustDecode(Encode(log));
  EXPECT_EQ(log, decoded.text);
  EXPECT_EQ(0u, decoded.droppedBytes);
}

// An independent reading of a file whose log length is known: undo the sum,
// then put every byte back where the interleaving took it from.
std::string PlainDecode(const std::vector<uint8_t>& file, size_t length) {
  std::vector<uint8_t> d(file.begin(), file.begin() + length);
  for (size_t i = d.size(); i-- > 1;) d[i] = static_cast<uint8_t>(d[i] - d[i - 1]);
  std::vector<uint8_t> b(length);
  size_t p = 0, lo = 1, hi = length - 1;
  b[0] = d[p++];
  for (;;) {
    b[lo] = d[p++];
    b[hi] = d[p++];
    --hi;
    ++lo;
    if (lo < hi) continue;
    if (lo == hi) b[lo] = d[p++];
    break;
  }
  std::string out;
  for (size_t i = 0; i + 1 < length; i += 2) {
    uint32_t u = b[i] | b[i + 1] << 8;
    if (u >= 0xD800 && u <= 0xDBFF) {
      uint32_t low = b[i + 2] | b[i + 3] << 8;
      u = 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
      i += 2;
    }
    if (u < 0x80) {
      out += static_cast<char>(u);
    } else if (u < 0x800) {
      out += static_cast<char>(0xC0 | u >> 6);
      out += static_cast<char>(0x80 | (u & 0x3F));
    } else if (u < 0x10000) {
      out += static_cast<char>(0xE0 | u >> 12);
      out += static_cast<char>(0x80 | (u >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (u & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | u >> 18);
      out += static_cast<char>(0x80 | (u >> 12 & 0x3F));
      out += static_cast<char>(0x80 | (u >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (u & 0x3F));
    }
  }
  return out;
}

TEST(DebugFileReaderTest, PlainDecode_KnownLength_ReadsTheFileBack) {
  std::string log = Log(">> Café 😀\r\n");
  std::vector<uint8_t> file = Encode(log);
  EXPECT_EQ(log, PlainDecode(file, file.size()));
}

// A long run's file written over by a shorter run: the byte after the short
// run's end is the first of the long run's tail.
struct Overwritten {
  std::string longLog, shortLog;
  std::vector<uint8_t> file;
  size_t shortBytes = 0;
  // The first byte of the older run's tail once the sum is undone.
  uint8_t SeamByte() const { return static_cast<uint8_t>(file[shortBytes] - file[shortBytes - 1]); }
};

Overwritten WriteOver(const std::string& longBody, const std::string& shortBody) {
  Overwritten o;
  o.longLog = Log(longBody);
  o.shortLog = Log(shortBody);
  std::vector<uint8_t> newer = Encode(o.shortLog);
  o.shortBytes = newer.size();
  o.file = WrittenOver(Encode(o.longLog), newer);
  return o;
}

TEST(DebugFileReaderTest, DecodeDebugFile_OlderLongerTail_DecodesTheShorterLogAndCountsTheTail) {
  Overwritten o = WriteOver(Lines(">> Found networked printer: \\\\OLD\\laser", 40),
                            Lines(">> Added networked printer: \\\\NEW\\laser", 11));
  // The byte after the short run's end is a high byte: with it, every
  // longer length holds a character of a script found nowhere else.
  ASSERT_EQ(2u, o.shortBytes % 4);
  DecodedDebugFile decoded = MustDecode(o.file);
  EXPECT_EQ(o.shortLog, decoded.text);
  EXPECT_EQ(o.file.size() - o.shortBytes, decoded.droppedBytes);
  EXPECT_EQ(2494u, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_TailWhoseFirstByteIsAControl_IsDropped) {
  // The short log is a multiple of four bytes long; the byte after it makes
  // a control character, which no longer length can hold.
  Overwritten o = WriteOver(Lines(">> line ", 60), Lines(">> line ", 8));
  ASSERT_EQ(0u, o.shortBytes % 4);
  ASSERT_EQ(18, o.SeamByte());
  DecodedDebugFile decoded = MustDecode(o.file);
  EXPECT_EQ(o.shortLog, decoded.text);
  EXPECT_EQ(o.file.size() - o.shortBytes, decoded.droppedBytes);
  EXPECT_EQ(1244u, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_TwoOlderRunsBehind_DecodesTheNewest) {
  std::string longest = Log(Lines(">> Found networked printer: \\\\OLD\\laser", 40));
  std::string middle = Log(Lines(">> Added networked printer: \\\\NEW\\laser", 17));
  std::string newest = Log(Lines(">> Added networked printer: \\\\NEW\\laser", 11));
  std::vector<uint8_t> file = WrittenOver(WrittenOver(Encode(longest), Encode(middle)), Encode(newest));
  DecodedDebugFile decoded = MustDecode(file);
  EXPECT_EQ(newest, decoded.text);
  EXPECT_EQ((longest.size() - newest.size()) * 2, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_TailStartingWithOrdinaryCharacter_CannotBeToldApart) {
  // The byte after the short run's end makes a printable character here, so
  // the longest length reads as a log too: the older run shows through in
  // the middle and nothing is reported dropped.
  Overwritten o = WriteOver(Lines(">> Found networked printer: \\\\OLD\\p", 40),
                            Lines(">> Added networked printer: \\\\NEW\\p", 8));
  ASSERT_EQ(0u, o.shortBytes % 4);
  ASSERT_EQ('(', o.SeamByte());
  DecodedDebugFile decoded = MustDecode(o.file);
  EXPECT_EQ(0u, decoded.droppedBytes);
  EXPECT_EQ(PlainDecode(o.file, o.file.size()), decoded.text);
  EXPECT_NE(o.shortLog, decoded.text);
  EXPECT_EQ(0u, decoded.text.find(kBegin));
  EXPECT_EQ(decoded.text.size() - kEnd.size(), decoded.text.rfind(kEnd));
}

TEST(DebugFileReaderTest, DecodeDebugFile_NoBytes_ReportsAnEmptyFile) {
  DecodedDebugFile decoded;
  std::string error;
  EXPECT_FALSE(DecodeDebugFile({}, decoded, error));
  EXPECT_EQ("the file is empty", error);
}

TEST(DebugFileReaderTest, DecodeDebugFile_PlainText_HoldsNoDebugLog) {
  std::string text = Log(">> not scrambled\r\n");
  DecodedDebugFile decoded;
  std::string error;
  EXPECT_FALSE(DecodeDebugFile(std::vector<uint8_t>(text.begin(), text.end()), decoded, error));
  EXPECT_EQ("the file holds no debug log", error);
}

TEST(DebugFileReaderTest, DecodeDebugFile_EncodedTextNotStartingWithTheStarLine_HoldsNoDebugLog) {
  DecodedDebugFile decoded;
  std::string error;
  EXPECT_FALSE(DecodeDebugFile(Encode(">> no banner\r\n" + kEnd), decoded, error));
  EXPECT_EQ("the file holds no debug log", error);
  EXPECT_FALSE(DecodeDebugFile(Encode(kStars + "\r\n>> no line end"), decoded, error));
  EXPECT_EQ("the file holds no debug log", error);
}

TEST(DebugFileReaderTest, DecodeDebugFile_OneMillionLines_DecodesInAFewSeconds) {
  std::string log = kBegin;
  log.reserve(50000000);
  for (int i = 0; i < 1000000; ++i) {
    log += ">> Found networked printer: \\\\OLD\\laser";
    log += std::to_string(i);
    log += " (\\\\OLD)\r\n";
  }
  log += kEnd;
  std::vector<uint8_t> file(log.size() * 2);
  for (size_t i = 0; i < log.size(); ++i) file[2 * i] = static_cast<uint8_t>(log[i]);
  InterleaveBytes(file);
  AddRunningSum(file);

  auto start = std::chrono::steady_clock::now();
  DecodedDebugFile decoded = MustDecode(file);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_TRUE(decoded.text == log);
  EXPECT_EQ(0u, decoded.droppedBytes);
  // Well under a second in an optimised build; the bound leaves room for
  // the sanitizers of the test build.
  EXPECT_LT(seconds, 10.0);
  RecordProperty("DecodeSeconds", std::to_string(seconds));
}

// zandolin-debug as a program.
class ZandolinDebugTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "zandolin-debug-XXXXXX").string();
    ASSERT_NE(nullptr, mkdtemp(pattern.data()));
    dir = pattern;
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }

  std::string WriteBytes(const std::string& name, const std::vector<uint8_t>& bytes) {
    std::string path = (dir / name).string();
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
  }

  static std::string Slurp(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

  // Runs the program with the arguments (already quoted for the shell).
  int Run(const std::string& arguments) {
    std::string command = std::string("'") + ZANDOLIN_DEBUG_EXE + "' " + arguments + " >'" +
                          (dir / "out").string() + "' 2>'" + (dir / "err").string() + "'";
    int status = std::system(command.c_str());
    out = Slurp(dir / "out");
    err = Slurp(dir / "err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::filesystem::path dir;
  std::string out, err;
};

TEST_F(ZandolinDebugTest, DebugFile_PrintsTheLogAsUtf8) {
  std::string log = Log(">> Found networked printer: \\\\SRV\\Büro (\\\\SRV)\r\n");
  std::string path = WriteBytes("PC042.debug", Encode(log));
  EXPECT_EQ(0, Run("'" + path + "'"));
  EXPECT_EQ(log, out);
  EXPECT_EQ("", err);
}

TEST_F(ZandolinDebugTest, OlderLongerTail_PrintsTheShorterLogAndSaysWhatWasDropped) {
  Overwritten o = WriteOver(Lines(">> Found networked printer: \\\\OLD\\laser", 40),
                            Lines(">> Added networked printer: \\\\NEW\\laser", 11));
  std::string path = WriteBytes("PC042.debug", o.file);
  EXPECT_EQ(0, Run("'" + path + "'"));
  EXPECT_EQ(o.shortLog, out);
  EXPECT_EQ("zandolin-debug: " + path +
                ": dropped 2494 bytes at the end, the tail of an older, longer run\n",
            err);
}

TEST_F(ZandolinDebugTest, NoArgument_ExitsWithUsage) {
  EXPECT_EQ(2, Run(""));
  EXPECT_EQ("", out);
  EXPECT_EQ("usage: zandolin-debug FILE\n", err);
}

TEST_F(ZandolinDebugTest, MissingFile_ExitsWithTheReason) {
  std::string path = (dir / "absent.debug").string();
  EXPECT_EQ(2, Run("'" + path + "'"));
  EXPECT_EQ("", out);
  EXPECT_EQ("zandolin-debug: cannot read " + path + ": No such file or directory\n", err);
}

TEST_F(ZandolinDebugTest, Folder_ExitsWithTheReason) {
  EXPECT_EQ(2, Run("'" + dir.string() + "'"));
  EXPECT_EQ("zandolin-debug: cannot read " + dir.string() + ": Is a directory\n", err);
}

TEST_F(ZandolinDebugTest, EmptyFile_ExitsWithTheReason) {
  std::string path = WriteBytes("empty.debug", {});
  EXPECT_EQ(2, Run("'" + path + "'"));
  EXPECT_EQ("", out);
  EXPECT_EQ("zandolin-debug: " + path + ": the file is empty\n", err);
}

TEST_F(ZandolinDebugTest, FileWithoutDebugLog_ExitsWithTheReason) {
  std::string text = "just some text\r\n";
  std::string path = WriteBytes("notes.txt", std::vector<uint8_t>(text.begin(), text.end()));
  EXPECT_EQ(2, Run("'" + path + "'"));
  EXPECT_EQ("", out);
  EXPECT_EQ("zandolin-debug: " + path + ": the file holds no debug log\n", err);
}

TEST_F(ZandolinDebugTest, TwoArguments_ExitsWithUsage) {
  EXPECT_EQ(2, Run("a b"));
  EXPECT_EQ("usage: zandolin-debug FILE\n", err);
}

}  // namespace
