// The scrambling of the debug file: interleave, then running sum.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

void InterleaveBytes(std::vector<uint8_t>& data);
// Stage 1 for an array that arrives in pieces, written straight into its
// result: places the count bytes of piece, the first of which has the index
// first in the whole array, where InterleaveBytes puts them. target holds as
// many bytes as the whole array, at least three (InterleaveBytes keeps the
// length from three bytes on).
void InterleavePiece(std::vector<uint8_t>& target, size_t first, const uint8_t* piece,
                     size_t count);
void AppendByte(std::vector<uint8_t>& target, int32_t& position, uint8_t value);
void AddRunningSum(std::vector<uint8_t>& data);
