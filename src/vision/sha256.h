// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace sentrel::vision {

/// The SHA-256 digest (FIPS 180-4) of the bytes as 64 lower-case hexadecimal digits.
[[nodiscard]] std::string sha256(std::span<const std::byte> bytes);

}  // namespace sentrel::vision
