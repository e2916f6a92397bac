// SPDX-License-Identifier: Apache-2.0
#include "look/texts.h"

namespace sentrel {

namespace {
// The first language of the person's list that we speak decides.
bool speaksEnglish(const QLocale& locale) {
  const auto languages = locale.uiLanguages();
  for (const QString& name : languages) {
    const QLocale::Language language = QLocale(name).language();
    if (language == QLocale::English) return true;
    if (language == QLocale::French) return false;
  }
  return false;
}
}  // namespace

TextCatalogue::TextCatalogue(const QLocale& locale) {
  Q_UNUSED(french_.load(QStringLiteral(":/sentrel/texts/sentrel_fr.qm")));
  if (speaksEnglish(locale)) Q_UNUSED(language_.load(QStringLiteral(":/sentrel/texts/sentrel_en.qm")));
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
