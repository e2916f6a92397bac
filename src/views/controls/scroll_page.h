// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QScrollArea>
#include <QScrollBar>

namespace sentrel {

/// A page that scrolls up and down under a thin bar, which takes no room, and shows whatever control gets the
/// focus. Main thread.
class ScrollPage : public QScrollArea {
 public:
  explicit ScrollPage(QWidget* parent = nullptr);

  /// Takes what scrolls; its ground shows what lies below.
  void setPage(QWidget* content);
  /// How far the page is scrolled, in pixels.
  void scrollTo(int y) { verticalScrollBar()->setValue(y); }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  bool focusNextPrevChild(bool next) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void placeBar();

  QScrollBar* bar_;  // mirrors the area's own, which is hidden
};

}  // namespace sentrel
