// Bitmaps against a plain vector of bits.

#include "obel/Bitmap.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

namespace Obel {
namespace {

constexpr auto lowest = Bitmap::IndexPreference::lowest;

TEST(BitmapTest, RangesOfBitsEqualTheirModel) {
  std::mt19937 random(1);
  for (uint32_t const size : {1u, 2u, 63u, 64u, 65u, 128u, 200u, 65536u}) {
    SCOPED_TRACE(size);
    Mox::Ptr<Bitmap> const bits = bitmapFactory(size);
    ASSERT_EQ(bits->size(), size);
    ASSERT_EQ(bits->numBitsInSetState(), 0u);
    std::vector<bool> model(size);
    for (int round = 0; round < (size > 1000 ? 200 : 3000); ++round) {
      // Ends that often fall on the border of a word.
      auto const end = [&] {
        uint32_t const at = random() % size;
        return random() % 2 ? at : std::min<uint32_t>(size - 1, at / 64 * 64 + random() % 2 * 63);
      };
      auto const [first, last] = std::minmax({end(), end()});
      auto const from = model.begin() + first;
      auto const to = model.begin() + last + 1;
      bool const set = random() % 3;
      std::fill(from, to, set);
      if (set)
        bits->setBitsInRange(first, last);
      else
        bits->clearBitsInRange(first, last);
      ASSERT_EQ(bits->numBitsInSetState(), std::count(model.begin(), model.end(), true));

      auto const [low, high] = std::minmax({end(), end()});
      auto const lowBit = model.begin() + low;
      auto const behind = model.begin() + high + 1;
      ASSERT_EQ(bits->numBitsInSetStateInRange(low, high), std::count(lowBit, behind, true));
      auto const clear = std::find(lowBit, behind, false);
      ASSERT_EQ(bits->findClearBitInRange(low, high, lowest),
                clear == behind ? size : static_cast<uint32_t>(clear - model.begin()));
      uint32_t const at = end();
      ASSERT_EQ(bits->bitIsSet(at), model[at]);
    }
    bits->setBitsInRange(0, size - 1);
    EXPECT_EQ(bits->numBitsInSetState(), size);
    EXPECT_EQ(bits->findClearBitInRange(0, size - 1, lowest), size);
  }
}

TEST(BitmapTest, ASearchMayEndBehindTheBitmap) {
  Bitmap bits(70);
  bits.setBitsInRange(0, 68);
  EXPECT_EQ(bits.findClearBitInRange(3, 1000, lowest), 69u);
  bits.setBitsInRange(69, 69);
  EXPECT_EQ(bits.findClearBitInRange(3, ~uint32_t{0}, lowest), 70u);
}

TEST(BitmapDeathTest, BitsOutOfRangeAreBrokenInvariants) {
  Bitmap bits(70);
  EXPECT_DEATH(Bitmap(0), "assertion failed");
  EXPECT_DEATH(bits.bitIsSet(70), "assertion failed");
  EXPECT_DEATH(bits.setBitsInRange(0, 70), "assertion failed");
  EXPECT_DEATH(bits.clearBitsInRange(5, 4), "assertion failed");
}

}  // namespace
}  // namespace Obel
