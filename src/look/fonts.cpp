// SPDX-License-Identifier: Apache-2.0
#include "look/fonts.h"

#include <QStringList>

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

QFont roundedFont(int pixelSize, QFont::Weight weight) {
  return font(QStringList{QStringLiteral("Quicksand")} + uiFamilies(), pixelSize, weight);
}

namespace {

struct RoleStyle {
  int pixels;
  QFont::Weight weight;
  int lineHeight;
};

RoleStyle styleOf(TextRole role) {
  switch (role) {
    case TextRole::count:
      return {72, QFont::Bold, 80};
    case TextRole::numberLarge:
      return {34, QFont::Bold, 40};
    case TextRole::numberMedium:
      return {24, QFont::Bold, 30};
    case TextRole::title1:
      return {22, QFont::DemiBold, 28};
    case TextRole::title2:
      return {20, QFont::Bold, 26};
    case TextRole::title2Small:
      return {18, QFont::Bold, 26};
    case TextRole::title3:
      return {17, QFont::Normal, 22};
    case TextRole::popoverTitle:
      return {16, QFont::DemiBold, 20};
    case TextRole::headline:
      return {15, QFont::DemiBold, 20};
    case TextRole::bodyLabel:
      return {14, QFont::Medium, 20};
    case TextRole::bodyButton:
      return {14, QFont::DemiBold, 20};
    case TextRole::subheadline:
      return {13, QFont::Normal, 18};
    case TextRole::subheadlineStrong:
      return {13, QFont::DemiBold, 18};
    case TextRole::caption:
      return {12, QFont::Medium, 16};
    case TextRole::body:
      break;
  }
  return {14, QFont::Normal, 20};
}

}  // namespace

QFont roleFont(TextRole role, double textScale) {
  const auto [pixels, weight, lineHeight] = styleOf(role);
  const int scaled = qRound(pixels * textScale);
  return role == TextRole::count ? roundedFont(scaled, weight) : uiFont(scaled, weight);
}

int roleLineHeight(TextRole role) {
  return styleOf(role).lineHeight;
}

}  // namespace sentrel
