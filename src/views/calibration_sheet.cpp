// SPDX-License-Identifier: Apache-2.0
#include "views/calibration_sheet.h"

#include <QVBoxLayout>
#include <utility>

#include "look/texts.h"
#include "views/controls/push_button.h"
#include "views/controls/scroll_page.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr QSize sheetSize(408, 396);
constexpr QPoint toolbarPlace(10, 8);
}  // namespace

Sheet* openCalibrationSheet(QWidget& window, CalibrationView::Parts parts, const QString& leaveWords,
                            std::function<void()> closed) {
  auto* sheet = new Sheet(window, sheetSize);
  // First in the order of the Tab key, as it stands first.
  auto* leave = new PushButton(PushButton::Kind::plain, leaveWords, sheet->panel());
  auto* page = new ScrollPage(sheet->panel());
  auto* view = new CalibrationView(std::move(parts), [sheet] { sheet->dismiss(); });
  page->setPage(view);
  auto* column = new QVBoxLayout(sheet->panel());
  // Large words scroll below the button, usual ones fit beside it.
  const bool large = Theme::shared().textScale() > 1;
  column->setContentsMargins(1, large ? leave->sizeHint().height() + toolbarPlace.y() : 0, 1, 0);
  column->addWidget(page);
  sheet->setAccessibleName(text(QStringLiteral("Calibration de distance")));
  leave->resize(leave->sizeHint());
  leave->move(toolbarPlace);
  leave->raise();
  QObject::connect(leave, &PushButton::clicked, sheet, [sheet] { sheet->dismiss(); });
  sheet->onEscape = [sheet, view] {
    if (!view->cancelRunning()) sheet->dismiss();
  };
  sheet->onClosed = std::move(closed);
  sheet->open(view->defaultButton());
  return sheet;
}

}  // namespace sentrel
