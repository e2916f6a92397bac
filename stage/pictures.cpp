// SPDX-License-Identifier: Apache-2.0
#include "stage/pictures.h"

#include <QColorSpace>
#include <cstring>

#include "support/fatal.h"

namespace sentrel::test {

QImage loadPicture(const QString& name) {
  const QString path = QStringLiteral(SENTREL_TEST_PICTURES "/") + name;
  QImage picture(path);
  if (picture.isNull()) fatal("cannot read " + path.toStdString() + ": run scripts/fetch-test-pictures");
  picture.setColorSpace(QColorSpace());  // or every copy that is written carries the file's wrong profile on
  return picture.convertToFormat(QImage::Format_RGB32);
}

std::shared_ptr<Frame> toFrame(const QImage& picture) {
  auto frame = std::make_shared<Frame>();
  // 32-bit RGB in memory is BGRA byte by byte on little-endian machines, the only ones this runs on.
  const QImage source = picture.convertToFormat(QImage::Format_RGB32);
  frame->resize(source.width(), source.height());
  for (int y = 0; y < frame->height(); ++y) {
    std::memcpy(frame->data() + static_cast<std::ptrdiff_t>(y) * frame->stride(), source.constScanLine(y),
                static_cast<std::size_t>(frame->stride()));
  }
  return frame;
}

QString modelFolderPath() {
  return QStringLiteral(SENTREL_TEST_MODELS);
}

}  // namespace sentrel::test
