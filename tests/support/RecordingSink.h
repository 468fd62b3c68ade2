// A draw sink that records what a view draws: primitives with their
// vertices, texture coordinates, colours and the name stack.
#pragma once

#include <algorithm>
#include <vector>

#include "engine/MFlowObjects.h"
#include "render/core/MDrawSink.h"

namespace quorvel::test {

// Records what a view draws.
struct TRecordingSink : TNullDrawSink {
  struct Primitive {
    TDrawSink::Primitive kind;
    std::vector<TVector2> vertices;
    std::vector<TVector2> texcoords;
    std::vector<unsigned> names;
    std::vector<TVector4> colors;
  };
  TVector4 current;
  std::vector<Primitive> prims;
  std::vector<unsigned> names;
  void begin(TDrawSink::Primitive p) override { prims.push_back({p, {}, {}, names}); }
  void vertex(float x, float y) override {
    prims.back().vertices.emplace_back(x, y);
    prims.back().colors.push_back(current);
  }
  void texCoord(float s, float t) override { prims.back().texcoords.emplace_back(s, t); }
  void color(float r, float g, float b, float a) override { current = {r, g, b, a}; }
  void color3(float r, float g, float b) override { current = {r, g, b, 1}; }
  void pushName(unsigned n) override { names.push_back(n); }
  void loadName(unsigned n) override { names.back() = n; }
  void popName() override { names.pop_back(); }
  size_t count(TDrawSink::Primitive kind) const {
    return static_cast<size_t>(std::count_if(prims.begin(), prims.end(), [&](auto& p) { return p.kind == kind; }));
  }
};

}  // namespace quorvel::test
