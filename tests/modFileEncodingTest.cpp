#include "diagnostics/modFileEncoding.h"

#include "engine/Runtime.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

std::vector<uint8_t> Indices(int count) {
  std::vector<uint8_t> v;
  for (int i = 0; i < count; ++i) v.push_back(static_cast<uint8_t>(i));
  return v;
}

TEST(modFileEncodingTest, InterleaveBytes_FiveBytes_TakesFrontAndBackInTurn) {
  std::vector<uint8_t> data = Indices(5);
  InterleaveBytes(data);
  EXPECT_EQ((std::vector<uint8_t>{0, 1, 4, 2, 3}), data);
}

TEST(modFileEncodingTest, InterleaveBytes_SixBytes_EndsInTheMiddle) {
  std::vector<uint8_t> data = Indices(6);
  InterleaveBytes(data);
  EXPECT_EQ((std::vector<uint8_t>{0, 1, 5, 2, 4, 3}), data);
}

TEST(modFileEncodingTest, InterleaveBytes_ThreeAndFourBytes) {
  std::vector<uint8_t> three = Indices(3);
  InterleaveBytes(three);
  EXPECT_EQ((std::vector<uint8_t>{0, 1, 2}), three);
  std::vector<uint8_t> four = Indices(4);
  InterleaveBytes(four);
  EXPECT_EQ((std::vector<uint8_t>{0, 1, 3, 2}), four);
}

TEST(modFileEncodingTest, InterleaveBytes_TwoBytes_GivesThreeWithTheLastTwice) {
  std::vector<uint8_t> data = {7, 9};
  InterleaveBytes(data);
  EXPECT_EQ((std::vector<uint8_t>{7, 9, 9}), data);
}

TEST(modFileEncodingTest, InterleaveBytes_OneByte_IsFatalSubscriptOutOfRange) {
  std::vector<uint8_t> data = {7};
  try {
    InterleaveBytes(data);
    FAIL() << "no FatalError";
  } catch (const FatalError& e) {
    EXPECT_EQ(9, e.Number);
    EXPECT_EQ("Subscript out of range", e.Description);
  }
}

TEST(modFileEncodingTest, InterleaveBytes_NoByte_IsFatalSubscriptOutOfRange) {
  std::vector<uint8_t> data;
  try {
    InterleaveBytes(data);
    FAIL() << "no FatalError";
  } catch (const FatalError& e) {
    EXPECT_EQ(9, e.Number);
  }
}

TEST(modFileEncodingTest, InterleaveBytes_LongArray_KeepsItsLengthAndOrder) {
  std::vector<uint8_t> data = Indices(200);
  InterleaveBytes(data);
  ASSERT_EQ(200u, data.size());
  EXPECT_EQ(0, data[0]);
  EXPECT_EQ(1, data[1]);
  EXPECT_EQ(199, data[2]);
  EXPECT_EQ(2, data[3]);
  EXPECT_EQ(198, data[4]);
  EXPECT_EQ(100, data[199]);
}

TEST(modFileEncodingTest, InterleavePiece_AnyLengthAndPieces_PlacesAsInterleaveBytes) {
  for (int length = 3; length <= 70; ++length) {
    std::vector<uint8_t> whole = Indices(length);
    InterleaveBytes(whole);
    for (size_t pieceSize = 1; pieceSize <= 9; ++pieceSize) {
      const std::vector<uint8_t> data = Indices(length);
      std::vector<uint8_t> target(static_cast<size_t>(length), 0xEE);
      for (size_t first = 0; first < data.size(); first += pieceSize) {
        const size_t count = std::min(pieceSize, data.size() - first);
        InterleavePiece(target, first, data.data() + first, count);
      }
      EXPECT_EQ(whole, target) << "length " << length << ", pieces of " << pieceSize;
    }
  }
}

TEST(modFileEncodingTest, InterleavePiece_PiecesInAnyOrder_GiveTheSameResult) {
  const std::vector<uint8_t> data = {10, 20, 30, 40, 50, 60, 70};
  std::vector<uint8_t> target(data.size());
  InterleavePiece(target, 4, data.data() + 4, 3);
  InterleavePiece(target, 0, data.data(), 2);
  InterleavePiece(target, 2, data.data() + 2, 2);
  EXPECT_EQ((std::vector<uint8_t>{10, 20, 70, 30, 60, 40, 50}), target);
}

TEST(modFileEncodingTest, AppendByte_PastTheBound_GrowsBy500) {
  std::vector<uint8_t> target(2);
  int32_t position = 2;
  AppendByte(target, position, 42);
  EXPECT_EQ(3, position);
  EXPECT_EQ(503u, target.size());
  EXPECT_EQ(42, target[2]);
  AppendByte(target, position, 43);
  EXPECT_EQ(503u, target.size());
  EXPECT_EQ(43, target[3]);
}

TEST(modFileEncodingTest, AddRunningSum_AddsThePreviousOutputModulo256) {
  std::vector<uint8_t> data = {10, 20, 50, 30, 40};
  AddRunningSum(data);
  EXPECT_EQ((std::vector<uint8_t>{10, 30, 80, 110, 150}), data);

  std::vector<uint8_t> wrap = {200, 55, 1, 255, 255};
  AddRunningSum(wrap);
  EXPECT_EQ((std::vector<uint8_t>{200, 255, 0, 255, 254}), wrap);

  std::vector<uint8_t> empty;
  AddRunningSum(empty);
  EXPECT_TRUE(empty.empty());
}

TEST(modFileEncodingTest, BothStages_ExampleOfFiveBytes) {
  std::vector<uint8_t> data = {10, 20, 30, 40, 50};
  InterleaveBytes(data);
  EXPECT_EQ((std::vector<uint8_t>{10, 20, 50, 30, 40}), data);
  AddRunningSum(data);
  EXPECT_EQ((std::vector<uint8_t>{10, 30, 80, 110, 150}), data);
}

}  // namespace
