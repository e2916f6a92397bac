// SPDX-License-Identifier: Apache-2.0
#include "app/qt_arguments.h"

#include <cstdlib>

namespace sentrel {

namespace {

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

/// In the order in which Qt tries them; the last one always works.
std::string platforms() {
  std::string list;
  if (isSet("WAYLAND_DISPLAY")) list += "wayland;";
  if (isSet("DISPLAY")) list += "xcb;";
  return list + "offscreen";
}

}  // namespace

QtArguments::QtArguments(char* program)
    : platforms_(platforms()), values_{program, option_.data(), platforms_.data(), nullptr} {}

}  // namespace sentrel
