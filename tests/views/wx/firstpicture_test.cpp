// The first picture of a big dataset, as a user opening it sees it: the
// radial view at a level that shows at most the budget of nodes, a disk
// that is not a solid block of edges, and a double click that unfolds one
// step.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "MSyntheticDataset.h"
#include "engine/MPython.h"
#include "support/GuiTestHelpers.h"
#include "support/Pictures.h"
#include "support/RadialPixels.h"
#include "views/wx/MHebProcessor.h"

using namespace quorvel;
using namespace quorvel::test;
namespace fs = std::filesystem;

namespace {

constexpr size_t kBudget = 1000;

struct TOpened {
  App& app;
  std::shared_ptr<THebProcessor> heb;
  THebProcessorImplementation* impl = nullptr;
  TOpened(App& a, const std::string& file) : app(a) {
    app.run("ensureOpen(" + scriptLiteral(file) + ")");
    app.run("openView('heb')");
    app.finishAnimations();
    heb = me.flowlayout->getBoxByType("BHebView")->getProcessorByType<THebProcessor>();
    impl = heb ? heb->implementation() : nullptr;
  }
  size_t visible() const {
    size_t n = 0;
    for (const TVisualNode* row : impl->m_Rows) n += row->current.visible;
    return n;
  }
};

}  // namespace

TEST(FirstPicture, TheProjectsOwnSourceOpensFoldedToTheBudgetWithAWhiteDiskAndUnfoldsOneStep) {
  App app;
  const fs::path source = fs::path(std::getenv("QUORVEL_BINARY_DIR")) / "bin/datasets/quorvel-source.db";
  ASSERT_TRUE(fs::exists(source)) << "the build imports the project's own sources";
  fs::copy_file(source, "own-source.db", fs::copy_options::overwrite_existing);
  TOpened v(app, "own-source.db");
  ASSERT_TRUE(v.impl);
  EXPECT_LE(v.visible(), kBudget);
  EXPECT_GT(v.visible(), 20u) << "more than the top folders";
  size_t folded = 0;
  for (const TVisualNode* row : v.impl->m_Rows) folded += row->collapsed;
  EXPECT_GT(folded, 0u) << "a tree this big does not open fully unfolded";

  // Inside the circle of the innermost cells, where the edges bundle (the
  // outer fifth is where they fan out to their cells), most of the disk
  // stays white.
  const wxImage picture = freshPaint(v.impl->canvas.get());
  if (std::getenv("QUORVEL_TEST_PICTURES")) picture.SaveFile("first-own.png", wxBITMAP_TYPE_PNG);
  const wxSize s = v.impl->canvas->GetClientSize();
  const TVector2 rim = TToArcScreenConverter(1, 1).toScreen(0.0f, v.impl->m_LeafY);
  const float radius = 0.8f * std::hypot(rim.x, rim.y) * std::min(s.GetWidth(), s.GetHeight()) / 2.0f;
  size_t white = 0, all = 0;
  for (int y = 0; y < s.GetHeight(); y += 2)
    for (int x = 0; x < s.GetWidth(); x += 2) {
      if (std::hypot(x - s.GetWidth() / 2.0f, y - s.GetHeight() / 2.0f) > radius) continue;
      ++all;
      white += picture.GetRed(x, y) > 235 && picture.GetGreen(x, y) > 235 && picture.GetBlue(x, y) > 235;
    }
  ASSERT_GT(all, 1000u);
  EXPECT_GT(static_cast<double>(white) / all, 0.5) << white << " of " << all << " pixels of the disk are white";

  // A double click on a folded folder (one with nodes below it) shows its
  // children and no deeper.
  const TVisualNode* target = nullptr;
  for (const TVisualNode* row : v.impl->m_Rows)
    if (row->collapsed && row->rgt > row->lft + 1 && row->current.visible &&
        (!target || row->current.width > target->current.width))
      target = row;
  ASSERT_TRUE(target);
  const uint32_t lft = target->lft;
  const size_t before = v.visible();
  pumpUntil([&] { return !v.impl->canvas->pendingrefresh; });
  v.impl->canvas->doubleClickAt(radialCentre(s, *target));
  app.finishAnimations();
  const TVisualNode& opened = v.impl->m_NodeMap.at(lft);
  EXPECT_FALSE(opened.collapsed);
  EXPECT_GT(v.visible(), before);
  for (const TVisualNode* child : v.impl->children(opened)) {
    EXPECT_TRUE(child->current.visible);
    EXPECT_TRUE(child->isLeaf() || child->collapsed) << "one step: the children come folded";
  }
}

TEST(FirstPicture, AHundredThousandNodesOpenAtTheBudget) {
  App app;
  TSyntheticParams params;
  params.nodes = 100000;
  params.edges = 300000;
  const std::string file = "first-100k.db";
  if (!fs::exists(file)) writeSyntheticDataset(params, file);
  TOpened v(app, file);
  ASSERT_TRUE(v.impl);
  EXPECT_LE(v.visible(), kBudget);
  EXPECT_GT(v.visible(), 8u);
  if (std::getenv("QUORVEL_TEST_PICTURES"))
    freshPaint(v.impl->canvas.get()).SaveFile("first-100k.png", wxBITMAP_TYPE_PNG);
}
