// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace sentrel {

/// A move-only `void()` callable. Work that crosses threads on the road of a frame fits its inline storage,
/// so that handing over a frame allocates nothing; larger callables go to the heap.
class Task {
 public:
  Task() = default;

  template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, Task>>>
  Task(F&& callable) {  // NOLINT(google-explicit-constructor): any lambda is a task
    using Callable = std::decay_t<F>;
    if constexpr (sizeof(Callable) <= inlineBytes && alignof(Callable) <= alignof(std::max_align_t) &&
                  std::is_nothrow_move_constructible_v<Callable>) {
      ::new (static_cast<void*>(storage_)) Callable(std::forward<F>(callable));
      operations_ = &inlineOperations<Callable>;
    } else {
      ::new (static_cast<void*>(storage_)) Callable*(new Callable(std::forward<F>(callable)));
      operations_ = &heapOperations<Callable>;
    }
  }

  Task(Task&& other) noexcept { take(other); }
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      reset();
      take(other);
    }
    return *this;
  }
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  ~Task() { reset(); }

  explicit operator bool() const { return operations_ != nullptr; }

  /// Runs the callable; it may be run again. Calling an empty task does nothing.
  void operator()() {
    if (operations_ != nullptr) operations_->run(storage_);
  }

 private:
  static constexpr std::size_t inlineBytes = 160;

  struct Operations {
    void (*run)(void*);
    void (*move)(void* from, void* to) noexcept;  // leaves `from` destroyed
    void (*destroy)(void*) noexcept;
  };

  template <class C>
  static C& inlined(void* at) {
    return *std::launder(static_cast<C*>(at));
  }

  template <class C>
  static constexpr Operations inlineOperations{[](void* at) { inlined<C>(at)(); },
                                               [](void* from, void* to) noexcept {
                                                 ::new (to) C(std::move(inlined<C>(from)));
                                                 inlined<C>(from).~C();
                                               },
                                               [](void* at) noexcept { inlined<C>(at).~C(); }};

  template <class C>
  static constexpr Operations heapOperations{
      [](void* at) { (*inlined<C*>(at))(); },
      [](void* from, void* to) noexcept { ::new (to) C*(inlined<C*>(from)); },
      [](void* at) noexcept { delete inlined<C*>(at); }};

  void take(Task& other) noexcept {
    if (other.operations_ == nullptr) return;
    other.operations_->move(other.storage_, storage_);
    operations_ = std::exchange(other.operations_, nullptr);
  }

  void reset() noexcept {
    if (operations_ != nullptr) std::exchange(operations_, nullptr)->destroy(storage_);
  }

  const Operations* operations_ = nullptr;
  alignas(std::max_align_t) unsigned char storage_[inlineBytes];
};

}  // namespace sentrel
