// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "linux/desktop/defaults_file_text.h"

namespace sentrel {

struct ParsedDefaults {
  StoredValues values;
  bool damaged = false;  ///< the text is not one whole JSON object; `values` is what could be saved of it
};

/// Reads the text of a defaults file, however it looks. Of a key that comes twice the last one counts. Of a
/// damaged text every entry is kept that is whole and visibly ended, by a comma, a brace or the end of its
/// line: `10` cut off to `1` is no value.
ParsedDefaults parseDefaultsFile(std::string_view text);

}  // namespace sentrel
