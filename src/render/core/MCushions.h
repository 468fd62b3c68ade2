// The shading of cells: small textures computed from closed formulas that
// light each cell like a pillow from one side.
#pragma once

#include <vector>

namespace quorvel {

constexpr int kCushionTexels = 64;

// Brightness of a point of a parabolic cushion of width D and height h,
// lit from the angle alpha (degrees): x runs across the parabola, y from 0
// to 1 along it, darkening both ends.
float profile2D_01(float x, float y, float D, float h, float alpha, float l_ratio, float l_bias);
// The same parabola turned round the texture's centre.
float profile2D_06(int i, int j, float h, int texsz, float alpha, float l_ratio);
// v from a1..a2 onto b1..b2, clamped; b1 when a1 equals a2.
float rescale(float v, float a1, float a2, float b1, float b2);

std::vector<float> createCircularCushion(int size);
std::vector<float> createRectangularCushion(int size);
std::vector<float> doubleArray(const std::vector<float>& values);
std::vector<float> tripleArray(const std::vector<float>& values);
std::vector<unsigned char> float2char(const std::vector<float>& values);

// The cushion that the views bind: 64 by 64 texels of (luminance, alpha),
// row i across the cell, column j along it.
std::vector<float> parabolicCushionTexels();

}  // namespace quorvel
