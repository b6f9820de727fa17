// UTF-8, the encoding of machine.json and of the simulated client's text,
// and UTF-16 turned into it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

// Appends one code point, encoded in UTF-8.
inline void AppendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | cp >> 6);
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | cp >> 12);
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | cp >> 18);
    out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// The next code point of UTF-16 text at i; a lone surrogate gives U+FFFD.
inline uint32_t NextUtf16(std::u16string_view text, size_t& i) {
  char16_t u = text[i++];
  if (u >= 0xD800 && u <= 0xDBFF && i < text.size() && text[i] >= 0xDC00 && text[i] <= 0xDFFF)
    return 0x10000 + ((u - 0xD800u) << 10) + (text[i++] - 0xDC00u);
  if (u >= 0xD800 && u <= 0xDFFF) return 0xFFFD;
  return u;
}

// UTF-16 text in UTF-8; a lone surrogate becomes U+FFFD.
inline std::string Utf16ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) AppendUtf8(out, NextUtf16(text, i));
  return out;
}

}  // namespace platform
