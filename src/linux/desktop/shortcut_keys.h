// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <string>

#include "platform/desktop_services.h"

namespace sentrel {

/// The keys of a shortcut in the desktop's words; as this program writes them, where they are those that it
/// asked for. Empty where nothing of the words can be shown.
[[nodiscard]] std::string shownKeys(const QString& words, Shortcut shortcut);

}  // namespace sentrel
