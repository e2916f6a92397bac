// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QIcon>
#include <QRectF>

class QPainter;

namespace sentrel {

/// The application's icon in the square `box`: an eye that is clear from the front and barred from the side.
/// The bars are left out where they would be smaller than a pixel or two. Main thread.
void paintAppIcon(QPainter& painter, const QRectF& box);

/// The same in the sizes that desktops ask for.
[[nodiscard]] QIcon appIcon();

}  // namespace sentrel
