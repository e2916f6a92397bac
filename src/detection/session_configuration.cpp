// SPDX-License-Identifier: Apache-2.0
#include "detection/session_configuration.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace sentrel {

namespace {

constexpr int frameWidth = 640;
constexpr int frameHeight = 480;
// A camera service that was just started lists its devices within a second or two.
constexpr std::chrono::milliseconds firstListingTimeout{3000};

bool anyDeviceFor(const CaptureSession& session, const std::optional<std::string>& preferredID) {
  if (preferredID) {
    const auto devices = session.devices();
    if (std::ranges::find(devices, *preferredID, &CameraDevice::uniqueID) != devices.end()) return true;
  }
  return session.defaultDevice(CameraPosition::front) || session.defaultDevice(CameraPosition::unspecified);
}

/// A camera that is away or taken comes back without us: only what a person must mend is an error.
bool sessionRecoversFrom(const CaptureError& error) {
  return error.kind != CaptureError::Kind::accessDenied;
}

}  // namespace

std::optional<StartError> configureSession(CaptureSession& session,
                                           const std::optional<std::string>& preferredID,
                                           std::function<void(const FrameRef&)> onFrame) {
  session.beginConfiguration();
  session.setPreset(frameWidth, frameHeight);

  session.awaitDevices(firstListingTimeout);
  if (!anyDeviceFor(session, preferredID) && !session.hasSeenDevice()) {
    if (auto error = session.serviceError()) return *std::move(error);
    return CameraError::noCameraAvailable;
  }

  // The session picks the default camera itself while the preferred one is away, also later on.
  const DeviceInput input{preferredID};
  if (auto error = session.checkInput(input); error && !sessionRecoversFrom(*error)) return *std::move(error);
  if (!session.canAddInput(input)) return CameraError::configurationFailed;
  session.addInput(input);

  if (!session.canAddOutput()) return CameraError::configurationFailed;
  session.addOutput({std::move(onFrame)});
  session.commitConfiguration();
  return std::nullopt;
}

void switchInput(CaptureSession& session, const std::optional<std::string>& preferredID) {
  session.beginConfiguration();
  session.removeInputs();
  const DeviceInput input{preferredID};
  if (anyDeviceFor(session, preferredID) && !session.checkInput(input) && session.canAddInput(input))
    session.addInput(input);
  session.commitConfiguration();
}

}  // namespace sentrel
