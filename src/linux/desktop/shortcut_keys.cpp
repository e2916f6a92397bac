// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/shortcut_keys.h"

#include <QStringList>

namespace sentrel {

namespace {

/// Whether a desktop's words mean Super+Shift and this letter: "Meta+Shift+C", "Press <Shift><Super>c".
bool isUsual(const QString& words, QChar letter) {
  QString keys = words.toLower();
  for (const char16_t separator : {u'<', u'>', u'+'}) keys.replace(separator, u' ');
  QStringList parts = keys.split(u' ', Qt::SkipEmptyParts);
  if (parts.isEmpty() || parts.takeLast() != letter) return false;
  const auto has = [&](const char* name) { return parts.contains(QLatin1String(name)); };
  const bool isOther = has("ctrl") || has("control") || has("alt");
  return has("shift") && (has("super") || has("meta") || has("logo") || has("win")) && !isOther;
}

}  // namespace

std::string shownKeys(const QString& words, Shortcut shortcut) {
  constexpr qsizetype longest = 32;
  const QChar letter = shortcut == Shortcut::cover ? u'v' : u'c';
  if (isUsual(words, letter)) return QStringLiteral("⌘⇧%1").arg(letter.toUpper()).toStdString();
  QString shown = words.simplified().left(longest);
  shown.removeIf([](QChar character) { return !character.isPrint(); });
  return shown.toStdString();
}

}  // namespace sentrel
