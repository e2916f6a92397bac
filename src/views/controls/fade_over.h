// SPDX-License-Identifier: Apache-2.0
#pragma once

class QWidget;

namespace sentrel {

/// Lets what `widget` shows now fade over what it will show: to be called just before it changes. Nothing
/// where the person wants no motion, or the widget is not seen.
void fadeOver(QWidget& widget, int milliseconds);

}  // namespace sentrel
