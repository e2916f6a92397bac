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

std::optional<FilterSettings> decodeFilterSettings(const KeyedDocument& document) {
  FilterSettings settings;
  bool isWhole = true;
  forEachSetting([&]<class T>(const Setting<T>& setting) {
    T& field = settings.*setting.field;
    if constexpr (!std::is_same_v<T, std::optional<std::string>>) {
      isWhole = isWhole && decodeValue(document, setting.name, field);
    } else if (std::ranges::count(document, setting.name, &KeyedDocument::value_type::first) > 0) {
      isWhole = isWhole && decodeValue(document, setting.name, field.emplace());
    }
  });
  return isWhole ? std::optional(settings) : std::nullopt;
}

}  // namespace sentrel
