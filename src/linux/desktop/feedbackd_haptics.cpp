// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/feedbackd_haptics.h"

#include <QVariantMap>
#include <utility>

namespace sentrel {

FeedbackdHaptics::FeedbackdHaptics(std::shared_ptr<BusThread> buses)
    : buses_(std::move(buses)), service_(buses_->reside<BusPeer>([](Buses& both) {
        return std::make_unique<BusPeer>(both.session, QStringLiteral("org.sigxcpu.Feedback"),
                                         BusPeer::Followers{});
      })) {}

void FeedbackdHaptics::perform() {
  service_.call([](BusPeer& service) {
    constexpr int onlyOnce = -1;  // its natural length
    service.call({QStringLiteral("/org/sigxcpu/Feedback"), QStringLiteral("org.sigxcpu.Feedback"),
                  QStringLiteral("TriggerFeedback")},
                 {QStringLiteral("expert.mardeck.sentrel"), QStringLiteral("message-new-instant"),
                  QVariantMap(), onlyOnce});
  });
}

}  // namespace sentrel
