// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/memory_file.h"

#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <utility>
#include <vector>

namespace sentrel {

namespace {

// A file that outgrows a limit of the process raises SIGXFSZ, whose default is the end of the process.
void surviveLimits() {
  struct sigaction current {};
  if (sigaction(SIGXFSZ, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    std::signal(SIGXFSZ, SIG_IGN);
  }
}

}  // namespace

MemoryFile::MemoryFile() : descriptor_(memfd_create("sentrel-overlay", MFD_CLOEXEC)) {
  surviveLimits();
}

MemoryFile::MemoryFile(MemoryFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

MemoryFile::~MemoryFile() {
  if (valid()) close(descriptor_);
}

bool MemoryFile::write(std::span<const Row> rows) const {
  std::vector<iovec> parts;
  parts.reserve(rows.size());
  for (const Row& row : rows) {
    // The interface is older than const.
    parts.push_back({const_cast<std::uint32_t*>(row.data()), row.size_bytes()});
  }
  off_t offset = 0;
  for (std::span<iovec> left(parts); !left.empty();) {
    const auto count = static_cast<int>(std::min<std::size_t>(left.size(), IOV_MAX));
    const ssize_t written = pwritev(descriptor_, left.data(), count, offset);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    offset += written;
    auto done = static_cast<std::size_t>(written);
    while (!left.empty() && done >= left.front().iov_len) {
      done -= left.front().iov_len;
      left = left.subspan(1);
    }
    if (left.empty()) break;
    left.front().iov_base = static_cast<std::byte*>(left.front().iov_base) + done;
    left.front().iov_len -= done;
  }
  return true;
}

}  // namespace sentrel
