// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>
#include <functional>
#include <optional>

#include "views/controls/push_button.h"
#include "views/controls/text_label.h"

namespace sentrel {

/// What every page of the first run looks like: a symbol, a title, a text, a button, and perhaps a second
/// one. The buttons stand in the same place on every page. Main thread.
class OnboardingPageLayout : public QWidget {
 public:
  struct Content {
    QString header;  ///< the symbol's name
    QString title;
    QString text;
    QString primaryLabel;
    std::function<void()> primaryAction;
    QString secondaryLabel;  ///< empty where there is no second button
    std::function<void()> secondaryAction;
    QString notice = {};  ///< in the second button's place, where there is none
  };

  explicit OnboardingPageLayout(Content content, QWidget* parent = nullptr);

  void setPrimaryLabel(const QString& words);
  [[nodiscard]] PushButton* primaryButton() const { return primary_; }

 private:
  PushButton* primary_;
};

}  // namespace sentrel
