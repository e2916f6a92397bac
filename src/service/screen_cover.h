// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "service/service_dependencies.h"
#include "support/registration.h"

namespace sentrel {

/// Covers every screen at once because the person asked for it, and uncovers them when asked again: by a
/// command, by the shortcut where the person wants one, or by the button on the cover. Needs neither the
/// camera nor protection. It is no lock: who asks for it uncovers. While the screen is locked nothing
/// changes. Main thread.
class ScreenCover {
 public:
  enum class Answer {
    done,
    locked,     ///< refused: the screen is locked
    impossible  ///< refused: no screen of this desktop can be covered
  };

  explicit ScreenCover(const ServiceDependencies& dependencies);

  /// Covers, or uncovers what is covered. Where it is not known yet whether the screen is locked, it covers
  /// as soon as it is known not to be, within half a second.
  Answer toggle();
  [[nodiscard]] const Published<bool>& isCovered() const { return uses_.overlayManager->isCovered(); }

 private:
  void update();
  void updateShortcut();
  void setCovered(bool covered);
  void lockTold(bool locked);
  [[nodiscard]] bool wantsShortcut() const;

  const ServiceDependencies& uses_;
  bool waiting_ = false;        // to cover, for what is known of the lock
  std::optional<bool> locked_;  // none while that is not followed or not known
  Registration options_;
  Registration lock_;  // while the shortcut is wanted, and while something is covered or about to be
  Registration shortcut_;
  Registration canObserve_;
  Registration revealAsked_;
};

}  // namespace sentrel
