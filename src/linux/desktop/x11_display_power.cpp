// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/x11_display_power.h"

#include <X11/extensions/dpmsconst.h>
#include <sys/uio.h>
#include <xcb/dpms.h>
#include <xcb/xcbext.h>

#include <array>
#include <cstring>
#include <tuple>
#include <utility>

#include "linux/desktop/event_thread.h"

namespace sentrel {

namespace {

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

X11DisplayPower::X11DisplayPower(WitnessReports reports)
    : reports_(std::move(reports)), server_(X11ObserverConnection::open()) {
  if (!server_ || !prepare()) {
    server_.reset();
    return;
  }
  server_->observe([this](const xcb_generic_event_t& event) { handle(event); }, [this] { lost(); });
  if (tellsChanges_) selectEvents();
  ask(How::found);
}

bool X11DisplayPower::prepare() {
  const auto* extension = xcb_get_extension_data(server_->get(), &xcb_dpms_id);
  if (extension == nullptr || extension->present == 0) return false;
  opcode_ = extension->major_opcode;
  const auto versionCookie = xcb_dpms_get_version(server_->get(), 1, 2);
  const auto capableCookie = xcb_dpms_capable(server_->get());
  const XReply<xcb_dpms_get_version_reply_t> version(
      xcb_dpms_get_version_reply(server_->get(), versionCookie, nullptr));
  const XReply<xcb_dpms_capable_reply_t> capable(
      xcb_dpms_capable_reply(server_->get(), capableCookie, nullptr));
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
  std::array<iovec, 3> parts{{{}, {}, {&request, sizeof request}}};
  const xcb_protocol_request_t protocol{1, &xcb_dpms_id, selectInputRequest, 1};
  xcb_send_request(server_->get(), 0, &parts[2], &protocol);
}

void X11DisplayPower::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7f) != XCB_GE_GENERIC) return;
  InfoNotifyEvent info{};
  std::memcpy(&info, &event, sizeof info);
  if (info.extension != opcode_ || info.eventType != infoNotify) return;
  tell(isOff(info.enabled != 0, info.powerLevel), How::changed);
}

void X11DisplayPower::setPolling(bool wanted) {
  if (!server_ || tellsChanges_ || wanted == static_cast<bool>(poll_)) return;
  poll_.reset();
  if (!wanted) return;
  poll_ = currentEventLoop().every(pollMs, [this] { ask(How::changed); });
  ask(How::changed);
}

void X11DisplayPower::ask(How how) {
  const XReply<xcb_dpms_info_reply_t> info(
      xcb_dpms_info_reply(server_->get(), xcb_dpms_info(server_->get()), nullptr));
  if (info) tell(isOff(info->state != 0, info->power_level), how);
  server_->dispatch();
}

void X11DisplayPower::tell(bool off, How how) {
  if (std::exchange(off_, off) == off) return;
  if (how == How::found) {
    reports_.found(WitnessReports::Witness::x11Displays, off);
  } else {
    reports_.changed(WitnessReports::Witness::x11Displays, off);
  }
}

void X11DisplayPower::lost() {
  poll_.reset();
  reports_.lost(WitnessReports::Witness::x11Displays);
}

}  // namespace sentrel
