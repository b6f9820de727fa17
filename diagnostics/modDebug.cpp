#include "diagnostics/modDebug.h"

#include "config/modINIDocument.h"
#include "diagnostics/modFileEncoding.h"
#include "engine/Runtime.h"
#include "notification/modEventLog.h"
#include "notification/modNotification.h"

#include <algorithm>
#include <bit>

std::string gDebugBuffer;

void ClearDebug() { gDebugBuffer.clear(); }

void WriteDebug(const std::string& Text) {
  if (!INIDocument.DebugOn) return;
  gDebugBuffer += Text;
  gDebugBuffer += "\r\n";
}

void WriteBanner(int before, const std::string& title, int after) {
  const std::string rule(80, '*');
  WriteDebug(rule);
  WriteDebug(std::string(static_cast<size_t>(before), '*') + title +
             std::string(static_cast<size_t>(after), '*'));
  WriteDebug(rule);
}

// Writes the log, scrambled, beside the executable as <computer>.debug. With
// the log empty or DebugOn False nothing is written.
void SaveDebugFile() {
  if (gDebugBuffer.empty() || !INIDocument.DebugOn) return;

  std::vector<uint8_t> bytes = StringToBytes(gDebugBuffer, true, false);
  InterleaveBytes(bytes);
  AddRunningSum(bytes);

  const std::string path = Sys().system->AppPath() + "\\" + GetClientComputerName() + ".debug";
  WriteDebugBytes(path, bytes);
}

// Writes the bytes from the file's first byte, without truncating a longer
// file. A failure goes to the application event log and nowhere else.
void WriteDebugBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  Err.Clear();
  Err.Take(Sys().files->WriteBinary(path, bytes));
  if (Err.Number > 0) {
    WriteEventLogEntry(
        "Zandolin",
        "Unable to create debug file within folder: " + Str(Err.Number) + ": " + Err.Description, 2,
        20002);
  }
  Err.Clear();
}

// keepUnicode: the text as UTF-16 little-endian, two bytes a character, no
// mark and no terminator. Otherwise one ANSI byte a character. extraByte adds
// one byte of 0 at the end.
std::vector<uint8_t> StringToBytes(const std::string& text, bool keepUnicode, bool extraByte) {
  const std::u16string wide = Sys().system->AnsiToUtf16(text);
  const size_t extra = extraByte ? 1 : 0;
  std::vector<uint8_t> bytes;
  if (keepUnicode) {
    bytes.reserve(wide.size() * 2 + extra);
    if constexpr (std::endian::native == std::endian::little) {
      const auto* raw = reinterpret_cast<const uint8_t*>(wide.data());
      bytes.assign(raw, raw + wide.size() * 2);
    } else {
      for (const char16_t unit : wide) {
        bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<uint8_t>(unit >> 8));
      }
    }
    bytes.resize(bytes.size() + extra);
  } else {
    bytes.resize(wide.size() + extra);
    const size_t count = std::min(wide.size(), text.size());
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(text[i]);
  }
  return bytes;
}
