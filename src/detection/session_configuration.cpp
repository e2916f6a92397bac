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

bool isListed(const CaptureSession& session, const std::string& id) {
  const auto devices = session.devices();
  return std::ranges::find(devices, id, &CameraDevice::uniqueID) != devices.end();
}

bool anyDevice(const CaptureSession& session) {
  return session.defaultDevice(CameraPosition::front) || session.defaultDevice(CameraPosition::unspecified);
}

/// The preferred camera, also one that was unplugged and that the session can wait for, else the default one.
DeviceInput chooseInput(CaptureSession& session, const std::optional<std::string>& preferredID) {
  DeviceInput preferred{preferredID};
  if (preferredID && (isListed(session, *preferredID) || !session.checkInput(preferred))) return preferred;
  return {};
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
  if (!anyDevice(session) && !session.hasSeenDevice()) {
    if (auto error = session.serviceError()) return *std::move(error);
    return CameraError::noCameraAvailable;
  }

  const DeviceInput input = chooseInput(session, preferredID);
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
  const DeviceInput input = chooseInput(session, preferredID);
  // Where nothing is listed the default input waits for the camera that comes.
  if (!session.checkInput(input) && session.canAddInput(input)) session.addInput(input);
  session.commitConfiguration();
}

}  // namespace sentrel
