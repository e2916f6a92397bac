// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>

namespace sentrel {

/// The colours of windows: one column for each combination of colour scheme and contrast. Any thread.
struct AppColors {
  QColor window;         ///< window background
  QColor surface;        ///< cards, popover, sheet, fields
  QColor surfaceAlt;     ///< tiles, segmented track, instruction card
  QColor tonal;          ///< icon discs, highlighted tile
  QColor border;         ///< decorative hairlines
  QColor controlBorder;  ///< edges of controls, slider track, scrollbar
  QColor text;           ///< body
  QColor textSecondary;  ///< hints, paused and inactive status
  QColor primary;        ///< accent: title, iris, switches, buttons
  QColor primaryHover;
  QColor primaryPressed;
  QColor onPrimary;       ///< text and knob on primary
  QColor success;         ///< active status, check marks
  QColor warning;         ///< warning text
  QColor warningGraphic;  ///< warning symbols, never small text
  QColor error;           ///< alert status text, alert eye
  QColor errorFill;       ///< destructive button
  QColor onError;         ///< text on errorFill
  QColor switchOff;       ///< switch track, off
  QColor focus;           ///< focus ring

  enum class Scheme { light, dark };
  enum class Contrast { normal, high };
  [[nodiscard]] static const AppColors& of(Scheme scheme, Contrast contrast);
};

/// Colours that are the same in every scheme: they lie over foreign windows or on a panel.
namespace fixed_colors {
inline constexpr QColor alertRed{0xC8, 0x10, 0x2E};    ///< banner; white text on it reads 5.9:1
inline constexpr QColor alertTint{0xFF, 0x2D, 0x3A};   ///< flash
inline constexpr QColor retroGreen{0x2E, 0xFF, 0x47};  ///< picture-in-picture
inline constexpr QColor trayIris{0x61, 0x70, 0xEC};
inline constexpr QColor trayRed{0xE8, 0x43, 0x4A};
}  // namespace fixed_colors

}  // namespace sentrel
