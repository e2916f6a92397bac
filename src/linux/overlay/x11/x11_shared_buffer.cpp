// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_shared_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <utility>

#include "linux/overlay/x11/x11_reply.h"

namespace sentrel {

std::unique_ptr<X11SharedBuffer> X11SharedBuffer::create(const X11Connection& connection,
                                                         std::size_t pixelCount) {
  const std::size_t bytes = pixelCount * sizeof(std::uint32_t);
  const int file = memfd_create("sentrel-overlay", MFD_CLOEXEC);
  if (file < 0) return nullptr;
  void* memory = MAP_FAILED;
  if (ftruncate(file, static_cast<off_t>(bytes)) == 0) {
    memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  }
  if (memory == MAP_FAILED) {
    close(file);
    return nullptr;
  }
  std::unique_ptr<X11SharedBuffer> buffer(
      new X11SharedBuffer(connection, {static_cast<std::uint32_t*>(memory), pixelCount}));
  // The file is handed over, and closed, with the request.
  const auto cookie = xcb_shm_attach_fd_checked(connection.get(), buffer->segment_, file, 1);
  const auto error = adopt(xcb_request_check(connection.get(), cookie));
  return error || connection.broken() ? nullptr : std::move(buffer);
}

X11SharedBuffer::X11SharedBuffer(const X11Connection& connection, std::span<std::uint32_t> pixels)
    : connection_(connection), pixels_(pixels), segment_(xcb_generate_id(connection.get())) {}

X11SharedBuffer::~X11SharedBuffer() {
  xcb_shm_detach(connection_.get(), segment_);
  munmap(pixels_.data(), pixels_.size_bytes());
}

}  // namespace sentrel
