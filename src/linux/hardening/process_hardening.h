// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel {

/// Takes from this process, for good, what it never needs: sockets of any family but the local one
/// (AF_UNIX), the asynchronous system-call rings, through which sockets could be had as well, the start of
/// other programs, the memory and the descriptors of other processes, and the parts of the kernel through
/// which a fault of a program most often becomes one of the system. Each is answered with EPERM. Holds for
/// all threads, whenever they were started, and, as the kernel demands it, privileges can no longer be
/// gained.
///
/// Against: a fault in this program or in one of the many libraries that it loads which would send pictures
/// away, have another program send them, or take over another program or the kernel. Not against: a local
/// service that is asked to do so.
///
/// False where the kernel has no such filters; nothing is taken away then.
[[nodiscard]] bool installSystemCallFilter();

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
