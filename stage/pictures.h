// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QString>
#include <memory>

#include "support/frame.h"

namespace sentrel::test {

/// One of the real pictures that scripts/fetch-test-pictures puts into build/test-pictures ("astronaut.png":
/// one face; "chelsea.png": a cat). Ends the test program with a message when it is not there.
[[nodiscard]] QImage loadPicture(const QString& name);

/// The picture as the camera would hand it on.
[[nodiscard]] std::shared_ptr<Frame> toFrame(const QImage& picture);

/// Where the build keeps the face models.
[[nodiscard]] QString modelFolderPath();

}  // namespace sentrel::test
