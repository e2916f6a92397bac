// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/frame.h"

namespace sentrel::test {

/// A drawing of a person before a wall with a shelf, as a camera would give it: 640 by 480. The shelf is on
/// the left, so that a mirrored preview shows it on the right.
FrameRef drawnPerson();

}  // namespace sentrel::test
