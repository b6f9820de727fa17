// The ANSI code pages of the simulated client: the bytes Windows gives for
// machine text, checked against Windows' tables as Wine ships them and, for
// an independent view, against the C library's converters.
#include "platform/sim/SimCodePage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iconv.h>
#include <iterator>
#include <map>
#include <vector>

namespace {

using sim::CodePage;

const CodePage& Cp(uint32_t number) {
  const CodePage* page = CodePage::Find(number);
  if (!page) throw std::runtime_error("code page " + std::to_string(number) + " not served");
  return *page;
}

TEST(SimCodePageTest, ServesTheAnsiCodePagesOfWindowsAndUtf8) {
  EXPECT_EQ("874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258, 65001",
            CodePage::ServedList());
  EXPECT_EQ(nullptr, CodePage::Find(437));   // an OEM code page is no ANSI code page
  EXPECT_EQ(nullptr, CodePage::Find(0));
  EXPECT_FALSE(CodePage::Served(437));
  EXPECT_EQ(1252u, Cp(1252).Number());
  // The list machine.json is checked against is the list of the tables.
  for (uint32_t number = 0; number <= 65535; ++number)
    EXPECT_EQ(CodePage::Served(number), CodePage::Find(number) != nullptr) << number;
}

TEST(SimCodePageTest, AsciiIsTheSameInEveryCodePage) {
  std::string ascii;
  for (int c = 0; c < 0x80; ++c) ascii += static_cast<char>(c);
  std::u16string wide(ascii.begin(), ascii.end());
  for (uint32_t number : {874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258,
                          65001}) {
    EXPECT_EQ(wide, Cp(number).ToUtf16(ascii)) << number;
    EXPECT_EQ(ascii, Cp(number).FromUtf16(wide)) << number;
  }
}

TEST(SimCodePageTest, Cp1252_GivesWindowsBytesBestFitAndQuestionMarks) {
  const CodePage& cp = Cp(1252);
  EXPECT_EQ("Dr\xFC" "cker", cp.FromUtf8("Drücker"));
  EXPECT_EQ("\x80", cp.FromUtf8("€"));
  EXPECT_EQ("A", cp.FromUtf8("Ā"));          // best fit: A with macron
  EXPECT_EQ("8", cp.FromUtf8("∞"));          // best fit: infinity
  EXPECT_EQ("?", cp.FromUtf8("日"));
  EXPECT_EQ("??", cp.FromUtf8("😀"));        // each half of the surrogate pair
  EXPECT_EQ("?", cp.FromUtf8("\xFF"));       // not UTF-8: U+FFFD, which 1252 lacks
  EXPECT_EQ("Drücker", cp.ToUtf8("Dr\xFC" "cker"));
  EXPECT_EQ("\u0081\u008D\u008F\u0090\u009D", cp.ToUtf8("\x81\x8D\x8F\x90\x9D"));
}

TEST(SimCodePageTest, Cp932_PairsLeadBytesAndFallsBackToTheDefaultCharacters) {
  const CodePage& cp = Cp(932);
  EXPECT_EQ("\x93\xFA\x96\x7B", cp.FromUtf8("日本"));
  EXPECT_EQ("Drucker", cp.FromUtf8("Drücker"));   // best fit: u with diaeresis
  EXPECT_EQ("\\", cp.FromUtf8("¥"));
  EXPECT_EQ("?", cp.FromUtf8("Ā"));
  EXPECT_EQ("日本", cp.ToUtf8("\x93\xFA\x96\x7B"));
  EXPECT_EQ(u"\u30FB", cp.ToUtf16("\x81"));          // a lead byte at the end
  EXPECT_EQ(u"\u30FBx", cp.ToUtf16("\x81\x0Dx"));    // takes the next byte along
  EXPECT_EQ(std::u16string(u"\u30FB") + u'\0', cp.ToUtf16(std::string("\x81\0", 2)));
  EXPECT_EQ(u"\uF8F0\u0080", cp.ToUtf16("\xA0\x80"));
}

TEST(SimCodePageTest, Cp936_HasTheEuroAsOneByte) {
  const CodePage& cp = Cp(936);
  EXPECT_EQ("\x80", cp.FromUtf8("€"));
  EXPECT_EQ("\xC8\xD5\xB1\xBE", cp.FromUtf8("日本"));
}

TEST(SimCodePageTest, Utf8_ReplacesWhatIsNotUtf8) {
  const CodePage& cp = Cp(65001);
  EXPECT_EQ("Drücker", cp.FromUtf8("Drücker"));
  EXPECT_EQ("a\xEF\xBF\xBD" "b", cp.ToUtf8("a\xFC" "b"));
  EXPECT_EQ(u"a\uFFFDb", cp.ToUtf16("a\xC3" "b"));
  EXPECT_EQ("\xEF\xBF\xBD", cp.FromUtf16(u"\xD800"));
}

// A code page file of Wine: the byte tables and the table of UTF-16 units.
struct NlsFile {
  uint16_t maxChar = 0, uniDefault = 0;
  std::vector<uint16_t> mb;
  std::map<int, std::vector<uint16_t>> rows;   // lead byte -> units by trail byte
  std::vector<uint16_t> wc;
};

bool ReadNls(const std::string& path, NlsFile& nls) {
  std::ifstream in(path, std::ios::binary);
  std::vector<unsigned char> d((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (d.size() < 600) return false;
  auto word = [&d](size_t at) { return static_cast<uint16_t>(d[at] | d[at + 1] << 8); };
  nls.maxChar = word(4);
  nls.uniDefault = word(8);
  size_t wcStart = 28 + 2 * static_cast<size_t>(word(26));
  size_t pos = 28;
  for (int i = 0; i < 256; ++i) nls.mb.push_back(word(pos + 2 * i));
  pos += 512;
  pos += 2 + 2 * static_cast<size_t>(word(pos));
  bool dbcs = word(pos) != 0;
  pos += 2;
  if (dbcs)
    for (int lead = 0; lead < 256; ++lead)
      if (uint16_t offset = word(pos + 2 * lead))
        for (int trail = 0; trail < 256; ++trail)
          nls.rows[lead].push_back(word(pos + 2 * (offset + trail)));
  for (size_t u = 0; u < 65536; ++u)
    nls.wc.push_back(nls.maxChar == 1 ? d[wcStart + u] : word(wcStart + 2 * u));
  return true;
}

TEST(SimCodePageTest, TablesAreWindowsTablesAsWineShipsThem) {
  for (uint32_t number : {874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258}) {
    NlsFile nls;
    ASSERT_TRUE(ReadNls(std::string(ZANDOLIN_NLS_DIR) + "/c_" + std::to_string(number) + ".nls", nls))
        << number;
    const CodePage& cp = Cp(number);
    int wrong = 0;
    for (int b = 0; b < 256; ++b) {
      if (nls.rows.count(b)) {
        for (int trail = 1; trail < 256; ++trail) {
          std::string pair{static_cast<char>(b), static_cast<char>(trail)};
          wrong += cp.ToUtf16(pair) != std::u16string(1, nls.rows[b][trail]);
        }
      } else {
        wrong += cp.ToUtf16(std::string(1, static_cast<char>(b))) != std::u16string(1, nls.mb[b]);
      }
    }
    for (size_t u = 0; u < 65536; ++u) {
      uint16_t v = nls.wc[u];
      std::string expected = v > 0xFF ? std::string{static_cast<char>(v >> 8), static_cast<char>(v & 0xFF)}
                                      : std::string(1, static_cast<char>(v));
      wrong += cp.FromUtf16(std::u16string(1, static_cast<char16_t>(u))) != expected;
    }
    EXPECT_EQ(0, wrong) << "code page " << number;
  }
}

// The bytes of one character as the C library's converter decodes them, or
// nothing when it finds them invalid.
std::u16string IconvDecode(iconv_t cd, const std::string& bytes) {
  char16_t out[8];
  char* in = const_cast<char*>(bytes.data());
  size_t inLeft = bytes.size();
  char* o = reinterpret_cast<char*>(out);
  size_t outLeft = sizeof out;
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  if (iconv(cd, &in, &inLeft, &o, &outLeft) == static_cast<size_t>(-1) || inLeft != 0) return u"";
  iconv(cd, nullptr, nullptr, &o, &outLeft);   // what a composing converter holds back
  return std::u16string(out, (sizeof out - outLeft) / 2);
}

TEST(SimCodePageTest, AgreesWithTheCLibraryWhereItKnowsTheCharacter) {
  // Every byte sequence the C library's converter decodes gives the
  // character Windows gives. The ones it does not decode are, in Windows'
  // tables, a byte 0x80-0x9F the code page leaves undefined (Windows gives
  // the control character of the same number), a private-use character,
  // the default character of an invalid sequence, or 1255's 0xCA (U+05BA,
  // a Hebrew point Windows' table has and the C library's has not).
  for (uint32_t number : {874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258}) {
    iconv_t cd = iconv_open("UTF-16LE", ("CP" + std::to_string(number)).c_str());
    ASSERT_NE(reinterpret_cast<iconv_t>(-1), cd) << number;
    const CodePage& cp = Cp(number);
    int differ = 0, unexplained = 0;
    for (int b = 0; b < 256; ++b) {
      for (int trail = -1; trail < 256; ++trail) {
        std::string bytes(1, static_cast<char>(b));
        if (trail >= 0) bytes += static_cast<char>(trail);
        std::u16string ours = cp.ToUtf16(bytes);
        if (ours.size() != 1) continue;   // not one character in Windows' tables
        std::u16string theirs = IconvDecode(cd, bytes);
        if (!theirs.empty()) {
          differ += theirs != ours;
          continue;
        }
        char16_t u = ours[0];
        bool control = bytes.size() == 1 && b >= 0x80 && b <= 0x9F && u == b;
        bool privateUse = u >= 0xE000 && u <= 0xF8FF;
        bool invalid = u == u'?' || u == 0x30FB;
        bool holamHaser = number == 1255 && b == 0xCA && u == 0x05BA;
        unexplained += !(control || privateUse || invalid || holamHaser);
      }
    }
    iconv_close(cd);
    EXPECT_EQ(0, differ) << "code page " << number;
    EXPECT_EQ(0, unexplained) << "code page " << number;
  }
}

}  // namespace
