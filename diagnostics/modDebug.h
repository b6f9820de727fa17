// The debug log in memory and the debug file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The debug log: each line ended by CR LF.
extern std::string gDebugBuffer;

void ClearDebug();
void WriteDebug(const std::string& Text);
// The three-line banner: 80 asterisks; before asterisks, the title, after
// asterisks; 80 asterisks.
void WriteBanner(int before, const std::string& title, int after);

void SaveDebugFile();
// The debug file's bytes for a log: StringToBytes (keepUnicode True,
// extraByte False), InterleaveBytes and AddRunningSum, made straight into
// the one result array from pieces of the log, with no full-size copy
// between the stages.
std::vector<uint8_t> EncodeDebugLog(const std::string& log);
void WriteDebugBytes(const std::string& path, const std::vector<uint8_t>& bytes);
std::vector<uint8_t> StringToBytes(const std::string& text, bool keepUnicode, bool extraByte);
