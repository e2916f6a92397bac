// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

namespace sentrel {

/// Has windows on Wayland paint only once the compositor has shown their last picture. Qt paints whenever
/// something changes, and waits on the main thread when the compositor keeps five pictures: one that hangs
/// would freeze all of the program behind an open window. Main thread.
class PaintPace final : public QObject {
 public:
  /// For all windows of the application, from now on; nothing on other platforms.
  PaintPace();

 private:
  bool eventFilter(QObject* object, QEvent* event) override;

  bool painting_ = false;
};

}  // namespace sentrel
