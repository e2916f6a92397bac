// SPDX-License-Identifier: Apache-2.0
#include "vision/model_files.h"

#include <QCryptographicHash>
#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "model_constants.h"
#include "vision/model_error.h"
#include "vision/tflite_reader.h"

namespace sentrel::vision {
namespace {

constexpr std::uintmax_t largestModel = 64U << 20U;

[[noreturn]] void fail(const std::filesystem::path& file, const std::string& what) {
  throw ModelError("the face model " + file.string() + " " + what +
                   "; run scripts/fetch-models and build again, or install the program again");
}

std::vector<std::byte> readFile(const std::filesystem::path& file) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  if (error == std::errc::no_such_file_or_directory) fail(file, "is missing");
  if (error) fail(file, "cannot be read (" + error.message() + ")");
  if (size > largestModel) fail(file, "is damaged (too large)");
  std::vector<std::byte> bytes(static_cast<std::size_t>(size));
  std::ifstream stream(file, std::ios::binary);
  stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!stream) fail(file, "cannot be read");
  return bytes;
}

template <class Parse>
auto readModel(const std::filesystem::path& folder, std::string_view name, Parse parse) {
  const std::filesystem::path file = folder / name;
  const std::vector<std::byte> bytes = readFile(file);
  const QByteArrayView content(bytes.data(), std::ssize(bytes));
  const QByteArray digest = QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex();
  const auto isOfThisBuild = [&](const ModelDigest& known) {
    return known.file == name && known.sha256 == digest;
  };
  if (std::ranges::none_of(modelDigests, isOfThisBuild)) fail(file, "is damaged (its checksum is wrong)");
  try {
    return parse(std::span<const std::byte>(bytes));
  } catch (const ModelError& error) {
    fail(file, std::string("is damaged (") + error.what() + ")");
  }
}

}  // namespace

Models readModels(const std::filesystem::path& folder) {
  Models models;
  models.detection = readModel(folder, "face_detection_full_range.tflite", readTflite);
  models.mesh = readModel(folder, "face_landmark.tflite", readTflite);
  models.face = readModel(folder, "canonical_face.binarypb", readCanonicalFace);
  return models;
}

}  // namespace sentrel::vision
