// SPDX-License-Identifier: Apache-2.0
#include "views/stats_view.h"

#include <QFocusEvent>
#include <QHBoxLayout>
#include <QVBoxLayout>
#include <utility>

#include "views/controls/dialog.h"
#include "views/controls/divider.h"
#include "views/controls/push_button.h"
#include "views/controls/scroll_page.h"
#include "views/controls/stat_card.h"
#include "views/controls/text_label.h"

namespace sentrel {

namespace {

constexpr int side = 16;
constexpr int toolbarHeight = 48;

}  // namespace

QString formatTime(std::int64_t seconds) {
  const std::int64_t minutes = seconds % 3600 / 60;
  if (seconds < 3600) return QStringLiteral("%1m").arg(minutes);
  return QStringLiteral("%1h %2m").arg(seconds / 3600).arg(minutes);
}

StatsView::StatsView(std::shared_ptr<StatsRepository> repository, const Footer& footer,
                     std::function<void()> dismissed, QWidget* parent)
    : QWidget(parent), statsRepo(std::move(repository)), dismiss(std::move(dismissed)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  column->addWidget(buildToolbar());
  column->addWidget(new Divider(this));

  auto* page = new QWidget;
  auto* body = new QVBoxLayout(page);
  body->setContentsMargins(side, 12, side, 12);
  body->setSpacing(0);
  auto* header = new TextLabel(TextRole::subheadline, &AppColors::textSecondary);
  header->setWords(qtTrId("stats_header"));
  body->addWidget(header);
  body->addSpacing(9);
  auto* alerts = new StatCard(QStringLiteral("eye.trianglebadge.exclamationmark.fill"),
                              qtTrId("stats_alerts_label"), StatCard::Highlight::yes);
  auto* sessions =
      new StatCard(QStringLiteral("eye.fill"), qtTrId("stats_sessions_label"), StatCard::Highlight::no);
  auto* time =
      new StatCard(QStringLiteral("clock.fill"), qtTrId("stats_time_label"), StatCard::Highlight::no);
  body->addWidget(alerts);
  body->addSpacing(8);
  auto* pair = new QHBoxLayout;
  pair->setSpacing(8);
  pair->addWidget(sessions, 1);
  pair->addWidget(time, 1);
  body->addLayout(pair);
  body->addSpacing(12);
  auto* reset = new PushButton(PushButton::Kind::secondary, qtTrId("stats_reset"));
  reset->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  connect(reset, &PushButton::clicked, this, [this] { askForReset(); });
  body->addWidget(reset);
  body->addStretch(1);
  if (QWidget* link = footer.build(page)) body->addWidget(link, 0, Qt::AlignHCenter);
  auto* scroll = new ScrollPage(this);
  scroll->setPage(page);
  column->addWidget(scroll, 1);

  statsRegistration_ = statsRepo->stats.subscribe([alerts, sessions, time](const FilterStats& stats) {
    alerts->setValue(QString::number(stats.alertCount));
    sessions->setValue(QString::number(stats.sessionCount));
    time->setValue(formatTime(stats.totalActiveSeconds));
  });
}

QWidget* StatsView::buildToolbar() {
  auto* toolbar = new QWidget(this);
  toolbar->setMinimumHeight(toolbarHeight);
  auto* line = new QHBoxLayout(toolbar);
  line->setContentsMargins(12, 0, 12, 0);
  line->setSpacing(8);
  auto* back = new PushButton(PushButton::Kind::plain, qtTrId("stats_back"));
  back->setSymbol(QStringLiteral("chevron.left"));
  connect(back, &PushButton::clicked, this, [this] { dismiss(); });
  back_ = back;
  auto* title = new TextLabel(TextRole::headline);
  title->setWords(qtTrId("stats_title"));
  title->setAlignment(Qt::AlignVCenter);
  title->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Preferred);
  // As wide as the button on the other side, so that the title stands in the middle where there is room.
  auto* balance = new QSpacerItem(back->sizeHint().width(), 0, QSizePolicy::Maximum);
  line->addWidget(back);
  line->addStretch(1);
  line->addWidget(title);
  line->addStretch(1);
  line->addSpacerItem(balance);
  return toolbar;
}

void StatsView::focusInEvent(QFocusEvent* event) {
  QWidget::focusInEvent(event);
  back_->setFocus(event->reason());
}

void StatsView::askForReset() {
  if (confirm_ != nullptr) return;
  // Over this view, to go with it: another page may be opened from outside.
  confirm_ = openDialog(*this, {.symbol = QStringLiteral("exclamationmark.triangle.fill"),
                                .color = &AppColors::warningGraphic,
                                .words = qtTrId("stats_reset_confirm"),
                                .cancel = qtTrId("stats_reset_cancel"),
                                .confirm = qtTrId("stats_reset_yes"),
                                .kind = PushButton::Kind::destructive,
                                .confirmed = [this] { statsRepo->reset(); }});
  confirm_->onClosed = [this] { confirm_.clear(); };
}

}  // namespace sentrel
