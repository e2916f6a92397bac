// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace sentrel::vision {

/// Where this program's models are: in the data folder beside the running binary's, be it installed or in its
/// build tree. The folder need not exist.
[[nodiscard]] std::filesystem::path modelFolder();

}  // namespace sentrel::vision
