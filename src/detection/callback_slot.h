// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace sentrel {

/// An optional callback that its user replaces as a whole. Assigned and called on the main thread; whether it
/// is set may be asked on any thread.
template <class... Args>
class CallbackSlot {
 public:
  using Callback = std::function<void(Args...)>;

  CallbackSlot& operator=(Callback callback) {
    callback_ = callback ? std::make_shared<const Callback>(std::move(callback)) : nullptr;
    isSet_ = callback_ != nullptr;
    return *this;
  }

  explicit operator bool() const { return isSet_; }

  /// Nothing when no callback is set. The callback may replace itself.
  void operator()(Args... args) const {
    if (const auto current = callback_) (*current)(std::move(args)...);
  }

 private:
  std::shared_ptr<const Callback> callback_;
  std::atomic<bool> isSet_ = false;
};

}  // namespace sentrel
