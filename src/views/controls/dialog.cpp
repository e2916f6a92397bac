// SPDX-License-Identifier: Apache-2.0
#include "views/controls/dialog.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "views/controls/painting.h"
#include "views/controls/symbol_view.h"
#include "views/controls/text_label.h"

namespace sentrel {

namespace {
constexpr QSize dialogSize(280, 182);
constexpr int symbolPixels = 30;
constexpr int padding = 20;
}  // namespace

Sheet* openDialog(QWidget& popover, const Dialog& dialog) {
  auto* sheet = new Sheet(popover, dialogSize);
  sheet->setCornerRadius(popoverRadius);
  sheet->setAccessibleName(dialog.words);
  auto* column = new QVBoxLayout(sheet->panel());
  column->setContentsMargins(padding, padding, padding, 16);
  column->setSpacing(0);
  column->addWidget(new SymbolView(dialog.symbol, symbolPixels, dialog.color), 0, Qt::AlignHCenter);
  column->addSpacing(6);
  auto* words = centredLabel(TextRole::bodyLabel, dialog.words);
  words->setBalanced(true);
  column->addWidget(words);
  column->addStretch(1);
  column->addSpacing(12);
  auto* cancel = new PushButton(PushButton::Kind::secondary, dialog.cancel);
  auto* confirm = new PushButton(dialog.kind, dialog.confirm);
  auto* buttons = new QHBoxLayout;
  buttons->setSpacing(14);
  buttons->addStretch();
  buttons->addWidget(cancel);
  buttons->addWidget(confirm);
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
  return sheet;
}

}  // namespace sentrel
