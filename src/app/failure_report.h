// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "detection/camera_control.h"

namespace sentrel {

/// One line on standard error: the text of `key` and, in brackets, what a technician wants to know.
void reportFailure(const char* key, const std::string& detail = {});

/// The same of a camera that gives no frames, with what the person can do.
void reportFailure(const CameraFailure& failure);

}  // namespace sentrel
