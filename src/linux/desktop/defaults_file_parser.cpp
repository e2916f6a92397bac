// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file_parser.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace sentrel {

namespace {

/// Deep enough for anything meant seriously, and far from the end of the stack.
constexpr int deepestNesting = 64;

void appendUtf8(std::string& text, std::uint32_t codePoint) {
  const auto tail = [&](int shift) { text += static_cast<char>(0x80U | ((codePoint >> shift) & 0x3FU)); };
  if (codePoint < 0x80) {
    text += static_cast<char>(codePoint);
  } else if (codePoint < 0x800) {
    text += static_cast<char>(0xC0U | (codePoint >> 6U));
    tail(0);
  } else if (codePoint < 0x10000) {
    text += static_cast<char>(0xE0U | (codePoint >> 12U));
    tail(6);
    tail(0);
  } else {
    text += static_cast<char>(0xF0U | (codePoint >> 18U));
    tail(12);
    tail(6);
    tail(0);
  }
}

template <class Number>
std::optional<Number> parsed(std::string_view digits) {
  Number number{};
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

/// Reads JSON from a place in a text. Every reading function gives false, at an undefined place, when what
/// it looks for is not there.
class Scanner {
 public:
  explicit Scanner(std::string_view text, std::size_t place = 0) : text_(text), place_(place) {}

  [[nodiscard]] std::size_t place() const { return place_; }
  [[nodiscard]] bool atEnd() const { return place_ >= text_.size(); }
  [[nodiscard]] char peek() const { return atEnd() ? '\0' : text_[place_]; }

  bool take(char wanted) {
    if (atEnd() || text_[place_] != wanted) return false;
    ++place_;
    return true;
  }

  void skip(std::string_view characters) {
    place_ = std::min(text_.find_first_not_of(characters, place_), text_.size());
  }
  void skipSpace() { skip(" \t\r\n"); }

  bool entry(std::string& key, StoredValue& stored) {
    if (!string(key)) return false;
    skipSpace();
    if (!take(':')) return false;
    skipSpace();
    return value(stored, 0);
  }

 private:
  bool value(StoredValue& stored, int depth) {
    const std::size_t begin = place_;
    std::string decoded;
    switch (peek()) {
      case '{':
      case '[':
        return nested(stored.text, depth);
      case '"':
        if (!string(decoded)) return false;
        stored.value = std::move(decoded);
        break;
      case 't':
        if (!word("true")) return false;
        stored.value = true;
        break;
      case 'f':
        if (!word("false")) return false;
        stored.value = false;
        break;
      case 'n':
        if (!word("null")) return false;
        break;
      default:
        if (!number(stored)) return false;
    }
    stored.text += text_.substr(begin, place_ - begin);
    return true;
  }

  bool word(std::string_view wanted) {
    if (text_.substr(place_, wanted.size()) != wanted) return false;
    place_ += wanted.size();
    return true;
  }

  bool digits() {
    const std::size_t begin = place_;
    skip("0123456789");
    return place_ > begin;
  }

  /// A whole number that 64 bits cannot hold counts as a float, and one that a float cannot hold as neither.
  bool number(StoredValue& stored) {
    const std::size_t begin = place_;
    bool whole = true;
    take('-');
    if (!take('0') && !digits()) return false;
    if (take('.')) {
      whole = false;
      if (!digits()) return false;
    }
    if (take('e') || take('E')) {
      whole = false;
      if (!take('+')) take('-');
      if (!digits()) return false;
    }
    const std::string_view text = text_.substr(begin, place_ - begin);
    if (whole) stored.value = parsed<std::int64_t>(text);
    if (!stored.value) stored.value = parsed<float>(text);
    return true;
  }

  /// An array or an object, which no part of this program stores: only its text is kept, without spaces.
  bool nested(std::string& text, int depth) {
    if (depth == deepestNesting) return false;
    const bool isObject = peek() == '{';
    const char closing = isObject ? '}' : ']';
    text += text_[place_++];
    skipSpace();
    for (bool first = true; !take(closing); first = false) {
      if (!first) {
        if (!take(',')) return false;
        text += ',';
        skipSpace();
      }
      StoredValue member;
      if (isObject) {
        const std::size_t begin = place_;
        std::string ignored;
        if (!string(ignored)) return false;
        text += text_.substr(begin, place_ - begin);
        skipSpace();
        if (!take(':')) return false;
        text += ':';
        skipSpace();
      }
      if (!value(member, depth + 1)) return false;
      text += member.text;
      skipSpace();
    }
    text += closing;
    return true;
  }

  bool string(std::string& decoded) {
    if (!take('"')) return false;
    while (!atEnd()) {
      if (take('"')) return true;
      if (take('\\')) {
        if (!escape(decoded)) return false;
        continue;
      }
      const std::size_t length = utf8SequenceLength(text_.substr(place_));
      if (length == 0 || static_cast<unsigned char>(peek()) < 0x20) return false;
      decoded += text_.substr(place_, length);
      place_ += length;
    }
    return false;
  }

  bool escape(std::string& decoded) {
    constexpr std::string_view letters = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    const char letter = peek();
    if (atEnd()) return false;
    ++place_;
    if (letter == 'u') return unicodeEscape(decoded);
    const auto found = letters.find(letter);
    if (found == std::string_view::npos) return false;
    decoded += meanings[found];
    return true;
  }

  bool unicodeEscape(std::string& decoded) {
    std::uint32_t unit = 0;
    if (!hexadecimal(unit)) return false;
    if (unit < 0xD800 || unit > 0xDFFF) {
      appendUtf8(decoded, unit);
      return true;
    }
    if (unit >= 0xDC80 && unit <= 0xDCFF) {
      decoded += static_cast<char>(unit - 0xDC00);  // a byte that is no UTF-8, see storedValue()
      return true;
    }
    std::uint32_t low = 0;
    if (unit > 0xDBFF || !word("\\u") || !hexadecimal(low) || low < 0xDC00 || low > 0xDFFF) return false;
    appendUtf8(decoded, 0x10000 + ((unit - 0xD800) << 10U) + (low - 0xDC00));
    return true;
  }

  bool hexadecimal(std::uint32_t& unit) {
    const std::string_view four = text_.substr(place_, 4);
    const auto result = std::from_chars(four.data(), four.data() + four.size(), unit, 16);
    if (four.size() != 4 || result.ptr != four.data() + four.size()) return false;
    place_ += four.size();
    return true;
  }

  std::string_view text_;
  std::size_t place_;
};

bool parseWhole(std::string_view text, StoredValues& values) {
  Scanner scanner(text);
  scanner.skipSpace();
  if (!scanner.take('{')) return false;
  scanner.skipSpace();
  for (bool first = true; !scanner.take('}'); first = false) {
    if (!first && !scanner.take(',')) return false;
    scanner.skipSpace();
    std::string key;
    StoredValue stored;
    if (!scanner.entry(key, stored)) return false;
    values.insert_or_assign(std::move(key), std::move(stored));
    scanner.skipSpace();
  }
  scanner.skipSpace();
  return scanner.atEnd();
}

StoredValues salvage(std::string_view text) {
  StoredValues values;
  for (std::size_t place = 0; place < text.size();) {
    Scanner scanner(text, place);
    scanner.skip(" \t\r\n,{}");
    const std::size_t begin = scanner.place();
    std::string key;
    StoredValue stored;
    bool kept = scanner.entry(key, stored);
    scanner.skip(" \t\r");
    kept = kept && (scanner.peek() == ',' || scanner.peek() == '}' || scanner.peek() == '\n');
    if (kept) values.insert_or_assign(std::move(key), std::move(stored));
    // After a bad entry the next line is the first place that can be trusted.
    place = kept ? scanner.place() : std::min(text.find('\n', begin), text.size());
  }
  return values;
}

}  // namespace

ParsedDefaults parseDefaultsFile(std::string_view text) {
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  ParsedDefaults result;
  if (!parseWhole(text, result.values)) result = {salvage(text), true};
  return result;
}

}  // namespace sentrel
