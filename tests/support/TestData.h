// Hierarchies and columns for tests, written as parent links and rows.
#pragma once

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "data/MAttributes.h"
#include "data/MHierarchy.h"

namespace quorvel::test {

// A hierarchy from (node, parent) links in child order, parent 0 for the
// real root, numbered as the loader numbers: the synthetic root 1, the real
// root 2, and so on.
inline std::shared_ptr<THierarchyData> tree(const std::vector<std::pair<uint32_t, uint32_t>>& links) {
  std::map<uint32_t, std::vector<uint32_t>> children;
  uint32_t root = 0;
  for (const auto& [node, parent] : links) {
    if (parent == 0) root = node;
    else children[parent].push_back(node);
  }
  std::vector<THierarchyRow> rows{{0, 1, 0}};
  uint32_t next = 2;
  std::vector<std::pair<uint32_t, size_t>> stack;  // node, child index
  auto enter = [&](uint32_t nid) {
    rows.push_back({nid, next++, 0});
    stack.emplace_back(nid, 0);
  };
  std::vector<size_t> rowOf;
  enter(root);
  rowOf.push_back(1);
  while (!stack.empty()) {
    auto& [nid, i] = stack.back();
    const auto& kids = children[nid];
    if (i < kids.size()) {
      const uint32_t child = kids[i++];
      enter(child);
      rowOf.push_back(rows.size() - 1);
      continue;
    }
    rows[rowOf.back()].rgt = next++;
    rowOf.pop_back();
    stack.pop_back();
  }
  rows[0].rgt = next;
  auto h = std::make_shared<THierarchyData>("hierarchy 1");
  for (const auto& r : rows) h->addRow(r.nid, r.lft, r.rgt);
  return h;
}

template <class Column, class V>
std::shared_ptr<Column> column(const std::string& key, const std::vector<std::pair<uint32_t, V>>& rows) {
  auto c = std::make_shared<Column>(key);
  for (const auto& [id, v] : rows) c->addRow(id, v);
  return c;
}

inline std::shared_ptr<TIntegerSetData> ids(std::initializer_list<uint32_t> list) {
  auto s = std::make_shared<TIntegerSetData>();
  for (uint32_t id : list) s->add(id);
  s->m_HasChanged = false;
  return s;
}

}  // namespace quorvel::test
