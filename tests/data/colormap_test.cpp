#include <gtest/gtest.h>

#include "data/MColorMap.h"
#include "data/MValues.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// A map that reports what it was given.
class Probe : public TColorMap {
 public:
  float seen = -99.0f;
  void getColor(float v, TVector4& color) override {
    seen = v;
    color = TVector4(v, v, v, 1.0f);
  }
  std::string getName() override { return "probe"; }
};

void expectColor(const TVector4& c, float r, float g, float b) {
  EXPECT_NEAR(c.x, r, 1e-5f);
  EXPECT_NEAR(c.y, g, 1e-5f);
  EXPECT_NEAR(c.z, b, 1e-5f);
}

}  // namespace

TEST(ColorMaps, ClampRangeBringsValuesIntoZeroToOne) {
  auto probe = std::make_shared<Probe>();
  TVector4 c;
  TColorMapData unit("p", probe);
  unit.getColor(1.5f, c);
  EXPECT_EQ(probe->seen, 1.0f);
  unit.getColor(-3.0f, c);
  EXPECT_EQ(probe->seen, 0.0f);
  TColorMapData flat("p", probe, 5.0f, 5.0f);
  flat.getColor(123.0f, c);
  EXPECT_EQ(probe->seen, 0.0f) << "a range below 0.0001 maps everything to 0";
  TColorMapData range("p", probe, 2.0f, 4.0f);
  range.getColor(3.0f, c);
  EXPECT_EQ(probe->seen, 0.5f);
  EXPECT_EQ(range.toString(), "probe");
  EXPECT_EQ(TColorMapData().toString(), "no colormap");
}

TEST(ColorMaps, TheFiveMaps) {
  TVector4 c;
  TColorMap_Rainbow rainbow;
  const float expected[5][3] = {{0, 0, 0.64f}, {0, 0.72f, 0.8f}, {0, 0.8f, 0}, {0.8f, 0.72f, 0}, {0.64f, 0, 0}};
  for (int i = 0; i < 5; ++i) {
    rainbow.getColor(i * 0.25f, c);
    expectColor(c, expected[i][0], expected[i][1], expected[i][2]);
    EXPECT_EQ(c.w, 1.0f);
  }
  TVector4 below;
  rainbow.getColor(-1.0f, below);
  rainbow.getColor(0.0f, c);
  EXPECT_EQ(below, c);

  TColorMap_GreenYellowRed gyr;
  gyr.getColor(0.0f, c);
  expectColor(c, 0, 0.8f, 0);
  gyr.getColor(1.0f, c);
  expectColor(c, 0.64f, 0, 0);
  TColorMap_Monochrome mono;
  mono.getColor(0.0f, c);
  expectColor(c, 0.1f, 0.1f, 0.1f);
  mono.getColor(2.0f, c);
  expectColor(c, 1.9f, 1.9f, 1.9f);  // no limiting
  TColorMap_BlueYellow by;
  by.getColor(0.25f, c);
  expectColor(c, 0.25f, 0.25f, 0.75f);
  EXPECT_EQ(gyr.getName(), "green-red");
  EXPECT_EQ(by.getName(), "blue-yellow");
}

TEST(ColorMaps, TypeNamesAreNominal) {
  TColorMap_TypeNames types;
  TVector4 c(0.1f, 0.2f, 0.3f, 0.4f);
  types.getColor(0.5f, c);
  EXPECT_EQ(c, TVector4(0.1f, 0.2f, 0.3f, 0.4f)) << "a number leaves the colour";
  types.getColorForNominal("Class", c);
  expectColor(c, 1.0f, 203 / 255.0f, 35 / 255.0f);
  EXPECT_EQ(c.w, 0.4f) << "alpha stays";
  types.getColorForNominal("no such kind", c);
  expectColor(c, 0.5f, 0.5f, 0.5f);
  types.getColorForNominal("typedef", c);
  expectColor(c, 0.5f, 0.7f, 0.5f);
  EXPECT_TRUE(types.acceptsNominalValues());
  EXPECT_EQ(types.getType(), "nominal");
  EXPECT_EQ(types.iterkeys().size(), 23u);
  auto published = publishedColorMaps();
  ASSERT_EQ(published.size(), 4u);
  EXPECT_EQ(published[3]->m_KeyName, "Types");
  EXPECT_TRUE(published[3]->acceptsNominalValues());
}

TEST(ColorMaps, RescalerSharesTheMapWithANewRange) {
  Net net;
  auto rescaler = net.add<TColormapRescaler>(net.fm);
  auto map = std::make_shared<TColorMapData>("Rainbow", std::make_shared<TColorMap_Rainbow>());
  rescaler->m_Colormap->setData(map);
  net.pass();
  EXPECT_EQ(rescaler->m_Out->getData(), nullptr) << "waits for both inputs";
  rescaler->m_Range->setData(std::make_shared<TFloatPairData>(2.0f, 8.0f));
  net.pass();
  auto out = dataAs<TColorMapData>(rescaler->m_Out);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->getColorMap(), map->getColorMap());
  EXPECT_EQ(out->getClampMinimum(), 2.0f);
  EXPECT_EQ(out->getClampMaximum(), 8.0f);
  EXPECT_EQ(map->getClampMaximum(), 1.0f) << "the input is not changed";
  EXPECT_EQ(out->m_KeyName, rescaler->m_Colormap->getKeyText());
}
