// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLocale>

namespace sentrel {

/// How dates and numbers are written in the language of the texts. Main thread.
[[nodiscard]] const QLocale& textLocale();

}  // namespace sentrel
