// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "views/calibration_view.h"
#include "views/controls/sheet.h"

namespace sentrel {

/// Opens a calibration as a sheet over `window`, with a toolbar button of `leaveWords` that leaves it. The
/// sheet is the window's; `closed` is called when it has gone, however it went. Main thread.
Sheet* openCalibrationSheet(QWidget& window, CalibrationView::Parts parts, const QString& leaveWords,
                            std::function<void()> closed);

}  // namespace sentrel
