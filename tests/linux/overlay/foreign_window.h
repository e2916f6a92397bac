// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>

#include <QImage>
#include <cstdint>
#include <memory>
#include <string>

#include "support/geometry.h"

namespace sentrel::test {

/// A window of another program, over its own connection: opaque, of one colour or one picture. Every call
/// waits until the server has done it. Throws std::runtime_error when the server does not answer.
class ForeignWindow {
 public:
  struct Options {
    std::string display;
    Rect pixels;
    std::uint32_t rgb = 0xFFFFFF;
    bool managed = false;  ///< leaves its place and order to the window manager
    bool fullScreen = false;
  };
  explicit ForeignWindow(const Options& options);
  ~ForeignWindow();
  ForeignWindow(const ForeignWindow&) = delete;
  ForeignWindow& operator=(const ForeignWindow&) = delete;

  void setPicture(const QImage& picture);
  void raise();
  /// Whether a button was pressed on it since the last call. Waits for the server.
  [[nodiscard]] bool wasClicked();
  /// How many events told since the last call that another window of the root changed its place in the order.
  [[nodiscard]] int restacksSeen();
  void watchRestacks();

 private:
  void sync();
  void readEvents();

  xcb_connection_t* connection_;
  xcb_window_t root_ = XCB_NONE;
  xcb_window_t window_ = XCB_NONE;
  std::uint8_t depth_ = 24;
  bool clicked_ = false;
  int restacks_ = 0;
};

}  // namespace sentrel::test
