// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus.h"
#include "platform/desktop_services.h"
#include "platform/screen_reads.h"
#include "support/main_loop.h"

namespace sentrel {

/// The screen is shared while a program gets pictures from a part of the desktop, which is whoever owns one
/// of the desktop's names on the session bus, and is no such part itself. Names of pictures and programs
/// prove nothing, because any program may bear them. The bus is asked once about each pair of programs;
/// where it does not answer within 5 s, or is not there, nobody counts as the desktop. Sharing ends 1 s after
/// the last picture was to be had: programs ask for others when a window changes its size.
class DesktopScreenSharing final : public ScreenSharing {
 public:
  DesktopScreenSharing(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Bus> sessionBus,
                       std::shared_ptr<ScreenReads> reads);

  [[nodiscard]] Registration observe() override;
  [[nodiscard]] const Published<bool>& isShared() const override { return *isShared_; }

 private:
  class Watch;

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Bus> bus_;
  const std::shared_ptr<ScreenReads> reads_;
  const std::shared_ptr<Published<bool>> isShared_ = std::make_shared<Published<bool>>();
  std::weak_ptr<Watch> watch_;  // owned by the registrations
};

}  // namespace sentrel
