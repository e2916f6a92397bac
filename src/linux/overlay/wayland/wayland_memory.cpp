// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_memory.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <utility>

namespace sentrel {

std::optional<WaylandMemory> WaylandMemory::allocate(wl_shm* shm, std::size_t pixelCount) {
  const std::size_t bytes = pixelCount * sizeof(std::uint32_t);
  MemoryFile file;
  // Reserved now: without room, writing later would be a fatal signal instead of an error.
  if (!file.valid() || posix_fallocate(file.descriptor(), 0, static_cast<off_t>(bytes)) != 0) return {};
  void* pixels = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor(), 0);
  if (pixels == MAP_FAILED) return {};
  WaylandMemory memory(shm, std::move(file), bytes);
  memory.pixels_ = {static_cast<std::uint32_t*>(pixels), pixelCount};
  return memory;
}

std::optional<WaylandMemory> WaylandMemory::copyOf(wl_shm* shm, std::span<const Row> rows) {
  MemoryFile file;
  if (!file.valid() || !file.write(rows)) return {};
  std::size_t bytes = 0;
  for (const Row& row : rows) bytes += row.size_bytes();
  return WaylandMemory(shm, std::move(file), bytes);
}

WaylandMemory::WaylandMemory(wl_shm* shm, MemoryFile file, std::size_t bytes)
    : file_(std::move(file)),
      pool_(wl_shm_create_pool(shm, file_.descriptor(), static_cast<std::int32_t>(bytes))) {}

WaylandMemory::WaylandMemory(WaylandMemory&& other) noexcept
    : file_(std::move(other.file_)),
      pool_(std::move(other.pool_)),
      pixels_(std::exchange(other.pixels_, {})) {}

WaylandMemory::~WaylandMemory() {
  if (!pixels_.empty()) munmap(pixels_.data(), pixels_.size_bytes());
}

WaylandObject<wl_buffer> WaylandMemory::makeBuffer(std::size_t firstPixel, int width, int height) const {
  constexpr auto pixelBytes = static_cast<int>(sizeof(std::uint32_t));
  return WaylandObject<wl_buffer>(
      wl_shm_pool_create_buffer(pool_.get(), static_cast<std::int32_t>(firstPixel) * pixelBytes, width,
                                height, width * pixelBytes, WL_SHM_FORMAT_ARGB8888));
}

}  // namespace sentrel
