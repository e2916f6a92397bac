// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel {

/// Leaves all memory out of this process's core dumps, whoever takes them: a crash handler, or a debugger
/// that is asked for one. The threads' registers and the list of loaded files stay, so that the place of a
/// crash can still be found.
///
/// Pictures pass through libraries that copy them where they please; to leave out our own buffers alone would
/// not be enough. To deny others every look into the process (PR_SET_DUMPABLE) would be too much: the
/// desktop's portals and compositors look there to find out who is calling.
///
/// Where the kernel has no such setting the process is made undumpable all the same. False where neither can
/// be had. Children would inherit it.
[[nodiscard]] bool keepMemoryOutOfCoreDumps();

}  // namespace sentrel
