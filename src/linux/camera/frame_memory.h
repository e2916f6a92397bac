// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory_resource>

namespace sentrel {

/// Memory for pictures of the camera: whole pages of their own, left out of core dumps and of child
/// processes, and given back to the kernel, which wipes them, as soon as they are let go. Lives as long as
/// the process, because frames may outlive the session that made them. Any thread.
std::pmr::memory_resource* frameMemory();

}  // namespace sentrel
