// SPDX-License-Identifier: Apache-2.0
#include "vision/sha256.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

namespace sentrel::vision {
namespace {

/// The first 32 bits of the fractional part of a root of a prime, as the standard defines its constants.
/// Exact: a long double holds more than the bits that are needed.
std::uint32_t fraction(long double root) {
  return static_cast<std::uint32_t>((root - std::floor(root)) * 4294967296.0L);
}

struct Constants {
  std::array<std::uint32_t, 64> round{};
  std::array<std::uint32_t, 8> start{};
  Constants() {
    std::size_t found = 0;
    for (unsigned candidate = 2; found < round.size(); ++candidate) {
      bool prime = true;
      for (unsigned divisor = 2; divisor * divisor <= candidate; ++divisor)
        prime = prime && candidate % divisor != 0;
      if (!prime) continue;
      round[found] = fraction(std::cbrt(static_cast<long double>(candidate)));
      if (found < start.size()) start[found] = fraction(std::sqrt(static_cast<long double>(candidate)));
      ++found;
    }
  }
};

class Digest {
 public:
  void block(const std::byte* bytes) {
    std::array<std::uint32_t, 64> schedule{};
    for (std::size_t i = 0; i < 16; ++i) {
      for (std::size_t k = 0; k < 4; ++k) {
        schedule[i] = schedule[i] << 8U | std::to_integer<std::uint32_t>(bytes[i * 4 + k]);
      }
    }
    for (std::size_t i = 16; i < 64; ++i) {
      const std::uint32_t a = schedule[i - 15];
      const std::uint32_t b = schedule[i - 2];
      schedule[i] = schedule[i - 16] + schedule[i - 7] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3U) +
                    (std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10U);
    }
    auto [a, b, c, d, e, f, g, h] = state_;
    for (std::size_t i = 0; i < 64; ++i) {
      const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                  ((e & f) ^ (~e & g)) + constants_.round[i] + schedule[i];
      const std::uint32_t second =
          (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
      h = g;
      g = f;
      f = e;
      e = d + first;
      d = c;
      c = b;
      b = a;
      a = first + second;
    }
    const std::array<std::uint32_t, 8> sums{a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < 8; ++i) state_[i] += sums[i];
  }

  [[nodiscard]] std::string text() const {
    std::string result;
    for (const std::uint32_t word : state_) {
      for (int shift = 28; shift >= 0; shift -= 4)
        result += "0123456789abcdef"[word >> static_cast<unsigned>(shift) & 15U];
    }
    return result;
  }

 private:
  Constants constants_;
  std::array<std::uint32_t, 8> state_ = constants_.start;
};

}  // namespace

std::string sha256(std::span<const std::byte> bytes) {
  constexpr std::size_t blockBytes = 64;
  constexpr std::size_t lengthBytes = 8;
  Digest digest;
  std::size_t at = 0;
  for (; bytes.size() - at >= blockBytes; at += blockBytes) digest.block(bytes.data() + at);
  // The rest, a one bit, zeros, and the length in bits.
  std::array<std::byte, 2 * blockBytes> tail{};
  const std::size_t rest = bytes.size() - at;
  for (std::size_t i = 0; i < rest; ++i) tail[i] = bytes[at + i];
  tail[rest] = std::byte{0x80};
  const std::size_t end = rest + 1 + lengthBytes <= blockBytes ? blockBytes : 2 * blockBytes;
  const std::uint64_t bits = static_cast<std::uint64_t>(bytes.size()) * 8;
  for (std::size_t i = 0; i < lengthBytes; ++i) tail[end - 1 - i] = static_cast<std::byte>(bits >> (8 * i));
  digest.block(tail.data());
  if (end > blockBytes) digest.block(tail.data() + blockBytes);
  return digest.text();
}

}  // namespace sentrel::vision
