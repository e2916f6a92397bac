// SPDX-License-Identifier: Apache-2.0
#include "service/live_view.h"

#include <algorithm>
#include <utility>

namespace sentrel {

Registration LiveView::watch(std::function<void(const LiveFrame& frame)> onFrame) {
  Registration registration = frames_.connect(std::move(onFrame));
  attach();
  return registration;
}

void LiveView::follow(const std::shared_ptr<VisionFaceAnalyzer>& analyzer) {
  analyzer_ = analyzer;
  found_.reset();
  if (frames_.observerCount() > 0) attach();
}

void LiveView::attach() {
  const auto analyzer = analyzer_.lock();
  if (!analyzer || analyzer->onDetections) return;
  // The analyser may outlive this.
  analyzer->onDetections = [this, alive = std::weak_ptr(alive_)](
                               std::int64_t timestampMs, std::shared_ptr<const FaceDetections> found) {
    if (alive.expired()) return;
    foundMs_ = timestampMs;
    found_ = std::move(found);
  };
}

void LiveView::judged(std::int64_t timestampMs, const OnlookerFilter::Frame& frame,
                      const OnlookerFilter& filter, const FilterFsm& fsm) {
  const auto found = std::exchange(found_, nullptr);
  if (frames_.observerCount() == 0) {
    if (const auto analyzer = analyzer_.lock()) analyzer->onDetections = nullptr;
    return;
  }
  if (!found || foundMs_ != timestampMs) return;
  LiveFrame live;
  live.timestampMs = timestampMs;
  std::size_t counted = 0;
  for (const FaceObservation& face : found->rectangles) {
    // Those that do not count are too far away to read anything, and were not judged.
    const FaceRole role = counts(face) ? frame.roles.at(counted++) : FaceRole::tooFar;
    const auto* read = std::ranges::find(found->landmarks, face.boundingBox, &FaceObservation::boundingBox);
    const bool isRead = !face.yaw && read != found->landmarks.end();
    live.faces.push_back({face.boundingBox, isRead ? read->yaw : face.yaw, role});
  }
  const bool isAlert = fsm.state().get().is(FilterState::Kind::alert);
  if (const auto timer = fsm.timer(timestampMs)) live.timers.push_back(*timer);
  const auto timer = filter.timer();
  if (timer && !isAlert) live.timers.push_back(*timer);
  frames_.emit(live);
}

}  // namespace sentrel
