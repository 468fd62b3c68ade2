#include "shape.h"

double Circle::area() const {
  return 3.14159265358979 * radius * radius;
}

double Square::area() const {
  return corner.length() * corner.length() / 2.0;
}
