// SPDX-License-Identifier: Apache-2.0
#include "look/texts.h"

namespace sentrel {

TextCatalogue::TextCatalogue(const QLocale& locale) {
  const QString folder = QStringLiteral(":/sentrel/texts");
  Q_UNUSED(french_.load(QStringLiteral("sentrel_fr"), folder));
  // The first language of the person's list that has a file decides.
  const QStringList languages = locale.uiLanguages();
  for (const QString& name : languages) {
    const QString code = QLocale::languageToCode(QLocale(name).language());
    if (language_.load(QStringLiteral("sentrel_") + code, folder)) break;
  }
}

QString TextCatalogue::text(const QString& key) const {
  const QByteArray id = key.toUtf8();
  for (const QTranslator* translator : {&language_, &french_}) {
    QString found = translator->translate("", id.constData());
    if (!found.isEmpty()) return found;
  }
  return key;
}

const TextCatalogue& TextCatalogue::shared() {
  static const TextCatalogue catalogue{QLocale::system()};
  return catalogue;
}

QString text(const QString& key) {
  return TextCatalogue::shared().text(key);
}

}  // namespace sentrel
