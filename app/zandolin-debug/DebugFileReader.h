// Reading a debug file back into text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One way to read a debug file: this run's log as its first bytes.
struct DebugFileReading {
  size_t length = 0;     // bytes of the log
  double evidence = 0;   // how strongly the file's text says this run ends
                         // there rather than at the longest reading: the
                         // natural logarithm of the odds
};

struct DecodedDebugFile {
  std::string text;          // the log as UTF-8
  size_t length = 0;         // its bytes at the front of the file
  size_t droppedBytes = 0;   // bytes behind it, taken for an older, longer run's tail
  double evidence = 0;       // for an end short of the longest reading, its evidence
  size_t longest = 0;        // the longest length that reads as one log; the
                             // file's size when the whole file does
  std::vector<DebugFileReading> others;   // other possible ends short of the
                                          // longest reading, strongest first
};

// Decodes the bytes of a debug file. False with a message in error when the
// bytes are empty or hold no debug log.
bool DecodeDebugFile(const std::vector<uint8_t>& bytes, DecodedDebugFile& decoded,
                     std::string& error);

// The file read as one log of its first length bytes (rounded down to an
// even number), as UTF-8; a surrogate without its partner becomes U+FFFD.
std::string DebugFileText(const std::vector<uint8_t>& bytes, size_t length);
