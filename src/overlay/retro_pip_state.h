// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/retro_surface.h"
#include "support/published.h"

namespace sentrel {

/// The onlooker's picture of the moment; null before the first one and after the last. Main thread.
struct RetroPiPState {
  Published<std::shared_ptr<const GreyPicture>> frame;
};

}  // namespace sentrel
