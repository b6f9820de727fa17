// The debug file reader: any bytes as a file; a log made of the bytes and
// scrambled as the engine writes it; and such a log written over an older,
// longer one. The reading must hold together: its length and what it
// dropped make up the file, its text is the file read at that length and is
// UTF-8, the longest reading is at least as long; a file that is one
// well-formed log has the whole file as its longest reading.
#include "FuzzClient.h"

#include "app/zandolin-debug/DebugFileReader.h"
#include "diagnostics/modFileEncoding.h"

#include <algorithm>

namespace {

bool IsUtf8(const std::string& text) {
  for (size_t i = 0; i < text.size();) {
    const unsigned char b = static_cast<unsigned char>(text[i]);
    size_t extra = 0;
    if (b >= 0xC2 && b < 0xE0) extra = 1;
    else if (b >= 0xE0 && b < 0xF0) extra = 2;
    else if (b >= 0xF0 && b < 0xF5) extra = 3;
    else if (b >= 0x80) return false;
    if (i + extra >= text.size() && extra > 0) return false;
    for (size_t k = 1; k <= extra; ++k)
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    i += extra + 1;
  }
  return true;
}

// A log of the bytes: the line of 80 asterisks, then the bytes as
// characters (a line feed ends a line with CR LF, other control bytes are
// blanks, bytes above 0x7F are characters of other scripts), then CR LF;
// UTF-16LE.
std::vector<uint8_t> LogOf(const uint8_t* data, size_t size) {
  std::vector<uint16_t> units(80, '*');
  units.push_back('\r');
  units.push_back('\n');
  for (size_t i = 0; i < size; ++i) {
    const uint8_t b = data[i];
    if (b == '\n') {
      units.push_back('\r');
      units.push_back('\n');
    } else if (b < 0x20 || b == 0x7F) {
      units.push_back(' ');
    } else {
      units.push_back(b < 0xC0 ? b : static_cast<uint16_t>(0x4E00 + b));
    }
  }
  units.push_back('\r');
  units.push_back('\n');
  std::vector<uint8_t> bytes;
  for (uint16_t u : units) {
    bytes.push_back(static_cast<uint8_t>(u & 0xFF));
    bytes.push_back(static_cast<uint8_t>(u >> 8));
  }
  return bytes;
}

std::vector<uint8_t> Scrambled(std::vector<uint8_t> bytes) {
  InterleaveBytes(bytes);
  AddRunningSum(bytes);
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::vector<uint8_t> file;
  bool oneLog = false;
  switch (data[0] % 3) {
    case 0:
      file.assign(data + 1, data + size);
      break;
    case 1:
      file = Scrambled(LogOf(data + 1, size - 1));
      oneLog = true;
      break;
    default: {
      // The newer log of the bytes before the first 0xFF, the older of all.
      const uint8_t* cut = std::find(data + 1, data + size, 0xFF);
      std::vector<uint8_t> newer = Scrambled(LogOf(data + 1, static_cast<size_t>(cut - data - 1)));
      file = Scrambled(LogOf(data + 1, size - 1));
      if (file.size() < newer.size()) file.swap(newer);
      std::copy(newer.begin(), newer.end(), file.begin());
      oneLog = newer.size() == file.size();
      break;
    }
  }
  if (file.empty()) return 0;

  DecodedDebugFile d;
  std::string error;
  if (!DecodeDebugFile(file, d, error)) {
    fuzz::Require(!oneLog, "a well-formed log is read");
    fuzz::Require(error == "the file is empty" || error == "the file holds no debug log", "the reason is named");
  } else {
    fuzz::Require(d.length + d.droppedBytes == file.size(), "the reading and what it dropped make up the file");
    fuzz::Require(d.length % 2 == 0 && d.length <= d.longest && d.longest <= file.size(), "lengths in order");
    fuzz::Require(!oneLog || d.longest == file.size(), "a well-formed log is its own longest reading");
    fuzz::Require(d.text == DebugFileText(file, d.length), "the text is the file read at that length");
    fuzz::Require(IsUtf8(d.text), "the text is UTF-8");
    for (const DebugFileReading& other : d.others)
      fuzz::Require(other.length % 2 == 0 && other.length < d.longest && other.length != d.length,
                    "another end lies short of the longest reading");
  }
  fuzz::Require(IsUtf8(DebugFileText(file, file.size())), "the whole file reads as UTF-8");
  return 0;
}
