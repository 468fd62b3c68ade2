// Packing icons into 512 by 512 bins: the cut that leaves the largest free
// space, bins opening when one is full, and the builder's keys and places.
#include <gtest/gtest.h>

#include <set>

#include "render/core/MTexturePacker.h"

using namespace quorvel;

namespace {

// The packer's result as a set of (rectangle, x, y) per bin.
std::vector<std::set<std::tuple<int, int, int>>> placesOf(const std::vector<std::vector<int>>& bins) {
  std::vector<std::set<std::tuple<int, int, int>>> out;
  for (const auto& bin : bins) {
    out.emplace_back();
    for (size_t i = 0; i + 3 < bin.size(); i += 4) out.back().insert({bin[i], bin[i + 1], bin[i + 2]});
  }
  return out;
}

class TestBuilder : public TImageBuilderCpp {
 public:
  int made = 0;
  void createImagesInPython() override {
    pack();
    ++made;
  }
  size_t imageCount() const override { return 0; }
  const unsigned char* imageData(size_t) const override { return nullptr; }
};

}  // namespace

TEST(TexturePacker, CutsLeaveTheLargestSpaceAndFillItFirst) {
  TexturePacker packer;
  EXPECT_TRUE(packer.pack({}).empty()) << "no rectangles, no bins";

  // One 16 by 16 rectangle: B and D tie at 253952, so the pair is C and D,
  // and D, the full-width space below, is the left child.
  auto bins = packer.pack({16, 16});
  ASSERT_EQ(bins.size(), 1u);
  EXPECT_EQ(bins[0], (std::vector<int>{0, 0, 0, 0}));
  const auto& root = packer.nodes()[0];
  const auto& left = packer.nodes()[root.left];
  const auto& right = packer.nodes()[root.right];
  EXPECT_EQ(std::make_tuple(left.x, left.y, left.width, left.height), std::make_tuple(0, 16, 512, 496));
  EXPECT_EQ(std::make_tuple(right.x, right.y, right.width, right.height), std::make_tuple(16, 0, 496, 16));

  // A full-size rectangle fills a bin alone; the children have no area.
  bins = packer.pack({512, 512, 512, 512});
  EXPECT_EQ(bins.size(), 2u);

  // Largest first: a 256 square goes to the corner, the small ones after.
  auto places = placesOf(packer.pack({16, 16, 256, 256, 32, 32}));
  ASSERT_EQ(places.size(), 1u);
  EXPECT_TRUE(places[0].count({1, 0, 0}));

  EXPECT_THROW(packer.pack({513, 10}), std::runtime_error);
  EXPECT_THROW(packer.pack({10, 513}), std::runtime_error);
}

TEST(TexturePacker, ManyIconsShareABinUntilItIsFull) {
  TexturePacker packer;
  std::vector<int> sizes;
  for (int i = 0; i < 1024; ++i) sizes.insert(sizes.end(), {16, 16});
  auto bins = packer.pack(sizes);
  ASSERT_EQ(bins.size(), 1u) << "1024 icons of 16 by 16 fill one bin exactly";
  // No two overlap and all lie inside.
  std::set<std::pair<int, int>> corners;
  for (size_t i = 0; i < bins[0].size(); i += 4) {
    EXPECT_LE(bins[0][i + 1] + 16, 512);
    EXPECT_LE(bins[0][i + 2] + 16, 512);
    EXPECT_EQ(bins[0][i + 1] % 16, 0);
    EXPECT_EQ(bins[0][i + 2] % 16, 0);
    corners.insert({bins[0][i + 1], bins[0][i + 2]});
  }
  EXPECT_EQ(corners.size(), 1024u);
  sizes.insert(sizes.end(), {16, 16});
  EXPECT_EQ(packer.pack(sizes).size(), 2u) << "the 1025th opens a second bin";
}

TEST(TexturePacker, BuilderKeepsFirstSizesAndPlacesOfTheLastPack) {
  TestBuilder b;
  EXPECT_TRUE(b.isDirty());
  b.addRectangle(7, 16, 16);
  b.addRectangle(7, 100, 100);  // the same key keeps its first size
  b.addRectangle(3, 32, 16);
  b.pack();
  EXPECT_FALSE(b.isDirty());
  EXPECT_EQ(b.getBitmapCount(), 1u);
  auto [bitmap, box] = b.getKey2BitmapLocation(7);
  EXPECT_EQ(bitmap, 0);
  EXPECT_EQ(box.getWidth(), 16.0f);
  EXPECT_EQ(box.getHeight(), 16.0f);
  // A key added after the pack has no place until the next one.
  b.addRectangle(9, 8, 8);
  EXPECT_TRUE(b.isDirty());
  int index = 0;
  TBox place;
  EXPECT_FALSE(b.findLocation(9, index, place));
  EXPECT_THROW(b.getKey2BitmapLocation(9), std::out_of_range);
  b.pack();
  EXPECT_TRUE(b.findLocation(9, index, place));
  // A failed pack keeps the places it had.
  b.addRectangle(11, 600, 10);
  EXPECT_THROW(b.pack(), std::runtime_error);
  EXPECT_TRUE(b.findLocation(9, index, place));

  EXPECT_EQ(iconAlpha(0, 0, 0), 0);
  EXPECT_EQ(iconAlpha(2, 1, 2), 0) << "almost black is left out too";
  EXPECT_EQ(iconAlpha(3, 0, 0), 255);
}
