// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVariantMap>

namespace sentrel {

// The desktop's leave to come to the front goes from the program that the person used to the one that shows a
// window, as platform data of `org.freedesktop.Application`. Main thread.

/// Makes room in the environment for tokens to come. To be called once, before the first thread starts.
void reserveActivationToken();

/// What a second start hands to the first.
[[nodiscard]] QVariantMap ownActivationToken();

/// The next window that is activated uses what `platformData` brings.
void adoptActivationToken(const QVariantMap& platformData);

}  // namespace sentrel
