// SPDX-License-Identifier: Apache-2.0
#include "service/screen_cover.h"

namespace sentrel {

ScreenCover::ScreenCover(const ServiceDependencies& dependencies) : uses_(dependencies) {
  revealAsked_ = uses_.overlayManager->revealAsked.connect([this] {
    if (isCovered()) toggle();
  });
  canObserve_ = uses_.platform.keyMonitor->grantChanged.connect([this] { updateShortcut(); });
  options_ = uses_.settingsRepo->options.subscribe([this](const ProtectionOptions&) { update(); });
}

ScreenCover::Answer ScreenCover::toggle() {
  if (locked_ == true || uses_.platform.sessionEvents->isLocked()) return Answer::locked;
  if (waiting_ || isCovered()) {
    setCovered(false);
  } else if (!uses_.overlayManager->hasScreens()) {
    return Answer::impossible;
  } else if (locked_) {
    setCovered(true);
  } else {
    waiting_ = true;
    update();
  }
  return Answer::done;
}

void ScreenCover::setCovered(bool covered) {
  waiting_ = false;
  covered ? uses_.overlayManager->hideScreens() : uses_.overlayManager->revealScreens();
  update();
}

bool ScreenCover::wantsShortcut() const {
  return uses_.settingsRepo->options.get().coverShortcutEnabled;
}

/// Listens to what is needed now, and no longer.
void ScreenCover::update() {
  if (waiting_ || isCovered() || wantsShortcut()) {
    if (!lock_) lock_ = uses_.platform.sessionEvents->followLock([this](bool locked) { lockTold(locked); });
  } else {
    lock_.reset();
    locked_.reset();
    uses_.overlayManager->setHeld(false);
  }
  updateShortcut();
}

void ScreenCover::lockTold(bool locked) {
  locked_ = locked;
  uses_.overlayManager->setHeld(locked);
  if (!waiting_) return updateShortcut();
  waiting_ = false;
  locked ? update() : setCovered(true);
}

/// What is typed while the screen is locked is a password.
void ScreenCover::updateShortcut() {
  KeyMonitor& keys = *uses_.platform.keyMonitor;
  if (!wantsShortcut()) keys.forget(Shortcut::cover);
  if (!wantsShortcut() || locked_ != false) {
    shortcut_.reset();
  } else if (!shortcut_) {
    shortcut_ = keys.observe(Shortcut::cover, [this] { toggle(); });
  }
  Cover look = uses_.overlayManager->coverLook;
  look.shortcut = static_cast<bool>(shortcut_) && keys.canObserve(Shortcut::cover);
  uses_.overlayManager->coverLook.assignIfChanged(look);
}

}  // namespace sentrel
