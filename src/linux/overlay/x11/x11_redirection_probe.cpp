// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_redirection_probe.h"

#include <xcb/composite.h>

#include <cstdint>

#include "linux/overlay/x11/x11_reply.h"

namespace sentrel {

X11RedirectionProbe::X11RedirectionProbe(const X11Connection& connection)
    : connection_(connection), window_(xcb_generate_id(connection.get())) {
  const std::uint32_t overrideRedirect = 1;
  xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, window_, connection_.root(), -2, -2, 1, 1, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                    &overrideRedirect);
  xcb_map_window(connection_.get(), window_);
}

X11RedirectionProbe::~X11RedirectionProbe() {
  xcb_destroy_window(connection_.get(), window_);
}

bool X11RedirectionProbe::isRedirected() const {
  const auto* composite = xcb_get_extension_data(connection_.get(), &xcb_composite_id);
  if (composite == nullptr || composite->present == 0) return false;
  // Only a window that is drawn off the screen has a pixmap of its own.
  const xcb_pixmap_t pixmap = xcb_generate_id(connection_.get());
  const auto cookie = xcb_composite_name_window_pixmap_checked(connection_.get(), window_, pixmap);
  const auto error = adopt(xcb_request_check(connection_.get(), cookie));
  if (error || connection_.broken()) return false;
  xcb_free_pixmap(connection_.get(), pixmap);
  return true;
}

}  // namespace sentrel
