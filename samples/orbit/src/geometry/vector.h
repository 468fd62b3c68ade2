// A two-dimensional vector.
#pragma once

#include <cmath>

struct Vec2 {
  double x = 0.0;
  double y = 0.0;

  double length() const {
    return std::sqrt(x * x + y * y);
  }
};
