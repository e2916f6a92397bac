// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QBoxLayout>
#include <QScrollArea>
#include <QScrollBar>
#include <initializer_list>
#include <variant>

#include "views/controls/buttons.h"

class QGridLayout;

// What windows are laid out with. Main thread.

namespace sentrel {

/// In a line or a column, what is empty and as long as the space that is left.
inline constexpr std::monostate stretch{};

/// One thing in a line or a column: a widget, a layout, a distance in pixels, or `stretch`. It gets `share`
/// of the space that is left.
struct LayoutItem {
  template <class Thing>
  LayoutItem(Thing what, int shareOfRest = 0, Qt::Alignment where = {})
      : thing(what), share(shareOfRest), alignment(where) {}

  std::variant<std::monostate, QWidget*, QLayout*, int> thing;
  int share;
  Qt::Alignment alignment;
};
using LayoutItems = std::initializer_list<LayoutItem>;

/// A widget in the middle of its column, as wide as it wants to be.
[[nodiscard]] LayoutItem centred(QWidget* widget);

void addItems(QBoxLayout& box, LayoutItems items);

// A layout of `widget`, or of none yet, with these margins and this distance between items in pixels.
QBoxLayout* columnIn(QWidget* widget, QMargins margins = {}, int spacing = 0, LayoutItems items = {});
QBoxLayout* lineIn(QWidget* widget, QMargins margins = {}, int spacing = 0, LayoutItems items = {});

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
