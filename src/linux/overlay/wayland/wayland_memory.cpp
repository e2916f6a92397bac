// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>
#include <vector>

namespace sentrel {

namespace {

/// A file in memory, closed with this object; not `valid` when there is none left.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("sentrel-overlay", MFD_CLOEXEC)) {}
  ~MemoryFile() {
    if (valid()) close(descriptor_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  [[nodiscard]] bool valid() const { return descriptor_ >= 0; }
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

/// Writes all of it; false when there is no room.
bool writeRows(int file, std::span<const WaylandMemory::Row> rows) {
  std::vector<iovec> parts;
  for (const auto& row : rows) {
    // The interface is older than const.
    parts.push_back({const_cast<std::uint32_t*>(row.data()), row.size_bytes()});
  }
  while (!parts.empty()) {
    auto first = parts.begin();
    const std::size_t count = std::min<std::size_t>(parts.size(), IOV_MAX);
    ssize_t written = writev(file, parts.data(), static_cast<int>(count));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    while (first != parts.end() && static_cast<std::size_t>(written) >= first->iov_len) {
      written -= static_cast<ssize_t>(first->iov_len);
      ++first;
    }
    if (first != parts.end()) {
      first->iov_base = static_cast<std::byte*>(first->iov_base) + written;
      first->iov_len -= static_cast<std::size_t>(written);
    }
    parts.erase(parts.begin(), first);
  }
  return true;
}

}  // namespace

std::optional<WaylandMemory> WaylandMemory::allocate(wl_shm* shm, std::size_t pixelCount) {
  const std::size_t bytes = pixelCount * sizeof(std::uint32_t);
  const MemoryFile file;
  // Reserved now: without room, writing later would be a fatal signal instead of an error.
  if (!file.valid() || posix_fallocate(file.descriptor(), 0, static_cast<off_t>(bytes)) != 0) return {};
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor(), 0);
  if (memory == MAP_FAILED) return {};
  return WaylandMemory({static_cast<std::uint32_t*>(memory), pixelCount},
                       WaylandObject<wl_shm_pool>(
                           wl_shm_create_pool(shm, file.descriptor(), static_cast<std::int32_t>(bytes))));
}

std::optional<WaylandMemory> WaylandMemory::copyOf(wl_shm* shm, std::span<const Row> rows) {
  const MemoryFile file;
  if (!file.valid() || !writeRows(file.descriptor(), rows)) return {};
  std::size_t bytes = 0;
  for (const Row& row : rows) bytes += row.size_bytes();
  return WaylandMemory({}, WaylandObject<wl_shm_pool>(
                               wl_shm_create_pool(shm, file.descriptor(), static_cast<std::int32_t>(bytes))));
}

WaylandMemory::WaylandMemory(std::span<std::uint32_t> pixels, WaylandObject<wl_shm_pool> pool)
    : pixels_(pixels), pool_(std::move(pool)) {}

WaylandMemory::WaylandMemory(WaylandMemory&& other) noexcept
    : pixels_(std::exchange(other.pixels_, {})), pool_(std::move(other.pool_)) {}

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
