// The scrambling of the debug file: interleave, then running sum.
#pragma once

#include <cstdint>
#include <vector>

void InterleaveBytes(std::vector<uint8_t>& data);
void AppendByte(std::vector<uint8_t>& target, int32_t& position, uint8_t value);
void AddRunningSum(std::vector<uint8_t>& data);
