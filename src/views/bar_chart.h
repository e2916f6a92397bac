// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>
#include <cstdint>
#include <vector>

namespace sentrel {

/// A card of bars, of which the largest is labelled and the first and the last are named. What the pointer or
/// the keyboard is at is said in the card's corner; for assistive technology the bars are a list. One stop of
/// the Tab key; the arrow keys go from bar to bar. Main thread.
class BarChart final : public QWidget {
 public:
  struct Bar {
    std::int64_t value = 0;
    QString words;        ///< the whole of what there is to say of it: "mar. 17 : 3 alertes"
    QString label;        ///< below it, where it is the first or the last
    bool stands = false;  ///< out from the others
  };

  /// `barWidth` in pixels, for a card of 288.
  BarChart(const QString& title, int bars, int barWidth);
  ~BarChart() override;

  /// As many as were told; `total` stands in the corner while no bar is chosen.
  void setBars(std::vector<Bar> bars, const QString& total);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  class Column;

  [[nodiscard]] QRect area() const;
  void choose(const Column* column, bool isChosen);
  void moveFocus(std::size_t from, int key);

  const QString title_;
  const int barWidth_;
  std::vector<Column*> columns_;
  std::vector<Bar> bars_;
  std::size_t largest_ = 0;
  QString total_;
  const Column* chosen_ = nullptr;
};

}  // namespace sentrel
