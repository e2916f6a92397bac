// SPDX-License-Identifier: Apache-2.0
#include "views/onboarding_pages.h"

#include <QPointer>
#include <utility>

#include "views/calibration_sheet.h"

namespace sentrel {

namespace {

QString calibrationLabel(const FilterSettings& settings) {
  if (!settings.isCalibrated) return qtTrId("Calibrer maintenant");
  return qtTrId("✓ Calibré (%1 cm)").arg(settings.calibrationDistanceCm);
}

}  // namespace

OnboardingCameraPage::OnboardingCameraPage(const std::shared_ptr<CameraConsent>& consent,
                                           std::shared_ptr<AVCaptureManager> camera,
                                           std::function<void()> onNext)
    : OnboardingPageLayout(
          {.header = QStringLiteral("camera.fill"),
           .title = qtTrId("onboarding_camera_title"),
           .text = qtTrId("onboarding_camera_body"),
           .primaryLabel = qtTrId("onboarding_continue"),
           .primaryAction =
               [this, consent, camera = std::move(camera), next = std::move(onNext)] {
                 consent->answer(true);
                 camera->requestAccess([page = QPointer<QWidget>(this), next](bool /*granted*/) {
                   if (page) next();
                 });
               },
           .secondaryLabel = {},
           .secondaryAction = {},
           .notice = consent->wasRefused() ? qtTrId("onboarding_camera_again") : QString()}) {}

OnboardingOverlayPage::OnboardingOverlayPage(std::function<void()> onNext)
    : OnboardingPageLayout(
          {.header = QStringLiteral("rectangle.stack.fill"),
           .title = qtTrId("onboarding_overlay_title"),
           .text =
               qtTrId("Sur macOS, le filtre Sentrel peut couvrir toutes les applications simultanément, y "
                      "compris les apps en plein écran — une capacité unique que iOS ne permet pas."),
           .primaryLabel = qtTrId("Compris"),
           .primaryAction = std::move(onNext),
           .secondaryLabel = {},
           .secondaryAction = {}}) {}

OnboardingNotificationsPage::OnboardingNotificationsPage(std::shared_ptr<Notifications> notifications,
                                                         const std::function<void()>& onNext)
    : OnboardingPageLayout({.header = QStringLiteral("bell.fill"),
                            .title = qtTrId("onboarding_notif_title"),
                            .text = qtTrId("onboarding_notif_body"),
                            .primaryLabel = qtTrId("onboarding_grant"),
                            .primaryAction =
                                [this, notifications = std::move(notifications), onNext] {
                                  notifications->requestAuthorization(
                                      [page = QPointer<QWidget>(this), this, onNext](bool yes) {
                                        if (page) answered(yes, onNext);
                                      });
                                },
                            .secondaryLabel = qtTrId("onboarding_skip"),
                            .secondaryAction = onNext}) {}

void OnboardingNotificationsPage::answered(bool yes, const std::function<void()>& onNext) {
  granted = yes;
  if (granted) setPrimaryLabel(qtTrId("✓ Autorisé"));
  onNext();
}

OnboardingCalibrationPage::OnboardingCalibrationPage(Parts parts, std::function<void()> onNext)
    : OnboardingPageLayout(
          {.header = QStringLiteral("camera.metering.center.weighted"),
           .title = qtTrId("Calibration de distance"),
           .text = qtTrId("Pour des alertes précises, calibrez Sentrel à votre distance de travail "
                          "habituelle. Cette étape prend 5 secondes."),
           .primaryLabel = calibrationLabel(parts.settingsRepo->settings),
           .primaryAction = [this] { calibrate(); },
           .secondaryLabel = qtTrId("onboarding_skip"),
           .secondaryAction = std::move(onNext)}),
      parts_(std::move(parts)) {
  settingsRegistration_ = parts_.settingsRepo->settings.onChange(
      [this](const FilterSettings& settings) { setPrimaryLabel(calibrationLabel(settings)); });
}

void OnboardingCalibrationPage::calibrate() {
  if (std::exchange(showCalibration, true)) return;
  openCalibrationSheet(*window(), {parts_.newCalibration()}, qtTrId("Passer"),
                       [page = QPointer<QWidget>(this), this] {
                         if (page) showCalibration = false;
                       });
}

OnboardingLoginPage::OnboardingLoginPage(std::shared_ptr<LoginItem> loginItem,
                                         std::shared_ptr<SettingsRepository> settingsRepo,
                                         const std::function<void()>& onDone)
    : OnboardingPageLayout(
          {.header = QStringLiteral("power"),
           .title = qtTrId("Lancer au démarrage"),
           .text = qtTrId("Sentrel peut se lancer automatiquement à l'ouverture de session pour "
                          "vous protéger dès le début."),
           .primaryLabel = qtTrId("Activer"),
           .primaryAction =
               [this, loginItem = std::move(loginItem), settingsRepo = std::move(settingsRepo), onDone] {
                 settingsRepo->setLaunchAtLogin(true);
                 enabled = loginItem->isEnabled();
                 if (enabled) {
                   setPrimaryLabel(qtTrId("✓ Activé"));
                   FilterSettings settings = settingsRepo->settings;
                   settings.launchAtLogin = true;
                   settingsRepo->settings = settings;  // the login item itself is where this is kept
                 }
                 onDone();
               },
           .secondaryLabel = qtTrId("onboarding_skip"),
           .secondaryAction = onDone}) {}

}  // namespace sentrel
