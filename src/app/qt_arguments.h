// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>

namespace sentrel {

/// The arguments of the Qt application: windows where the session shows them, and only painting into memory
/// where there is no display. Qt keeps references to its arguments for as long as it lives.
class QtArguments {
 public:
  explicit QtArguments(char* program);
  QtArguments(const QtArguments&) = delete;
  QtArguments& operator=(const QtArguments&) = delete;

  [[nodiscard]] int& count() { return count_; }
  [[nodiscard]] char** values() { return values_.data(); }

 private:
  std::string option_ = "-platform";
  std::string platforms_;
  std::array<char*, 4> values_;
  int count_ = 3;
};

}  // namespace sentrel
