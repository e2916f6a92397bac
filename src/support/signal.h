// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "support/registration.h"

namespace sentrel {

/// A process-wide notification: every observer present when `emit` begins, and still registered when its turn
/// comes, is called once, in the order of registration, synchronously. One thread (the main thread, unless
/// the owner says otherwise).
template <class... Args>
class Signal {
 public:
  using Observer = std::function<void(const Args&...)>;

  Signal() = default;
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  Registration connect(Observer observer) {
    auto entry = std::make_shared<Observer>(std::move(observer));
    entries_->push_back(entry);
    return Registration([entries = std::weak_ptr(entries_), entry] {
      *entry = nullptr;
      if (auto list = entries.lock()) std::erase(*list, entry);
    });
  }

  void emit(const Args&... args) const {
    // The copy keeps the iteration valid while observers come and go.
    const auto current = *entries_;
    for (const auto& entry : current) {
      if (const Observer observer = *entry) observer(args...);
    }
  }

  [[nodiscard]] std::size_t observerCount() const { return entries_->size(); }

 private:
  using Entries = std::vector<std::shared_ptr<Observer>>;
  std::shared_ptr<Entries> entries_ = std::make_shared<Entries>();
};

}  // namespace sentrel
