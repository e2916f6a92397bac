// SPDX-License-Identifier: Apache-2.0
#include "views/onboarding_view.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QPointer>
#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "settings/filter_settings.h"
#include "views/calibration_view.h"
#include "views/controls/labels.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr QSize windowSize(440, 420);
constexpr double addedForText = 0.35;  // of the size, at 200 %
constexpr int textSide = 44;
constexpr double textLine = 21.5;
constexpr int textHeight = 110;  // up to the first button, which never moves
constexpr int secondaryHeight = 34;
using Action = std::function<void()>;
using Parts = OnboardingView::Parts;
}  // namespace

/// A row of dots, one for each page; assistive technology is told "Step 2 of 5".
class PageDots final : public QWidget {
 public:
  PageDots() {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleRole(*this, QAccessible::StaticText);
  }

  void setPage(int page) {
    page_.glideTo(page);
    setAccessibleName(qtTrId("Étape %1 sur %2").arg(page + 1).arg(OnboardingView::pages));
  }
  [[nodiscard]] QSize sizeHint() const override { return {OnboardingView::pages * (dot + gap) - gap, dot}; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    for (int i = 0; i < OnboardingView::pages; ++i) {
      const double share = 1 - std::min(1.0, std::abs(page_.value() - i));
      paintBox(painter, QRectF(i * (dot + gap), 0, dot, dot), dot / 2.0,
               withAlpha(colors().primary, 0.3 + 0.7 * share));
    }
  }

 private:
  static constexpr int dot = 7;
  static constexpr int gap = 9;
  AnimatedValue page_{*this, 200, QEasingCurve::InOutCubic};
};

// The pages. Each calls the action that it was given when the person goes on.

/// What every page looks like: a symbol, a title, a text, a button, and perhaps a second one. The buttons
/// stand in the same place on every page.
class OnboardingPageLayout : public QWidget {
 public:
  struct Content {
    QString header;  ///< the symbol's name
    QString title;
    QString text;
    QString primaryLabel;
    Action primaryAction;
    QString secondaryLabel = {};  ///< empty where there is no second button
    Action secondaryAction = {};
  };

  explicit OnboardingPageLayout(const Content& content)
      : primary_(new PushButton(PushButton::Kind::primary, content.primaryLabel)) {
    auto* title = centredLabel(TextRole::title1, content.title);
    title->setContentsMargins(textSide / 2, 0, textSide / 2, 0);
    auto* words = centredLabel(TextRole::body, content.text, &AppColors::textSecondary);
    words->setBalanced(true);
    words->setLineHeight(textLine);
    words->setContentsMargins(textSide, 0, textSide, 12);
    words->setMinimumHeight(textHeight);
    primary_->setButtonHeight(40);
    primary_->setMinimumWidth(264);
    connect(primary_, &PushButton::clicked, this, content.primaryAction);
    columnIn(this, {0, 28, 0, 0}, 0,
             {centred(symbolView(content.header, 48, &AppColors::primary, 96)),
              20,
              title,
              10,
              words,
              centred(primary_),
              6,
              second(content),
              {stretch, 1}});
  }

  [[nodiscard]] PushButton* primaryButton() const { return primary_; }

 protected:
  /// Words in the second button's place, of a page that has none.
  void setNotice(const QString& words) {
    notice_->setWords(words);
    primary_->setAccessibleDescription(words);
  }

 private:
  /// The second button, or what takes its place.
  LayoutItem second(const Content& content) {
    if (!content.secondaryLabel.isEmpty()) {
      auto* secondary = new PushButton(PushButton::Kind::plain, content.secondaryLabel);
      secondary->setButtonHeight(secondaryHeight);
      connect(secondary, &PushButton::clicked, this, content.secondaryAction);
      return centred(secondary);
    }
    notice_ = centredLabel(TextRole::caption, {}, &AppColors::warning);  // two lines fit
    notice_->setBalanced(true);
    notice_->setContentsMargins(textSide, 0, textSide, 0);
    notice_->setAlignment(Qt::AlignCenter);
    notice_->setMinimumHeight(secondaryHeight);
    return notice_;
  }

  PushButton* primary_;
  TextLabel* notice_ = nullptr;
};

namespace {

/// Asks the person whether the camera may be used, and says when there is none.
class OnboardingCameraPage final : public OnboardingPageLayout {
 public:
  OnboardingCameraPage(const Parts& parts, const Action& onNext)
      : OnboardingPageLayout({.header = QStringLiteral("camera.fill"),
                              .title = qtTrId("onboarding_camera_title"),
                              .text = qtTrId("onboarding_camera_body"),
                              .primaryLabel = qtTrId("onboarding_continue"),
                              .primaryAction =
                                  [this, &parts, onNext] {
                                    parts.consent->answer(true);
                                    parts.camera->requestAccess([page = QPointer(this), onNext](bool) {
                                      if (page) onNext();
                                    });
                                  }}),
        session_(parts.camera->session()),
        listing_(session_->observeDevices()),
        wasRefused_(parts.consent->wasRefused()) {
    tell({});
    parts.camera->findCameras([page = QPointer(this)](const std::optional<CaptureError>& missing) {
      if (page) page->follow(missing);
    });
  }

 private:
  void follow(const std::optional<CaptureError>& missing) {
    devicesRegistration_ = session_->devicesChanged.connect([this] { tell({}); });
    tell(missing);
  }

  void tell(const std::optional<CaptureError>& missing) {
    const bool isKnown = static_cast<bool>(devicesRegistration_);
    QString words;
    if (wasRefused_) words = qtTrId("onboarding_camera_again");
    if (isKnown && session_->devices().empty()) {
      const bool isWithoutService = missing && missing->kind == CaptureError::Kind::noService;
      words = isWithoutService ? qtTrId("error_no_pipewire") : qtTrId("onboarding_no_camera");
    }
    setNotice(words);
  }

  const std::shared_ptr<CaptureSession> session_;
  const Registration listing_;
  const bool wasRefused_;
  Registration devicesRegistration_;  // once the first listing is there
};

/// Says what the overlay does.
class OnboardingOverlayPage final : public OnboardingPageLayout {
 public:
  explicit OnboardingOverlayPage(const Action& onNext)
      : OnboardingPageLayout(
            {.header = QStringLiteral("rectangle.stack.fill"),
             .title = qtTrId("onboarding_overlay_title"),
             .text =
                 qtTrId("Sur macOS, le filtre Sentrel peut couvrir toutes les applications simultanément, y "
                        "compris les apps en plein écran — une capacité unique que iOS ne permet pas."),
             .primaryLabel = qtTrId("Compris"),
             .primaryAction = onNext}) {}
};

/// Asks for notifications.
class OnboardingNotificationsPage final : public OnboardingPageLayout {
 public:
  OnboardingNotificationsPage(const Parts& parts, const Action& onNext)
      : OnboardingPageLayout({.header = QStringLiteral("bell.fill"),
                              .title = qtTrId("onboarding_notif_title"),
                              .text = qtTrId("onboarding_notif_body"),
                              .primaryLabel = qtTrId("onboarding_grant"),
                              .primaryAction =
                                  [this, &parts, onNext] {
                                    parts.notifications->requestAuthorization(
                                        [page = QPointer(this), onNext](bool granted) {
                                          if (!page) return;
                                          if (granted) page->primaryButton()->setText(qtTrId("✓ Autorisé"));
                                          onNext();
                                        });
                                  },
                              .secondaryLabel = qtTrId("onboarding_skip"),
                              .secondaryAction = onNext}) {}
};

/// Offers a calibration.
class OnboardingCalibrationPage final : public OnboardingPageLayout {
 public:
  OnboardingCalibrationPage(const Parts& parts, const Action& onNext)
      : OnboardingPageLayout(
            {.header = QStringLiteral("camera.metering.center.weighted"),
             .title = qtTrId("Calibration de distance"),
             .text = qtTrId("Pour des alertes précises, calibrez Sentrel à votre distance de "
                            "travail habituelle. Cette étape prend 5 secondes."),
             .primaryLabel = {},
             .primaryAction = [this, &parts] { calibrate(parts); },
             .secondaryLabel = qtTrId("onboarding_skip"),
             .secondaryAction = onNext}) {
    settingsRegistration_ = parts.settingsRepo->settings.subscribe([this](const FilterSettings& settings) {
      primaryButton()->setText(settings.isCalibrated
                                   ? qtTrId("✓ Calibré (%1 cm)").arg(settings.calibrationDistanceCm)
                                   : qtTrId("Calibrer maintenant"));
    });
  }

 private:
  void calibrate(const Parts& parts) {
    if (std::exchange(showCalibration, true)) return;
    openCalibrationSheet(*window(), parts.newCalibration(), qtTrId("Passer"), [page = QPointer(this)] {
      if (page) page->showCalibration = false;
    });
  }

  bool showCalibration = false;
  Registration settingsRegistration_;
};

/// Offers to start with the session.
class OnboardingLoginPage final : public OnboardingPageLayout {
 public:
  OnboardingLoginPage(const Parts& parts, const Action& onDone)
      : OnboardingPageLayout(
            {.header = QStringLiteral("power"),
             .title = qtTrId("Lancer au démarrage"),
             .text = qtTrId("Sentrel peut se lancer automatiquement à l'ouverture de session pour "
                            "vous protéger dès le début."),
             .primaryLabel = qtTrId("Activer"),
             .primaryAction =
                 [this, &parts, onDone] {
                   enable(parts);
                   onDone();
                 },
             .secondaryLabel = qtTrId("onboarding_skip"),
             .secondaryAction = onDone}) {}

 private:
  void enable(const Parts& parts) {
    parts.settingsRepo->setLaunchAtLogin(true);
    if (!parts.loginItem->isEnabled()) return;
    primaryButton()->setText(qtTrId("✓ Activé"));
    FilterSettings settings = parts.settingsRepo->settings;
    settings.launchAtLogin = true;
    parts.settingsRepo->settings = settings;  // the login item itself is where this is kept
  }
};

}  // namespace

// The window.

OnboardingView::OnboardingView(Parts parts)
    : FixedWindow(qtTrId("Bienvenue dans Sentrel"), windowSize, addedForText),
      parts_(std::move(parts)),
      scroll_(new ScrollPage),
      dots_(new PageDots) {
  columnIn(this, {0, 0, 0, 24}, 0, {{scroll_, 1}, 17, centred(dots_)});
  setPage(0);
}

OnboardingPageLayout* OnboardingView::buildPage(int index) {
  // In a later turn: the page that asks is replaced.
  const auto go = [this](int next) {
    return [this, next] {
      QMetaObject::invokeMethod(
          this, [this, next] { setPage(next); }, Qt::QueuedConnection);
    };
  };
  switch (index) {
    case 0:
      return new OnboardingCameraPage(parts_, go(1));
    case 1:
      return new OnboardingOverlayPage(go(2));
    case 2:
      return new OnboardingNotificationsPage(parts_, go(3));
    case 3:
      return new OnboardingCalibrationPage(parts_, go(4));
    default:
      return new OnboardingLoginPage(parts_, [this] { finish(); });
  }
}

void OnboardingView::setPage(int index) {
  if (index == page) return;
  fadeOver(*scroll_, 200);
  page = index;
  shown_ = buildPage(index);
  scroll_->setPage(shown_);  // the former page goes
  dots_->setPage(index);
  shown_->primaryButton()->setFocus(Qt::OtherFocusReason);
}

void OnboardingView::finish() {
  parts_.defaults->set(rawValue(SettingsKey::hasCompletedOnboarding), true);
  QMetaObject::invokeMethod(
      this, [this] { parts_.isPresented(false); }, Qt::QueuedConnection);
}

void OnboardingView::closeEvent(QCloseEvent* event) {
  FixedWindow::closeEvent(event);
  if (!parts_.consent->isGiven()) parts_.consent->answer(false);
}

void OnboardingView::keyPressEvent(QKeyEvent* event) {
  if (!pressByEnter(*shown_->primaryButton(), *event)) FixedWindow::keyPressEvent(event);
}

}  // namespace sentrel
