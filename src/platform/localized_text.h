// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace sentrel {

/// The text of a key in the person's language. Main thread.
using LocalizedText = std::function<std::string(const char* key)>;

/// The key of a text, as it is: lupdate, which looks for the texts of the program, finds it here.
constexpr const char* textId(const char* key) {
  return key;
}

}  // namespace sentrel
