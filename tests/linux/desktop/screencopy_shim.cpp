// SPDX-License-Identifier: Apache-2.0

// For LD_PRELOAD with xdg-desktop-portal-wlr, which up to version 0.7 gives no screen away where the
// compositor paints without a graphics card and therefore offers pictures in shared memory alone, though it
// takes those. This says to it that both are on offer.

#include <dlfcn.h>

#include <array>
#include <cstdint>
#include <cstring>

struct wl_proxy;
extern "C" const char* wl_proxy_get_class(wl_proxy* proxy);

namespace {

using Handler = void (*)();
using Listen = int (*)(wl_proxy*, Handler*, void*);
using SharedMemory = void (*)(void*, wl_proxy*, std::uint32_t format, std::uint32_t width,
                              std::uint32_t height, std::uint32_t stride);
using GraphicsMemory = void (*)(void*, wl_proxy*, std::uint32_t format, std::uint32_t width,
                                std::uint32_t height);

// Events of zwlr_screencopy_frame_v1, by their numbers.
constexpr std::size_t sharedMemory = 0;
constexpr std::size_t graphicsMemory = 5;
std::array<Handler, 7> handlers;
SharedMemory told = nullptr;

void tellBoth(void* data, wl_proxy* frame, std::uint32_t format, std::uint32_t width, std::uint32_t height,
              std::uint32_t stride) {
  constexpr std::uint32_t xrgb8888 = 0x34325258;
  told(data, frame, format, width, height, stride);
  reinterpret_cast<GraphicsMemory>(handlers[graphicsMemory])(data, frame, xrgb8888, width, height);
}

}  // namespace

extern "C" int wl_proxy_add_listener(wl_proxy* proxy, Handler* listener, void* data) {
  const auto listen = reinterpret_cast<Listen>(dlsym(RTLD_NEXT, "wl_proxy_add_listener"));
  if (std::strcmp(wl_proxy_get_class(proxy), "zwlr_screencopy_frame_v1") != 0)
    return listen(proxy, listener, data);
  std::memcpy(handlers.data(), listener, sizeof handlers);
  told = reinterpret_cast<SharedMemory>(handlers[sharedMemory]);
  handlers[sharedMemory] = reinterpret_cast<Handler>(&tellBoth);
  return listen(proxy, handlers.data(), data);
}
