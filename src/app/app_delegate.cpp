// SPDX-License-Identifier: Apache-2.0
#include "app/app_delegate.h"

#include <QDateTime>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>

#include "app/program_interface.h"
#include "detection/av_capture_manager.h"
#include "linux/desktop/standard_error.h"
#include "platform/platform.h"
#include "views/privacy_view.h"
#include "vision/models.h"

namespace sentrel {

namespace {

void reportCameraFailure(const CameraFailure& failure) {
  QString words = qtTrId(textKey(failure.kind));
  if (words.endsWith(u'.')) words.chop(1);
  // What others said is no key, and stays as it is.
  printError(words + QStringLiteral(" — ") + qtTrId(adviceKey(failure.kind)),
             qtTrId(failure.detail.c_str()).toStdString());
}

void reportLimitation(const OverlayBackend& backend) {
  const std::string key = backend.limitation();
  if (!key.empty()) printError(qtTrId(key.c_str()));
}

}  // namespace

AppDelegate::AppDelegate(Dependencies dependencies) : uses_(std::move(dependencies)) {}

AppDelegate::~AppDelegate() {
  uses_.bus.perform = nullptr;
  uses_.bus.prove = nullptr;
  uses_.bus.report = nullptr;
  delete onboardingWindow;  // as other windows, before the Qt application ends
}

void AppDelegate::applicationDidFinishLaunching() {
  service_ = PrivacyFilterService::shared();
  const auto notifications = Platform::current().notifications;
  const auto backend = Platform::current().overlayBackend;
  const auto show = [this](const auto&) { showOnTheBusSoon(); };
  const Relaxations& relaxations = service_->relaxations();
  registrations_ = {
      service_->fsmState().onChange(show), service_->isActive().onChange(show),
      StatsRepository::shared()->stats.onChange(show), relaxations.pauseEndMs().onChange(show),
      relaxations.stay().onChange(show), relaxations.filter.ignoredCount().onChange(show),
      relaxations.isScreenShared().onChange(show), uses_.remote->isCovered().onChange(show),
      SettingsRepository::shared()->options.onChange(show),
      CameraControl::shared()->failure().subscribe([this](const std::optional<CameraFailure>& failure) {
        if (failure) reportCameraFailure(*failure);
        watchForModels(failure);
        showOnTheBusSoon();
      }),
      backend->limitationChanged.connect([backend] { reportLimitation(*backend); }),
      notifications->chosen.connect([this](const std::string&) {
        if (uses_.menuBarController) uses_.menuBarController->showPopover();
      }),
      // Without the person's consent the camera stays closed, and a start waits for it.
      uses_.consent->asked.connect([this] { askForConsent(); }),
      service_->isStarting().onChange([this](bool starting) { begun_ = begun_ || starting; })};
  events_.emplace(EventLog::Parts{.platform = Platform::current(),
                                  .service = service_,
                                  .cameraControl = CameraControl::shared(),
                                  .sessionBus = uses_.sessionBus});
  uses_.bus.perform = [this](const std::string& request, const std::vector<std::int64_t>& numbers) {
    const char* const refusal = carryOut(request, numbers);
    // Whoever has the answer and asks again must find what has come of it.
    if (shownSoon_) showOnTheBus();
    return refusal;
  };
  uses_.bus.prove = [](const ProgramBus::ProofTold& told) {
    Platform::current().privacyProof->ask([told](const PrivacyFacts& facts) {
      const auto [holds, words] = proofReport(facts);
      told(holds, words.toStdString());
    });
  };
  uses_.bus.report = [this](ProgramBus::ReportTold told) {
    report([told = std::move(told)](const Report& made) { told(asText(made).toStdString()); });
  };
  reportLimitation(*backend);
  // A program that only reads a property makes the bus start us. That alone does not switch protection on,
  // because the person may just have quit; the first message that asks for an action does.
  if (uses_.launch == Launch::person) begin();
}

/// Switches protection on, once in the life of the program. Returns whether this call did it.
bool AppDelegate::begin() {
  if (begun_) return false;
  if (uses_.menuBarController && !uses_.consent->isGiven()) showOnboarding();
  service_->start();
  return true;
}

void AppDelegate::askForConsent() {
  if (uses_.menuBarController) {
    showOnboarding();
  } else {
    printError(qtTrId("consent_nobody_to_ask"));
  }
}

void AppDelegate::showOnboarding() {
  if (!onboardingWindow) {
    const Platform& platform = Platform::current();
    onboardingWindow = new OnboardingView({.consent = uses_.consent,
                                           .camera = AVCaptureManager::shared(),
                                           .notifications = platform.notifications,
                                           .settingsRepo = SettingsRepository::shared(),
                                           .loginItem = platform.loginItem,
                                           .defaults = platform.userDefaults,
                                           .newCalibration = [] { return CalibrationSession::create(); },
                                           .isPresented =
                                               [this](bool shown) {
                                                 if (!shown && onboardingWindow) onboardingWindow->close();
                                               }});
    onboardingWindow->setAttribute(Qt::WA_DeleteOnClose);
    giveMemoryBackAfter(*onboardingWindow);
    onboardingWindow->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                     Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint);
  }
  onboardingWindow->present();
}

/// A missing model file that appears is loaded at once.
void AppDelegate::watchForModels(const std::optional<CameraFailure>& failure) {
  if (!failure || failure->kind != CameraFailure::Kind::modelMissing) {
    modelWatch_.reset();
    return;
  }
  std::filesystem::path folder = vision::modelFolder();
  std::error_code error;
  while (!std::filesystem::is_directory(folder, error) && folder.has_relative_path()) {
    folder = folder.parent_path();
  }
  modelWatch_ = std::make_unique<QFileSystemWatcher>(QStringList(QString::fromStdString(folder.string())));
  QObject::connect(modelWatch_.get(), &QFileSystemWatcher::directoryChanged, modelWatch_.get(),
                   [] { CameraControl::shared()->retryNow(); });
}

void AppDelegate::applicationWillTerminate() {
  // First of all: who quits has not ended a pause.
  CameraControl::shared()->setRest(CameraControl::Rest::quitting, true);
  if (!service_) return;
  service_->stop();
  showOnTheBus();
}

// The session bus.

/// What protection does, in words for the person.
QString AppDelegate::statusLines() const {
  const Relaxations& relaxations = service_->relaxations();
  const FilterState state = service_->fsmState();
  QStringList words{statusWords(state).words};
  const QString cause = failureWords(CameraControl::shared()->failure());
  if (!cause.isEmpty()) words += cause;
  const QString relaxed = relaxationWords(relaxations, Platform::current().clock->nowMs());
  if (!relaxed.isEmpty() && !state.is(FilterState::Kind::inactive)) words += relaxed;
  return words.join(u'\n');
}

ProgramFacts AppDelegate::programFacts() const {
  const Platform& platform = Platform::current();
  const auto& camera = *CameraControl::shared();
  ProgramFacts facts;
  facts.running = ProgramFacts::Running::yes;
  facts.runningMs = events_->runningMs();
  facts.status = statusLines();
  facts.failure = camera.failure();
  facts.cover = CoverFacts::of(*platform.overlayBackend);
  const auto device = platform.captureSession->currentDevice();
  if (device && camera.status().get().kind == CameraControl::Status::Kind::seeing)
    facts.camera = device->localizedName;
  if (uses_.menuBarController) facts.tray = uses_.menuBarController->tray();
  facts.shortcut = platform.keyMonitor->grant(Shortcut::toggle);
  facts.events.assign(events_->last().begin(), events_->last().end());
  return facts;
}

void AppDelegate::report(std::function<void(const Report&)> told) {
  waiting_.push_back(std::move(told));
  if (waiting_.size() > 1) return;
  examination_ =
      examineMachine(Platform::current().mainLoop, Screens::known, [this](const MachineFacts& machine) {
        const Report made = makeReport(machine, programFacts(), Secrets::ofThisProcess());
        for (const auto& each : std::exchange(waiting_, {})) each(made);
      });
}

/// One happening changes several of what is told, one after the other; what lies between was never so.
void AppDelegate::showOnTheBusSoon() {
  if (!shownSoon_) shownSoon_ = Platform::current().mainLoop->after(0, [this] { showOnTheBus(); });
}

void AppDelegate::showOnTheBus() {
  shownSoon_.reset();
  const Relaxations& relaxations = service_->relaxations();
  // By the wall clock, which may have been set since the program started. What the two clocks differ by
  // otherwise is no news.
  const std::int64_t aheadMs = QDateTime::currentMSecsSinceEpoch() - Platform::current().clock->nowMs();
  if (std::abs(aheadMs - wallAheadMs_) >= 1000) wallAheadMs_ = aheadMs;
  const auto byTheWall = [this](std::optional<std::int64_t> ms) { return ms ? *ms + wallAheadMs_ : 0; };
  const auto pauseEnd = relaxations.pauseEndMs().get();
  const auto& stay = relaxations.stay().get();
  uses_.bus.show(service_->fsmState(), {.state = {},
                                        .status = statusLines().toStdString(),
                                        .isActive = service_->isActive(),
                                        .alertCount = StatsRepository::shared()->stats.get().alertCount,
                                        .pauseEnd = byTheWall(pauseEnd),
                                        .guests = stay ? stay->guests : 0,
                                        .guestsEnd = stay ? byTheWall(stay->untilMs) : 0,
                                        .ignoredFaces = relaxations.filter.ignoredCount(),
                                        .isScreenShared = relaxations.isScreenShared(),
                                        .isCovered = uses_.remote->isCovered()});
}

/// What other programs ask for, as ProgramBus::perform has it.
const char* AppDelegate::carryOut(const std::string& request, const std::vector<std::int64_t>& numbers) {
  using Answer = RemoteControl::Answer;
  RemoteControl& remote = *uses_.remote;
  const auto switchOn = [&] { return begin() ? Answer::done : remote.switchOn(); };
  const auto toggle = [&] { return begin() ? Answer::done : remote.toggle(); };
  const auto welcome = [&] {
    return remote.welcome(numbers[0], numbers[1] == 0 ? std::nullopt : std::optional(numbers[1]));
  };
  const auto cover = [&] { return remote.cover(); };
  const auto quit = [&] { return remote.quit(); };
  const std::map<std::string_view, std::function<Answer()>> commands{
      {"SwitchOn", switchOn},
      {"SwitchOff", [&] { return remote.switchOff(); }},
      {"Toggle", toggle},
      {"toggle", toggle},
      {"Pause", [&] { return remote.pause(numbers[0]); }},
      {"Resume", [&] { return remote.resume(); }},
      {"Welcome", welcome},
      {"SendGuestsAway", [&] { return remote.sendGuestsAway(); }},
      {"Cover", cover},
      {"cover", cover},
      {"Quit", quit},
      {"quit", quit},
  };
  const auto found = commands.find(request);
  if (found == commands.end()) return open(request);
  switch (found->second()) {
    case Answer::done:
      break;
    case Answer::locked:
      return program_interface::lockedError;
    case Answer::off:
      return program_interface::offError;
    case Answer::paused:
      return program_interface::pausedError;
    case Answer::misused:
      return program_interface::misusedError;
    case Answer::impossible:
      return program_interface::impossibleError;
  }
  return nullptr;
}

/// The program itself, or one of its windows.
const char* AppDelegate::open(const std::string& request) {
  const bool isItself = request == "Activate";
  const bool begins = begin();
  if (!uses_.menuBarController) return program_interface::noDisplayError;
  MenuBarController& windows = *uses_.menuBarController;
  if (isItself) begins ? windows.showPopoverWithoutTray() : windows.showPopover();
  if (request == "preferences") windows.openPreferences();
  if (request == "statistics") windows.showPage(MenuBarPopoverView::Page::stats);
  if (request == "about") windows.showPage(MenuBarPopoverView::Page::about);
  return nullptr;
}

}  // namespace sentrel
