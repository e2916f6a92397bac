// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <variant>

#include "settings/filter_settings.h"
#include "settings/keyed_document.h"

namespace sentrel {

/// One entry per field, named after it and in field order; an absent camera writes none.
KeyedDocument encode(const FilterSettings& settings);

/// The record that `document` describes. Every key but "selectedCameraID" is required and every value must be
/// of its field's very kind: a number is never taken for another kind of number.
std::variant<FilterSettings, DecodingError> decodeFilterSettings(const KeyedDocument& document);

}  // namespace sentrel
