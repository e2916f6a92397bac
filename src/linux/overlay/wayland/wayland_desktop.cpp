// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_desktop.h"

#include <QtGlobal>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>

namespace sentrel {

namespace {

constexpr std::size_t paletteColors = 1024;  // one page
// A compositor that is well answers in a hundredth of this.
constexpr std::chrono::milliseconds openLimit{250};
// Nothing of ours runs yet that could be held up.
constexpr std::chrono::seconds probeLimit{1};

constexpr double leastScale = 0.5;
constexpr double greatestScale = 8;

}  // namespace

double deviceScale(const WaylandOutputState& state) {
  const double whole = std::clamp<double>(state.scale, 1, greatestScale);
  if (state.logical.width <= 0 || state.logical.height <= 0 || state.modeWidth <= 0) return whole;
  const double horizontal = static_cast<double>(state.modeWidth) / state.logical.width;
  const double vertical = static_cast<double>(state.modeHeight) / state.logical.height;
  // A logical size is rounded to whole pixels; more than that apart, one of the sizes is not what it seems.
  const double tolerance = horizontal / std::min(state.logical.width, state.logical.height);
  if (std::abs(horizontal - vertical) > tolerance) return whole;
  if (horizontal < leastScale || horizontal > greatestScale) return whole;
  return horizontal;
}

Rect logicalFrame(const WaylandOutputState& state) {
  Rect frame = state.logical;
  if (frame.width > 0 && frame.height > 0) return frame;
  const int scale = std::max(state.scale, 1);
  frame.width = state.modeWidth / scale;
  frame.height = state.modeHeight / scale;
  return frame;
}

void WaylandGlobals::appeared(const WaylandConnection& connection, std::uint32_t name,
                              std::string_view interface, std::uint32_t version) {
  const auto bind = [&](auto& object, const wl_interface& known, std::uint32_t least, std::uint32_t newest) {
    if (object || interface != known.name || version < least) return;
    using Type = typename std::remove_reference_t<decltype(object)>::element_type;
    object = connection.bind<Type>(name, known, std::min(version, newest));
  };
  // From version 4 on, damage of surfaces is told in the buffer's own pixels.
  bind(compositor, wl_compositor_interface, 4, 4);
  if (interface == wl_compositor_interface.name) compositorVersion = version;
  bind(subcompositor, wl_subcompositor_interface, 1, 1);
  bind(sharedMemory, wl_shm_interface, 1, 1);
  bind(viewporter, wp_viewporter_interface, 1, 1);
  bind(layerShell, zwlr_layer_shell_v1_interface, 1, 1);
  bind(outputManager, zxdg_output_manager_v1_interface, 1, 3);
  bind(fractionalScales, wp_fractional_scale_manager_v1_interface, 1, 1);
  // Version 3 lets go of pointers; later ones tell more than we want to know.
  bind(seat, wl_seat_interface, 1, 3);
}

bool WaylandGlobals::canCover() const {
  return compositor && subcompositor && sharedMemory && viewporter && layerShell;
}

WaylandOutput::WaylandOutput(const WaylandConnection& connection, const WaylandGlobals& globals,
                             std::uint32_t globalName, std::uint32_t version, std::function<void()> onChange)
    : globalName_(globalName),
      onChange_(std::move(onChange)),
      // Version 4 brought the name of the output.
      output_(connection.bind<wl_output>(globalName, wl_output_interface, std::min(version, 4U))) {
  listenToOutput();
  if (!globals.outputManager) return;
  extent_.reset(zxdg_output_manager_v1_get_xdg_output(globals.outputManager.get(), get()));
  listenToExtent();
}

Screen WaylandOutput::screen() const {
  // Without a name the global's number is the best there is: it changes when the output is plugged in anew.
  const std::string name = state_.name.empty() ? "output-" + std::to_string(globalName_) : state_.name;
  return {screenIdOf(name), name, logicalFrame(state_), false, deviceScale(state_)};
}

void WaylandOutput::listenToOutput() {
  static constexpr wl_output_listener listener{
      .geometry =
          [](void* self, wl_output*, std::int32_t x, std::int32_t y, std::int32_t, std::int32_t, std::int32_t,
             const char*, const char*, std::int32_t transform) {
            auto& output = *static_cast<WaylandOutput*>(self);
            output.turned_ = (transform & 1) != 0;
            if (output.extent_) return;
            output.pending_.logical.x = x;
            output.pending_.logical.y = y;
          },
      .mode =
          [](void* self, wl_output*, std::uint32_t flags, std::int32_t width, std::int32_t height,
             std::int32_t) {
            if ((flags & WL_OUTPUT_MODE_CURRENT) == 0) return;
            auto& pending = static_cast<WaylandOutput*>(self)->pending_;
            pending.modeWidth = width;
            pending.modeHeight = height;
          },
      .done = [](void* self, wl_output*) { static_cast<WaylandOutput*>(self)->complete(); },
      .scale = [](void* self, wl_output*,
                  std::int32_t factor) { static_cast<WaylandOutput*>(self)->pending_.scale = factor; },
      .name = [](void* self, wl_output*,
                 const char* name) { static_cast<WaylandOutput*>(self)->pending_.name = name; },
      .description = [](void*, wl_output*, const char*) {},
  };
  wl_output_add_listener(get(), &listener, this);
}

void WaylandOutput::listenToExtent() {
  static constexpr zxdg_output_v1_listener listener{
      .logical_position =
          [](void* self, zxdg_output_v1*, std::int32_t x, std::int32_t y) {
            auto& logical = static_cast<WaylandOutput*>(self)->pending_.logical;
            logical.x = x;
            logical.y = y;
          },
      .logical_size =
          [](void* self, zxdg_output_v1*, std::int32_t width, std::int32_t height) {
            auto& logical = static_cast<WaylandOutput*>(self)->pending_.logical;
            logical.width = width;
            logical.height = height;
          },
      // Before version 3 of the extension this one ends a description, later the output's own.
      .done = [](void* self, zxdg_output_v1*) { static_cast<WaylandOutput*>(self)->complete(); },
      .name = [](void* self, zxdg_output_v1*,
                 const char* name) { static_cast<WaylandOutput*>(self)->pending_.name = name; },
      .description = [](void*, zxdg_output_v1*, const char*) {},
  };
  zxdg_output_v1_add_listener(extent_.get(), &listener, this);
}

void WaylandOutput::complete() {
  // The first description of an output may end before that of its extent has come.
  if (extent_ && pending_.logical.width == 0) return;
  const auto former = std::exchange(state_, pending_);
  if (turned_) std::swap(state_.modeWidth, state_.modeHeight);
  if (!std::exchange(known_, true) || state_ != former) onChange_();
}

WaylandDesktop::Reach WaylandDesktop::probe(const std::string& display) {
  std::unique_ptr<WaylandConnection> connection;
  WaylandGlobals globals;
  connection = WaylandConnection::open(
      display, {.appeared = [&](std::uint32_t name, std::string_view interface, std::uint32_t version) {
        globals.appeared(*connection, name, interface, version);
      }});
  if (!connection) return Reach::absent;
  bool answered = false;
  connection->whenAnswered([&answered] { answered = true; });
  if (!connection->await(probeLimit, [&answered] { return answered; })) {
    return connection->broken() ? Reach::absent : Reach::silent;
  }
  return globals.canCover() ? Reach::covers : Reach::refuses;
}

std::unique_ptr<WaylandDesktop> WaylandDesktop::open(const std::string& display, MainLoop& loop,
                                                     DesktopHandlers handlers) {
  std::unique_ptr<WaylandDesktop> desktop(new WaylandDesktop(loop, std::move(handlers)));
  return desktop->connect(display) ? std::move(desktop) : nullptr;
}

bool WaylandDesktop::connect(const std::string& display) {
  connection_ = WaylandConnection::open(
      display, {.appeared = [this](std::uint32_t name, std::string_view interface,
                                   std::uint32_t version) { appeared(name, interface, version); },
                .removed = [this](std::uint32_t name) { removed(name); }});
  if (!connection_) return false;
  connection_->whenAnswered([this] { offersKnown(); });
  connection_->await(openLimit, [this] { return stage_ != Stage::asking; });
  connection_->run([this] { lose(); }, [this] { announce(); });
  return stage_ != Stage::useless && !connection_->broken();
}

bool WaylandDesktop::stacksNewestLowest() const {
  constexpr std::uint32_t firstThatDoesNot = 6;
  return qEnvironmentVariableIsSet("SWAYSOCK") && globals_.compositorVersion < firstThatDoesNot;
}

void WaylandDesktop::appeared(std::uint32_t name, std::string_view interface, std::uint32_t version) {
  globals_.appeared(*connection_, name, interface, version);
  if (interface != wl_output_interface.name) return;
  offeredOutputs_.emplace_back(name, version);
  if (palette_) addOutputs();
}

void WaylandDesktop::removed(std::uint32_t name) {
  std::erase_if(offeredOutputs_, [name](const auto& offered) { return offered.first == name; });
  if (std::erase_if(outputs_, [name](const auto& output) { return output->globalName() == name; }) > 0) {
    announce();
  }
}

void WaylandDesktop::offersKnown() {
  auto colors =
      globals_.canCover() ? WaylandMemory::allocate(globals_.sharedMemory.get(), paletteColors) : nullptr;
  if (!colors) {
    stage_ = Stage::useless;
    lose();
    return;
  }
  palette_.emplace(std::move(colors));
  clicks_.emplace(globals_.compositor.get(), globals_.sharedMemory.get(), globals_.seat.get());
  addOutputs();
  // With the answers to this the outputs have told all about themselves.
  connection_->whenAnswered([this] {
    stage_ = Stage::usable;
    announce();
  });
}

void WaylandDesktop::addOutputs() {
  for (const auto& [name, version] : std::exchange(offeredOutputs_, {})) {
    outputs_.push_back(
        std::make_shared<WaylandOutput>(*connection_, globals_, name, version, [this] { announce(); }));
  }
  announce();
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
  if (result.empty()) return result;
  // The main one is at the origin of the compositor's space, else the first.
  const auto atOrigin =
      std::ranges::find_if(result, [](const Screen& s) { return s.frame.x == 0 && s.frame.y == 0; });
  (atOrigin == result.end() ? result.begin() : atOrigin)->isMain = true;
  return result;
}

std::shared_ptr<const WaylandOutput> WaylandDesktop::output(std::uint64_t screenId) const {
  if (!isUsable()) return nullptr;
  const auto found = std::ranges::find_if(outputs_, [screenId](const auto& output) {
    return output->isKnown() && output->screen().id == screenId;
  });
  return found == outputs_.end() ? nullptr : *found;
}

/// One announcement for what comes together, in a turn of its own: surfaces come and go with it.
void WaylandDesktop::announce() {
  change_ = loop_.after(0, [changed = handlers_.changed] { changed(); });
}

}  // namespace sentrel
