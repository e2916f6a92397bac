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

QFont roleFont(TextRole role, double textScale) {
  const auto px = [textScale](int size) { return qRound(size * textScale); };
  switch (role) {
    case TextRole::count:
      return roundedFont(px(72), QFont::Bold);
    case TextRole::numberLarge:
      return uiFont(px(34), QFont::Bold);
    case TextRole::numberMedium:
      return uiFont(px(24), QFont::Bold);
    case TextRole::title1:
      return uiFont(px(22), QFont::DemiBold);
    case TextRole::title2:
      return uiFont(px(20), QFont::Bold);
    case TextRole::title2Small:
      return uiFont(px(18), QFont::Bold);
    case TextRole::title3:
      return uiFont(px(17));
    case TextRole::popoverTitle:
      return uiFont(px(16), QFont::DemiBold);
    case TextRole::headline:
      return uiFont(px(15), QFont::DemiBold);
    case TextRole::body:
      return uiFont(px(14));
    case TextRole::bodyLabel:
      return uiFont(px(14), QFont::Medium);
    case TextRole::bodyButton:
      return uiFont(px(14), QFont::DemiBold);
    case TextRole::subheadline:
      return uiFont(px(13));
    case TextRole::subheadlineStrong:
      return uiFont(px(13), QFont::DemiBold);
    case TextRole::caption:
      return uiFont(px(12), QFont::Medium);
  }
  return uiFont(px(14));
}

}  // namespace sentrel
