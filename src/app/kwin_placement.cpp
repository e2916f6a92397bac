// SPDX-License-Identifier: Apache-2.0
#include "app/kwin_placement.h"

#include <QGuiApplication>
#include <string_view>

#include <qpa/qplatformnativeinterface.h>

namespace sentrel {

namespace {

/// The first one that opens windows at the pointer.
constexpr std::uint32_t leastVersion = ORG_KDE_PLASMA_SURFACE_OPEN_UNDER_CURSOR_SINCE_VERSION;

}  // namespace

KwinPlacement::KwinPlacement() {
  static constexpr wl_registry_listener listener{
      .global =
          [](void* data, wl_registry*, std::uint32_t name, const char* interface, std::uint32_t version) {
            if (std::string_view(interface) == org_kde_plasma_shell_interface.name)
              static_cast<KwinPlacement*>(data)->appeared(name, version);
          },
      .global_remove = [](void*, wl_registry*, std::uint32_t) {}};
  if (QGuiApplication::platformName() != QLatin1String("wayland")) return;
  auto* display = static_cast<wl_display*>(
      QGuiApplication::platformNativeInterface()->nativeResourceForIntegration("wl_display"));
  if (display == nullptr) return;
  registry_.reset(wl_display_get_registry(display));
  wl_registry_add_listener(registry_.get(), &listener, this);
}

void KwinPlacement::appeared(std::uint32_t name, std::uint32_t version) {
  if (shell_ || version < leastVersion) return;
  shell_.reset(static_cast<org_kde_plasma_shell*>(
      wl_registry_bind(registry_.get(), name, &org_kde_plasma_shell_interface, leastVersion)));
}

void KwinPlacement::openAtPointer(QWidget& window) {
  if (!shell_) return;
  (void)window.winId();  // from now on it has a surface
  auto* surface = static_cast<wl_surface*>(
      QGuiApplication::platformNativeInterface()->nativeResourceForWindow("surface", window.windowHandle()));
  if (surface == nullptr) return;
  placed_.reset(org_kde_plasma_shell_get_surface(shell_.get(), surface));
  org_kde_plasma_surface_open_under_cursor(placed_.get());
  org_kde_plasma_surface_set_skip_taskbar(placed_.get(), 1);
  org_kde_plasma_surface_set_skip_switcher(placed_.get(), 1);
}

}  // namespace sentrel
