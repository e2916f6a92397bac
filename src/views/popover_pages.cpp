// SPDX-License-Identifier: Apache-2.0
#include "views/popover_pages.h"

#include <utility>

#include "look/icons.h"
#include "views/controls/labels.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int side = 16;
constexpr int tileGap = 8;
constexpr int tilePadding = 14;
constexpr int smallestNumber = 16;
}  // namespace

QString formatTime(std::int64_t seconds) {
  const std::int64_t minutes = seconds % 3600 / 60;
  if (seconds < 3600) return QStringLiteral("%1m").arg(minutes);
  return QStringLiteral("%1h %2m").arg(seconds / 3600).arg(minutes);
}

QWidget* pageToolbar(QWidget& page, const QString& title, const std::function<void()>& dismissed) {
  auto* toolbar = new QWidget;
  toolbar->setMinimumHeight(48);
  auto* back = new PushButton(PushButton::Kind::plain, qtTrId("stats_back"));
  back->setSymbol(QStringLiteral("chevron.left"));
  QObject::connect(back, &PushButton::clicked, &page, dismissed);
  page.setFocusProxy(back);
  auto* words = new TextLabel(TextRole::headline, title);
  words->setAlignment(Qt::AlignVCenter);
  words->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Preferred);
  auto* line = lineIn(toolbar, {12, 0, 12, 0}, 8, {back, {stretch, 1}, words, {stretch, 1}});
  // As wide as the button on the other side, so that the title stands in the middle where there is space.
  line->addSpacerItem(new QSpacerItem(back->sizeHint().width(), 0, QSizePolicy::Maximum));
  return toolbar;
}

// StatCard.

StatCard::StatCard(const QString& symbol, const QString& labelText, Highlight emphasis)
    : symbol_(symbol), label(labelText), highlight(emphasis == Highlight::yes) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setAccessibleRole(*this, QAccessible::StaticText);
}

void StatCard::setValue(const QString& words) {
  value = words;
  // One thing to read for assistive technology: "Alertes : 12".
  setAccessibleName(label + QStringLiteral("\u00A0: ") + value);
  update();
}

QSize StatCard::sizeHint() const {
  const Theme& theme = Theme::shared();
  return {2 * tilePadding, highlight ? theme.grown(112, 40 + 18) : theme.grown(96, 30 + 18)};
}

void StatCard::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const Theme& theme = Theme::shared();
  const QColor edge = highlight ? c.primary : theme.highContrast() ? c.border : QColor();
  QPainter painter(this);
  paintBox(painter, QRectF(rect()), 12, highlight ? c.tonal : c.surfaceAlt, edge);
  const double symbol = theme.iconSize(18);
  paintSymbol(painter, symbol_, QRectF(tilePadding, tilePadding, symbol, symbol),
              highlight ? c.primary : c.textSecondary);

  const double available = width() - 2 * tilePadding;
  QFont number = theme.font(highlight ? TextRole::numberLarge : TextRole::numberMedium);
  while (number.pixelSize() > smallestNumber && QFontMetricsF(number).horizontalAdvance(value) > available) {
    number.setPixelSize(number.pixelSize() - 1);
  }
  const double labelHeight = 18 * theme.textScale();
  const double numberHeight = (highlight ? 40 : 30) * theme.textScale();
  const double labelTop = height() - 11 - labelHeight;
  paintWords(painter, QRectF(tilePadding, labelTop - numberHeight, available, numberHeight), value, number,
             highlight ? c.primary : c.text);
  paintWords(painter, QRectF(tilePadding, labelTop, available, labelHeight), label,
             theme.font(TextRole::subheadline), c.textSecondary);
}

// StatsView.

StatsView::StatsView(Parts parts, QWidget* footer, const std::function<void()>& dismissed)
    : parts_(std::move(parts)), journal_(new JournalCards(*this, parts_.settingsRepo, parts_.journal)) {
  auto* header = new TextLabel(TextRole::subheadline, qtTrId("stats_header"), &AppColors::textSecondary);
  auto* alerts = new StatCard(QStringLiteral("eye.trianglebadge.exclamationmark.fill"),
                              qtTrId("stats_alerts_label"), StatCard::Highlight::yes);
  auto* sessions =
      new StatCard(QStringLiteral("eye.fill"), qtTrId("stats_sessions_label"), StatCard::Highlight::no);
  auto* time =
      new StatCard(QStringLiteral("clock.fill"), qtTrId("stats_time_label"), StatCard::Highlight::no);
  auto* reset = new PushButton(PushButton::Kind::secondary, qtTrId("stats_reset"));
  reset->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  connect(reset, &PushButton::clicked, this, &StatsView::askForReset);
  auto* page = new QWidget;
  auto* body = columnIn(page, {side, 12, side, 12}, 0,
                        {header,
                         9,
                         alerts,
                         tileGap,
                         lineIn(nullptr, {}, tileGap, {{sessions, 1}, {time, 1}}),
                         journal_,
                         12,
                         reset,
                         {stretch, 1}});
  if (footer != nullptr) addItems(*body, {8, centred(footer)});
  auto* scroll = new ScrollPage;
  scroll->setPage(page);
  columnIn(this, {}, 0, {pageToolbar(*this, qtTrId("stats_title"), dismissed), divider(), {scroll, 1}});

  statsRegistration_ = parts_.statsRepo->stats.subscribe([alerts, sessions, time](const FilterStats& stats) {
    alerts->setValue(QString::number(stats.alertCount));
    sessions->setValue(QString::number(stats.sessionCount));
    time->setValue(formatTime(stats.totalActiveSeconds));
  });
}

void StatsView::askForReset() {
  if (asks()) return;
  QString words = qtTrId("stats_reset_confirm");
  if (parts_.settingsRepo->options.get().journal == JournalWish::kept)
    words += u' ' + qtTrId("Le journal des alertes est effacé aussi.");
  // Over this view, to go with it: another page may be opened from outside.
  confirm_ = openDialog(*this, {.symbol = QStringLiteral("exclamationmark.triangle.fill"),
                                .color = &AppColors::warningGraphic,
                                .words = words,
                                .cancel = qtTrId("stats_reset_cancel"),
                                .confirm = qtTrId("stats_reset_yes"),
                                .kind = PushButton::Kind::destructive,
                                .confirmed = [this] {
                                  parts_.statsRepo->reset();
                                  parts_.journal->erase();
                                  journal_->refresh();
                                }});
  confirm_->onClosed = [this] { confirm_.clear(); };
}

// AboutView.

namespace {

/// A title over a paragraph.
class AboutSection final : public QWidget {
 public:
  AboutSection(const QString& title, const QString& text) {
    columnIn(this, {}, 1,
             {new TextLabel(TextRole::subheadlineStrong, title),
              new TextLabel(TextRole::subheadline, text, &AppColors::textSecondary)});
  }
};

}  // namespace

AboutView::AboutView(const QString& version, QWidget* footer, const Leaves& leaves)
    : ToolbarPage(qtTrId("Fermer"), {10, 5, 0, 0}) {
  connect(leaveButton(), &PushButton::clicked, this, leaves.dismissed);
  setFocusProxy(leaveButton());
  const auto leading = [this](const QString& words, const std::function<void()>& leave) {
    auto* button = new PushButton(PushButton::Kind::secondary, words);
    connect(button, &PushButton::clicked, this, leave);
    return button;
  };
  auto* verify = leading(qtTrId("Vérifier par vous-même…"), leaves.verify);
  auto* diagnose = leading(qtTrId("report_title") + u'…', leaves.diagnose);
  auto* sections =
      columnIn(nullptr, {20, 0, 20, 0}, 14,
               {new AboutSection(qtTrId("about_developer_title"), qtTrId("about_developer_body")),
                new AboutSection(qtTrId("about_project_title"), qtTrId("about_project_body")),
                new AboutSection(qtTrId("about_privacy_title"), qtTrId("about_privacy_body")),
                {verify, 0, Qt::AlignLeft},
                {diagnose, 0, Qt::AlignLeft}});
  auto* page = new QWidget;
  auto* column = columnIn(
      page, {}, 0,
      {26,
       centred(new Canvas(paintAppIcon, 64)),
       5,
       centredLabel(TextRole::title2, QStringLiteral("Sentrel")),
       centredLabel(TextRole::caption, qtTrId("about_version") + u' ' + version, &AppColors::textSecondary),
       12,
       insetDivider(side, side),
       12,
       sections,
       {stretch, 1}});
  if (footer != nullptr) {
    addItems(*column, {12, insetDivider(side, side), 8, centred(footer), 11});
  } else {
    column->addSpacing(16);
  }
  setPage(page);
}

}  // namespace sentrel
