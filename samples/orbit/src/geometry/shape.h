// Shapes with an area.
#pragma once

#include "vector.h"

class Shape {
 public:
  virtual ~Shape() = default;
  virtual double area() const = 0;
};

class Circle : public Shape {
 public:
  explicit Circle(double r) : radius(r) {}
  double area() const override;
  double radius;
};

class Square : public Shape {
 public:
  explicit Square(Vec2 corner) : corner(corner) {}
  double area() const override;
  Vec2 corner;
};
