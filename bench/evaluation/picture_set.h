// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/frame.h"
#include "vision/region_sampler.h"

namespace sentrel::bench {

/// A face that a person or another detector marked, in pixels from the top left.
struct Label {
  vision::Region box;
  double confidence = 0;
};

/// A folder with `faces/` and `faces.json`, `no-faces/` and `pose/`. Whatever cannot be used is left out and
/// told in one line beginning "# skipped" on standard output.
class PictureSet {
 public:
  explicit PictureSet(std::filesystem::path folder) : folder_(std::move(folder)) {}

  /// File names of one of the folders, sorted; empty when it is not there.
  [[nodiscard]] std::vector<std::string> names(const std::string& subfolder) const;

  /// The labels of faces.json by path relative to the folder. Labels that do not lie in their picture at all
  /// are found out by `inside`.
  [[nodiscard]] std::map<std::string, std::vector<Label>> labels() const;

  /// The picture, or null when it is no picture, truncated, or too large to be one of a camera.
  [[nodiscard]] std::unique_ptr<Frame> load(const std::string& path) const;

 private:
  std::filesystem::path folder_;
};

/// Whether a label's box is a box and lies in a picture of that size.
[[nodiscard]] bool inside(const Label& label, const Frame& picture);

}  // namespace sentrel::bench
