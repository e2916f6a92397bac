// SPDX-License-Identifier: Apache-2.0
#include "views/popover.h"

#include <QClipboard>
#include <QCloseEvent>
#include <QGraphicsOpacityEffect>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <algorithm>
#include <cmath>
#include <utility>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/desktop_words.h"
#include "views/popover_pages.h"
#include "views/popover_rows.h"
#include "views/privacy_view.h"
#include "views/theme.h"

namespace sentrel {

// The words.

StatusWords statusWords(const FilterState& state) {
  switch (state.kind()) {
    case FilterState::Kind::nominal:
    case FilterState::Kind::inattention:
      return {qtTrId("home_status_active"), &AppColors::success};
    case FilterState::Kind::autoPaused:
      return {QStringLiteral("En pause"), &AppColors::textSecondary};
    case FilterState::Kind::cameraBusy:
      return {QStringLiteral("Caméra indisponible"), &AppColors::success};
    case FilterState::Kind::alert:
      return {qtTrId("notif_alert_title"), &AppColors::error};
    case FilterState::Kind::inactive:
      break;
  }
  return {qtTrId("home_status_inactive"), &AppColors::textSecondary};
}

QString relaxationWords(const Relaxations& relaxations, std::int64_t nowMs) {
  if (const auto end = relaxations.pauseEndMs().get())
    return qtTrId("Reprend à %1, ou au déverrouillage").arg(timeOfDay(*end, nowMs));
  if (relaxations.isScreenShared() && relaxations.whenShared() == WhenShared::hideStripes)
    return qtTrId("Écran partagé : bandes masquées");
  if (relaxations.isScreenShared() && relaxations.whenShared() == WhenShared::pause)
    return qtTrId("Écran partagé : en pause");
  const auto& stay = relaxations.stay().get();
  if (!stay) return {};
  return stay->guests == 1 ? qtTrId("1 invité") : qtTrId("%1 invités").arg(stay->guests);
}

QString limitationWords(const OverlayBackend& backend) {
  const std::string key = backend.limitation();
  return key.empty() ? QString() : qtTrId(key.c_str());
}

QString failureWords(const std::optional<CameraFailure>& failure) {
  return failure ? qtTrId(textKey(failure->kind)) : QString();
}

namespace {

QString conditionWords(const CameraCondition& condition) {
  using Kind = CameraCondition::Kind;
  switch (condition.kind) {
    case Kind::covered:
      return qtTrId("Caméra couverte ou volet fermé");
    case Kind::tooDark:
      return qtTrId("Trop sombre pour bien voir");
    case Kind::frozen:
      return qtTrId("Image figée");
    case Kind::nobody:
      return qtTrId("Vous n'êtes pas dans le champ");
    case Kind::backlight:
      return qtTrId("Contre-jour");
    case Kind::usedBy: {
      const QString name = presentable(QString::fromStdString(condition.user));
      return qtTrId("Caméra utilisée par %1").arg(name.isEmpty() ? qtTrId("un autre programme") : name);
    }
    case Kind::noPicture:
      break;
  }
  const QString time = condition.seconds < 60 ? QStringLiteral("%1 s").arg(condition.seconds)
                                              : timeSpan(condition.seconds / 60);
  return qtTrId("Aucune image depuis %1").arg(time);
}

}  // namespace

StatusWords cameraWords(const std::optional<CameraFailure>& failure,
                        const std::optional<CameraCondition>& condition) {
  if (!condition) return {failureWords(failure), &AppColors::textSecondary};
  return {conditionWords(*condition), condition->isSerious ? &AppColors::warning : &AppColors::textSecondary};
}

QString ignoredWords(std::size_t places) {
  if (places == 0) return {};
  return places == 1 ? qtTrId("1 visage ignoré") : qtTrId("%1 visages ignorés").arg(places);
}

QString originWords(std::optional<RemoteControl::Origin> origin) {
  if (!origin) return {};
  return *origin == RemoteControl::Origin::command ? qtTrId("par une commande")
                                                   : qtTrId("par la notification");
}

// The buttons.

namespace {

/// A link, perhaps after words and the separator "·", perhaps with a symbol after it.
class LinkButton final : public DrawnButton {
 public:
  explicit LinkButton(const QString& link, const QString& before = {}, const QString& symbol = {})
      : DrawnButton(TextRole::caption, link), before_(before), symbol_(symbol) {
    setCursor(Qt::PointingHandCursor);
  }
  [[nodiscard]] QSize sizeHint() const override {
    const double words = linkLeft() + QFontMetricsF(font()).horizontalAdvance(text());
    const int symbol = symbol_.isEmpty() ? 0 : symbolGap + Theme::shared().iconSize(symbolPixels);
    return {static_cast<int>(std::ceil(words)) + symbol + 2, Theme::shared().grown(20, 16)};
  }
  [[nodiscard]] Outline focusOutline() const override {
    return {.rect = QRectF(rect()).adjusted(linkLeft(), 0, 0, 0), .radius = 4};
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const AppColors& c = colors();
    const QFontMetricsF metrics(font());
    QPainter painter(this);
    painter.setFont(font());
    const double baseline = (height() - metrics.height()) / 2 + metrics.ascent();
    if (!before_.isEmpty()) {
      painter.setPen(c.textSecondary);
      painter.drawText(QPointF(0, baseline), before_);
      painter.drawText(QPointF(metrics.horizontalAdvance(before_) + aroundSeparator, baseline), separator);
    }
    const QColor color = mix(c.primary, c.primaryHover, hover());
    const double left = linkLeft();
    const double width = metrics.horizontalAdvance(text());
    painter.setPen(color);
    painter.drawText(QPointF(left, baseline), text());
    painter.fillRect(QRectF(left, std::round(baseline + 2), width, 1), color);
    if (symbol_.isEmpty()) return;
    const double size = Theme::shared().iconSize(symbolPixels);
    paintSymbol(painter, symbol_, QRectF(left + width + symbolGap, (height() - size) / 2, size, size), color);
  }

 private:
  static constexpr int symbolPixels = 12;
  static constexpr int symbolGap = 7;
  static constexpr double aroundSeparator = 6;
  static inline const QString separator = QStringLiteral("·");

  /// Where the link begins, in pixels.
  [[nodiscard]] double linkLeft() const {
    if (before_.isEmpty()) return 0;
    const QFontMetricsF metrics(font());
    return metrics.horizontalAdvance(before_) + metrics.horizontalAdvance(separator) + 2 * aroundSeparator;
  }

  const QString before_;
  const QString symbol_;
};

}  // namespace

// MenuBarPopoverView.

namespace {

constexpr int viewWidth = 320;
constexpr int widthAddedForText = 120;  // at 200 %
constexpr int side = 16;
constexpr int between = 10;
constexpr int headerHeight = 88;
constexpr int homeHeight = 280;
constexpr int statsHeight = 400;
constexpr int aboutHeight = 440;
constexpr int reportHeight = 600;  // of a list that would fill any screen

EyeLogo::Mood moodOf(const FilterState& state) {
  if (state.is(FilterState::Kind::alert)) return EyeLogo::Mood::alert;
  const bool watches = state.is(FilterState::Kind::nominal) || state.is(FilterState::Kind::inattention);
  return watches ? EyeLogo::Mood::active : EyeLogo::Mood::idleClosed;
}

}  // namespace

MenuBarPopoverView::MenuBarPopoverView(Parts parts, QWidget* parent)
    : QWidget(parent), parts_(std::move(parts)), stack_(columnIn(this)), home_(new ScrollPage) {
  home_->setPage(buildHome());
  stack_->addWidget(home_);
  switch_->setFocus(Qt::OtherFocusReason);
  const auto& service = *parts_.service;
  const Relaxations& relaxations = parts_.service->relaxations();
  const auto changed = [this](const auto&) { showWords(); };
  registrations_.push_back(service.fsmState().onChange(changed));
  registrations_.push_back(
      service.isActive().subscribe([this](bool active) { switch_->setChecked(active); }));
  registrations_.push_back(
      service.isStarting().subscribe([this](bool starting) { switch_->setWaiting(starting); }));
  registrations_.push_back(parts_.failure->onChange(changed));
  registrations_.push_back(service.cameraCondition().onChange(changed));
  registrations_.push_back(parts_.overlayBackend->limitationChanged.connect([this] { showWords(); }));
  registrations_.push_back(relaxations.pauseEndMs().onChange(changed));
  registrations_.push_back(relaxations.isScreenShared().onChange(changed));
  registrations_.push_back(relaxations.stay().onChange(changed));
  registrations_.push_back(relaxations.filter.ignored().onChange(changed));
  registrations_.push_back(parts_.settingsRepo->options.onChange(changed));
  if (parts_.remote) registrations_.push_back(parts_.remote->news().onChange(changed));
  showWords();
}

QWidget* MenuBarPopoverView::buildHome() {
  auto* home = new QWidget;
  // The Tab key goes from one to the next in the order in which they become the page's.
  const auto row = [this, home](const QString& icon, const QString& label, auto action) {
    auto* button = new MenuBarButton(icon, label);
    button->setParent(home);
    connect(button, &QAbstractButton::clicked, this, action);
    return button;
  };
  const auto allowed = [this, home] {
    return relaxations_ = new RelaxationRows(parts_.service, parts_.clock, home);
  };
  columnIn(
      home, {0, 0, 0, side}, 0,
      {{buildHeader(), 1},
       insetDivider(side, side),
       between,
       row(QStringLiteral("chart.bar.fill"), qtTrId("home_open_stats"), [this] { showPage(Page::stats); }),
       row(QStringLiteral("gearshape.fill"), qtTrId("home_open_settings"), parts_.openPreferences),
       row(QStringLiteral("info.circle.fill"), qtTrId("about_title"), [this] { showPage(Page::about); }),
       between,
       insetDivider(side, side),
       between,
       allowed(),
       row(QStringLiteral("xmark.circle.fill"), QStringLiteral("Quitter"), parts_.quit)});
  return home;
}

QLayout* MenuBarPopoverView::buildHeader() {
  logo_ = new EyeLogo(48);
  status_ = new TextLabel(TextRole::caption);
  cause_ = new TextLabel(TextRole::caption, {}, &AppColors::textSecondary);
  news_ = new TextLabel(TextRole::caption, {}, &AppColors::textSecondary);
  ignored_ = new LinkButton({});
  ignored_->setAccessibleDescription(qtTrId("Oublier"));
  ignored_->setToolTip(qtTrId("Oublier"));
  connect(ignored_, &QAbstractButton::clicked, this,
          [this] { parts_.service->relaxations().filter.forgetIgnored(); });
  auto* name = new TextLabel(TextRole::popoverTitle, QStringLiteral("Sentrel"), &AppColors::primary);
  switch_ = new ToggleSwitch(qtTrId("Protection"), ToggleSwitch::Click::asks);
  // The switch itself follows what the service publishes.
  connect(switch_, &ToggleSwitch::clicked, this, [this] { parts_.service->toggle(); });
  auto* words = columnIn(nullptr, {}, 2,
                         {stretch, name, status_, cause_, {ignored_, 0, Qt::AlignLeft}, news_, stretch});
  auto* header = lineIn(nullptr, {side, 8, side, 8}, 12, {logo_, {words, 1}, switch_});
  header->addStrut(qRound(headerHeight * Theme::shared().textScale()) - 16);
  return header;
}

/// The link at the foot of a page, or none.
QWidget* MenuBarPopoverView::buildFooter() {
  if (parts_.projectsPage.isEmpty()) return nullptr;
  const QString words = qtTrId("Sentrel · Nos autres projets");
  auto* link = new LinkButton(words.section(QStringLiteral("·"), 1).trimmed(),
                              words.section(QStringLiteral("·"), 0, 0).trimmed(),
                              QStringLiteral("arrow.up.right.square"));
  connect(link, &QAbstractButton::clicked, this, [this] { openProjectsPage(); });
  return link;
}

void MenuBarPopoverView::openProjectsPage() {
  const QString address = parts_.projectsPage.toString();
  parts_.openLink(parts_.projectsPage, [view = QPointer<QWidget>(this), this, address] {
    if (!view || address_) return;
    address_ =
        openDialog(*this, {.symbol = QStringLiteral("arrow.up.right.square"),
                           .color = &AppColors::primary,
                           .words = address,
                           .cancel = qtTrId("Fermer"),
                           .confirm = qtTrId("link_copy"),
                           .kind = PushButton::Kind::primary,
                           .confirmed = [address] { QGuiApplication::clipboard()->setText(address); }});
    address_->onClosed = [this] { address_.clear(); };
  });
}

void MenuBarPopoverView::showWords() {
  const Relaxations& relaxations = parts_.service->relaxations();
  const FilterState& state = parts_.service->fsmState();
  const auto [words, color] = statusWords(state);
  const QString limitation = limitationWords(*parts_.overlayBackend);
  const bool isSoftened = relaxations.isScreenShared() && relaxations.whenShared() == WhenShared::hideStripes;
  status_->setWords(words);
  status_->setColor((isSoftened || !limitation.isEmpty()) && color == &AppColors::success
                        ? &AppColors::textSecondary
                        : color);
  switch_->setAccessibleDescription(words);
  logo_->setMood(moodOf(state));

  const auto& condition = parts_.service->cameraCondition().get();
  const auto [camera, cameraColor] = cameraWords(*parts_.failure, condition);
  const bool isBlind = parts_.failure->get() || (condition && condition->isSerious);
  QString cause = isBlind ? camera : parts_.notice;
  if (cause.isEmpty()) cause = limitation;
  if (cause.isEmpty()) cause = camera;
  cause_->setColor(cause == camera ? cameraColor : &AppColors::textSecondary);
  if (cause.isEmpty()) cause = relaxationWords(relaxations, parts_.clock->nowMs());
  cause_->setWords(cause);
  cause_->setVisible(!cause.isEmpty());

  ignored_->setText(ignoredWords(relaxations.filter.ignored().get().size()));
  ignored_->setVisible(!ignored_->text().isEmpty());

  const QString news = originWords(parts_.remote ? parts_.remote->news().get() : std::nullopt);
  news_->setWords(news);
  news_->setVisible(!news.isEmpty());
}

void MenuBarPopoverView::closes() {
  if (parts_.remote && news_->isVisible()) parts_.remote->seen();
}

MenuBarPopoverView::Page MenuBarPopoverView::page() const {
  return showStats      ? Page::stats
         : showAbout    ? Page::about
         : showPrivacy_ ? Page::privacy
         : showReport_  ? Page::report
                        : Page::home;
}

bool MenuBarPopoverView::asks() const {
  const auto* stats = dynamic_cast<const StatsView*>(page_);
  return address_ || (stats != nullptr && stats->asks());
}

void MenuBarPopoverView::showPage(Page page) {
  if (page == this->page()) return;
  relaxations_->fold();
  if (address_) address_->dismiss();
  showStats = page == Page::stats;
  showAbout = page == Page::about;
  showPrivacy_ = page == Page::privacy;
  showReport_ = page == Page::report;
  if (page_ != nullptr) {
    page_->hide();
    page_->deleteLater();
    page_ = nullptr;
  }
  const auto back = [this] { showPage(Page::home); };
  const auto about = [this] { showPage(Page::about); };
  if (showStats)
    page_ = new StatsView({parts_.statsRepo, parts_.settingsRepo, parts_.journal}, buildFooter(), back);
  if (showAbout)
    page_ = new AboutView(parts_.version, buildFooter(),
                          {.dismissed = back,
                           .verify = [this] { showPage(Page::privacy); },
                           .diagnose = [this] { showPage(Page::report); }});
  if (showPrivacy_) page_ = new PrivacyView(parts_.proof, about);
  if (showReport_) page_ = new ReportPage(parts_.askForReport, about);
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
  const int width = Theme::shared().grown(viewWidth, widthAddedForText);
  const int least = showStats ? statsHeight : showAbout || showPrivacy_ ? aboutHeight : homeHeight;
  const int wanted =
      stack_->hasHeightForWidth() ? stack_->totalHeightForWidth(width) : stack_->totalSizeHint().height();
  return {width, showReport_ ? reportHeight : std::max(least, wanted)};
}

bool MenuBarPopoverView::event(QEvent* event) {
  const bool handled = QWidget::event(event);
  if (event->type() == QEvent::LayoutRequest && onSizeChanged) onSizeChanged();
  return handled;
}

void MenuBarPopoverView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Down || event->key() == Qt::Key_Up) {
    focusNextPrevChild(event->key() == Qt::Key_Down);
  } else if (event->key() == Qt::Key_Escape && page_ != nullptr) {
    showPage(showPrivacy_ || showReport_ ? Page::about : Page::home);
  } else if (event->key() == Qt::Key_Escape && relaxations_->fold()) {
    return;
  } else {
    QWidget::keyPressEvent(event);
  }
}

// PopoverWindow.

namespace {
constexpr int away = 8;
constexpr int slide = 6;
}  // namespace

QRect placePopover(const QRect& anchor, const QRect& workArea, QSize size) {
  const QRect available = workArea.adjusted(away, away, -away, -away);
  QRect place(QPoint(anchor.right() + 1 - size.width(), anchor.bottom() + 1 + away), size);
  if (place.bottom() > available.bottom()) place.moveBottom(anchor.top() - 1 - away);
  // The corner that matters most, the top left one, is kept last.
  place.moveRight(std::min(place.right(), available.right()));
  place.moveBottom(std::min(place.bottom(), available.bottom()));
  place.moveLeft(std::max(place.left(), available.left()));
  place.moveTop(std::max(place.top(), available.top()));
  return place;
}

PopoverWindow::PopoverWindow(MenuBarPopoverView::Parts parts, Ground ground)
    : QWidget(nullptr,
              Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint),
      margin_(ground == Ground::translucent ? shadowReach : 0),
      content_(new MenuBarPopoverView(std::move(parts), this)) {
  setAttribute(Qt::WA_DeleteOnClose);
  setAttribute(Qt::WA_TranslucentBackground, ground == Ground::translucent);
  setWindowTitle(QStringLiteral("Sentrel"));
  setAccessibleRole(*this, QAccessible::Dialog);
  new FocusRing(*this);  // it is the window's
  content_->onSizeChanged = [this] { place(); };
  connect(&Theme::shared(), &Theme::changed, this, [this] { place(); });
  place();
}

/// While it opens it comes from its anchor's side.
QPoint PopoverWindow::contentPlace() const {
  const int way = anchor_.top() < geometry().center().y() ? -slide : slide;
  return {margin_, margin_ + qRound(way * (1 - presence_.value()))};
}

void PopoverWindow::place() {
  const QScreen* where = anchor_.isValid() ? QGuiApplication::screenAt(anchor_.center()) : nullptr;
  if (where == nullptr) where = screen();
  const QRect workArea = where->availableGeometry();
  // What does not fit scrolls.
  const QSize size = content_->sizeHint().boundedTo(workArea.size() - QSize(2 * away, 2 * away));
  content_->setGeometry(QRect(contentPlace(), size));
  const QMargins around(margin_, margin_, margin_, margin_);
  if (anchor_.isValid()) setGeometry(placePopover(anchor_, workArea, size) + around);
  setFixedSize(size.grownBy(around));
  update();
}

void PopoverWindow::openAt(const QRect& anchor) {
  anchor_ = anchor;
  place();
  show();
  raise();
  activateWindow();
  appear();
}

void PopoverWindow::appear() {
  if (margin_ == 0) return;
  auto* veil = new QGraphicsOpacityEffect(content_);
  content_->setGraphicsEffect(veil);
  presence_.onStep = [this, veil] {
    content_->move(contentPlace());
    veil->setOpacity(presence_.value());
    if (presence_.value() == 1) content_->setGraphicsEffect(nullptr);
  };
  presence_.jumpTo(0);
  presence_.glideTo(1);
}

bool PopoverWindow::event(QEvent* event) {
  if (event->type() == QEvent::WindowDeactivate && isVisible() && !content_->asks()) close();
  return QWidget::event(event);
}

void PopoverWindow::closeEvent(QCloseEvent* event) {
  content_->closes();
  QWidget::closeEvent(event);
  if (const auto call = std::exchange(onClosed, nullptr)) call();
}

void PopoverWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) close();
}

void PopoverWindow::mousePressEvent(QMouseEvent* event) {
  // The shadow is not part of what the person sees as the window.
  if (!content_->geometry().contains(event->position().toPoint()) && !content_->asks()) close();
}

void PopoverWindow::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const QRectF box(content_->geometry());
  if (margin_ == 0) {
    painter.fillRect(rect(), colors().surface);
    paintBox(painter, box, 0, {}, colors().border);
    return;
  }
  painter.setOpacity(presence_.value());
  paintShadow(painter, box, popoverRadius, 1);
  paintBox(painter, box, popoverRadius, colors().surface, colors().border);
}

}  // namespace sentrel
