// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <memory>

namespace sentrel {

struct FreeDeleter {
  void operator()(void* memory) const { std::free(memory); }  // NOLINT: xcb hands out malloc'ed memory
};

/// A reply, an event or an error of the X server; null when there is none.
template <class T>
using XcbPointer = std::unique_ptr<T, FreeDeleter>;

template <class T>
XcbPointer<T> adopt(T* reply) {
  return XcbPointer<T>(reply);
}

}  // namespace sentrel
