// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/desktop_overlay_backend.h"

#include <QByteArray>
#include <string>

#include "linux/overlay/wayland/wayland_overlay_surface.h"
#include "linux/overlay/x11/x11_overlay_surface.h"

namespace sentrel {

namespace {

/// The overlay where nothing can be covered: no screens, and it says so.
class NullOverlayBackend final : public OverlayBackend {
 public:
  [[nodiscard]] std::string system() const override { return {}; }
  [[nodiscard]] std::vector<Screen> screens() const override { return {}; }
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& /*screen*/) override {
    return std::make_unique<Surface>();
  }
  [[nodiscard]] std::string limitation() const override { return "error_no_overlay"; }
  void setHeld(bool /*held*/) override {}

 private:
  class Surface final : public OverlaySurface {
   public:
    void present(const OverlayScene& /*scene*/) override {}
    void setTint(TintLevel /*level*/) override {}
    void setPicture(const std::optional<RetroPicture>& /*picture*/) override {}
  };
};

}  // namespace

std::unique_ptr<OverlayBackend> createOverlayBackend(MainLoop& loop) {
  const std::string wayland = qgetenv("WAYLAND_DISPLAY").toStdString();
  const std::string x11 = qgetenv("DISPLAY").toStdString();
  if (!wayland.empty()) {
    using Reach = WaylandDesktop::Reach;
    const auto reach = WaylandDesktop::probe(wayland);
    // A compositor that is not there yet is waited for where there is nothing else. One that hangs will most
    // likely let itself be covered once it answers, except that of GNOME.
    const bool waits =
        (reach == Reach::absent && x11.empty()) ||
        (reach == Reach::silent && (x11.empty() || !qgetenv("XDG_CURRENT_DESKTOP").contains("GNOME")));
    if (reach == Reach::covers || waits) return std::make_unique<WaylandOverlayBackend>(loop, wayland);
  }
  if (!x11.empty()) return std::make_unique<X11OverlayBackend>(loop, x11);
  return std::make_unique<NullOverlayBackend>();
}

}  // namespace sentrel
