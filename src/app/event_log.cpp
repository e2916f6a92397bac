// SPDX-License-Identifier: Apache-2.0
#include "app/event_log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "app/program_bus.h"
#include "views/desktop_words.h"

namespace sentrel {

namespace {

Q_LOGGING_CATEGORY(stateLog, "sentrel.state", QtWarningMsg)
Q_LOGGING_CATEGORY(cameraLog, "sentrel.camera", QtWarningMsg)
Q_LOGGING_CATEGORY(displayLog, "sentrel.display", QtWarningMsg)
Q_LOGGING_CATEGORY(desktopLog, "sentrel.desktop", QtWarningMsg)
Q_LOGGING_CATEGORY(busLog, "sentrel.bus", QtWarningMsg)

/// The service manager names the device and the inode of the stream that it made (systemd.exec).
bool isJournal(int descriptor) {
  struct stat told {};
  if (fstat(descriptor, &told) != 0) return false;
  const QByteArray stream =
      QByteArray::number(qulonglong{told.st_dev}) + ':' + QByteArray::number(qulonglong{told.st_ino});
  return qgetenv("JOURNAL_STREAM") == stream;
}

// In the order of their types.
constexpr std::array statusNames{"closed", "resting", "opening", "seeing", "blind"};
constexpr std::array restNames{"quitting",        "no consent",           "away",
                               "session unknown", "paused by the person", "screen shared",
                               "low battery"};
constexpr std::array failureNames{"no camera",   "access denied",   "busy",      "model missing",
                                  "no PipeWire", "analysis failed", "no consent"};
constexpr std::array conditionNames{"covered",   "too dark", "frozen",    "nobody there",
                                    "backlight", "used",     "no picture"};
constexpr std::array grantNames{"unknown", "observed", "granted", "refused"};

template <class Names, class Kind>
QString nameOf(const Names& names, Kind kind) {
  return QString::fromLatin1(names[static_cast<std::size_t>(kind)]);
}

}  // namespace

void obeyLoggingRules() {
  QString rules = qEnvironmentVariable("SENTREL_LOG");
  if (rules.isEmpty()) return;
  QLoggingCategory::setFilterRules(rules.replace(u';', u'\n'));
  qSetMessagePattern(
      isJournal(STDERR_FILENO)
          ? QStringLiteral("%{if-debug}<7>%{endif}%{if-info}<6>%{endif}%{if-warning}<4>%{endif}"
                           "%{if-critical}<3>%{endif}%{if-fatal}<2>%{endif}"
                           "%{category}: %{message}")
          : QStringLiteral("%{time process} %{category}: %{message}"));
}

EventLog::EventLog(Parts parts) : parts_(std::move(parts)), startedMs_(parts_.platform.clock->nowMs()) {
  const Platform& platform = parts_.platform;
  const auto camera = [this](const auto&...) { noteCamera(); };
  const auto screens = [this] { noteScreens(); };
  registrations_.push_back(parts_.sessionBus->follow([this](bool connected) {
    note(busLog, connected ? QStringLiteral("session bus connected") : QStringLiteral("no session bus"));
  }));
  registrations_.push_back(parts_.service->fsmState().subscribe(
      [this](const FilterState& state) { note(stateLog, QString::fromLatin1(stateName(state))); }));
  registrations_.push_back(parts_.cameraControl->status().onChange(camera));
  registrations_.push_back(parts_.cameraControl->failure().onChange(camera));
  registrations_.push_back(
      parts_.service->cameraCondition().onChange([this](const std::optional<CameraCondition>& condition) {
        note(cameraLog, condition ? nameOf(conditionNames, condition->kind) : QStringLiteral("sees well"));
      }));
  registrations_.push_back(platform.captureSession->devicesChanged.connect([this] {
    note(cameraLog, QStringLiteral("%1 listed").arg(parts_.platform.captureSession->devices().size()));
  }));
  registrations_.push_back(platform.overlayBackend->screensChanged.connect(screens));
  registrations_.push_back(platform.overlayBackend->limitationChanged.connect(screens));
  registrations_.push_back(platform.keyMonitor->grantChanged.connect([this] {
    note(desktopLog, QStringLiteral("shortcut ") +
                         nameOf(grantNames, parts_.platform.keyMonitor->grant(Shortcut::toggle).kind));
  }));
  registrations_.push_back(platform.screenSharing->isShared().onChange([this](bool shared) {
    note(desktopLog, shared ? QStringLiteral("screen is shared") : QStringLiteral("screen is not shared"));
  }));
  noteScreens();
}

std::int64_t EventLog::runningMs() const {
  return parts_.platform.clock->nowMs() - startedMs_;
}

void EventLog::noteCamera() {
  const CameraControl::Status status = parts_.cameraControl->status();
  QStringList words{nameOf(statusNames, status.kind)};
  const auto device = parts_.platform.captureSession->currentDevice();
  if (status.kind == CameraControl::Status::Kind::resting) words += nameOf(restNames, status.rest);
  if (status.kind == CameraControl::Status::Kind::seeing && device)
    words += presentable(QString::fromStdString(device->localizedName));
  if (const auto& failure = parts_.cameraControl->failure().get())
    words += nameOf(failureNames, failure->kind);
  note(cameraLog, words.join(QStringLiteral(": ")));
}

void EventLog::noteScreens() {
  const CoverFacts facts = CoverFacts::of(*parts_.platform.overlayBackend);
  QStringList words{facts.system.empty() ? QStringLiteral("none") : QString::fromStdString(facts.system)};
  for (const Screen& screen : facts.screens)
    words += QStringLiteral("%1x%2@%3").arg(screen.frame.width).arg(screen.frame.height).arg(screen.scale);
  if (!facts.limitation.empty()) words += QString::fromStdString(facts.limitation);
  note(displayLog, words.join(u' '));
}

void EventLog::note(Category category, const QString& words) {
  const char* name = category().categoryName();
  QString& newest = newest_[name];
  if (std::exchange(newest, words) == words) return;
  qCInfo(category).noquote() << words;
  last_.push_back({runningMs(), std::string(name) + ": " + words.toStdString()});
  if (last_.size() > most) last_.pop_front();
}

}  // namespace sentrel
