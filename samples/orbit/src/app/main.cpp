#include <cstdio>
#include <memory>
#include <vector>

#include "../geometry/shape.h"

static void printArea(const Shape& s) {
  std::printf("%.2f\n", s.area());
}

static int depth(int n) {
  return n <= 1 ? 1 : 1 + depth(n / 2);
}

int main() {
  std::vector<std::unique_ptr<Shape>> shapes;
  shapes.push_back(std::make_unique<Circle>(2.0));
  shapes.push_back(std::make_unique<Square>(Vec2{3.0, 4.0}));
  for (const auto& s : shapes) printArea(*s);
  std::printf("%d\n", depth(64));
  return 0;
}
