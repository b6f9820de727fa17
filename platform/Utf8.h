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

// Decodes the UTF-8 sequence at i into cp and moves i behind it; false, with
// i where it was, for bytes that are no UTF-8 (a sequence cut short or
// overlong, a surrogate, beyond U+10FFFF).
inline bool DecodeUtf8(std::string_view text, size_t& i, uint32_t& cp) {
  const unsigned char b = static_cast<unsigned char>(text[i]);
  if (b < 0x80) {
    cp = b;
    ++i;
    return true;
  }
  const size_t n = (b & 0xE0) == 0xC0 ? 1 : (b & 0xF0) == 0xE0 ? 2 : (b & 0xF8) == 0xF0 ? 3 : 0;
  if (n == 0 || i + n >= text.size()) return false;
  uint32_t value = n == 1 ? (b & 0x1Fu) : n == 2 ? (b & 0x0Fu) : (b & 0x07u);
  for (size_t j = 1; j <= n; ++j) {
    const unsigned char c = static_cast<unsigned char>(text[i + j]);
    if ((c & 0xC0) != 0x80) return false;
    value = value << 6 | (c & 0x3Fu);
  }
  static constexpr uint32_t kMin[] = {0, 0x80, 0x800, 0x10000};
  if (value < kMin[n] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
  cp = value;
  i += n + 1;
  return true;
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
