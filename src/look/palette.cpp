// SPDX-License-Identifier: Apache-2.0
#include "look/palette.h"

#include <array>
#include <cstddef>

namespace sentrel {

namespace {

struct Row {
  QColor AppColors::*color;
  std::array<QRgb, 4> values;  ///< light, dark, and both in high contrast
};

constexpr std::array<Row, 20> rows{{
    {&AppColors::window, {0xF4F5F9, 0x15161C, 0xFFFFFF, 0x000000}},
    {&AppColors::surface, {0xFFFFFF, 0x1F2129, 0xFFFFFF, 0x000000}},
    {&AppColors::surfaceAlt, {0xEDEFF5, 0x2A2D38, 0xFFFFFF, 0x000000}},
    {&AppColors::tonal, {0xE5E8FA, 0x2C3050, 0xFFFFFF, 0x000000}},
    {&AppColors::border, {0xDCDFE9, 0x363A47, 0x000000, 0xFFFFFF}},
    {&AppColors::controlBorder, {0x82879B, 0x7C8298, 0x000000, 0xFFFFFF}},
    {&AppColors::text, {0x191B25, 0xECEDF4, 0x000000, 0xFFFFFF}},
    {&AppColors::textSecondary, {0x545A6E, 0xABB1C4, 0x2B2B2B, 0xDADADA}},
    {&AppColors::primary, {0x4350CF, 0xA0A9FF, 0x1C279C, 0xC3C9FF}},
    {&AppColors::primaryHover, {0x3742B4, 0xB4BBFF, 0x121A70, 0xE0E3FF}},
    {&AppColors::primaryPressed, {0x2C3695, 0x8C96F5, 0x0B1150, 0xA9B1FF}},
    {&AppColors::onPrimary, {0xFFFFFF, 0x12142E, 0xFFFFFF, 0x000000}},
    {&AppColors::success, {0x176E3A, 0x62D191, 0x0A4F24, 0x86F2B0}},
    {&AppColors::warning, {0x8A4B00, 0xF4B860, 0x5E3300, 0xFFD08A}},
    {&AppColors::warningGraphic, {0xC4660A, 0xF4B860, 0x8A4B00, 0xFFD08A}},
    {&AppColors::error, {0xBE1E34, 0xFF8D93, 0x8C0A1C, 0xFFB3B7}},
    {&AppColors::errorFill, {0xC4243A, 0xFF8D93, 0x8C0A1C, 0xFFB3B7}},
    {&AppColors::onError, {0xFFFFFF, 0x33060B, 0xFFFFFF, 0x000000}},
    {&AppColors::switchOff, {0x7C8196, 0x767C92, 0x4A4A4A, 0xBDBDBD}},
    {&AppColors::focus, {0x4350CF, 0xA0A9FF, 0x1C279C, 0xFFE45C}},
}};
static_assert(sizeof(AppColors) == rows.size() * sizeof(QColor), "a colour without a row");

AppColors column(std::size_t number) {
  AppColors colors;
  for (const Row& row : rows) colors.*row.color = QColor(row.values[number]);
  return colors;
}

}  // namespace

const AppColors& AppColors::of(Scheme scheme, Contrast contrast) {
  static const std::array columns{column(0), column(1), column(2), column(3)};
  return columns[(contrast == Contrast::high ? 2U : 0U) + (scheme == Scheme::dark ? 1U : 0U)];
}

}  // namespace sentrel
