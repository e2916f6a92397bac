// SPDX-License-Identifier: Apache-2.0
#include "settings/filter_settings.h"

namespace sentrel {

namespace {

/// What stands for a field of type T in a document.
template <class T>
struct Coding {
  using Value = T;
  static constexpr bool isRequired = true;
};
template <class T>
struct Coding<std::optional<T>> {
  using Value = T;
  static constexpr bool isRequired = false;
};

}  // namespace

void KeyedDocument::set(std::string_view key, Value value) {
  const auto found = std::ranges::find(entries_, key, &Entry::first);
  if (found == entries_.end()) {
    entries_.emplace_back(key, std::move(value));
  } else {
    found->second = std::move(value);
  }
}

void KeyedDocument::remove(std::string_view key) {
  std::erase_if(entries_, [key](const Entry& entry) { return entry.first == key; });
}

const KeyedDocument::Value* KeyedDocument::find(std::string_view key) const {
  const auto found = std::ranges::find(entries_, key, &Entry::first);
  return found == entries_.end() ? nullptr : &found->second;
}

KeyedDocument encode(const FilterSettings& settings) {
  KeyedDocument document;
  forEachSetting([&]<class T>(const Setting<T>& setting) {
    const T& field = settings.*setting.field;
    if constexpr (Coding<T>::isRequired) {
      document.set(setting.name, field);
    } else if (field) {
      document.set(setting.name, *field);
    }
  });
  return document;
}

std::variant<FilterSettings, DecodingError> decodeFilterSettings(const KeyedDocument& document) {
  FilterSettings settings;
  std::optional<DecodingError> error;
  forEachSetting([&]<class T>(const Setting<T>& setting) {
    if (error) return;
    const KeyedDocument::Value* value = document.find(setting.name);
    if (value == nullptr) {
      if (Coding<T>::isRequired) error = {DecodingError::Kind::missing, std::string(setting.name)};
    } else if (const auto* typed = std::get_if<typename Coding<T>::Value>(value)) {
      settings.*setting.field = *typed;
    } else {
      error = {DecodingError::Kind::mistyped, std::string(setting.name)};
    }
  });
  if (error) return *error;
  return settings;
}

}  // namespace sentrel
