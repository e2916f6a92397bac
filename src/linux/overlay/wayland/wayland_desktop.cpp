// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_desktop.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace sentrel {

namespace {

constexpr std::size_t paletteColors = 1024;  // one page
// A compositor that is well answers in a hundredth of this.
constexpr std::chrono::milliseconds moment{250};

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
  if (!connection) return nullptr;
  std::unique_ptr<WaylandDesktop> desktop(
      new WaylandDesktop(std::move(connection), loop, std::move(handlers)));
  const auto answered = [&] { return desktop->stage_ != Stage::asking; };
  desktop->connection_->await(moment, answered);
  if (desktop->stage_ == Stage::useless || desktop->connection_->broken()) return nullptr;
  return desktop;
}

WaylandDesktop::WaylandDesktop(std::unique_ptr<WaylandConnection> connection, MainLoop& loop,
                               Handlers handlers)
    : connection_(std::move(connection)),
      loop_(loop),
      handlers_(std::move(handlers)),
      pump_(connection_->get(), [this] { lose(); }) {
  connection_->whenAnswered([this] { offersKnown(); });
}

void WaylandDesktop::offersKnown() {
  auto colors = connection_->canCover() ? WaylandMemory::allocate(connection_->sharedMemory(), paletteColors)
                                        : std::nullopt;
  if (!colors) {
    stage_ = Stage::useless;
    lose();
    return;
  }
  palette_.emplace(std::move(*colors));
  connection_->onOutputsChanged([this] { updateOutputs(); });
  updateOutputs();
  // With the answers to this the outputs have told all about themselves.
  connection_->whenAnswered([this] {
    stage_ = Stage::usable;
    announce();
  });
}

void WaylandDesktop::lose() {
  loss_ = loop_.after(0, [lost = handlers_.lost] { lost(); });
}

std::vector<Screen> WaylandDesktop::screens() const {
  std::vector<Screen> result;
  if (!isUsable()) return result;
  for (const auto& output : outputs_) {
    if (output->isKnown()) result.push_back(output->screen());
  }
  markMain(result);
  return result;
}

std::shared_ptr<const WaylandOutput> WaylandDesktop::output(std::uint64_t screenId) const {
  if (!isUsable()) return nullptr;
  const auto found = std::ranges::find_if(outputs_, [screenId](const auto& output) {
    return output->isKnown() && output->screen().id == screenId;
  });
  return found == outputs_.end() ? nullptr : *found;
}

void WaylandDesktop::updateOutputs() {
  const auto& globals = connection_->outputs();
  std::erase_if(outputs_, [&globals](const auto& output) {
    return std::ranges::find(globals, output->globalName(), &WaylandConnection::OutputGlobal::name) ==
           globals.end();
  });
  for (const auto& global : globals) {
    if (std::ranges::none_of(outputs_, [&](const auto& o) { return o->globalName() == global.name; })) {
      outputs_.push_back(std::make_shared<WaylandOutput>(*connection_, global, [this] { announce(); }));
    }
  }
  announce();
}

/// One announcement for what comes together, in a turn of its own: surfaces come and go with it.
void WaylandDesktop::announce() {
  change_ = loop_.after(0, [changed = handlers_.changed] { changed(); });
}

}  // namespace sentrel
