// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_desktop.h"

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {

constexpr std::size_t paletteColors = 1024;  // one page

// At the origin of the compositor's space, else the first.
void markMain(std::vector<Screen>& screens) {
  if (screens.empty()) return;
  const auto atOrigin =
      std::ranges::find_if(screens, [](const Screen& s) { return s.frame.x == 0 && s.frame.y == 0; });
  (atOrigin == screens.end() ? screens.begin() : atOrigin)->isMain = true;
}

}  // namespace

std::unique_ptr<WaylandDesktop> WaylandDesktop::open(const std::string& display, MainLoop& loop,
                                                     Handlers handlers) {
  auto connection = WaylandConnection::open(display);
  if (!connection || !connection->canCover()) return nullptr;
  auto colors = WaylandMemory::allocate(connection->sharedMemory(), paletteColors);
  if (!colors) return nullptr;
  std::unique_ptr<WaylandDesktop> desktop(
      new WaylandDesktop(std::move(connection), std::move(*colors), loop, std::move(handlers)));
  // With the answers to this the outputs have told all about themselves.
  if (wl_display_roundtrip(desktop->connection().get()) < 0) return nullptr;
  return desktop;
}

WaylandDesktop::WaylandDesktop(std::unique_ptr<WaylandConnection> connection, WaylandMemory colors,
                               MainLoop& loop, Handlers handlers)
    : connection_(std::move(connection)),
      loop_(loop),
      handlers_(std::move(handlers)),
      palette_(std::move(colors)),
      pump_(connection_->get(), [this] { loss_ = loop_.after(0, [lost = handlers_.lost] { lost(); }); }) {
  connection_->onOutputsChanged([this] { updateOutputs(); });
  updateOutputs();
}

std::vector<Screen> WaylandDesktop::screens() const {
  std::vector<Screen> result;
  for (const auto& output : outputs_) {
    if (output->isKnown()) result.push_back(output->screen());
  }
  markMain(result);
  return result;
}

const WaylandOutput* WaylandDesktop::output(std::uint64_t screenId) const {
  const auto found = std::ranges::find_if(outputs_, [screenId](const auto& output) {
    return output->isKnown() && output->screen().id == screenId;
  });
  return found == outputs_.end() ? nullptr : found->get();
}

void WaylandDesktop::updateOutputs() {
  const auto& globals = connection_->outputs();
  std::erase_if(outputs_, [&globals](const auto& output) {
    return std::ranges::find(globals, output->globalName(), &WaylandConnection::OutputGlobal::name) ==
           globals.end();
  });
  // One announcement for what comes together, in a turn of its own: surfaces come and go with it.
  const auto announce = [this] { change_ = loop_.after(0, [changed = handlers_.changed] { changed(); }); };
  for (const auto& global : globals) {
    if (std::ranges::none_of(outputs_, [&](const auto& o) { return o->globalName() == global.name; })) {
      outputs_.push_back(std::make_unique<WaylandOutput>(*connection_, global, announce));
    }
  }
  announce();
}

}  // namespace sentrel
