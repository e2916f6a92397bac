// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLocale>
#include <QString>
#include <QTranslator>

namespace sentrel {

/// What the program says, by key, in the person's language; French where there is no file of it in `texts/`.
/// A key that has no entry is its own text, which is how French wordings serve as keys. Main thread.
class TextCatalogue {
 public:
  explicit TextCatalogue(const QLocale& locale);

  [[nodiscard]] QString text(const QString& key) const;

  /// The catalogue of the desktop's language, read at the first use.
  static const TextCatalogue& shared();

 private:
  QTranslator language_;
  QTranslator french_;
};

/// `TextCatalogue::shared().text(key)`.
[[nodiscard]] QString text(const QString& key);

}  // namespace sentrel
