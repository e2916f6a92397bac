// SPDX-License-Identifier: Apache-2.0
#include "views/calibration_view.h"

#include <QElapsedTimer>
#include <QHideEvent>
#include <QKeyEvent>
#include <QTimer>
#include <algorithm>
#include <utility>

#include "look/icons.h"
#include "support/registration.h"
#include "views/controls/buttons.h"
#include "views/controls/labels.h"
#include "views/controls/layout.h"
#include "views/controls/painting.h"
#include "views/controls/windows.h"
#include "views/eye_logo.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr std::int64_t leastCm = 30;
constexpr std::int64_t greatestCm = 200;
constexpr std::int64_t stepCm = 5;
constexpr QSize sheetSize(408, 396);
constexpr int areaHeight = 170;
constexpr int areaSide = 24;
constexpr int valueWidth = 78;
constexpr int numberFadeMs = 150;

TextLabel* paragraph(const QString& words, int side) {
  auto* label = centredLabel(TextRole::subheadline, words, &AppColors::textSecondary);
  label->setBalanced(true);
  label->setContentsMargins(side, 0, side, 0);
  return label;
}

QString withCentimetres(std::int64_t cm) {
  return QStringLiteral("**%1\u00A0cm**").arg(cm);
}

/// The card that says what to do.
QWidget* instructionCard() {
  auto* card = new Canvas([](QPainter& painter, const QRectF& rect) {
    const bool high = Theme::shared().highContrast();
    paintBox(painter, rect, 16, withAlpha(colors().surfaceAlt, 0.6), high ? colors().border : QColor());
  });
  auto* symbol = symbolView(QStringLiteral("person.fill"), 20, &AppColors::primary, 40);
  const QString words = qtTrId(
      "Installez-vous à votre distance de travail habituelle, regardez droit vers la caméra et appuyez sur "
      "Démarrer.");
  lineIn(card, {16, 16, 16, 16}, 14, {{symbol, 0, Qt::AlignTop}, {new TextLabel(TextRole::body, words), 1}});
  return card;
}

/// A round button that shows a symbol and grows with the text; its name is for assistive technology.
class RoundButton final : public DrawnButton {
 public:
  RoundButton(const QString& symbol, const QString& name) : DrawnButton(TextRole::body, {}), symbol_(symbol) {
    setAccessibleName(name);
  }
  [[nodiscard]] QSize sizeHint() const override { return QSize(1, 1) * Theme::shared().iconSize(36); }
  [[nodiscard]] Outline focusOutline() const override { return {.radius = width() / 2.0, .gap = 0}; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    if (!isEnabled()) painter.setOpacity(disabledOpacity);
    paintGround(painter, QRectF(rect()), width() / 2.0, 0.08, 0.14);
    paintSymbol(painter, symbol_, squareIn(QRectF(rect()), Theme::shared().iconSize(24)), colors().primary);
  }

 private:
  const QString symbol_;
};

/// A ring that turns once a second; without motion it stands still.
QWidget* spinner() {
  constexpr double stroke = 5;
  const bool still = Theme::shared().look().reducedMotion;
  QElapsedTimer since;
  since.start();
  const auto paint = [still, since](QPainter& painter, const QRectF& rect) {
    const QRectF ring = rect.adjusted(stroke / 2, stroke / 2, -stroke / 2, -stroke / 2);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(withAlpha(colors().primary, 0.2), stroke));
    painter.drawEllipse(ring);
    painter.setPen(QPen(colors().primary, stroke, Qt::SolidLine, Qt::RoundCap));
    const double turned = still ? 0 : 0.36 * static_cast<double>(since.elapsed() % 1000);
    // Clockwise from the top, in sixteenths of a degree.
    painter.drawArc(ring, qRound((90 - turned) * 16), (still ? -270 : -160) * 16);
  };
  auto* ring = new Canvas(paint, 48);
  auto* turn = new QTimer(ring);
  QObject::connect(turn, &QTimer::timeout, ring, qOverload<>(&QWidget::update));
  if (!still) turn->start(33);
  return ring;
}

/// Leads a person through a calibration: says what to do, counts down, shows the measured distance to accept,
/// adjust or measure again. When it goes, so does what runs. Main thread.
class CalibrationView final : public QWidget {
 public:
  /// Takes a session of its own, which is idle. `done` is called after a distance was accepted.
  CalibrationView(std::shared_ptr<CalibrationSession> newSession, std::function<void()> done)
      : session(std::move(newSession)),
        onDone(std::move(done)),
        column_(columnIn(this, {0, 14, 0, 20})),
        logo_(new EyeLogo(60)) {
    const QString title = qtTrId("Calibration de distance");
    const QString purpose =
        qtTrId("Sentrel va mesurer votre distance habituelle à l'écran pour adapter ses alertes.");
    setAccessibleName(title);  // it has the focus while something runs
    addItems(*column_,
             {centred(logo_), 6, centredLabel(TextRole::title2Small, title), 1, paragraph(purpose, 32), 11});
    logo_->setMood(EyeLogo::Mood::idleOpen);
    build();
  }

  Q_DISABLE_COPY(CalibrationView)
  ~CalibrationView() override { abandon(); }

  /// What the Escape key means: cancels while something runs; false where there is nothing to cancel.
  bool cancelRunning() {
    if (!isMeasuring()) return false;
    session->cancel();
    return true;
  }

  /// The button that is pressed by the Enter key; none while something runs.
  [[nodiscard]] QWidget* defaultButton() const { return primary_; }

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    if (primary_ == nullptr || !pressByEnter(*primary_, *event)) QWidget::keyPressEvent(event);
  }

  void showEvent(QShowEvent* /*event*/) override {
    if (phaseRegistration_) return;
    phaseRegistration_ = session->phase().subscribe([this](const Phase& phase) { show(phase); });
  }

  void hideEvent(QHideEvent* event) override {
    // Closed, not minimised: at once, because protection may be switched on in the same moment.
    if (!event->spontaneous()) abandon();
  }

 private:
  using Phase = CalibrationSession::Phase;

  void show(const Phase& phase) {
    if (phase == shown_) return;
    shown_ = phase;
    logo_->setMood(isMeasuring() ? EyeLogo::Mood::active : EyeLogo::Mood::idleOpen);
    if (count_ == nullptr || phase.kind != Phase::Kind::counting) return build();
    fadeOver(*count_, numberFadeMs);
    count_->setWords(QString::number(phase.remaining));
    // Screen readers read a notification as it appears.
    QAccessibleEvent appears(count_, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&appears);
  }

  /// Ends what runs without showing it: the view is going, or gone from sight.
  void abandon() {
    phaseRegistration_.reset();
    session->cancel();
  }

  void build() {
    delete content_;
    primary_ = nullptr;
    count_ = nullptr;
    content_ = new QWidget(this);
    auto* area = new QWidget;
    area->setMinimumHeight(areaHeight);
    auto* said = columnIn(area, {areaSide, 0, areaSide, 0}, 0, {stretch});
    auto* buttons = lineIn(nullptr, {}, 12, {stretch});
    columnIn(content_, {}, 0, {{area, 1}, 16, buttons});
    const auto cancel = [this] { session->cancel(); };
    using Kind = PushButton::Kind;
    switch (shown_.kind) {
      case Phase::Kind::idle:
        said->addWidget(instructionCard());
        primary_ = addButton(*buttons, Kind::primary, qtTrId("Démarrer"), 144, [this] { session->start(); });
        break;
      case Phase::Kind::counting:
      case Phase::Kind::measuring:
        shown_.kind == Phase::Kind::counting ? buildCounting(*said) : buildMeasuring(*said);
        // Not by the Enter key: who pressed it twice to start would end it.
        addButton(*buttons, Kind::secondary, qtTrId("Annuler"), 125, cancel);
        break;
      case Phase::Kind::done:
        buildDone(*said);
        addButton(*buttons, Kind::secondary, qtTrId("Recommencer"), 134, cancel);
        primary_ = addButton(*buttons, Kind::primary, qtTrId("Valider"), 116, [this] {
          session->accept(distance());
          if (onDone) onDone();
        });
        break;
      case Phase::Kind::failed:
        buildFailed(*said);
        primary_ = addButton(*buttons, Kind::primary, qtTrId("Réessayer"), 144, cancel);
        break;
    }
    said->addStretch();
    buttons->addStretch();
    column_->addWidget(content_, 1);
    content_->show();
    // Who pressed the last button by key goes on from the next one.
    if (isVisible())
      (primary_ != nullptr ? static_cast<QWidget*>(primary_) : this)->setFocus(Qt::OtherFocusReason);
  }

  void buildCounting(QBoxLayout& column) {
    count_ = centredLabel(TextRole::count, QString::number(shown_.remaining));
    setAccessibleRole(*count_, QAccessible::Notification);
    addItems(column, {centredLabel(TextRole::body, qtTrId("Restez immobile…"), &AppColors::textSecondary), 6,
                      count_});
  }

  static void buildMeasuring(QBoxLayout& column) {
    addItems(column, {centred(spinner()), 14, centredLabel(TextRole::headline, qtTrId("Mesure en cours…")), 8,
                      centredLabel(TextRole::caption, qtTrId("3 secondes"), &AppColors::textSecondary)});
  }

  void buildDone(QBoxLayout& column) {
    QString words = qtTrId("Distance estimée : %lld cm");
    words.replace(QStringLiteral(" : "), QStringLiteral("\u00A0: "));
    words.replace(QLatin1String("%lld cm"), withCentimetres(shown_.distanceCm));
    minus_ = new RoundButton(QStringLiteral("minus.circle"), qtTrId("Réduire la distance"));
    plus_ = new RoundButton(QStringLiteral("plus.circle"), qtTrId("Augmenter la distance"));
    connect(minus_, &QAbstractButton::clicked, this, [this] { adjust(-stepCm); });
    connect(plus_, &QAbstractButton::clicked, this, [this] { adjust(stepCm); });
    value_ = new TextLabel(TextRole::title3);
    value_->setMinimumWidth(qRound(valueWidth * Theme::shared().textScale()));
    value_->setAlignment(Qt::AlignCenter);
    addItems(column,
             {centred(symbolView(QStringLiteral("checkmark.circle.fill"), 48, &AppColors::success)), 7,
              centredLabel(TextRole::title3, words), 6,
              lineIn(nullptr, {}, 8, {stretch, minus_, value_, plus_, stretch}), 6,
              paragraph(qtTrId("Vous pouvez ajuster cette valeur si elle vous semble incorrecte."), 40)});
    showDistance();
  }

  void buildFailed(QBoxLayout& column) const {
    const QString symbol = QStringLiteral("exclamationmark.triangle.fill");
    addItems(column, {centred(symbolView(symbol, 40, &AppColors::warningGraphic)), 10,
                      centredLabel(TextRole::headline, qtTrId("Calibration échouée")), 6,
                      paragraph(qtTrId(shown_.message.c_str()), 30)});
    if (!shown_.cause.empty())
      addItems(column,
               {6, centredLabel(TextRole::bodyLabel, qtTrId(shown_.cause.c_str()), &AppColors::warning)});
  }

  PushButton* addButton(QBoxLayout& line, PushButton::Kind kind, const QString& words, int width,
                        std::function<void()> action) {
    auto* button = new PushButton(kind, words);
    button->setMinimumWidth(std::max(width, button->sizeHint().width()));
    // In a later turn: the action replaces the buttons.
    connect(button, &PushButton::clicked, this, std::move(action), Qt::QueuedConnection);
    line.addWidget(button);
    return button;
  }

  void adjust(std::int64_t by) {
    adjustedDistance = by < 0 ? std::max(leastCm, distance() + by) : std::min(greatestCm, distance() + by);
    showDistance();
  }

  void showDistance() {
    value_->setWords(withCentimetres(distance()));
    minus_->setEnabled(distance() > leastCm);
    plus_->setEnabled(distance() < greatestCm);
  }

  [[nodiscard]] std::int64_t distance() const {
    return adjustedDistance != 0 ? adjustedDistance : shown_.distanceCm;
  }

  [[nodiscard]] bool isMeasuring() const {
    return shown_.kind == Phase::Kind::counting || shown_.kind == Phase::Kind::measuring;
  }

  const std::shared_ptr<CalibrationSession> session;
  const std::function<void()> onDone;
  std::int64_t adjustedDistance = 0;  // 0 means not adjusted
  Phase shown_ = Phase::idle();
  QBoxLayout* column_;
  EyeLogo* logo_;
  QWidget* content_ = nullptr;  // what the phase shows; all that follows is in it
  PushButton* primary_ = nullptr;
  TextLabel* count_ = nullptr;
  TextLabel* value_ = nullptr;
  QAbstractButton* minus_ = nullptr;
  QAbstractButton* plus_ = nullptr;
  Registration phaseRegistration_;
};

}  // namespace

void openCalibrationSheet(QWidget& window, std::shared_ptr<CalibrationSession> session,
                          const QString& leaveWords, std::function<void()> closed) {
  auto* sheet = new Sheet(window, sheetSize);
  auto* whole = new ToolbarPage(leaveWords, {9, 8, 0, 0});
  auto* view = new CalibrationView(std::move(session), [sheet] { sheet->dismiss(); });
  whole->setPage(view);
  columnIn(sheet->panel(), {1, 0, 1, 0}, 0, {whole});
  sheet->setAccessibleName(qtTrId("Calibration de distance"));
  QObject::connect(whole->leaveButton(), &PushButton::clicked, sheet, &Sheet::dismiss);
  sheet->onEscape = [sheet, view] {
    if (!view->cancelRunning()) sheet->dismiss();
  };
  sheet->onClosed = std::move(closed);
  sheet->open(view->defaultButton());
}

}  // namespace sentrel
