// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/null_overlay_backend.h"

namespace sentrel {

namespace {
class NullOverlaySurface final : public OverlaySurface {
 public:
  void present(const OverlayScene& /*scene*/) override {}
  void setTint(TintLevel /*level*/) override {}
};

class NullRetroSurface final : public RetroSurface {
 public:
  void present(std::shared_ptr<const GreyPicture> /*picture*/) override {}
  void setBlink(BlinkLevel /*level*/) override {}
};
}  // namespace

std::unique_ptr<OverlaySurface> NullOverlayBackend::createSurface(const Screen& /*screen*/) {
  return std::make_unique<NullOverlaySurface>();
}

std::unique_ptr<RetroSurface> NullOverlayBackend::createRetroSurface() {
  return std::make_unique<NullRetroSurface>();
}

}  // namespace sentrel
