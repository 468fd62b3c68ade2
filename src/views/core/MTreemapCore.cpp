#include "MTreemapCore.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "base/MParallel.h"
#include "engine/MRegistry.h"

namespace quorvel {

void TTreemapProcessorCpp::postCreate() {
  TVisualizerProcessorBase::postCreate();
  m_NodeAreaAttrOrdnorm = addInputPin<TFloatAttributeData>("node area attr ordnorm");
  m_NodeOrderAttrOrdnorm = addInputPin<TFloatAttributeData>("node order attr ordnorm");
  m_Flatten = addInputPin<TIntegerSetData>("flatten");
  m_Flatten2 = addInputPin<TIntegerSetData>("flatten2");
  m_LowLevelBorder = addInputPin<TIntegerSetData>("low level border");
}

TTreemapProcessorImplementationCpp::TTreemapProcessorImplementationCpp(TTreemapProcessorCpp* processor,
                                                                       std::shared_ptr<TLabelCache> renderer)
    : TVisualizerImplementationBase(processor, std::move(renderer)) {
  m_RotateLabels = false;
}

void TTreemapProcessorImplementationCpp::prepareRendering(int width, int height) {
  TVisualizerImplementationBase::prepareRendering(width, height);
  m_Converter = std::make_shared<TToOrthoScreenConverter>(static_cast<float>(width), static_cast<float>(height));
}

void TTreemapProcessorImplementationCpp::process() {
  TTreemapProcessorCpp* p = treemap();
  for (const TPinPtr& pin : {p->m_BrushedNodes, p->m_NodePrimarySelection, p->m_NodeSecondarySelection})
    if (!pin->getData()) pin->setData(std::make_shared<TIntegerSetData>());
  const TPinList tree{p->m_Hierarchy, p->m_AggLft, p->m_Flatten, p->m_Flatten2};
  if (p->m_Hierarchy->getData() && p->m_AggLft->getData() && p->haveChanged(tree)) {
    p->resetPins(tree);
    m_MaxLevel = 0;
    createNodeObjects();
    if (!hasRoot()) throw std::runtime_error("TTreeMapRenderer: there was an error while generating the nodes");
    m_RedoLayout = true;
  }
  if (hasRoot() && m_RedoLayout) layout();
  m_RedoLayout = false;
}

void TTreemapProcessorImplementationCpp::createNodeObjects() {
  TTreemapProcessorCpp* p = treemap();
  auto rows = dataAs<THierarchyData>(p->m_HierarchyCollapsed);
  auto agglft = dataAs<TAggLftData>(p->m_AggLft);
  auto collapsed = dataAs<TBoolAttributeData>(p->m_Collapsed);
  auto flatten = dataAs<TIntegerSetData>(p->m_Flatten);
  auto flatten2 = dataAs<TIntegerSetData>(p->m_Flatten2);
  const char* missing = !rows        ? "Missing input m_HierarchyCollapsedInput"
                        : !agglft    ? "Missing input agglftinput"
                        : !collapsed ? "Missing input collapsed"
                                     : nullptr;
  if (missing || rows->m_Rows.empty()) m_Nodes.clear();
  if (missing) return p->setError(missing);
  m_Rows = rows;
  const size_t count = rows->m_Rows.size();
  if (count == 0) return;

  // Every tile is written whole, in order, over what the vector holds.
  m_Nodes.resize(count);
  TTreemapNode* out = m_Nodes.data();
  auto fail = [&](const char* message) {
    m_Nodes.clear();
    throw std::runtime_error(message);
  };
  const THierarchyRow* row = rows->m_Rows.data();
  out[0] = TTreemapNode{};
  out[0].nid = row[0].nid;
  const auto& entries = agglft->m_Rows;
  const bool unique = collapsed->idsUnique();
  const auto& states = collapsed->m_Rows;
  const bool allGroups = (flatten && flatten->m_ContainsAll) || (flatten2 && flatten2->m_ContainsAll);
  auto isGroup = [&](uint32_t nid) {
    return allGroups || (flatten && flatten->contains(nid)) || (flatten2 && flatten2->contains(nid));
  };
  auto encloses = [](const auto& o, const THierarchyRow& r) { return o.lft <= r.lft && o.rgt >= r.rgt; };
  // The groups open at a row, with their bounds and level: only they take
  // children, so the levels between two groups are flattened away.
  struct TOpen {
    uint32_t index, lft, rgt, level;
  };
  // One run over a range of rows: its open groups, where it stands in the
  // other tables, and the tiles before the range that took children.
  struct TRun {
    std::vector<TOpen> groups = std::vector<TOpen>(64);
    size_t depth = 0;
    size_t cursor = 0, next = 0;
    uint32_t maxLevel = 0;
    size_t own = 0;
    std::vector<uint32_t> parentsBefore;
    const char* error = nullptr;
    void push(const TOpen& g) {
      if (depth == groups.size()) groups.resize(2 * depth);
      groups[depth++] = g;
    }
  };
  auto runRows = [&](TRun& run, size_t from, size_t to) {
    // The run's state stays in locals while it goes: a store to a tile's
    // byte of flags could stand for any of it, and it would be read again
    // after each.
    size_t depth = run.depth, cursor = run.cursor, next = run.next;
    uint32_t maxLevel = run.maxLevel;
    TOpen* groups = run.groups.data();
    const size_t own = run.own;
    TTreemapNode* const tiles = out;
    const THierarchyRow* const rowAt = row;
    const std::pair<uint32_t, uint32_t>* const entry = entries.data();
    const size_t entryCount = entries.size();
    const bool everyGroup = allGroups;
    auto finish = [&](const char* error) {
      run.depth = depth;
      run.cursor = cursor;
      run.next = next;
      run.maxLevel = maxLevel;
      run.error = error;
    };
    // Both tables usually stand in ascending lft: a cursor finds each
    // row's entry, and the index answers only where it does not.
    auto folded = [&](uint32_t lft) {
      while (cursor < entryCount && entry[cursor].first < lft) ++cursor;
      if (cursor < entryCount && entry[cursor].first == lft) return true;
      bool found = false;
      agglft->getAggLftByLft(lft, found);
      return found;
    };
    // The collapsed state usually lists the nodes in the same order too;
    // a row near the last one found answers before the index is asked.
    auto collapsedOf = [&](uint32_t nid, bool& found) {
      if (!unique) return collapsed->getValueById(nid, found);
      for (size_t k = next; k < next + 4 && k < states.size(); ++k)
        if (states[k].id == nid) {
          next = k + 1;
          found = true;
          return collapsed->valueByRow(k);
        }
      const long at = collapsed->getRowById(nid);
      found = at >= 0;
      if (!found) return false;
      next = static_cast<size_t>(at) + 1;
      return collapsed->valueByRow(static_cast<size_t>(at));
    };
    for (size_t i = from; i < to; ++i) {
      const THierarchyRow r = rowAt[i];
      if (!folded(r.lft)) return finish("createNodeObjects(): cannot do getAggLftByLft ");
      bool found = false;
      const bool folds = collapsedOf(r.nid, found);
      if (!found) return finish("collapsed value for this node not found");
      while (depth > 1 && !encloses(groups[depth - 1], r)) --depth;
      const TOpen top = groups[depth - 1];
      if (top.index >= own)
        tiles[top.index].flags |= TTreemapNode::kHasChildren;
      else if (run.parentsBefore.empty() || run.parentsBefore.back() != top.index)
        run.parentsBefore.push_back(top.index);
      const uint32_t level = std::min<uint32_t>(top.level + 1u, 65535u);
      maxLevel = std::max(maxLevel, level);
      // Written field by field: a whole tile composed aside and copied
      // would wait on its own flag byte.
      TTreemapNode& n = tiles[i];
      n.nid = r.nid;
      n.parent = top.index;
      n.area = n.firstShown = n.shownCount = 0;
      n.level = static_cast<uint16_t>(level);
      n.flags = folds ? TTreemapNode::kCollapsed : 0;
      n.toosmall = false;
      n.box = TLayoutBox{};
      if (everyGroup || isGroup(r.nid)) {
        if (depth == run.groups.size()) {
          run.groups.resize(2 * depth);
          groups = run.groups.data();
        }
        groups[depth++] = {static_cast<uint32_t>(i), r.lft, r.rgt, level};
      }
    }
    finish(nullptr);
  };
  TRun first;
  first.push({0, row[0].lft, row[0].rgt, 0});
  const size_t middle = count / 2;
  if (count < std::max<size_t>(m_TilesForTwoThreads, 2)) {
    runRows(first, 1, count);
  } else {
    // The second half starts from the groups that enclose its first row,
    // found going back; the first half's run ends with them on top of its
    // own groups when the rows are well nested, and the second half is
    // run again after the first where they are not.
    TRun second;
    second.own = middle;
    std::vector<TOpen> start;
    auto startSecond = [&] {
      const THierarchyRow m = row[middle];
      for (size_t i = middle; i-- > 1;)
        if (encloses(row[i], m) && isGroup(row[i].nid))
          start.push_back({static_cast<uint32_t>(i), row[i].lft, row[i].rgt, 0});
      start.push_back({0, row[0].lft, row[0].rgt, 0});
      std::reverse(start.begin(), start.end());
      for (size_t k = 0; k < start.size(); ++k) {
        start[k].level = static_cast<uint32_t>(std::min<size_t>(k, 65535));
        second.push(start[k]);
      }
      auto byLft = [](const std::pair<uint32_t, uint32_t>& e, uint32_t lft) { return e.first < lft; };
      second.cursor = static_cast<size_t>(std::lower_bound(entries.begin(), entries.end(), m.lft, byLft) -
                                          entries.begin());
      runRows(second, middle, count);
    };
    try {
      runBeside(startSecond, [&] { runRows(first, 1, middle); });
    } catch (...) {
      m_Nodes.clear();
      throw;
    }
    bool same = !first.error;
    if (same) {
      size_t depth = first.depth;
      while (depth > 1 && !encloses(first.groups[depth - 1], row[middle])) --depth;
      same = depth == start.size();
      for (size_t k = 0; same && k < depth; ++k) same = first.groups[k].index == start[k].index;
    }
    if (same) {
      for (uint32_t index : second.parentsBefore) out[index].flags |= TTreemapNode::kHasChildren;
      first.maxLevel = std::max(first.maxLevel, second.maxLevel);
      first.error = second.error;
    } else if (!first.error) {
      runRows(first, middle, count);
    }
  }
  if (first.error) fail(first.error);
  m_MaxLevel = first.maxLevel;
  m_SumsClear = true;
}

TTreemapProcessorImplementationCpp::TAreaInputs TTreemapProcessorImplementationCpp::areaInputs() const {
  TTreemapProcessorCpp* p = treemap();
  TAreaInputs in;
  in.area = dataAs<TFloatAttributeData>(p->m_NodeAreaAttrOrdnorm);
  in.order = dataAs<TFloatAttributeData>(p->m_NodeOrderAttrOrdnorm);
  in.maximum = in.area ? in.area->getMaximumValue() : 0;
  return in;
}

uint32_t TTreemapProcessorImplementationCpp::leafArea(const TAreaInputs& in, uint32_t nid) const {
  if (!in.area) return 1;
  bool found = false;
  const float v = in.area->getValueById(nid, found);
  const double a = found && in.maximum > 0 ? std::floor(100.0 / in.maximum * v) : 0.0;
  return a > 0 ? static_cast<uint32_t>(std::min(a, 4e9)) : 0;
}

// Inlined into the layout's loop over families, as its parts' sorts are
// into it: one call a family instead of three.
__attribute__((always_inline)) inline void TTreemapProcessorImplementationCpp::sortFamily(
    const TTreemapNode& group, const TAreaInputs& in, std::vector<TKeyed>& scratch) {
  // A shown child is a group of tiles (inner) when it shows children of
  // its own; groups come first, each part sorted.
  auto larger = [](const TTreemapSlot& a, const TTreemapSlot& b) { return a.area > b.area; };
  auto before = [](const TKeyed& a, const TKeyed& b) {
    if (a.hasKey != b.hasKey) return !a.hasKey;
    return a.hasKey && a.key < b.key;
  };
  auto sortPart = [&](TTreemapSlot* begin, TTreemapSlot* end) __attribute__((always_inline)) {
    if (end - begin < 2) return;
    if (!in.order) {
      // A few items are sorted by insertion, in place, as the general
      // sort does them: ties keep the order they came in.
      if (end - begin > 16) return std::sort(begin, end, larger);
      for (TTreemapSlot* s = begin + 1; s != end; ++s) {
        const TTreemapSlot v = *s;
        TTreemapSlot* t = s;
        for (; t != begin && larger(v, t[-1]); --t) *t = t[-1];
        *t = v;
      }
      return;
    }
    scratch.clear();
    for (TTreemapSlot* s = begin; s != end; ++s) {
      bool found = false;
      const float key = in.order->getValueById(m_Nodes[s->node].nid, found);
      scratch.push_back({key, found, *s});
    }
    std::sort(scratch.begin(), scratch.end(), before);
    for (const TKeyed& k : scratch) *begin++ = k.slot;
  };
  TTreemapSlot* begin = m_Shown.data() + group.firstShown;
  TTreemapSlot* end = begin + group.shownCount;
  TTreemapSlot* split = std::partition(begin, end, [](const TTreemapSlot& c) { return c.inner(); });
  sortPart(begin, split);
  sortPart(split, end);
}

TTreemapProcessorImplementationCpp::TPieces TTreemapProcessorImplementationCpp::pieces() const {
  TPieces cut;
  const size_t count = m_Nodes.size();
  const size_t n = count < std::max<size_t>(m_TilesForTwoThreads, 2) ? 1 : 16;
  for (size_t k = 0; k <= n; ++k) cut.bounds.push_back(k * count / n);
  for (size_t k = 1; k < n; ++k)
    for (uint32_t a = m_Nodes[cut.bounds[k]].parent; a != TTreemapNode::kNone; a = m_Nodes[a].parent)
      cut.shared.push_back(a);
  std::sort(cut.shared.begin(), cut.shared.end());
  cut.shared.erase(std::unique(cut.shared.begin(), cut.shared.end()), cut.shared.end());
  return cut;
}

size_t TTreemapProcessorImplementationCpp::TPieces::pieceOf(size_t tile) const {
  return static_cast<size_t>(std::upper_bound(bounds.begin(), bounds.end() - 1, tile) - bounds.begin()) - 1;
}

void TTreemapProcessorImplementationCpp::computeAreas(const TPieces& cut, std::vector<TFamilies>& families) {
  const TAreaInputs in = areaInputs();
  const size_t count = m_Nodes.size();
  TTreemapNode* const nodes = m_Nodes.data();
  // Groups sum what their children add; the tile pass leaves every sum at
  // zero.
  if (!std::exchange(m_SumsClear, false))
    for (size_t i = 0; i < count; ++i) {
      nodes[i].area = nodes[i].shownCount = 0;
      // A group's rectangle is written by its parent's layout.
      if (nodes[i].hasChildren()) nodes[i].box = TLayoutBox{};
    }
  auto outOfOrder = [] {
    return std::runtime_error("TTreeMapRenderer: the tiles are not in the order of the hierarchy");
  };
  const size_t pieceCount = cut.size();
  // Shown children of the tiles of each piece, and the tiles whose parent
  // stands in an earlier piece, which join it after the pieces.
  std::vector<size_t> shownIn(pieceCount, 0);
  std::vector<std::vector<uint32_t>> later(pieceCount);
  auto addToParent = [&](size_t i) {
    const TTreemapNode& t = nodes[i];
    TTreemapNode& parent = nodes[t.parent];
    const uint32_t sum = parent.area + t.area;
    parent.area = sum < t.area ? 0xffffffffu : sum;
    parent.shownCount += t.area > 0;
    shownIn[cut.pieceOf(t.parent)] += t.area > 0;
  };
  // Children stand after their parents: going up from the last row every
  // tile has its sum when it comes, and adds it to its parent's. The
  // shared ancestors come after the pieces, the lowest last.
  runTasks(pieceCount, [&](size_t k, unsigned) {
    const size_t from = cut.bounds[k];
    auto shared = std::lower_bound(cut.shared.begin(), cut.shared.end(), cut.bounds[k + 1]);
    const auto sharedFrom = std::lower_bound(cut.shared.begin(), cut.shared.end(), from);
    size_t nextShared = shared == sharedFrom ? count : shared[-1];
    size_t shownHere = 0;
    std::vector<uint32_t> deferred;
    // Held in locals: a store to a tile could otherwise stand for them.
    TTreemapNode* const tiles = nodes;
    const size_t last = std::max<size_t>(from, 1);
    for (size_t i = cut.bounds[k + 1]; i-- > last;) {
      if (i == nextShared) {
        --shared;
        nextShared = shared == sharedFrom ? count : shared[-1];
        continue;
      }
      TTreemapNode& t = tiles[i];
      if (t.parent >= i) throw outOfOrder();
      // Without an area attribute every leaf weighs one, and the choice
      // takes no branch.
      const uint32_t area = !in.area          ? (t.hasChildren() ? t.area : 1u)
                            : t.hasChildren() ? t.area
                                              : leafArea(in, t.nid);
      t.area = area;
      if (t.parent < from) {
        deferred.push_back(static_cast<uint32_t>(i));
        continue;
      }
      TTreemapNode& parent = tiles[t.parent];
      const uint32_t sum = parent.area + area;
      parent.area = sum < area ? 0xffffffffu : sum;
      parent.shownCount += area > 0;
      shownHere += area > 0;
    }
    shownIn[k] += shownHere;
    later[k] = std::move(deferred);
  });
  for (const auto& tiles : later)
    for (uint32_t i : tiles) addToParent(i);
  for (size_t s = cut.shared.size(); s-- > 0;) {
    const uint32_t i = cut.shared[s];
    if (i == 0) break;
    if (nodes[i].parent >= i) throw outOfOrder();
    if (!nodes[i].hasChildren()) nodes[i].area = leafArea(in, nodes[i].nid);
    addToParent(i);
  }
  if (!nodes[0].hasChildren()) nodes[0].area = leafArea(in, nodes[0].nid);
  // Going down, each family gets its range, and each shown child a place
  // in its parent's from the end, so that a family holds its children
  // last first; they are sorted just before their parent's layout. A
  // parent has its range before its children come; a child whose parent
  // stands in an earlier piece takes its place after the pieces, piece by
  // piece, which keeps the order.
  std::vector<size_t> base(pieceCount + 1, 0);
  for (size_t k = 0; k < pieceCount; ++k) base[k + 1] = base[k] + shownIn[k];
  m_Shown.resize(base[pieceCount]);
  TTreemapSlot* const shown = m_Shown.data();
  auto place = [&](size_t i) {
    const TTreemapNode& t = nodes[i];
    TTreemapSlot& slot = shown[--nodes[t.parent].firstShown];
    slot.node = static_cast<uint32_t>(i);
    slot.group = t.shownCount > 0;
    slot.area = t.area;
  };
  families.resize(pieceCount);
  runTasks(pieceCount, [&](size_t k, unsigned) {
    const size_t from = cut.bounds[k];
    uint32_t cursor = static_cast<uint32_t>(base[k]);
    std::vector<uint32_t> deferred;
    TTreemapNode* const tiles = nodes;
    TTreemapSlot* const slots = shown;
    const size_t to = cut.bounds[k + 1];
    // The tiles with shown children, which the layout visits: written
    // at every tile, counted only at those.
    TFamilies& own = families[k];
    own.tiles.reset(new uint32_t[to - from]);
    uint32_t* const parents = own.tiles.get();
    size_t parentCount = 0;
    for (size_t i = from; i < to; ++i) {
      TTreemapNode& t = tiles[i];
      cursor += t.shownCount;
      t.firstShown = cursor;
      parents[parentCount] = static_cast<uint32_t>(i);
      parentCount += t.shownCount > 0;
      if (i == 0 || t.area == 0) continue;
      if (t.parent < from) {
        deferred.push_back(static_cast<uint32_t>(i));
        continue;
      }
      TTreemapSlot& slot = slots[--tiles[t.parent].firstShown];
      slot.node = static_cast<uint32_t>(i);
      slot.group = t.shownCount > 0;
      slot.area = t.area;
    }
    later[k] = std::move(deferred);
    own.count = parentCount;
  });
  for (const auto& tiles : later)
    for (uint32_t i : tiles) place(i);
}

void TTreemapProcessorImplementationCpp::layout() {
  const float w = m_Converter->width, h = m_Converter->height;
  const float m = std::max(w, h);
  if (!(m > 0)) return;
  m_Unit = m;
  const TPieces cut = pieces();
  std::vector<TFamilies> families;
  computeAreas(cut, families);
  m_Nodes[0].box = TLayoutBox{0, 0, w / m, h / m};
  // A group's rectangle is written by its parent's layout, which comes
  // first going down the list.
  const TAreaInputs in = areaInputs();
  // A family is sorted just before it is laid out, while it is in cache.
  auto layoutFamily = [this, &in](const TTreemapNode& n, std::vector<TKeyed>& scratch) {
    if (n.shownCount == 0) return;
    if (n.shownCount > 1) sortFamily(n, in, scratch);
    layoutChildren(n);
  };
  // The shared ancestors first: then every other tile has its parent, and
  // writes its children, in its own piece.
  for (uint32_t a : cut.shared) layoutFamily(m_Nodes[a], m_KeyScratch);
  runTasks(cut.size(), [&](size_t k, unsigned) {
    const size_t from = cut.bounds[k];
    auto skip = std::lower_bound(cut.shared.begin(), cut.shared.end(), from);
    std::vector<TKeyed> keys;
    const uint32_t* const parents = families[k].tiles.get();
    for (size_t f = 0; f < families[k].count; ++f) {
      const uint32_t i = parents[f];
      while (skip != cut.shared.end() && *skip < i) ++skip;
      if (skip != cut.shared.end() && *skip == i) continue;
      layoutFamily(m_Nodes[i], keys);
    }
  });
  m_Nodes[0].toosmall = std::min(w, h) < m_SmallestSide;
}

size_t TTreemapProcessorImplementationCpp::stateBytes() const {
  return m_Nodes.capacity() * sizeof(TTreemapNode) + m_Shown.capacity() * sizeof(TTreemapSlot) +
         m_KeyScratch.capacity() * sizeof(TKeyed);
}

// Inlined where rows close: a call for each row, a few tiles long, had
// the layout's whole state saved and loaded again around it.
__attribute__((always_inline)) inline void TTreemapProcessorImplementationCpp::layoutRow(const TTreemapRect& strip,
                                                                                         size_t first, size_t count,
                                                                                         int a, float k) {
  const int b = strip.length(0) < strip.length(1) ? 1 : 0;
  const float across = strip.length(1 - b);
  if (!(across > 0) || count == 0) return;
  // In locals: a store to a tile's flag could stand for any member, and
  // they would be read again after each.
  const TTreemapSlot* const slots = m_Shown.data();
  TTreemapNode* const nodes = m_Nodes.data();
  const float unit = m_Unit, smallest = m_SmallestSide;
  // Along x the row goes in order. Along y the groups that lead the row
  // come first, then the rest, each part in reverse.
  size_t inner = 0;
  if (a != 1) {
    size_t leading = 1;
    for (size_t j = first; j < first + count; ++j) inner += leading &= slots[j].group;
  }
  const size_t last = first + count - 1;
  const bool alongX = b == 1;
  const float to = strip.hi(b);
  float pos = strip.lo(b);
  for (size_t p = 0; p < count; ++p) {
    const size_t j = a == 1 ? first + p : p < inner ? first + inner - 1 - p : last + inner - p;
    const TTreemapSlot& slot = slots[j];
    TTreemapNode& n = nodes[slot.node];
    const float end = p + 1 == count ? to : pos + static_cast<float>(slot.area) * k / across;
    const float x0 = alongX ? pos : strip.x0, x1 = alongX ? end : strip.x1;
    const float y0 = alongX ? strip.y0 : pos, y1 = alongX ? strip.y1 : end;
    n.box = TLayoutBox{x0, y0, x1, y1};
    // Sizes in pixels: the unit is the longer side of the canvas.
    n.toosmall = std::min(x1 - x0, y1 - y0) * unit < smallest;
    pos = end;
  }
}

void TTreemapProcessorImplementationCpp::layoutChildren(const TTreemapNode& node) {
  TTreemapRect r{node.box.y0, node.box.y1, node.box.x0, node.box.x1};
  if (r.y1 <= r.y0 || node.area == 0) return;
  auto axisOf = [](const TTreemapRect& q) { return q.length(0) < q.length(1) ? 1 : 0; };
  int a = axisOf(r);
  const float k = r.length(0) * r.length(1) / static_cast<float>(node.area);
  float side = r.length(1 - a);
  float lo = r.lo(a), hi = r.hi(a);
  const TTreemapSlot* const slots = m_Shown.data();
  const TTreemapNode* const nodes = m_Nodes.data();
  const size_t first = node.firstShown;
  size_t rowStart = first, rowCount = 0;
  double rowArea = 0;
  double best = 1e10;
  // The row's smallest and largest item: they give its worst ratio.
  double minU = 0, maxU = 0;
  auto thickness = [&](double area) { return static_cast<float>(area * k / side); };
  // An only child fills its parent, as the rows below would make it.
  if (node.shownCount == 1) {
    if (side > 0) layoutRow(r, first, 1, a, k);
    return;
  }
  for (size_t j = first; j < first + node.shownCount && side > 0; ++j) {
    const double A = slots[j].area;
    // Its tile is written when the row closes.
    __builtin_prefetch(&nodes[slots[j].node].box, 1);
    rowArea += A;
    if (!(rowArea > 0)) {
      ++rowCount;
      continue;
    }
    const double L = rowArea * k / side;
    const double u = A * static_cast<double>(k);
    const double lo_u = rowCount == 0 ? u : std::min(minU, u), hi_u = rowCount == 0 ? u : std::max(maxU, u);
    const double worst = std::max(hi_u / (L * L), (L * L) / lo_u);
    if (worst <= best) {
      best = worst;
      ++rowCount;
      minU = lo_u;
      maxU = hi_u;
      continue;
    }
    // The row without this item is closed into a strip.
    const float Lc = thickness(rowArea - A);
    TTreemapRect strip = r;
    if (a == 1) {
      strip.x1 = std::min(lo + Lc, hi);
      layoutRow(strip, rowStart, rowCount, a, k);
      r.x0 = strip.x1;
    } else {
      strip.y0 = std::max(hi - Lc, lo);
      layoutRow(strip, rowStart, rowCount, a, k);
      r.y1 = strip.y0;
    }
    a = axisOf(r);
    side = r.length(1 - a);
    lo = r.lo(a);
    hi = r.hi(a);
    rowStart = j;
    rowCount = 1;
    rowArea = A;
    best = 1e10;
    minU = maxU = A * static_cast<double>(k);
  }
  if (side > 0 && rowCount > 0) layoutRow(r, rowStart, rowCount, a, k);
}

template <class F>
void TTreemapProcessorImplementationCpp::eachShown(F f) const {
  if (!hasRoot()) return;
  std::vector<uint32_t> queue{0};
  for (size_t head = 0; head < queue.size(); ++head) {
    const uint32_t i = queue[head];
    f(i);
    for (uint32_t c : shown(m_Nodes[i])) queue.push_back(c);
  }
}

const TTreemapNode* TTreemapProcessorImplementationCpp::findByLft(uint32_t lft) const {
  if (!m_Rows || m_Rows->m_Rows.size() < m_Nodes.size()) return nullptr;
  const auto begin = m_Rows->m_Rows.begin(), end = begin + static_cast<std::ptrdiff_t>(m_Nodes.size());
  auto it = std::lower_bound(begin, end, lft, [](const THierarchyRow& r, uint32_t v) { return r.lft < v; });
  return it != end && it->lft == lft ? &m_Nodes[static_cast<size_t>(it - begin)] : nullptr;
}

const TNodeVisual* TTreemapProcessorImplementationCpp::visualOfLft(uint32_t lft) {
  const TTreemapNode* n = findByLft(lft);
  return n ? &visualOf(*n) : nullptr;
}

const TNodeVisual& TTreemapProcessorImplementationCpp::visualOf(const TTreemapNode& n) {
  m_Scratch.box = n.box;
  m_Scratch.anchor = {(n.box.x0 + n.box.x1) * 0.5f, (n.box.y0 + n.box.y1) * 0.5f};
  m_Scratch.width = m_Converter ? m_Converter->getWidth(n.box) : 0;
  m_Scratch.height = m_Converter ? m_Converter->getHeight(n.box) : 0;
  m_Scratch.segments = 2;
  m_Scratch.visible = true;
  return m_Scratch;
}

TVisualNode TTreemapProcessorImplementationCpp::recordOf(const TTreemapNode& n) {
  TVisualNode v;
  const THierarchyRow& row = m_Rows->m_Rows[static_cast<size_t>(&n - m_Nodes.data())];
  v.nid = n.nid;
  v.lft = row.lft;
  v.rgt = row.rgt;
  v.level = n.level;
  v.collapsed = n.collapsed();
  v.toosmall = n.toosmall;
  v.current = visualOf(n);
  return v;
}

std::vector<uint32_t> TTreemapProcessorImplementationCpp::highestIn(const TIntegerSetData* set) const {
  std::vector<uint32_t> found;
  if (!set || !hasRoot()) return found;
  std::vector<uint32_t> queue{0};
  for (size_t head = 0; head < queue.size(); ++head) {
    const uint32_t i = queue[head];
    if (set->contains(m_Nodes[i].nid)) {
      found.push_back(i);
      continue;
    }
    for (uint32_t c : shown(m_Nodes[i])) queue.push_back(c);
  }
  return found;
}

void TTreemapProcessorImplementationCpp::renderNodes() {
  if (!hasRoot()) return;
  TDrawSink& gl = *m_Sink;
  // Layers lie on each other at one depth.
  gl.enable(TDrawSink::DepthTest, false);
  gl.enable(TDrawSink::Blend, false);
  gl.color(0, 0, 0, 1);
  renderNodeCell(visualOf(m_Nodes[0]));
  if (!m_Picking) {
    gl.enable(TDrawSink::Texture2D, true);
    gl.enable(TDrawSink::Blend, true);
    gl.blendFunc(TDrawSink::OneOne);
    gl.bindTexture(m_Renderer ? m_Renderer->cushionTexture() : 0);
    gl.textureModulate();
  }
  // One cushion layer per level; a tile without children counts as many
  // layers as one on the deepest level.
  gl.pushName(kPickNode);
  gl.pushName(0);
  const float g = 0.7f / static_cast<float>(std::max<uint32_t>(m_MaxLevel, 1)) + 0.3f;
  gl.color(g, g, g, 1);
  eachShown([&](uint32_t i) {
    const TTreemapNode& n = m_Nodes[i];
    const uint32_t last = n.shownCount > 0 ? n.level : std::max<uint32_t>(m_MaxLevel, n.level);
    const TNodeVisual& v = visualOf(n);
    for (uint32_t l = n.level; l <= last; ++l) {
      gl.loadName(l);
      gl.pushName(n.nid);
      renderNodeCell(v);
      gl.popName();
    }
  });
  gl.popName();
  gl.popName();
  if (!m_Picking) {
    // The colours multiply what the cushions left.
    gl.pushName(kPickNode);
    gl.pushName(0);
    gl.blendFunc(TDrawSink::ZeroSrcColor);
    TVector4 color(0, 0, 0, 1);
    eachShown([&](uint32_t i) {
      const TTreemapNode& n = m_Nodes[i];
      if (n.shownCount > 0) return;
      const TVisualNode record = recordOf(n);
      getNodeColor(record, color);
      renderNodeCell(record.current, &color);
    });
    gl.popName();
    gl.popName();
  }
  gl.enable(TDrawSink::Texture2D, false);
  gl.enable(TDrawSink::Blend, false);
  if (m_Picking) return;

  TTreemapProcessorCpp* p = treemap();
  const std::vector<uint32_t> g1 = highestIn(dataAs<TIntegerSetData>(p->m_Flatten).get());
  const std::vector<uint32_t> g2 = highestIn(dataAs<TIntegerSetData>(p->m_Flatten2).get());
  gl.lineWidth(1);
  gl.enable(TDrawSink::Blend, true);
  gl.blendFunc(TDrawSink::SrcAlphaOneMinusSrcAlpha);
  gl.enable(TDrawSink::LineSmooth, true);
  gl.color(1, 1, 0, 1);
  for (uint32_t i : g2) renderNodeOutline(visualOf(m_Nodes[i]), 0);
  gl.lineWidth(2);
  gl.color(0.9f, 0.9f, 0.9f, 1);
  for (uint32_t i : g1) renderNodeOutline(visualOf(m_Nodes[i]), 0);
  gl.lineWidth(1);
  gl.enable(TDrawSink::LineSmooth, false);
  if (m_TextAttribute) {
    gl.enable(TDrawSink::Texture2D, true);
    gl.color(0, 0, 0, 1);
    for (uint32_t i : g2) {
      const TVisualNode record = recordOf(m_Nodes[i]);
      renderNodeLabel(record, record.current, 1.0f);
    }
    // The large labels of the groups over their shadows.
    gl.color(0, 0, 0, 0.2f);
    m_LabelOffsetX = m_LabelOffsetY = 2;
    for (uint32_t i : g1) {
      const TVisualNode record = recordOf(m_Nodes[i]);
      renderNodeLabel(record, record.current, 2.0f);
    }
    m_LabelOffsetX = m_LabelOffsetY = 0;
    gl.color(1, 1, 1, 1);
    for (uint32_t i : g1) {
      const TVisualNode record = recordOf(m_Nodes[i]);
      renderNodeLabel(record, record.current, 2.0f);
    }
    gl.enable(TDrawSink::Texture2D, false);
  }
  gl.enable(TDrawSink::Blend, false);
}


void registerTreemapCore() { TProcessorRegistry::instance().add<TTreemapProcessorCpp>(); }

}  // namespace quorvel
