// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "detection/camera_error.h"
#include "platform/capture_session.h"

namespace sentrel {

// How the capture session is configured. Camera queue.

/// Asks `session` for 640x480 pictures of the camera `preferredID`, or of the default one, given to
/// `onFrame`. The configuration is committed on success only: a failure leaves it open, and the next attempt
/// goes on in it.
std::optional<StartError> configureSession(CaptureSession& session,
                                           const std::optional<std::string>& preferredID,
                                           std::function<void(const FrameRef&)> onFrame);

/// Swaps the camera of a running session. Where none can be had the session is left without one.
void switchInput(CaptureSession& session, const std::optional<std::string>& preferredID);

}  // namespace sentrel
