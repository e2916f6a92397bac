// SPDX-License-Identifier: Apache-2.0
#include "look/palette.h"

namespace sentrel {

namespace {
constexpr QColor rgb(unsigned value) {
  return QColor(static_cast<int>(value >> 16 & 0xFFU), static_cast<int>(value >> 8 & 0xFFU),
                static_cast<int>(value & 0xFFU));
}

constexpr AppColors light{
    .window = rgb(0xF4F5F9),
    .surface = rgb(0xFFFFFF),
    .surfaceAlt = rgb(0xEDEFF5),
    .tonal = rgb(0xE5E8FA),
    .border = rgb(0xDCDFE9),
    .controlBorder = rgb(0x82879B),
    .text = rgb(0x191B25),
    .textSecondary = rgb(0x545A6E),
    .primary = rgb(0x4350CF),
    .primaryHover = rgb(0x3742B4),
    .primaryPressed = rgb(0x2C3695),
    .onPrimary = rgb(0xFFFFFF),
    .success = rgb(0x176E3A),
    .warning = rgb(0x8A4B00),
    .warningGraphic = rgb(0xC4660A),
    .error = rgb(0xBE1E34),
    .errorFill = rgb(0xC4243A),
    .onError = rgb(0xFFFFFF),
    .switchOff = rgb(0x7C8196),
    .focus = rgb(0x4350CF),
};

constexpr AppColors dark{
    .window = rgb(0x15161C),
    .surface = rgb(0x1F2129),
    .surfaceAlt = rgb(0x2A2D38),
    .tonal = rgb(0x2C3050),
    .border = rgb(0x363A47),
    .controlBorder = rgb(0x7C8298),
    .text = rgb(0xECEDF4),
    .textSecondary = rgb(0xABB1C4),
    .primary = rgb(0xA0A9FF),
    .primaryHover = rgb(0xB4BBFF),
    .primaryPressed = rgb(0x8C96F5),
    .onPrimary = rgb(0x12142E),
    .success = rgb(0x62D191),
    .warning = rgb(0xF4B860),
    .warningGraphic = rgb(0xF4B860),
    .error = rgb(0xFF8D93),
    .errorFill = rgb(0xFF8D93),
    .onError = rgb(0x33060B),
    .switchOff = rgb(0x767C92),
    .focus = rgb(0xA0A9FF),
};

constexpr AppColors highContrastLight{
    .window = rgb(0xFFFFFF),
    .surface = rgb(0xFFFFFF),
    .surfaceAlt = rgb(0xFFFFFF),
    .tonal = rgb(0xFFFFFF),
    .border = rgb(0x000000),
    .controlBorder = rgb(0x000000),
    .text = rgb(0x000000),
    .textSecondary = rgb(0x2B2B2B),
    .primary = rgb(0x1C279C),
    .primaryHover = rgb(0x121A70),
    .primaryPressed = rgb(0x0B1150),
    .onPrimary = rgb(0xFFFFFF),
    .success = rgb(0x0A4F24),
    .warning = rgb(0x5E3300),
    .warningGraphic = rgb(0x8A4B00),
    .error = rgb(0x8C0A1C),
    .errorFill = rgb(0x8C0A1C),
    .onError = rgb(0xFFFFFF),
    .switchOff = rgb(0x4A4A4A),
    .focus = rgb(0x1C279C),
};

constexpr AppColors highContrastDark{
    .window = rgb(0x000000),
    .surface = rgb(0x000000),
    .surfaceAlt = rgb(0x000000),
    .tonal = rgb(0x000000),
    .border = rgb(0xFFFFFF),
    .controlBorder = rgb(0xFFFFFF),
    .text = rgb(0xFFFFFF),
    .textSecondary = rgb(0xDADADA),
    .primary = rgb(0xC3C9FF),
    .primaryHover = rgb(0xE0E3FF),
    .primaryPressed = rgb(0xA9B1FF),
    .onPrimary = rgb(0x000000),
    .success = rgb(0x86F2B0),
    .warning = rgb(0xFFD08A),
    .warningGraphic = rgb(0xFFD08A),
    .error = rgb(0xFFB3B7),
    .errorFill = rgb(0xFFB3B7),
    .onError = rgb(0x000000),
    .switchOff = rgb(0xBDBDBD),
    .focus = rgb(0xFFE45C),
};
}  // namespace

const AppColors& AppColors::of(Scheme scheme, Contrast contrast) {
  if (contrast == Contrast::high) return scheme == Scheme::dark ? highContrastDark : highContrastLight;
  return scheme == Scheme::dark ? dark : light;
}

}  // namespace sentrel
