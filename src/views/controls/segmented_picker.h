// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QButtonGroup>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <vector>

#include "views/controls/animated_value.h"

namespace sentrel {

/// A row of choices, one of which is taken: radio buttons underneath, with one stop for the Tab key and
/// arrows between them. A value that is not on offer leaves all of them untaken until the person picks one.
/// Main thread.
class SegmentedPicker : public QWidget {
 public:
  struct Choice {
    QString words;
    std::int64_t value = 0;
    int width = 0;  ///< at 100 %
  };

  SegmentedPicker(const QString& name, const std::vector<Choice>& choices, QWidget* parent = nullptr);

  void setValue(std::int64_t value);
  /// Called when the person picked another choice.
  std::function<void(std::int64_t)> onValue;

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void placeSegments();
  void movePill();
  [[nodiscard]] int widthOf(std::size_t index) const;

  std::vector<Choice> choices_;
  QButtonGroup group_;
  AnimatedValue pill_;
};

}  // namespace sentrel
