// SPDX-License-Identifier: Apache-2.0
#include "views/onboarding_view.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QVBoxLayout>
#include <utility>

#include "settings/filter_settings.h"
#include "views/controls/fade_over.h"

namespace sentrel {

namespace {
constexpr QSize windowSize(440, 420);
constexpr double addedForText = 0.35;  // of the size, at 200 %
constexpr int dotsAbove = 17;
constexpr int dotsBelow = 24;
constexpr int pageFadeMs = 200;
}  // namespace

OnboardingView::OnboardingView(Parts parts)
    : FixedWindow(qtTrId("Bienvenue dans Sentrel"), windowSize, addedForText),
      parts_(std::move(parts)),
      scroll_(new ScrollPage(this)),
      dots_(new PageDots(pages)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, dotsBelow);
  column->setSpacing(0);
  column->addWidget(scroll_, 1);
  column->addSpacing(dotsAbove);
  column->addWidget(dots_, 0, Qt::AlignHCenter);
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
      return new OnboardingCameraPage(parts_.consent, parts_.camera, go(1));
    case 1:
      return new OnboardingOverlayPage(go(2));
    case 2:
      return new OnboardingNotificationsPage(parts_.notifications, go(3));
    case 3:
      return new OnboardingCalibrationPage({parts_.settingsRepo, parts_.newCalibration}, go(4));
    default:
      return new OnboardingLoginPage(parts_.loginItem, parts_.settingsRepo, [this] { finish(); });
  }
}

void OnboardingView::setPage(int index) {
  if (index == page) return;
  fadeOver(*scroll_, pageFadeMs);
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
  const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  if (enter && !event->isAutoRepeat()) {
    shown_->primaryButton()->click();
  } else {
    FixedWindow::keyPressEvent(event);
  }
}

}  // namespace sentrel
