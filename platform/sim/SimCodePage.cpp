// Conversions between machine text (UTF-8), UTF-16 and the client's ANSI
// code page, with the tables of SimCodePageTables.cpp (generated at build
// time from the code page files of Debian's Wine package).
//
// Every code page served gives the bytes 0x00-0x7F as the characters of the
// same number and back, so pure ASCII text is copied as it stands.
#include "platform/sim/SimCodePage.h"

#include "platform/Utf8.h"

#include <deque>
#include <memory>
#include <vector>

namespace sim {

namespace {

using platform::AppendUtf8;

constexpr char16_t kReplacement = 0xFFFD;
constexpr uint32_t kUtf8 = 65001;

bool IsAscii(std::string_view text) {
  for (char c : text)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

// The next code point of UTF-8 text at i; an invalid sequence gives U+FFFD
// and moves on by one byte.
uint32_t NextUtf8(std::string_view text, size_t& i) {
  uint32_t cp;
  if (platform::DecodeUtf8(text, i, cp)) return cp;
  ++i;
  return kReplacement;
}

void AppendUtf16(std::u16string& out, uint32_t cp) {
  if (cp >= 0x10000) {
    cp -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (cp >> 10));
    out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  } else {
    out += static_cast<char16_t>(cp);
  }
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) AppendUtf16(out, NextUtf8(text, i));
  return out;
}

const CodePage* CodePage::Find(uint32_t number) {
  static const std::deque<CodePage> pages = [] {
    std::deque<CodePage> list;
    for (size_t i = 0; i < code_page_data::kTableCount; ++i)
      list.push_back(CodePage(code_page_data::kTables[i].number, &code_page_data::kTables[i]));
    list.push_back(CodePage(kUtf8, nullptr));
    return list;
  }();
  for (const CodePage& page : pages)
    if (page.number_ == number) return &page;
  return nullptr;
}

const uint16_t* CodePage::WideTable() const {
  // Built once for each code page used, on the one thread of the simulated
  // client: the inverse of the byte tables (the first sequence that gives a
  // character wins, single bytes first), then Windows' own choices and
  // best-fit characters over it.
  static std::vector<std::unique_ptr<uint16_t[]>> tables(code_page_data::kTableCount);
  const size_t slot = static_cast<size_t>(table_ - code_page_data::kTables);
  std::unique_ptr<uint16_t[]>& wide = tables[slot];
  if (wide) return wide.get();
  const code_page_data::Table& t = *table_;
  wide.reset(new uint16_t[65536]);
  std::vector<bool> set(65536, false);
  for (unsigned b = 0; b < 256; ++b) {
    if (t.leadRow && t.leadRow[b]) continue;
    if (!set[t.mb[b]]) {
      wide[t.mb[b]] = static_cast<uint16_t>(b);
      set[t.mb[b]] = true;
    }
  }
  if (t.leadRow) {
    for (unsigned lead = 0; lead < 256; ++lead) {
      if (!t.leadRow[lead]) continue;
      const uint16_t* row = t.pairs + 256 * (t.leadRow[lead] - 1);
      for (unsigned trail = 0; trail < 256; ++trail) {
        uint16_t u = row[trail];
        if (u == t.uniDefaultChar || set[u]) continue;
        wide[u] = static_cast<uint16_t>(lead << 8 | trail);
        set[u] = true;
      }
    }
  }
  for (size_t u = 0; u < 65536; ++u)
    if (!set[u]) wide[u] = t.defaultChar;
  for (size_t i = 0; i < t.wcOverrideCount; ++i) wide[t.wcOverrides[2 * i]] = t.wcOverrides[2 * i + 1];
  return wide.get();
}

std::u16string CodePage::ToUtf16(std::string_view bytes) const {
  if (!table_) return Utf8ToUtf16(bytes);
  std::u16string out(bytes.size(), u'\0');
  char16_t* o = out.data();
  const code_page_data::Table& t = *table_;
  const size_t size = bytes.size();
  if (!t.leadRow) {
    for (size_t i = 0; i < size; ++i) o[i] = t.mb[static_cast<unsigned char>(bytes[i])];
    return out;
  }
  size_t n = 0;
  for (size_t i = 0; i < size; ++i) {
    unsigned char b = static_cast<unsigned char>(bytes[i]);
    if (!t.leadRow[b]) {
      o[n++] = t.mb[b];
    } else if (i + 1 < size && bytes[i + 1] != '\0') {
      // A lead byte takes the next byte with it, valid trail byte or not.
      o[n++] = t.pairs[256 * (t.leadRow[b] - 1) + static_cast<unsigned char>(bytes[++i])];
    } else {
      o[n++] = t.uniDefaultChar;
    }
  }
  out.resize(n);
  return out;
}

std::string CodePage::FromUtf16(std::u16string_view text) const {
  if (!table_) return Utf16ToUtf8(text);
  const uint16_t* wide = WideTable();
  std::string out;
  out.reserve(text.size());
  for (char16_t u : text) {
    uint16_t v = wide[u];
    if (v > 0xFF) out += static_cast<char>(v >> 8);
    out += static_cast<char>(v & 0xFF);
  }
  return out;
}

size_t CodePage::CharacterLength(std::string_view text) const {
  if (text.size() < 2) return text.size();
  unsigned char b = static_cast<unsigned char>(text[0]);
  if (table_) return table_->leadRow && table_->leadRow[b] && text[1] != '\0' ? 2 : 1;
  size_t i = 0;
  NextUtf8(text, i);
  return i;
}

std::string CodePage::FromUtf8(std::string_view text) const {
  if (IsAscii(text)) return std::string(text);
  if (!table_) return Utf16ToUtf8(Utf8ToUtf16(text));
  return FromUtf16(Utf8ToUtf16(text));
}

std::string CodePage::ToUtf8(std::string_view bytes) const {
  if (IsAscii(bytes)) return std::string(bytes);
  if (!table_) return Utf16ToUtf8(Utf8ToUtf16(bytes));
  return Utf16ToUtf8(ToUtf16(bytes));
}

}  // namespace sim
