// SPDX-License-Identifier: Apache-2.0
#include "views/onboarding_page_layout.h"

#include <QVBoxLayout>
#include <utility>

#include "views/controls/symbol_view.h"

namespace sentrel {

namespace {

constexpr int above = 28;
constexpr int discPixels = 96;
constexpr int symbolPixels = 48;
constexpr int textSide = 44;  // of 440
constexpr double textLine = 21.5;
constexpr int textToButton = 12;
constexpr int textHeight = 110;  // up to the first button, which never moves
constexpr int primaryWidth = 264;
constexpr int primaryHeight = 40;
constexpr int secondaryHeight = 34;
constexpr int betweenButtons = 6;

}  // namespace

OnboardingPageLayout::OnboardingPageLayout(Content content, QWidget* parent)
    : QWidget(parent), primary_(new PushButton(PushButton::Kind::primary, content.primaryLabel)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, above, 0, 0);
  column->setSpacing(0);
  auto* symbol = new SymbolView(content.header, symbolPixels, &AppColors::primary);
  symbol->setDisc(discPixels);
  column->addWidget(symbol, 0, Qt::AlignHCenter);
  column->addSpacing(20);
  auto* title = centredLabel(TextRole::title1, content.title);
  title->setContentsMargins(textSide / 2, 0, textSide / 2, 0);
  column->addWidget(title);
  column->addSpacing(10);
  auto* words = centredLabel(TextRole::body, content.text, &AppColors::textSecondary);
  words->setBalanced(true);
  words->setLineHeight(textLine);
  words->setContentsMargins(textSide, 0, textSide, textToButton);
  words->setMinimumHeight(textHeight);
  column->addWidget(words);

  primary_->setButtonHeight(primaryHeight);
  primary_->setMinimumWidth(primaryWidth);
  connect(primary_, &PushButton::clicked, this, [act = std::move(content.primaryAction)] { act(); });
  column->addWidget(primary_, 0, Qt::AlignHCenter);
  column->addSpacing(betweenButtons);
  if (content.secondaryLabel.isEmpty() && content.notice.isEmpty()) {
    column->addSpacing(secondaryHeight);
  } else if (content.secondaryLabel.isEmpty()) {
    auto* notice = centredLabel(TextRole::subheadline, content.notice, &AppColors::warning);
    notice->setContentsMargins(textSide, 0, textSide, 0);
    notice->setAlignment(Qt::AlignCenter);
    notice->setMinimumHeight(secondaryHeight);
    column->addWidget(notice);
    primary_->setAccessibleDescription(content.notice);
  } else {
    auto* secondary = new PushButton(PushButton::Kind::plain, content.secondaryLabel);
    secondary->setButtonHeight(secondaryHeight);
    connect(secondary, &PushButton::clicked, this, [act = std::move(content.secondaryAction)] { act(); });
    column->addWidget(secondary, 0, Qt::AlignHCenter);
  }
  column->addStretch(1);
}

void OnboardingPageLayout::setPrimaryLabel(const QString& words) {
  primary_->setText(words);
}

}  // namespace sentrel
