// SPDX-License-Identifier: Apache-2.0
//
// write-seeds FOLDER: what each target begins with, a folder of small files for each, made of real data.
#include <QImage>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "stage/virtual_camera.h"

namespace {

namespace fs = std::filesystem;
using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one function
using fuzz::FrameHeader;

void write(const fs::path& file, const std::string& bytes) {
  fs::create_directories(file.parent_path());
  if (!(std::ofstream(file, std::ios::binary) << bytes))
    throw std::runtime_error("cannot write " + file.string());
}

std::string read(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  if (bytes.empty()) throw std::runtime_error("cannot read " + file.string());
  return bytes;
}

void writeFrames(const fs::path& folder) {
  const QImage astronaut(QStringLiteral(SENTREL_TEST_PICTURES "/astronaut.png"));
  if (astronaut.isNull())
    throw std::runtime_error("there is no picture; scripts/fetch-test-pictures gets it");
  int number = 0;
  for (const auto& [width, height] : {std::pair(64, 48), std::pair(96, 34), std::pair(1300, 20)}) {
    const QImage picture = astronaut.scaled(width, height).convertToFormat(QImage::Format_RGB32);
    for (const auto pixels : {PixelFormat::yuy2, PixelFormat::nv12, PixelFormat::i420, PixelFormat::bgrx,
                              PixelFormat::rgbx, PixelFormat::bgr, PixelFormat::rgb, PixelFormat::mjpeg}) {
      std::vector<std::uint8_t> encoded(test::encodedCapacity(pixels, width, height));
      encoded.resize(test::encodePicture(pixels, picture.constBits(), width, height, encoded));
      for (std::uint8_t target = 0; target < 3; ++target) {
        const FrameHeader header{.pixels = static_cast<std::uint8_t>(pixels),
                                 .blocks = 0,
                                 .target = target,
                                 .width = static_cast<std::uint16_t>(width),
                                 .height = static_cast<std::uint16_t>(height),
                                 .stride = test::encodedStride(pixels, width),
                                 .size = static_cast<std::uint32_t>(encoded.size())};
        std::string bytes(sizeof header, '\0');
        std::memcpy(bytes.data(), &header, sizeof header);
        bytes.append(encoded.begin(), encoded.end());
        write(folder / std::to_string(++number), bytes);
      }
    }
  }
}

void writeModels(const fs::path& folder) {
  const fs::path models = SENTREL_FUZZ_MODELS;
  const std::string geometry = read(models / "canonical_face.binarypb");
  write(folder / "geometry", '\0' + geometry.substr(0, 4000));
  write(folder / "network", '\0' + read(models / "face_detection_full_range.tflite").substr(0, 4000));
  for (char which = 1; which <= 3; ++which) {
    write(folder / ("intact" + std::to_string(which)), std::string(1, which));
    // The structure's offsets are small numbers; so are these.
    std::minstd_rand random(1);
    std::string bytes(1, which);
    for (int i = 0; i < 12; ++i) {
      for (const auto value : {random(), random(), random() & 0x80U, random() % 9})
        bytes += static_cast<char>(value);
    }
    write(folder / ("changed" + std::to_string(which)), bytes);
  }
}

void writeFiles(const fs::path& folder) {
  write(folder / "settings", R"json({
    "alert_after_ms": 1200,
    "alert_journal": 2,
    "capture_fps": 10,
    "has_completed_onboarding": true,
    "matrix_color_argb": 4278190080,
    "matrix_stripe_alpha": 0.42,
    "privacy_matrix_coefficient": 2.0,
    "reaction": 1,
    "selected_camera_id": "v4l2_input.pci-0000_00_14.0",
    "stats_total_active_seconds": 9223372036854775807,
    "watch_up_to_cm": 0,
    "when_shared": 2
}
)json");
  write(folder / "cut", "{\n    \"alert_after_ms\": 1200,\n    \"sensitivity\": 1e99,\n    \"stats_al");
  write(folder / "journal", R"json({"sentrel":"alerts","version":1}
{"began":"2026-11-20T09:14:02.125Z","camera":"Integrated Camera","darkened":true,"end":"gone","faces":2,"length_ms":3120,"notified":true,"widest_face":0.118}
{"began":"2026-11-20T11:00:59.000Z","camera":"=cmd()","darkened":false,"end":"low_battery","faces":1,"length_ms":0,"notified":false,"widest_face":1
}
)json");
  write(folder / "newer", "{\"sentrel\":\"alerts\",\"version\":2}\n{}\n");
}

void writeCommands(const fs::path& folder) {
  int number = 0;
  for (const char* words : {"status\n--json\n--watch", "pause\n15m", "pause\ntomorrow", "guest\n2\n30m",
                            "guest\n1h", "journal\n--since\n7d\n--csv", "--help", "--version", "--service",
                            "privacy", "preferences", "quit", "cover", "on\nnow", "toggle\n\033[2J"})
    write(folder / std::to_string(++number), words);
}

/// Random, but long enough for every service to be heard.
void writeBus(const fs::path& folder) {
  std::minstd_rand random(7);
  for (int number = 1; number <= 24; ++number) {
    std::string bytes(static_cast<std::size_t>(number) * 40, '\0');
    std::ranges::generate(bytes, [&] { return static_cast<char>(random()); });
    write(folder / std::to_string(number), bytes);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: write_seeds FOLDER\n", stderr);
    return 2;
  }
  try {
    const fs::path folder = argv[1];
    writeModels(folder / "models");
    writeFrames(folder / "frames");
    writeFiles(folder / "files");
    writeCommands(folder / "commands");
    writeBus(folder / "bus");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "write_seeds: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
