// SPDX-License-Identifier: Apache-2.0
#include "views/onboarding_view.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QScreen>
#include <QVBoxLayout>
#include <utility>

#include "look/texts.h"
#include "settings/settings_key.h"
#include "views/controls/fade_over.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr QSize windowSize(440, 420);
constexpr double addedForText = 0.35;  // of the size, at 200 %
constexpr double mostOfWorkArea = 0.9;
constexpr int dotsAbove = 17;
constexpr int dotsBelow = 24;
constexpr int pageFadeMs = 200;
}  // namespace

OnboardingView::OnboardingView(Parts parts)
    : parts_(std::move(parts)),
      scroll_(new ScrollPage(this)),
      dots_(new PageDots(pages)),
      ring_(new FocusRing(*this)) {
  setWindowTitle(text(QStringLiteral("Bienvenue dans Sentrel")));
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, dotsBelow);
  column->setSpacing(0);
  column->addWidget(scroll_, 1);
  column->addSpacing(dotsAbove);
  column->addWidget(dots_, 0, Qt::AlignHCenter);
  connect(&Theme::shared(), &Theme::changed, this, [this] { resizeToText(); });
  resizeToText();
  setPage(0);
}

void OnboardingView::resizeToText() {
  QSize size = windowSize * (1 + addedForText * (Theme::shared().textScale() - 1));
  if (const QScreen* shown = screen()) size = size.boundedTo(shown->availableSize() * mostOfWorkArea);
  setFixedSize(size);
  update();
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
      return new OnboardingCalibrationPage({parts_.settingsRepo, parts_.service, parts_.newCalibration},
                                           go(4));
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
  QWidget::closeEvent(event);
  if (!parts_.consent->isGiven()) parts_.consent->answer(false);
}

void OnboardingView::keyPressEvent(QKeyEvent* event) {
  const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  if (enter && !event->isAutoRepeat()) {
    shown_->primaryButton()->click();
  } else if (event->matches(QKeySequence::Close)) {
    close();
  } else {
    QWidget::keyPressEvent(event);
  }
}

void OnboardingView::paintEvent(QPaintEvent* /*event*/) {
  QPainter(this).fillRect(rect(), colors().window);
}

}  // namespace sentrel
