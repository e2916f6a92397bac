// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/feedbackd_haptics.h"

#include <utility>

namespace sentrel {

FeedbackdHaptics::FeedbackdHaptics(std::shared_ptr<Bus> sessionBus)
    : service_(std::move(sessionBus), "org.sigxcpu.Feedback", {}) {}

void FeedbackdHaptics::perform() {
  constexpr int noHints = 0;
  constexpr int onlyOnce = -1;  // its natural length
  service_.call({"/org/sigxcpu/Feedback", "org.sigxcpu.Feedback", "TriggerFeedback"}, {}, "ssa{sv}i",
                "expert.mardeck.sentrel", "message-new-instant", noHints, onlyOnce);
}

}  // namespace sentrel
