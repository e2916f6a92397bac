// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPoint>
#include <QRect>
#include <QWidget>
#include <functional>

#include "views/menu_bar_popover_view.h"

namespace sentrel {

/// Where the popover stands: right-aligned with what it belongs to, 8 pixels away from it and at least 8
/// inside the work area, below where there is room and above otherwise.
[[nodiscard]] QRect placePopover(const QRect& anchor, const QRect& workArea, QSize size);

/// The frameless window around the popover's content. It closes on Escape and when another window gets the
/// focus, except while it asks something; then it deletes itself. Main thread.
class PopoverWindow : public QWidget {
 public:
  /// Without translucency the window is a plain rectangle without a shadow.
  enum class Ground { translucent, opaque };

  PopoverWindow(MenuBarPopoverView::Parts parts, Ground ground);

  /// Opens beside `anchor`, in screen coordinates; where the desktop places windows itself it decides.
  void openAt(const QRect& anchor);
  [[nodiscard]] MenuBarPopoverView& content() const { return *content_; }
  std::function<void()> onClosed;

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  [[nodiscard]] int margin() const;
  void place();
  void appear();
  [[nodiscard]] QPoint contentPlace() const;

  const Ground ground_;
  MenuBarPopoverView* content_;
  double presence_ = 1;  // less while it opens
  QRect anchor_;
};

}  // namespace sentrel
