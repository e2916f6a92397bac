// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace sentrel {

/// The text of a key in the person's language. Main thread.
using LocalizedText = std::function<std::string(std::string_view key)>;

}  // namespace sentrel
