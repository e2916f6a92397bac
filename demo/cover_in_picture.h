// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>

namespace sentrel::test {

/// 0 to 255, of a sample of a screen's pixels.
[[nodiscard]] double meanBrightness(const QImage& picture);
/// Whether the onlooker's picture is where it belongs on a screen: something green, framed in green.
[[nodiscard]] bool showsOnlooker(const QImage& picture);

}  // namespace sentrel::test
