#include "vector.h"

// Vec2 is header-only; this unit keeps the library non-empty.
Vec2 unitX() {
  return Vec2{1.0, 0.0};
}
