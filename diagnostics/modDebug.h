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
void WriteDebugBytes(const std::string& path, const std::vector<uint8_t>& bytes);
std::vector<uint8_t> StringToBytes(const std::string& text, bool keepUnicode, bool extraByte);
