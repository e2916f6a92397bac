// SPDX-License-Identifier: Apache-2.0
//
// A plugin for Wayfire 0.7: the hands and the eyes of a trial within the compositor. Answers one request for
// each connection to the socket "hands" in the folder SENTREL_TRIAL:
//   windows               a line "x y width height title" for each window
//   under X Y             what would get a click there
//   move X Y              moves the pointer
//   button 1|0            presses or releases the first button
//   touch X Y             puts a finger there and takes it away
//   key NAME 1|0          presses or releases a key
//   above X Y TITLE       moves the window there, and keeps it above the others
//   maximize TITLE        makes the window fill the work area
//   output add|remove     a second screen
//   scale FACTOR          of every screen
// Coordinates are those of the layout. What comes from here takes the way of real devices.
#include <linux/input-event-codes.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xkbcommon/xkbcommon.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <wayfire/core.hpp>
#include <wayfire/nonstd/wlroots-full.hpp>
#include <wayfire/output-layout.hpp>
#include <wayfire/output.hpp>
#include <wayfire/singleton-plugin.hpp>
#include <wayfire/view.hpp>
#include <wayfire/workspace-manager.hpp>

extern "C" {
#include <wlr/backend/multi.h>
}

namespace {

std::uint32_t now() {
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

wlr_backend* headless() {
  wlr_backend* found = nullptr;
  const auto look = [](wlr_backend* backend, void* to) {
    if (wlr_backend_is_headless(backend)) *static_cast<wlr_backend**>(to) = backend;
  };
  wlr_backend* const all = wf::get_core().backend;
  if (wlr_backend_is_multi(all)) {
    wlr_multi_for_each_backend(all, look, &found);
  } else {
    look(all, &found);
  }
  return found;
}

wayfire_view viewNamed(const std::string& title) {
  for (const wayfire_view& view : wf::get_core().get_all_views()) {
    if (view->is_mapped() && view->get_title() == title) return view;
  }
  return nullptr;
}

std::string restOf(std::istringstream& words) {
  std::string rest;
  std::getline(words >> std::ws, rest);
  return rest;
}

class Hands {
 public:
  Hands()
      : pointer_(wlr_headless_add_input_device(headless(), WLR_INPUT_DEVICE_POINTER)),
        keyboard_(wlr_headless_add_input_device(headless(), WLR_INPUT_DEVICE_KEYBOARD)),
        finger_(wlr_headless_add_input_device(headless(), WLR_INPUT_DEVICE_TOUCH)),
        socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = std::string(std::getenv("SENTREL_TRIAL")) + "/hands";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket_, 8) != 0) {
      std::abort();
    }
    source_ = wl_event_loop_add_fd(wf::get_core().ev_loop, socket_, WL_EVENT_READABLE, accept, this);
  }
  ~Hands() {
    wl_event_source_remove(source_);
    ::close(socket_);
  }
  Hands(const Hands&) = delete;
  Hands& operator=(const Hands&) = delete;

 private:
  static int accept(int socket, std::uint32_t /*mask*/, void* hands) {
    const int connection = ::accept4(socket, nullptr, nullptr, SOCK_CLOEXEC);
    std::array<char, 512> request{};
    const ssize_t size = ::recv(connection, request.data(), request.size(), 0);
    if (size > 0) {
      std::istringstream words(std::string(request.data(), static_cast<std::size_t>(size)));
      std::ostringstream answer;
      static_cast<Hands*>(hands)->carryOut(words, answer);
      (void)::send(connection, answer.str().data(), answer.str().size(), MSG_NOSIGNAL);
    }
    ::close(connection);
    return 0;
  }

  void carryOut(std::istringstream& words, std::ostringstream& answer) {
    std::string what;
    words >> what;
    if (what == "windows") {
      for (const wayfire_view& view : wf::get_core().get_all_views()) {
        if (!view->is_mapped() || view->role != wf::VIEW_ROLE_TOPLEVEL || !view->get_output()) continue;
        const wf::geometry_t place =
            view->get_wm_geometry() + wf::origin(view->get_output()->get_layout_geometry());
        answer << place.x << ' ' << place.y << ' ' << place.width << ' ' << place.height << ' '
               << view->get_title() << '\n';
      }
    } else if (what == "under" || what == "move" || what == "touch") {
      wf::pointf_t at{};
      words >> at.x >> at.y;
      if (what == "under") {
        const wayfire_view view = wf::get_core().get_view_at(at);
        const bool isOverview = wf::get_core().get_active_output()->is_plugin_active("expo");
        answer << (isOverview ? "the overview"
                   : view     ? view->get_title() + " of " + view->get_app_id()
                              : "nothing");
      } else if (what == "move") {
        move(at);
      } else {
        touch(at);
      }
    } else if (what == "button") {
      int pressed = 0;
      words >> pressed;
      wlr_event_pointer_button event{.device = pointer_,
                                     .time_msec = now(),
                                     .button = BTN_LEFT,
                                     .state = pressed != 0 ? WLR_BUTTON_PRESSED : WLR_BUTTON_RELEASED};
      wl_signal_emit(&pointer_->pointer->events.button, &event);
      wl_signal_emit(&pointer_->pointer->events.frame, pointer_->pointer);
    } else if (what == "key") {
      std::string name;
      int pressed = 0;
      words >> name >> pressed;
      key(name, pressed != 0);
    } else if (what == "above") {
      wf::point_t at{};
      words >> at.x >> at.y;
      if (const wayfire_view view = viewNamed(restOf(words))) {
        wf::workspace_manager& workspace = *view->get_output()->workspace;
        view->move(at.x, at.y);
        workspace.add_view_to_sublayer(
            view, workspace.create_sublayer(wf::LAYER_WORKSPACE, wf::SUBLAYER_DOCKED_ABOVE));
      }
    } else if (what == "maximize") {
      if (const wayfire_view view = viewNamed(restOf(words))) view->tile_request(wf::TILED_EDGES_ALL);
    } else if (what == "output") {
      words >> what;
      if (what == "add") {
        second_ = wlr_headless_add_output(headless(), 1920, 1080);
      } else if (second_ != nullptr) {
        wlr_output_destroy(std::exchange(second_, nullptr));
      }
    } else if (what == "scale") {
      wf::output_layout_t& layout = *wf::get_core().output_layout;
      auto configuration = layout.get_current_configuration();
      double scale = 1;
      words >> scale;
      for (auto& [output, state] : configuration) state.scale = scale;
      layout.apply_configuration(configuration);
    }
  }

  /// As the devices say it: from 0 to 1 over all screens.
  static wf::pointf_t inLayout(wf::pointf_t at) {
    const wlr_box* all = wlr_output_layout_get_box(wf::get_core().output_layout->get_handle(), nullptr);
    return {(at.x - all->x) / all->width, (at.y - all->y) / all->height};
  }

  void move(wf::pointf_t at) {
    const auto [x, y] = inLayout(at);
    wlr_event_pointer_motion_absolute event{.device = pointer_, .time_msec = now(), .x = x, .y = y};
    wl_signal_emit(&pointer_->pointer->events.motion_absolute, &event);
    wl_signal_emit(&pointer_->pointer->events.frame, pointer_->pointer);
  }

  void touch(wf::pointf_t at) {
    const auto [x, y] = inLayout(at);
    wlr_event_touch_down down{.device = finger_, .time_msec = now(), .touch_id = 0, .x = x, .y = y};
    wl_signal_emit(&finger_->touch->events.down, &down);
    wl_signal_emit(&finger_->touch->events.frame, nullptr);
    wlr_event_touch_up up{.device = finger_, .time_msec = now(), .touch_id = 0};
    wl_signal_emit(&finger_->touch->events.up, &up);
    wl_signal_emit(&finger_->touch->events.frame, nullptr);
  }

  void key(const std::string& name, bool pressed) {
    xkb_keymap* const keymap = keyboard_->keyboard->keymap;
    const xkb_keysym_t wanted = xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_NO_FLAGS);
    for (xkb_keycode_t code = xkb_keymap_min_keycode(keymap); code <= xkb_keymap_max_keycode(keymap);
         ++code) {
      const xkb_keysym_t* symbols = nullptr;
      if (xkb_keymap_key_get_syms_by_level(keymap, code, 0, 0, &symbols) != 1 || *symbols != wanted) continue;
      constexpr xkb_keycode_t offset = 8;  // between X's codes and those of the devices
      wlr_event_keyboard_key event{
          .time_msec = now(),
          .keycode = code - offset,
          .update_state = true,
          .state = pressed ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED};
      wlr_keyboard_notify_key(keyboard_->keyboard, &event);
      return;
    }
  }

  wlr_input_device* pointer_;
  wlr_input_device* keyboard_;
  wlr_input_device* finger_;
  wlr_output* second_ = nullptr;
  int socket_;
  wl_event_source* source_ = nullptr;
};

using HandsPlugin = wf::singleton_plugin_t<Hands, false>;

}  // namespace

DECLARE_WAYFIRE_PLUGIN(HandsPlugin)
