// SPDX-License-Identifier: Apache-2.0
//
// The readers of the models. The first byte says which real file is damaged, by the four bytes of each
// change: three of its place, one new byte; of no file, the rest is one by itself.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <vector>

#include "fuzz_input.h"
#include "vision/models.h"
#include "vision/network.h"

namespace {

using namespace sentrel::vision;  // NOLINT(google-build-using-namespace): a program of one function
using sentrel::fuzz::Bytes;
using sentrel::fuzz::require;

/// The structure of a file stands at its ends; between them are weights.
constexpr std::size_t structure = 60'000;

std::vector<std::uint8_t> fileOf(const char* name) {
  const std::filesystem::path path = std::filesystem::path(SENTREL_FUZZ_MODELS) / name;
  std::vector<std::uint8_t> bytes(std::filesystem::file_size(path));
  require(bytes.size() > 1000 && std::ifstream(path, std::ios::binary)
                                     .read(reinterpret_cast<char*>(bytes.data()), std::ssize(bytes))
                                     .good());
  return bytes;
}

/// Of the first two bytes.
std::size_t numberAt(Bytes bytes) {
  return bytes[0] + std::size_t{256} * bytes[1];
}

std::vector<std::uint8_t> damaged(Bytes input) {
  static const std::array intact{std::vector<std::uint8_t>(), fileOf("face_detection_full_range.tflite"),
                                 fileOf("face_landmark.tflite"), fileOf("canonical_face.binarypb")};
  const std::size_t which = input.front() % intact.size();
  Bytes changes = input.subspan(1);
  if (which == 0) return {changes.begin(), changes.end()};
  std::vector<std::uint8_t> file = intact.at(which);
  const std::size_t reach = std::min(structure, file.size());
  for (; changes.size() >= 4; changes = changes.subspan(4)) {
    const std::size_t place = (numberAt(changes) + ((changes[2] & 0x7FU) << 16U)) % reach;
    file[(changes[2] & 0x80U) != 0 ? file.size() - 1 - place : place] = changes[3];
  }
  // What is left over cuts it off.
  if (changes.size() == 2) file.resize(numberAt(changes) * file.size() >> 16U);
  file.shrink_to_fit();
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto file = damaged({data, size});
  try {
    const CanonicalFace face = readCanonicalFace(std::as_bytes(std::span(file)));
    require(!face.points.empty() && face.weights.size() == face.points.size());
    for (const auto& triangle : face.triangles)
      for (const std::uint16_t corner : triangle) require(corner < face.points.size());
  } catch (const ModelError&) {
  }
  try {
    const Network network = readTflite(std::as_bytes(std::span(file)));
    for (const std::array side : {std::array{192, 192}, std::array{1, 1}, std::array{480, 640}}) {
      const auto shapes = inferShapes(network, side[0], side[1]);
      require(shapes.size() == network.tensorCount);
      for (const std::size_t output : network.outputs) require(output < shapes.size());
    }
  } catch (const ModelError&) {
  }
  return 0;
}
