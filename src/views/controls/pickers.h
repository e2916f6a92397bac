// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QButtonGroup>
#include <QComboBox>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <vector>

#include "views/controls/accessibility.h"
#include "views/controls/animation.h"

// Controls that take one of several choices. Main thread.

namespace sentrel {

/// A field that opens a list of choices; the one taken has a check mark. Long words are cut in the middle.
class MenuPicker : public QComboBox, public FocusShape {
 public:
  explicit MenuPicker(const QString& name);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }
  void showPopup() override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
};

/// A row of choices, one of which is taken: radio buttons underneath, with one stop for the Tab key and
/// arrows between them. A value that is not on offer leaves all of them untaken until the person picks one.
class SegmentedPicker : public QWidget {
 public:
  struct Choice {
    QString words;
    std::int64_t value = 0;
    int width = 0;  ///< at 100 %
  };

  SegmentedPicker(const QString& name, const std::vector<Choice>& choices);

  void setValue(std::int64_t value);
  /// Called when the person picked another choice.
  std::function<void(std::int64_t)> onValue;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void movePill();

  const std::vector<Choice> choices_;
  QButtonGroup group_;
  AnimatedValue pill_;  // which choice it covers, between two on its way
};

}  // namespace sentrel
