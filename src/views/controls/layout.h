// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QBoxLayout>
#include <QScrollArea>
#include <QScrollBar>
#include <QWidget>

#include "views/controls/buttons.h"

class QGridLayout;

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

/// A page that scrolls up and down under a thin bar, which takes no space, and shows whatever control gets
/// the focus.
class ScrollPage : public QScrollArea {
 public:
  ScrollPage();

  /// Takes what scrolls; its ground shows what lies below.
  void setPage(QWidget* content);
  /// How far the page is scrolled, in pixels.
  void scrollTo(int y) { verticalScrollBar()->setValue(y); }

  // It wants to be as high as what it shows.
  [[nodiscard]] bool hasHeightForWidth() const override { return true; }
  [[nodiscard]] int heightForWidth(int width) const override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  bool focusNextPrevChild(bool next) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  QScrollBar* bar_;  // mirrors the area's own, which is hidden
};

/// A page that scrolls beside the button that leaves it, which stands at the top left; below that button
/// where large words leave no space beside it.
class ToolbarPage : public QWidget {
 public:
  ToolbarPage(const QString& leaveWords, QMargins aroundButton);

  [[nodiscard]] PushButton* leaveButton() const { return leave_; }
  void setPage(QWidget* content) { page_->setPage(content); }

 protected:
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void arrange();

  PushButton* leave_;
  ScrollPage* page_;
  QGridLayout* grid_;
};

}  // namespace sentrel
