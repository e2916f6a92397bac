// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QBoxLayout>
#include <QWidget>

#include "views/controls/text_label.h"

namespace sentrel {

/// A label above a smaller hint, with a control beside them; below them where little width is left for words.
/// A click anywhere in the row turns its switch. The hint becomes the control's description for assistive
/// technology; that of its focus proxy, where it is made of several. Main thread.
class PrefRow : public QWidget {
 public:
  /// Takes the control; `label` may be empty.
  PrefRow(const QString& label, const QString& hint, QWidget* control, QWidget* parent = nullptr);

  void setHint(const QString& hint);

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void arrange();

  QBoxLayout* row_;
  TextLabel* label;
  TextLabel* hint_;
  QWidget* control;
  bool pressed_ = false;
};

}  // namespace sentrel
