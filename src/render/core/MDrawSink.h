// Where the views' drawing code sends its primitives. The window library
// forwards them to OpenGL; tests record them. So what a view draws is
// computed, and can be checked, without a window.
#pragma once

#include <cstddef>

namespace quorvel {

class TDrawSink {
 public:
  enum Primitive { QuadStrip, LineLoop, LineStrip, Lines, Quads, Triangles, TriangleStrip, Polygon };
  enum State { Texture2D, Blend, DepthTest, LineSmooth, Lighting };
  enum BlendMode { SrcAlphaOneMinusSrcAlpha, OneOne, ZeroSrcColor };

  virtual ~TDrawSink() = default;
  virtual void begin(Primitive primitive) = 0;
  virtual void end() = 0;
  virtual void vertex(float x, float y) = 0;
  virtual void texCoord(float s, float t) = 0;
  virtual void color(float r, float g, float b, float a) = 0;
  virtual void color3(float r, float g, float b) = 0;
  virtual void pushName(unsigned name) = 0;
  virtual void loadName(unsigned name) = 0;
  virtual void popName() = 0;
  virtual void bindTexture(unsigned texture) = 0;
  // The texture modulates the current colour.
  virtual void textureModulate() = 0;
  virtual void enable(State state, bool on) = 0;
  virtual void blendFunc(BlendMode mode) = 0;
  virtual void lineWidth(float width) = 0;
  // Whether colours reach the picture; off, a shape only picks.
  virtual void colorMask(bool on) = 0;
  // A whole primitive of coloured vertices, as begin, then a colour and a
  // vertex each, then end: `xy` holds two floats a vertex, `rgba` four. The
  // current colour is the last one afterwards.
  virtual void coloredVertices(Primitive primitive, size_t count, const float* xy, const float* rgba) {
    begin(primitive);
    for (size_t i = 0; i < count; ++i) {
      color(rgba[4 * i], rgba[4 * i + 1], rgba[4 * i + 2], rgba[4 * i + 3]);
      vertex(xy[2 * i], xy[2 * i + 1]);
    }
    end();
  }
};

// A sink that ignores everything; sinks that look at a few calls only
// derive from it.
class TNullDrawSink : public TDrawSink {
 public:
  void begin(Primitive) override {}
  void end() override {}
  void vertex(float, float) override {}
  void texCoord(float, float) override {}
  void color(float, float, float, float) override {}
  void color3(float, float, float) override {}
  void pushName(unsigned) override {}
  void loadName(unsigned) override {}
  void popName() override {}
  void bindTexture(unsigned) override {}
  void textureModulate() override {}
  void enable(State, bool) override {}
  void blendFunc(BlendMode) override {}
  void lineWidth(float) override {}
  void colorMask(bool) override {}
};

}  // namespace quorvel
