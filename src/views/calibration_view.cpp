// SPDX-License-Identifier: Apache-2.0
#include "views/calibration_view.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QHideEvent>
#include <QKeyEvent>
#include <QPainter>
#include <algorithm>
#include <utility>

#include "views/controls/accessible_role.h"
#include "views/controls/fade_over.h"
#include "views/controls/painting.h"
#include "views/controls/spinner.h"
#include "views/controls/symbol_view.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr std::int64_t leastCm = 30;
constexpr std::int64_t greatestCm = 200;
constexpr std::int64_t stepCm = 5;
constexpr int logoPixels = 60;
constexpr int subtitleSide = 32;
constexpr int areaHeight = 170;
constexpr int areaSide = 24;
constexpr int bottom = 20;
constexpr int valueWidth = 78;
constexpr int numberFadeMs = 150;

TextLabel* paragraph(const QString& words, int side) {
  auto* label = centredLabel(TextRole::subheadline, words, &AppColors::textSecondary);
  label->setBalanced(true);
  label->setContentsMargins(side, 0, side, 0);
  return label;
}

QString withCentimetres(std::int64_t cm) {
  return QStringLiteral("%1\u00A0cm").arg(cm);
}

/// The card that says what to do.
class InstructionCard final : public QWidget {
 public:
  explicit InstructionCard(QWidget* parent) : QWidget(parent) {
    constexpr int padding = 16;
    auto* line = new QHBoxLayout(this);
    line->setContentsMargins(padding, padding, padding, padding);
    line->setSpacing(14);
    auto* person = new SymbolView(QStringLiteral("person.fill"), 20, &AppColors::primary, this);
    person->setDisc(40);
    line->addWidget(person, 0, Qt::AlignTop);
    auto* words = new TextLabel(TextRole::body, &AppColors::text, this);
    words->setWords(
        qtTrId("Installez-vous à votre distance de travail habituelle, regardez droit vers la "
               "caméra et appuyez sur Démarrer."));
    line->addWidget(words, 1);
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    const bool high = Theme::shared().highContrast();
    paintBox(painter, QRectF(rect()), 16, withAlpha(colors().surfaceAlt, 0.6),
             high ? colors().border : QColor());
  }
};

}  // namespace

CalibrationView::CalibrationView(Parts parts, std::function<void()> done, QWidget* parent)
    : QWidget(parent),
      parts_(std::move(parts)),
      onDone(std::move(done)),
      logo_(new EyeLogo(logoPixels, this)),
      area_(new QWidget(this)),
      bar_(new QWidget(this)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 14, 0, bottom);
  column->setSpacing(0);
  column->addWidget(logo_, 0, Qt::AlignHCenter);
  column->addSpacing(6);
  column->addWidget(centredLabel(TextRole::title2Small, qtTrId("Calibration de distance")));
  column->addSpacing(1);
  column->addWidget(paragraph(qtTrId("Sentrel va mesurer votre distance habituelle à l'écran pour "
                                     "adapter ses alertes."),
                              subtitleSide));
  column->addSpacing(11);
  area_->setMinimumHeight(areaHeight);
  (new QVBoxLayout(area_))->setContentsMargins(0, 0, 0, 0);
  column->addWidget(area_, 1);
  column->addSpacing(16);
  (new QHBoxLayout(bar_))->setContentsMargins(0, 0, 0, 0);
  column->addWidget(bar_);
  setAccessibleName(qtTrId("Calibration de distance"));  // it has the focus while something runs
  logo_->setMood(EyeLogo::Mood::idleOpen);
  buildPhase(shown_);
  buildButtons(shown_);
}

CalibrationView::~CalibrationView() {
  abandon();
}

/// Ends what runs without showing it: the view is going, or gone from sight.
void CalibrationView::abandon() {
  phaseRegistration_.reset();
  parts_.session->cancel();
}

void CalibrationView::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  // Closed, not minimised: at once, because protection may be switched on in the same moment.
  if (!event->spontaneous()) abandon();
}

void CalibrationView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (phaseRegistration_) return;
  phaseRegistration_ = parts_.session->phase().subscribe([this](const Phase& phase) { show(phase); });
}

bool CalibrationView::isMeasuring() const {
  return shown_.kind() == Phase::Kind::counting || shown_.kind() == Phase::Kind::measuring;
}

void CalibrationView::show(const Phase& phase) {
  if (phase == shown_) return;
  const Phase before = std::exchange(shown_, phase);
  logo_->setMood(isMeasuring() ? EyeLogo::Mood::active : EyeLogo::Mood::idleOpen);
  if (content_ != nullptr && phase.kind() == Phase::Kind::counting &&
      before.kind() == Phase::Kind::counting) {
    fadeOver(*count_, numberFadeMs);
    count_->setWords(QString::number(phase.remaining()));
    // Screen readers read a notification as it appears.
    QAccessibleEvent appears(count_, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&appears);
  } else {
    buildPhase(phase);
    buildButtons(phase);
  }
}

void CalibrationView::buildPhase(const Phase& phase) {
  delete content_;
  count_ = nullptr;
  value_ = nullptr;
  minus_ = nullptr;
  plus_ = nullptr;
  content_ = new QWidget(area_);
  auto* column = new QVBoxLayout(content_);
  column->setContentsMargins(areaSide, 0, areaSide, 0);
  column->setSpacing(0);
  column->addStretch();
  switch (phase.kind()) {
    case Phase::Kind::idle:
      column->addWidget(new InstructionCard(content_));
      break;
    case Phase::Kind::counting:
      column->addWidget(centredLabel(TextRole::body, qtTrId("Restez immobile…"), &AppColors::textSecondary));
      column->addSpacing(6);
      count_ = centredLabel(TextRole::count, QString::number(phase.remaining()));
      setAccessibleRole(*count_, QAccessible::Notification);
      column->addWidget(count_);
      break;
    case Phase::Kind::measuring:
      column->addWidget(new Spinner(content_), 0, Qt::AlignHCenter);
      column->addSpacing(14);
      column->addWidget(centredLabel(TextRole::headline, qtTrId("Mesure en cours…")));
      column->addSpacing(8);
      column->addWidget(centredLabel(TextRole::caption, qtTrId("3 secondes"), &AppColors::textSecondary));
      break;
    case Phase::Kind::done:
      buildDone(*column);
      break;
    case Phase::Kind::failed:
      column->addWidget(
          new SymbolView(QStringLiteral("exclamationmark.triangle.fill"), 40, &AppColors::warningGraphic), 0,
          Qt::AlignHCenter);
      column->addSpacing(10);
      column->addWidget(centredLabel(TextRole::headline, qtTrId("Calibration échouée")));
      column->addSpacing(6);
      column->addWidget(paragraph(qtTrId(phase.message().c_str()), 30));
      break;
  }
  column->addStretch();
  area_->layout()->addWidget(content_);
  content_->QWidget::show();
}

void CalibrationView::buildDone(QVBoxLayout& column) {
  column.addWidget(new SymbolView(QStringLiteral("checkmark.circle.fill"), 48, &AppColors::success), 0,
                   Qt::AlignHCenter);
  column.addSpacing(7);
  QString words = qtTrId("Distance estimée : %lld cm");
  words.replace(QStringLiteral(" : "), QStringLiteral("\u00A0: "));
  words.replace(QLatin1String("%lld cm"), QStringLiteral("**%1**").arg(withCentimetres(shown_.distanceCm())));
  column.addWidget(centredLabel(TextRole::title3, words));
  column.addSpacing(6);
  auto* adjuster = new QHBoxLayout;
  adjuster->setSpacing(8);
  minus_ = new RoundButton(QStringLiteral("minus.circle"), qtTrId("Réduire la distance"));
  plus_ = new RoundButton(QStringLiteral("plus.circle"), qtTrId("Augmenter la distance"));
  connect(minus_, &RoundButton::clicked, this, [this] { adjust(-stepCm); });
  connect(plus_, &RoundButton::clicked, this, [this] { adjust(stepCm); });
  value_ = centredLabel(TextRole::title3, {});
  value_->setMinimumWidth(qRound(valueWidth * Theme::shared().textScale()));
  value_->setAlignment(Qt::AlignCenter);
  adjuster->addStretch();
  adjuster->addWidget(minus_);
  adjuster->addWidget(value_);
  adjuster->addWidget(plus_);
  adjuster->addStretch();
  column.addLayout(adjuster);
  column.addSpacing(6);
  column.addWidget(paragraph(qtTrId("Vous pouvez ajuster cette valeur si elle vous semble incorrecte."), 40));
  showDistance();
}

void CalibrationView::buildButtons(const Phase& phase) {
  delete buttons_;
  primary_ = nullptr;
  buttons_ = new QWidget(bar_);
  auto* line = new QHBoxLayout(buttons_);
  line->setContentsMargins(0, 0, 0, 0);
  line->setSpacing(12);
  line->addStretch();
  auto* session = parts_.session.get();
  const auto cancel = [session] { session->cancel(); };
  switch (phase.kind()) {
    case Phase::Kind::idle:
      primary_ =
          addButton(PushButton::Kind::primary, qtTrId("Démarrer"), 144, [session] { session->start(); });
      break;
    case Phase::Kind::counting:
    case Phase::Kind::measuring:
      // Not by the Enter key: who pressed it twice to start would end it.
      addButton(PushButton::Kind::secondary, qtTrId("Annuler"), 125, cancel);
      break;
    case Phase::Kind::done:
      addButton(PushButton::Kind::secondary, qtTrId("Recommencer"), 134, cancel);
      primary_ = addButton(PushButton::Kind::primary, qtTrId("Valider"), 116, [this] {
        parts_.session->accept(distance());
        if (onDone) onDone();
      });
      break;
    case Phase::Kind::failed:
      primary_ = addButton(PushButton::Kind::primary, qtTrId("Réessayer"), 144, cancel);
      break;
  }
  line->addStretch();
  bar_->layout()->addWidget(buttons_);
  buttons_->QWidget::show();
  // Who pressed the last button by key goes on from the next one.
  if (isVisible())
    (primary_ != nullptr ? static_cast<QWidget*>(primary_) : this)->setFocus(Qt::OtherFocusReason);
}

PushButton* CalibrationView::addButton(PushButton::Kind kind, const QString& words, int width,
                                       std::function<void()> action) {
  auto* button = new PushButton(kind, words);
  button->setMinimumWidth(std::max(width, button->sizeHint().width()));
  // In a later turn: the action replaces the buttons.
  connect(
      button, &PushButton::clicked, this, [call = std::move(action)] { call(); }, Qt::QueuedConnection);
  buttons_->layout()->addWidget(button);
  return button;
}

std::int64_t CalibrationView::distance() const {
  return adjustedDistance != 0 ? adjustedDistance : shown_.distanceCm();
}

void CalibrationView::adjust(std::int64_t by) {
  adjustedDistance = by < 0 ? std::max(leastCm, distance() + by) : std::min(greatestCm, distance() + by);
  showDistance();
}

void CalibrationView::showDistance() {
  value_->setWords(QStringLiteral("**%1**").arg(withCentimetres(distance())));
  minus_->setEnabled(distance() > leastCm);
  plus_->setEnabled(distance() < greatestCm);
}

bool CalibrationView::cancelRunning() {
  if (!isMeasuring()) return false;
  parts_.session->cancel();
  return true;
}

void CalibrationView::keyPressEvent(QKeyEvent* event) {
  const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  if (enter && !event->isAutoRepeat() && primary_ != nullptr) {
    primary_->click();
  } else {
    QWidget::keyPressEvent(event);
  }
}

}  // namespace sentrel
