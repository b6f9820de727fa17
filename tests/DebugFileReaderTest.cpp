#include "Version.h"
#include "app/zandolin-debug/DebugFileReader.h"

#include "diagnostics/modFileEncoding.h"
#include "platform/Utf8.h"
#include "tests/IniFileBuilder.h"
#include "tests/SimFixture.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

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

using platform::AppendUtf8;

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
    AppendUtf8(out, u);
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

// The same file with another byte after the short run's end: an older run
// whose running sum stood elsewhere at that point, which shifts every byte
// of its tail by the same amount.
std::vector<uint8_t> WithSeamByte(std::vector<uint8_t> file, size_t at, uint8_t seam) {
  const uint8_t shift = static_cast<uint8_t>(seam - static_cast<uint8_t>(file[at] - file[at - 1]));
  for (size_t i = at; i < file.size(); ++i) file[i] = static_cast<uint8_t>(file[i] + shift);
  return file;
}

TEST(DebugFileReaderTest, DecodeDebugFile_OlderLongerTail_NamesTheLongestReading) {
  Overwritten o = WriteOver(Lines(">> Found networked printer: \\\\OLD\\laser", 40),
                            Lines(">> Added networked printer: \\\\NEW\\laser", 11));
  DecodedDebugFile decoded = MustDecode(o.file);
  EXPECT_EQ(o.shortBytes, decoded.length);
  EXPECT_EQ(o.file.size(), decoded.longest);
  EXPECT_GT(decoded.evidence, 10.0);   // over the bar of a high byte after the end
  EXPECT_TRUE(decoded.others.empty());
  EXPECT_EQ(PlainDecode(o.file, o.file.size()), DebugFileText(o.file, o.file.size()));
  EXPECT_EQ(o.shortLog, DebugFileText(o.file, o.shortBytes));
}

TEST(DebugFileReaderTest, DecodeDebugFile_TailAfterANulCharacter_TheWholeFileIsNoLog) {
  Overwritten o = WriteOver(Lines(">> line ", 60), Lines(">> line ", 8));
  ASSERT_EQ(0u, o.shortBytes % 4);
  // The byte after the end makes a NUL character, which no log holds.
  std::vector<uint8_t> file = WithSeamByte(o.file, o.shortBytes, 0);
  DecodedDebugFile decoded = MustDecode(file);
  EXPECT_EQ(o.shortLog, decoded.text);
  EXPECT_EQ(o.shortBytes, decoded.length);
  EXPECT_EQ(o.shortBytes, decoded.longest);
  EXPECT_EQ(file.size() - o.shortBytes, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DecodeDebugFile_TaillessLogOnceReadShort_ComesBackWhole) {
  // A genuine log mutated, with no older run behind it: among other things
  // one character whose high byte looks like the byte after a run's end.
  const std::filesystem::path dir = std::filesystem::path(ZANDOLIN_SOURCE_DIR) / "tests" / "data" / "debug-reader";
  std::ifstream debug(dir / "tailless-read-short.debug", std::ios::binary), text(dir / "tailless-read-short.txt", std::ios::binary);
  std::vector<uint8_t> file((std::istreambuf_iterator<char>(debug)), std::istreambuf_iterator<char>());
  std::string log((std::istreambuf_iterator<char>(text)), std::istreambuf_iterator<char>());
  ASSERT_EQ(9658u, file.size());
  DecodedDebugFile decoded = MustDecode(file);
  EXPECT_EQ(log, decoded.text);
  EXPECT_EQ(9658u, decoded.length);
  EXPECT_EQ(9658u, decoded.longest);
  EXPECT_EQ(0u, decoded.droppedBytes);
  EXPECT_TRUE(decoded.others.empty());
}

TEST(DebugFileReaderTest, DecodeDebugFile_ControlCharactersOfAGenuineLog_AreKept) {
  // A tab in an INI value, bytes the code page leaves undefined, a value
  // cut inside a character.
  std::string log = Log(">> DomainName: corp\texample\r\n>> SuccessMessage: Caf\xC2\x81 \xC2\x9D\x01 done\r\n" +
                        Lines(">> Found networked printer: \\\\OLD\\p", 20) + ">> FailureMessage: \x1B[0m\r\n" +
                        Lines(">> Removed networked printer: \\\\OLD\\p", 20));
  DecodedDebugFile decoded = MustDecode(Encode(log));
  EXPECT_EQ(log, decoded.text);
  EXPECT_EQ(0u, decoded.droppedBytes);
}

TEST(DebugFileReaderTest, DebugFileText_LoneSurrogates_BecomeReplacementCharacters) {
  // Units written straight: a high surrogate before an ASCII letter, a low
  // one alone, a high one at the very end.
  std::vector<uint8_t> bytes = Utf16Bytes(kStars + "\r\n");
  for (uint16_t u : std::initializer_list<uint16_t>{0xD83D, 'a', 0xDE00, 'b', 0xD800}) {
    bytes.push_back(static_cast<uint8_t>(u & 0xFF));
    bytes.push_back(static_cast<uint8_t>(u >> 8));
  }
  InterleaveBytes(bytes);
  AddRunningSum(bytes);
  EXPECT_EQ(kStars + "\r\n\xEF\xBF\xBD" "a\xEF\xBF\xBD" "b\xEF\xBF\xBD", DebugFileText(bytes, bytes.size()));
  EXPECT_EQ("", DebugFileText(bytes, 1));
  EXPECT_EQ("*", DebugFileText(bytes, 2));
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

TEST(DebugFileReaderTest, DecodeDebugFile_OneMillionLines_GivesTheTextBackInLinearTime) {
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
  // About a second in an optimised build and ten with the sanitizers of
  // the test build; anything worse than linear would take hours.
  EXPECT_LT(seconds, 60.0);
  RecordProperty("DecodeSeconds", std::to_string(seconds));
}

// ---------------------------------------------------------------------------
// Test data: debug files written over an older run's file, made by running
// the engine twice on a simulated client, and made from real log lines with
// the engine's own encoding.

// splitmix64: the same numbers on every platform.
class Rng {
 public:
  explicit Rng(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  size_t Below(size_t n) { return n == 0 ? 0 : static_cast<size_t>(Next() % n); }
  bool Chance(int percent) { return Below(100) < static_cast<size_t>(percent); }
  template <class T>
  const T& Pick(const std::vector<T>& items) {
    return items[Below(items.size())];
  }

 private:
  uint64_t state_;
};

// One debug file and what it holds.
struct DebugFileCase {
  std::string how;               // how the file came about
  std::vector<uint8_t> file;
  std::string text;              // the newest run's log
  size_t length = 0;             // its bytes at the front of the file
  bool HasTail() const { return length < file.size(); }
};

DebugFileCase GenuineCase(const std::string& how, const std::string& text) {
  DebugFileCase c{how, Encode(text), text, 0};
  c.length = c.file.size();
  return c;
}

DebugFileCase OverCase(const std::string& how, const std::string& older, const std::string& newer) {
  std::vector<uint8_t> fresh = Encode(newer);
  DebugFileCase c{how, WrittenOver(Encode(older), fresh), newer, fresh.size()};
  return c;
}

// Whether the reader gives the newest run's log and counts the rest as dropped.
bool ReadsRight(const DebugFileCase& c) {
  DecodedDebugFile decoded;
  std::string error;
  return DecodeDebugFile(c.file, decoded, error) && decoded.text == c.text &&
         decoded.droppedBytes == c.file.size() - c.length;
}

// The lines of a log, each without its CR LF.
std::vector<std::string> SplitLines(const std::string& log) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < log.size();) {
    size_t end = log.find("\r\n", at);
    if (end == std::string::npos) end = log.size();
    lines.push_back(log.substr(at, end - at));
    at = end + 2;
  }
  return lines;
}

std::string JoinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\r\n";
  return text;
}

// An SMTP server on a loopback port that says yes to everything, so that
// the engine's mail dialogue, message included, stands in its log.
class SmtpAnswerer {
 public:
  SmtpAnswerer() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener_, 8);
    socklen_t size = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = std::to_string(ntohs(address.sin_port));
    thread_ = std::thread([this] { Serve(); });
  }
  ~SmtpAnswerer() {
    stop_ = true;
    thread_.join();
    close(listener_);
  }
  const std::string& Port() const { return port_; }

 private:
  static void Say(int fd, const std::string& text) { (void)!send(fd, text.data(), text.size(), MSG_NOSIGNAL); }

  void Serve() {
    while (!stop_) {
      pollfd p{listener_, POLLIN, 0};
      if (poll(&p, 1, 20) <= 0) continue;
      int fd = accept(listener_, nullptr, nullptr);
      if (fd < 0) continue;
      Converse(fd);
      close(fd);
    }
  }

  void Converse(int fd) {
    Say(fd, "220 mail.corp.example.com ESMTP\r\n");
    std::string buffer;
    bool inData = false;
    while (!stop_) {
      pollfd p{fd, POLLIN, 0};
      if (poll(&p, 1, 20) <= 0) continue;
      char chunk[4096];
      ssize_t got = recv(fd, chunk, sizeof chunk, 0);
      if (got <= 0) return;
      buffer.append(chunk, static_cast<size_t>(got));
      for (;;) {
        if (inData) {
          size_t end = buffer.find("\r\n.\r\n");
          if (end == std::string::npos) break;
          buffer.erase(0, end + 5);
          inData = false;
          Say(fd, "250 2.0.0 Ok: queued\r\n");
          continue;
        }
        size_t end = buffer.find("\r\n");
        if (end == std::string::npos) break;
        std::string command = buffer.substr(0, end);
        buffer.erase(0, end + 2);
        if (command == "DATA") {
          inData = true;
          Say(fd, "354 End data with <CR><LF>.<CR><LF>\r\n");
        } else {
          Say(fd, "250 2.1.0 Ok\r\n");
        }
      }
    }
  }

  int listener_ = -1;
  std::string port_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

const std::vector<std::string> kOldServers = {"OLD", "PRN1", "PS-LEGACY", "fs01"};
const std::vector<std::string> kNewServers = {"NEW", "PRN9", "PS-CENTRAL"};
const std::vector<std::string> kKeptServers = {"KEEP", "PLOT01"};
const std::vector<std::string> kQueues = {
    "laser", "color", "plotter", "label", "hp-4050", "hp-4250", "lj-m607", "xerox-7855",
    "canon-c5535", "kyocera-fs4200", "mailroom", "finance", "hr-color", "reception",
    "warehouse-zebra", "A3-color"};
const std::vector<std::string> kForeignQueues = {"Büro-Drucker", "Café-Farbe", "Étage-3",
                                                 "Sala-Reuniões", "Принтер-2", "東京-A3",
                                                 "Øst-kopi", "Zürich-HP"};
const std::vector<std::string> kDrivers = {"HP Universal Printing PCL 6", "Xerox Global Print Driver",
                                           "Canon Generic Plus UFR II", "Generic / Text Only",
                                           "KX DRIVER for Universal Printing", "ZDesigner GK420d"};
const std::vector<std::string> kLocalNames = {"Desk Printer", "Label Printer", "Fax",
                                              "Microsoft Print to PDF", "Old Label Printer"};

std::string QueueName(Rng& rng, bool foreign) {
  std::string q = foreign && rng.Chance(40) ? rng.Pick(kForeignQueues) : rng.Pick(kQueues);
  switch (rng.Below(5)) {
    case 0: q += "-" + std::to_string(1 + rng.Below(9)) + "f"; break;
    case 1: q += std::to_string(rng.Below(100)); break;
    default: break;
  }
  return q;
}

// A client and its INI file.
struct ClientPlan {
  nlohmann::json machine = nlohmann::json::object();
  IniFile ini;
};

nlohmann::json RandomPrinters(Rng& rng, bool foreign, size_t count) {
  nlohmann::json printers = nlohmann::json::array();
  std::vector<std::string> names;
  for (size_t i = 0; i < count; ++i) {
    std::string server = rng.Chance(75) ? rng.Pick(kOldServers) : rng.Pick(kKeptServers);
    std::string queue = QueueName(rng, foreign);
    std::string name = "\\\\" + server + "\\" + queue;
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    names.push_back(name);
    printers.push_back({{"name", name}, {"serverName", "\\\\" + server}, {"shareName", queue},
                        {"portName", "Ne0" + std::to_string(i) + ":"}, {"driverName", rng.Pick(kDrivers)}});
  }
  for (size_t i = 0, locals = rng.Below(3); i < locals; ++i) {
    std::string name = rng.Pick(kLocalNames);
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    names.push_back(name);
    printers.push_back({{"name", name}, {"serverName", nullptr}, {"portName", rng.Chance(50) ? "USB001" : "LPT1:"},
                        {"driverName", rng.Pick(kDrivers)}, {"attributes", 64}});
  }
  return printers;
}

// Print servers that hold most of the client's queues, and the directory.
void AddServers(Rng& rng, nlohmann::json& machine) {
  nlohmann::json servers = nlohmann::json::object();
  for (const std::string& to : kNewServers) servers[to] = {{"queues", nlohmann::json::array()}};
  for (const std::string& kept : kKeptServers) servers[kept] = {{"queues", nlohmann::json::array()}};
  for (const auto& p : machine["printers"]) {
    if (p["serverName"].is_null()) continue;
    std::string server = p["serverName"].get<std::string>().substr(2);
    std::string queue = p["shareName"];
    bool kept = std::find(kKeptServers.begin(), kKeptServers.end(), server) != kKeptServers.end();
    if (kept) servers[server]["queues"].push_back(queue);
    for (const std::string& to : kNewServers)
      if (rng.Chance(80)) servers[to]["queues"].push_back(queue);
  }
  for (const std::string& to : kNewServers)
    for (size_t i = 0, extra = rng.Below(3); i < extra; ++i) servers[to]["queues"].push_back(QueueName(rng, false));
  machine["printServers"] = servers;
  nlohmann::json queues = nlohmann::json::array();
  for (const auto& q : servers["NEW"]["queues"])
    queues.push_back({{"name", "NEW-" + q.get<std::string>()}, {"printShareName", {q}}});
  machine["directory"] = {{"domain", "corp.example.com"}, {"namingContext", "DC=corp,DC=example,DC=com"},
                          {"printQueues", queues}};
}

std::string Joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ",") + item;
  return text;
}

IniFile RandomIni(Rng& rng, const nlohmann::json& machine, bool foreign, const std::string& smtpPort) {
  auto flag = [&rng](int percent) { return rng.Chance(percent) ? "True" : "False"; };
  IniFile ini = ValidIni();
  ini.Set("GENERAL", "UseActiveDirectory", flag(10))
      .Set("GENERAL", "UseManualDefinitions", flag(90))
      .Set("GENERAL", "AlwaysRun", flag(30))
      .Set("GENERAL", "ShowProgress", flag(50));
  if (rng.Chance(50)) ini.Set("ACTIVE DIRECTORY", "DomainName", "corp.example.com");
  std::vector<std::string> queues;
  for (const auto& p : machine["printers"])
    if (!p["serverName"].is_null()) queues.push_back(p["shareName"]);
  if (queues.empty()) queues.push_back(QueueName(rng, foreign));
  if (rng.Chance(70)) {
    std::vector<std::string> from, to;
    for (size_t i = 0, n = 1 + rng.Below(2); i < n; ++i) {
      std::string f = rng.Pick(kOldServers);
      if (std::find(from.begin(), from.end(), f) != from.end()) continue;
      from.push_back(f);
      to.push_back(rng.Pick(kNewServers));
    }
    ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", Joined(from))
        .Set("MANUAL DEFINITIONS SERVERS", "ToServers", Joined(to));
  }
  if (rng.Chance(35)) {
    std::vector<std::string> from, to;
    for (size_t i = 0, n = 1 + rng.Below(3); i < n; ++i) {
      from.push_back(rng.Pick(queues));
      to.push_back(QueueName(rng, foreign));
    }
    ini.Set("MANUAL DEFINITIONS PRINTERS", "FromPrinters", Joined(from))
        .Set("MANUAL DEFINITIONS PRINTERS", "ToPrinters", Joined(to));
  }
  if (rng.Chance(20)) {
    ini.Set("MANUAL DEFINITIONS MIXED", "FromServers", rng.Pick(kOldServers))
        .Set("MANUAL DEFINITIONS MIXED", "FromPrinters", rng.Pick(queues))
        .Set("MANUAL DEFINITIONS MIXED", "ToServers", rng.Pick(kNewServers))
        .Set("MANUAL DEFINITIONS MIXED", "ToPrinters", QueueName(rng, foreign));
  }
  if (rng.Chance(25)) {
    bool local = rng.Chance(30);
    ini.Set("POPULATE", "ServerNames", local ? "NEW,." : "NEW")
        .Set("POPULATE", "PrinterNames", local ? rng.Pick(queues) + ",Label Printer" : rng.Pick(queues));
  }
  if (rng.Chance(25)) {
    ini.Set("PRUNE", "ServerNames", rng.Pick(kOldServers)).Set("PRUNE", "PrinterNames", rng.Pick(queues));
    ini.Set("PRUNE", "DeleteAllNonNetworked", flag(15));
  }
  if (rng.Chance(15)) {
    ini.Set("PRINTER_DRIVER", "PrinterName", "Label Printer")
        .Set("PRINTER_DRIVER", "DriverName", "ZDesigner GK420d")
        .Set("PRINTER_DRIVER", "DriverFileName", "zdesigner.dll")
        .Set("PRINTER_DRIVER", "PortName", "USB001")
        .Set("PRINTER_DRIVER", "DriverSharePath", "\\\\fileserver\\drivers");
  }
  ini.Set("SET_DEFAULT", "DefaultType", std::to_string(rng.Below(3)));
  if (rng.Chance(40)) ini.Set("SET_DEFAULT", "DefaultPrinterName", "\\\\NEW\\" + rng.Pick(queues));
  if (!smtpPort.empty() && rng.Chance(30)) {
    ini.Set("NOTIFICATION SMTP", "UseSMTP", "True")
        .Set("NOTIFICATION SMTP", "SMTPServerNameOrIP", "127.0.0.1")
        .Set("NOTIFICATION SMTP", "ServerPort", smtpPort)
        .Set("NOTIFICATION SMTP", "EmailSubject", rng.Chance(50) ? "Printer migration" : "Zandolin report")
        .Set("NOTIFICATION SMTP", "EmailTo", rng.Chance(50) ? "helpdesk@corp.example.com,it@corp.example.com"
                                                              : "printadmin@corp.example.com")
        .Set("NOTIFICATION SMTP", "EmailFrom", "zandolin@corp.example.com");
  }
  if (rng.Chance(30)) {
    ini.Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "True")
        .Set("NOTIFICATION FILE OUTPUT", "FileOutputPath", rng.Chance(50) ? "C:\\Logs" : "C:\\Deploy\\")
        .Set("NOTIFICATION FILE OUTPUT", "FileOutputName", "migration.log")
        .Set("NOTIFICATION FILE OUTPUT", "IncludeComputerName", flag(50))
        .Set("NOTIFICATION FILE OUTPUT", "IncludeOutcome", flag(50));
  }
  ini.Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", flag(30));
  if (rng.Chance(20)) {
    ini.Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "True")
        .Set("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup", flag(70))
        .Set("NOTIFICATION CLIENT POP-UP", "SuccessMessage", "Your printers have been moved.")
        .Set("NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup", flag(70))
        .Set("NOTIFICATION CLIENT POP-UP", "FailureMessage", "Please call the help desk.");
  }
  if (rng.Chance(50)) ini.Set("DEPLOYMENT", "DeploymentPath", "\\\\fileserver\\deploy\\zandolin\\");
  return ini;
}

// A client with up to ten printers, or with many when that is given.
ClientPlan RandomClient(Rng& rng, const std::string& smtpPort, size_t many = 0) {
  ClientPlan plan;
  const bool foreign = rng.Chance(30);
  plan.machine["printers"] = RandomPrinters(rng, foreign, many ? many : rng.Below(11));
  const auto& printers = plan.machine["printers"];
  if (!printers.empty() && rng.Chance(75)) plan.machine["defaultPrinter"] = printers[rng.Below(printers.size())]["name"];
  AddServers(rng, plan.machine);
  plan.machine["ports"] = {"LPT1:", "FILE:", "USB001"};
  plan.machine["drivers"] = {"Generic / Text Only"};
  plan.machine["clock"] = "2026-03-1" + std::to_string(rng.Below(10)) + "T08:" + std::to_string(10 + rng.Below(50)) + ":00";
  plan.machine["timerIntervalMs"] = 5;
  switch (rng.Below(8)) {
    case 0: plan.machine["os"] = {{"platformId", 2}, {"majorVersion", 4}, {"minorVersion", 0}}; break;
    case 1: plan.machine["os"] = {{"platformId", 1}, {"majorVersion", 4}, {"minorVersion", 10}}; break;
    default: break;
  }
  // A client set to UTF-8, so that names of every script reach the log whole.
  plan.machine["os"]["ansiCodePage"] = 65001;
  plan.ini = RandomIni(rng, plan.machine, foreign, smtpPort);
  return plan;
}

// The second run of a pair, and what makes its log shorter, mostly.
enum class SecondRun {
  kAlreadySucceeded,   // the same INI file, which has succeeded
  kAgain,              // AlwaysRun, on the client as the first run left it
  kFewerPrinters,      // the first client with printers taken away
  kOtherNames,         // the first client's INI file on other printers
  kOtherIni,           // another INI file in the place of the first
  kIniOnCommandLine,   // another INI file named on the command line
  kFewerNotifications, // the same INI file with its channels switched off
  kDebugOff,           // DebugOn False: no file is written
  kNoIni,              // the INI file is gone
  kCount
};

const char* SecondRunName(SecondRun s) {
  static const char* const kNames[] = {"already succeeded", "again",          "fewer printers",
                                       "other names",       "other INI file", "INI file on the command line",
                                       "fewer notifications", "DebugOn off",  "no INI file"};
  return kNames[static_cast<size_t>(s)];
}

// Logs with no older run behind them, made by mutating genuine logs the
// way a damaged or hand-edited log may look: characters of other scripts
// put in, lines cut, glued, doubled, swapped, lengthened, rows of
// asterisks of other lengths. Each stays a well-formed log: it begins with
// the line of 80 asterisks, every line ends in CR LF.
const std::vector<std::pair<char32_t, char32_t>> kScripts = {
    {0x20, 0x7E},      {0xA0, 0xFF},      {0x100, 0x17F},   {0x391, 0x3C9},   {0x410, 0x44F},
    {0x660, 0x669},    {0x5D0, 0x5EA},    {0x3041, 0x3096}, {0x4E00, 0x9FFF}, {0xAC00, 0xD7A3},
    {0x2010, 0x2030},  {0x20AC, 0x20AC},  {0x2122, 0x2122}, {0x1F600, 0x1F64F}, {0x80, 0x9F},
    {0x09, 0x09}};

char32_t RandomCharacter(Rng& rng) {
  // Mostly ASCII and Latin, the rest spread over other scripts, a few
  // control characters.
  const size_t pick = rng.Below(100);
  const auto& [first, last] = pick < 40 ? kScripts[0] : pick < 55 ? kScripts[1] : pick < 97
                                  ? kScripts[2 + rng.Below(kScripts.size() - 4)] : kScripts[kScripts.size() - 2 + rng.Below(2)];
  return first + static_cast<char32_t>(rng.Below(last - first + 1));
}

std::u32string RandomWord(Rng& rng, size_t length) {
  std::u32string word;
  for (size_t i = 0; i < length; ++i) word += RandomCharacter(rng);
  return word;
}

std::u32string CodePoints(const std::string& utf8) {
  std::u32string out;
  for (size_t i = 0; i < utf8.size();) {
    unsigned char b = static_cast<unsigned char>(utf8[i]);
    int extra = b < 0x80 ? 0 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : 3;
    char32_t cp = extra == 0 ? b : extra == 1 ? (b & 0x1F) : extra == 2 ? (b & 0x0F) : (b & 0x07);
    for (int j = 1; j <= extra; ++j) cp = cp << 6 | (static_cast<unsigned char>(utf8[i + j]) & 0x3F);
    out += cp;
    i += extra + 1;
  }
  return out;
}

std::string Utf8(const std::u32string& text) {
  std::string out;
  for (char32_t cp : text) AppendUtf8(out, cp);
  return out;
}

std::string MutatedLog(Rng& rng, const std::string& genuine) {
  std::vector<std::u32string> lines;
  for (const std::string& line : SplitLines(genuine)) lines.push_back(CodePoints(line));
  if (!lines.empty() && lines.back().empty()) lines.pop_back();
  auto body = [&]() { return 1 + rng.Below(lines.size() - 1); };   // any line but the first
  for (size_t m = 0, count = 1 + rng.Below(8); m < count && lines.size() > 2; ++m) {
    std::u32string& line = lines[body()];
    switch (rng.Below(12)) {
      case 0:   // characters replaced
        for (size_t i = 0, n = 1 + rng.Below(4); i < n && !line.empty(); ++i) line[rng.Below(line.size())] = RandomCharacter(rng);
        break;
      case 1:   // a word put in
        line.insert(rng.Below(line.size() + 1), RandomWord(rng, 1 + rng.Below(30)));
        break;
      case 2: {  // cut from inside one line to inside a later one
        const size_t a = body(), b = std::min(lines.size() - 1, a + rng.Below(40));
        std::u32string glued = lines[a].substr(0, rng.Below(lines[a].size() + 1)) +
                               lines[b].substr(rng.Below(lines[b].size() + 1));
        lines.erase(lines.begin() + static_cast<ptrdiff_t>(a), lines.begin() + static_cast<ptrdiff_t>(b + 1));
        lines.insert(lines.begin() + static_cast<ptrdiff_t>(a), glued);
        break;
      }
      case 3: {  // lines doubled elsewhere
        const size_t from = body(), n = std::min(1 + rng.Below(10), lines.size() - from);
        std::vector<std::u32string> block(lines.begin() + static_cast<ptrdiff_t>(from),
                                          lines.begin() + static_cast<ptrdiff_t>(from + n));
        lines.insert(lines.begin() + static_cast<ptrdiff_t>(body()), block.begin(), block.end());
        break;
      }
      case 4:   // lines dropped
        lines.erase(lines.begin() + static_cast<ptrdiff_t>(body()));
        break;
      case 5:   // two lines swapped
        std::swap(lines[body()], lines[body()]);
        break;
      case 6:   // a line cut short
        line.resize(rng.Below(line.size() + 1));
        break;
      case 7:   // a long line, as a long INI value gives
        line += RandomWord(rng, 100 + rng.Below(3000));
        break;
      case 8:   // a row of asterisks of another length
        lines.insert(lines.begin() + static_cast<ptrdiff_t>(body()), std::u32string(1 + rng.Below(120), U'*'));
        break;
      case 9:   // one byte of a character changed, as the byte after a run's end changes one
        if (!line.empty()) {
          char32_t& c = line[rng.Below(line.size())];
          if (c < 0x10000) {
            const char32_t byte = static_cast<char32_t>(1 + rng.Below(255));
            const char32_t changed = rng.Chance(50) ? (c & 0xFF) | byte << 8 : (c & 0xFF00) | byte;
            if ((changed < 0xD800 || changed > 0xDFFF) && changed < 0xFFFE && changed != 0x0D && changed != 0x0A) c = changed;
          }
        }
        break;
      case 10:  // another case
        for (char32_t& c : line)
          if (c < 0x80) c = static_cast<char32_t>(rng.Chance(50) ? std::toupper(static_cast<int>(c)) : std::tolower(static_cast<int>(c)));
        break;
      default:  // the same line twice in a row
        lines.insert(lines.begin() + static_cast<ptrdiff_t>(body()), std::u32string(line));
        break;
    }
  }
  std::string text;
  for (const std::u32string& line : lines) text += Utf8(line) + "\r\n";
  return text;
}

// A client whose log holds unusual content: names beyond ASCII in several
// scripts, long INI values, and with the progress window on and mail
// switched on, the mail dialogue with its message.
const std::vector<std::string> kUserNames = {"jdoe", "Jürgen.Groß", "Zoë Ødegård", "田中太郎", "Иван.Петров",
                                             "O'Brien", "María-José", "محمد", "😀user"};
const std::vector<std::string> kComputerNames = {"PC042", "WS-MÜNCHEN-7", "東京-PC01", "LAPTOP-ÅÄÖ", "PC-Δ9"};

std::string LongText(Rng& rng, size_t length) {
  static const std::vector<std::string> kWords = {
      "printer", "moved", "Drucker", "wurde", "verschoben", "imprimante", "déplacée", "プリンター",
      "移動しました", "принтер", "перемещён", "help desk", "call", "3100", "😀", "€", "–", "ÆØÅ"};
  std::string text;
  while (text.size() < length) text += (text.empty() ? "" : " ") + rng.Pick(kWords);
  return text;
}

ClientPlan UnusualClient(Rng& rng, const std::string& smtpPort) {
  ClientPlan plan = RandomClient(rng, smtpPort, rng.Chance(20) ? 20 + rng.Below(60) : 0);
  plan.machine["userName"] = rng.Pick(kUserNames);
  plan.machine["computerName"] = rng.Pick(kComputerNames);
  nlohmann::json& printers = plan.machine["printers"];
  for (size_t i = 0, n = rng.Below(4); i < n; ++i) {
    const std::string queue = rng.Pick(kForeignQueues) + (rng.Chance(30) ? LongText(rng, 40 + rng.Below(150)) : "");
    const std::string server = rng.Pick(kOldServers);
    printers.push_back({{"name", "\\\\" + server + "\\" + queue}, {"serverName", "\\\\" + server},
                        {"shareName", queue}, {"portName", "Ne1" + std::to_string(i) + ":"},
                        {"driverName", rng.Pick(kDrivers)}});
  }
  AddServers(rng, plan.machine);
  IniFile& ini = plan.ini;
  if (rng.Chance(60)) {
    ini.Set("GENERAL", "ShowProgress", "True")
        .Set("NOTIFICATION SMTP", "UseSMTP", "True")
        .Set("NOTIFICATION SMTP", "SMTPServerNameOrIP", "127.0.0.1")
        .Set("NOTIFICATION SMTP", "ServerPort", smtpPort)
        .Set("NOTIFICATION SMTP", "EmailSubject", rng.Chance(50) ? LongText(rng, 20 + rng.Below(400)) : "Migration")
        .Set("NOTIFICATION SMTP", "EmailTo", "helpdesk@corp.example.com,Jürgen@corp.example.com,x")
        .Set("NOTIFICATION SMTP", "EmailFrom", "zandolin@corp.example.com");
  }
  if (rng.Chance(50)) {
    ini.Set("NOTIFICATION CLIENT POP-UP", "SuccessMessage", LongText(rng, 100 + rng.Below(1200)))
        .Set("NOTIFICATION CLIENT POP-UP", "FailureMessage", LongText(rng, 100 + rng.Below(1200)));
  }
  if (rng.Chance(40)) {
    std::vector<std::string> from, to;
    for (size_t i = 0, n = 20 + rng.Below(300); i < n; ++i) {
      from.push_back(rng.Pick(kOldServers) + std::to_string(i));
      to.push_back(rng.Pick(kNewServers));
    }
    ini.Set("MANUAL DEFINITIONS SERVERS", "FromServers", Joined(from))
        .Set("MANUAL DEFINITIONS SERVERS", "ToServers", Joined(to));
  }
  if (rng.Chance(40)) ini.Set("DEPLOYMENT", "DeploymentPath", "\\\\fileserver\\" + LongText(rng, 50 + rng.Below(900)));
  if (rng.Chance(30)) ini.Set("ACTIVE DIRECTORY", "DomainName", "corp-" + LongText(rng, 10 + rng.Below(200)) + ".example.com");
  return plan;
}

// Runs the engine twice on simulated clients and keeps the debug files.
class EngineRunPairs : public SimFixture {
 protected:
  // The log that the engine saved: the run's log up to its closing banner;
  // lines that a mail dialogue adds after the save are not in the file.
  static std::string SavedLog(const nlohmann::json& transcript) {
    std::string log = transcript["debugBuffer"];
    size_t end = log.find(kEnd);
    return end == std::string::npos ? std::string() : log.substr(0, end + kEnd.size());
  }

  std::vector<uint8_t> DebugFileBytes(const std::string& path = kDebugPath) {
    if (!FileExists(path)) return {};
    std::string bytes = ReadFile(path);
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
  }

  void Reset() {
    client.reset();
    std::error_code ec;
    std::filesystem::remove_all(dir / "files", ec);
    std::filesystem::remove(dir / "machine.json", ec);
    machine = nlohmann::json::object();
  }

  void WriteIni(const std::string& name, const IniFile& ini) { WriteFile("C:\\Deploy\\" + name, ini.Text()); }
  void RemoveIni(const std::string& name) {
    std::error_code ec;
    std::filesystem::remove(dir / "files" / "C" / "Deploy" / name, ec);
  }

  // The files of one pair: the file both runs left, and the first run's
  // file and the second run's log each as a file of its own. Empty when a
  // run did not end normally.
  std::vector<DebugFileCase> MakePair(uint64_t seed, const std::string& smtpPort, size_t printers = 0) {
    Reset();
    Rng rng(seed);
    ClientPlan first = RandomClient(rng, smtpPort, printers);
    const SecondRun second = static_cast<SecondRun>(rng.Below(static_cast<size_t>(SecondRun::kCount)));
    const std::string how = "engine runs, seed " + std::to_string(seed) + ", " + SecondRunName(second);

    machine = first.machine;
    WriteIni("migration.ini", first.ini);
    nlohmann::json t1 = Run("", 30);
    if (t1["ended"] != "returned") return {};
    const std::string log1 = SavedLog(t1);
    const std::vector<uint8_t> older = DebugFileBytes();
    if (log1.empty() || older.empty()) return {};
    client->Save();
    const nlohmann::json after = nlohmann::json::parse(std::ifstream(dir / "machine.json"));

    std::string commandLine;
    IniFile ini = first.ini;
    switch (second) {
      case SecondRun::kAlreadySucceeded:
        machine = after;
        ini.Set("GENERAL", "AlwaysRun", "False");
        break;
      case SecondRun::kAgain:
        machine = after;
        ini.Set("GENERAL", "AlwaysRun", "True");
        break;
      case SecondRun::kFewerPrinters: {
        machine = first.machine;
        nlohmann::json kept = nlohmann::json::array();
        for (const auto& p : first.machine["printers"])
          if (rng.Chance(50)) kept.push_back(p);
        machine["printers"] = kept;
        ini.Set("GENERAL", "AlwaysRun", "True");
        break;
      }
      case SecondRun::kOtherNames:
        machine = first.machine;
        machine["printers"] = RandomPrinters(rng, rng.Chance(30), rng.Below(first.machine["printers"].size() + 1));
        machine.erase("defaultPrinter");
        AddServers(rng, machine);
        ini.Set("GENERAL", "AlwaysRun", "True");
        break;
      case SecondRun::kOtherIni:
        machine = after;
        ini = RandomIni(rng, after, rng.Chance(30), smtpPort);
        break;
      case SecondRun::kIniOnCommandLine:
        machine = after;
        ini = RandomIni(rng, after, rng.Chance(30), smtpPort);
        commandLine = rng.Chance(50) ? "C:\\Deploy\\second.ini" : "\"C:\\Deploy\\second.ini\"";
        break;
      case SecondRun::kFewerNotifications:
        machine = after;
        ini.Set("GENERAL", "AlwaysRun", "True")
            .Set("NOTIFICATION SMTP", "UseSMTP", "False")
            .Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "False")
            .Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "False")
            .Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "False");
        break;
      case SecondRun::kDebugOff:
        machine = after;
        ini.Set("GENERAL", "AlwaysRun", "True").Set("SUPPORT", "DebugOn", "False");
        break;
      case SecondRun::kNoIni:
      case SecondRun::kCount:
        machine = after;
        break;
    }
    if (second == SecondRun::kNoIni)
      RemoveIni("migration.ini");
    else
      WriteIni(commandLine.empty() ? "migration.ini" : "second.ini", ini);

    nlohmann::json t2 = Run(commandLine, 30);
    if (t2["ended"] != "returned") return {};
    const std::vector<uint8_t> file = DebugFileBytes();
    std::vector<DebugFileCase> cases;
    const std::string log2 = SavedLog(t2);
    if (second == SecondRun::kDebugOff) {
      // Nothing written: the first run's file stands as it was.
      EXPECT_EQ(older, file) << how;
      cases.push_back(DebugFileCase{how, file, log1, file.size()});
    } else {
      if (log2.empty()) return {};
      std::vector<uint8_t> fresh = Encode(log2);
      EXPECT_EQ(WrittenOver(older, fresh), file) << how;
      cases.push_back(DebugFileCase{how, file, log2, fresh.size()});
      cases.push_back(GenuineCase(how + ", second run alone", log2));
    }
    cases.push_back(DebugFileCase{how + ", first run alone", older, log1, older.size()});
    return cases;
  }

  // One run on a client with unusual content: names beyond ASCII, long INI
  // values, the mail dialogue in the log. The file it leaves, with no older
  // run behind it; empty when the run did not end normally.
  std::vector<DebugFileCase> MakeUnusualRun(uint64_t seed, const std::string& smtpPort) {
    Reset();
    Rng rng(seed);
    ClientPlan plan = UnusualClient(rng, smtpPort);
    machine = plan.machine;
    WriteIni("migration.ini", plan.ini);
    nlohmann::json t = Run("", 30);
    if (t["ended"] != "returned") return {};
    const std::vector<uint8_t> file =
        DebugFileBytes("C:\\Deploy\\" + plan.machine["computerName"].get<std::string>() + ".debug");
    if (file.empty()) return {};
    return {DebugFileCase{"unusual run, seed " + std::to_string(seed), file, PlainDecode(file, file.size()),
                          file.size()}};
  }

  static constexpr const char* kDebugPath = "C:\\Deploy\\PC042.debug";
};

// Pairs of texts made of the lines of real logs: the older one longer, the
// newer one cut, shuffled or borrowed from another log in many ways.
DebugFileCase SyntheticPair(Rng& rng, const std::vector<std::string>& logs, const std::string& how) {
  const std::vector<std::string> a = SplitLines(rng.Pick(logs));
  const std::vector<std::string> b = SplitLines(rng.Pick(logs));
  // The body: everything between the opening and the closing banner.
  auto body = [](const std::vector<std::string>& lines) {
    return std::vector<std::string>(lines.begin() + 3, lines.end() - 3);
  };
  auto whole = [](const std::vector<std::string>& bodyLines) { return Log(JoinLines(bodyLines)); };
  std::vector<std::string> older = body(a), other = body(b), newer;
  switch (rng.Below(6)) {
    case 0:   // lines dropped at random
      for (const std::string& line : older)
        if (rng.Chance(70)) newer.push_back(line);
      break;
    case 1:   // another log
      newer = other;
      break;
    case 2:   // a run of lines cut out
    {
      newer = older;
      size_t from = rng.Below(newer.size() + 1), count = rng.Below(newer.size() - from + 1);
      newer.erase(newer.begin() + static_cast<ptrdiff_t>(from), newer.begin() + static_cast<ptrdiff_t>(from + count));
      break;
    }
    case 3:   // the older log is two logs' bodies
      newer = older;
      older.insert(older.end(), other.begin(), other.end());
      break;
    case 4:   // lines of another log mixed in
      for (const std::string& line : older)
        newer.push_back(rng.Chance(20) && !other.empty() ? rng.Pick(other) : line);
      if (!newer.empty() && rng.Chance(50)) newer.pop_back();
      break;
    default:  // the newer one a shorter piece of the older
      newer.assign(older.begin(), older.begin() + static_cast<ptrdiff_t>(rng.Below(older.size() + 1)));
      break;
  }
  std::string olderLog = whole(older), newerLog = whole(newer);
  if (newerLog.size() >= olderLog.size()) std::swap(olderLog, newerLog);
  if (newerLog.size() == olderLog.size()) olderLog += JoinLines(other) + ">> " + how + "\r\n";
  return OverCase(how, olderLog, newerLog);
}

// Files of real run pairs: tails whose first byte is a low byte and a high
// byte, genuine files of both lengths, non-ASCII printer names, and the mail
// dialogue with its message inside the log. A file is read as the newest
// run's log, or, when the text does not show that run's end clearly
// enough, whole; never cut anywhere else. A genuine file is read whole.
TEST_F(EngineRunPairs, DecodeDebugFile_FilesOfEngineRunPairs_GiveTheNewestRunsLogOrTheWholeFile) {
  SmtpAnswerer smtp;
  size_t tails[4] = {}, found[4] = {}, genuine[4] = {}, foreignTails = 0, mailTails = 0;
  for (uint64_t seed = 100000; seed < 100030; ++seed) {
    for (const DebugFileCase& c : MakePair(seed, smtp.Port())) {
      DecodedDebugFile decoded = MustDecode(c.file);
      if (!c.HasTail()) {
        EXPECT_EQ(c.text, decoded.text) << c.how;
        EXPECT_EQ(0u, decoded.droppedBytes) << c.how;
        ++genuine[c.length % 4];
        continue;
      }
      ++tails[c.length % 4];
      if (decoded.droppedBytes == 0) {
        EXPECT_EQ(PlainDecode(c.file, c.file.size()), decoded.text) << c.how;
        continue;
      }
      EXPECT_EQ(c.text, decoded.text) << c.how;
      EXPECT_EQ(c.file.size() - c.length, decoded.droppedBytes) << c.how;
      ++found[c.length % 4];
      foreignTails += std::any_of(c.text.begin(), c.text.end(), [](char ch) { return ch & 0x80; });
      mailTails += c.text.find(">> Sending FROM list: MAIL FROM:<") != std::string::npos &&
                   c.text.find("\r\nSubject: ") != std::string::npos;
    }
  }
  // The counts these seeds give.
  EXPECT_EQ(12u, tails[0]);
  EXPECT_EQ(10u, tails[2]);
  EXPECT_EQ(6u, found[0]);
  EXPECT_EQ(8u, found[2]);
  EXPECT_EQ(2u, foreignTails);
  EXPECT_EQ(1u, mailTails);
  EXPECT_LT(10u, genuine[0]);
  EXPECT_LT(10u, genuine[2]);
}

// Genuine logs of unusual content, and genuine logs mutated: each read
// whole.
TEST_F(EngineRunPairs, DecodeDebugFile_TaillessLogsOfUnusualContent_AreReadWhole) {
  SmtpAnswerer smtp;
  std::vector<std::string> logs;
  size_t mail = 0, beyondAscii = 0;
  for (uint64_t seed = 170000; seed < 170020; ++seed) {
    for (const DebugFileCase& c : MakeUnusualRun(seed, smtp.Port())) {
      DecodedDebugFile decoded = MustDecode(c.file);
      EXPECT_EQ(c.text, decoded.text) << c.how;
      EXPECT_EQ(0u, decoded.droppedBytes) << c.how;
      mail += c.text.find(">> Sending DATA: ") != std::string::npos;
      beyondAscii += std::any_of(c.text.begin(), c.text.end(), [](char ch) { return ch & 0x80; });
      logs.push_back(c.text);
    }
  }
  EXPECT_EQ(20u, logs.size());
  EXPECT_EQ(12u, mail);
  EXPECT_EQ(19u, beyondAscii);
  Rng rng(11);
  for (int i = 0; i < 200; ++i) {
    const std::string log = MutatedLog(rng, rng.Pick(logs));
    DecodedDebugFile decoded = MustDecode(Encode(log));
    EXPECT_EQ(log, decoded.text) << "mutated log " << i;
  }
}

// ---------------------------------------------------------------------------
// Measurement, run by hand: how often the reader finds the newest run's end.
//   zandolin-tests --gtest_also_run_disabled_tests --gtest_filter='*Measure*'
// ZANDOLIN_MEASURE_SEED picks another set of cases (default 1).

uint64_t MeasureSeed() {
  const char* text = std::getenv("ZANDOLIN_MEASURE_SEED");
  return text ? std::strtoull(text, nullptr, 10) : 1;
}

struct Tally {
  size_t right = 0, all = 0;
  void Add(bool ok) { right += ok; ++all; }
  std::string Text() const {
    char line[64];
    std::snprintf(line, sizeof line, "%zu of %zu (%.1f%%)", right, all, all ? 100.0 * right / all : 0.0);
    return line;
  }
};

void Measure(const std::string& what, const std::vector<DebugFileCase>& cases) {
  Tally tails, genuine, parity[4];
  if (const char* dump = std::getenv("ZANDOLIN_MEASURE_DUMP")) {
    int i = 0;
    for (const DebugFileCase& c : cases) {
      std::string base = std::string(dump) + "/" + what + "-" + std::to_string(i++);
      std::ofstream(base + ".bin", std::ios::binary).write(reinterpret_cast<const char*>(c.file.data()), c.file.size());
      std::ofstream(base + ".txt", std::ios::binary) << c.text;
      std::ofstream(base + ".meta") << c.length << "\n" << c.how << "\n";
    }
  }
  for (const DebugFileCase& c : cases) {
    bool ok = ReadsRight(c);
    (c.HasTail() ? tails : genuine).Add(ok);
    if (c.HasTail()) parity[c.length % 4].Add(ok);
    if (!ok && std::getenv("ZANDOLIN_MEASURE_VERBOSE")) {
      DecodedDebugFile decoded;
      std::string error;
      DecodeDebugFile(c.file, decoded, error);
      std::printf("  wrong: %s: length %zu of %zu, read %zu\n", c.how.c_str(), c.length, c.file.size(),
                  c.file.size() - decoded.droppedBytes);
    }
  }
  std::printf("%s: with a tail %s (length 0 mod 4: %s, 2 mod 4: %s); without %s\n", what.c_str(),
              tails.Text().c_str(), parity[0].Text().c_str(), parity[2].Text().c_str(), genuine.Text().c_str());
}

TEST_F(EngineRunPairs, DISABLED_Measure_EngineRunsAndSyntheticPairs) {
  SmtpAnswerer smtp;
  std::vector<DebugFileCase> real;
  std::vector<std::string> logs;
  size_t tails = 0;
  for (uint64_t seed = MeasureSeed() * 100000; tails < 200; ++seed) {
    for (DebugFileCase& c : MakePair(seed, smtp.Port())) {
      tails += c.HasTail();
      if (c.length == c.file.size()) logs.push_back(c.text);
      real.push_back(std::move(c));
    }
  }
  Measure("engine runs", real);

  if (std::getenv("ZANDOLIN_MEASURE_LARGE")) {
    // Clients with many printers: longer logs, more places to be fooled.
    std::vector<DebugFileCase> large;
    Rng sizes(MeasureSeed() + 7);
    const size_t fewest = std::strtoul(std::getenv("ZANDOLIN_MEASURE_LARGE"), nullptr, 10);
    for (uint64_t seed = MeasureSeed() * 100000 + 50000; large.size() < 300; ++seed)
      for (DebugFileCase& c : MakePair(seed, smtp.Port(), fewest + sizes.Below(5 * fewest))) large.push_back(std::move(c));
    Measure("large clients", large);
  }

  Rng rng(MeasureSeed());
  std::vector<DebugFileCase> synthetic;
  for (int i = 0; i < 400; ++i) synthetic.push_back(SyntheticPair(rng, logs, "synthetic " + std::to_string(i)));
  Measure("synthetic pairs", synthetic);
}

// Logs without a tail: genuine ones of unusual content, and genuine ones
// mutated; none may be read short.
TEST_F(EngineRunPairs, DISABLED_Measure_TaillessLogsOfUnusualContent) {
  SmtpAnswerer smtp;
  std::vector<DebugFileCase> runs, mutated;
  std::vector<std::string> logs;
  for (uint64_t seed = MeasureSeed() * 100000 + 70000; runs.size() < 250; ++seed) {
    for (DebugFileCase& c : MakeUnusualRun(seed, smtp.Port())) {
      logs.push_back(c.text);
      runs.push_back(std::move(c));
    }
  }
  for (uint64_t seed = MeasureSeed() * 100000 + 90000; logs.size() < 500; ++seed)
    for (DebugFileCase& c : MakePair(seed, smtp.Port()))
      if (!c.HasTail()) logs.push_back(c.text);
  Rng rng(MeasureSeed() + 11);
  for (int i = 0; i < 500; ++i)
    mutated.push_back(GenuineCase("mutated log " + std::to_string(i), MutatedLog(rng, rng.Pick(logs))));
  Measure("unusual runs", runs);
  Measure("mutated logs", mutated);
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

// The mutated genuine log that was once read short, as the program reads it.
TEST_F(ZandolinDebugTest, TaillessLogOnceReadShort_PrintsTheWholeLogWithAndWithoutWhole) {
  const std::filesystem::path data = std::filesystem::path(ZANDOLIN_SOURCE_DIR) / "tests" / "data" / "debug-reader";
  std::ifstream text(data / "tailless-read-short.txt", std::ios::binary);
  const std::string log((std::istreambuf_iterator<char>(text)), std::istreambuf_iterator<char>());
  ASSERT_EQ(4830u, log.size());
  const std::string path = (data / "tailless-read-short.debug").string();
  EXPECT_EQ(0, Run("'" + path + "'"));
  EXPECT_EQ(log, out);
  EXPECT_EQ("", err);
  EXPECT_EQ(0, Run("--whole '" + path + "'"));
  EXPECT_EQ(log, out);
  EXPECT_EQ("", err);
}

TEST_F(ZandolinDebugTest, OlderLongerTail_PrintsTheShorterLogAndSaysHowSureAndWhatElse) {
  Overwritten o = WriteOver(Lines(">> Found networked printer: \\\\OLD\\laser", 40),
                            Lines(">> Added networked printer: \\\\NEW\\laser", 11));
  std::string path = WriteBytes("PC042.debug", o.file);
  EXPECT_EQ(0, Run("'" + path + "'"));
  EXPECT_EQ(o.shortLog, out);
  const std::string z = "zandolin-debug: " + path + ": ";
  EXPECT_EQ(z + "dropped 2494 bytes at the end, the tail of an older, longer run\n" + z +
                "how sure: likely: the text favours this end, at byte 1910, over one log of the whole file by "
                "odds of about 10^7 to 1\n" +
                z + "other readings: --whole, the whole file as one log of 4404 bytes\n",
            err);

  EXPECT_EQ(0, Run("--whole '" + path + "'"));
  EXPECT_EQ(PlainDecode(o.file, o.file.size()), out);
  EXPECT_EQ("", err);
  EXPECT_EQ(0, Run("--end 1910 '" + path + "'"));
  EXPECT_EQ(o.shortLog, out);
  EXPECT_EQ("", err);
}

TEST_F(ZandolinDebugTest, TailAfterANulCharacter_IsCertain) {
  Overwritten o = WriteOver(Lines(">> line ", 60), Lines(">> line ", 8));
  std::string path = WriteBytes("PC042.debug", WithSeamByte(o.file, o.shortBytes, 0));
  EXPECT_EQ(0, Run("'" + path + "'"));
  EXPECT_EQ(o.shortLog, out);
  const std::string z = "zandolin-debug: " + path + ": ";
  EXPECT_EQ(z + "dropped 1244 bytes at the end, the tail of an older, longer run\n" + z +
                "how sure: certain: the whole file does not read as one log; the longest reading that does is "
                "1160 bytes\n" +
                z + "other readings: --whole, the whole file as one log of 2404 bytes\n",
            err);
}

TEST_F(ZandolinDebugTest, EndNotClearEnough_ReadsTheWholeFileAndNamesThePossibleEnd) {
  Overwritten o = WriteOver(Lines(">> Found networked printer: \\\\OLD\\laser", 20),
                            Lines(">> Found networked printer: \\\\OLD\\laser", 9));
  ASSERT_EQ(1740u, o.shortBytes);
  std::string path = WriteBytes("PC042.debug", o.file);
  EXPECT_EQ(0, Run("'" + path + "'"));
  EXPECT_EQ(PlainDecode(o.file, o.file.size()), out);
  EXPECT_EQ("zandolin-debug: " + path +
                ": read as one log of 2684 bytes; it may end sooner, with an older run's tail behind it: "
                "--end 1740 (odds about 10^6 to 1)\n",
            err);
  EXPECT_EQ(0, Run("--end 1740 '" + path + "'"));
  EXPECT_EQ(o.shortLog, out);
}

TEST_F(ZandolinDebugTest, WrongEnd_ExitsWithTheReason) {
  std::string path = WriteBytes("PC042.debug", Encode(Log(">> x\r\n")));
  EXPECT_EQ(2, Run("--end 3 '" + path + "'"));
  EXPECT_EQ("zandolin-debug: --end: expected an even number of bytes above 0, not '3'\n", err);
  EXPECT_EQ(2, Run("--end 0 '" + path + "'"));
  EXPECT_EQ("zandolin-debug: --end: expected an even number of bytes above 0, not '0'\n", err);
  EXPECT_EQ(2, Run("--end 2k '" + path + "'"));
  EXPECT_EQ("zandolin-debug: --end: expected an even number of bytes above 0, not '2k'\n", err);
  EXPECT_EQ(2, Run("--end 4000 '" + path + "'"));
  EXPECT_EQ("zandolin-debug: " + path + ": --end 4000: the file has only 996 bytes\n", err);
  EXPECT_EQ("", out);
  EXPECT_EQ(2, Run("--whole --end 2 '" + path + "'"));
  EXPECT_EQ("usage: zandolin-debug [--whole | --end BYTES] FILE\n", err);
  EXPECT_EQ(2, Run("--end"));
  EXPECT_EQ("usage: zandolin-debug [--whole | --end BYTES] FILE\n", err);
}

TEST_F(ZandolinDebugTest, NoArgument_ExitsWithUsage) {
  EXPECT_EQ(2, Run(""));
  EXPECT_EQ("", out);
  EXPECT_EQ("usage: zandolin-debug [--whole | --end BYTES] FILE\n", err);
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

TEST_F(ZandolinDebugTest, Version_PrintsTheProjectVersionOnStandardOutput) {
  EXPECT_EQ(0, Run("--version"));
  EXPECT_EQ(std::string("zandolin-debug ") + ZANDOLIN_VERSION + "\n", out);
  EXPECT_EQ("", err);
}

TEST_F(ZandolinDebugTest, Help_PrintsUsageAndWhatTheProgramDoesOnStandardOutput) {
  EXPECT_EQ(0, Run("--help"));
  EXPECT_EQ(0u, out.find("usage: zandolin-debug [--whole | --end BYTES] FILE\n"
                         "       zandolin-debug --help | --version\n\n"
                         "Prints the engine's debug file FILE"))
      << out;
  EXPECT_EQ("", err);
}

TEST_F(ZandolinDebugTest, TwoArguments_ExitsWithUsage) {
  EXPECT_EQ(2, Run("a b"));
  EXPECT_EQ("usage: zandolin-debug [--whole | --end BYTES] FILE\n", err);
  EXPECT_EQ(2, Run("--verbose a"));
  EXPECT_EQ("usage: zandolin-debug [--whole | --end BYTES] FILE\n", err);
}

}  // namespace
