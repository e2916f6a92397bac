// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "views/controls/scroll_page.h"
#include "views/footer.h"

namespace sentrel {

/// What the program is, who makes it and what becomes of pictures. Main thread.
class AboutView : public ToolbarPage {
 public:
  /// `dismissed` is called when the person closes it.
  AboutView(const QString& version, const Footer& footer, std::function<void()> dismissed,
            QWidget* parent = nullptr);

 protected:
  void focusInEvent(QFocusEvent* event) override;

 private:
  const std::function<void()> dismiss;
};

}  // namespace sentrel
