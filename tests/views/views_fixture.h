// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/test_core.h"
#include "views/onboarding_view.h"
#include "views/popover.h"
#include "views/preferences_view.h"

namespace sentrel::test {

using Page = MenuBarPopoverView::Page;

/// The program's core for windows to show: whatever state a window can be in is brought about by what the
/// camera sees.
struct ViewsFixture : TestCore {
  std::shared_ptr<CameraConsent> consent = std::make_shared<CameraConsent>(false);
  std::shared_ptr<RemoteControl> remote = std::make_shared<RemoteControl>(service, platform(), [] {});
  bool onboardingShown = true;
  Tray tray = Tray::statusNotifier;
  std::function<void(const Report&)> reportAsked;  ///< who waits for it
  const Report report{
      {QStringLiteral("Machine"),
       {{QStringLiteral("Écran"), QStringLiteral("1280x720")},
        {QStringLiteral("Caméra"), QStringLiteral("aucune"), QStringLiteral("Branchez-la")}}}};
  std::function<void()> linkFailed;  ///< of the link that was opened last

  /// The person says that the face that alerts is nobody, and it is so still that this is believed.
  void ignorePoster() {
    see(watched, 1500);
    service->relaxations().filter.ignoreOnlooker();
    see(watched, 14'000);
  }
  void interruptCamera() {
    machine.session->wasInterrupted.emit();
    machine.settle();
  }

  MenuBarPopoverView::Parts popoverParts() {
    return {.service = service,
            .clock = machine.loop,
            .remote = remote,
            .failure = {control, &control->failure()},
            .statsRepo = stats,
            .settingsRepo = settings,
            .journal = desktop.journal,
            .proof = desktop.proof,
            .overlayBackend = backend,
            .notice = {},
            .version = QStringLiteral("1.0.0"),
            .projectsPage = QUrl(QStringLiteral("https://example.org")),
            .openPreferences = [] {},
            .quit = [] {},
            .askForReport = [this](const auto& told) { reportAsked = told; },
            .openLink = [this](const QUrl&, const auto& failed) { linkFailed = failed; }};
  }

  PreferencesView::Parts preferencesParts() {
    return {.settingsRepo = settings,
            .camera = camera,
            .service = service,
            .clock = machine.loop,
            .loginItem = loginItem,
            .keyMonitor = desktop.keys,
            .journal = desktop.journal,
            .failure = {control, &control->failure()},
            .notifications = desktop.notifications,
            .overlayBackend = backend,
            .tray = [this] { return tray; },
            .mainLoop = machine.loop,
            .newCalibration = [this] { return newCalibration(); }};
  }
  OnboardingView::Parts onboardingParts() {
    return {.consent = consent,
            .camera = camera,
            .notifications = desktop.notifications,
            .settingsRepo = settings,
            .loginItem = loginItem,
            .defaults = defaults,
            .newCalibration = [this] { return newCalibration(); },
            .isPresented = [this](bool shown) { onboardingShown = shown; }};
  }
};

}  // namespace sentrel::test
