// SPDX-License-Identifier: Apache-2.0
#include "views/desktop_words.h"

#include <algorithm>

namespace sentrel {

QString coverWords(const CoverFacts& facts, bool everyScreen) {
  if (facts.limitation == "error_no_compositing") return qtTrId("error_no_compositing");
  const std::size_t screens =
      everyScreen ? facts.screens.size() : std::min<std::size_t>(facts.screens.size(), 1);
  if (!facts.limitation.empty() || screens == 0) return qtTrId("Ce bureau ne permet pas de couvrir l'écran");
  const QString system = QString::fromStdString(facts.system);
  return screens == 1 ? qtTrId("Bandes : %1, 1 écran couvert").arg(system)
                      : qtTrId("Bandes : %1, %2 écrans couverts").arg(system).arg(screens);
}

QString shortcutWords(const ShortcutGrant& grant, const QString& usual) {
  switch (grant.kind) {
    case ShortcutGrant::Kind::observed:
      return usual;
    case ShortcutGrant::Kind::granted:
      return qtTrId("attribué par le bureau : %1")
          .arg(grant.keys.empty() ? usual : presentable(QString::fromStdString(grant.keys)));
    case ShortcutGrant::Kind::refused:
      return qtTrId("refusé");
    case ShortcutGrant::Kind::unknown:
      break;
  }
  return qtTrId("sans réponse du bureau");
}

QString trayWords(Tray tray) {
  switch (tray) {
    case Tray::statusNotifier:
      return QStringLiteral("StatusNotifier");
    case Tray::x11:
      return QStringLiteral("X11");
    case Tray::none:
      break;
  }
  return qtTrId("aucune barre");
}

QString presentable(QString words, qsizetype most) {
  for (QChar& character : words) {
    const bool isSeen = character.isPrint() || character.isSurrogate();
    if (!isSeen || character == QChar::ReplacementCharacter) character = u' ';
  }
  words = words.simplified();
  if (words.size() <= most) return words;
  // Never half of a character.
  return words.first(words.at(most - 2).isHighSurrogate() ? most - 2 : most - 1) + u'…';
}

}  // namespace sentrel
