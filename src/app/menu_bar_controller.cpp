// SPDX-License-Identifier: Apache-2.0
#include "app/menu_bar_controller.h"

#include <malloc.h>

#include <QAccessible>
#include <QApplication>
#include <QPixmapCache>
#include <QTimer>
#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "app/build_options.h"
#include "platform/platform.h"
#include "views/controls/accessibility.h"

namespace sentrel {

namespace {

/// A click on the icon this soon after the popover closed is the click that closed it.
constexpr qint64 sameClickMs = 250;
constexpr int trayTimeoutMs = 2000;

constexpr int memoryDelayMs = 1000;  // the next window may follow at once

void giveMemoryBack() {
  if (std::ranges::any_of(QApplication::topLevelWidgets(), &QWidget::isVisible)) return;
  QPixmapCache::clear();
  ::malloc_trim(0);
}

StatusBarIcon::IconState iconOf(const FilterState& state) {
  using enum StatusBarIcon::IconState;
  // In the order of the states.
  constexpr std::array icons{nominal, nominal, paused, paused, inactive, alert};
  return icons[static_cast<std::size_t>(state.kind())];
}

/// On X11 a window without a compositing manager cannot be seen through.
PopoverWindow::Ground groundOfPopover() {
  const bool x11 = QGuiApplication::platformName() == QLatin1String("xcb");
  const std::string limitation = Platform::current().overlayBackend->limitation();
  return x11 && limitation == "error_no_compositing" ? PopoverWindow::Ground::opaque
                                                     : PopoverWindow::Ground::translucent;
}

}  // namespace

void giveMemoryBackAfter(const QWidget& window) {
  QObject::connect(&window, &QObject::destroyed, qApp,
                   [] { QTimer::singleShot(memoryDelayMs, qApp, giveMemoryBack); });
}

Signal<>& sentrelOpenPreferences() {
  static Signal<> signal;
  return signal;
}

MenuBarController::MenuBarController(Actions actions, std::shared_ptr<Bus> sessionBus,
                                     std::shared_ptr<DesktopPortal> portal)
    : actions_(std::move(actions)),
      bus_(std::move(sessionBus)),
      portal_(std::move(portal)),
      service_(PrivacyFilterService::shared()),
      camera_(AVCaptureManager::shared()),
      cameraControl_(CameraControl::shared()),
      toggle_(new QAction(&menu_)),
      statusItem(
          menu_, [this](const QRect& anchor) { togglePopover(anchor); }, bus_) {
  menu_.addAction(qtTrId("tray_open"), [this] { showPopover(); });
  menu_.addAction(toggle_);
  QObject::connect(toggle_, &QAction::triggered, [this] { service_->toggle(); });
  menu_.addSeparator();
  menu_.addAction(QStringLiteral("Quitter"), actions_.quit);
  const auto update = [this](const auto&) { updateStatusItem(); };
  updateStatusItem();
  const Relaxations& relaxations = service_->relaxations();
  registrations_ = {
      service_->fsmState().onChange(update),
      relaxations.pauseEndMs().onChange(update),
      relaxations.stay().onChange(update),
      relaxations.isScreenShared().onChange(update),
      relaxations.filter.ignored().onChange(update),
      SettingsRepository::shared()->options.onChange(update),
      actions_.remote->news().onChange(update),
      service_->isActive().onChange(update),
      service_->isStarting().onChange(update),
      cameraControl_->failure().onChange(update),
      service_->cameraCondition().onChange(update),
      Platform::current().overlayBackend->limitationChanged.connect([this] { updateStatusItem(); }),
      service_->fsmState().subscribe([this](const auto&) { tellScreenReaders(); }),
      sentrelOpenPreferences().connect([this] { openPreferences(); })};
}

void MenuBarController::updateStatusItem() {
  using IconState = StatusBarIcon::IconState;
  const auto& condition = service_->cameraCondition().get();
  const QString cause = cameraWords(cameraControl_->failure(), condition).words;
  // Neither a start that waits for its camera nor a camera that is covered protects: the icon of a pause.
  const bool waits = service_->isStarting() && cameraControl_->failure().get();
  const bool seesNothing = condition && condition->isSerious;
  const IconState icon = iconOf(service_->fsmState());
  statusItem.setState(waits || (seesNothing && icon == IconState::nominal) ? IconState::paused : icon);
  toggle_->setText(service_->isSwitchedOn() ? qtTrId("tray_disable") : qtTrId("tray_enable"));
  const Relaxations& relaxations = service_->relaxations();
  QStringList words{QStringLiteral("Sentrel"),
                    statusWords(service_->fsmState()).words,
                    cause,
                    limitationWords(*Platform::current().overlayBackend),
                    relaxationWords(relaxations, Platform::current().clock->nowMs()),
                    ignoredWords(relaxations.filter.ignored().get().size()),
                    originWords(actions_.remote->news())};
  words.removeAll(QString());
  statusItem.setToolTip(words.join(u'\n'));
}

/// Windows go before the Qt application: one that is left to it would use what Qt has already destroyed.
MenuBarController::~MenuBarController() {
  delete popover;
  delete prefsWindow;
}

/// The overlay is no Qt window, so screen readers do not see its banner. They read this invisible
/// notification.
void MenuBarController::tellScreenReaders() {
  // Screen readers need a bus, and a bus that does not answer must not be asked: Qt would wait for it.
  const bool shown = bus_->isConnected() && service_->fsmState().get().is(FilterState::Kind::alert) &&
                     QAccessible::isActive();
  if (shown && !banner_) {
    banner_ = std::make_unique<QWidget>();
    banner_->setAttribute(Qt::WA_DontShowOnScreen);
    banner_->setAttribute(Qt::WA_ShowWithoutActivating);
    setAccessibleRole(*banner_, QAccessible::Notification);
    banner_->setAccessibleName(qtTrId("REGARD INDISCRET") + QStringLiteral(". ") +
                               qtTrId("Quelqu'un observe votre écran"));
    banner_->winId();  // makes it a child of the application for screen readers
  }
  if (banner_) banner_->setVisible(shown);
}

void MenuBarController::togglePopover(const QRect& anchor) {
  if (popover && popover->isVisible()) {
    if (popover->content().asks()) return showPopover();
    popover->close();
  } else if (!sinceClosed_.isValid() || sinceClosed_.elapsed() > sameClickMs) {
    openPopover(anchor, Opener::click);
  }
}

void MenuBarController::openPopover(const QRect& anchor, Opener opener) {
  if (popover) popover->close();
  const std::string news = actions_.news();
  popover = new PopoverWindow(
      {.service = service_,
       .clock = Platform::current().clock,
       .remote = actions_.remote,
       .failure = {cameraControl_, &cameraControl_->failure()},
       .statsRepo = StatsRepository::shared(),
       .settingsRepo = SettingsRepository::shared(),
       .journal = Platform::current().alertJournal,
       .proof = Platform::current().privacyProof,
       .overlayBackend = Platform::current().overlayBackend,
       .notice = news.empty() ? QString() : qtTrId(news.c_str()),
       .version = QGuiApplication::applicationVersion(),
       .projectsPage = QUrl(QStringLiteral(SENTREL_PROJECTS_PAGE)),
       .openPreferences =
           [this] {
             if (popover) popover->close();
             sentrelOpenPreferences().emit();
           },
       .quit = actions_.quit,
       .askForReport = actions_.askForReport,
       .openLink = [this](const QUrl& address,
                          std::function<void()> failed) { openLink(address, std::move(failed)); }},
      groundOfPopover());
  giveMemoryBackAfter(*popover);
  popover->onClosed = [this] {
    placement_.release();
    sinceClosed_.start();
  };
  if (opener == Opener::click) placement_.openAtPointer(*popover);
  popover->openAt(anchor);
}

void MenuBarController::showPopover() {
  if (popover && popover->isVisible()) {
    popover->raise();
    popover->activateWindow();
  } else {
    openPopover(statusItem.anchor(), Opener::other);
  }
}

/// A person who starts the program wants to see that it runs. Where there is a panel, the icon shows it.
void MenuBarController::showPopoverWithoutTray() {
  QTimer::singleShot(trayTimeoutMs, &trayTimeout_, [this] {
    if (!statusItem.isShown()) showPopover();
  });
}

void MenuBarController::showPage(MenuBarPopoverView::Page page) {
  showPopover();
  popover->content().showPage(page);
}

void MenuBarController::openPreferences() {
  if (!prefsWindow || !prefsWindow->isVisible()) {
    const Platform& platform = Platform::current();
    prefsWindow = new PreferencesView({.settingsRepo = SettingsRepository::shared(),
                                       .camera = camera_,
                                       .service = service_,
                                       .clock = platform.clock,
                                       .loginItem = platform.loginItem,
                                       .keyMonitor = platform.keyMonitor,
                                       .journal = platform.alertJournal,
                                       .failure = {cameraControl_, &cameraControl_->failure()},
                                       .notifications = platform.notifications,
                                       .overlayBackend = platform.overlayBackend,
                                       .tray = [this] { return statusItem.tray(); },
                                       .mainLoop = platform.mainLoop,
                                       .newCalibration = [] { return CalibrationSession::create(); }});
    prefsWindow->setAttribute(Qt::WA_DeleteOnClose);
    giveMemoryBackAfter(*prefsWindow);
  }
  prefsWindow->present();
}

/// The desktop opens the address: this process may not start programs.
void MenuBarController::openLink(const QUrl& address, std::function<void()> failed) {
  portal_->whenReady(
      [portal = portal_.get(), words = address.toString().toUtf8(), failed = std::move(failed)](bool ready) {
        if (!ready) return failed();
        constexpr auto noParentWindow = "";
        constexpr int noOptions = 0;
        const auto answered = [failed](const BusMessage& reply) {
          if (reply.isError) failed();
        };
        portal->call({DesktopPortal::path, "org.freedesktop.portal.OpenURI", "OpenURI"}, {answered},
                     "ssa{sv}", noParentWindow, words.constData(), noOptions);
      });
}

}  // namespace sentrel
