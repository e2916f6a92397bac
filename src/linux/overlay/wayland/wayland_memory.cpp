// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <utility>

namespace sentrel {

namespace {

/// A file in memory of this size, whose pages exist; -1 when there is no room.
int createFile(std::size_t bytes) {
  const int file = memfd_create("sentrel-overlay", MFD_CLOEXEC);
  if (file < 0) return -1;
  // Reserved now: without room, writing later would be a fatal signal instead of an error.
  if (posix_fallocate(file, 0, static_cast<off_t>(bytes)) == 0) return file;
  close(file);
  return -1;
}

}  // namespace

std::optional<WaylandMemory> WaylandMemory::allocate(wl_shm* shm, std::size_t pixelCount) {
  const std::size_t bytes = pixelCount * sizeof(std::uint32_t);
  const int file = createFile(bytes);
  if (file < 0) return {};
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  WaylandObject<wl_shm_pool> pool;
  if (memory != MAP_FAILED) pool.reset(wl_shm_create_pool(shm, file, static_cast<std::int32_t>(bytes)));
  close(file);
  if (!pool) return {};
  return WaylandMemory({static_cast<std::uint32_t*>(memory), pixelCount}, std::move(pool));
}

WaylandMemory::WaylandMemory(std::span<std::uint32_t> pixels, WaylandObject<wl_shm_pool> pool)
    : pixels_(pixels), pool_(std::move(pool)) {}

WaylandMemory::WaylandMemory(WaylandMemory&& other) noexcept
    : pixels_(std::exchange(other.pixels_, {})), pool_(std::move(other.pool_)) {}

WaylandMemory::~WaylandMemory() {
  unmap();
}

void WaylandMemory::unmap() {
  if (!pixels_.empty()) munmap(pixels_.data(), pixels_.size_bytes());
  pixels_ = {};
}

WaylandObject<wl_buffer> WaylandMemory::makeBuffer(std::size_t firstPixel, int width, int height) const {
  constexpr auto pixelBytes = static_cast<int>(sizeof(std::uint32_t));
  return WaylandObject<wl_buffer>(
      wl_shm_pool_create_buffer(pool_.get(), static_cast<std::int32_t>(firstPixel) * pixelBytes, width,
                                height, width * pixelBytes, WL_SHM_FORMAT_ARGB8888));
}

}  // namespace sentrel
