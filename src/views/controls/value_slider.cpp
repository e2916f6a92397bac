// SPDX-License-Identifier: Apache-2.0
#include "views/controls/value_slider.h"

#include <QAccessibleWidget>
#include <QMouseEvent>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int sliderWidth = 148;
constexpr int sliderHeight = 28;
constexpr int valueWidth = 60;
constexpr double knobSize = 18;
constexpr double trackHeight = 4;
constexpr int mostTicks = 8;  // more would be noise

class AccessibleSlider final : public QAccessibleWidget, public QAccessibleValueInterface {
 public:
  explicit AccessibleSlider(ValueSlider& slider)
      : QAccessibleWidget(&slider, QAccessible::Slider), slider_(slider) {}

  void* interface_cast(QAccessible::InterfaceType type) override {
    if (type == QAccessible::ValueInterface) return static_cast<QAccessibleValueInterface*>(this);
    return QAccessibleWidget::interface_cast(type);
  }
  [[nodiscard]] QString text(QAccessible::Text kind) const override {
    return kind == QAccessible::Value ? slider_.words() : QAccessibleWidget::text(kind);
  }
  [[nodiscard]] QVariant currentValue() const override { return shown(slider_.number()); }
  void setCurrentValue(const QVariant& value) override {
    slider_.choose(value.toDouble() / slider_.range().shownFactor);
  }
  [[nodiscard]] QVariant minimumValue() const override { return shown(slider_.range().least); }
  [[nodiscard]] QVariant maximumValue() const override { return shown(slider_.range().greatest); }
  [[nodiscard]] QVariant minimumStepSize() const override { return shown(slider_.range().step); }

 private:
  /// In the unit of the words, without rounding errors.
  [[nodiscard]] double shown(double number) const {
    return std::round(number * slider_.range().shownFactor * 100) / 100;
  }

  ValueSlider& slider_;
};

QAccessibleInterface* makeAccessible(const QString& /*className*/, QObject* object) {
  auto* slider = dynamic_cast<ValueSlider*>(object);
  return slider != nullptr ? new AccessibleSlider(*slider) : nullptr;
}
}  // namespace

ValueSlider::ValueSlider(const QString& name, Range range, std::function<QString(double)> words)
    : QSlider(Qt::Horizontal), range_(range), words_(std::move(words)), number_(range.least) {
  QAccessible::installFactory(makeAccessible);  // again is harmless
  setAccessibleName(name);
  // Whole steps from zero.
  setRange(stepOf(range_.least), stepOf(range_.greatest));
  setSingleStep(1);
  setPageStep(1);
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(this, &QSlider::valueChanged, this, [this](int position) {
    if (showing_) return;
    number_ = position * range_.step;
    update();
    if (onNumber) onNumber(number_);
  });
}

int ValueSlider::stepOf(double number) const {
  return static_cast<int>(std::lround(number / range_.step));
}

void ValueSlider::setNumber(double number) {
  number_ = number;
  showing_ = true;
  const double inRange =
      std::isfinite(number) ? std::clamp(number, range_.least, range_.greatest) : range_.least;
  setValue(stepOf(inRange));
  showing_ = false;
  update();
}

QSize ValueSlider::sizeHint() const {
  const double scale = Theme::shared().textScale();
  return {sliderWidth + static_cast<int>(valueWidth * scale),
          std::max(sliderHeight, static_cast<int>(20 * scale))};
}

QRectF ValueSlider::track() const {
  return {0, (height() - trackHeight) / 2.0, static_cast<double>(sliderWidth), trackHeight};
}

QPointF ValueSlider::knobCentre() const {
  const QRectF way = track().adjusted(knobSize / 2, 0, -knobSize / 2, 0);
  return {way.left() + way.width() * (value() - minimum()) / (maximum() - minimum()), way.center().y()};
}

FocusShape::Outline ValueSlider::focusOutline() const {
  const QPointF centre = knobCentre();
  return {.rect = QRectF(centre.x() - knobSize / 2, centre.y() - knobSize / 2, knobSize, knobSize),
          .radius = knobSize / 2};
}

void ValueSlider::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  const QPointF knob = knobCentre();
  const QRectF whole = track();
  paintBox(painter, whole, trackHeight / 2, c.controlBorder);
  QRectF filled = whole;
  filled.setRight(knob.x());
  paintBox(painter, filled, trackHeight / 2, c.primary);
  const int steps = maximum() - minimum();
  if (steps < mostTicks) {
    for (int i = 0; i <= steps; ++i) {
      const double x = whole.left() + knobSize / 2 + (whole.width() - knobSize) * i / steps;
      paintBox(painter, QRectF(x - 1, whole.bottom() + 5, 2, 4), 1, c.controlBorder);
    }
  }
  const QColor face = Theme::shared().dark() && !Theme::shared().highContrast() ? c.text : c.surface;
  paintBox(painter, QRectF(knob.x() - knobSize / 2, knob.y() - knobSize / 2, knobSize, knobSize),
           knobSize / 2, face, c.primary, 2);
  paintWords(painter, QRectF(rect()).adjusted(sliderWidth, 0, 0, 0), words(),
             Theme::shared().font(TextRole::bodyButton), c.text, Qt::AlignRight | Qt::AlignVCenter);
}

void ValueSlider::followPointer(const QPointF& position) {
  const QRectF way = track().adjusted(knobSize / 2, 0, -knobSize / 2, 0);
  const double share = std::clamp((position.x() - way.left()) / way.width(), 0.0, 1.0);
  setValue(minimum() + static_cast<int>(std::lround(share * (maximum() - minimum()))));
}

void ValueSlider::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || event->position().x() > sliderWidth + knobSize / 2) {
    event->ignore();
    return;
  }
  setSliderDown(true);
  followPointer(event->position());
}

void ValueSlider::mouseMoveEvent(QMouseEvent* event) {
  if (isSliderDown()) followPointer(event->position());
}

void ValueSlider::mouseReleaseEvent(QMouseEvent* /*event*/) {
  setSliderDown(false);
}

void ValueSlider::wheelEvent(QWheelEvent* event) {
  // Otherwise scrolling the page would change settings under the pointer.
  if (hasFocus()) {
    QSlider::wheelEvent(event);
  } else {
    event->ignore();
  }
}

}  // namespace sentrel
