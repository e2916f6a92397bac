// SPDX-License-Identifier: Apache-2.0
#include "settings/filter_settings.h"

namespace sentrel {

namespace {

constexpr bool isOptional(const std::optional<std::string>& /*field*/) {
  return true;
}
template <class T>
constexpr bool isOptional(const T& /*field*/) {
  return false;
}

void write(KeyedDocument& document, std::string_view name, const std::optional<std::string>& field) {
  if (field) document.set(name, *field);
}
template <class T>
void write(KeyedDocument& document, std::string_view name, const T& field) {
  document.set(name, field);
}

/// False when `value` is of another kind.
bool read(const KeyedDocument::Value& value, std::optional<std::string>& field) {
  const auto* text = std::get_if<std::string>(&value);
  if (text != nullptr) field = *text;
  return text != nullptr;
}
template <class T>
bool read(const KeyedDocument::Value& value, T& field) {
  const T* typed = std::get_if<T>(&value);
  if (typed != nullptr) field = *typed;
  return typed != nullptr;
}

}  // namespace

KeyedDocument encode(const FilterSettings& settings) {
  KeyedDocument document;
  forEachSetting([&](const auto& setting) { write(document, setting.name, settings.*setting.field); });
  return document;
}

std::variant<FilterSettings, DecodingError> decodeFilterSettings(const KeyedDocument& document) {
  FilterSettings settings;
  std::optional<DecodingError> error;
  forEachSetting([&](const auto& setting) {
    if (error) return;
    auto& field = settings.*setting.field;
    const KeyedDocument::Value* value = document.find(setting.name);
    if (value == nullptr) {
      if (!isOptional(field)) error = DecodingError{DecodingError::Kind::missing, std::string(setting.name)};
    } else if (!read(*value, field)) {
      error = DecodingError{DecodingError::Kind::mistyped, std::string(setting.name)};
    }
  });
  if (error) return *error;
  return settings;
}

}  // namespace sentrel
