// SPDX-License-Identifier: Apache-2.0
#include "views/popover_rows.h"

#include <QDateTime>
#include <QKeyEvent>
#include <algorithm>
#include <utility>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int outside = 4;  // left and right of a row
constexpr int inside = 16;  // between a row's edge and the symbol's frame
constexpr int choiceInset = 44;
constexpr int iconFrame = 20;
constexpr int iconGap = 8;
constexpr int endGap = 12;
constexpr int chevron = 12;
constexpr double rowRadius = 6;

constexpr std::int64_t minuteMs = 60'000;

}  // namespace

// One row.

MenuBarButton::MenuBarButton(const QString& symbol, const QString& label)
    : DrawnButton(TextRole::body, label), icon(symbol) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void MenuBarButton::setEnd(const QString& words) {
  end_ = words;
  setAccessibleDescription(words);
}

QSize MenuBarButton::sizeHint() const {
  const QFontMetrics metrics(font());
  const int start = isChoice() ? choiceInset : inside + Theme::shared().iconSize(iconFrame) + iconGap;
  const int end = end_.isEmpty() ? 0 : endGap + metrics.horizontalAdvance(end_);
  return {2 * outside + inside + start + metrics.horizontalAdvance(text()) + end,
          Theme::shared().grown(isChoice() ? 32 : 36)};
}

QRectF MenuBarButton::row() const {
  return QRectF(rect()).adjusted(outside, 0, -outside, 0);
}

MenuBarButton::Outline MenuBarButton::focusOutline() const {
  return {.rect = row(), .radius = rowRadius, .gap = -2};
}

void MenuBarButton::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const QRectF line = row();
  paintGround(painter, line, rowRadius, 0.06, 0.12);
  const int frame = Theme::shared().iconSize(iconFrame);
  const int start = isChoice() ? choiceInset - outside : inside + frame + iconGap;
  if (!isChoice()) {
    paintSymbol(painter, icon,
                squareIn(QRectF(line.left() + inside, 0, frame, height()), Theme::shared().iconSize(17)),
                colors().textSecondary);
  }
  QRectF words = line.adjusted(start, 0, -inside, 0);
  if (unfolding_ != Unfolding::none) {
    const double size = Theme::shared().iconSize(chevron);
    const QRectF box(words.right() - size, (height() - size) / 2, size, size);
    painter.save();
    painter.translate(box.center());
    if (unfolding_ == Unfolding::folded) painter.rotate(-90);
    paintSymbol(painter, QStringLiteral("chevron.down"), box.translated(-box.center()),
                colors().textSecondary);
    painter.restore();
    words.setRight(box.left() - iconGap);
  }
  if (!end_.isEmpty()) {
    paintWords(painter, words, end_, font(), colors().textSecondary, Qt::AlignVCenter | Qt::AlignRight);
    words.setRight(words.right() - QFontMetricsF(font()).horizontalAdvance(end_) - endGap);
  }
  paintWords(painter, words, text(), font(), colors().text);
}

// What can be allowed.

QString timeOfDay(std::int64_t endMs, std::int64_t nowMs) {
  return QDateTime::currentDateTime().addMSecs(endMs - nowMs).toString(QStringLiteral("H:mm"));
}

RelaxationRows::RelaxationRows(std::shared_ptr<PrivacyFilterService> service,
                               std::shared_ptr<const Clock> clock)
    : service_(std::move(service)), clock_(std::move(clock)) {
  columnIn(this);
  const auto changed = [this](const auto&) { build(); };
  const Relaxations& relaxations = service_->relaxations();
  registrations_ = {service_->isActive().onChange(changed), service_->isAlert().onChange(changed),
                    relaxations.pauseEndMs().onChange(changed), relaxations.stay().onChange(changed),
                    relaxations.filter.ignoredCount().onChange(changed)};
  connect(&minute_, &QTimer::timeout, this, [this] { build(); });
  build();
}

void RelaxationRows::build() {
  const bool hadFocus = content_ != nullptr && content_->isAncestorOf(QApplication::focusWidget());
  if (content_ != nullptr) {
    content_->hide();
    content_->deleteLater();  // it may be a row of it that asks
  }
  content_ = new QWidget;
  std::vector<QWidget*> rows;
  if (service_->isAlert()) {
    auto* nobody = new PushButton(PushButton::Kind::secondary, qtTrId("Ce n'est personne"));
    connect(nobody, &QAbstractButton::clicked, this,
            [this] { service_->relaxations().filter.ignoreOnlooker(); });
    rows = {nobody};
  } else if (service_->isActive()) {
    buildPause(rows);
    if (!service_->relaxations().pauseEndMs().get()) buildGuests(rows);
  }
  const int aside = service_->isAlert() ? outside + inside : 0;
  auto* column = columnIn(content_, {aside, 0, aside, 0});
  for (QWidget* each : rows) column->addWidget(each);
  layout()->addWidget(content_);
  setVisible(!rows.empty());
  const Relaxations& relaxations = service_->relaxations();
  const auto& stay = relaxations.stay().get();
  const bool countsDown = relaxations.pauseEndMs().get() || (stay && stay->untilMs);
  countsDown ? minute_.start(minuteMs / 4) : minute_.stop();
  if (hadFocus && !rows.empty()) rows.front()->setFocus(Qt::OtherFocusReason);
}

void RelaxationRows::buildPause(std::vector<QWidget*>& rows) {
  const auto end = service_->relaxations().pauseEndMs().get();
  auto* row = new MenuBarButton(QStringLiteral("pause.circle.fill"),
                                end ? qtTrId("Reprendre") : qtTrId("Mettre en pause"));
  if (end) {
    row->setEnd(timeLeft(*end));
    connect(row, &QAbstractButton::clicked, this, [this] { service_->relaxations().resume(); });
    rows.push_back(row);
    return;
  }
  const auto pause = [this](std::int64_t durationMs) {
    return [this, durationMs] { service_->relaxations().pause(durationMs); };
  };
  const QDateTime now = QDateTime::currentDateTime();
  const QDateTime morning(now.date().addDays(1), QTime(8, 0));
  addUnfolding(rows, Row::pause, row,
               {{qtTrId("15 minutes"), pause(15 * minuteMs)},
                {qtTrId("1 heure"), pause(60 * minuteMs)},
                {qtTrId("Jusqu'à demain 8 h"),
                 pause(std::min<std::int64_t>(now.msecsTo(morning), Relaxations::longestMs))}});
}

void RelaxationRows::buildGuests(std::vector<QWidget*>& rows) {
  const auto& stay = service_->relaxations().stay().get();
  const std::int64_t guests = stay ? stay->guests : 0;
  if (guests < OnlookerRules::mostGuests) {
    auto* row = new MenuBarButton(QStringLiteral("person.2.fill"), qtTrId("Je ne suis pas seul"));
    const auto welcome = [this](std::optional<std::int64_t> durationMs) {
      return [this, durationMs] { service_->relaxations().addGuest(durationMs); };
    };
    addUnfolding(rows, Row::guests, row,
                 {{qtTrId("30 minutes"), welcome(30 * minuteMs)},
                  {qtTrId("1 heure"), welcome(60 * minuteMs)},
                  {qtTrId("Jusqu'au verrouillage"), welcome(std::nullopt)}});
  }
  if (guests == 0) return;
  auto* alone = new MenuBarButton(QStringLiteral("person.fill"), qtTrId("Je suis seul"));
  if (stay->untilMs) alone->setEnd(timeLeft(*stay->untilMs));
  connect(alone, &QAbstractButton::clicked, this, [this] { service_->relaxations().sendGuestsAway(); });
  rows.push_back(alone);
}

void RelaxationRows::addUnfolding(std::vector<QWidget*>& rows, Row row, MenuBarButton* button,
                                  const std::vector<Choice>& choices) {
  const bool isUnfolded = unfolded_ == row;
  button->setUnfolding(isUnfolded ? MenuBarButton::Unfolding::unfolded : MenuBarButton::Unfolding::folded);
  connect(button, &QAbstractButton::clicked, this,
          [this, row, isUnfolded] { unfold(isUnfolded ? Row::none : row); });
  rows.push_back(button);
  if (!isUnfolded) return;
  for (const Choice& choice : choices) {
    auto* choose = new MenuBarButton({}, choice.words);
    connect(choose, &QAbstractButton::clicked, this, [this, chosen = choice.chosen] {
      unfolded_ = Row::none;
      chosen();
    });
    rows.push_back(choose);
  }
}

void RelaxationRows::unfold(Row row) {
  unfolded_ = row;
  fadeOver(*this, 150);
  build();
}

void RelaxationRows::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape && unfolded_ != Row::none) {
    unfold(Row::none);
  } else {
    QWidget::keyPressEvent(event);
  }
}

/// "14 min", and hours where there are some.
QString RelaxationRows::timeLeft(std::int64_t endMs) const {
  const std::int64_t minutes = std::max<std::int64_t>(1, (endMs - clock_->nowMs() + minuteMs - 1) / minuteMs);
  if (minutes < 60) return qtTrId("%1 min").arg(minutes);
  return qtTrId("%1 h %2").arg(minutes / 60).arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

}  // namespace sentrel
