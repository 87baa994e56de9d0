#pragma once
// Quartz geometry as neutral values: points, top-left origin, in screen points.

namespace tavlin::platform {

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
  Point origin;
  Size size;
  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace tavlin::platform
