// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/capture_session.h"

namespace sentrel {

/// The kind of a failure that PipeWire tells as text alone: it is made by strerror where a device is at
/// fault.
[[nodiscard]] CaptureError captureErrorFrom(std::string message);

}  // namespace sentrel
