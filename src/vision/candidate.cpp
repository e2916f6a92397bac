// SPDX-License-Identifier: Apache-2.0
#include "vision/candidate.h"

#include <algorithm>

namespace sentrel::vision {
namespace {

// Two boxes of one face overlap at least so much; two faces close to each other do not.
constexpr double sameFaceOverlap = 0.3;
constexpr double sameFaceContained = 0.7;

double intersection(const Region& a, const Region& b) {
  const double width = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
  const double height = std::min(a.y + a.height, b.y + b.height) - std::max(a.y, b.y);
  return width > 0 && height > 0 ? width * height : 0;
}

double area(const Region& region) {
  return region.width * region.height;
}

}  // namespace

double intersectionOverUnion(const Region& a, const Region& b) {
  const double common = intersection(a, b);
  return common > 0 ? common / (area(a) + area(b) - common) : 0;
}

double containedShare(const Region& inner, const Region& outer) {
  const double common = intersection(inner, outer);
  return common > 0 ? common / area(inner) : 0;
}

void suppressOverlaps(std::vector<Candidate>& candidates) {
  std::sort(candidates.begin(), candidates.end(),
            [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
  std::size_t kept = 0;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const Region& box = candidates[i].box;
    const auto covers = [&](const Candidate& better) {
      return intersectionOverUnion(box, better.box) > sameFaceOverlap ||
             containedShare(box, better.box) > sameFaceContained ||
             containedShare(better.box, box) > sameFaceContained;
    };
    const auto end = candidates.begin() + static_cast<std::ptrdiff_t>(kept);
    if (std::any_of(candidates.begin(), end, covers)) continue;
    if (kept != i) candidates[kept] = candidates[i];
    ++kept;
  }
  candidates.resize(kept);
}

Region scaledAboutCentre(const Region& box, double factor) {
  return {box.x + box.width * (1 - factor) / 2, box.y + box.height * (1 - factor) / 2, box.width * factor,
          box.height * factor};
}

}  // namespace sentrel::vision
