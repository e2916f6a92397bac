// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QWidget>

#include "views/theme.h"

namespace sentrel::test {

/// Writes pictures of windows into a folder, each on a plain ground of its scheme.
class PictureBook {
 public:
  explicit PictureBook(QString folder);

  /// Sets the theme and the end of the names of the pictures to come: "light", "dark" ...
  void setLook(const Theme::Look& look);

  /// Shows the window, lets it settle, and writes `name`-scheme.png; `margin` pixels of ground stay around
  /// it.
  void add(const QString& name, QWidget& window, int margin = 24);
  /// Leaves out the scheme.
  void addNamed(const QString& fileName, QWidget& window, int margin = 24);

  /// False once a picture could not be written.
  [[nodiscard]] bool good() const { return good_; }

  /// Runs the event loop for `ms`.
  static void wait(int ms);

 private:
  QString folder_;
  bool good_ = true;
};

}  // namespace sentrel::test
