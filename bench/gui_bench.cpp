// The main window with a large dataset open: what a quiet application costs,
// how fast the node list shows a million rows, and opening a dataset until
// its list is painted. Runs under a display (scripts/bench starts a virtual
// X server when there is none).
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <wx/evtloop.h>
#include <wx/wx.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "app/MAppClasses.h"
#include "support/GuiTestSetup.h"
#include "support/RadialPixels.h"
#include "automation/MExecutor.h"
#include "shell/wx/MFlowCanvas.h"
#include "widgets/MGui.h"
#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "shell/wx/MCodeView.h"
#include "shell/wx/MGuiClasses.h"
#include "shell/wx/MMainFrame.h"
#include "support/SyntheticData.h"
#include "views/wx/MHebProcessor.h"
#include "views/wx/MListControlViewProcessor.h"
#include "views/wx/MTableLensProcessor.h"
#include "views/wx/MTreemapProcessor.h"
#include "views/wx/MTreeViewProcessor.h"

using namespace quorvel;
namespace fs = std::filesystem;

namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double cpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_utime.tv_sec + u.ru_stime.tv_sec + 1e-6 * (u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

// Runs the real event loop for a while.
void runLoop(double duration) {
  wxTimer stop;
  wxEventLoopBase* loop = nullptr;
  stop.Bind(wxEVT_TIMER, [&loop](wxTimerEvent&) {
    if (loop) loop->Exit();
  });
  wxEventLoop l;
  loop = &l;
  stop.StartOnce(static_cast<int>(duration * 1000));
  l.Run();
}

std::shared_ptr<TListGuiProcessor> nodeList() {
  if (!me.flowlayout) return nullptr;
  TBoxPtr box = me.flowlayout->getBoxByType("BListView");
  return box ? box->getProcessorByType<TListGuiProcessor>() : nullptr;
}

size_t rowsShown() {
  auto list = nodeList();
  if (!list || list->panels.empty() || !list->panels[0]) return 0;
  return static_cast<size_t>(list->panels[0]->listctrl->GetItemCount());
}

// Opens a dataset as "Open dataset" does and runs idle steps until its node
// list shows rows and has been painted. Gives the seconds to the loaded
// dataset and to the painted list.
std::pair<double, double> openAndShow(TMainFrame& frame, const std::string& file) {
  const double start = seconds();
  frame.Load(file);
  double loaded = 0.0;
  for (int i = 0; i < 10000 && rowsShown() == 0; ++i) {
    frame.idleStep();
    if (loaded == 0.0 && me.flowlayout->getBoxByType("BMain")) {
      auto port = me.flowlayout->getBoxByType("BMain")->getIdentityProcessorByInputName("node attributes");
      if (port && port->getOnlyOutputPin()->getData()) loaded = seconds() - start;
    }
  }
  frame.Update();
  wxYield();
  return {loaded, seconds() - start};
}

struct Session {
  TMainFrame* frame = nullptr;
  std::string file;
  // QUORVEL_BENCH_DATASET names another dataset, such as an imported tree.
  Session() {
    const char* other = std::getenv("QUORVEL_BENCH_DATASET");
    file = fs::absolute(other && *other ? std::string(other) : bench::syntheticDataset(1000000, 3000000)).string();
    frame = new TMainFrame();
    frame->SetClientSize(1000, 700);
    publishGuiObjects();
  }
  ~Session() {
    if (me.flowlayout) me.flowlayout->destroy();
    frame->timer.Stop();
    frame->Destroy();
    wxYield();
  }
};

void BM_OpenDatasetToPaintedList(benchmark::State& state) {
  Session s;
  for (auto _ : state) {
    if (me.flowlayout) me.flowlayout->destroy();
    const auto [loaded, painted] = openAndShow(*s.frame, s.file);
    state.SetIterationTime(painted);
    state.counters["load_s"] = loaded;
    state.counters["total_s"] = painted;
    state.counters["load_share"] = painted > 0 ? loaded / painted : 0.0;
    state.counters["rows"] = static_cast<double>(rowsShown());
  }
}

void BM_ListFirstPaintFromPins(benchmark::State& state) {
  Session s;
  openAndShow(*s.frame, s.file);
  auto list = nodeList();
  if (!list || list->panels.empty()) {
    state.SkipWithError("no list");
    return;
  }
  auto* panel = list->panels[0].get();
  for (auto _ : state) {
    // New data on the selection pin: the whole of the list's work follows.
    auto selection = std::dynamic_pointer_cast<TIntegerSetData>(list->m_Selection->getData());
    auto copy = std::make_shared<TIntegerSetData>();
    copy->m_Set = selection->m_Set;
    const double start = seconds();
    list->m_Selection->setData(copy);
    me.flowlayout->stage1();
    me.flowlayout->stage2();
    panel->listctrl->Update();
    state.SetIterationTime(seconds() - start);
  }
  state.counters["rows"] = static_cast<double>(list->m_Row2Id.size());
}

void BM_QuietApplicationCpu(benchmark::State& state) {
  Session s;
  openAndShow(*s.frame, s.file);
  runLoop(1.0);  // what was pending settles first
  for (auto _ : state) {
    const double cpu = cpuSeconds();
    const double wall = seconds();
    runLoop(10.0);
    state.counters["cpu_percent"] = 100.0 * (cpuSeconds() - cpu) / (seconds() - wall);
  }
}

// The same with the five kinds of view open beside the list, each with its
// pane of controls: controls do no work while nothing changes.
void BM_QuietFiveViewsCpu(benchmark::State& state) {
  Session s;
  openAndShow(*s.frame, s.file);
  s.frame->OnInstantiateLibBox("BHebView", TInstantiateOptions{{{"gui title", "Radial"}}, {}});
  s.frame->OnInstantiateLibBox("BTreemapView", TInstantiateOptions{{{"gui title", "Treemap"}}, {}});
  s.frame->OnInstantiateLibBox("BTreeView", TInstantiateOptions{{{"gui title", "Tree"}}, {}});
  s.frame->OnInstantiateLibBox("BTableLens", TInstantiateOptions{{{"gui title", "Table"}},
                                                                 {{"attributes", "node attributes"},
                                                                  {"selections", "node selections"},
                                                                  {"primary selection", "node primary selection"},
                                                                  {"brushed", "brushed nodes"}}});
  // The views open, animate their first picture and settle first.
  for (int quiet = 0, i = 0; quiet < 3 && i < 300; ++i) {
    runLoop(1.0);
    quiet = s.frame->animatelist.empty() ? quiet + 1 : 0;
  }
  size_t panes = 0;
  for (const auto& box : me.flowlayout->m_Children)
    if (box->getProcessorByName("settings pane")) ++panes;
  for (auto _ : state) {
    const double cpu = cpuSeconds();
    const double wall = seconds();
    runLoop(10.0);
    state.counters["cpu_percent"] = 100.0 * (cpuSeconds() - cpu) / (seconds() - wall);
  }
  state.counters["panes"] = static_cast<double>(panes);
}

// Opening a view on a loaded dataset until its first picture is painted,
// with its settings pane and (pane:0) with the library's box stripped of the
// pane's container and gatherer, so that its controls make no windows. The
// view is the radial view or (view:1) the treemap.
void BM_OpenViewPane(benchmark::State& state) {
  const bool pane = state.range(0) != 0;
  const char* const type = state.range(1) ? "BTreemapView" : "BHebView";
  for (auto _ : state) {
    state.PauseTiming();
    auto* frame = new TMainFrame();
    frame->SetClientSize(1000, 700);
    publishGuiObjects();
    if (!pane)
      for (const char* name : {"settings pane", "controls"})
        if (auto p = me.flowlib->getBoxByType(type)->getProcessorByName(name)) p->destroy();
    frame->Load(fs::absolute(bench::syntheticDataset(200000, 600000)).string());
    for (int i = 0; i < 200; ++i) frame->idleStep();
    wxYield();
    state.ResumeTiming();
    frame->OnInstantiateLibBox(type, TInstantiateOptions{{{"gui title", "View"}}, {}});
    for (int i = 0; i < 100000; ++i) {
      frame->idleStep();
      wxYield();
      if (frame->animatelist.empty() && i > 10) break;
    }
    auto box = me.flowlayout->getBoxByType(type);
    if (auto heb = box->getProcessorByType<THebProcessor>(); heb && heb->implementation())
      heb->implementation()->canvas->paintNow(false);
    if (auto treemap = box->getProcessorByType<TTreemapProcessor>(); treemap && treemap->implementation())
      treemap->implementation()->canvas->paintNow(false);
    state.PauseTiming();
    state.counters["widgets"] = static_cast<double>(box->getProcessorByName("settings pane") ? 1 : 0);
    me.flowlayout->destroy();
    frame->timer.Stop();
    frame->Destroy();
    wxYield();
    state.ResumeTiming();
  }
}

// A 10 MB source file opened in a code view tab: read, styled by the C++
// lexer over its whole length and painted.
void BM_CodeViewOpen10MB(benchmark::State& state) {
  const std::string file = "bench-10mb.cpp";
  {
    const std::string unit =
        "// A function of the generated file.\nstatic int depth(int n) {\n  return n <= 1 ? 1 : 1 + depth(n / 2);\n}\n"
        "const char* text = \"a string\"; /* a comment */\n";
    std::ofstream out(file);
    for (size_t written = 0; written < (10u << 20); written += unit.size()) out << unit;
  }
  auto* frame = new wxFrame(nullptr, wxID_ANY, "code", wxDefaultPosition, wxSize(900, 700));
  frame->Show();
  auto* notebook = new wxAuiNotebook(frame);
  for (auto _ : state) {
    auto* page = new TCodeTextPage(notebook, file);
    notebook->AddPage(page, "bench-10mb.cpp", true);
    page->GotoLine(page->GetLineCount() / 2);
    page->Update();
    state.PauseTiming();
    state.counters["lines"] = page->GetLineCount();
    notebook->DeletePage(notebook->GetPageIndex(page));
    state.ResumeTiming();
  }
  frame->Destroy();
  wxYield();
  std::filesystem::remove(file);
}

// Resident memory of the process in bytes.
double residentBytes() {
  std::ifstream status("/proc/self/status");
  std::string key;
  double kb = 0;
  while (status >> key)
    if (key == "VmRSS:") {
      status >> kb;
      break;
    }
  return kb * 1024.0;
}

std::shared_ptr<THebProcessor> radialView() {
  TBoxPtr box = me.flowlayout ? me.flowlayout->getBoxByType("BHebView") : nullptr;
  return box ? box->getProcessorByType<THebProcessor>() : nullptr;
}

// Idle steps until the radial view has laid out its rings and its
// animation ended; then one paint.
void paintRadialWhenReady(TMainFrame& frame) {
  for (int i = 0; i < 100000; ++i) {
    frame.idleStep();
    auto heb = radialView();
    if (heb && heb->implementation() && heb->implementation()->m_Root && frame.animatelist.empty() && i > 3) break;
  }
  if (auto heb = radialView(); heb && heb->implementation()) heb->implementation()->canvas->paintNow(false);
}

// The 1M / 3M synthetic set: opening it as "Open dataset" does (to the
// painted node list), and in the same run opening it with the radial view
// to that view's first painted frame, each with its resident memory.
void BM_OpenToFirstRadialFrame(benchmark::State& state) {
  Session s;
  for (auto _ : state) {
    if (me.flowlayout) me.flowlayout->destroy();
    const auto [loadedAlone, alone] = openAndShow(*s.frame, s.file);
    const double aloneBytes = residentBytes();
    me.flowlayout->destroy();
    wxYield();
    const double start = seconds();
    const auto [loaded, listed] = openAndShow(*s.frame, s.file);
    s.frame->OnInstantiateLibBox("BHebView", TInstantiateOptions{{{"gui title", "Radial"}}, {}});
    const double opened = seconds();
    paintRadialWhenReady(*s.frame);
    const double painted = seconds() - start;
    state.SetIterationTime(painted);
    state.counters["alone_s"] = alone;
    state.counters["with_radial_s"] = painted;
    state.counters["ratio"] = painted / alone;
    state.counters["share_load"] = loaded / painted;
    state.counters["share_view"] = (opened - start - listed) / painted;
    state.counters["share_layout_paint"] = (seconds() - opened) / painted;
    state.counters["rss_alone_MB"] = aloneBytes / 1e6;
    state.counters["rss_radial_MB"] = residentBytes() / 1e6;
    state.counters["rss_ratio"] = residentBytes() / aloneBytes;
    auto heb = radialView();
    state.counters["visible_rows"] = heb && heb->implementation() ? heb->implementation()->m_Rows.size() : 0;
  }
}

// A double click that unfolds a folded node near the root, to the next
// painted frame: the flow's pass (collapse, edges, layout), then the idle
// step and the paint.
void BM_UnfoldToNextFrame(benchmark::State& state) {
  Session s;
  openAndShow(*s.frame, s.file);
  s.frame->OnInstantiateLibBox("BHebView", TInstantiateOptions{{{"gui title", "Radial"}}, {}});
  paintRadialWhenReady(*s.frame);
  auto heb = radialView();
  if (!heb || !heb->implementation()) {
    state.SkipWithError("no radial view");
    return;
  }
  THebProcessorImplementation* impl = heb->implementation();
  auto* canvas = impl->canvas.get();
  const wxSize size = canvas->GetClientSize();
  std::vector<double> flows;
  auto median = [](std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  };
  for (auto _ : state) {
    state.PauseTiming();
    // The widest folded node: near the root.
    const TVisualNode* target = nullptr;
    for (const TVisualNode* row : impl->m_Rows)
      if (row->collapsed && row->rgt > row->lft + 1 && row->current.visible &&
        (!target || row->current.width > target->current.width))
        target = row;
    if (!target) {
      state.SkipWithError("nothing folded");
      return;
    }
    const wxPoint at = quorvel::test::radialCentre(size, *target);
    const size_t rows = impl->m_Rows.size();
    state.ResumeTiming();
    const double start = seconds();
    canvas->doubleClickAt(at);
    doflow(*me.flowlayout);
    const double flowed = seconds();
    // The idle step starts the unfold's animation, whose first frame it
    // may paint; then the frame as the view stands.
    s.frame->idleStep();
    canvas->paintNow(false);
    glFinish();
    const double painted = seconds();
    state.PauseTiming();
    flows.push_back((flowed - start) * 1000);
    state.counters["flow_ms_max"] = *std::max_element(flows.begin(), flows.end());
    state.counters["flow_ms_median"] = median(flows);
    state.counters["paint_ms"] = (painted - flowed) * 1000;
    state.counters["rows_before"] = static_cast<double>(rows);
    state.counters["rows_after"] = static_cast<double>(impl->m_Rows.size());
    for (int i = 0; i < 100 && !s.frame->animatelist.empty(); ++i) s.frame->idleStep();
    state.ResumeTiming();
  }
}

// A selection pass at a window point over lists, with the view's model-view
// matrix set by `matrix`: the floor of a pick.
template <class Matrix>
size_t barePick(TGlCanvasBase& canvas, TCommonRenderer& renderer, const wxPoint& at, std::initializer_list<GLuint> lists,
                Matrix matrix) {
  const wxSize c = canvas.GetClientSize();
  canvas.setCurrent();
  renderer.enterSelectMode(at.x, c.GetHeight() - at.y, 4, 4, false);
  glOrtho(0, c.GetWidth(), 0, c.GetHeight(), -3, 3);
  matrix();
  for (GLuint list : lists) glCallList(list);
  return renderer.exitSelectMode().size();
}

// A bare frame begins as the canvas begins its own: cleared, with its
// projection and no model-view matrix.
void beginBareFrame(TGlCanvasBase& canvas) {
  canvas.setCurrent();
  glClearColor(1, 1, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  canvas.OnSetMatrices();
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
}

// A view on a synthetic dataset (by default of 20,000 nodes), all
// unfolded, opened by a command.
struct ViewSession {
  TMainFrame* frame = nullptr;
  explicit ViewSession(const char* view) : ViewSession(std::string("openView('") + view + "')", "", true) {}
  ViewSession(const std::string& command, const std::string& dataset, bool expand) {
    frame = new TMainFrame();
    frame->SetClientSize(1000, 700);
    publishGuiObjects();
    frame->Load(fs::absolute(dataset.empty() ? bench::syntheticDataset(20000, 60000) : dataset).string());
    me.appendCommand(command);
    if (expand) me.appendCommand("expandAll()");
    settle();
  }
  void settle() {
    for (int i = 0; i < 100000; ++i) {
      frame->idleStep();
      wxYield();
      const bool queued = pybind11::len(pybind11::reinterpret_borrow<pybind11::list>(me.getCommandQueue().get())) > 0;
      if (!queued && frame->animatelist.empty() && i > 10) break;
    }
  }
  ~ViewSession() {
    if (me.flowlayout) me.flowlayout->destroy();
    frame->timer.Stop();
    frame->Destroy();
    wxYield();
  }
};

struct HebSession : ViewSession {
  std::shared_ptr<THebProcessor> heb;
  THebProcessorImplementation* impl = nullptr;
  HebSession() : ViewSession("heb") {
    heb = me.flowlayout->getBoxByType("BHebView")->getProcessorByType<THebProcessor>();
    impl = heb ? heb->implementation() : nullptr;
    if (impl) impl->canvas->paintNow(false);
  }
  std::string list(bool picking) const {
    return impl->listPrefix() + "_nodes_" + (picking ? "True" : "False");
  }
  // The edges shown while nothing is selected: at most 5,000 records.
  std::string edgeList(bool picking) const {
    return impl->listPrefix() + "_edges_bg_" + (picking ? "True" : "False");
  }
  // The model-view matrix of the view: the rim as the largest circle.
  void viewMatrix() const {
    const wxSize c = impl->canvas->GetClientSize();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glTranslatef(c.GetWidth() / 2.0f, c.GetHeight() / 2.0f, 0);
    const float scale = std::min(c.GetWidth(), c.GetHeight()) / 2.0f;
    glScalef(scale, scale, 0);
  }
};

// A repaint of the unchanged view, against calling its node and edge lists
// alone in a bare frame.
void BM_HebRepaint(benchmark::State& state) {
  HebSession s;
  if (!s.impl || !s.impl->renderer->displayList(s.list(false))) return state.SkipWithError("no radial view");
  auto* canvas = s.impl->canvas.get();
  const bool bare = state.range(0) != 0;
  const GLuint list = s.impl->renderer->displayList(s.list(false));
  const GLuint edges = s.impl->renderer->displayList(s.edgeList(false));
  if (!edges) return state.SkipWithError("no edge list");
  for (auto _ : state) {
    if (!bare) {
      canvas->paintNow(false);
    } else {
      beginBareFrame(*canvas);
      s.viewMatrix();
      glCallList(list);
      glCallList(edges);
      glFinish();
    }
  }
  state.counters["nodes"] = static_cast<double>(s.impl->m_Rows.size());
  state.counters["edges"] = static_cast<double>(std::min<size_t>(s.impl->drawnEdgeCount(), kHebEdgeLimit));
}

// A pick as a mouse motion makes it, against a bare selection pass over
// the same pick list.
void BM_HebPick(benchmark::State& state) {
  HebSession s;
  if (!s.impl) return state.SkipWithError("no radial view");
  auto* canvas = s.impl->canvas.get();
  const wxSize c = canvas->GetClientSize();
  const wxPoint at(c.GetWidth() / 2 + c.GetHeight() / 3, c.GetHeight() / 2);
  canvas->mousepos = at;
  canvas->Pick();
  const GLuint list = s.impl->renderer->displayList(s.list(true));
  const GLuint edges = s.impl->renderer->displayList(s.edgeList(true));
  if (!list || !edges) return state.SkipWithError("no pick list");
  const bool bare = state.range(0) != 0;
  size_t hits = 0;
  for (auto _ : state) {
    if (!bare) {
      hits = canvas->Pick().size();
    } else {
      hits = barePick(*canvas, *s.impl->renderer, at, {list, edges}, [&] { s.viewMatrix(); });
    }
  }
  state.counters["hits"] = static_cast<double>(hits);
}

// The running network of five views with their panes on "Flow layout",
// the whole network in sight.
struct FlowSession : ViewSession {
  TFlowCanvas* canvas = nullptr;
  FlowSession() : ViewSession("openView('heb')", "", false) {
    me.appendCommand("openView('treemap')");
    settle();
    frame->OnInstantiateLibBox("BTreeView", TInstantiateOptions{{{"gui title", "Tree"}}, {}});
    frame->OnInstantiateLibBox("BTableLens", TInstantiateOptions{{{"gui title", "Table"}},
                                                                {{"attributes", "node attributes"},
                                                                 {"selections", "node selections"},
                                                                 {"primary selection", "node primary selection"},
                                                                 {"brushed", "brushed nodes"}}});
    settle();
    openFlowCanvases(frame);
    std::vector<TFlowCanvas*> all;
    collectFlowCanvases(frame, all);
    for (auto* c : all)
      if (c->flowmgr() == me.flowlayout) canvas = c;
    if (!canvas) return;
    if (auto* child = dynamic_cast<TChildFrame*>(canvas->GetParent())) child->activateWithFocus();
    for (int i = 0; i < 200 && !canvas->IsShownOnScreen(); ++i) wxYield();
    canvas->camerapos = TVector2(10.0f, 20.0f);
    canvas->paintNow(false);
  }
  static void collectFlowCanvases(wxWindow* w, std::vector<TFlowCanvas*>& out) {
    if (auto* c = dynamic_cast<TFlowCanvas*>(w)) out.push_back(c);
    for (wxWindow* child : w->GetChildren()) collectFlowCanvases(child, out);
  }
  // The same picture as a display list, made once by the canvas's own
  // drawing: the bare floor of a repaint or a pick.
  GLuint compiled(bool picking) {
    canvas->setCurrent();
    const GLuint list = glGenLists(1);
    canvas->picking = picking;
    glNewList(list, GL_COMPILE);
    canvas->OnDraw();
    glEndList();
    canvas->picking = false;
    return list;
  }
  size_t processors() const {
    size_t n = 0;
    std::function<void(const TAbstractBox&)> count = [&](const TAbstractBox& b) {
      n += b.m_Processors.size();
      for (const auto& c : b.m_Children) count(*c);
    };
    count(*me.flowlayout);
    return n;
  }
};

// A repaint of the canvas against replaying a display list of the same
// boxes, lines and texts in a bare frame.
void BM_FlowCanvasRepaint(benchmark::State& state) {
  FlowSession s;
  if (!s.canvas) return state.SkipWithError("no flow canvas");
  const bool bare = state.range(0) != 0;
  const GLuint list = s.compiled(false);
  for (auto _ : state) {
    if (!bare) {
      s.canvas->paintNow(false);
    } else {
      s.canvas->setCurrent();
      glClearColor(1, 1, 1, 1);
      glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
      s.canvas->OnSetMatrices();
      glCallList(list);
      glFinish();
    }
  }
  glDeleteLists(list, 1);
  state.counters["processors"] = static_cast<double>(s.processors());
}

// A pick as the mouse makes it, against a bare selection pass over the
// same names.
void BM_FlowCanvasPick(benchmark::State& state) {
  FlowSession s;
  if (!s.canvas) return state.SkipWithError("no flow canvas");
  const bool bare = state.range(0) != 0;
  const GLuint list = s.compiled(true);
  const wxSize c = s.canvas->GetClientSize();
  // On the radial view's processor, inside its box.
  TProcessorPtr heb = me.flowlayout->getBoxByType("BHebView")->getProcessorByName("heb vis");
  s.canvas->camerapos = TVector2(c.GetWidth() / 3.0f - heb->m_Area.tl.x, c.GetHeight() / 3.0f - heb->m_Area.tl.y);
  const GLuint shifted = s.compiled(true);
  glDeleteLists(list, 1);
  const wxPoint at(c.GetWidth() / 3 + 5, c.GetHeight() / 3 + 5);
  size_t hits = 0;
  for (auto _ : state) {
    if (!bare) {
      hits = s.canvas->objectsAt(at).size();
    } else {
      s.canvas->setCurrent();
      glViewport(0, 0, c.GetWidth(), c.GetHeight());
      s.canvas->commonrenderer->enterSelectMode(at.x, c.GetHeight() - at.y, 4, 4, false);
      glOrtho(0, c.GetWidth(), 0, c.GetHeight(), -3, 3);
      glCallList(shifted);
      hits = s.canvas->commonrenderer->exitSelectMode().size();
    }
  }
  glDeleteLists(shifted, 1);
  state.counters["hits"] = static_cast<double>(hits);
}

// A box of 1,000 processors dragged by the mouse: each step moves all it
// holds and sizes the boxes again.
void BM_FlowCanvasDragBox(benchmark::State& state) {
  FlowSession s;
  if (!s.canvas) return state.SkipWithError("no flow canvas");
  auto box = makeBox("dragged");
  me.flowlayout->addBox(box);
  for (int i = 0; i < 1000; ++i) addProcessorAt(*box, "TGetCount", 3000.0f + (i % 40) * 90.0f, 3000.0f + (i / 40) * 40.0f);
  me.flowlayout->computeSize();
  s.canvas->draggingflowobject = box;
  wxPoint at(100, 100);
  wxMouseEvent first(wxEVT_MOTION);
  first.SetPosition(at);
  first.m_leftDown = true;
  s.canvas->pendingrefresh = false;
  s.canvas->OnMouseMotion(first);
  for (auto _ : state) {
    at.x += 1;
    wxMouseEvent step(wxEVT_MOTION);
    step.SetPosition(at);
    step.m_leftDown = true;
    s.canvas->pendingrefresh = false;  // the paint between steps is not timed
    s.canvas->OnMouseMotion(step);
  }
  state.counters["moved_x"] = box->m_Area.tl.x - 3000.0f;
}

// The treemap of the same dataset: every node a tile.
struct TreemapSession : ViewSession {
  TTreemapProcessorImplementation* impl = nullptr;
  TreemapSession() : ViewSession("treemap") {
    auto treemap = me.flowlayout->getBoxByType("BTreemapView")->getProcessorByType<TTreemapProcessor>();
    impl = treemap ? treemap->implementation() : nullptr;
    if (impl) impl->canvas->paintNow(false);
  }
  std::string list(bool picking) const { return impl->listPrefix() + "_nodes_" + (picking ? "True" : "False"); }
  // The floor: a list of as many cells, each a strip of two quads on the
  // tile's own box as the view draws them, with the same calls around
  // each: a name for a pick, the cushion texture added up and a colour
  // with the vertices for a paint.
  GLuint quadList(size_t& quads, bool picking) const {
    const wxSize c = impl->canvas->GetClientSize();
    const float m = static_cast<float>(std::max(c.GetWidth(), c.GetHeight()));
    const GLuint list = glGenLists(1);
    glNewList(list, GL_COMPILE);
    if (!picking) {
      glEnable(GL_TEXTURE_2D);
      glEnable(GL_BLEND);
      glBlendFunc(GL_ONE, GL_ONE);
      glBindTexture(GL_TEXTURE_2D, impl->renderer->cushionTexture());
      glColor4f(0.5f, 0.5f, 0.5f, 1);
    }
    glPushName(1);
    glPushName(0);
    quads = 0;
    for (const auto& n : impl->m_Nodes) {
      if (n.area == 0) continue;
      // A cell for each layer and one for its colour, as the view draws.
      const uint32_t layers = n.shownCount > 0 ? 1 : impl->m_MaxLevel - n.level + 2;
      for (uint32_t l = 0; l < layers; ++l, quads += 2) {
        glLoadName(l);
        glPushName(n.nid);
        glBegin(GL_QUAD_STRIP);
        if (!picking) glColor4f(0.5f, 0.5f, 0.5f, 1);
        for (int i = 0; i <= 2; ++i) {
          const float u = i / 2.0f;
          const float x = (n.box.x0 + (n.box.x1 - n.box.x0) * u) * m;
          glTexCoord2f(u, 0);
          glVertex2f(x, n.box.y0 * m);
          glTexCoord2f(u, 1);
          glVertex2f(x, n.box.y1 * m);
        }
        glEnd();
        glPopName();
      }
    }
    glPopName();
    glPopName();
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_BLEND);
    glEndList();
    return list;
  }
};

// A repaint of the unchanged treemap, against its tiles as a bare list of
// quads.
void BM_TreemapRepaint(benchmark::State& state) {
  TreemapSession s;
  if (!s.impl || !s.impl->renderer->displayList(s.list(false))) return state.SkipWithError("no treemap");
  auto* canvas = s.impl->canvas.get();
  const bool bare = state.range(0) != 0;
  canvas->setCurrent();
  size_t quads = 0;
  const GLuint floor = s.quadList(quads, false);
  for (auto _ : state) {
    if (!bare) {
      canvas->paintNow(false);
    } else {
      beginBareFrame(*canvas);
      glCallList(floor);
      glFinish();
    }
  }
  glDeleteLists(floor, 1);
  state.counters["tiles"] = static_cast<double>(s.impl->m_Nodes.size());
  state.counters["quads"] = static_cast<double>(quads);
}

// A pick at the mouse, against a selection pass over the bare quads.
void BM_TreemapPick(benchmark::State& state) {
  TreemapSession s;
  if (!s.impl) return state.SkipWithError("no treemap");
  auto* canvas = s.impl->canvas.get();
  const wxSize c = canvas->GetClientSize();
  const wxPoint at(c.GetWidth() / 3, c.GetHeight() / 2);
  canvas->mousepos = at;
  canvas->Pick();
  canvas->setCurrent();
  size_t quads = 0;
  const GLuint floor = s.quadList(quads, true);
  const bool bare = state.range(0) != 0;
  size_t hits = 0;
  for (auto _ : state) {
    if (!bare) {
      hits = canvas->Pick().size();
    } else {
      hits = barePick(*canvas, *s.impl->renderer, at, {floor}, [] {
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
      });
    }
  }
  glDeleteLists(floor, 1);
  state.counters["hits"] = static_cast<double>(hits);
}

// A table lens on the million nodes of a synthetic dataset with eight
// columns.
struct TableSession : ViewSession {
  TTableLensImplementation* impl = nullptr;
  TableSession()
      : ViewSession("me.mainwindow.OnInstantiateLibBox('BTableLens', {'assign': [('gui title', 'Node table view')], "
                    "'rename': [('attributes', 'node attributes'), ('selections', 'node selections'), "
                    "('primary selection', 'node primary selection'), ('brushed', 'brushed nodes')]})",
                    bench::syntheticDataset(1000000, 1000000, nullptr, 8), false) {
    me.appendCommand("selectViewByName('Node table view')");
    settle();
    auto table = me.flowlayout->getBoxByType("BTableLens")->getProcessorByType<TTableLensProcessor>();
    impl = table ? table->implementation() : nullptr;
  }
  // The floor: the same bars as quads in one list, coloured as the view
  // colours them.
  GLuint barList(size_t& quads) const {
    const GLuint list = glGenLists(1);
    glNewList(list, GL_COMPILE);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glBegin(GL_QUADS);
    quads = 0;
    const auto& widths = impl->m_Grid->columnwidths;
    for (size_t row = 0; row < impl->m_Row2Id.size(); ++row) {
      float x = 0;
      const float y0 = 14.0f * static_cast<float>(row), y1 = y0 + 14.0f;
      for (size_t c = 0; c < widths.size(); ++c) {
        float length = 0;
        TVector4 k;
        if (impl->barOf(static_cast<int>(c), impl->m_Row2Id[row], length, k)) {
          const float x1 = x + length * widths[c];
          glColor4f(k.x - 0.1f, k.y - 0.1f, k.z - 0.1f, k.w);
          glVertex2f(x, y0);
          glColor4f(k.x, k.y, k.z, k.w);
          glVertex2f(x1, y0);
          glVertex2f(x1, y1);
          glColor4f(k.x - 0.1f, k.y - 0.1f, k.z - 0.1f, k.w);
          glVertex2f(x, y1);
          ++quads;
        }
        x += widths[c];
      }
    }
    glEnd();
    glEndList();
    return list;
  }
  void bareFrame(GLuint list) const {
    auto* canvas = impl->canvas();
    beginBareFrame(*canvas);
    glTranslatef(0, static_cast<float>(canvas->GetClientSize().GetHeight()), 0);
    glScalef(1, -1, 1);
    glTranslatef(0, 20 - impl->getYpos(), 0);
    glScalef(1, impl->getZoom(), 1);
    glCallList(list);
    glFinish();
  }
};

// The first paint after the lists were cleared, which records the cell
// list, against recording and calling a bare list of the same bars.
void BM_TableFirstPaint(benchmark::State& state) {
  TableSession s;
  if (!s.impl || !s.impl->canvas()) return state.SkipWithError("no table");
  auto* canvas = s.impl->canvas();
  const bool bare = state.range(0) != 0;
  size_t quads = 0;
  for (auto _ : state) {
    if (!bare) {
      s.impl->clearLists();
      canvas->paintNow(false);
    } else {
      canvas->setCurrent();
      const GLuint list = s.barList(quads);
      s.bareFrame(list);
      glDeleteLists(list, 1);
    }
  }
  state.counters["rows"] = static_cast<double>(s.impl->m_Row2Id.size());
  if (bare) state.counters["quads"] = static_cast<double>(quads);
}

// A paint while scrolling: the list replayed under another offset, against
// calling the bare list.
void BM_TablePaint(benchmark::State& state) {
  TableSession s;
  if (!s.impl || !s.impl->canvas()) return state.SkipWithError("no table");
  auto* canvas = s.impl->canvas();
  canvas->paintNow(false);
  canvas->setCurrent();
  size_t quads = 0;
  const GLuint list = s.barList(quads);
  const bool bare = state.range(0) != 0;
  float y = 0;
  for (auto _ : state) {
    s.impl->setYpos(y);
    y = y > 200 ? 0 : y + 7;
    if (!bare)
      canvas->paintNow(false);
    else
      s.bareFrame(list);
  }
  glDeleteLists(list, 1);
  state.counters["quads"] = static_cast<double>(quads);
}

// The tree view's list over the million rows of the synthetic tree: a fold
// that takes half the lines away and its undo, each a new line count and a
// paint of the lines in view.
void BM_TreeViewFold(benchmark::State& state) {
  static const auto full = bench::loadSyntheticDataset(1000000, 3000000).hierarchy;
  static const auto half = [] {
    auto h = std::make_shared<THierarchyData>("half");
    h->m_Rows.assign(full->m_Rows.begin(), full->m_Rows.begin() + static_cast<long>(full->m_Rows.size() / 2));
    h->rebuildIndex();
    return h;
  }();
  auto fm = makeFlowManager(false);
  auto proc = fm->constructProcessor<TTreeViewProcessor>();
  proc->m_InternalSelection->setData(std::make_shared<TIntegerSetData>());
  auto* frame = new wxFrame(nullptr, wxID_ANY, "tree", wxDefaultPosition, wxSize(400, 700));
  auto* panel = new TTreeViewProcessorImplementation::TPanel(frame, proc.get());
  frame->Show();
  for (int i = 0; i < 200 && !frame->IsShownOnScreen(); ++i) {
    wxYield();
    wxMilliSleep(5);
  }
  size_t drawn = 0;
  auto draw = panel->listbox->drawItem;
  panel->listbox->drawItem = [&](wxDC& dc, const wxRect& r, size_t n) {
    ++drawn;
    draw(dc, r, n);
  };
  bool folded = false;
  size_t paints = 0;
  for (auto _ : state) {
    panel->model.collapsedhierarchy = folded ? full : half;
    folded = !folded;
    panel->update();
    panel->listbox->Update();
    wxYield();
    ++paints;
  }
  state.counters["lines"] = static_cast<double>(full->m_Rows.size() - 1);
  state.counters["drawn/paint"] = static_cast<double>(drawn) / static_cast<double>(paints);
  frame->Destroy();
  wxYield();
}

}  // namespace

BENCHMARK(BM_TreeViewFold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TableFirstPaint)->ArgName("bare")->Arg(0)->Arg(1)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TablePaint)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TreemapRepaint)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TreemapPick)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HebRepaint)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HebPick)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlowCanvasRepaint)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlowCanvasPick)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlowCanvasDragBox)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenDatasetToPaintedList)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ListFirstPaintFromPins)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_QuietApplicationCpu)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(BM_QuietFiveViewsCpu)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(BM_OpenToFirstRadialFrame)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UnfoldToNextFrame)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CodeViewOpen10MB)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenViewPane)
    ->ArgNames({"pane", "view"})
    ->Args({1, 0})
    ->Args({0, 0})
    ->Args({1, 1})
    ->Args({0, 1})
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  if (!quorvel::test::startGuiProcess("quorvel-gui-bench")) return 1;
  me.logger = std::make_shared<TLogger>("Quorvel-bench.log");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  quorvel::test::stopGuiProcess();
  return 0;
}
