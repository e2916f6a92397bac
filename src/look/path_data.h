// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPainterPath>
#include <QStringView>
#include <optional>

namespace sentrel {

/// Reads the path data of our own drawings: the absolute commands M, L, C and Z, numbers apart by spaces or
/// commas, as many coordinates a command as wanted. Filled by the even-odd rule. None for anything else. Any
/// thread.
[[nodiscard]] std::optional<QPainterPath> parsePathData(QStringView data);

}  // namespace sentrel
