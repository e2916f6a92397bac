// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QLabel>
#include <memory>

#include "look/fonts.h"
#include "look/palette.h"

class QTextLayout;

// What windows show without being used. Main thread.

namespace sentrel {

/// Words in one of the roles of text: wraps, keeps the role's distance between lines, follows the theme. A
/// part of the text between two pairs of asterisks is bold.
class TextLabel : public QLabel {
 public:
  using Token = QColor AppColors::*;

  explicit TextLabel(TextRole role, const QString& words = {}, Token color = &AppColors::text);

  /// Also read by assistive technology; `text` gives them without the asterisks.
  void setWords(const QString& words);
  void setColor(Token color);
  /// Lines of about equal length, so that no word stands alone in the last one. For centred paragraphs.
  void setBalanced(bool balanced) { balanced_ = balanced; }
  /// Distance between two lines at 100 %, in place of the role's own.
  void setLineHeight(double pixels) { lineHeight_ = pixels; }

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }
  [[nodiscard]] int heightForWidth(int width) const override;
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return {0, sizeHint().height()}; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  /// The lines of the words where they may be `width` pixels wide.
  [[nodiscard]] std::unique_ptr<QTextLayout> layOut(double width) const;
  [[nodiscard]] int lineCount(double width) const;
  /// The least width that needs no more lines than `width`.
  [[nodiscard]] double balancedWidth(double width) const;
  [[nodiscard]] double lineHeight() const;

  Token color_;
  double lineHeight_;
  qsizetype boldFrom_ = -1;
  qsizetype boldLength_ = 0;
  bool balanced_ = false;
};

/// Words in the middle of their line.
[[nodiscard]] TextLabel* centredLabel(TextRole role, const QString& words,
                                      TextLabel::Token color = &AppColors::text);

/// A symbol in a colour of the theme, perhaps in the middle of a round disc. Decorative. Symbol and disc in
/// pixels at 100 %; no disc where that is 0.
[[nodiscard]] QWidget* symbolView(const QString& symbol, int pixels, TextLabel::Token color, int disc = 0);

}  // namespace sentrel
