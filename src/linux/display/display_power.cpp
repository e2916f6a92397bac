// SPDX-License-Identifier: Apache-2.0
#include "linux/display/display_power.h"

#include <X11/extensions/dpmsconst.h>
#include <sys/uio.h>
#include <xcb/dpms.h>
#include <xcb/xcbext.h>

#include <array>
#include <chrono>
#include <cstring>
#include <tuple>
#include <utility>

namespace sentrel {

namespace {

constexpr std::chrono::seconds pollInterval{20};

// DPMS 1.2 (X server 21.1). The library at hand speaks 1.1; these are the one request and the one event that
// it lacks.
constexpr std::uint8_t selectInputRequest = 8;
constexpr std::uint32_t infoNotifyMask = 1;
constexpr std::uint16_t infoNotify = 0;

struct InfoNotifyEvent {
  std::uint8_t type;
  std::uint8_t extension;
  std::uint16_t sequence;
  std::uint32_t length;
  std::uint16_t eventType;
  std::array<std::uint8_t, 2> padding;
  std::uint32_t timestamp;
  std::uint16_t powerLevel;
  std::uint8_t enabled;
};

constexpr bool isOff(bool enabled, std::uint16_t level) {
  return enabled && level != DPMSModeOn;
}

}  // namespace

X11DisplayPower::X11DisplayPower(DisplayPowerObserver observer)
    : observer_(std::move(observer)), server_(X11Connection::open()) {
  if (!server_ || !prepare()) {
    server_.reset();
    return;
  }
  server_->run([this](const xcb_generic_event_t& event) { handle(event); },
               [this] {
                 poll_.stop();
                 observer_(std::nullopt);
               });
  QObject::connect(&poll_, &QTimer::timeout, &poll_, [this] { ask(); });
  if (tellsChanges_) selectEvents();
  ask();
}

bool X11DisplayPower::prepare() {
  const auto* extension = server_->extension(xcb_dpms_id);
  if (extension == nullptr) return false;
  opcode_ = extension->major_opcode;
  const auto versionCookie = xcb_dpms_get_version(server_->get(), 1, 2);
  const auto capableCookie = xcb_dpms_capable(server_->get());
  const auto version = adopt(xcb_dpms_get_version_reply(server_->get(), versionCookie, nullptr));
  const auto capable = adopt(xcb_dpms_capable_reply(server_->get(), capableCookie, nullptr));
  if (!version || !capable || capable->capable == 0) return false;
  tellsChanges_ =
      std::tuple(version->server_major_version, version->server_minor_version) >= std::tuple(1, 2);
  return true;
}

void X11DisplayPower::selectEvents() {
  struct {
    std::uint8_t major, minor;
    std::uint16_t length;
    std::uint32_t mask;
  } request{0, 0, 0, infoNotifyMask};
  static_assert(sizeof request == 8);
  // The library fills in the header and wants two free vectors in front of the first.
  std::array<iovec, 3> vectors{{{}, {}, {&request, sizeof request}}};
  const xcb_protocol_request_t protocol{1, &xcb_dpms_id, selectInputRequest, 1};
  xcb_send_request(server_->get(), 0, &vectors[2], &protocol);
}

void X11DisplayPower::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7f) != XCB_GE_GENERIC) return;
  InfoNotifyEvent info{};
  std::memcpy(&info, &event, sizeof info);
  if (info.extension != opcode_ || info.eventType != infoNotify) return;
  observer_(isOff(info.enabled != 0, info.powerLevel));
}

void X11DisplayPower::setPolling(bool wanted) {
  if (!server_ || tellsChanges_ || wanted == poll_.isActive()) return;
  if (!wanted) return poll_.stop();
  poll_.start(pollInterval);
  ask();
}

void X11DisplayPower::ask() {
  const auto info = adopt(xcb_dpms_info_reply(server_->get(), xcb_dpms_info(server_->get()), nullptr));
  if (info) observer_(isOff(info->state != 0, info->power_level));
}

WaylandDisplayPower::WaylandDisplayPower(DisplayPowerObserver observer) : observer_(std::move(observer)) {
  closing_.setSingleShot(true);
  QObject::connect(&closing_, &QTimer::timeout, &closing_, [this] {
    outputs_.clear();
    manager_.reset();
    kwinManager_.reset();
    compositor_.reset();
  });
  const QByteArray display = qgetenv("WAYLAND_DISPLAY");
  if (display.isEmpty()) return;
  compositor_ = WaylandConnection::open(display.toStdString(),
                                        {.appeared = [this](std::uint32_t name, std::string_view interface,
                                                            std::uint32_t) { appeared(name, interface); },
                                         .removed = [this](std::uint32_t name) { removed(name); }});
  if (!compositor_) return;
  compositor_->whenAnswered([this] {
    listed_ = true;
    canTell() ? evaluate() : closing_.start(0);
  });
  compositor_->run([this] {
    closing_.start(0);
    observer_(std::nullopt);
  });
}

void WaylandDisplayPower::appeared(std::uint32_t name, std::string_view interface) {
  if (interface == zwlr_output_power_manager_v1_interface.name && !manager_) {
    manager_ =
        compositor_->bind<zwlr_output_power_manager_v1>(name, zwlr_output_power_manager_v1_interface, 1);
    for (const auto& output : outputs_) watch(*output);
  } else if (interface == org_kde_kwin_dpms_manager_interface.name && !kwinManager_) {
    kwinManager_ = compositor_->bind<org_kde_kwin_dpms_manager>(name, org_kde_kwin_dpms_manager_interface, 1);
    for (const auto& output : outputs_) watchKwin(*output);
  } else if (interface == wl_output_interface.name) {
    hadOutput_ = true;
    outputs_.push_back(std::make_unique<Output>(
        Output{*this, name, compositor_->bind<wl_output>(name, wl_output_interface, 1)}));
    watch(*outputs_.back());
    watchKwin(*outputs_.back());
  }
}

void WaylandDisplayPower::removed(std::uint32_t name) {
  if (std::erase_if(outputs_, [&](const auto& output) { return output->name == name; }) > 0) evaluate();
}

void WaylandDisplayPower::watch(Output& output) {
  static constexpr zwlr_output_power_v1_listener listener{
      .mode =
          [](void* data, zwlr_output_power_v1*, std::uint32_t mode) {
            auto& told = *static_cast<Output*>(data);
            told.on = mode != ZWLR_OUTPUT_POWER_V1_MODE_OFF;
            told.owner.evaluate();
          },
      .failed =
          [](void* data, zwlr_output_power_v1*) {
            auto& told = *static_cast<Output*>(data);
            told.on = true;  // nobody can tell about it: nothing is known to be off
            told.owner.evaluate();
          }};
  if (!manager_) return;
  output.power.reset(zwlr_output_power_manager_v1_get_output_power(manager_.get(), output.output.get()));
  zwlr_output_power_v1_add_listener(output.power.get(), &listener, &output);
}

void WaylandDisplayPower::watchKwin(Output& output) {
  static constexpr org_kde_kwin_dpms_listener listener{
      .supported =
          [](void* data, org_kde_kwin_dpms*, std::uint32_t supported) {
            if (supported == 0) static_cast<Output*>(data)->on = true;
          },
      .mode = [](void* data, org_kde_kwin_dpms*,
                 std::uint32_t mode) { static_cast<Output*>(data)->on = mode == ORG_KDE_KWIN_DPMS_MODE_ON; },
      .done = [](void* data, org_kde_kwin_dpms*) { static_cast<Output*>(data)->owner.evaluate(); }};
  if (!kwinManager_) return;
  output.kwinPower.reset(org_kde_kwin_dpms_manager_get(kwinManager_.get(), output.output.get()));
  org_kde_kwin_dpms_add_listener(output.kwinPower.get(), &listener, &output);
}

/// Off means: no output shows anything, and there was one to begin with.
void WaylandDisplayPower::evaluate() {
  if (!listed_ || !canTell() || !hadOutput_) return;
  bool off = true;
  for (const auto& output : outputs_) {
    if (!output->on) return;  // its first word is under way
    off = off && !*output->on;
  }
  observer_(off);
}

}  // namespace sentrel
