// SPDX-License-Identifier: Apache-2.0
#include "look/fonts.h"

#include <QStringList>
#include <array>
#include <cstddef>

namespace sentrel {

namespace {
QStringList uiFamilies() {
  return {QStringLiteral("Inter"),     QStringLiteral("Adwaita Sans"), QStringLiteral("Cantarell"),
          QStringLiteral("Noto Sans"), QStringLiteral("DejaVu Sans"),  QStringLiteral("sans-serif")};
}

QFont font(const QStringList& families, int pixelSize, QFont::Weight weight) {
  QFont result;
  result.setFamilies(families);
  result.setPixelSize(pixelSize);
  result.setWeight(weight);
  return result;
}

struct RoleStyle {
  int pixels;
  QFont::Weight weight;
  int lineHeight;
};

// In the order of the roles.
constexpr std::array<RoleStyle, 15> styles{{
    {72, QFont::Bold, 80},      // count
    {34, QFont::Bold, 40},      // numberLarge
    {24, QFont::Bold, 30},      // numberMedium
    {22, QFont::DemiBold, 28},  // title1
    {20, QFont::Bold, 26},      // title2
    {18, QFont::Bold, 26},      // title2Small
    {17, QFont::Normal, 22},    // title3
    {16, QFont::DemiBold, 20},  // popoverTitle
    {15, QFont::DemiBold, 20},  // headline
    {14, QFont::Normal, 20},    // body
    {14, QFont::Medium, 20},    // bodyLabel
    {14, QFont::DemiBold, 20},  // bodyButton
    {13, QFont::Normal, 18},    // subheadline
    {13, QFont::DemiBold, 18},  // subheadlineStrong
    {12, QFont::Medium, 16},    // caption
}};

const RoleStyle& styleOf(TextRole role) {
  return styles[static_cast<std::size_t>(role)];
}

}  // namespace

QFont uiFont(int pixelSize, QFont::Weight weight) {
  return font(uiFamilies(), pixelSize, weight);
}

QFont monoFont(int pixelSize, QFont::Weight weight) {
  QFont result = font({QStringLiteral("JetBrains Mono"), QStringLiteral("Noto Sans Mono"),
                       QStringLiteral("DejaVu Sans Mono"), QStringLiteral("monospace")},
                      pixelSize, weight);
  result.setStyleHint(QFont::Monospace);
  return result;
}

QFont roleFont(TextRole role, double textScale) {
  const auto [pixels, weight, lineHeight] = styleOf(role);
  QStringList families = uiFamilies();
  if (role == TextRole::count) families.prepend(QStringLiteral("Quicksand"));  // rounded
  return font(families, qRound(pixels * textScale), weight);
}

int roleLineHeight(TextRole role) {
  return styleOf(role).lineHeight;
}

}  // namespace sentrel
