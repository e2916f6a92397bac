// SPDX-License-Identifier: Apache-2.0
//
// What `qtTrId` says: the text of a key in the person's language, and in French where that has none.
#include "look/texts.h"

#include <QCoreApplication>
#include <QTranslator>

namespace sentrel {

namespace {

QLocale& installed() {
  static QLocale locale(QLocale::French);
  return locale;
}

/// Asked before those that were installed earlier.
bool install(const QString& language) {
  auto* translator = new QTranslator(QCoreApplication::instance());
  if (!translator->load(QStringLiteral("sentrel_") + language, QStringLiteral(":/sentrel/texts")))
    return false;
  installed() = QLocale(language);
  return QCoreApplication::installTranslator(translator);
}

void installTexts() {
  install(QStringLiteral("fr"));
  // The first language of the person's list that has a file decides. QTranslator's own search would prefer a
  // later one that is named without its country.
  const QStringList languages = QLocale::system().uiLanguages();
  for (const QString& name : languages) {
    if (install(QLocale::languageToCode(QLocale(name).language()))) break;
  }
}

}  // namespace

const QLocale& textLocale() {
  return installed();
}

Q_COREAPP_STARTUP_FUNCTION(installTexts)

}  // namespace sentrel
