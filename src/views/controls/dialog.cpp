// SPDX-License-Identifier: Apache-2.0
#include "views/controls/dialog.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "views/controls/painting.h"
#include "views/controls/scroll_page.h"
#include "views/controls/symbol_view.h"
#include "views/controls/text_label.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr QSize dialogSize(280, 182);
constexpr int symbolPixels = 30;
constexpr int padding = 12;
constexpr int above = 20;
constexpr int aroundWords = 8;
constexpr int betweenButtons = 14;
}  // namespace

Sheet* openDialog(QWidget& popover, const Dialog& dialog) {
  auto* sheet = new Sheet(popover, dialogSize);
  sheet->setCornerRadius(popoverRadius);
  sheet->setAccessibleName(dialog.words);
  auto* column = new QVBoxLayout(sheet->panel());
  column->setContentsMargins(padding, above, padding, 16);
  column->setSpacing(0);
  auto* page = new QWidget;
  auto* said = new QVBoxLayout(page);
  said->setContentsMargins(aroundWords, 0, aroundWords, 0);
  said->setSpacing(6);
  said->addWidget(new SymbolView(dialog.symbol, symbolPixels, dialog.color), 0, Qt::AlignHCenter);
  auto* words = centredLabel(TextRole::bodyLabel, dialog.words);
  words->setBalanced(true);
  said->addWidget(words);
  said->addStretch(1);
  auto* scroll = new ScrollPage;
  scroll->setPage(page);
  column->addWidget(scroll, 1);
  column->addSpacing(12);
  auto* cancel = new PushButton(PushButton::Kind::secondary, dialog.cancel);
  auto* confirm = new PushButton(dialog.kind, dialog.confirm);
  auto* buttons = new QHBoxLayout;
  buttons->setSpacing(betweenButtons);
  buttons->addStretch();
  buttons->addWidget(cancel, 0, Qt::AlignHCenter);
  buttons->addWidget(confirm, 0, Qt::AlignHCenter);
  buttons->addStretch();
  column->addLayout(buttons);
  const auto dismiss = [sheet] { sheet->dismiss(); };
  sheet->onEscape = dismiss;
  QObject::connect(cancel, &PushButton::clicked, sheet, dismiss);
  QObject::connect(confirm, &PushButton::clicked, sheet, [sheet, confirmed = dialog.confirmed] {
    confirmed();
    sheet->dismiss();
  });
  sheet->open(cancel);
  const auto arrange = [=] {
    const int wanted = cancel->sizeHint().width() + betweenButtons + confirm->sizeHint().width();
    const bool beside = wanted <= sheet->panel()->width() - 2 * padding;
    buttons->setDirection(beside ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
  };
  QObject::connect(&Theme::shared(), &Theme::changed, sheet, arrange);
  arrange();
  return sheet;
}

}  // namespace sentrel
