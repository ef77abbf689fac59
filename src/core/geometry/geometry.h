// Points, sizes and rectangles in points (64-bit). Which way y grows is the caller's
// convention: views count from the top left, screens as the desktop reports them.
#pragma once

#include <algorithm>
#include <cmath>

namespace zorvane {

struct Point {
  double x = 0, y = 0;

  friend Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
  friend Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
  friend Point operator*(Point a, double s) { return {a.x * s, a.y * s}; }
  friend bool operator==(Point, Point) = default;
  double length() const { return std::hypot(x, y); }
};

struct Size {
  double width = 0, height = 0;
  friend bool operator==(Size, Size) = default;
};

struct Rect {
  double x = 0, y = 0, width = 0, height = 0;

  double minX() const { return x; }
  double minY() const { return y; }
  double maxX() const { return x + width; }
  double maxY() const { return y + height; }
  Point origin() const { return {x, y}; }
  Size size() const { return {width, height}; }
  // No area: a rectangle that covers no point.
  bool isEmpty() const { return !(width > 0 && height > 0); }

  Rect insetBy(double dx, double dy) const { return {x + dx, y + dy, width - 2 * dx, height - 2 * dy}; }
  Rect grownBy(double d) const { return insetBy(-d, -d); }
  bool contains(Point p) const { return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY(); }

  // The common part, or nothing when the two don't overlap.
  friend bool intersect(const Rect& a, const Rect& b, Rect& out) {
    double x0 = std::max(a.minX(), b.minX()), y0 = std::max(a.minY(), b.minY());
    double x1 = std::min(a.maxX(), b.maxX()), y1 = std::min(a.maxY(), b.maxY());
    if (x1 < x0 || y1 < y0) return false;
    out = {x0, y0, x1 - x0, y1 - y0};
    return true;
  }
  friend Rect unite(const Rect& a, const Rect& b) {
    double x0 = std::min(a.minX(), b.minX()), y0 = std::min(a.minY(), b.minY());
    double x1 = std::max(a.maxX(), b.maxX()), y1 = std::max(a.maxY(), b.maxY());
    return {x0, y0, x1 - x0, y1 - y0};
  }
  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace zorvane
