// SPDX-License-Identifier: Apache-2.0
#include "settings/filter_settings.h"

namespace sentrel {

KeyedDocument encode(const FilterSettings& settings) {
  KeyedDocument document;
  forEachSetting([&]<class T>(const Setting<T>& setting) {
    const T& field = settings.*setting.field;
    if constexpr (!std::is_same_v<T, std::optional<std::string>>) {
      document.emplace_back(setting.name, field);
    } else if (field) {
      document.emplace_back(setting.name, *field);
    }
  });
  return document;
}

std::variant<FilterSettings, DecodingError> decodeFilterSettings(const KeyedDocument& document) {
  FilterSettings settings;
  std::optional<DecodingError> error;
  forEachSetting([&]<class T>(const Setting<T>& setting) {
    if (error) return;
    T& field = settings.*setting.field;
    if constexpr (!std::is_same_v<T, std::optional<std::string>>) {
      error = decodeValue(document, setting.name, field);
    } else {
      error = decodeValue(document, setting.name, field.emplace());
      if (error) field.reset();
      if (error && error->kind == DecodingError::Kind::missing) error.reset();
    }
  });
  if (error) return *error;
  return settings;
}

}  // namespace sentrel
