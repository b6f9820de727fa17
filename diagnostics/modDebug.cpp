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

namespace {

// The log is converted to UTF-16 a piece at a time, so that no full-size
// copy of it stands beside the file's bytes.
constexpr size_t kPieceSize = size_t{1} << 15;

// Where the piece of the log that begins at start ends: behind the last line
// feed within kPieceSize bytes, else behind the next one, else at the end. A
// line feed is a character of its own in every ANSI code page (no lead or
// trail byte of a double-byte code page, no byte of a UTF-8 sequence), so
// the pieces convert to exactly what the whole log converts to.
size_t PieceEnd(const std::string& log, size_t start) {
  if (log.size() - start <= kPieceSize) return log.size();
  size_t cut = log.rfind('\n', start + kPieceSize - 1);
  if (cut == std::string::npos || cut < start) cut = log.find('\n', start + kPieceSize);
  return cut == std::string::npos ? log.size() : cut + 1;
}

}  // namespace

std::vector<uint8_t> EncodeDebugLog(const std::string& log) {
  // A log of one piece takes the three stages one after the other (the
  // copies are small; a text of under three bytes is InterleaveBytes' to
  // judge).
  if (log.size() <= kPieceSize) {
    std::vector<uint8_t> bytes = StringToBytes(log, true, false);
    InterleaveBytes(bytes);
    AddRunningSum(bytes);
    return bytes;
  }
  // Each byte of an ANSI code page gives at most one UTF-16 unit, and in a
  // single-byte code page exactly one: the file is laid out for that length
  // first, and when the conversion gives fewer units, laid out again for the
  // length it gave.
  size_t length = log.size() * 2;
  for (;;) {
    std::vector<uint8_t> file(length);
    size_t converted = 0;
    for (size_t start = 0; start < log.size();) {
      const size_t end = PieceEnd(log, start);
      const std::vector<uint8_t> piece =
          StringToBytes(log.substr(start, end - start), true, false);
      if (converted + piece.size() <= length) InterleavePiece(file, converted, piece.data(), piece.size());
      converted += piece.size();
      start = end;
    }
    if (converted == length) {
      AddRunningSum(file);
      return file;
    }
    length = converted;
  }
}

// Writes the log, scrambled, beside the executable as <computer>.debug. With
// the log empty or DebugOn False nothing is written.
void SaveDebugFile() {
  if (gDebugBuffer.empty() || !INIDocument.DebugOn) return;

  std::vector<uint8_t> bytes = EncodeDebugLog(gDebugBuffer);

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
