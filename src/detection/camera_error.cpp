// SPDX-License-Identifier: Apache-2.0
#include "detection/camera_error.h"

#include "platform/desktop_services.h"

namespace sentrel {

namespace {

using Kind = CameraFailure::Kind;

struct Describer {
  CameraFailure operator()(CameraError error) const {
    switch (error) {
      case CameraError::permissionDenied:
        return {Kind::cameraDenied, {}};
      case CameraError::noCameraAvailable:
        return {Kind::noCamera, {}};
      case CameraError::configurationFailed:
      case CameraError::interrupted:
        break;
    }
    return {Kind::cameraBusy, {}};
  }
  CameraFailure operator()(const CaptureError& error) const {
    switch (error.kind) {
      case CaptureError::Kind::deviceUnavailable:
        return {Kind::noCamera, error.message};
      case CaptureError::Kind::accessDenied:
        return {Kind::cameraDenied, error.message};
      case CaptureError::Kind::noService:
        return {Kind::noPipeWire, error.message};
      case CaptureError::Kind::busy:
        break;
    }
    return {Kind::cameraBusy, error.message};
  }
  CameraFailure operator()(const FaceDetectorError& error) const {
    return {Kind::modelMissing, error.message};
  }
};

}  // namespace

const char* textKey(CameraFailure::Kind kind) {
  switch (kind) {
    case Kind::noCamera:
      return textId("error_no_camera");
    case Kind::cameraDenied:
      return textId("error_camera_denied");
    case Kind::modelMissing:
      return textId("error_model_missing");
    case Kind::noPipeWire:
      return textId("error_no_pipewire");
    case Kind::analysisFailed:
      return textId("error_analysis_failed");
    case Kind::cameraBusy:
      break;
  }
  return textId("error_camera_busy");
}

const char* adviceKey(CameraFailure::Kind kind) {
  switch (kind) {
    case Kind::noCamera:
      return textId("advice_no_camera");
    case Kind::cameraDenied:
      return textId("advice_camera_denied");
    case Kind::modelMissing:
      return textId("advice_model_missing");
    case Kind::noPipeWire:
      return textId("advice_no_pipewire");
    case Kind::analysisFailed:
      return textId("advice_analysis_failed");
    case Kind::cameraBusy:
      break;
  }
  return textId("advice_camera_busy");
}

CameraFailure describe(const StartError& error) {
  return std::visit(Describer{}, error);
}

}  // namespace sentrel
