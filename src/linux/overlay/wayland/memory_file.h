// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace sentrel {

/// A file without a name in memory, of 32-bit pixels, closed with this object. Any thread.
class MemoryFile {
 public:
  using Row = std::span<const std::uint32_t>;

  MemoryFile();
  MemoryFile(MemoryFile&& other) noexcept;
  MemoryFile& operator=(MemoryFile&& other) = delete;
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile();

  /// False when there was no descriptor left.
  [[nodiscard]] bool valid() const { return descriptor_ >= 0; }
  [[nodiscard]] int descriptor() const { return descriptor_; }

  /// Writes these rows from the beginning, one after the other. False when there is no room.
  [[nodiscard]] bool write(std::span<const Row> rows) const;

 private:
  int descriptor_;
};

}  // namespace sentrel
