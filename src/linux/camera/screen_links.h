// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/screen_reads.h"

struct spa_dict;

namespace sentrel {

/// Finds who gets pictures from whom in what the registry of PipeWire says of its objects. These properties
/// are the server's own word, but for names: those are their maker's, who may write anything there. Nothing
/// is bound, so that no further events come. PipeWire loop.
class ScreenLinks {
 public:
  /// Of each kind of object: whoever may make them could fill the memory. What comes when there are so many
  /// is not seen.
  static constexpr std::size_t mostObjects = 256;

  /// True when `reads` is another one now.
  [[nodiscard]] bool add(std::uint32_t id, std::string_view type, const spa_dict* properties);
  [[nodiscard]] bool remove(std::uint32_t id);
  [[nodiscard]] bool clear();

  /// In order, each pair once.
  [[nodiscard]] const std::vector<ScreenRead>& reads() const { return reads_; }
  /// The name of the first program, save this one, that gets pictures from the camera with this id: at most
  /// `CaptureSession::longestUserName` bytes. Empty where none does, or it has no name.
  [[nodiscard]] std::string otherReaderOf(std::uint32_t camera) const;

 private:
  struct Client {
    std::uint64_t serial = 0;
    pid_t pid = 0;
    std::string name = {};  // as it says itself
  };
  struct Node {
    std::uint64_t serial = 0;
    std::uint32_t client = 0;
    bool givesPictures = false;  // other than a camera's
    bool isCamera = false;
    std::string name;  // of its maker, as that says itself
  };
  struct Link {
    std::uint32_t output = 0;
    std::uint32_t input = 0;
  };

  void forget(std::uint32_t id);
  [[nodiscard]] bool update();
  /// Of whoever made the node; 0 when that is not certain.
  [[nodiscard]] pid_t makerOf(std::uint32_t node) const;

  std::map<std::uint32_t, Client> clients_;
  std::map<std::uint32_t, Node> nodes_;
  std::map<std::uint32_t, Link> links_;  // from nodes that give pictures, and cameras
  std::vector<ScreenRead> reads_;
};

}  // namespace sentrel
