// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace sentrel {

/// Ends the process for a fault that no caller can mend: one line on standard error, then abort. Overlays
/// vanish with their connection, so a covered screen is never left behind. Any thread.
[[noreturn]] void fatal(std::string_view message);

}  // namespace sentrel
