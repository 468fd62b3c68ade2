#include "MCushions.h"

#include <algorithm>
#include <cmath>

namespace quorvel {

namespace {

// Lambert's law on the parabola z = a x^2 + b x of height h over 0..D, lit
// from alpha degrees: the cosine between the light and the normal, at most 1.
double parabolaLight(double x, double D, double h, double alpha) {
  const double a_rad = M_PI * alpha / 180.0;
  const double a = -4.0 * h / (D * D);
  const double b = 4.0 * h / D;
  const double r = (-(2.0 * a * x + b) * std::cos(a_rad) + std::sin(a_rad)) /
                   std::sqrt(4.0 * a * a * x * x + 4.0 * a * b * x + b * b + 1.0);
  return std::min(r, 1.0);
}

}  // namespace

float profile2D_01(float x, float y, float D, float h, float alpha, float l_ratio, float l_bias) {
  const double r1 = parabolaLight(x, D, h, alpha);
  const double u = 2.0 * y - 1.0;
  const double r2 = std::min(std::sqrt(std::max(0.0, 1.0 - u * u)), 1.0);
  return static_cast<float>(r1 * r2 * l_ratio + l_bias);
}

float profile2D_06(int i, int j, float h, int texsz, float alpha, float l_ratio) {
  const double R = texsz / 2.0;
  const double x = R - std::hypot(i - R, j - R);
  return static_cast<float>(l_ratio * parabolaLight(x, texsz, static_cast<double>(h) * texsz, alpha));
}

float rescale(float v, float a1, float a2, float b1, float b2) {
  if (a2 == a1) return b1;
  const float r = ((v - a1) / (a2 - a1)) * (b2 - b1) + b1;
  if (r < b1) return b1;
  if (r > b2) return b2;
  return r;
}

std::vector<float> createCircularCushion(int size) {
  std::vector<float> out;
  out.reserve(static_cast<size_t>(size) * static_cast<size_t>(size));
  const double c = size / 2.0;
  for (int i = 0; i < size; ++i)
    for (int j = 0; j < size; ++j) {
      const double dist = std::hypot(i - c, j - c) / size;
      out.push_back(rescale(static_cast<float>(1.0 - dist * dist), 0, 1, 0, 1));
    }
  return out;
}

std::vector<float> createRectangularCushion(int size) {
  std::vector<float> out;
  out.reserve(static_cast<size_t>(size) * static_cast<size_t>(size));
  const double corners[4][2] = {{0, 0}, {double(size), 0}, {0, double(size)}, {double(size), double(size)}};
  for (int i = 0; i < size; ++i)
    for (int j = 0; j < size; ++j) {
      double nearest = 1e300;
      for (const auto& c : corners) nearest = std::min(nearest, std::hypot(i - c[0], j - c[1]) / size);
      const double dist = 1.0 - nearest;
      out.push_back(rescale(static_cast<float>(1.0 - dist * dist), 0, 1, 0, 1));
    }
  return out;
}

std::vector<float> doubleArray(const std::vector<float>& values) {
  std::vector<float> out;
  out.reserve(values.size() * 2);
  for (float v : values) out.insert(out.end(), 2, v);
  return out;
}

std::vector<float> tripleArray(const std::vector<float>& values) {
  std::vector<float> out;
  out.reserve(values.size() * 3);
  for (float v : values) out.insert(out.end(), 3, v);
  return out;
}

std::vector<unsigned char> float2char(const std::vector<float>& values) {
  std::vector<unsigned char> out;
  out.reserve(values.size());
  for (float v : values) out.push_back(static_cast<unsigned char>(static_cast<int>(v * 255.0f)));
  return out;
}

std::vector<float> parabolicCushionTexels() {
  constexpr int n = kCushionTexels;
  std::vector<float> out;
  out.reserve(n * n * 2);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      const float y = static_cast<float>(j) / n;
      out.push_back(profile2D_01(static_cast<float>(i), y, n, 0.15f * n, 116, 0.4f, 0.6f));
      out.push_back(1.0f - profile2D_01(static_cast<float>(i), y, n, 0.5f * n, 90, 0.8f, 0.0f));
    }
  return out;
}

}  // namespace quorvel
