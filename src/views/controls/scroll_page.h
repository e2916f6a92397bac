// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QScrollArea>
#include <QScrollBar>

#include "views/controls/buttons.h"

class QGridLayout;

namespace sentrel {

/// A page that scrolls up and down under a thin bar, which takes no space, and shows whatever control gets
/// the focus. Main thread.
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
/// where large words leave no space beside it. Main thread.
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
