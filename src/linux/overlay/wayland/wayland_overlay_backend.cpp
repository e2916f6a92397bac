// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_overlay_backend.h"

#include <chrono>

#include "linux/overlay/wayland/wayland_overlay_surface.h"
#include "linux/overlay/wayland/wayland_retro_surface.h"

namespace sentrel {

namespace {
// Nothing of ours runs yet that could be held up.
constexpr std::chrono::seconds patience{1};
}  // namespace

WaylandOverlayBackend::Reach WaylandOverlayBackend::probe(const std::string& display) {
  const auto connection = WaylandConnection::open(display);
  if (!connection) return Reach::absent;
  bool answered = false;
  connection->whenAnswered([&answered] { answered = true; });
  if (!connection->await(patience, [&answered] { return answered; }))
    return connection->broken() ? Reach::absent : Reach::silent;
  return connection->canCover() ? Reach::covers : Reach::refuses;
}

std::unique_ptr<OverlaySurface> WaylandOverlayBackend::createSurface(const Screen& screen) {
  return std::make_unique<WaylandOverlaySurface>(list(), screen.id);
}

std::unique_ptr<RetroSurface> WaylandOverlayBackend::createRetroSurface() {
  return std::make_unique<WaylandRetroSurface>(list());
}

}  // namespace sentrel
