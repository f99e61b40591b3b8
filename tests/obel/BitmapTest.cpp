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
    std::vector<bool> model(size);
    for (int round = 0; round < (size > 1000 ? 200 : 3000); ++round) {
      // Ends that often fall on the border of a word; now and then all bits.
      auto const some = [&] {
        auto from = static_cast<uint32_t>(random() % size);
        auto to = static_cast<uint32_t>(random() % size);
        if (from > to) std::swap(from, to);
        if (random() % 2) from = from / 64 * 64;
        if (random() % 2) to = std::min(to | 63, size - 1);
        return random() % 50 ? std::pair(from, to) : std::pair(0u, size - 1);
      };
      auto const [first, last] = some();
      bool const set = random() % 3;
      std::fill(model.begin() + first, model.begin() + last + 1, set);
      set ? bits->setBitsInRange(first, last) : bits->clearBitsInRange(first, last);
      ASSERT_EQ(bits->numBitsInSetState(), std::count(model.begin(), model.end(), true));
      ASSERT_EQ(bits->bitIsSet(last), set);

      auto const [low, high] = some();
      auto const begin = model.begin() + low;
      auto const end = model.begin() + high + 1;
      ASSERT_EQ(bits->numBitsInSetStateInRange(low, high), std::count(begin, end, true));
      auto const clear = std::find(begin, end, false);
      auto const found = clear == end ? size : static_cast<uint32_t>(clear - model.begin());
      ASSERT_EQ(bits->findClearBitInRange(low, high, lowest), found);
      if (clear == end && high < size - 1) continue;  // a search may end behind the bitmap
      ASSERT_EQ(bits->findClearBitInRange(low, ~uint32_t{0} - random() % 1000, lowest), found);
    }
  }
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
