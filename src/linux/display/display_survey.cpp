// SPDX-License-Identifier: Apache-2.0
#include "linux/display/display_survey.h"

#include <xcb/dpms.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "linux/display/wayland_connection.h"
#include "linux/display/x11_connection.h"

namespace sentrel {

namespace {

constexpr std::chrono::milliseconds compositorLimit{1000};
constexpr std::size_t mostListed = 256;

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

std::optional<std::vector<std::string>> askCompositor(const std::string& display) {
  std::vector<std::string> offered;
  const auto appeared = [&](std::uint32_t, std::string_view interface, std::uint32_t version) {
    if (offered.size() < mostListed)
      offered.push_back(std::string(interface) + " " + std::to_string(version));
  };
  const auto compositor = WaylandConnection::open(display, {.appeared = appeared});
  if (!compositor) return std::nullopt;
  bool answered = false;
  compositor->whenAnswered([&] { answered = true; });
  if (!compositor->await(compositorLimit, [&] { return answered; })) return std::nullopt;
  std::ranges::sort(offered);
  offered.erase(std::unique(offered.begin(), offered.end()), offered.end());  // an output each
  return offered;
}

void askServer(DisplaySurvey& survey) {
  const auto server = X11Connection::open();
  if (!server) return;
  survey.hasDpms = server->extension(xcb_dpms_id) != nullptr;
  const std::string tray = "_NET_SYSTEM_TRAY_S" + std::to_string(server->screenNumber());
  const auto atom = adopt(xcb_intern_atom_reply(
      server->get(), xcb_intern_atom(server->get(), 0, static_cast<std::uint16_t>(tray.size()), tray.data()),
      nullptr));
  if (!atom) return;
  const auto owner = adopt(xcb_get_selection_owner_reply(
      server->get(), xcb_get_selection_owner(server->get(), atom->atom), nullptr));
  survey.hasX11Tray = owner && owner->owner != XCB_NONE;
}

}  // namespace

DisplaySurvey surveyDisplays() {
  DisplaySurvey survey;
  const std::string wayland = environment("WAYLAND_DISPLAY");
  if (!wayland.empty()) survey.protocols = askCompositor(wayland);
  if (!environment("DISPLAY").empty()) askServer(survey);
  return survey;
}

}  // namespace sentrel
