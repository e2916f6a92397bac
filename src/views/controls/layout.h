// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QBoxLayout>
#include <QWidget>

#include "views/controls/labels.h"

// What windows are laid out with. Main thread.

namespace sentrel {

/// A layout of `widget`, or of none yet, with these margins and this distance between items in pixels.
template <class Box>
Box* boxIn(QWidget* widget, QMargins margins = {}, int spacing = 0) {
  auto* box = new Box(widget);
  box->setContentsMargins(margins);
  box->setSpacing(spacing);
  return box;
}

/// A hairline, one pixel high.
[[nodiscard]] QWidget* divider();

/// A divider that keeps away from the ends of its line, in pixels. For a layout to take.
[[nodiscard]] QLayout* insetDivider(int left, int right);

/// A rounded surface that holds rows, with hairlines between them.
class Card : public QWidget {
 public:
  Card() : rows_(boxIn<QVBoxLayout>(this, {1, 1, 1, 1})) {}

  /// Takes the row.
  void addRow(QWidget* row);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QVBoxLayout* rows_;
};

/// A symbol followed by the title of a section.
class SectionHeader : public QWidget {
 public:
  SectionHeader(const QString& icon, const QString& title);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString icon;
};

/// A label above a smaller hint, with a control beside them; below them where little width is left for words.
/// A click anywhere in the row turns its switch. The hint becomes the control's description for assistive
/// technology; that of its focus proxy, where it is made of several.
class PrefRow : public QWidget {
 public:
  /// Takes the control; `label` may be empty.
  PrefRow(const QString& label, const QString& hint, QWidget* control);

  void setHint(const QString& hint);

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  /// Puts the control beside the words or below them.
  void arrange();

  QBoxLayout* row_;
  TextLabel* hint_;
  QWidget* control;
  bool pressed_ = false;
};

}  // namespace sentrel
