// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFont>

namespace sentrel {

/// The roles of text in windows; sizes and weights at 100 % text scale.
enum class TextRole {
  count,         ///< calibration countdown
  numberLarge,   ///< number of the highlighted tile
  numberMedium,  ///< number of a tile
  title1,        ///< onboarding title
  title2,        ///< product name
  title2Small,   ///< title of a sheet
  title3,
  popoverTitle,
  headline,  ///< section header, page title
  body,
  bodyLabel,   ///< row labels
  bodyButton,  ///< buttons
  subheadline,
  subheadlineStrong,  ///< titles of the sections in About
  caption             ///< status text, version, footer
};

// Each font carries its whole list of families, because no single one has every glyph that we show. Sizes are
// logical pixels. Main thread.

[[nodiscard]] QFont uiFont(int pixelSize, QFont::Weight weight = QFont::Normal);
[[nodiscard]] QFont monoFont(int pixelSize, QFont::Weight weight = QFont::Normal);
[[nodiscard]] QFont roleFont(TextRole role, double textScale = 1);
/// The distance between two lines at 100 % text scale.
[[nodiscard]] int roleLineHeight(TextRole role);

}  // namespace sentrel
