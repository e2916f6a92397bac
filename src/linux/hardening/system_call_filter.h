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

}  // namespace sentrel
