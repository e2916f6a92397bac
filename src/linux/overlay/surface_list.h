// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace sentrel {

/// Something shown on a desktop that may go and come back: it keeps what it shows as values. Main thread.
class DesktopSurface {
 public:
  virtual ~DesktopSurface() = default;
  /// The desktop has changed, or come.
  virtual void refresh() = 0;
  /// The desktop is going: lets go of everything on it.
  virtual void release() = 0;
};

/// The surfaces that exist and the desktop that they are on; none while there is no server.
template <class DesktopType>
struct SurfaceList {
  using Desktop = DesktopType;
  Desktop* desktop = nullptr;
  std::vector<DesktopSurface*> surfaces;
};

}  // namespace sentrel
