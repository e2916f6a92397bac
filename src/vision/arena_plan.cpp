// SPDX-License-Identifier: Apache-2.0
#include "vision/arena_plan.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace sentrel::vision {
namespace {

constexpr std::size_t alignment = 64;
constexpr std::size_t slack = 64;

struct Life {
  std::size_t first = std::numeric_limits<std::size_t>::max();
  std::size_t last = 0;
  std::size_t bytes = 0;
  [[nodiscard]] bool used() const { return first <= last; }
  [[nodiscard]] bool meets(const Life& other) const { return first <= other.last && other.first <= last; }
};

std::vector<Life> lives(const Network& network, const std::vector<Shape>& shapes) {
  std::vector<Life> lives(shapes.size());
  const auto touch = [&](std::size_t tensor, std::size_t step) {
    lives[tensor].first = std::min(lives[tensor].first, step);
    lives[tensor].last = std::max(lives[tensor].last, step);
  };
  touch(network.input, 0);
  for (std::size_t i = 0; i < network.operators.size(); ++i) {
    const Operator& op = network.operators[i];
    touch(op.input, i + 1);
    if (op.kind == OperatorKind::add) touch(op.secondInput, i + 1);
    touch(op.output, i + 1);
  }
  for (const std::size_t output : network.outputs) touch(output, network.operators.size() + 1);
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    const std::size_t bytes = shapes[i].count() * sizeof(float) + slack;
    lives[i].bytes = (bytes + alignment - 1) / alignment * alignment;
  }
  return lives;
}

}  // namespace

ArenaPlan planArena(const Network& network, const std::vector<Shape>& shapes) {
  const std::vector<Life> all = lives(network, shapes);
  std::vector<std::size_t> order(all.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  // The largest first, each at the lowest place that is free for its whole life.
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return all[a].bytes > all[b].bytes; });
  ArenaPlan plan;
  plan.offsets.resize(all.size());
  std::vector<std::size_t> placed;
  for (const std::size_t tensor : order) {
    if (!all[tensor].used()) continue;
    std::size_t at = 0;
    // `placed` is kept in the order of offsets, so the first gap that is wide enough is the lowest.
    for (const std::size_t other : placed) {
      if (!all[tensor].meets(all[other])) continue;
      if (plan.offsets[other] >= at + all[tensor].bytes) break;
      at = std::max(at, plan.offsets[other] + all[other].bytes);
    }
    plan.offsets[tensor] = at;
    plan.bytes = std::max(plan.bytes, at + all[tensor].bytes);
    const auto place =
        std::upper_bound(placed.begin(), placed.end(), tensor,
                         [&](std::size_t a, std::size_t b) { return plan.offsets[a] < plan.offsets[b]; });
    placed.insert(place, tensor);
  }
  return plan;
}

}  // namespace sentrel::vision
