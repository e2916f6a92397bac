// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_buffers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>

namespace sentrel {

namespace {

constexpr std::size_t pixelBytes = sizeof(std::uint32_t);

/// A file that outgrows a limit of the process raises SIGXFSZ, whose default is the end of the process.
void surviveLimits() {
  struct sigaction current {};
  if (sigaction(SIGXFSZ, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    std::signal(SIGXFSZ, SIG_IGN);
  }
}

}  // namespace

WaylandMemory::WaylandMemory() : file_(memfd_create("sentrel-overlay", MFD_CLOEXEC)) {
  surviveLimits();
}

WaylandMemory::~WaylandMemory() {
  if (!pixels_.empty()) munmap(pixels_.data(), pixels_.size_bytes());
  if (file_ >= 0) close(file_);
}

void WaylandMemory::createPool(wl_shm* shm, std::size_t bytes) {
  pool_.reset(wl_shm_create_pool(shm, file_, static_cast<std::int32_t>(bytes)));
}

std::unique_ptr<WaylandMemory> WaylandMemory::allocate(wl_shm* shm, std::size_t pixelCount) {
  const std::size_t bytes = pixelCount * pixelBytes;
  std::unique_ptr<WaylandMemory> memory(new WaylandMemory);
  // Reserved now: without room, writing later would be a fatal signal instead of an error.
  if (memory->file_ < 0 || posix_fallocate(memory->file_, 0, static_cast<off_t>(bytes)) != 0) return nullptr;
  void* pixels = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, memory->file_, 0);
  if (pixels == MAP_FAILED) return nullptr;
  memory->pixels_ = {static_cast<std::uint32_t*>(pixels), pixelCount};
  memory->createPool(shm, bytes);
  return memory;
}

std::unique_ptr<WaylandMemory> WaylandMemory::copyOf(wl_shm* shm, std::span<const iovec> rows) {
  std::unique_ptr<WaylandMemory> memory(new WaylandMemory);
  if (memory->file_ < 0 || !memory->overwrite(rows)) return nullptr;
  memory->createPool(shm, rows.size() * rows.front().iov_len);
  return memory;
}

bool WaylandMemory::overwrite(std::span<const iovec> rows) const {
  std::size_t offset = 0;
  while (!rows.empty()) {
    const auto batch = rows.first(std::min<std::size_t>(rows.size(), IOV_MAX));
    const std::size_t bytes = batch.size() * batch.front().iov_len;
    // A file in memory takes less only when there is no room.
    const ssize_t written =
        pwritev(file_, batch.data(), static_cast<int>(batch.size()), static_cast<off_t>(offset));
    if (written != static_cast<ssize_t>(bytes)) return false;
    offset += bytes;
    rows = rows.subspan(batch.size());
  }
  return true;
}

WaylandObject<wl_buffer> WaylandMemory::makeBuffer(std::size_t firstPixel, int width, int height) const {
  return WaylandObject<wl_buffer>(
      wl_shm_pool_create_buffer(pool_.get(), static_cast<std::int32_t>(firstPixel * pixelBytes), width,
                                height, width * static_cast<int>(pixelBytes), WL_SHM_FORMAT_ARGB8888));
}

WaylandBuffer* WaylandBuffers::idle(int width, int height) {
  std::erase_if(buffers_, [width, height](const auto& buffer) {
    return !buffer->shown && (buffer->width != width || buffer->height != height);
  });
  const auto found = std::ranges::find(buffers_, false, &WaylandBuffer::shown);
  return found == buffers_.end() ? nullptr : found->get();
}

WaylandBuffer& WaylandBuffers::add(std::unique_ptr<WaylandMemory> memory, int width, int height) {
  static constexpr wl_buffer_listener listener{
      .release = [](void* self, wl_buffer* buffer) { static_cast<WaylandBuffers*>(self)->released(buffer); },
  };
  auto buffer = memory->makeBuffer(0, width, height);
  wl_buffer_add_listener(buffer.get(), &listener, this);
  buffers_.push_back(
      std::make_unique<WaylandBuffer>(WaylandBuffer{std::move(memory), std::move(buffer), width, height}));
  return *buffers_.back();
}

void WaylandBuffers::released(wl_buffer* buffer) {
  const auto found =
      std::ranges::find_if(buffers_, [buffer](const auto& own) { return own->buffer.get() == buffer; });
  if (found == buffers_.end()) return;
  WaylandBuffer& own = **found;
  own.shown = false;
  const auto pixels = static_cast<std::size_t>(own.width) * static_cast<std::size_t>(own.height);
  if (pixels < leastKept_) buffers_.erase(found);
}

wl_buffer* WaylandPalette::color(std::uint32_t argb) {
  auto found = buffers_.find(argb);
  if (found == buffers_.end()) {
    const std::size_t slot = std::min(buffers_.size(), memory_->pixels().size() - 1);
    memory_->pixels()[slot] = argb;
    found = buffers_.emplace(argb, memory_->makeBuffer(slot, 1, 1)).first;
  }
  return found->second.get();
}

}  // namespace sentrel
