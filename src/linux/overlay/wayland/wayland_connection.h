// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "linux/overlay/wayland/wayland_object.h"

namespace sentrel {

/// A connection of our own to a Wayland compositor, beside any that a toolkit has, and the interfaces that
/// the overlay needs of it. Requests on a broken connection do nothing. Main thread.
class WaylandConnection {
 public:
  /// An output that the compositor offers.
  struct OutputGlobal {
    std::uint32_t name;
    std::uint32_t version;
  };

  /// `display` as in WAYLAND_DISPLAY; null when nothing listens there. What the compositor offers is known
  /// once it has answered.
  [[nodiscard]] static std::unique_ptr<WaylandConnection> open(const std::string& display);
  ~WaylandConnection();
  WaylandConnection(const WaylandConnection&) = delete;
  WaylandConnection& operator=(const WaylandConnection&) = delete;

  /// Calls `answered` once, when the compositor has answered everything that was asked before; in place of
  /// what was to be called so far.
  void whenAnswered(std::function<void()> answered);
  /// Handles what the compositor says until `done()`, for at most `limit`: one that hangs must not hang us.
  /// Returns `done()`. Not while an event pump runs.
  bool await(std::chrono::milliseconds limit, const std::function<bool()>& done) const;

  /// Whether the compositor offers all that a cover needs; the layer shell above all.
  [[nodiscard]] bool canCover() const;
  [[nodiscard]] bool broken() const { return wl_display_get_error(display_.get()) != 0; }

  [[nodiscard]] wl_display* get() const { return display_.get(); }
  [[nodiscard]] wl_compositor* compositor() const { return compositor_.get(); }
  [[nodiscard]] wl_subcompositor* subcompositor() const { return subcompositor_.get(); }
  [[nodiscard]] wl_shm* sharedMemory() const { return sharedMemory_.get(); }
  [[nodiscard]] wp_viewporter* viewporter() const { return viewporter_.get(); }
  [[nodiscard]] zwlr_layer_shell_v1* layerShell() const { return layerShell_.get(); }
  // Null where they are not offered.
  [[nodiscard]] zxdg_output_manager_v1* outputManager() const { return outputManager_.get(); }
  [[nodiscard]] wp_fractional_scale_manager_v1* fractionalScales() const { return fractionalScales_.get(); }

  [[nodiscard]] const std::vector<OutputGlobal>& outputs() const { return outputs_; }
  [[nodiscard]] wl_output* bindOutput(const OutputGlobal& output) const;
  /// Called when an output has come or gone.
  void onOutputsChanged(std::function<void()> handler) { outputsChanged_ = std::move(handler); }

 private:
  explicit WaylandConnection(wl_display* display);

  void globalAppeared(std::uint32_t name, const std::string& interface, std::uint32_t version);
  void globalRemoved(std::uint32_t name);
  template <class Object>
  void bind(Object& object, std::uint32_t name, const wl_interface& interface, std::uint32_t version);

  WaylandObject<wl_display> display_;
  WaylandObject<wl_registry> registry_;
  WaylandObject<wl_compositor> compositor_;
  WaylandObject<wl_subcompositor> subcompositor_;
  WaylandObject<wl_shm> sharedMemory_;
  WaylandObject<wp_viewporter> viewporter_;
  WaylandObject<zwlr_layer_shell_v1> layerShell_;
  WaylandObject<zxdg_output_manager_v1> outputManager_;
  WaylandObject<wp_fractional_scale_manager_v1> fractionalScales_;
  std::vector<OutputGlobal> outputs_;
  std::function<void()> outputsChanged_ = [] {};
  WaylandObject<wl_callback> answer_;
  std::function<void()> answered_;
};

}  // namespace sentrel
