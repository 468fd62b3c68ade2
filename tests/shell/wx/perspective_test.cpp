// Perspectives as a user keeps them: every kind of view with settings of
// its own, stored, and opened again in an empty network; a state stored by
// an older build; a state with no dataset.
#include <gtest/gtest.h>

#include "engine/MPython.h"
#include "automation/MExecutor.h"
#include "data/MDataSources.h"
#include "support/GuiTestHelpers.h"
#include "support/Pictures.h"
#include "views/wx/MHebProcessor.h"
#include "views/wx/MTreemapProcessor.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// What a user sees of the views: titles in tab order, the one in front, the
// settings of each, and a picture of each canvas.
struct TViewsSeen {
  std::vector<std::string> titles;
  std::string front;
  std::map<std::string, std::string> settings;
  std::map<std::string, wxImage> pictures;
};

std::string sourceText(const TBoxPtr& box, const char* name) {
  auto source = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName(name));
  TDataPtr value = source ? source->getData() : nullptr;
  return value ? value->toString() : "-";
}

template <class P>
TGlCanvasBase* canvasOf(const TBoxPtr& box) {
  auto p = box->getProcessorByType<P>();
  if (!p || !p->implementation()) return nullptr;
  if constexpr (std::is_same_v<P, THebProcessor>)
    return p->implementation()->canvas.get();
  else
    return p->implementation()->canvas;
}

TViewsSeen look(App& app) {
  TViewsSeen seen;
  auto* book = app.frame->GetClientWindow();
  for (size_t i = 0; i < book->GetPageCount(); ++i) seen.titles.push_back(stdText(book->GetPageText(i)));
  if (auto* child = app.frame->GetActiveChild()) seen.front = stdText(child->GetTitle());
  for (const auto& box : me.flowlayout->m_Children) {
    const std::string title = guiTitleOf(box);
    if (title.empty()) continue;
    for (const char* key : {"node color attr source", "node colormap source", "colormap source", "column keys",
                            "node label attr source", "area attr source"})
      if (box->getProcessorByName(key)) seen.settings[title + ": " + key] = sourceText(box, key);
    TGlCanvasBase* canvas = canvasOf<THebProcessor>(box);
    if (!canvas) canvas = canvasOf<TTreemapProcessor>(box);
    if (canvas) {
      for (wxWindow* w = canvas; w; w = w->GetParent())
        if (auto* child = dynamic_cast<TChildFrame*>(w)) {
          child->activateWithFocus();
          break;
        }
      // Shown, laid out at its final size, and still.
      wxSize last;
      int still = 0;
      pumpUntil([&] {
        const wxSize now = canvas->GetClientSize();
        still = canvas->IsShownOnScreen() && now == last ? still + 1 : 0;
        last = now;
        return still >= 5;
      });
      app.finishAnimations();
      app.settle();
      seen.pictures[title] = freshPaint(canvas);
    }
  }
  return seen;
}

bool setSource(const std::string& title, const char* name, const std::string& value) {
  for (const auto& box : me.flowlayout->m_Children)
    if (guiTitleOf(box) == title)
      if (auto source = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName(name))) {
        source->setData(std::make_shared<TStringData>(value));
        return true;
      }
  return false;
}

}  // namespace

TEST(Perspective, EveryKindOfViewComesBackAsItWasStored) {
  App app;
  // The radial view opens with an animation, and commands wait for it.
  auto run = [&](const std::string& command) {
    app.run(command);
    app.finishAnimations();
  };
  run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  run("openView('heb', 'R')");
  run("setNodeColorAttribute('language')");
  run("setNodeColorMap('Rainbow')");
  run("openView('treemap', 'T')");
  run("openView('list on nodes')");
  run("openView('list on edges')");
  auto table = [&](const char* kind, const char* title) {
    const std::string k(kind);
    app.frame->OnInstantiateLibBox("BTableLens",
                                   TInstantiateOptions{{{"gui title", title}},
                                                       {{"attributes", k + " attributes"},
                                                        {"selections", k + " selections"},
                                                        {"primary selection", k + " primary selection"},
                                                        {"brushed", "brushed " + k + "s"}}});
  };
  table("node", "Nodes");
  table("edge", "Edges");
  app.frame->OnInstantiateLibBox("BTreeView", TInstantiateOptions{{{"gui title", "Tree"}}, {}});
  app.settle();
  ASSERT_TRUE(setSource("T", "node colormap source", "Rainbow"));
  ASSERT_TRUE(setSource("Nodes", "colormap source", "Rainbow"));
  run("selectNids([3, 4])");
  const TViewsSeen before = look(app);
  run("selectViewByName('T')");
  EXPECT_EQ(before.titles, (std::vector<std::string>{"R", "T", "Node list view", "Edge list view", "Nodes", "Edges",
                                                     "Tree"}));
  EXPECT_EQ(before.settings.at("R: node color attr source"), "language");
  me.flowlayout->store(me.flowlayout->m_Children, "round.qvperspective");

  // A new network: nothing of the old one is left.
  me.flowlayout->destroy();
  app.settle();
  ASSERT_EQ(app.frame->GetClientWindow()->GetPageCount(), 0u);
  app.run("openPerspective('round.qvperspective')");
  app.finishAnimations();
  EXPECT_EQ(stdText(app.frame->GetActiveChild()->GetTitle()), "T") << "the view in front comes back in front";
  const TViewsSeen after = look(app);
  EXPECT_EQ(after.titles, before.titles);
  EXPECT_EQ(after.settings, before.settings);
  for (const auto& [title, picture] : before.pictures) {
    ASSERT_TRUE(after.pictures.count(title)) << title;
    EXPECT_LT(differing(picture, after.pictures.at(title)), 0.02) << title;
    if (HasFailure()) {
      picture.SaveFile("round-before-" + title + ".png", wxBITMAP_TYPE_PNG);
      after.pictures.at(title).SaveFile("round-after-" + title + ".png", wxBITMAP_TYPE_PNG);
    }
  }
  auto selection = std::dynamic_pointer_cast<TIntegerSetData>(
      std::dynamic_pointer_cast<TAbstractDataSource>(
          me.flowlayout->getBoxByType("BMain")->getProcessorByName("node primary selection"))
          ->getData());
  ASSERT_TRUE(selection);
  EXPECT_TRUE(selection->contains(3) && selection->contains(4));

  // The pictures tell settings apart: the radial view coloured by another
  // attribute looks otherwise.
  run("selectViewByName('R')");
  run("setNodeColorAttribute('type')");
  EXPECT_GT(differing(before.pictures.at("R"), look(app).pictures.at("R")), 0.02);

  // Scripts that name views by their titles work as before.
  app.run("selectViewByName('R')");
  EXPECT_EQ(stdText(app.frame->GetActiveChild()->GetTitle()), "R");
  EXPECT_EQ(me.logger->getLastMessages().find("Could not find view"), std::string::npos);
}

TEST(Perspective, AStateStoredByAnOlderBuildOpensWithTitles) {
  App app;
  sample("orbit.db");
  std::filesystem::copy_file(std::string(std::getenv("QUORVEL_SOURCE_DIR")) + "/tests/shell/wx/data/older.qvperspective",
                             "older.qvperspective", std::filesystem::copy_options::overwrite_existing);
  app.run("openPerspective('older.qvperspective')");
  app.finishAnimations();
  const TViewsSeen seen = look(app);
  EXPECT_EQ(seen.titles, (std::vector<std::string>{"Radial", "Treemap"}));
  EXPECT_EQ(seen.settings.at("Radial: node color attr source"), "type");
  EXPECT_EQ(seen.pictures.size(), 2u);
}

TEST(Perspective, AStateWithoutADatasetOpensEmptyAndOneWhoseDatasetWentSaysWhich) {
  App app;
  me.flowlayout->store(me.flowlayout->m_Children, "empty.qvperspective");
  const size_t logged = me.logger->records().size();
  app.run("openPerspective('empty.qvperspective')");
  EXPECT_EQ(app.frame->GetClientWindow()->GetPageCount(), 0u);
  for (size_t i = logged; i < me.logger->records().size(); ++i)
    EXPECT_LT(me.logger->records()[i].level, TLogger::kWarning) << me.logger->records()[i].text;

  std::filesystem::copy_file(std::string(std::getenv("QUORVEL_SOURCE_DIR")) + "/tests/shell/wx/data/older.qvperspective",
                             "moved.qvperspective", std::filesystem::copy_options::overwrite_existing);
  std::filesystem::remove("orbit.db");
  app.run("openPerspective('moved.qvperspective')");
  app.finishAnimations();
  EXPECT_NE(me.logger->getLastMessages().find("'orbit.db'"), std::string::npos) << "the message names the file";
  EXPECT_EQ(app.frame->GetClientWindow()->GetPageCount(), 2u) << "the views are still there";
}
