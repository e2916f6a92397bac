// SPDX-License-Identifier: Apache-2.0
#include "evaluation/picture_set.h"

#include <QFile>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace sentrel::bench {
namespace {

namespace fs = std::filesystem;

// Beyond any camera; a larger picture would only take all memory.
constexpr int largestSide = 8192;

void skip(const std::string& what, const std::string& why) {
  std::printf("# skipped %s: %s\n", what.c_str(), why.c_str());
}

}  // namespace

std::vector<std::string> PictureSet::names(const std::string& subfolder) const {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder_ / subfolder, error)) {
    if (entry.is_regular_file(error)) names.push_back(subfolder + "/" + entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::map<std::string, std::vector<Label>> PictureSet::labels() const {
  std::map<std::string, std::vector<Label>> result;
  QFile file(QString::fromStdString((folder_ / "faces.json").string()));
  if (!file.open(QIODevice::ReadOnly)) {
    skip("faces.json", "it cannot be read");
    return result;
  }
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
  if (!document.isObject()) {
    skip("faces.json",
         error.error == QJsonParseError::NoError ? "it holds no object" : error.errorString().toStdString());
    return result;
  }
  const QJsonObject pictures = document.object();
  for (auto at = pictures.begin(); at != pictures.end(); ++at) {
    std::vector<Label>& labels = result[at.key().toStdString()];
    for (const QJsonValue row : at.value().toArray()) {
      const QJsonArray values = row.toArray();
      bool numbers = values.size() == 5;
      for (const QJsonValue value : values) numbers = numbers && value.isDouble();
      if (!numbers) {
        skip("a label of " + at.key().toStdString(), "it is not five numbers");
        continue;
      }
      labels.push_back(
          {{values[0].toDouble(), values[1].toDouble(), values[2].toDouble(), values[3].toDouble()},
           values[4].toDouble()});
    }
  }
  return result;
}

std::unique_ptr<Frame> PictureSet::load(const std::string& path) const {
  QImageReader reader(QString::fromStdString((folder_ / path).string()));
  reader.setDecideFormatFromContent(true);
  const QSize size = reader.size();
  if (size.width() > largestSide || size.height() > largestSide) {
    const QString reason = QString::asprintf("it is larger than %d pixels a side", largestSide);
    skip(path, reason.toStdString());
    return nullptr;
  }
  const QImage picture = reader.read().convertToFormat(QImage::Format_RGB32);
  if (picture.isNull()) {
    skip(path, reader.errorString().toStdString());
    return nullptr;
  }
  auto frame = std::make_unique<Frame>();
  frame->resize(picture.width(), picture.height());
  for (int y = 0; y < frame->height(); ++y) {
    std::memcpy(frame->data() + static_cast<std::ptrdiff_t>(y) * frame->stride(), picture.constScanLine(y),
                static_cast<std::size_t>(frame->stride()));
  }
  return frame;
}

bool inside(const Label& label, const Frame& picture) {
  const vision::Region& box = label.box;
  const double x = box.x + box.width / 2;
  const double y = box.y + box.height / 2;
  return box.width > 0 && box.height > 0 && x >= 0 && y >= 0 && x < picture.width() && y < picture.height();
}

}  // namespace sentrel::bench
