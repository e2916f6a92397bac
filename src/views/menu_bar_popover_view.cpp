// SPDX-License-Identifier: Apache-2.0
#include "views/menu_bar_popover_view.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <algorithm>
#include <utility>

#include "views/about_view.h"
#include "views/controls/dialog.h"
#include "views/controls/divider.h"
#include "views/controls/menu_bar_button.h"
#include "views/stats_view.h"
#include "views/status_words.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int viewWidth = 320;
constexpr int widthAddedForText = 120;  // at 200 %
constexpr int side = 16;
constexpr int logoPixels = 48;
constexpr int logoToWords = 12;
constexpr int between = 10;
constexpr int headerHeight = 88;
constexpr int homeHeight = 280;
constexpr int statsHeight = 400;
constexpr int aboutHeight = 440;

EyeLogo::Mood moodOf(const FilterState& state) {
  switch (state.kind()) {
    case FilterState::Kind::nominal:
    case FilterState::Kind::inattention:
      return EyeLogo::Mood::active;
    case FilterState::Kind::alert:
      return EyeLogo::Mood::alert;
    case FilterState::Kind::autoPaused:
    case FilterState::Kind::cameraBusy:
    case FilterState::Kind::inactive:
      break;
  }
  return EyeLogo::Mood::idleClosed;
}

}  // namespace

MenuBarPopoverView::MenuBarPopoverView(Parts parts, QWidget* parent)
    : QWidget(parent), parts_(std::move(parts)), stack_(new QVBoxLayout(this)), home_(new ScrollPage(this)) {
  stack_->setContentsMargins(0, 0, 0, 0);
  home_->setPage(buildHome());
  stack_->addWidget(home_);
  switch_->setFocus(Qt::OtherFocusReason);
  stateRegistration_ =
      parts_.service->fsmState().subscribe([this](const FilterState& state) { showState(state); });
  activeRegistration_ =
      parts_.service->isActive().subscribe([this](bool active) { switch_->setChecked(active); });
  startingRegistration_ =
      parts_.service->isStarting().subscribe([this](bool starting) { switch_->setWaiting(starting); });
  failureRegistration_ =
      parts_.failure->subscribe([this](const std::optional<CameraFailure>&) { showFailure(); });
}

QWidget* MenuBarPopoverView::buildHome() {
  auto* home = new QWidget;
  auto* column = new QVBoxLayout(home);
  column->setContentsMargins(0, 0, 0, side);
  column->setSpacing(0);
  column->addLayout(buildHeader(), 1);
  column->addLayout(insetDivider(side, side));
  column->addSpacing(between);
  addRow(*column, QStringLiteral("chart.bar.fill"), qtTrId("home_open_stats"),
         [this] { showPage(Page::stats); });
  addRow(*column, QStringLiteral("gearshape.fill"), qtTrId("home_open_settings"),
         [this] { parts_.openPreferences(); });
  addRow(*column, QStringLiteral("info.circle.fill"), qtTrId("about_title"),
         [this] { showPage(Page::about); });
  column->addSpacing(between);
  column->addLayout(insetDivider(side, side));
  column->addSpacing(between);
  addRow(*column, QStringLiteral("xmark.circle.fill"), QStringLiteral("Quitter"), [this] { parts_.quit(); });
  return home;
}

QLayout* MenuBarPopoverView::buildHeader() {
  auto* header = new QHBoxLayout;
  header->setContentsMargins(side, 8, side, 8);
  header->addStrut(qRound(headerHeight * Theme::shared().textScale()) - 16);
  header->setSpacing(logoToWords);
  logo_ = new EyeLogo(logoPixels);
  header->addWidget(logo_);

  auto* words = new QVBoxLayout;
  words->setSpacing(2);
  auto* title = new TextLabel(TextRole::popoverTitle, &AppColors::primary);
  title->setWords(QStringLiteral("Sentrel"));
  status_ = new TextLabel(TextRole::caption);
  cause_ = new TextLabel(TextRole::caption, &AppColors::textSecondary);
  words->addStretch();
  words->addWidget(title);
  words->addWidget(status_);
  words->addWidget(cause_);
  words->addStretch();
  header->addLayout(words, 1);

  switch_ = new ToggleSwitch(qtTrId("Protection"), ToggleSwitch::Click::asks);
  // The switch itself follows what the service publishes.
  connect(switch_, &ToggleSwitch::clicked, this, [this] { parts_.service->toggle(); });
  header->addWidget(switch_);
  return header;
}

void MenuBarPopoverView::addRow(QVBoxLayout& column, const QString& icon, const QString& label,
                                std::function<void()> action) {
  auto* row = new MenuBarButton(icon, label);
  connect(row, &MenuBarButton::clicked, this, [call = std::move(action)] { call(); });
  column.addWidget(row);
}

void MenuBarPopoverView::showState(const FilterState& state) {
  const auto [words, color] = statusWords(state);
  status_->setWords(words);
  status_->setColor(color);
  switch_->setAccessibleDescription(words);
  logo_->setMood(moodOf(state));
}

void MenuBarPopoverView::showFailure() {
  const QString words = failureWords(parts_.failure->get());
  cause_->setWords(words.isEmpty() ? parts_.notice : words);
  cause_->setVisible(!cause_->words().isEmpty());
}

MenuBarPopoverView::Page MenuBarPopoverView::page() const {
  return showStats ? Page::stats : showAbout ? Page::about : Page::home;
}

bool MenuBarPopoverView::asks() const {
  const auto* stats = dynamic_cast<const StatsView*>(page_);
  return address_ || (stats != nullptr && stats->showResetConfirm());
}

void MenuBarPopoverView::openLink(const QUrl& address) {
  parts_.openLink(address, [view = QPointer<QWidget>(this), this, words = address.toString()] {
    if (view && !address_) showAddress(words);
  });
}

void MenuBarPopoverView::showAddress(const QString& address) {
  address_ = openDialog(*this, {.symbol = QStringLiteral("arrow.up.right.square"),
                                .color = &AppColors::primary,
                                .words = address,
                                .cancel = qtTrId("Fermer"),
                                .confirm = qtTrId("link_copy"),
                                .kind = PushButton::Kind::primary,
                                .confirmed = [address] { QGuiApplication::clipboard()->setText(address); }});
  address_->onClosed = [this] { address_.clear(); };
}

void MenuBarPopoverView::showPage(Page page) {
  if (page == this->page()) return;
  if (address_) address_->dismiss();
  showStats = page == Page::stats;
  showAbout = page == Page::about;
  if (page_ != nullptr) {
    page_->hide();
    page_->deleteLater();
    page_ = nullptr;
  }
  const auto back = [this] { showPage(Page::home); };
  const Footer footer{parts_.projectsPage, [this](const QUrl& address) { openLink(address); }};
  if (showStats) page_ = new StatsView(parts_.statsRepo, footer, back, this);
  if (showAbout) page_ = new AboutView(parts_.version, footer, back, this);
  home_->setVisible(page_ == nullptr);
  if (page_ != nullptr) {
    stack_->addWidget(page_);
    page_->show();
  }
  updateGeometry();
  if (onSizeChanged) onSizeChanged();
  (page_ == nullptr ? static_cast<QWidget*>(switch_) : page_)->setFocus(Qt::OtherFocusReason);
}

QSize MenuBarPopoverView::sizeHint() const {
  const int width = viewWidth + qRound(widthAddedForText * (Theme::shared().textScale() - 1));
  const int least = showStats ? statsHeight : showAbout ? aboutHeight : homeHeight;
  const int wanted =
      stack_->hasHeightForWidth() ? stack_->totalHeightForWidth(width) : stack_->totalSizeHint().height();
  return {width, std::max(least, wanted)};
}

bool MenuBarPopoverView::event(QEvent* event) {
  const bool handled = QWidget::event(event);
  if (event->type() == QEvent::LayoutRequest && onSizeChanged) onSizeChanged();
  return handled;
}

void MenuBarPopoverView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Down) {
    focusNextPrevChild(true);
  } else if (event->key() == Qt::Key_Up) {
    focusNextPrevChild(false);
  } else if (event->key() == Qt::Key_Escape && page_ != nullptr) {
    showPage(Page::home);
  } else {
    QWidget::keyPressEvent(event);
  }
}

}  // namespace sentrel
