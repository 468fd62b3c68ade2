#include "MColorMap.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>

#include "engine/MFlowObjects.h"

namespace quorvel {

void TColorMap::getColorForNominal(const std::string&, TVector4&) {}

namespace {

float limit(float v) { return std::isnan(v) ? 0.0f : std::clamp(v, 0.0f, 1.0f); }

void rainbow(float v, TVector4& c) {
  v = limit(v);
  const float t = 4.4f * v + 0.8f;
  c.x = std::max(0.0f, 0.4f * (3.0f - std::fabs(t - 4.0f) - std::fabs(t - 5.0f)));
  c.y = std::max(0.0f, 0.4f * (4.0f - std::fabs(t - 2.0f) - std::fabs(t - 4.0f)));
  c.z = std::max(0.0f, 0.4f * (3.0f - std::fabs(t - 1.0f) - std::fabs(t - 2.0f)));
  c.w = 1.0f;
}

struct Rgb {
  float r, g, b;
};

const std::map<std::string, Rgb>& typeColors() {
  static const std::map<std::string, Rgb> table = [] {
    std::map<std::string, Rgb> t;
    auto bytes = [&t](std::initializer_list<const char*> keys, int r, int g, int b) {
      for (const char* k : keys) t[k] = {r / 255.0f, g / 255.0f, b / 255.0f};
    };
    auto fractions = [&t](std::initializer_list<const char*> keys, float r, float g, float b) {
      for (const char* k : keys) t[k] = {r, g, b};
    };
    bytes({"class", "type"}, 255, 203, 35);
    bytes({"struct", "union"}, 240, 218, 155);
    bytes({"primitive", "interface", "array", "enum"}, 240, 163, 15);
    bytes({"method", "constructor"}, 250, 152, 251);
    bytes({"function"}, 250, 195, 251);
    bytes({"field", "property"}, 113, 182, 241);
    bytes({"variable"}, 174, 210, 241);
    bytes({"constant"}, 135, 159, 50);
    fractions({"file"}, 0.6f, 0.6f, 0.6f);
    fractions({"folder", "assembly", "module", "namespace", "package"}, 0.5f, 0.5f, 0.5f);
    fractions({"macro"}, 0.6f, 0.7f, 0.6f);
    fractions({"typedef"}, 0.5f, 0.7f, 0.5f);
    return t;
  }();
  return table;
}

}  // namespace

void TColorMap_Rainbow::getColor(float v, TVector4& color) { rainbow(v, color); }

void TColorMap_GreenYellowRed::getColor(float v, TVector4& color) { rainbow((v + 1.0f) * 0.5f, color); }

void TColorMap_Monochrome::getColor(float v, TVector4& color) {
  const float g = 0.9f * v + 0.1f;
  color = TVector4(g, g, g, 1.0f);
}

void TColorMap_BlueYellow::getColor(float v, TVector4& color) { color = TVector4(v, v, 1.0f - v, 1.0f); }

void TColorMap_TypeNames::getColorForNominal(const std::string& text, TVector4& color) {
  std::string key = text;
  for (char& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const auto& table = typeColors();
  auto it = table.find(key);
  const Rgb& rgb = it != table.end() ? it->second : table.at("folder");
  color.x = rgb.r;
  color.y = rgb.g;
  color.z = rgb.b;
}

std::vector<std::string> TColorMap_TypeNames::iterkeys() const {
  std::vector<std::string> keys;
  for (const auto& [k, v] : typeColors()) keys.push_back(k);
  return keys;
}

float TColorMapData::clamp(float v) const {
  v -= m_ClampMinimum;
  const float range = m_ClampMaximum - m_ClampMinimum;
  if (std::fabs(range) < 0.0001f)
    v = 0.0f;
  else
    v /= range;
  return limit(v);
}

void TColorMapData::getColor(float v, TVector4& color) const {
  if (m_ColorMap) m_ColorMap->getColor(clamp(v), color);
}

void TColorMapData::getColorForNominal(const std::string& text, TVector4& color) const {
  if (m_ColorMap) m_ColorMap->getColorForNominal(text, color);
}

std::vector<std::shared_ptr<TColorMapData>> publishedColorMaps() {
  return {std::make_shared<TColorMapData>("GreenYellowRed", std::make_shared<TColorMap_GreenYellowRed>()),
          std::make_shared<TColorMapData>("Rainbow", std::make_shared<TColorMap_Rainbow>()),
          std::make_shared<TColorMapData>("BlueYellow", std::make_shared<TColorMap_BlueYellow>()),
          std::make_shared<TColorMapData>("Types", std::make_shared<TColorMap_TypeNames>())};
}

}  // namespace quorvel

#include "data/MValues.h"
#include "engine/MRegistry.h"

namespace quorvel {

void TColormapRescaler::postCreate() {
  m_Colormap = addInputPin<TColorMapData>("colormap");
  m_Range = addInputPin<TFloatPairData>("range");
  m_Out = addOutputPin<TColorMapData>("out");
}

void TColormapRescaler::process() {
  if (requireData({m_Colormap, m_Range})) {
    auto map = dataAs<TColorMapData>(m_Colormap);
    auto range = dataAs<TFloatPairData>(m_Range);
    m_Out->setData(std::make_shared<TColorMapData>(m_Colormap->getKeyText(), map->m_ColorMap, range->getFirst(),
                                                   range->getSecond()));
  }
  resetPins({});
}

void registerColorMapClasses() {
  TDataRegistry::instance().addAbstract("TColorMapData", "TAbstractData");
  TProcessorRegistry::instance().add<TColormapRescaler>();
}

}  // namespace quorvel
