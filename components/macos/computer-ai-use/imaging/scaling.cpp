#include "imaging/scaling.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace tavlin::imaging {

std::pair<int, int> fittedSize(int width, int height, int maxDimension) {
  int longer = std::max(width, height);
  if (maxDimension <= 0 || longer <= maxDimension) return {width, height};
  double factor = static_cast<double>(maxDimension) / longer;
  auto side = [&](int v) { return std::clamp(static_cast<int>(std::lround(v * factor)), 1, std::max(v, 1)); };
  return {side(width), side(height)};
}

namespace {

// How one axis shrinks: for each target pixel, the source pixels it covers and how much
// of each (fractions of a source pixel, adding up to the target pixel's span).
struct Axis {
  std::vector<int> first, count;
  std::vector<size_t> offset;  // into weights
  std::vector<float> weights;
  std::vector<float> total;  // the weights of each target pixel, added up
};

Axis axis(int from, int to) {
  Axis a;
  double ratio = static_cast<double>(from) / to;
  for (int i = 0; i < to; ++i) {
    double start = i * ratio, end = (i + 1) * ratio;
    int first = static_cast<int>(std::floor(start));
    int last = std::min(from - 1, static_cast<int>(std::ceil(end)) - 1);
    a.first.push_back(first);
    a.count.push_back(last - first + 1);
    a.offset.push_back(a.weights.size());
    float total = 0;
    for (int p = first; p <= last; ++p) {
      a.weights.push_back(static_cast<float>(std::max(0.0, std::min<double>(end, p + 1) - std::max<double>(start, p))));
      total += a.weights.back();
    }
    a.total.push_back(total);
  }
  return a;
}

// A channel value from an average: rounded half up (no library call: this runs for
// every channel of every pixel).
uint8_t rounded(float v) { return static_cast<uint8_t>(std::clamp(v + 0.5f, 0.f, 255.f)); }

}  // namespace

Canvas shrunk(const Canvas& source, int width, int height) {
  width = std::clamp(width, 1, source.width());
  height = std::clamp(height, 1, source.height());
  Canvas out(width, height, Color{});
  const Axis columns = axis(source.width(), width), rows = axis(source.height(), height);
  const uint8_t* in = source.pixels().data();
  const size_t stride = static_cast<size_t>(source.width()) * 4, w = static_cast<size_t>(width);

  // Each source row is filtered across once, its colours weighted by alpha (so that
  // transparent pixels lend no colour), then added into the one or two target rows it
  // falls in: shrinking, a source row never spans more than two.
  std::vector<float> across(w * 4), current(w * 4, 0.f), next(w * 4, 0.f);
  int target = 0;
  for (int y = 0; y < source.height() && target < height; ++y) {
    const uint8_t* row = in + static_cast<size_t>(y) * stride;
    for (size_t x = 0; x < w; ++x) {
      float r = 0, g = 0, b = 0, a = 0;
      const float* weight = columns.weights.data() + columns.offset[x];
      const uint8_t* p = row + static_cast<size_t>(columns.first[x]) * 4;
      for (int c = 0; c < columns.count[x]; ++c, p += 4) {
        float wa = weight[c] * p[3];
        r += wa * p[0];
        g += wa * p[1];
        b += wa * p[2];
        a += wa;
      }
      across[x * 4] = r, across[x * 4 + 1] = g, across[x * 4 + 2] = b, across[x * 4 + 3] = a;
    }
    for (int t = target; t <= std::min(target + 1, height - 1); ++t) {
      int k = y - rows.first[static_cast<size_t>(t)];
      if (k < 0 || k >= rows.count[static_cast<size_t>(t)]) continue;
      float weight = rows.weights[rows.offset[static_cast<size_t>(t)] + static_cast<size_t>(k)];
      std::vector<float>& sum = t == target ? current : next;
      for (size_t i = 0; i < sum.size(); ++i) sum[i] += weight * across[i];
    }
    if (y == rows.first[static_cast<size_t>(target)] + rows.count[static_cast<size_t>(target)] - 1) {
      uint8_t* dest = out.pixels().data() + static_cast<size_t>(target) * w * 4;
      float rowArea = rows.total[static_cast<size_t>(target)];
      for (size_t x = 0; x < w; ++x) {
        float alphaSum = current[x * 4 + 3];
        if (alphaSum <= 0) {
          dest[x * 4] = dest[x * 4 + 1] = dest[x * 4 + 2] = dest[x * 4 + 3] = 0;
          continue;
        }
        for (size_t c = 0; c < 3; ++c) dest[x * 4 + c] = rounded(current[x * 4 + c] / alphaSum);
        dest[x * 4 + 3] = rounded(alphaSum / (columns.total[x] * rowArea));
      }
      std::swap(current, next);
      std::fill(next.begin(), next.end(), 0.f);
      ++target;
    }
  }
  return out;
}

}  // namespace tavlin::imaging
