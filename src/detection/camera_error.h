// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "platform/capture_session.h"
#include "platform/face_detector.h"

namespace sentrel {

/// The camera's failures; they carry no text.
enum class CameraError { permissionDenied, noCameraAvailable, configurationFailed, interrupted };

/// Why a session did not start: the camera's own failure, the device's as it was given, or the detector's.
using StartError = std::variant<CameraError, CaptureError, FaceDetectorError>;

/// How a request to start ended.
struct StartResult {
  enum class Outcome {
    started,           ///< the session runs, perhaps still without frames
    stoppedMeanwhile,  ///< a stop came while the start was under way, and won
    failed,            ///< for the reason in `error`
  };
  Outcome outcome = Outcome::started;
  std::optional<StartError> error;
};
using StartCompletion = std::function<void(const StartResult&)>;

/// What keeps the camera from giving frames, for the person.
struct CameraFailure {
  enum class Kind { noCamera, cameraDenied, cameraBusy, modelMissing, noPipeWire, analysisFailed };
  Kind kind = Kind::noCamera;
  std::string detail;  ///< for a log line; may be empty
  bool operator==(const CameraFailure&) const = default;
};

/// The key of the text that tells a person of `kind`.
const char* textKey(CameraFailure::Kind kind);

/// The key of what the person can do about `kind`.
const char* adviceKey(CameraFailure::Kind kind);

CameraFailure describe(const StartError& error);

}  // namespace sentrel
