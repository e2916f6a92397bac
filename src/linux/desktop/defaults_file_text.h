// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/user_defaults.h"

namespace sentrel {

/// One value as the defaults file holds it. The text is kept beside the meaning, so that what another version
/// or a person wrote is written back digit for digit.
struct StoredValue {
  std::string text;                    ///< JSON (RFC 8259) on one line
  std::optional<DefaultsValue> value;  ///< none when it is of a kind that this program does not store
};

/// The content of the defaults file, by key.
using StoredValues = std::map<std::string, StoredValue, std::less<>>;

/// A value of the program as the file holds it, such that parsing the text gives the same value of the same
/// kind: a float always bears a point or an exponent; a text may hold any bytes, those that are not UTF-8
/// as escapes \udc80..\udcff. A number that is not finite becomes `null` and has no value.
StoredValue storedValue(DefaultsValue value);

/// The whole file: one object, one key a line, in the order of the keys.
std::string defaultsFileText(const StoredValues& values);

/// The length of the UTF-8 sequence (RFC 3629) that `text` begins with; 0 when it begins with none.
std::size_t utf8SequenceLength(std::string_view text);

}  // namespace sentrel
