// SPDX-License-Identifier: Apache-2.0
//
// What `qtTrId` says: the text of a key in the person's language, and in French where that has none.
#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

namespace sentrel {

namespace {

/// Asked before those that were installed earlier.
bool install(const QString& language) {
  auto* translator = new QTranslator(QCoreApplication::instance());
  return translator->load(QStringLiteral("sentrel_") + language, QStringLiteral(":/sentrel/texts")) &&
         QCoreApplication::installTranslator(translator);
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

Q_COREAPP_STARTUP_FUNCTION(installTexts)

}  // namespace sentrel
