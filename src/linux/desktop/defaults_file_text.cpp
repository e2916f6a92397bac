// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file_text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>
#include <variant>

namespace sentrel {

namespace {

void appendEscape(std::string& json, unsigned unit) {
  constexpr std::string_view digits = "0123456789abcdef";
  json += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) json += digits[(unit >> shift) & 0xFU];
}

std::string quotedText(std::string_view text) {
  std::string json = "\"";
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    const std::size_t length = utf8SequenceLength(text);
    if (length == 0) {
      // Half of a surrogate pair: no text can mean it, so it stands for the byte itself.
      appendEscape(json, 0xDC00U + byte);
    } else if (byte < 0x20) {
      appendEscape(json, byte);
    } else {
      if (byte == '"' || byte == '\\') json += '\\';
      json += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return json + '"';
}

/// Without the C library's functions, which follow the person's decimal comma.
template <class Number>
std::string digitsOf(Number number) {
  std::array<char, 64> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
  return {buffer.data(), result.ptr};
}

std::string floatText(float number) {
  std::string text = digitsOf(number);
  const bool marked = text.find_first_of(".e") != std::string::npos;
  return marked ? text : text + ".0";
}

struct Writer {
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(std::int64_t value) const { return digitsOf(value); }
  std::string operator()(float value) const { return floatText(value); }
  std::string operator()(const std::string& value) const { return quotedText(value); }
};

}  // namespace

StoredValue storedValue(DefaultsValue value) {
  const float* number = std::get_if<float>(&value);
  if (number != nullptr && !std::isfinite(*number)) return {"null", std::nullopt};
  std::string text = std::visit(Writer(), value);
  return {std::move(text), std::move(value)};
}

std::string defaultsFileText(const StoredValues& values) {
  std::string text = "{";
  for (const char* separator = "\n"; const auto& [key, stored] : values) {
    text += separator;
    text += "  " + quotedText(key) + ": " + stored.text;
    separator = ",\n";
  }
  return text + "\n}\n";
}

std::size_t utf8SequenceLength(std::string_view text) {
  const auto at = [text](std::size_t index) -> unsigned {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
  };
  const auto between = [&at](std::size_t index, unsigned low, unsigned high) {
    return at(index) >= low && at(index) <= high;
  };
  if (text.empty()) return 0;
  const unsigned lead = at(0);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return between(1, 0x80, 0xBF) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    // Not what two bytes could say, and no half of a surrogate pair.
    const bool second = between(1, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF);
    return second && between(2, 0x80, 0xBF) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    // Not what three bytes could say, and nothing above U+10FFFF.
    const bool second = between(1, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF);
    return second && between(2, 0x80, 0xBF) && between(3, 0x80, 0xBF) ? 4 : 0;
  }
  return 0;
}

}  // namespace sentrel
