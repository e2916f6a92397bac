// SPDX-License-Identifier: Apache-2.0
#include "look/texts.h"

#include <gmock/gmock.h>

namespace sentrel {
namespace {

TEST(TextCatalogue, SpeaksFrenchUnlessAskedForEnglish) {
  const struct {
    QLocale locale;
    const char* key;
    const char* text;
  } cases[] = {
      {QLocale(QLocale::French), "error_no_camera", "Caméra introuvable"},
      {QLocale(QLocale::English), "error_no_camera", "Camera not found"},
      {QLocale(QLocale::German), "error_no_camera", "Caméra introuvable"},
      {QLocale::c(), "error_no_camera", "Caméra introuvable"},
      // A French wording is its own key, unless the French catalogue words it for this platform.
      {QLocale(QLocale::French), "Quelqu'un observe votre écran", "Quelqu'un observe votre écran"},
      {QLocale(QLocale::English), "Quelqu'un observe votre écran", "Someone is watching your screen"},
      {QLocale(QLocale::French), "⌘⇧C", "Super+Maj+C"},
      {QLocale(QLocale::English), "⌘⇧C", "Super+Shift+C"},
      // What nobody has worded stays as it is.
      {QLocale(QLocale::English), "Quitter", "Quitter"},
      // Spaces before a colon do not break.
      {QLocale(QLocale::French), "error_no_pipewire",
       "Service PipeWire introuvable\u00A0: installez pipewire et wireplumber."},
  };
  for (const auto& [locale, key, text] : cases) {
    SCOPED_TRACE(key);
    EXPECT_EQ(TextCatalogue(locale).text(key).toStdString(), text);
  }
}

}  // namespace
}  // namespace sentrel
