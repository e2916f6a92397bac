// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <functional>
#include <memory>

#include "detection/calibration_session.h"

class QWidget;

namespace sentrel {

/// Leads a person through a calibration, in a sheet over `window` with a toolbar button of `leaveWords` that
/// leaves it. The session is idle and the sheet's own; what runs is cancelled when the sheet goes. The sheet
/// is the window's; `closed` is called when it has gone, however it went. Main thread.
void openCalibrationSheet(QWidget& window, std::shared_ptr<CalibrationSession> session,
                          const QString& leaveWords, std::function<void()> closed);

}  // namespace sentrel
