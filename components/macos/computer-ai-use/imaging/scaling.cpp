#include "imaging/scaling.h"

#include <algorithm>
#include <cmath>
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

// For each target pixel along one axis, the source pixels it covers and how much of
// each (weights in 1/256 of a source pixel: coarse enough that the sums of the largest
// canvas fit 64 bits).
struct Span {
  int first = 0;
  std::vector<uint32_t> weights;
};

std::vector<Span> spans(int from, int to) {
  std::vector<Span> out(static_cast<size_t>(to));
  double ratio = static_cast<double>(from) / to;
  for (int i = 0; i < to; ++i) {
    double start = i * ratio, end = (i + 1) * ratio;
    int first = static_cast<int>(std::floor(start));
    int last = std::min(from - 1, static_cast<int>(std::ceil(end)) - 1);
    Span& s = out[static_cast<size_t>(i)];
    s.first = first;
    for (int p = first; p <= last; ++p) {
      double covered = std::min<double>(end, p + 1) - std::max<double>(start, p);
      s.weights.push_back(static_cast<uint32_t>(std::lround(std::max(0.0, covered) * 256)));
    }
  }
  return out;
}

}  // namespace

Canvas shrunk(const Canvas& source, int width, int height) {
  width = std::clamp(width, 1, source.width());
  height = std::clamp(height, 1, source.height());
  Canvas out(width, height, Color{});
  const std::vector<Span> columns = spans(source.width(), width), rows = spans(source.height(), height);
  const uint8_t* in = source.pixels().data();
  const size_t stride = static_cast<size_t>(source.width()) * 4;
  // Colours are summed weighted by alpha, so transparent pixels lend no colour to
  // their neighbours' average.
  std::vector<uint64_t> line(static_cast<size_t>(width) * 4);
  uint8_t* target = out.pixels().data();
  for (const Span& row : rows) {
    std::fill(line.begin(), line.end(), 0);
    uint64_t rowWeight = 0;
    for (size_t r = 0; r < row.weights.size(); ++r) {
      const uint8_t* sourceRow = in + static_cast<size_t>(row.first + static_cast<int>(r)) * stride;
      uint64_t wy = row.weights[r];
      rowWeight += wy;
      for (size_t x = 0; x < columns.size(); ++x) {
        const Span& column = columns[x];
        uint64_t sr = 0, sg = 0, sb = 0, sa = 0;
        for (size_t c = 0; c < column.weights.size(); ++c) {
          const uint8_t* p = sourceRow + static_cast<size_t>(column.first + static_cast<int>(c)) * 4;
          uint64_t w = column.weights[c] * uint64_t{p[3]};
          sr += p[0] * w;
          sg += p[1] * w;
          sb += p[2] * w;
          sa += w;
        }
        line[x * 4] += sr * wy;
        line[x * 4 + 1] += sg * wy;
        line[x * 4 + 2] += sb * wy;
        line[x * 4 + 3] += sa * wy;
      }
    }
    for (size_t x = 0; x < columns.size(); ++x, target += 4) {
      uint64_t columnWeight = 0;
      for (uint32_t w : columns[x].weights) columnWeight += w;
      uint64_t alphaSum = line[x * 4 + 3];  // Σ weight × alpha
      uint64_t area = rowWeight * columnWeight;
      if (alphaSum == 0 || area == 0) {
        target[0] = target[1] = target[2] = target[3] = 0;
        continue;
      }
      for (int c = 0; c < 3; ++c) target[c] = static_cast<uint8_t>((line[x * 4 + static_cast<size_t>(c)] + alphaSum / 2) / alphaSum);
      target[3] = static_cast<uint8_t>(std::min<uint64_t>(255, (alphaSum + area / 2) / area));
    }
  }
  return out;
}

}  // namespace tavlin::imaging
