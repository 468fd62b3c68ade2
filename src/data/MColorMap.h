// Colour maps: a number in 0 to 1, or a nominal text, to a colour; and the
// value on pins that pairs a map with a clamp range.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/MFlowObjects.h"

namespace quorvel {

class TColorMap {
 public:
  virtual ~TColorMap() = default;
  // Writes the colour for v into color (red, green, blue, alpha).
  virtual void getColor(float v, TVector4& color) = 0;
  virtual void getColorForNominal(const std::string& text, TVector4& color);
  virtual std::string getName() = 0;
  virtual bool acceptsNominalValues() { return false; }
};

using TColorMapPtr = std::shared_ptr<TColorMap>;

// Dark blue through green to dark red.
class TColorMap_Rainbow : public TColorMap {
 public:
  void getColor(float v, TVector4& color) override;
  std::string getName() override { return "rainbow"; }
};

// The upper half of the rainbow.
class TColorMap_GreenYellowRed : public TColorMap {
 public:
  void getColor(float v, TVector4& color) override;
  std::string getName() override { return "green-red"; }
};

// A grey that never reaches black.
class TColorMap_Monochrome : public TColorMap {
 public:
  void getColor(float v, TVector4& color) override;
  std::string getName() override { return "monochrome"; }
};

class TColorMap_BlueYellow : public TColorMap {
 public:
  void getColor(float v, TVector4& color) override;
  std::string getName() override { return "blue-yellow"; }
};

// Colours for the kinds of program elements.
class TColorMap_TypeNames : public TColorMap {
 public:
  // A number leaves the colour as it is.
  void getColor(float, TVector4&) override {}
  void getColorForNominal(const std::string& text, TVector4& color) override;
  std::string getName() override { return "type colormap"; }
  bool acceptsNominalValues() override { return true; }
  std::string getType() const { return "nominal"; }
  std::vector<std::string> iterkeys() const;
};

class TColorMapData : public TAbstractData {
 public:
  QV_CLASS_NAME(TColorMapData)
  TColorMapData() = default;
  TColorMapData(const std::string& name, TColorMapPtr map, float clampminimum = 0.0f, float clampmaximum = 1.0f)
      : m_ColorMap(std::move(map)), m_ClampMinimum(clampminimum), m_ClampMaximum(clampmaximum) {
    m_KeyName = name;
  }
  TColorMapPtr m_ColorMap;
  float m_ClampMinimum = 0.0f;
  float m_ClampMaximum = 1.0f;

  const TColorMapPtr& getColorMap() const { return m_ColorMap; }
  // v through the clamp range into 0 to 1, then the map.
  void getColor(float v, TVector4& color) const;
  // The clamp step alone.
  float clamp(float v) const;
  void getColorForNominal(const std::string& text, TVector4& color) const;
  bool acceptsNominalValues() const { return m_ColorMap && m_ColorMap->acceptsNominalValues(); }
  float getClampMinimum() const { return m_ClampMinimum; }
  float getClampMaximum() const { return m_ClampMaximum; }
  std::string toString() const override { return m_ColorMap ? m_ColorMap->getName() : "no colormap"; }
};

// The four published maps, in the order the colour map loader gives them.
std::vector<std::shared_ptr<TColorMapData>> publishedColorMaps();

}  // namespace quorvel

#include "engine/MFlowObjects.h"

namespace quorvel {

// Sets the clamp range of a colour map: a new TColorMapData that shares the
// map, with the range of the `range` pin.
class TColormapRescaler : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TColormapRescaler)
  TPinPtr m_Colormap, m_Range, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "colormap rescaler"; }
  void process() override;
};

void registerColorMapClasses();

}  // namespace quorvel
