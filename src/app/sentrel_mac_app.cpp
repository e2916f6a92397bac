// SPDX-License-Identifier: Apache-2.0
#include "app/sentrel_mac_app.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QFileInfo>
#include <QSessionManager>
#include <QWidget>
#include <QWindow>
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <utility>

#include "app/build_options.h"
#include "app/menu_bar_controller.h"
#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/autostart_login_item.h"
#include "linux/desktop/desktop_key_monitor.h"
#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/desktop_screen_sharing.h"
#include "linux/desktop/desktop_session_events.h"
#include "linux/desktop/journal_file.h"
#include "linux/desktop/private_files.h"
#include "linux/desktop/standard_error.h"
#include "linux/desktop/upower_power_source.h"
#include "linux/hardening/self_examination.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "look/icons.h"
#include "overlay/overlay_window_manager.h"
#include "platform/platform.h"
#include "settings/filter_settings.h"
#include "views/theme.h"
#include "vision/models.h"
#include "vision/neural_face_detector.h"

namespace sentrel {

namespace {

constexpr qint64 lastTurnsMs = 200;
constexpr std::chrono::seconds storeTimeout{1};
constexpr std::chrono::seconds exitTimeout{2};

/// Where there is no session bus, the bus library would start one of its own, in which nobody could find us.
void refuseOwnBus() {
  const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
  const bool found = qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS") ||
                     (!folder.isEmpty() && QFileInfo::exists(folder + QStringLiteral("/bus")));
  if (!found) qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
}

void prepareEnvironment() {
  refuseOwnBus();
  // Newer versions of Qt ask the portal while the application is made, for what is not used here, and wait
  // for a bus that does not answer.
  qputenv("QT_NO_XDG_DESKTOP_PORTAL", "1");
  // Windows where the session shows them, in the order in which Qt tries it. The last one paints into memory
  // and always works.
  QByteArray platforms;
  if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) platforms += "wayland;";
  if (!qEnvironmentVariableIsEmpty("DISPLAY")) platforms += "xcb;";
  qputenv("QT_QPA_PLATFORM", platforms + "offscreen");
  reserveActivationToken();
}

/// Holds back what ends the program, for this thread and those that it starts. Gives a descriptor that
/// delivers it, or -1.
int holdBackSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// What is safe only now, while no other thread runs. Gives the signals' descriptor.
int beforeQtStarts() {
  prepareEnvironment();
  return holdBackSignals();
}

/// Has windows on Wayland paint only once the compositor has shown their last picture. Qt paints whenever
/// something changes, and waits on the main thread when the compositor keeps five pictures: one that hangs
/// would freeze all of the program behind an open window.
class PaintFilter final : public QObject {
 private:
  bool eventFilter(QObject* object, QEvent* event) override {
    if (event->type() != QEvent::UpdateRequest || painting_) return false;
    if (const auto* widget = qobject_cast<QWidget*>(object)) {
      // Asked for at any time: comes again through the window, at the right one.
      if (widget->windowHandle() == nullptr) return false;
      widget->windowHandle()->requestUpdate();
      return true;
    }
    const auto widgets = QApplication::topLevelWidgets();
    const auto owner = std::ranges::find(widgets, object, &QWidget::windowHandle);
    if (owner == widgets.end()) return false;
    painting_ = true;
    QCoreApplication::sendEvent(*owner, event);
    painting_ = false;
    return true;
  }

  bool painting_ = false;
};

/// Qt ends the process from within when the display that shows its windows is lost. While this is set, such
/// an end runs it and then leaves at once: threads still work with what the runtime would tear down, and the
/// overlays go with their connections.
std::function<void()>& lastDuty() {
  // Never destroyed, because it is used at the very end.
  static auto* const duty = new std::function<void()>;
  return *duty;
}

void leaveAtOnce() {
  if (!lastDuty()) return;
  std::exchange(lastDuty(), nullptr)();
  std::fflush(nullptr);
  _exit(EXIT_FAILURE);
}

/// All that matters is done by now. A bus that does not answer may still be waited for, for as long as its
/// library pleases; that must not hold up a logout.
void boundTheEnd(int code) {
  std::thread([code] {
    std::this_thread::sleep_for(exitTimeout);
    std::_Exit(code);
  }).detach();
}

}  // namespace

SentrelMacApp::SentrelMacApp(char** argv, Launch launch)
    : launch_(launch),
      signals_(beforeQtStarts()),
      arguments_(argv),
      mainLoop_(std::make_shared<QtMainLoop>()),
      sessionBus_(std::make_shared<Bus>(mainLoop_, BusKind::session)),
      bus_(mainLoop_, sessionBus_, launch) {
  QGuiApplication::setApplicationName(QStringLiteral("sentrel"));
  QGuiApplication::setDesktopFileName(QStringLiteral("expert.mardeck.sentrel"));
  QGuiApplication::setApplicationVersion(QStringLiteral(SENTREL_VERSION));
  QGuiApplication::setQuitOnLastWindowClosed(false);
  QApplication::setStyle(QStringLiteral("fusion"));  // under our own paint, the same everywhere
  QGuiApplication::setWindowIcon(appIcon());
  watchSignals();
  if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
    paintFilter_ = std::make_unique<PaintFilter>();
    application_.installEventFilter(paintFilter_.get());
  }
  // The next session starts us by the autostart entry, or not at all.
  for (const auto request : {&QGuiApplication::commitDataRequest, &QGuiApplication::saveStateRequest}) {
    QObject::connect(
        &application_, request, &application_,
        [](QSessionManager& session) { session.setRestartHint(QSessionManager::RestartNever); },
        Qt::DirectConnection);
  }
}

SentrelMacApp::~SentrelMacApp() = default;

/// A session's end or Ctrl-C stops protection as the menu would.
void SentrelMacApp::watchSignals() {
  if (signals_ < 0) return;
  signalNotifier_ = std::make_unique<QSocketNotifier>(signals_, QSocketNotifier::Read);
  QObject::connect(signalNotifier_.get(), &QSocketNotifier::activated, signalNotifier_.get(), [this] {
    signalfd_siginfo info{};
    while (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) quit();
  });
}

int SentrelMacApp::run() {
  // As its own loop begins, Qt asks the bus for assistive technology and waits for the answer: a bus that
  // does not answer must not be asked.
  QEventLoop loop;
  bool reachable = true;
  bus_.claimName([&](InstanceRole role) {
    reachable = role != InstanceRole::unreachable;
    begin(role);
    loop.quit();
  });
  loop.exec();
  const int code = quitAsked_ ? 0 : reachable ? QApplication::exec() : loop.exec();
  if (appDelegate) end();
  boundTheEnd(code);
  appDelegate.reset();  // with windows and tray, which speak with the bus
  sessionBus_->close();
  return code;
}

void SentrelMacApp::begin(InstanceRole role) {
  if (role == InstanceRole::later || role == InstanceRole::activator) {
    printError(role == InstanceRole::activator ? qtTrId("running_opened") : qtTrId("running_already"));
    quit();
    return;
  }
  if (role == InstanceRole::unreachable) {
    printError(qtTrId("error_no_session_bus"));
  }
  installPlatform();
  if (const auto& error = defaults_->readError()) {
    untold_ = QT_TRID_NOOP("error_settings_unreadable");
    printError(qtTrId(untold_.c_str()), *error);
  }
  damaged_ = defaults_->damaged.subscribe([this](bool damaged) {
    if (!damaged) return;
    untold_ = QT_TRID_NOOP("error_settings_damaged");
    printError(qtTrId(untold_.c_str()));
  });
  const auto quitNow = [this] { quit(); };
  const auto remote =
      std::make_shared<RemoteControl>(PrivacyFilterService::shared(), Platform::current(), quitNow);
  std::unique_ptr<MenuBarController> menuBarController;
  if (QGuiApplication::platformName() != QLatin1String("offscreen")) {
    menuBarController = std::make_unique<MenuBarController>(
        MenuBarController::Actions{
            .quit = quitNow,
            .news = [this] { return std::exchange(untold_, {}); },
            .remote = remote,
            .askForReport = [this](auto told) { appDelegate->report(std::move(told)); }},
        sessionBus_, portal_);
  }
  appDelegate = std::make_unique<AppDelegate>(
      AppDelegate::Dependencies{.bus = bus_,
                                .remote = remote,
                                .menuBarController = std::move(menuBarController),
                                .consent = consent_,
                                .launch = launch_,
                                .sessionBus = sessionBus_});
  appDelegate->applicationDidFinishLaunching();
  lastDuty() = [defaults = defaults_, words = qtTrId("error_display_lost")] {
    printError(words);
    PrivacyFilterService::shared()->countSession();
    defaults->flush(storeTimeout);
  };
  // Registered last, and therefore called first: everything else is there by now.
  std::atexit(leaveAtOnce);
}

void SentrelMacApp::installPlatform() {
  const auto systemBus = std::make_shared<Bus>(mainLoop_, BusKind::system);
  const auto displays = std::make_shared<EventThread>(QStringLiteral("sentrel-display"));
  Platform platform;
  platform.mainLoop = mainLoop_;
  platform.clock = std::make_shared<SystemClock>();
  platform.cameraQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  platform.analysisQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.vision", *platform.cameraQueue);
  platform.faceDetector = std::make_shared<vision::NeuralFaceDetector>(vision::modelFolder());
  platform.overlayBackend = createOverlayBackend(*mainLoop_);
  // One queue: whoever waits for the settings has waited for the journal, too.
  const auto storeQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.store");
  defaults_ = std::make_shared<DefaultsFile>(DefaultsFile::personalPath(), mainLoop_, storeQueue);
  platform.userDefaults = defaults_;
  platform.alertJournal =
      std::make_shared<JournalFile>(JournalFile::personalPath(), mainLoop_, platform.clock, storeQueue);
  consent_ = std::make_shared<CameraConsent>(
      defaults_->value(rawValue(SettingsKey::hasCompletedOnboarding)) == DefaultsValue(true));
  portal_ = std::make_shared<DesktopPortal>(sessionBus_);
  cameraPortal_ = std::make_shared<CameraPortal>(portal_);
  // The camera's own threads may be the last that hold the session: what belongs to this thread is not
  // theirs.
  const auto openRemote = [weak = std::weak_ptr(cameraPortal_)](auto opened) {
    if (const auto cameras = weak.lock()) cameras->open(std::move(opened));
  };
  const auto pipeWire = PipeWireCaptureSession::create(mainLoop_, platform.cameraQueue, consent_, openRemote);
  platform.captureSession = pipeWire;
  platform.screenSharing = std::make_shared<DesktopScreenSharing>(mainLoop_, sessionBus_, pipeWire);
  const auto loginItem = std::make_shared<AutostartLoginItem>();
  platform.loginItem = loginItem;
  platform.privacyProof = std::make_shared<SelfExamination>(SelfExamination::Parts{
      .mainLoop = mainLoop_,
      .queue = storeQueue,
      .captureSession = pipeWire,
      .places = {
          .folders = {DefaultsFile::personalPath().parent_path(), JournalFile::personalPath().parent_path()},
          .files = {loginItem->path().toStdString()}}});
  platform.notifications = std::make_shared<DesktopNotifications>(mainLoop_, sessionBus_);
  platform.haptics = std::make_shared<FeedbackdHaptics>(sessionBus_);
  platform.powerSource = std::make_shared<UPowerPowerSource>(systemBus);
  platform.sessionEvents =
      std::make_shared<DesktopSessionEvents>(DesktopSessionEvents::Parts{.mainLoop = mainLoop_,
                                                                         .clock = platform.clock,
                                                                         .sessionBus = sessionBus_,
                                                                         .systemBus = systemBus,
                                                                         .displays = displays});
  platform.keyMonitor = std::make_shared<DesktopKeyMonitor>(
      DesktopKeyMonitor::Parts{.mainLoop = mainLoop_,
                               .sessionBus = sessionBus_,
                               .portal = portal_,
                               .userDefaults = defaults_,
                               .displays = displays,
                               .sessionEvents = platform.sessionEvents,
                               .descriptions = {qtTrId("tray_disable").toStdString(),
                                                qtTrId("shortcut_cover_description").toStdString()}});
  platform.localizedText = [](const char* key) { return qtTrId(key).toStdString(); };
  Platform::install(std::move(platform));
  appearance_ =
      std::make_unique<DesktopAppearance>(sessionBus_, portal_, personalConfigFolder() / "dconf" / "user");
  looks_ = appearance_->appearance().subscribe([](const Appearance& appearance) {
    const auto& overlay = OverlayWindowManager::shared();
    overlay->reducedMotion = appearance.reducedMotion;
    Theme::shared().follow(appearance);
    Cover look = overlay->coverLook;
    look.highContrast = Theme::shared().highContrast();
    look.textScale = Theme::shared().look().textScale;
    overlay->coverLook.assignIfChanged(look);
  });
}

void SentrelMacApp::end() {
  lastDuty() = nullptr;
  bus_.leave();
  appDelegate->applicationWillTerminate();
  // What stopping has posted still runs: the covers go, the camera closes, the session is counted.
  QElapsedTimer elapsed;
  elapsed.start();
  while (!mainLoop_->idle() && elapsed.elapsed() < lastTurnsMs) QGuiApplication::processEvents();
  if (!defaults_->flush(storeTimeout)) printError(qtTrId("settings_late"));
}

void SentrelMacApp::quit() {
  quitAsked_ = true;
  mainLoop_->post([] { QCoreApplication::exit(); });  // whichever loop runs
}

}  // namespace sentrel
