// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

#include "views/controls/text_label.h"

namespace sentrel {

/// A tile with a number and its label; one of a group may be emphasised. A long number is drawn smaller, down
/// to 16 pixels, and then cut. Main thread.
class StatCard : public QWidget {
 public:
  enum class Highlight { no, yes };

  StatCard(const QString& symbol, const QString& label, Highlight highlight, QWidget* parent = nullptr);

  void setValue(const QString& value);
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void describe();

  const QString symbol_;
  const QString label;
  const bool highlight;
  QString value;
};

}  // namespace sentrel
