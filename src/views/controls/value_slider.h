// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSlider>
#include <functional>

#include "views/controls/accessibility.h"

namespace sentrel {

/// A slider over whole steps with its value beside it. It may be shown a number beyond its range: it then
/// stands at the end, shows the number, and changes it only when the person moves it. Assistive technology is
/// told the number that the words show, not the step. Main thread.
class ValueSlider : public QSlider, public FocusShape {
 public:
  struct Range {
    double least = 0;
    double greatest = 1;
    double step = 1;
    double shownFactor = 1;  ///< of the number in the words: 100 where they are per cent
  };

  ValueSlider(const QString& name, Range range, std::function<QString(double)> words);

  void setNumber(double number);
  [[nodiscard]] double number() const { return number_; }
  /// The number as it is shown.
  [[nodiscard]] QString words() const { return words_(number_); }
  [[nodiscard]] const Range& range() const { return range_; }
  /// As if the person had moved it.
  void choose(double number) { setValue(stepOf(number)); }
  /// Called when the person chose another number.
  std::function<void(double)> onNumber;

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  [[nodiscard]] int stepOf(double number) const;
  [[nodiscard]] QRectF track() const;
  [[nodiscard]] QPointF knobCentre() const;
  void followPointer(const QPointF& position);

  const Range range_;
  const std::function<QString(double)> words_;
  double number_;
  bool showing_ = false;  // the position follows a number that was set
};

}  // namespace sentrel
