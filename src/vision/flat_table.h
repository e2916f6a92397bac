// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

#include "vision/model_error.h"

namespace sentrel::vision {

/// Checked reading of a FlatBuffers file: every offset is followed only inside the bytes, and a field that is
/// absent reads as its default. Throws ModelError. The layout is that of the FlatBuffers internals document.
class FlatBytes {
 public:
  explicit FlatBytes(std::span<const std::byte> bytes) : bytes_(bytes) {}

  template <class T>
  [[nodiscard]] T scalar(std::size_t at) const {
    static_assert(std::is_trivially_copyable_v<T>);
    check(at, sizeof(T));
    T value{};
    std::memcpy(&value, bytes_.data() + at, sizeof(T));
    return value;
  }

  /// The position that the unsigned offset stored at `at` leads to.
  [[nodiscard]] std::size_t follow(std::size_t at) const {
    const std::size_t target = at + scalar<std::uint32_t>(at);
    check(target, 4);
    return target;
  }

  [[nodiscard]] std::span<const std::byte> slice(std::size_t at, std::size_t count) const {
    check(at, count);
    return bytes_.subspan(at, count);
  }

 private:
  void check(std::size_t at, std::size_t count) const {
    if (at > bytes_.size() || count > bytes_.size() - at) throw ModelError("the file ends too early");
  }

  std::span<const std::byte> bytes_;
};

/// A vector inside the file, its length checked against the file's.
class FlatVector {
 public:
  FlatVector() = default;
  FlatVector(const FlatBytes& bytes, std::size_t at, std::size_t elementSize)
      : first_(at + 4), size_(bytes.scalar<std::uint32_t>(at)) {
    (void)bytes.slice(first_, size_ * elementSize);
  }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::size_t first() const { return first_; }

 private:
  std::size_t first_ = 0;
  std::size_t size_ = 0;
};

/// A table inside the file.
class FlatTable {
 public:
  FlatTable(const FlatBytes& bytes, std::size_t at) : bytes_(&bytes), at_(at) {
    const std::int64_t back = bytes.scalar<std::int32_t>(at);
    const std::int64_t layout = static_cast<std::int64_t>(at) - back;
    if (layout < 0) throw ModelError("a table's layout lies outside the file");
    layout_ = static_cast<std::size_t>(layout);
    layoutSize_ = bytes.scalar<std::uint16_t>(layout_);
  }

  template <class T>
  [[nodiscard]] T get(std::size_t field, T absent) const {
    const std::size_t at = position(field);
    return at == 0 ? absent : bytes_->scalar<T>(at);
  }

  [[nodiscard]] bool has(std::size_t field) const { return position(field) != 0; }

  [[nodiscard]] FlatTable table(std::size_t field) const {
    const std::size_t at = position(field);
    if (at == 0) throw ModelError("a table is missing");
    return {*bytes_, bytes_->follow(at)};
  }

  [[nodiscard]] FlatVector vector(std::size_t field, std::size_t elementSize) const {
    const std::size_t at = position(field);
    return at == 0 ? FlatVector() : FlatVector(*bytes_, bytes_->follow(at), elementSize);
  }

  [[nodiscard]] FlatTable element(const FlatVector& tables, std::size_t index) const {
    if (index >= tables.size()) throw ModelError("a number points beyond its list");
    return {*bytes_, bytes_->follow(tables.first() + index * 4)};
  }

 private:
  /// Where the field's value is stored, or 0 when the table does not hold it.
  [[nodiscard]] std::size_t position(std::size_t field) const {
    const std::size_t entry = 4 + 2 * field;
    if (entry + 2 > layoutSize_) return 0;
    const std::size_t offset = bytes_->scalar<std::uint16_t>(layout_ + entry);
    return offset == 0 ? 0 : at_ + offset;
  }

  const FlatBytes* bytes_;
  std::size_t at_;
  std::size_t layout_ = 0;
  std::size_t layoutSize_ = 0;
};

}  // namespace sentrel::vision
