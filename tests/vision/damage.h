// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <span>
#include <vector>

#include "vision/network.h"

namespace sentrel::test {

inline std::vector<std::byte> readBytes(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::vector<std::byte> bytes;
  for (std::istreambuf_iterator<char> at(stream), end; at != end; ++at)
    bytes.push_back(static_cast<std::byte>(*at));
  return bytes;
}

/// Reads a file cut off at many lengths and with a few bytes changed, many times over. A reader may take the
/// damage for data or throw ModelError; anything else, a sanitizer's finding above all, fails the test.
/// Returns how often it threw.
template <class Read>
int readDamaged(const std::vector<std::byte>& intact, std::size_t headerBytes, Read read) {
  int refused = 0;
  const auto attempt = [&](std::span<const std::byte> bytes) {
    try {
      (void)read(bytes);
    } catch (const vision::ModelError&) {
      ++refused;
    }
  };
  for (std::size_t length = 0; length < intact.size(); length += 1 + length / 24) {
    // A copy of exactly this length, so that a sanitizer sees a read beyond the end.
    attempt(std::vector<std::byte>(intact.begin(), intact.begin() + static_cast<std::ptrdiff_t>(length)));
  }
  std::mt19937 random(1);
  std::vector<std::byte> damaged = intact;
  for (int round = 0; round < 300; ++round) {
    // The structure takes a small part of the file; most of the damage goes there.
    const std::size_t range = round % 4 == 0 ? intact.size() : headerBytes;
    const bool atEnd = round % 4 == 1;
    std::vector<std::size_t> places;
    for (int k = 0; k < 1 + round % 3; ++k) {
      const std::size_t offset = random() % range;
      places.push_back(atEnd ? intact.size() - 1 - offset : offset);
      damaged[places.back()] = static_cast<std::byte>(random());
    }
    attempt(damaged);
    for (const std::size_t place : places) damaged[place] = intact[place];
  }
  return refused;
}

}  // namespace sentrel::test
