#pragma once
// A simulated desktop whose one window holds a long table (rows of nine cells), like a
// long list in a real application; the window's tree has exactly `elements` elements.
// Every `valueEvery`-th element has a value (the rest support none), as in real windows
// where only some elements carry text.
#include <string>

#include <nlohmann/json.hpp>

namespace tavlin::bench {

inline nlohmann::ordered_json bigListDesktop(int elements, int valueEvery = 1) {
  using nlohmann::ordered_json;
  const int cellsPerRow = 9;
  ordered_json rows = ordered_json::array();
  int made = 1;  // the window
  for (int r = 0; made < elements; ++r) {
    ordered_json cells = ordered_json::array();
    ++made;
    for (int c = 0; c < cellsPerRow && made < elements; ++c, ++made) {
      ordered_json cell = {{"role", "AXStaticText"},
                           {"position", {10 + c * 80, 40 + (r % 40) * 20}},
                           {"size", {80, 20}},
                           {"enabled", true}};
      if (made % valueEvery == 0) cell["value"] = "Row " + std::to_string(r) + " cell " + std::to_string(c);
      cells.push_back(cell);
    }
    rows.push_back({{"role", "AXRow"}, {"actions", {"AXShowMenu"}}, {"children", cells}});
  }
  ordered_json window = {{"id", "window"}, {"role", "AXWindow"}, {"title", "Big list"},
                         {"position", {0, 25}}, {"size", {800, 600}}, {"children", rows}};
  return {{"tavlinDesktop", 1},
          {"frontmostPid", 10},
          {"apps", {{{"pid", 10}, {"name", "Lister"}, {"ui", {{"role", "AXApplication"}, {"children", {window}}}}}}},
          {"windows", {{{"number", 5}, {"pid", 10}, {"bounds", {0, 25, 800, 600}}, {"name", "Big list"}}}}};
}

}  // namespace tavlin::bench
