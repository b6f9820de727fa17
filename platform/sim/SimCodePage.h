// The ANSI code page of the simulated client. Machine text (machine.json, the
// drives' file names, the transcript) is UTF-8; text crosses the A-calls in
// the code page, converted as MultiByteToWideChar and WideCharToMultiByte
// convert without flags: a character the code page lacks becomes its best-fit
// character or, failing that, the code page's default character ("?").
#pragma once

#include "platform/Utf8.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sim {

namespace code_page_data {

// One code page as Windows' tables give it (generated from Wine's copies).
struct Table {
  uint16_t number;
  uint16_t defaultChar;      // what an unmapped character becomes
  uint16_t uniDefaultChar;   // what an invalid byte sequence becomes
  const uint16_t* mb;        // byte -> UTF-16 unit
  const uint8_t* leadRow;    // double-byte: lead byte -> row + 1 in pairs, 0 for none
  const uint16_t* pairs;     // double-byte: 256 units a row, by trail byte
  const uint16_t* wcOverrides;   // (unit, bytes) pairs where the inverse of mb differs
  size_t wcOverrideCount;
};

extern const Table kTables[];
extern const size_t kTableCount;

}  // namespace code_page_data

class CodePage {
 public:
  // The code page of that number, or null when the simulated client does not
  // serve it. 65001 is UTF-8, as Windows can be set to use it.
  static const CodePage* Find(uint32_t number);
  // Whether Find serves the number, and the numbers served for messages
  // ("874, 932, ..., 65001"), without the tables: the build's list of the
  // code pages it makes tables for (ZANDOLIN_CODE_PAGE_NUMBERS), and UTF-8.
  static bool Served(uint32_t number) {
    for (uint32_t served : kServed)
      if (served == number) return true;
    return false;
  }
  static std::string ServedList() {
    std::string list;
    for (uint32_t served : kServed) list += (list.empty() ? "" : ", ") + std::to_string(served);
    return list;
  }

  uint32_t Number() const { return number_; }

  // Machine text (UTF-8; invalid bytes stand for U+FFFD) in the code page.
  std::string FromUtf8(std::string_view text) const;
  // Bytes in the code page as machine text.
  std::string ToUtf8(std::string_view bytes) const;
  // Bytes in the code page to UTF-16, and back.
  std::u16string ToUtf16(std::string_view bytes) const;
  std::string FromUtf16(std::u16string_view text) const;
  // The bytes of the character that text starts with (at least one).
  size_t CharacterLength(std::string_view text) const;

 private:
  CodePage(uint32_t number, const code_page_data::Table* table) : number_(number), table_(table) {}
  // UTF-16 unit -> bytes (one byte below 0x100, else lead << 8 | trail).
  const uint16_t* WideTable() const;

  static constexpr uint32_t kServed[] = {ZANDOLIN_CODE_PAGE_NUMBERS, 65001};

  uint32_t number_;
  const code_page_data::Table* table_;   // null for UTF-8
};

// UTF-8 and UTF-16 as Windows converts them: an invalid sequence becomes
// U+FFFD, a lone surrogate too.
std::u16string Utf8ToUtf16(std::string_view text);
using platform::Utf16ToUtf8;

}  // namespace sim
