// SPDX-License-Identifier: Apache-2.0
#include "settings/keyed_document.h"

#include <algorithm>

namespace sentrel {

void KeyedDocument::set(std::string_view key, Value value) {
  const auto found = std::ranges::find(entries_, key, &Entry::first);
  if (found != entries_.end()) {
    found->second = std::move(value);
  } else {
    entries_.emplace_back(std::string(key), std::move(value));
  }
}

void KeyedDocument::remove(std::string_view key) {
  std::erase_if(entries_, [key](const Entry& entry) { return entry.first == key; });
}

const KeyedDocument::Value* KeyedDocument::find(std::string_view key) const {
  const auto found = std::ranges::find(entries_, key, &Entry::first);
  return found == entries_.end() ? nullptr : &found->second;
}

}  // namespace sentrel
