// What a user learns of what is under the mouse: the tooltip drawn at the
// mouse, the attribute inspector and the legend in a view's pane, and the
// code view following the selection.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <sys/stat.h>

#include "base/MDatabase.h"
#include "engine/MPython.h"
#include "shell/wx/MCodeView.h"
#include "MSourceImporter.h"
#include "shell/wx/MWidgetContainers.h"
#include "support/GuiTestHelpers.h"
#include "support/Pictures.h"
#include "support/RadialPixels.h"
#include "views/wx/MHebProcessor.h"
#include "views/wx/MTableLensProcessor.h"
#include "views/wx/MTreemapProcessor.h"
#include "widgets/MInspectorWidgets.h"

using namespace quorvel;
using namespace quorvel::test;
namespace fs = std::filesystem;

namespace {

std::string textOn(const TProcessorPtr& p, const char* pin) {
  auto d = dataAs<TStringData>(p->getInputPinByName(pin));
  return d ? d->getValue() : "<no data>";
}

// The inspector's lines as the user reads them.
std::map<std::string, std::string> linesOf(TAttributeInspectorPanel* panel) {
  std::map<std::string, std::string> lines;
  for (long i = 0; i < panel->list->GetItemCount(); ++i)
    lines[stdText(panel->list->GetItemText(i, 0))] = stdText(panel->list->GetItemText(i, 1));
  return lines;
}

// The mean brightness of a picture's rectangle, clipped to the picture.
double brightness(const wxImage& image, wxRect r) {
  r.Intersect(wxRect(image.GetSize()));
  double sum = 0;
  for (int y = r.y; y < r.GetBottom(); ++y)
    for (int x = r.x; x < r.GetRight(); ++x)
      sum += (image.GetRed(x, y) + image.GetGreen(x, y) + image.GetBlue(x, y)) / 3.0;
  return r.IsEmpty() ? 0 : sum / (static_cast<double>(r.width - 1) * (r.height - 1));
}

}  // namespace

TEST(Inspectors, HoveringANodeDrawsItsTooltipAndFillsTheInspectorOfTheRadialViewAndTheTreemap) {
  App app;
  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  app.run("openView('heb')");
  app.finishAnimations();
  TBoxPtr box = me.flowlayout->getBoxByType("BHebView");
  auto heb = box->getProcessorByType<THebProcessor>();
  THebProcessorImplementation* impl = heb->implementation();
  ASSERT_TRUE(impl);
  auto* inspector = firstIn<TAttributeInspectorPanel>(unfoldPaneGroup(box, "Inspector"));
  ASSERT_TRUE(inspector) << "the inspector stands in the pane";
  EXPECT_EQ(inspector->list->GetItemCount(), 0);

  // The widest leaf: its tooltip and its lines.
  const TVisualNode* leaf = nullptr;
  for (const TVisualNode* n : impl->m_Rows)
    if (n->isLeaf() && (!leaf || n->current.width > leaf->current.width)) leaf = n;
  ASSERT_TRUE(leaf);
  const wxSize s = impl->canvas->GetClientSize();
  const wxPoint at = radialCentre(s, *leaf);
  const wxImage before = freshPaint(impl->canvas.get());
  impl->canvas->hoverAt(at);
  app.settle();
  const std::string tip = textOn(heb, "node tooltip text");
  auto names = std::dynamic_pointer_cast<TAttributeData>(heb->getInputPinByName("node text attr")->getData());
  ASSERT_TRUE(names);
  bool found = false;
  const std::string name = names->getTextValueById(leaf->nid, found);
  EXPECT_NE(tip.find("name: " + name + "\n"), std::string::npos) << tip;
  EXPECT_LE(std::count(tip.begin(), tip.end(), '\n'), 5) << "at most five lines";

  // The tip's box beside the mouse is lighter than the rings it covers.
  const wxImage after = freshPaint(impl->canvas.get());
  const auto& tooltip = *impl->canvas->commonrenderer->tooltip;
  const wxRect tipBox(at.x + 12 + 2, at.y + 21 + 2, tooltip.ex - 4, tooltip.ey - 4);
  ASSERT_GT(tooltip.ex, 20);
  EXPECT_LT(brightness(after, tipBox), 110) << "a dark box under the light text";
  EXPECT_GT(differing(before.GetSubImage(tipBox.Intersect(wxRect(before.GetSize()))),
                      after.GetSubImage(tipBox.Intersect(wxRect(after.GetSize())))),
            0.1);
  if (std::getenv("QUORVEL_TEST_PICTURES")) after.SaveFile("inspector_heb.png", wxBITMAP_TYPE_PNG);

  auto lines = linesOf(inspector);
  EXPECT_EQ(lines["name"], name);
  auto attributes = std::dynamic_pointer_cast<TDataArray>(
      box->getProcessorByName("attribute inspector")->getInputPinByName("attributes")->getData());
  ASSERT_TRUE(attributes);
  EXPECT_EQ(lines.size(), attributes->getItemCount()) << "every attribute, not five";
  // The mouse leaves for the empty middle: the lines stay.
  impl->canvas->hoverAt(wxPoint(s.GetWidth() / 2, s.GetHeight() / 2));
  app.settle();
  EXPECT_EQ(textOn(heb, "node tooltip text"), "");
  EXPECT_EQ(linesOf(inspector)["name"], name);

  // The treemap: a hovered tile gives its tooltip and its lines.
  app.run("openView('treemap')");
  app.finishAnimations();
  TBoxPtr tbox = me.flowlayout->getBoxByType("BTreemapView");
  auto treemap = tbox->getProcessorByType<TTreemapProcessor>();
  ASSERT_TRUE(treemap && treemap->implementation());
  auto* tinspector = firstIn<TAttributeInspectorPanel>(unfoldPaneGroup(tbox, "Inspector"));
  ASSERT_TRUE(tinspector);
  auto* canvas = treemap->implementation()->canvas.get();
  const wxSize ts = canvas->GetClientSize();
  canvas->hoverAt(wxPoint(ts.GetWidth() / 3, ts.GetHeight() / 3));
  app.settle();
  auto brushed = dataAs<TIntegerSetData>(treemap->getInputPinByName("brushed nodes"));
  ASSERT_TRUE(brushed && brushed->getCount() == 1);
  const uint32_t tile = *brushed->m_Set.begin();
  const std::string tileName = names->getTextValueById(tile, found);
  EXPECT_NE(textOn(treemap, "node tooltip text").find("name: " + tileName), std::string::npos);
  EXPECT_EQ(linesOf(tinspector)["name"], tileName);
}

TEST(Inspectors, TheTableLensFillsItsInspectorWithTheHoveredRow) {
  App app;
  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  app.run("me.mainwindow.OnInstantiateLibBox('BTableLens', {'assign': [('gui title', 'Node table view')], "
          "'rename': [('attributes', 'node attributes'), ('selections', 'node selections'), "
          "('primary selection', 'node primary selection'), ('brushed', 'brushed nodes')]})");
  app.settle();
  TBoxPtr box = me.flowlayout->getBoxByType("BTableLens");
  auto table = box->getProcessorByType<TTableLensProcessor>();
  ASSERT_TRUE(table && table->implementation());
  auto* impl = table->implementation();
  auto* inspector = firstIn<TAttributeInspectorPanel>(unfoldPaneGroup(box, "Inspector"));
  ASSERT_TRUE(inspector);
  pumpUntil([&] { return !impl->canvas()->pendingrefresh; });
  const auto& grid = *impl->m_Grid;
  const size_t row = 2;
  wxMouseEvent motion(wxEVT_MOTION);
  motion.SetPosition(wxPoint(static_cast<int>(grid.columnLeft(0) + 5),
                             static_cast<int>(TGlGrid::kHeader + (row + 0.5f) * grid.pixelRowHeight() - grid.ypos)));
  impl->canvas()->OnMouseMotion(motion);
  app.settle();
  bool found = false;
  auto names = std::dynamic_pointer_cast<TDataArray>(table->m_Attributes->getData())->itemByKeyAs<TAttributeData>("name");
  ASSERT_TRUE(names);
  EXPECT_EQ(linesOf(inspector)["name"], names->getTextValueById(impl->getNidByRow(row), found));
}

TEST(Inspectors, TheLegendHasALineForEachTypeInItsColour) {
  App app;
  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  app.run("openView('treemap')");
  app.finishAnimations();
  TBoxPtr box = me.flowlayout->getBoxByType("BTreemapView");
  auto* legend = firstIn<TColorMapInspectorPanel>(unfoldPaneGroup(box, "Node colors"));
  ASSERT_TRUE(legend);
  app.settle();
  auto type = std::dynamic_pointer_cast<TStringAttributeData>(
      box->getProcessorByName("node color attr picker")->getOutputPinByName("out")->getData());
  ASSERT_TRUE(type) << "the colour attribute is the text attribute 'type'";
  ASSERT_EQ(legend->GetItemCount(), type->getUniqueValues()->size());
  EXPECT_EQ(legend->GetSize(), wxSize(100, 100));
  // Each line's colour, probed on the screen at the middle of its right half.
  pumpUntil([&] { return legend->IsShownOnScreen(); });
  pumpUntil([] { return false; }, 0.5);  // the toolkit places and paints the unfolded group
  const wxImage seen = screenOf(legend);
  size_t matching = 0;
  const size_t shown = std::min<size_t>(legend->GetItemCount(), 100 / 16);
  for (size_t i = 0; i < shown; ++i) {
    const TVector4& c = legend->entries()[i].color;
    const int y = static_cast<int>(i) * 16 + 8, x = 90;
    const int dr = std::abs(seen.GetRed(x, y) - static_cast<int>(c.x * 255));
    const int dg = std::abs(seen.GetGreen(x, y) - static_cast<int>(c.y * 255));
    const int db = std::abs(seen.GetBlue(x, y) - static_cast<int>(c.z * 255));
    if (dr < 20 && dg < 20 && db < 20) ++matching;
  }
  if (std::getenv("QUORVEL_TEST_PICTURES")) {
    seen.SaveFile("legend.png", wxBITMAP_TYPE_PNG);
    screenOf(app.frame).SaveFile("legend_frame.png", wxBITMAP_TYPE_PNG);
  }
  EXPECT_EQ(matching, shown);
}

TEST(CodeView, SelectingFunctionsOpensTheirFileWithArrowsAndRedBoxes) {
  App app;
  // The sample's sources stand beside its dataset, as the importer left them.
  const fs::path src = fs::path(std::getenv("QUORVEL_SOURCE_DIR")) / "samples/orbit/src";
  fs::remove_all("src");
  fs::copy(src, "src", fs::copy_options::recursive);
  app.run("ensureOpen(" + scriptLiteral(sample("orbit-code.db")) + ")");
  app.run("openView('code')");
  TBoxPtr box = me.flowlayout->getBoxByType("BCodeView");
  ASSERT_TRUE(box);
  auto code = box->getProcessorByType<TCodeTextControl>();
  ASSERT_TRUE(code && code->panel);
  TCodePanel* panel = code->panel;

  // Two functions of main.cpp (nodes 11 and 12): one tab, two arrows, the
  // first one's lines boxed.
  app.run("clearSelection()");
  app.run("selectNids([11, 12])");
  app.settle();
  ASSERT_EQ(panel->notebook->GetPageCount(), 1u);
  auto* page = dynamic_cast<TCodeTextPage*>(panel->notebook->GetPage(0));
  ASSERT_TRUE(page);
  EXPECT_EQ(stdText(panel->notebook->GetPageText(0)), "main.cpp");
  EXPECT_EQ(stdText(panel->statustext->GetLabel()), "Found location for 2 of 2 nodes.");
  std::vector<int> arrows;
  for (int line = page->MarkerNext(0, 1); line >= 0; line = page->MarkerNext(line + 1, 1)) arrows.push_back(line);
  bool found = false;
  auto srcloc = std::dynamic_pointer_cast<TDataArray>(code->m_Attributes->getData())
                    ->itemByKeyAs<TAttributeData>("_srcloc");
  ASSERT_TRUE(srcloc);
  const TSourceLocation first = parseSourceLocation(srcloc->getTextValueById(11, found));
  const TSourceLocation second = parseSourceLocation(srcloc->getTextValueById(12, found));
  EXPECT_EQ(arrows, (std::vector<int>{first.firstLine - 1, second.firstLine - 1}));
  // The red box covers the range, its last column included.
  const int lastColumn = page->PositionFromLine(first.lastLine - 1) + first.lastColumn - 1;
  EXPECT_NE(page->IndicatorAllOnFor(page->PositionFromLine(first.firstLine - 1)) & 1, 0);
  EXPECT_NE(page->IndicatorAllOnFor(lastColumn) & 1, 0);
  EXPECT_EQ(page->IndicatorAllOnFor(page->PositionFromLine(first.lastLine)) & 1, 0)
      << "the line after the range is not boxed";
  EXPECT_TRUE(page->GetReadOnly());
  // What the user sees: the arrow's margin and the box's red tint.
  if (std::getenv("QUORVEL_TEST_PICTURES")) {
    pumpUntil([] { return false; }, 0.5);
    screenOf(panel).SaveFile("codeview.png", wxBITMAP_TYPE_PNG);
  }

  // A node with no location: the status says so and no tab opens.
  app.run("clearSelection()");
  app.run("selectNids([1])");
  EXPECT_EQ(stdText(panel->statustext->GetLabel()), "Could not find the location for this node.");
  // Closing the tab and selecting again opens the file anew.
  panel->notebook->DeletePage(0);
  wxAuiNotebookEvent closed(wxEVT_AUINOTEBOOK_PAGE_CLOSED, panel->notebook->GetId());
  closed.SetEventObject(panel->notebook);
  panel->notebook->ProcessWindowEvent(closed);
  EXPECT_TRUE(panel->pages.empty());
  app.run("clearSelection()");
  app.run("selectNids([11])");
  EXPECT_EQ(panel->notebook->GetPageCount(), 1u);
  EXPECT_EQ(panel->pages.size(), 1u);

  // A file gone from the disk: a warning, no tab, the node not counted.
  fs::remove("src/geometry/shape.cpp");
  app.run("clearSelection()");
  app.run("selectNids([6])");
  EXPECT_EQ(panel->notebook->GetPageCount(), 1u);
  EXPECT_EQ(stdText(panel->statustext->GetLabel()), "Could not find the location for this node.");

  // Stored with the perspective, and back when it is opened.
  me.flowlayout->store(me.flowlayout->m_Children, "code.qvperspective");
  me.flowlayout->destroy();
  app.settle();
  app.run("openPerspective('code.qvperspective')");
  box = me.flowlayout->getBoxByType("BCodeView");
  ASSERT_TRUE(box);
  code = box->getProcessorByType<TCodeTextControl>();
  ASSERT_TRUE(code && code->panel);
  app.run("clearSelection()");
  app.run("selectNids([11])");
  EXPECT_EQ(stdText(code->panel->statustext->GetLabel()), "Found location for 1 of 1 nodes.");
}

TEST(CodeView, HostileLocationsAndFilesGiveMessagesNotCrashesOrHangs) {
  App app;
  fs::remove_all("hostile");
  fs::create_directories("hostile/folder");
  std::ofstream("hostile/short.cpp") << "int a;\nint b;\n";
  std::ofstream("hostile/latin1.cpp") << "// caf\xe9 \xff\xfe\nint x;\n";
  {
    std::ofstream binary("hostile/binary.o", std::ios::binary);
    for (int i = 0; i < 4096; ++i) binary.put(static_cast<char>(i * 7));
  }
  std::ofstream("hostile/huge.cpp").close();
  fs::resize_file("hostile/huge.cpp", 200u << 20);  // sparse: no 200 MB written
  ASSERT_EQ(::mkfifo("hostile/pipe.cpp", 0600), 0);
  const std::vector<std::string> locations = {
      "short.cpp|1|1|99|1",       // 2: the last line past the end
      "short.cpp|-3|0|0|-2",      // 3: negative and zero lines and columns
      "folder|1|1|1|1",           // 4: a folder
      "pipe.cpp|1|1|1|1",         // 5: a pipe, which would block a reader
      "binary.o|1|1|3|1",         // 6
      "latin1.cpp|1|1|2|3",       // 7: not UTF-8
      "huge.cpp|1|1|1|1",         // 8: 200 MB
      "short.cpp|one|1|1|1",      // 9: no number
      "short.cpp|1|1",            // 10: fields missing
  };
  {
    TDatabase db("hostile/hostile.db");
    for (const char* create : {"CREATE TABLE edges (eid INTEGER PRIMARY KEY, fromnid INTEGER, tonid INTEGER)",
                               "CREATE TABLE nodeattr (nid INTEGER KEY, key STRING, value STRING, type STRING)",
                               "CREATE TABLE edgeattr (eid INTEGER KEY, key STRING, value STRING, type STRING)",
                               "CREATE TABLE hierarchy (hid INTEGER, nid INTEGER, parentnid INTEGER, childorder INTEGER)",
                               "CREATE TABLE information(key TEXT, value)"})
      db.execute(create);
    db.execute("INSERT INTO hierarchy VALUES (1, 1, NULL, 0)");
    db.execute("INSERT INTO nodeattr (nid,key,value) VALUES (1,'name','root')");
    for (size_t i = 0; i < locations.size(); ++i) {
      const int64_t nid = static_cast<int64_t>(i) + 2;
      db.execute("INSERT INTO hierarchy VALUES (1, ?, 1, ?)", {nid, nid});
      db.execute("INSERT INTO nodeattr (nid,key,value) VALUES (?,'name',?)", {nid, "n" + std::to_string(nid)});
      db.execute("INSERT INTO nodeattr (nid,key,value) VALUES (?,'_srcloc',?)", {nid, locations[i]});
    }
    db.commit();
  }
  app.run("ensureOpen('hostile/hostile.db')");
  app.run("openView('code')");
  auto code = me.flowlayout->getBoxByType("BCodeView")->getProcessorByType<TCodeTextControl>();
  ASSERT_TRUE(code && code->panel);
  TCodePanel* panel = code->panel;
  auto select = [&](int nid) {
    app.run("clearSelection()");
    app.run("selectNids([" + std::to_string(nid) + "])");
    return stdText(panel->statustext->GetLabel());
  };
  const std::string found = "Found location for 1 of 1 nodes.";
  const std::string missing = "Could not find the location for this node.";
  EXPECT_EQ(select(2), found);
  EXPECT_EQ(select(3), found);
  EXPECT_EQ(select(4), missing) << "a folder opens no tab";
  EXPECT_EQ(select(5), missing) << "a pipe is never read";
  EXPECT_EQ(select(6), found);
  EXPECT_EQ(select(7), found);
  EXPECT_EQ(select(8), missing) << "200 MB is too much for a text control";
  auto* latin = dynamic_cast<TCodeTextPage*>(panel->pages.at(fs::absolute("hostile/latin1.cpp").lexically_normal().string()));
  ASSERT_TRUE(latin);
  EXPECT_EQ(latin->GetLineCount(), 3) << "the text is there, odd bytes and all";
  EXPECT_NE(select(9).find("field 1 is no number"), std::string::npos);
  EXPECT_NE(select(10).find("fewer than five fields"), std::string::npos);
  EXPECT_EQ(panel->notebook->GetPageCount(), 3u) << "short.cpp, binary.o and latin1.cpp";
}

TEST(CodeView, AFunctionOfTheProjectsOwnImportedSourcesOpensAtItsLines) {
  App app;
  // This project's analysis folder, imported into a dataset that stands in
  // another folder: the code view finds the files through the root the
  // importer recorded.
  const fs::path sources = fs::path(std::getenv("QUORVEL_SOURCE_DIR")) / "src/analysis";
  fs::create_directories("imported");
  const TImportCounts counts = importSourceTree(sources.string(), "imported/own.db", TImportOptions{});
  if (!counts.ctags) GTEST_SKIP() << "no ctags";
  app.run("ensureOpen('imported/own.db')");
  app.run("openView('code')");
  auto code = me.flowlayout->getBoxByType("BCodeView")->getProcessorByType<TCodeTextControl>();
  ASSERT_TRUE(code && code->panel && code->locationattr);
  auto attributes = std::dynamic_pointer_cast<TDataArray>(code->m_Attributes->getData());
  auto name = attributes->itemByKeyAs<TAttributeData>("name");
  auto type = attributes->itemByKeyAs<TAttributeData>("type");
  ASSERT_TRUE(name && type);
  uint32_t nid = 0;
  bool found = false;
  for (size_t r = 0; r < name->getRowCount() && !nid; ++r) {
    const uint32_t id = name->getIdByRow(r);
    if (name->getTextValueById(id, found) == "makeText" && type->getTextValueById(id, found) == "function" &&
        code->locationattr->getTextValueById(id, found).find("MInspectors.cpp") != std::string::npos)
      nid = id;
  }
  ASSERT_NE(nid, 0u) << "the importer found the definition of makeText";
  app.run("clearSelection()");
  app.run("selectNids([" + std::to_string(nid) + "])");
  EXPECT_EQ(stdText(code->panel->statustext->GetLabel()), "Found location for 1 of 1 nodes.");
  ASSERT_EQ(code->panel->notebook->GetPageCount(), 1u);
  auto* page = dynamic_cast<TCodeTextPage*>(code->panel->notebook->GetPage(0));
  ASSERT_TRUE(page);
  EXPECT_EQ(stdText(code->panel->notebook->GetPageText(0)), "MInspectors.cpp");
  const int arrow = page->MarkerNext(0, 1);
  EXPECT_NE(stdText(page->GetLine(arrow)).find("makeText("), std::string::npos)
      << "the arrow stands at the function's first line: " << stdText(page->GetLine(arrow));
  EXPECT_NE(page->IndicatorAllOnFor(page->PositionFromLine(arrow) + 1) & 1, 0) << "its lines are boxed";
  pumpUntil([&] { return code->panel->notebook->GetCurrentPage() == page; });
  EXPECT_GE(arrow, page->GetFirstVisibleLine()) << "scrolled to the function";
}
