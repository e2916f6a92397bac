// SPDX-License-Identifier: Apache-2.0
#include "vision/models.h"

#include <QCryptographicHash>
#include <QString>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>

#include "model_constants.h"

namespace sentrel::vision {
namespace {

// Field numbers of the packaged geometry: the mesh with its vertex and index lists, and the weighted
// landmarks.
constexpr std::uint32_t fieldMesh = 1, fieldWeighted = 2;
constexpr std::uint32_t fieldVertices = 3, fieldIndices = 4;
constexpr std::uint32_t fieldLandmark = 1, fieldWeight = 2;
constexpr std::size_t floatsPerVertex = 5;  // x, y, z, and a texture position
constexpr std::size_t maxPoints = 4096;

/// Checked reading of a protobuf message, one field after the other.
class Message {
 public:
  explicit Message(std::span<const std::byte> bytes) : rest_(bytes) {}

  bool next() {
    if (rest_.empty()) return false;
    const std::uint64_t key = varint();
    field_ = static_cast<std::uint32_t>(key >> 3U);
    switch (key & 7U) {
      case 0:
        number_ = varint();
        content_ = {};
        break;
      case 1:
        content_ = take(8);
        break;
      case 2:
        content_ = take(varint());
        break;
      case 5:
        content_ = take(4);
        break;
      default:
        throw ModelError("a field of an unknown kind");
    }
    return true;
  }

  [[nodiscard]] std::uint32_t field() const { return field_; }
  [[nodiscard]] std::uint64_t number() const { return number_; }
  [[nodiscard]] std::span<const std::byte> content() const { return content_; }
  [[nodiscard]] bool atEnd() const { return rest_.empty(); }

  std::uint64_t varint() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const auto byte = std::to_integer<std::uint64_t>(take(1)[0]);
      value |= (byte & 0x7fU) << shift;
      if ((byte & 0x80U) == 0) return value;
    }
    throw ModelError("a number without end");
  }

  /// Every 32-bit float of a list, packed or a single element of an unpacked one.
  static void appendFloats(std::span<const std::byte> content, std::vector<float>& to) {
    if (content.size() % 4 != 0) throw ModelError("a list of floats of an odd length");
    for (std::size_t at = 0; at < content.size(); at += 4) {
      float value = 0;
      std::memcpy(&value, content.data() + at, 4);
      if (!std::isfinite(value)) throw ModelError("a number is not finite");
      to.push_back(value);
    }
  }

 private:
  std::span<const std::byte> take(std::uint64_t count) {
    if (count > rest_.size()) throw ModelError("the file ends too early");
    const auto taken = rest_.first(static_cast<std::size_t>(count));
    rest_ = rest_.subspan(static_cast<std::size_t>(count));
    return taken;
  }

  std::span<const std::byte> rest_;
  std::span<const std::byte> content_;
  std::uint32_t field_ = 0;
  std::uint64_t number_ = 0;
};

void readMesh(std::span<const std::byte> bytes, std::vector<float>& vertices,
              std::vector<std::uint64_t>& indices) {
  Message mesh(bytes);
  while (mesh.next()) {
    if (mesh.field() == fieldVertices) Message::appendFloats(mesh.content(), vertices);
    if (mesh.field() != fieldIndices) continue;
    if (mesh.content().empty()) {
      indices.push_back(mesh.number());
    } else {
      for (Message packed(mesh.content()); !packed.atEnd();) indices.push_back(packed.varint());
    }
  }
}

void readWeight(std::span<const std::byte> bytes, std::vector<double>& weights) {
  Message entry(bytes);
  std::uint64_t landmark = 0;
  std::vector<float> weight;
  while (entry.next()) {
    if (entry.field() == fieldLandmark) landmark = entry.number();
    if (entry.field() == fieldWeight) Message::appendFloats(entry.content(), weight);
  }
  if (landmark >= weights.size() || weight.size() != 1 || weight[0] < 0)
    throw ModelError("a weight of no point");
  weights[landmark] = static_cast<double>(weight[0]);
}

constexpr std::uintmax_t largestModel = 64U << 20U;

/// Words for the person; what is wrong within the file is for us.
[[noreturn]] void fail(const std::filesystem::path& file, const QString& what, const std::string& why = {}) {
  throw ModelError(what.toStdString() + ": " + file.string() + (why.empty() ? "" : ", " + why));
}

std::vector<std::byte> readFile(const std::filesystem::path& file) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  if (error == std::errc::no_such_file_or_directory) fail(file, qtTrId("detail_model_missing"));
  if (error) fail(file, qtTrId("detail_model_unreadable"), error.message());
  if (size > largestModel) fail(file, qtTrId("detail_model_damaged"));
  std::vector<std::byte> bytes(static_cast<std::size_t>(size));
  std::ifstream stream(file, std::ios::binary);
  stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!stream) fail(file, qtTrId("detail_model_unreadable"));
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
  if (std::ranges::none_of(modelDigests, isOfThisBuild)) fail(file, qtTrId("detail_model_damaged"));
  try {
    return parse(std::span<const std::byte>(bytes));
  } catch (const ModelError& error) {
    fail(file, qtTrId("detail_model_damaged"), error.what());
  }
}

}  // namespace

CanonicalFace readCanonicalFace(std::span<const std::byte> file) {
  std::vector<float> vertices;
  std::vector<std::uint64_t> indices;
  std::vector<std::span<const std::byte>> weighted;
  Message message(file);
  while (message.next()) {
    if (message.field() == fieldMesh) readMesh(message.content(), vertices, indices);
    if (message.field() == fieldWeighted) weighted.push_back(message.content());
  }
  const std::size_t count = vertices.size() / floatsPerVertex;
  if (count == 0 || count > maxPoints || vertices.size() % floatsPerVertex != 0 || indices.size() % 3 != 0) {
    throw ModelError("the face's geometry has an impossible size");
  }
  CanonicalFace face;
  face.weights.resize(count);
  for (std::size_t i = 0; i < vertices.size(); i += floatsPerVertex) {
    face.points.push_back({static_cast<double>(vertices[i]), static_cast<double>(vertices[i + 1]),
                           static_cast<double>(vertices[i + 2])});
  }
  for (std::size_t i = 0; i < indices.size(); i += 3) {
    std::array<std::uint16_t, 3> triangle{};
    for (std::size_t k = 0; k < 3; ++k) {
      if (indices[i + k] >= count) throw ModelError("a triangle of no point");
      triangle[k] = static_cast<std::uint16_t>(indices[i + k]);
    }
    face.triangles.push_back(triangle);
  }
  for (const auto entry : weighted) readWeight(entry, face.weights);
  return face;
}

Models readModels(const std::filesystem::path& folder) {
  Models models;
  models.detection = readModel(folder, "face_detection_full_range.tflite", readTflite);
  models.mesh = readModel(folder, "face_landmark.tflite", readTflite);
  models.face = readModel(folder, "canonical_face.binarypb", readCanonicalFace);
  return models;
}

std::filesystem::path modelFolder() {
  namespace fs = std::filesystem;
  fs::path inData = fs::path(installedDataFolder) / "sentrel" / "models";
  if (inData.is_absolute()) return inData;
  std::error_code error;
  const fs::path binary = fs::read_symlink("/proc/self/exe", error);
  // An installed program is one folder below its prefix, a built one up to three below its build folder.
  fs::path root = binary.parent_path();
  for (int level = 0; level < 4 && root.has_relative_path(); ++level, root = root.parent_path()) {
    if (fs::is_directory(root / inData, error)) return root / inData;
  }
  return binary.parent_path().parent_path() / inData;
}

}  // namespace sentrel::vision
