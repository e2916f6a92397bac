// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_desktop.h"

#include <xcb/composite.h>
#include <xcb/randr.h>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

#include <QByteArrayView>
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/desktop_services.h"

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

QByteArray readResources(const X11Connection& connection) {
  constexpr std::uint32_t longestWords = 1U << 16U;
  const auto reply = adopt(
      xcb_get_property_reply(connection.get(),
                             xcb_get_property(connection.get(), 0, connection.root(),
                                              XCB_ATOM_RESOURCE_MANAGER, XCB_ATOM_STRING, 0, longestWords),
                             nullptr));
  if (!reply) return {};
  return {static_cast<const char*>(xcb_get_property_value(reply.get())),
          xcb_get_property_value_length(reply.get())};
}

/// Of a property of the root window.
std::vector<std::uint32_t> readCardinals(const X11Connection& connection, xcb_atom_t name) {
  constexpr std::uint32_t most = 1024;
  const auto reply = adopt(xcb_get_property_reply(
      connection.get(),
      xcb_get_property(connection.get(), 0, connection.root(), name, XCB_ATOM_CARDINAL, 0, most), nullptr));
  if (!reply || reply->format != 32) return {};
  const auto* first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
  return {first, first + xcb_get_property_value_length(reply.get()) / 4};
}

// The root's own geometry changes with every new arrangement, also where RandR tells nothing.
constexpr std::uint32_t quietEvents = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
constexpr std::uint32_t watchfulEvents =
    quietEvents | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
// A window manager makes itself known by a property.
constexpr std::uint32_t eventsWithoutWindowManager = quietEvents | XCB_EVENT_MASK_PROPERTY_CHANGE;

constexpr std::int64_t redirectionIntervalMs = 25;
// After 2 s it is believed all the same: some leave full-screen programs alone until another window comes.
constexpr int redirectionTries = 80;

constexpr std::array<std::string_view, 12> atomNames{"UTF8_STRING",
                                                     "_NET_WM_NAME",
                                                     "_NET_WM_WINDOW_TYPE",
                                                     "_NET_WM_WINDOW_TYPE_DOCK",
                                                     "_NET_WM_BYPASS_COMPOSITOR",
                                                     "_NET_WM_WINDOW_OPACITY",
                                                     "_NET_SUPPORTING_WM_CHECK",
                                                     "_NET_REQUEST_FRAME_EXTENTS",
                                                     "_NET_CURRENT_DESKTOP",
                                                     "_NET_WORKAREA",
                                                     "_MUTTER_VERSION",
                                                     "_COMPTON_SHADOW"};

xcb_intern_atom_cookie_t internAtom(xcb_connection_t* connection, std::string_view name) {
  return xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
}

/// We write pixels as 32-bit words of this machine.
bool hasOurByteOrder(const X11Connection& connection) {
  const bool isLittle = xcb_get_setup(connection.get())->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
  return isLittle == (std::endian::native == std::endian::little);
}

bool hasOurMasks(const xcb_visualtype_t& visual) {
  return visual._class == XCB_VISUAL_CLASS_TRUE_COLOR && visual.red_mask == 0xFF0000U &&
         visual.green_mask == 0xFF00U && visual.blue_mask == 0xFFU;
}

/// Shape 1.1 brought input shapes, without which an overlay would swallow every click.
bool hasInputShapes(const X11Connection& connection) {
  if (connection.extension(xcb_shape_id) == nullptr) return false;
  const auto version = adopt(
      xcb_shape_query_version_reply(connection.get(), xcb_shape_query_version(connection.get()), nullptr));
  return version && (version->major_version > 1 || version->minor_version >= 1);
}

/// The extension came with version 23.1; before that, all of its outputs bore its name.
bool isXwayland(const X11Connection& connection, const std::vector<X11Monitor>& monitors) {
  constexpr std::string_view name = "XWAYLAND";
  const auto found = adopt(xcb_query_extension_reply(
      connection.get(), xcb_query_extension(connection.get(), name.size(), name.data()), nullptr));
  return (found && found->present != 0) || std::ranges::any_of(monitors, [name](const X11Monitor& monitor) {
           return monitor.screen.name.starts_with(name);
         });
}

/// Finds out whether a compositing manager has really taken over the windows. It owns its selection some time
/// before that, and a translucent window mapped in between would be black. The probe is one invisible window
/// beyond the corner of the screen.
class RedirectionProbe {
 public:
  explicit RedirectionProbe(const X11Connection& connection)
      : connection_(connection), window_(xcb_generate_id(connection.get())) {
    const std::uint32_t overrideRedirect = 1;
    xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, window_, connection_.root(), -2, -2, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &overrideRedirect);
    xcb_map_window(connection_.get(), window_);
  }
  ~RedirectionProbe() { xcb_destroy_window(connection_.get(), window_); }
  RedirectionProbe(const RedirectionProbe&) = delete;
  RedirectionProbe& operator=(const RedirectionProbe&) = delete;

  /// Waits for the server's answer.
  [[nodiscard]] bool isRedirected() const {
    if (connection_.extension(xcb_composite_id) == nullptr) return false;
    // Only a window that is drawn off the screen has a pixmap of its own.
    const xcb_pixmap_t pixmap = xcb_generate_id(connection_.get());
    const auto cookie = xcb_composite_name_window_pixmap_checked(connection_.get(), window_, pixmap);
    if (adopt(xcb_request_check(connection_.get(), cookie)) || connection_.broken()) return false;
    xcb_free_pixmap(connection_.get(), pixmap);
    return true;
  }

 private:
  const X11Connection& connection_;
  const xcb_window_t window_;
};

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
    result.push_back({{screenIdOf(name), name, frame, primary, scale}, pixels});
  }
  const auto isMain = [](const X11Monitor& monitor) { return monitor.screen.isMain; };
  if (!result.empty() && std::ranges::none_of(result, isMain)) result.front().screen.isMain = true;
  return result;
}

Rect workAreaOf(const Rect& monitor, const std::vector<Rect>& areas) {
  // In wider numbers: any program may have written them.
  const auto within = [](std::int64_t begin, std::int64_t length, std::int64_t from, std::int64_t size) {
    const std::int64_t first = std::clamp(begin, from, from + size);
    return std::pair(static_cast<int>(first),
                     static_cast<int>(std::clamp(begin + length, first, from + size) - first));
  };
  Rect best;
  for (const Rect& area : areas) {
    const auto [x, width] = within(area.x, area.width, monitor.x, monitor.width);
    const auto [y, height] = within(area.y, area.height, monitor.y, monitor.height);
    if (width * height > best.width * best.height) best = {x, y, width, height};
  }
  return 2 * best.width >= monitor.width && 2 * best.height >= monitor.height ? best : monitor;
}

std::optional<double> parseXftDpi(const QByteArray& resources) {
  constexpr QByteArrayView key = "Xft.dpi:";
  constexpr double leastDpi = 48;
  constexpr double greatestDpi = 960;
  for (const QByteArray& line : resources.split('\n')) {
    const QByteArray entry = line.trimmed();
    if (!entry.startsWith(key)) continue;
    const double dpi = entry.sliced(key.size()).toDouble();
    if (dpi >= leastDpi && dpi <= greatestDpi) return dpi;
  }
  return {};
}

/// Whether a compositing manager blends translucent windows, as it comes and goes.
class X11Desktop::CompositorWatch {
 public:
  CompositorWatch(const X11Connection& connection, xcb_atom_t selection, MainLoop& loop,
                  std::function<void()> onChange)
      : connection_(connection), selection_(selection), loop_(loop) {
    // Without XFixes nobody would tell us of its end, and everything would turn black: then there is none.
    const auto* xfixes = connection_.extension(xcb_xfixes_id);
    if (xfixes == nullptr ||
        !adopt(xcb_xfixes_query_version_reply(get(), xcb_xfixes_query_version(get(), 2, 0), nullptr))) {
      return;
    }
    selectionNotify_ = xfixes->first_event + XCB_XFIXES_SELECTION_NOTIFY;
    xcb_xfixes_select_selection_input(get(), connection_.root(), selection_,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    const auto owner =
        adopt(xcb_get_selection_owner_reply(get(), xcb_get_selection_owner(get(), selection_), nullptr));
    if (owner) ownerChanged(owner->owner);
    onChange_ = std::move(onChange);  // how it is at first is no change
  }

  [[nodiscard]] bool isRunning() const { return running_; }

  /// Any event of the connection.
  void handle(const xcb_generic_event_t& event) {
    if (selectionNotify_ == 0 || (event.response_type & 0x7F) != selectionNotify_) return;
    const auto& notify = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
    if (notify.selection == selection_) ownerChanged(notify.owner);
  }

 private:
  [[nodiscard]] xcb_connection_t* get() const { return connection_.get(); }
  void ownerChanged(xcb_window_t owner) {
    nextTry_.reset();
    probe_.reset();
    // When one replaces another the windows stand unblended in between, too.
    setRunning(false);
    if (owner == XCB_NONE) return;
    probe_.emplace(connection_);
    awaitRedirection(redirectionTries);
  }
  void awaitRedirection(int triesLeft) {
    if (triesLeft > 0 && !probe_->isRedirected()) {
      nextTry_ = loop_.after(redirectionIntervalMs, [this, triesLeft] { awaitRedirection(triesLeft - 1); });
      return;
    }
    probe_.reset();
    setRunning(true);
  }
  void setRunning(bool running) {
    if (std::exchange(running_, running) != running && onChange_) onChange_();
  }

  const X11Connection& connection_;
  const xcb_atom_t selection_;
  MainLoop& loop_;
  std::function<void()> onChange_;
  int selectionNotify_ = 0;  // the event's type; 0 where nothing is told
  bool running_ = false;
  std::optional<RedirectionProbe> probe_;
  Registration nextTry_;
};

std::unique_ptr<X11Desktop> X11Desktop::open(const std::string& display, MainLoop& loop,
                                             DesktopHandlers handlers) {
  auto connection = X11Connection::open(display);
  if (!connection || !hasOurByteOrder(*connection) || !hasInputShapes(*connection)) return nullptr;
  std::unique_ptr<X11Desktop> desktop(new X11Desktop(std::move(connection), loop, std::move(handlers)));
  if (!desktop->opaque_ || desktop->connection_->broken()) return nullptr;
  desktop->observe();
  return desktop;
}

X11Desktop::X11Desktop(std::unique_ptr<X11Connection> connection, MainLoop& loop, DesktopHandlers handlers)
    : connection_(std::move(connection)),
      loop_(loop),
      handlers_(std::move(handlers)),
      stack_(*this, loop),
      paintRounds_(*this) {
  internAtoms();
  findVisuals();
}

X11Desktop::~X11Desktop() = default;

void X11Desktop::internAtoms() {
  std::array<xcb_intern_atom_cookie_t, atomNames.size()> cookies{};
  for (std::size_t i = 0; i < cookies.size(); ++i) cookies[i] = internAtom(get(), atomNames[i]);
  for (std::size_t i = 0; i < cookies.size(); ++i) {
    const auto reply = adopt(xcb_intern_atom_reply(get(), cookies[i], nullptr));
    atoms_[atomNames[i]] = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  }
}

void X11Desktop::findVisuals() {
  auto depths = xcb_screen_allowed_depths_iterator(&connection_->screen());
  for (; depths.rem > 0; xcb_depth_next(&depths)) {
    const std::uint8_t depth = depths.data->depth;
    X11Visual* wanted = depth == 32 ? &translucent_ : depth == 24 ? &opaque_ : nullptr;
    if (wanted == nullptr || *wanted) continue;
    auto visuals = xcb_depth_visuals_iterator(depths.data);
    for (; visuals.rem > 0 && !*wanted; xcb_visualtype_next(&visuals)) {
      if (hasOurMasks(*visuals.data)) *wanted = {visuals.data->visual_id, depth, XCB_NONE};
    }
    if (!*wanted) continue;
    wanted->colormap = xcb_generate_id(get());
    xcb_create_colormap(get(), XCB_COLORMAP_ALLOC_NONE, wanted->colormap, root(), wanted->id);
  }
}

void X11Desktop::observe() {
  const std::string selection = "_NET_WM_CM_S" + std::to_string(connection_->screenNumber());
  const auto manager = adopt(xcb_intern_atom_reply(get(), internAtom(get(), selection), nullptr));
  compositor_ =
      std::make_unique<CompositorWatch>(*connection_, manager ? manager->atom : xcb_atom_t{XCB_ATOM_NONE},
                                        loop_, [this] { handlers_.changed(); });
  connection_->run([this](const xcb_generic_event_t& event) { handle(event); },
                   [this] { loss_ = loop_.after(0, [lost = handlers_.lost] { lost(); }); });
  if (connection_->extension(xcb_randr_id) != nullptr) {
    xcb_randr_select_input(get(), root(),
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
  }
  selectRootEvents();  // first, so that nothing is missed after the reading
  readMonitors();
}

bool X11Desktop::isOurs(xcb_window_t window) const {
  // Every resource of this connection bears its base.
  const auto* setup = xcb_get_setup(get());
  return (window & ~setup->resource_id_mask) == setup->resource_id_base;
}

bool X11Desktop::blendsWindows() const {
  return compositor_->isRunning() && translucent_;
}

std::vector<Screen> X11Desktop::screens() const {
  std::vector<Screen> result;
  for (const X11Monitor& monitor : monitors_) result.push_back(monitor.screen);
  return result;
}

std::string X11Desktop::limitation() const {
  if (clickThrough_ == ClickThrough::nothing) return textId("error_no_overlay");
  return blendsWindows() ? "" : textId("error_no_compositing");
}

void X11Desktop::setWatchful(bool watchful) {
  watchful_ = watchful;
  selectRootEvents();
  if (watchful) reloadSoon();  // the scale may have changed unseen
}

void X11Desktop::selectRootEvents() {
  const std::uint32_t events = watchful_                                ? watchfulEvents
                               : clickThrough_ == ClickThrough::nothing ? eventsWithoutWindowManager
                                                                        : quietEvents;
  xcb_change_window_attributes(get(), root(), XCB_CW_EVENT_MASK, &events);
}

void X11Desktop::handle(const xcb_generic_event_t& event) {
  stack_.handle(event);
  compositor_->handle(event);
  paintRounds_.handle(event);
  if (concernsMonitors(event)) reloadSoon();
  const auto type = event.response_type & 0x7FU;
  if (type == XCB_BUTTON_PRESS || type == XCB_BUTTON_RELEASE) {
    buttons_.emit(reinterpret_cast<const xcb_button_press_event_t&>(event));
  }
  if (type != XCB_EXPOSE) return;
  const auto& expose = reinterpret_cast<const xcb_expose_event_t&>(event);
  // Of a series of exposed rectangles the last one counts.
  if (expose.count == 0) exposed_.emit(expose.window);
}

bool X11Desktop::concernsMonitors(const xcb_generic_event_t& event) const {
  const int type = event.response_type & 0x7F;
  if (type == XCB_CONFIGURE_NOTIFY) {
    return reinterpret_cast<const xcb_configure_notify_event_t&>(event).window == root();
  }
  if (type == XCB_PROPERTY_NOTIFY) {
    const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(event);
    return notify.window == root() &&
           (notify.atom == XCB_ATOM_RESOURCE_MANAGER || notify.atom == atom("_NET_SUPPORTING_WM_CHECK") ||
            notify.atom == atom("_NET_WORKAREA") || notify.atom == atom("_NET_CURRENT_DESKTOP"));
  }
  const auto* randr = connection_->extension(xcb_randr_id);
  return randr != nullptr && (type == randr->first_event + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                              type == randr->first_event + XCB_RANDR_NOTIFY);
}

/// A new arrangement comes with several events; one reading after the last of them is enough.
void X11Desktop::reloadSoon() {
  reload_ = loop_.after(0, [this] {
    if (readMonitors()) handlers_.changed();
  });
}

bool X11Desktop::readMonitors() {
  auto told = readRandrMonitors(*connection_);
  if (told.empty()) {
    // The setup's size is that of the connection's beginning; the root window knows today's.
    const auto size = adopt(xcb_get_geometry_reply(get(), xcb_get_geometry(get(), root()), nullptr));
    if (size) told.push_back({"default", {0, 0, size->width, size->height}, 0, true});
  }
  auto monitors = arrangeMonitors(told, parseXftDpi(readResources(*connection_)));
  const ClickThrough clickThrough = findClickThrough(monitors);
  // A screen that takes every click is worse than one that is not covered.
  if (clickThrough == ClickThrough::nothing) monitors.clear();
  std::vector<Rect> areas = readWorkAreas();
  const bool isSame = monitors == monitors_ && areas == workAreas_ && clickThrough == clickThrough_;
  if (connection_->broken() || isSame) return false;
  monitors_ = std::move(monitors);
  workAreas_ = std::move(areas);
  clickThrough_ = clickThrough;
  selectRootEvents();
  return true;
}

std::vector<Rect> X11Desktop::readWorkAreas() const {
  const auto desktops = readCardinals(*connection_, atom("_NET_CURRENT_DESKTOP"));
  const std::size_t desktop = desktops.empty() ? 0 : desktops.front();
  const auto areasIn = [](const std::vector<std::uint32_t>& numbers) {
    std::vector<Rect> areas;
    for (std::size_t i = 0; i + 4 <= numbers.size(); i += 4) {
      const auto at = [&](std::size_t n) { return static_cast<int>(numbers[i + n]); };
      areas.push_back({at(0), at(1), at(2), at(3)});
    }
    return areas;
  };
  // Some window managers tell that of each monitor, others one of all together for each desktop.
  const auto own = adopt(
      xcb_intern_atom_reply(get(), internAtom(get(), "_GTK_WORKAREAS_D" + std::to_string(desktop)), nullptr));
  auto areas = areasIn(readCardinals(*connection_, own ? own->atom : xcb_atom_t{XCB_ATOM_NONE}));
  if (!areas.empty()) return areas;
  areas = areasIn(readCardinals(*connection_, atom("_NET_WORKAREA")));
  return desktop < areas.size() ? std::vector{areas[desktop]} : std::vector<Rect>();
}

ClickThrough X11Desktop::findClickThrough(const std::vector<X11Monitor>& monitors) const {
  if (!isXwayland(*connection_, monitors)) return ClickThrough::inputShape;
  return isMutter() ? ClickThrough::newSizes : ClickThrough::nothing;
}

bool X11Desktop::isMutter() const {
  const auto property = [this](xcb_window_t window, xcb_atom_t name) {
    return adopt(
        xcb_get_property_reply(get(), xcb_get_property(get(), 0, window, name, XCB_ATOM_ANY, 0, 1), nullptr));
  };
  const auto check = property(root(), atom("_NET_SUPPORTING_WM_CHECK"));
  xcb_window_t manager = XCB_NONE;
  if (!check || xcb_get_property_value_length(check.get()) != sizeof manager) return false;
  std::memcpy(&manager, xcb_get_property_value(check.get()), sizeof manager);
  const auto version = property(manager, atom("_MUTTER_VERSION"));
  return version && version->type != XCB_ATOM_NONE;
}

}  // namespace sentrel
