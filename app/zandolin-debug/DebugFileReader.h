// Reading a debug file back into text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct DecodedDebugFile {
  std::string text;          // the log as UTF-8
  size_t droppedBytes = 0;   // bytes of an older, longer run left behind it
};

// Decodes the bytes of a debug file. False with a message in error when the
// bytes are empty or hold no debug log.
bool DecodeDebugFile(const std::vector<uint8_t>& bytes, DecodedDebugFile& decoded,
                     std::string& error);
