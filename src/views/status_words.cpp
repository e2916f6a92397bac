// SPDX-License-Identifier: Apache-2.0
#include "views/status_words.h"

namespace sentrel {

StatusWords statusWords(const FilterState& state) {
  switch (state.kind()) {
    case FilterState::Kind::nominal:
    case FilterState::Kind::inattention:
      return {qtTrId("home_status_active"), &AppColors::success};
    case FilterState::Kind::autoPaused:
      return {QStringLiteral("En pause"), &AppColors::textSecondary};
    case FilterState::Kind::cameraBusy:
      return {QStringLiteral("Caméra indisponible"), &AppColors::success};
    case FilterState::Kind::alert:
      return {qtTrId("notif_alert_title"), &AppColors::error};
    case FilterState::Kind::inactive:
      break;
  }
  return {qtTrId("home_status_inactive"), &AppColors::textSecondary};
}

QString failureWords(const std::optional<CameraFailure>& failure) {
  if (!failure) return {};
  return qtTrId(textKey(failure->kind));
}

}  // namespace sentrel
