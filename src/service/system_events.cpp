// SPDX-License-Identifier: Apache-2.0
//
// How events of the system become events of the machine, while protection is on.
#include "service/privacy_filter_service.h"

namespace sentrel {

void PrivacyFilterService::observeSystemEvents() {
  interruptedRegistration_ = captureSession_->wasInterrupted.connect([this] { cameraInterrupted(); });
  interruptionEndedRegistration_ = captureSession_->interruptionEnded.connect([this] { cameraResumed(); });
}

void PrivacyFilterService::removeSystemEventObservers() {
  interruptedRegistration_.reset();
  interruptionEndedRegistration_.reset();
}

void PrivacyFilterService::cameraInterrupted() {
  fsm.onSystemEvent(FilterFsm::SystemEvent::cameraBusy);
}

void PrivacyFilterService::cameraResumed() {
  fsm.onSystemEvent(FilterFsm::SystemEvent::cameraAvailable);
}

}  // namespace sentrel
