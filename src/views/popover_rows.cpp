// SPDX-License-Identifier: Apache-2.0
#include "views/popover_rows.h"

#include <QApplication>
#include <QDateTime>
#include <algorithm>
#include <utility>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int outside = 4;  // left and right of a row
constexpr int inside = 16;  // between a row's edge and the symbol's frame
constexpr int iconFrame = 20;
constexpr int iconGap = 8;
constexpr int endGap = 12;
constexpr int chevron = 12;
constexpr double rowRadius = 6;
constexpr int unfoldMs = 150;

constexpr int side = 16;  // beside what is no row
constexpr int between = 10;

constexpr std::int64_t minuteMs = 60'000;
constexpr int tickMs = 15'000;

}  // namespace

// One row.

MenuBarButton::MenuBarButton(const QString& symbol, const QString& label)
    : DrawnButton(TextRole::body, label),
      icon(symbol),
      presence_(*this, unfoldMs, QEasingCurve::OutCubic, 1) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void MenuBarButton::setEnd(const QString& words) {
  if (words == end_) return;
  end_ = words;
  setAccessibleDescription(words);
  updateGeometry();
  update();
}

void MenuBarButton::setUnfolding(Unfolding unfolding) {
  unfolding_ = unfolding;
  setAccessibleDescription(unfolding == Unfolding::folded ? qtTrId("Replié") : qtTrId("Déplié"));
  update();
}

QSize MenuBarButton::sizeHint() const {
  const Theme& theme = Theme::shared();
  const QFontMetrics metrics(font());
  const int start = inside + theme.iconSize(iconFrame) + iconGap;
  int end = end_.isEmpty() ? 0 : endGap + metrics.horizontalAdvance(end_);
  if (unfolding_ != Unfolding::none) end += iconGap + theme.iconSize(chevron);
  return {2 * outside + start + metrics.horizontalAdvance(text()) + end + inside,
          theme.grown(isChoice() ? 32 : 36)};
}

QRectF MenuBarButton::row() const {
  return QRectF(rect()).adjusted(outside, 0, -outside, 0);
}

MenuBarButton::Outline MenuBarButton::focusOutline() const {
  return {.rect = row(), .radius = rowRadius, .gap = -2};
}

void MenuBarButton::showEvent(QShowEvent* event) {
  DrawnButton::showEvent(event);
  if (!isChoice()) return;
  presence_.jumpTo(0);
  presence_.glideTo(1);
}

void MenuBarButton::paintEvent(QPaintEvent* /*event*/) {
  const Theme& theme = Theme::shared();
  QPainter painter(this);
  painter.setOpacity(presence_.value());
  const QRectF line = row();
  paintGround(painter, line, rowRadius, 0.06, 0.12);
  const int frame = theme.iconSize(iconFrame);
  if (!isChoice()) {
    paintSymbol(painter, icon, squareIn(QRectF(line.left() + inside, 0, frame, height()), theme.iconSize(17)),
                colors().textSecondary);
  }
  QRectF words = line.adjusted(inside + frame + iconGap, 0, -inside, 0);
  if (unfolding_ != Unfolding::none) {
    const double size = theme.iconSize(chevron);
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

// Times.

QString timeOfDay(std::int64_t endMs, std::int64_t nowMs) {
  return QDateTime::currentDateTime().addMSecs(endMs - nowMs).toString(QStringLiteral("H:mm"));
}

QString timeSpan(std::int64_t minutes) {
  minutes = std::max<std::int64_t>(1, minutes);
  if (minutes < 60) return qtTrId("%1 min").arg(minutes);
  return qtTrId("%1 h %2").arg(minutes / 60).arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

// What can be allowed.

RelaxationRows::RelaxationRows(std::shared_ptr<PrivacyFilterService> service,
                               std::shared_ptr<const Clock> clock, QWidget* parent)
    : QWidget(parent),
      service_(std::move(service)),
      clock_(std::move(clock)),
      nobodyBox_(makeNobody()),
      pause_(makePause()),
      resume_(new MenuBarButton(QStringLiteral("pause.circle.fill"), qtTrId("Reprendre"))),
      guests_(makeGuests()),
      alone_(new MenuBarButton(QStringLiteral("person.fill"), qtTrId("Je suis seul"))) {
  // All of it is here from the beginning, so that the Tab key finds it in this order.
  columnIn(this, {}, 0,
           {nobodyBox_, pause_.row, pause_.choices, resume_, guests_.row, guests_.choices, alone_, between,
            insetDivider(side, side), between});
  connect(resume_, &QAbstractButton::clicked, this, [this] { service_->relaxations().resume(); });
  connect(alone_, &QAbstractButton::clicked, this, [this] { service_->relaxations().sendGuestsAway(); });
  connect(&ticks_, &QTimer::timeout, this, [this] { showTimes(); });
  const auto changed = [this](const auto&) { refresh(); };
  const Relaxations& relaxations = service_->relaxations();
  registrations_ = {service_->isActive().onChange(changed), service_->isAlert().onChange(changed),
                    service_->fsmState().onChange(changed), relaxations.pauseEndMs().onChange(changed),
                    relaxations.stay().onChange(changed),   relaxations.filter.ignored().onChange(changed)};
  refresh();
}

QWidget* RelaxationRows::makeNobody() {
  nobody_ = new PushButton(PushButton::Kind::secondary, qtTrId("Ce n'est personne"));
  nobody_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  connect(nobody_, &QAbstractButton::clicked, this, [this] {
    OnlookerFilter& filter = service_->relaxations().filter;
    isTooFar_ = !filter.ignoreOnlooker() && filter.isTooFarToIgnore();
    refresh();
  });
  whyNot_ = centredLabel(TextRole::caption, {}, &AppColors::textSecondary);
  whyNot_->setBalanced(true);
  auto* box = new QWidget;
  columnIn(box, {side, 0, side, 0}, 6, {nobody_, whyNot_});
  return box;
}

RelaxationRows::Fold RelaxationRows::makePause() {
  const auto pause = [this](std::int64_t durationMs) { service_->relaxations().pause(durationMs); };
  const auto untilMorning = [pause] {
    const QDateTime now = QDateTime::currentDateTime();
    const std::int64_t leftMs = now.msecsTo(QDateTime(now.date().addDays(1), QTime(8, 0)));
    pause(std::min(leftMs, Relaxations::longestMs));
  };
  return makeFold(QStringLiteral("pause.circle.fill"), qtTrId("Mettre en pause"),
                  {{qtTrId("15 minutes"), [pause] { pause(15 * minuteMs); }},
                   {qtTrId("1 heure"), [pause] { pause(60 * minuteMs); }},
                   {qtTrId("Jusqu'à demain 8 h"), untilMorning}});
}

RelaxationRows::Fold RelaxationRows::makeGuests() {
  const auto welcome = [this](std::optional<std::int64_t> durationMs) {
    return [this, durationMs] { service_->relaxations().addGuest(durationMs); };
  };
  return makeFold(QStringLiteral("person.2.fill"), qtTrId("Je ne suis pas seul"),
                  {{qtTrId("30 minutes"), welcome(30 * minuteMs)},
                   {qtTrId("1 heure"), welcome(60 * minuteMs)},
                   {qtTrId("Jusqu'au verrouillage"), welcome(std::nullopt)}});
}

RelaxationRows::Fold RelaxationRows::makeFold(const QString& symbol, const QString& label,
                                              const std::vector<Choice>& choices) {
  const Fold made{new MenuBarButton(symbol, label), new QWidget};
  made.row->setUnfolding(MenuBarButton::Unfolding::folded);
  auto* column = columnIn(made.choices);
  for (const Choice& choice : choices) {
    auto* choose = new MenuBarButton({}, choice.words);
    choose->setAccessibleDescription(label);
    connect(choose, &QAbstractButton::clicked, this, [this, chosen = choice.chosen] {
      fold();
      chosen();
    });
    column->addWidget(choose);
  }
  made.choices->hide();
  connect(made.row, &QAbstractButton::clicked, this, [this, row = made.row] {
    const Fold& clicked = row == pause_.row ? pause_ : guests_;
    unfold(unfolded_ == &clicked ? nullptr : &clicked);
  });
  return made;
}

// What is shown of it.

void RelaxationRows::unfold(const Fold* fold) {
  unfolded_ = fold;
  const auto show = [fold](const Fold& each) {
    const bool isUnfolded = &each == fold;
    const bool hadFocus = each.choices->isAncestorOf(QApplication::focusWidget());
    each.choices->setVisible(isUnfolded);
    each.row->setUnfolding(isUnfolded ? MenuBarButton::Unfolding::unfolded
                                      : MenuBarButton::Unfolding::folded);
    if (hadFocus && !isUnfolded) each.row->setFocus(Qt::OtherFocusReason);
  };
  show(pause_);
  show(guests_);
}

bool RelaxationRows::fold() {
  const bool wasUnfolded = unfolded_ != nullptr;
  unfold(nullptr);
  return wasUnfolded;
}

void RelaxationRows::refresh() {
  const Relaxations& relaxations = service_->relaxations();
  const bool isAlert = service_->isAlert();
  const bool chooses = service_->isActive() && !isAlert;
  const bool isPaused = relaxations.pauseEndMs().get().has_value();
  const auto& stay = relaxations.stay().get();
  const std::int64_t guests = stay ? stay->guests : 0;
  const bool canPause = chooses && !isPaused;
  const bool canWelcome = canPause && !relaxations.refusesGuests() && guests < OnlookerRules::mostGuests;
  const bool hadFocus = isAncestorOf(QApplication::focusWidget());
  if ((unfolded_ == &pause_ && !canPause) || (unfolded_ == &guests_ && !canWelcome)) fold();

  showNobody(isAlert);
  pause_.row->setVisible(canPause);
  resume_->setVisible(chooses && isPaused);
  guests_.row->setVisible(canWelcome);
  alone_->setVisible(canPause && guests > 0);
  showTimes();
  setVisible(service_->isActive());
  if (hadFocus) keepFocus();
}

/// The row that had the focus may have gone.
void RelaxationRows::keepFocus() {
  QWidget* const now = QApplication::focusWidget();
  if (now != nullptr && now->isVisible() && isAncestorOf(now)) return;
  for (QWidget* each :
       {static_cast<QWidget*>(nobody_), static_cast<QWidget*>(resume_), static_cast<QWidget*>(pause_.row)}) {
    if (each->isVisible() && each->isEnabled()) return each->setFocus(Qt::OtherFocusReason);
  }
}

void RelaxationRows::showNobody(bool isAlert) {
  const auto& places = service_->relaxations().filter.ignored().get();
  const bool isWatched = !std::ranges::all_of(places, &IgnoredPlace::isPaper);
  const bool isFull = places.size() >= OnlookerFilter::mostIgnored;
  isTooFar_ = isTooFar_ && isAlert;
  nobodyBox_->setVisible(isAlert);
  nobody_->setEnabled(!isWatched && !isFull && !isTooFar_);
  whyNot_->setWords(isWatched ? qtTrId("Il alerte encore, et sera ignoré s'il reste immobile 10 s d'ici 30 s")
                    : isFull  ? qtTrId("Trois visages sont déjà ignorés")
                              : qtTrId("Trop loin pour savoir s'il est immobile"));
  whyNot_->setVisible(!nobody_->isEnabled());
}

void RelaxationRows::showTimes() {
  const Relaxations& relaxations = service_->relaxations();
  const auto& pauseEnd = relaxations.pauseEndMs().get();
  const auto& stay = relaxations.stay().get();
  // A minute that has begun counts.
  const auto left = [this](const std::optional<std::int64_t>& endMs) {
    return endMs ? timeSpan((*endMs - clock_->nowMs() + minuteMs - 1) / minuteMs) : QString();
  };
  resume_->setEnd(left(pauseEnd));
  alone_->setEnd(stay ? left(stay->untilMs) : QString());
  const bool countsDown = pauseEnd || (stay && stay->untilMs);
  countsDown ? ticks_.start(tickMs) : ticks_.stop();
}

}  // namespace sentrel
