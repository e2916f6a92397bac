// SPDX-License-Identifier: Apache-2.0
#include "views/status_words.h"

#include "look/texts.h"

namespace sentrel {

StatusWords statusWords(const FilterState& state) {
  switch (state.kind()) {
    case FilterState::Kind::nominal:
    case FilterState::Kind::inattention:
      return {text(QStringLiteral("home_status_active")), &AppColors::success};
    case FilterState::Kind::autoPaused:
      return {QStringLiteral("En pause"), &AppColors::textSecondary};
    case FilterState::Kind::cameraBusy:
      return {QStringLiteral("Caméra indisponible"), &AppColors::success};
    case FilterState::Kind::alert:
      return {text(QStringLiteral("notif_alert_title")), &AppColors::error};
    case FilterState::Kind::inactive:
      break;
  }
  return {text(QStringLiteral("home_status_inactive")), &AppColors::textSecondary};
}

QString failureWords(const std::optional<CameraFailure>& failure) {
  if (!failure) return {};
  const std::string_view key = textKey(failure->kind);
  return text(QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size())));
}

}  // namespace sentrel
