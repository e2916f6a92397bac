// SPDX-License-Identifier: Apache-2.0
#include "views/calibration_sheet.h"

#include <QVBoxLayout>
#include <utility>

#include "views/controls/scroll_page.h"

namespace sentrel {

namespace {
constexpr QSize sheetSize(408, 396);
constexpr QMargins aroundLeave(9, 8, 0, 0);
}  // namespace

Sheet* openCalibrationSheet(QWidget& window, CalibrationView::Parts parts, const QString& leaveWords,
                            std::function<void()> closed) {
  auto* sheet = new Sheet(window, sheetSize);
  auto* whole = new ToolbarPage(leaveWords, aroundLeave, sheet->panel());
  auto* view = new CalibrationView(std::move(parts), [sheet] { sheet->dismiss(); });
  whole->setPage(view);
  auto* column = new QVBoxLayout(sheet->panel());
  column->setContentsMargins(1, 0, 1, 0);
  column->addWidget(whole);
  sheet->setAccessibleName(qtTrId("Calibration de distance"));
  QObject::connect(whole->leaveButton(), &PushButton::clicked, sheet, [sheet] { sheet->dismiss(); });
  sheet->onEscape = [sheet, view] {
    if (!view->cancelRunning()) sheet->dismiss();
  };
  sheet->onClosed = std::move(closed);
  sheet->open(view->defaultButton());
  return sheet;
}

}  // namespace sentrel
