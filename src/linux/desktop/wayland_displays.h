// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSocketNotifier>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "linux/desktop/witness_reports.h"

struct wl_display;
struct wl_output;
struct wl_registry;
struct zwlr_output_power_manager_v1;
struct zwlr_output_power_v1;

namespace sentrel {

/// A wlroots compositor about the power of its outputs, on a connection of its own that is closed at once
/// where the compositor cannot tell. Lives on an event thread.
class WaylandDisplays {
 public:
  explicit WaylandDisplays(WitnessReports reports);
  ~WaylandDisplays();
  WaylandDisplays(const WaylandDisplays&) = delete;
  WaylandDisplays& operator=(const WaylandDisplays&) = delete;

 private:
  struct Output;
  struct Listeners;

  void advertised(std::uint32_t name, const char* interface);
  void withdrawn(std::uint32_t name);
  void listingDone();
  void watch(Output& output);
  void evaluate();
  void read();
  void close();

  WitnessReports reports_;
  wl_display* display_ = nullptr;
  wl_registry* registry_ = nullptr;
  zwlr_output_power_manager_v1* manager_ = nullptr;
  bool listed_ = false;
  bool hadOutput_ = false;
  std::vector<std::unique_ptr<Output>> outputs_;
  std::optional<bool> off_;
  std::unique_ptr<QSocketNotifier> readable_;
};

}  // namespace sentrel
