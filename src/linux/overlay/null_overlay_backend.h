// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/overlay_surface.h"

namespace sentrel {

/// The overlay where nothing can be covered: no screens, and it says so.
class NullOverlayBackend final : public OverlayBackend {
 public:
  [[nodiscard]] std::vector<Screen> screens() const override { return {}; }
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override;
  [[nodiscard]] std::unique_ptr<RetroSurface> createRetroSurface() override;
  [[nodiscard]] std::string limitation() const override { return "error_no_overlay"; }
};

}  // namespace sentrel
