// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QLabel>
#include <memory>

#include "look/fonts.h"
#include "look/palette.h"

class QTextLayout;

namespace sentrel {

/// Words in one of the roles of text: wraps, keeps the role's distance between lines, follows the theme. A
/// part of the text between two pairs of asterisks is bold. Main thread.
class TextLabel : public QLabel {
 public:
  using Token = QColor AppColors::*;

  explicit TextLabel(TextRole role, Token color = &AppColors::text, QWidget* parent = nullptr);

  void setWords(const QString& words);
  [[nodiscard]] const QString& words() const { return words_; }
  void setColor(Token color);
  /// Lines of about equal length, so that no word stands alone in the last one. For centred paragraphs.
  void setBalanced(bool balanced);
  /// Distance between two lines at 100 %, in place of the role's own.
  void setLineHeight(double pixels);

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }
  [[nodiscard]] int heightForWidth(int width) const override;
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void restyle();
  [[nodiscard]] std::unique_ptr<QTextLayout> layOut(double width) const;
  [[nodiscard]] int lineCount(double width) const;
  [[nodiscard]] double balancedWidth(double width) const;
  [[nodiscard]] double lineHeight() const;

  TextRole role_;
  Token color_;
  QString words_;
  int boldFrom_ = -1;
  int boldLength_ = 0;
  bool balanced_ = false;
  double ownLineHeight_ = 0;
};

/// Words in the middle of their line.
[[nodiscard]] TextLabel* centredLabel(TextRole role, const QString& words,
                                      TextLabel::Token color = &AppColors::text);

}  // namespace sentrel
