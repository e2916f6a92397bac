// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>
#include <functional>

#include "views/footer.h"

namespace sentrel {

/// What the program is, who makes it and what becomes of pictures. Main thread.
class AboutView : public QWidget {
 public:
  /// `dismissed` is called when the person closes it.
  AboutView(const QString& version, const Footer& footer, std::function<void()> dismissed,
            QWidget* parent = nullptr);

 protected:
  void focusInEvent(QFocusEvent* event) override;

 private:
  const std::function<void()> dismiss;
  QWidget* close_;
};

}  // namespace sentrel
