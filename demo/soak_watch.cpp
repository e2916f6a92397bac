// SPDX-License-Identifier: Apache-2.0
#include "soak_watch.h"

#include <xcb/xcb.h>

#include <QDBusArgument>
#include <QString>
#include <QVariantMap>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <span>
#include <stdexcept>
#include <utility>

#include "stage/bus_doubles.h"

namespace sentrel::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

// What the program promises, and what the way to it from outside adds.
constexpr milliseconds blindLimit{2500 + 300};
constexpr milliseconds closingLimit{500};
constexpr milliseconds protectingLimit{5000 + 3000};
constexpr milliseconds stateLimit{1000};
constexpr milliseconds coverLimit{2000};
constexpr milliseconds answerLimit{5000};
constexpr milliseconds callTimeout{2000};
constexpr milliseconds lookInterval{10};
constexpr milliseconds askInterval{100};
constexpr std::size_t happeningsTold = 12;

bool seesIn(const std::string& state) {
  return state == "nominal" || state == "inattention" || state == "alert";
}

struct Free {
  void operator()(void* reply) const { std::free(reply); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

}  // namespace

SoakJournal::SoakJournal(const std::filesystem::path& log)
    : file_(std::fopen(log.c_str(), "we"), &std::fclose) {
  if (!file_) throw std::runtime_error("cannot write " + log.string());
}

void SoakJournal::log(const std::string& words) {
  const std::scoped_lock lock(mutex_);
  std::fprintf(file_.get(), "%s  %s\n", time().c_str(), words.c_str());
  std::fflush(file_.get());
}

void SoakJournal::say(const std::string& words) {
  log(words);
  std::printf("%s  %s\n", time().substr(0, 6).c_str(), words.c_str());
}

void SoakJournal::happening(const std::string& words) {
  ++happenings_;
  log(words);
  const std::scoped_lock lock(mutex_);
  last_.push_back(time() + " " + words);
  if (last_.size() > happeningsTold) last_.pop_front();
}

void SoakJournal::breach(const std::string& words) {
  ++breaches_;
  std::string told = "BREACH: " + words + "; before it:";
  {
    const std::scoped_lock lock(mutex_);
    for (const std::string& happening : last_) told += "\n  " + happening;
  }
  say(told);
}

/// Minutes and seconds since the beginning.
std::string SoakJournal::time() const {
  const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(passed());
  const std::chrono::duration<double> rest = passed() - minutes;
  return QString::asprintf("%3d:%06.3f", static_cast<int>(minutes.count()), rest.count()).toStdString();
}

/// What lies on the screens of X11.
class SoakWatch::Screen {
 public:
  explicit Screen(const std::string& display)
      : connection_(xcb_connect(display.c_str(), nullptr), &xcb_disconnect),
        root_(xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data->root) {
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_.get(), xcb_intern_atom(connection_.get(), 0, 16, "_NET_CLIENT_LIST"), nullptr));
    if (reply) clientList_ = reply->atom;
  }

  [[nodiscard]] int windows() const {
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_.get(),
        xcb_get_property(connection_.get(), 0, root_, clientList_, XCB_ATOM_WINDOW, 0, 1024), nullptr));
    return reply ? xcb_get_property_value_length(reply.get()) / static_cast<int>(sizeof(xcb_window_t)) : 0;
  }

  /// On how many of the places side by side, of this size, an unmanaged window lies.
  [[nodiscard]] int covers(int width, int height) const {
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection_.get(), xcb_query_tree(connection_.get(), root_), nullptr));
    if (!tree) return 0;
    const std::span windows(xcb_query_tree_children(tree.get()),
                            static_cast<std::size_t>(xcb_query_tree_children_length(tree.get())));
    std::vector<std::pair<xcb_get_window_attributes_cookie_t, xcb_get_geometry_cookie_t>> questions;
    questions.reserve(windows.size());
    for (const xcb_window_t window : windows) {
      questions.emplace_back(xcb_get_window_attributes(connection_.get(), window),
                             xcb_get_geometry(connection_.get(), window));
    }
    std::vector<int> places;
    for (const auto& [attributes, geometry] : questions) {
      const Reply<xcb_get_window_attributes_reply_t> is(
          xcb_get_window_attributes_reply(connection_.get(), attributes, nullptr));
      const Reply<xcb_get_geometry_reply_t> at(xcb_get_geometry_reply(connection_.get(), geometry, nullptr));
      if (!is || !at || is->map_state != XCB_MAP_STATE_VIEWABLE || is->override_redirect == 0) continue;
      if (at->width != width || at->height != height || at->y != 0 || at->x % width != 0) continue;
      if (std::ranges::find(places, at->x) == places.end()) places.push_back(at->x);
    }
    return static_cast<int>(places.size());
  }

 private:
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection_;
  xcb_window_t root_;
  xcb_atom_t clientList_ = XCB_ATOM_NONE;
};

SoakWatch::SoakWatch(Parts parts)
    : parts_(std::move(parts)),
      asker_([this](const std::stop_token& stop) { ask(stop); }),
      looker_([this](const std::stop_token& stop) { look(stop); }) {}

SoakWatch::~SoakWatch() = default;

SoakWatch::Expected SoakWatch::expectedIn(const SoakWorld& world) {
  if (!world.started || world.unclear) return Expected::anything;
  if (world.isAway() || !world.agreed) return Expected::closed;
  if (!world.wished) return world.calibrating ? Expected::anything : Expected::closed;
  if (world.paused) return Expected::closed;
  const auto there = [](const SoakWorld::Camera& camera) { return camera.there; };
  const auto gives = [](const SoakWorld::Camera& camera) { return camera.there && camera.gives; };
  const auto cameras = std::ranges::count_if(world.cameras, there);
  const auto giving = std::ranges::count_if(world.cameras, gives);
  // Of two, the one that is used may be the one that gives nothing.
  return world.pipeWire && giving > 0 && giving == cameras ? Expected::protecting : Expected::anything;
}

void SoakWatch::change(const std::function<void(SoakWorld&)>& edit, const std::function<void()>& action) {
  SoakWorld next = world_;
  edit(next);
  const Expected before = expectedIn(world_);
  const Expected after = expectedIn(next);
  {
    const std::scoped_lock lock(mutex_);
    if (before != after) expected_ = Expected::anything;
    started_ = world_.started && next.started;
    sessionBus_ = world_.sessionBus && next.sessionBus;
    wished_ = world_.wished || next.wished;
    calibrating_ = world_.calibrating || next.calibrating;
    worldSince_ = now_;
  }
  action();
  const std::scoped_lock lock(mutex_);
  if (before != after) {
    expected_ = after;
    expectedSince_ = protectedAt_ = now_;
    closingMeasured_ = after != Expected::closed;
    protectingMeasured_ = after != Expected::protecting;
  }
  if (!sessionBus_ || !started_) answeredAt_ = now_;
  started_ = next.started;
  sessionBus_ = next.sessionBus;
  wished_ = next.wished;
  calibrating_ = next.calibrating;
  shared_ = next.shared;
  covered_ = next.covered;
  away_ = next.isAway();
  monitors_ = next.monitors;
  worldSince_ = now_;
  world_ = next;
}

std::string SoakWatch::state() const {
  const std::scoped_lock lock(mutex_);
  return state_;
}

bool SoakWatch::cameraIsOpen() const {
  return std::ranges::any_of(parts_.cameras, [](const VirtualCamera* camera) { return camera->isOpen(); });
}

std::chrono::duration<double> SoakWatch::activeFor() const {
  const std::scoped_lock lock(mutex_);
  return activeFor_;
}

int SoakWatch::sessions() const {
  const std::scoped_lock lock(mutex_);
  return sessions_;
}

SoakWatch::Longest SoakWatch::longest() const {
  const std::scoped_lock lock(mutex_);
  return longest_;
}

/// On a thread of its own: whoever is asked may take his time.
void SoakWatch::ask(const std::stop_token& stop) {
  const Screen screen(parts_.desktop.environment().at("DISPLAY"));
  std::unique_ptr<BusClient> bus;
  while (!stop.stop_requested()) {
    const Duration asked = now_;
    try {
      if (!bus) bus = std::make_unique<BusClient>(parts_.desktop, TestBus::session);
      const QDBusMessage reply =
          bus->call(QStringLiteral("expert.mardeck.sentrel"), QStringLiteral("/expert/mardeck/sentrel"),
                    QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"),
                    {QStringLiteral("expert.mardeck.sentrel1")}, callTimeout);
      const auto properties = qdbus_cast<QVariantMap>(reply.arguments().constFirst());
      answered(asked, properties.value(QStringLiteral("State")).toString().toStdString(),
               properties.value(QStringLiteral("IsActive")).toBool());
    } catch (const std::exception&) {
      bus.reset();  // it may be another one by now
    }
    windows_ = screen.windows();
    const int covers = screen.covers(parts_.monitorWidth, parts_.monitorHeight);
    {
      const std::scoped_lock lock(mutex_);
      coversAt_ = now_;
      if (std::exchange(covers_, covers) != covers) coversSince_ = coversAt_;
    }
    std::this_thread::sleep_for(askInterval);
  }
}

void SoakWatch::answered(Duration asked, const std::string& state, bool active) {
  const std::scoped_lock lock(mutex_);
  const auto time = SteadyClock::now();
  answeredAt_ = now_;
  longest_.answerMs = std::max(longest_.answerMs, milli(answeredAt_ - asked));
  if (active) {
    if (activeAt_) activeFor_ += time - *activeAt_;
    if (!activeAt_) ++sessions_;
    activeAt_ = time;
  } else {
    activeAt_.reset();
  }
  if (state == state_) return;
  if (!seesIn(state) || !seesIn(state_)) stateSince_ = answeredAt_;
  if (state == "alert") ++alerts_;
  state_ = state;
}

void SoakWatch::look(const std::stop_token& stop) {
  for (auto last = SteadyClock::now(); !stop.stop_requested();) {
    std::this_thread::sleep_for(lookInterval);
    const auto time = SteadyClock::now();
    // Who is held up cannot say how long others took.
    now_ = now_.load() + std::min<Duration>(time - std::exchange(last, time), 3 * lookInterval);
    judge();
  }
}

void SoakWatch::judge() {
  const bool open = cameraIsOpen();
  const std::scoped_lock lock(mutex_);
  const Duration now = now_;
  const int frames = parts_.frames;
  if (frames != std::exchange(frames_, frames)) lastFrame_ = now;
  if (!started_) return;
  if (!open) openSince_.reset();
  if (open && !openSince_) openSince_ = now;
  if (!sessionBus_) {
    // Only what is seen without it can be judged.
    answeredAt_ = now;
  }
  const bool fresh = now - answeredAt_ < 2 * askInterval;
  const bool sees = fresh && sessionBus_ && seesIn(state_);
  if (sees) {
    const Duration blind = now - std::max(lastFrame_, stateSince_);
    longest_.blindMs = std::max(longest_.blindMs, milli(blind));
    require(Rule::saysThatItSees, blind <= blindLimit, "it says " + state_ + ", and no frame came for 2.5 s");
  }

  const Duration expectedFor = now - expectedSince_;
  if (expected_ == Expected::closed) {
    if (!open && !std::exchange(closingMeasured_, true))
      longest_.closingMs = std::max(longest_.closingMs, milli(expectedFor));
    require(Rule::closes, !open || expectedFor <= closingLimit,
            "the camera is open, 500 ms after it had to be closed");
  }
  if (expected_ == Expected::protecting) {
    if (open && (sees || !sessionBus_)) {
      protectedAt_ = now;
      if (!std::exchange(protectingMeasured_, true))
        longest_.protectingMs = std::max(longest_.protectingMs, milli(expectedFor));
    }
    require(Rule::protects, now - protectedAt_ <= protectingLimit,
            "nothing stands in its way, and it has not protected for 8 s (" + state_ +
                (open ? ", the camera is open)" : ", the camera is closed)"));
  }

  const bool settled = now - std::max(stateSince_, worldSince_) > stateLimit;
  const bool off = state_ == "inactive" && !wished_ && !calibrating_;
  if (sessionBus_) {
    require(Rule::answers, now - answeredAt_ <= answerLimit, "it does not answer on the bus");
    if (fresh && settled && !calibrating_ && (off || state_ == "autoPaused")) {
      // It opens before it says so.
      require(Rule::rests, !open || now - *openSince_ <= stateLimit,
              "it says " + state_ + ", and the camera is open");
    }
    if (fresh && settled && !wished_)
      require(Rule::stops, state_ == "inactive", "it was switched off, and says " + state_);
  }
  judgeScreen(now);
}

void SoakWatch::judgeScreen(Duration now) {
  const Duration settledFor = now - std::max({stateSince_, worldSince_, coversSince_});
  if (settledFor < coverLimit || now - coversAt_ > 2 * askInterval) return;
  const bool fresh = sessionBus_ && now - answeredAt_ < 2 * askInterval;
  const auto expect = [this](int screens) {
    require(Rule::covers, covers_ == screens,
            "it says " + state_ + ", and " + std::to_string(covers_) + " of " + std::to_string(monitors_) +
                " screens are covered" + (covered_ ? ", though all were asked for" : "") +
                (shared_ ? ", while the screen is shared" : ""));
  };
  if (covered_) {
    if (!away_) expect(monitors_);  // a screen that comes while the session is locked is covered afterwards
    return;
  }
  // What is shared shows no stripes, and an alert only notifies.
  if (fresh && seesIn(state_)) expect(shared_ ? 0 : monitors_);
  if (expected_ == Expected::closed || (fresh && (state_ == "inactive" || state_ == "autoPaused")))
    require(Rule::uncovers, covers_ == 0, "it rests (" + state_ + "), and the screen is covered");
}

/// Told when it begins to be broken.
void SoakWatch::require(Rule rule, bool holds, const std::string& words) {
  bool& broken = broken_[static_cast<std::size_t>(rule)];
  if (std::exchange(broken, !holds) || holds) return;
  parts_.journal.breach(words);
}

}  // namespace sentrel::test
