// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "views/controls/scroll_page.h"

namespace sentrel {

/// What the program is, who makes it and what becomes of pictures. Main thread.
class AboutView : public ToolbarPage {
 public:
  /// Takes a link to show at its foot, or none. `dismissed` is called when the person closes it.
  AboutView(const QString& version, QWidget* footer, const std::function<void()>& dismissed);
};

}  // namespace sentrel
