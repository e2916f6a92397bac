// SPDX-License-Identifier: Apache-2.0
#include "settings/filter_settings_coding.h"

#include <string_view>

namespace sentrel {

namespace {

class Encoder {
 public:
  template <class T>
  void operator()(std::string_view key, const T& field) {
    document.set(key, field);
  }
  void operator()(std::string_view key, const std::optional<std::string>& field) {
    if (field) document.set(key, *field);
  }

  KeyedDocument document;
};

class Decoder {
 public:
  explicit Decoder(const KeyedDocument& document) : document_(document) {}

  template <class T>
  void operator()(std::string_view key, T& field) {
    if (error) return;
    const KeyedDocument::Value* value = document_.find(key);
    if (value == nullptr) {
      error = DecodingError{DecodingError::Kind::missing, std::string(key)};
    } else {
      assign(key, *value, field);
    }
  }

  void operator()(std::string_view key, std::optional<std::string>& field) {
    if (error) return;
    field.reset();
    const KeyedDocument::Value* value = document_.find(key);
    if (value != nullptr) assign(key, *value, field.emplace());
  }

  std::optional<DecodingError> error;

 private:
  template <class T>
  void assign(std::string_view key, const KeyedDocument::Value& value, T& field) {
    if (const T* typed = std::get_if<T>(&value)) {
      field = *typed;
    } else {
      error = DecodingError{DecodingError::Kind::mistyped, std::string(key)};
    }
  }

  const KeyedDocument& document_;
};

}  // namespace

KeyedDocument encode(const FilterSettings& settings) {
  Encoder encoder;
  forEachField(settings, encoder);
  return std::move(encoder.document);
}

std::variant<FilterSettings, DecodingError> decodeFilterSettings(const KeyedDocument& document) {
  FilterSettings settings;
  Decoder decoder(document);
  forEachField(settings, decoder);
  if (decoder.error) return *decoder.error;
  return settings;
}

}  // namespace sentrel
