// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QVariantMap>

namespace sentrel {

/// What is in a file of dconf, where GNOME's settings are kept (its format is that of GVDB): each text, truth
/// value and double by its path, as "/org/gnome/desktop/interface/gtk-theme". Of what is no such file, or a
/// damaged one, as much as can be read.
[[nodiscard]] QVariantMap readDconf(const QByteArray& bytes);

}  // namespace sentrel
