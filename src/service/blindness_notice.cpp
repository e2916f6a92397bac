// SPDX-License-Identifier: Apache-2.0
#include "service/blindness_notice.h"

#include <utility>

namespace sentrel {

namespace {
constexpr const char* cameraNotification = "sentrel.camera";
}

BlindnessNotice::BlindnessNotice(std::shared_ptr<MainLoop> mainLoop,
                                 std::shared_ptr<CameraControl> cameraControl,
                                 std::shared_ptr<Notifications> notifications, LocalizedText localizedText)
    : mainLoop_(std::move(mainLoop)),
      cameraControl_(std::move(cameraControl)),
      notifications_(std::move(notifications)),
      localizedText_(std::move(localizedText)) {}

void BlindnessNotice::follow(const CameraControl::Status& status) {
  using Kind = CameraControl::Status::Kind;
  if (status.kind == Kind::seeing) {
    end();
  } else if (status.kind != Kind::blind) {
    timer_.reset();
  } else if (!told_ && !timer_) {
    timer_ = mainLoop_->after(patienceMs, [this] { tell(); });
  }
}

void BlindnessNotice::tell() {
  timer_.reset();
  const auto& failure = cameraControl_->failure().get();
  if (!failure) return;
  told_ = true;
  notifications_->add(cameraNotification, {.title = localizedText_(textKey(failure->kind)),
                                           .body = localizedText_(textId("notif_camera_text"))});
}

void BlindnessNotice::end() {
  timer_.reset();
  if (std::exchange(told_, false)) notifications_->remove(cameraNotification);
}

}  // namespace sentrel
