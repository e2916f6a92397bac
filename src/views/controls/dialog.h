// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "look/palette.h"
#include "views/controls/push_button.h"
#include "views/controls/sheet.h"

namespace sentrel {

/// A question, or something to take note of, with two answers.
struct Dialog {
  QString symbol;
  QColor AppColors::*color;  ///< of the symbol
  QString words;
  QString cancel;  ///< the answer that changes nothing: it has the focus first, and Escape gives it
  QString confirm;
  PushButton::Kind kind;  ///< of the button that confirms
  std::function<void()> confirmed;
};

/// Asks it over `popover`. The sheet is the popover's, and goes with either answer. Main thread.
Sheet* openDialog(QWidget& popover, const Dialog& dialog);

}  // namespace sentrel
