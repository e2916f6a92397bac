// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace sentrel {

/// False when `folder` holds video device files and this process may read none of them. Opens nothing: that
/// would wake a camera. Any thread.
[[nodiscard]] bool mayReadVideoDevices(const std::filesystem::path& folder = "/dev");

}  // namespace sentrel
