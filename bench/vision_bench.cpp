// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "stage/pictures.h"
#include "vision/detector_pipeline.h"
#include "vision/head_pose.h"
#include "vision/motion_gate.h"
#include "vision/noise_filter.h"
#include "vision/region_sampler.h"

namespace sentrel {
namespace {

using namespace vision;

constexpr std::array sizes{InputSize{160, 192}, InputSize{Tile::fullHeight, Tile::fullWidth},
                           InputSize{96, 96}};
constexpr const char* sizeNames[] = {"whole frame", "tile", "close look"};

const Models& models() {
  static const Models all = readModels(test::modelFolderPath().toStdString());
  return all;
}

/// A user and a person behind.
const Frame& picture() {
  static const std::shared_ptr<Frame> frame =
      test::toFrame(test::PortraitScene().frame({0, test::SecondFace{530, 120, 40}}));
  return *frame;
}

/// The detection network alone, at each size that it is used with.
void network(benchmark::State& state) {
  const auto engine = makeInferenceEngine();
  const auto runners = engine->prepare(models().detection, sizes);
  const auto& runner = runners[static_cast<std::size_t>(state.range(0))];
  state.SetLabel(sizeNames[state.range(0)]);
  for (auto _ : state) {
    if (!runner->run()) state.SkipWithError("the engine failed");
  }
}
BENCHMARK(network)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

/// The mesh of the user's face with its sampling.
void mesh(benchmark::State& state) {
  const auto engine = makeInferenceEngine();
  auto runners = engine->prepare(models().mesh, std::array{InputSize{meshSide, meshSide}});
  MeshFinder finder(std::move(runners[0]), models().face.points.size());
  FaceMesh found;
  const TurnedSquare face{320, 240, 300, 0};
  for (auto _ : state) benchmark::DoNotOptimize(finder.find(picture(), face, found));
}
BENCHMARK(mesh)->Unit(benchmark::kMillisecond);

/// Making a network's input of a frame.
void sampling(benchmark::State& state) {
  const InputSize size = sizes[static_cast<std::size_t>(state.range(0))];
  constexpr std::array<Region, 3> regions{{{0, -26, 640, 533}, {192, 128, 256, 224}, {500, 90, 80, 80}}};
  state.SetLabel(sizeNames[state.range(0)]);
  RegionSampler sampler;
  std::vector<float> input(static_cast<std::size_t>(size.height) * static_cast<std::size_t>(size.width) * 3);
  for (auto _ : state) {
    sampler.sample(picture(), regions[static_cast<std::size_t>(state.range(0))], size.width, size.height,
                   {-1, 1}, input);
    benchmark::DoNotOptimize(input.data());
  }
}
BENCHMARK(sampling)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void motionGate(benchmark::State& state) {
  MotionGate gate;
  std::int64_t now = 0;
  for (auto _ : state) {
    gate.observe(picture(), now += 100);
    benchmark::DoNotOptimize(gate.takeWhole(false));
    benchmark::DoNotOptimize(gate.takeTile());
  }
}
BENCHMARK(motionGate)->Unit(benchmark::kMillisecond);

/// The picture in the dark, with noise that is new in every frame.
void noiseFilter(benchmark::State& state) {
  const int level = static_cast<int>(state.range(0));
  std::array<std::unique_ptr<Frame>, 3> frames;
  std::mt19937 random(1);
  std::normal_distribution<double> error(0, 1);
  for (auto& frame : frames) {
    frame = std::make_unique<Frame>();
    frame->resize(picture().width(), picture().height());
    const auto end = picture().data() + static_cast<std::ptrdiff_t>(frame->stride()) * frame->height();
    std::transform(picture().data(), end, frame->data(), [&](std::uint8_t value) {
      return static_cast<std::uint8_t>(std::clamp(value / 8 + level * error(random), 0.0, 255.0));
    });
  }
  NoiseFilter filter;
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(filter.steady(*frames[next++ % frames.size()]).data());
}
BENCHMARK(noiseFilter)->ArgName("noise")->Arg(0)->Arg(2)->Unit(benchmark::kMillisecond);

/// All that is done with one frame of a scene in which nothing moves.
void stillFrame(benchmark::State& state) {
  DetectorPipeline pipeline(models(), makeInferenceEngine);
  std::int64_t now = 0;
  for (auto _ : state) pipeline.analyse(picture(), now += 100);
  state.counters["faces"] = static_cast<double>(pipeline.faces().size());
}
BENCHMARK(stillFrame)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace sentrel
