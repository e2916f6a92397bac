// SPDX-License-Identifier: Apache-2.0
#pragma once

class QWidget;

namespace sentrel {

/// Once `window` has gone, and no other is seen, what it needed goes back to the system: the allocator would
/// keep some megabytes for windows that may not open again for weeks. Main thread.
void giveMemoryBackAfter(const QWidget& window);

}  // namespace sentrel
