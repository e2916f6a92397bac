// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_monitors.h"

#include <xcb/randr.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "linux/overlay/desktop_overlay_backend.h"

namespace sentrel {

namespace {

constexpr double baseDpi = 96;
constexpr double greatestScale = 4;

bool contains(const Rect& outer, const Rect& inner) {
  return inner.x >= outer.x && inner.y >= outer.y && inner.x + inner.width <= outer.x + outer.width &&
         inner.y + inner.height <= outer.y + outer.height;
}

bool isCopy(const std::vector<X11MonitorInfo>& monitors, std::size_t index) {
  const Rect& own = monitors[index].pixels;
  for (std::size_t i = 0; i < monitors.size(); ++i) {
    if (i == index || !contains(monitors[i].pixels, own)) continue;
    const bool same = monitors[i].pixels == own;
    // Of two alike the primary stays, else the first.
    if (!same || monitors[i].primary || (!monitors[index].primary && i < index)) return true;
  }
  return false;
}

double densityScale(const X11MonitorInfo& monitor) {
  constexpr int leastWidthMillimetres = 100;  // projectors and broken displays tell nonsense
  if (monitor.widthMillimetres < leastWidthMillimetres) return 1;
  const double dpi = monitor.pixels.width * 25.4 / monitor.widthMillimetres;
  return std::clamp(std::floor(dpi / baseDpi), 1.0, greatestScale);
}

double settingScale(double dpi) {
  return std::clamp(std::round(dpi / baseDpi * 4) / 4, 1.0, greatestScale);
}

int logical(int pixels, double scale) {
  return static_cast<int>(std::lround(pixels / scale));
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

std::string readAtomName(const X11Connection& connection, xcb_atom_t atom) {
  const auto reply =
      adopt(xcb_get_atom_name_reply(connection.get(), xcb_get_atom_name(connection.get(), atom), nullptr));
  if (!reply) return {};
  return {xcb_get_atom_name_name(reply.get()),
          static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get()))};
}

/// None where RandR is older than 1.5, which brought them.
std::vector<X11MonitorInfo> readRandrMonitors(const X11Connection& connection) {
  if (connection.extension(xcb_randr_id) == nullptr) return {};
  const auto version = adopt(xcb_randr_query_version_reply(
      connection.get(), xcb_randr_query_version(connection.get(), 1, 5), nullptr));
  if (!version || (version->major_version == 1 && version->minor_version < 5)) return {};
  const auto reply = adopt(xcb_randr_get_monitors_reply(
      connection.get(), xcb_randr_get_monitors(connection.get(), connection.root(), 1), nullptr));
  std::vector<X11MonitorInfo> result;
  if (!reply) return result;
  auto monitors = xcb_randr_get_monitors_monitors_iterator(reply.get());
  for (; monitors.rem > 0; xcb_randr_monitor_info_next(&monitors)) {
    const auto& info = *monitors.data;
    if (info.width == 0 || info.height == 0) continue;
    result.push_back({readAtomName(connection, info.name),
                      {info.x, info.y, info.width, info.height},
                      static_cast<int>(info.width_in_millimeters),
                      info.primary != 0});
  }
  return result;
}

std::string readResources(const X11Connection& connection) {
  constexpr std::uint32_t longestWords = 1U << 16U;
  const auto reply = adopt(
      xcb_get_property_reply(connection.get(),
                             xcb_get_property(connection.get(), 0, connection.root(),
                                              XCB_ATOM_RESOURCE_MANAGER, XCB_ATOM_STRING, 0, longestWords),
                             nullptr));
  if (!reply) return {};
  return {static_cast<const char*>(xcb_get_property_value(reply.get())),
          static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

}  // namespace

std::vector<X11Monitor> arrangeMonitors(const std::vector<X11MonitorInfo>& monitors,
                                        std::optional<double> dpi) {
  std::vector<X11Monitor> result;
  for (std::size_t i = 0; i < monitors.size(); ++i) {
    if (isCopy(monitors, i)) continue;
    const auto& [name, pixels, millimetres, primary] = monitors[i];
    const double scale = dpi ? settingScale(*dpi) : densityScale(monitors[i]);
    const Rect frame{logical(pixels.x, scale), logical(pixels.y, scale), logical(pixels.width, scale),
                     logical(pixels.height, scale)};
    result.push_back({{screenIdOf(name), name, frame, primary}, pixels, scale});
  }
  const auto isMain = [](const X11Monitor& monitor) { return monitor.screen.isMain; };
  if (!result.empty() && std::ranges::none_of(result, isMain)) result.front().screen.isMain = true;
  return result;
}

std::optional<double> parseXftDpi(std::string_view resources) {
  constexpr std::string_view key = "Xft.dpi:";
  constexpr double leastDpi = 48;
  constexpr double greatestDpi = 960;
  for (std::size_t at = 0; at < resources.size();) {
    const std::size_t end = std::min(resources.find('\n', at), resources.size());
    const std::string_view line = trimmed(resources.substr(at, end - at));
    at = end + 1;
    if (!line.starts_with(key)) continue;
    const std::string_view value = trimmed(line.substr(key.size()));
    double dpi = 0;
    std::from_chars(value.data(), value.data() + value.size(), dpi);
    if (dpi >= leastDpi && dpi <= greatestDpi) return dpi;
  }
  return {};
}

std::vector<X11Monitor> readMonitors(const X11Connection& connection) {
  std::vector<X11MonitorInfo> monitors = readRandrMonitors(connection);
  if (monitors.empty()) {
    // The setup's size is that of the connection's beginning; the root window knows today's.
    const auto size = adopt(xcb_get_geometry_reply(
        connection.get(), xcb_get_geometry(connection.get(), connection.root()), nullptr));
    if (!size) return {};
    monitors.push_back({"default", {0, 0, size->width, size->height}, 0, true});
  }
  return arrangeMonitors(monitors, parseXftDpi(readResources(connection)));
}

}  // namespace sentrel
