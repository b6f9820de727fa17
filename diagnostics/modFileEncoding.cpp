#include "diagnostics/modFileEncoding.h"

#include "engine/Runtime.h"

namespace {

// The byte at index i of a list with lower bound 0; outside it the fatal
// "Subscript out of range".
uint8_t ByteAt(const std::vector<uint8_t>& data, int32_t i) {
  if (i < 0 || i > UBound(data)) RaiseFatal(kErrSubscriptOutOfRange);
  return data[static_cast<size_t>(i)];
}

}  // namespace

// Takes the bytes alternately from the front and the back, after the first
// one: 0, 1, n, 2, n-1, 3 ... ending in the middle. The test stands at the end
// of the round, so the first pair is taken whatever n is.
void InterleaveBytes(std::vector<uint8_t>& data) {
  const int32_t n = UBound(data);
  std::vector<uint8_t> result(static_cast<size_t>(n < 0 ? 0 : n + 1));
  int32_t position = 0;

  if (n >= 2) {
    // From three bytes on every index read exists and the result has exactly
    // as many bytes as the input, so no write passes the bound.
    const uint8_t* in = data.data();
    uint8_t* out = result.data();
    *out++ = in[0];
    int32_t lo = 1;
    int32_t hi = n;
    do {
      *out++ = in[lo++];
      *out++ = in[hi--];
    } while (lo < hi);
    if (lo == hi) *out++ = in[lo];
    position = static_cast<int32_t>(out - result.data());
  } else {
    // Two bytes give three (the last one twice, growing the result); one
    // byte or none is an index error.
    int32_t hi = n;
    AppendByte(result, position, ByteAt(data, 0));
    int32_t lo = 1;
    for (;;) {
      AppendByte(result, position, ByteAt(data, lo));
      AppendByte(result, position, ByteAt(data, hi));
      --hi;
      ++lo;
      if (lo < hi) continue;
      if (lo == hi) AppendByte(result, position, ByteAt(data, lo));
      break;
    }
  }

  result.resize(static_cast<size_t>(position));
  data = std::move(result);
}

// Index 0 stays in front; the front half, 1 to length / 2, goes to the odd
// positions in its order; the back half to the even positions from 2 on,
// the last index first.
void InterleavePiece(std::vector<uint8_t>& target, size_t first, const uint8_t* piece,
                     size_t count) {
  const size_t length = target.size();
  const size_t lastFront = length / 2;
  uint8_t* out = target.data();
  size_t i = first;
  const size_t end = first + count;
  if (i == 0 && i < end) out[0] = piece[i++ - first];
  for (; i < end && i <= lastFront; ++i) out[2 * i - 1] = piece[i - first];
  for (; i < end; ++i) out[2 * (length - i)] = piece[i - first];
}

void AppendByte(std::vector<uint8_t>& target, int32_t& position, uint8_t value) {
  if (position > UBound(target)) target.resize(static_cast<size_t>(position) + 501);
  target[static_cast<size_t>(position)] = value;
  ++position;
}

// Each byte becomes itself plus the byte written before it, modulo 256.
void AddRunningSum(std::vector<uint8_t>& data) {
  if (UBound(data) < 0) return;
  uint8_t sum = 0;  // wraps as the sum of at most 510 less 256 does
  for (uint8_t& byte : data) {
    sum = static_cast<uint8_t>(sum + byte);
    byte = sum;
  }
}
