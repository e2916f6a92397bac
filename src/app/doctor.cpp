// SPDX-License-Identifier: Apache-2.0
#include "app/doctor.h"

#include <sys/utsname.h>
#include <systemd/sd-bus.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTimer>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

#include "app/build_options.h"
#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/defaults_file.h"
#include "linux/desktop/qt_main_loop.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "vision/models.h"

namespace sentrel {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds serviceLimit{1500};
constexpr std::int64_t longestMs = 2000;

QString text(const std::string& words) {
  return QString::fromStdString(words);
}

// What this process finds out by itself.

std::string contentOf(const fs::path& path) {
  std::ostringstream words;
  words << std::ifstream(path).rdbuf();
  std::string content = words.str();
  while (content.ends_with('\n')) content.pop_back();
  return content;
}

/// The first value under `key` in lines such as `KEY = value`.
std::string valueIn(const std::string& content, std::string_view key, char separator) {
  std::istringstream lines(content);
  for (std::string line; std::getline(lines, line);) {
    const auto end = line.find(separator);
    if (!line.starts_with(key) || end == std::string::npos) continue;
    const auto from = line.find_first_not_of(" \t\"", end + 1);
    return from == std::string::npos ? std::string()
                                     : line.substr(from, line.find_last_not_of('"') + 1 - from);
  }
  return {};
}

std::string usableFeatures(const std::string& processors) {
  std::istringstream all(valueIn(processors, "flags", ':') + " " + valueIn(processors, "Features", ':'));
  constexpr std::array<std::string_view, 9> usable{"sse4_1",   "avx",   "avx2", "fma",    "avx512f",
                                                   "avx_vnni", "asimd", "neon", "asimddp"};
  std::string found;
  for (std::string each; all >> each;)
    if (std::ranges::find(usable, each) != usable.end()) found += (found.empty() ? "" : " ") + each;
  return found;
}

LocalFacts askThisMachine() {
  LocalFacts facts;
  utsname kernel{};
  if (uname(&kernel) == 0)
    facts.system = std::string(kernel.sysname) + " " + kernel.release + " " + kernel.machine;
  if (const auto name = valueIn(contentOf("/etc/os-release"), "PRETTY_NAME", '='); !name.empty())
    facts.system = name + ", " + facts.system;
  const std::string processors = contentOf("/proc/cpuinfo");
  facts.processor = valueIn(processors, "model name", ':');
  if (facts.processor.empty()) facts.processor = kernel.machine;
  facts.features = usableFeatures(processors);
  facts.cores = std::thread::hardware_concurrency();

  const auto settings = DefaultsFile::read(DefaultsFile::personalPath());
  facts.settings = settings.error     ? LocalFacts::Settings::unreadable
                   : settings.damaged ? LocalFacts::Settings::damaged
                   : settings.bytes   ? LocalFacts::Settings::healthy
                                      : LocalFacts::Settings::none;
  try {
    static_cast<void>(vision::readModels(vision::modelFolder()));
  } catch (const std::exception& error) {
    facts.modelFault = error.what();
  }
  facts.mayReadCameras = mayReadVideoDevices();

  std::error_code error;
  for (fs::directory_iterator each("/sys/class/power_supply", error), end; !error && each != end;
       each.increment(error)) {
    // That of a mouse has the scope of a device.
    if (contentOf(each->path() / "type") != "Battery" || contentOf(each->path() / "scope") == "Device")
      continue;
    facts.batteries.push_back(contentOf(each->path() / "capacity") + " %, " +
                              contentOf(each->path() / "status"));
  }
  return facts;
}

/// What the program would cover, were it to run here.
CoverFacts askForCover() {
  constexpr std::chrono::milliseconds settling{300};  // until a compositing manager is found
  QEventLoop turns;  // first, because what follows needs this thread to have one
  QtMainLoop loop;
  const auto backend = createOverlayBackend(loop);
  QTimer::singleShot(settling, &turns, &QEventLoop::quit);
  turns.exec();
  return CoverFacts::of(*backend);
}

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using BusConnection = std::unique_ptr<sd_bus, CloseBus>;

/// A connection for some questions. None where nobody listens.
BusConnection openBus(int (*open)(sd_bus** made)) {
  sd_bus* made = nullptr;
  if (open(&made) < 0) return nullptr;
  sd_bus_set_method_call_timeout(made,
                                 static_cast<std::uint64_t>(std::chrono::microseconds(serviceLimit).count()));
  return BusConnection(made);
}

/// Who is on the bus, and who would be started as soon as somebody asks.
std::optional<QStringList> askForServices(int (*open)(sd_bus** made)) {
  const BusConnection bus = openBus(open);
  char** running = nullptr;
  char** startable = nullptr;
  if (!bus || sd_bus_list_names(bus.get(), &running, &startable) < 0) return std::nullopt;
  QStringList names;
  for (char** const list : {running, startable}) {
    for (char** name = list; name != nullptr && *name != nullptr; ++name) {
      names += QString::fromUtf8(*name);
      std::free(*name);
    }
    std::free(list);
  }
  return names;
}

/// The interfaces of the desktop's portal, in short.
QStringList askPortal() {
  static const QRegularExpression interface(
      QStringLiteral("interface name=\"org\\.freedesktop\\.portal\\.(\\w{1,40})\""));
  const BusConnection bus = openBus(sd_bus_open_user);
  sd_bus_message* asked = nullptr;
  sd_bus_message* reply = nullptr;
  const char* described = nullptr;
  QStringList found;
  if (!bus || sd_bus_message_new_method_call(bus.get(), &asked, "org.freedesktop.portal.Desktop",
                                             "/org/freedesktop/portal/desktop",
                                             "org.freedesktop.DBus.Introspectable", "Introspect") < 0)
    return found;
  sd_bus_message_set_auto_start(asked, 0);  // nothing is started by a look
  sd_bus_call(bus.get(), asked, 0, nullptr, &reply);
  sd_bus_message_unref(asked);
  if (reply != nullptr && sd_bus_message_read(reply, "s", &described) > 0)
    for (auto each = interface.globalMatch(QString::fromUtf8(described)); each.hasNext();)
      found += each.next().captured(1);
  sd_bus_message_unref(reply);
  return found;
}

// The report. Each function puts one concern into words.

class Words {
 public:
  explicit Words(const Secrets& secrets) : secrets_(secrets) {}

  void section(const QString& title) { report_.push_back({title, {}}); }
  /// `advice` makes it a problem.
  void line(const QString& label, const QString& value, const QString& advice = {}) {
    report_.back().lines.push_back(
        {masked(label, secrets_), masked(value, secrets_), masked(advice, secrets_)});
  }
  /// What may be there: where it is not, `advice` makes that a problem.
  void found(const QString& label, const QString& value, const QString& advice) {
    value.isEmpty() ? line(label, qtTrId("doctor_none"), advice) : line(label, value);
  }
  void silent(const QString& label, const QString& advice) {
    line(label, qtTrId("doctor_no_answer"), advice);
  }
  [[nodiscard]] Report take() { return std::move(report_); }

 private:
  const Secrets& secrets_;
  Report report_;
};

QString joined(const std::vector<std::string>& words, const QString& between) {
  QStringList list;
  for (const std::string& each : words) list += text(each);
  return list.join(between);
}

/// "0:04:31".
QString clockTime(std::int64_t ms) {
  const std::int64_t seconds = ms / 1000;
  return QStringLiteral("%1:%2:%3")
      .arg(seconds / 3600)
      .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
      .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

void tellProgram(Words& words, const MachineFacts& machine, const ProgramFacts& program) {
  words.section(QStringLiteral("Sentrel"));
  words.line(qtTrId("doctor_version"), QStringLiteral("Sentrel " SENTREL_VERSION ", Qt %1, PipeWire %2")
                                           .arg(QString::fromLatin1(qVersion()), text(pipeWireVersion())));
  if (const auto& local = machine.local) {
    words.line(qtTrId("doctor_system"), text(local->system));
    words.line(qtTrId("doctor_processor"),
               QStringLiteral("%1 × %2").arg(local->cores).arg(text(local->processor)));
    words.line(qtTrId("doctor_engine"), QStringLiteral("XNNPACK (%1)").arg(text(local->features)));
  } else {
    words.silent(qtTrId("doctor_system"), qtTrId("doctor_system_advice"));
  }
  switch (program.running) {
    case ProgramFacts::Running::yes:
      words.line(qtTrId("doctor_program"), qtTrId("doctor_running").arg(clockTime(program.runningMs)));
      words.line(qtTrId("doctor_protection"), QString(program.status).replace(u'\n', QStringLiteral(", ")),
                 program.failure ? qtTrId(adviceKey(program.failure->kind)) : QString());
      break;
    case ProgramFacts::Running::no:
      words.line(qtTrId("doctor_program"), qtTrId("doctor_not_running"));
      break;
    case ProgramFacts::Running::silent:
      words.silent(qtTrId("doctor_program"), qtTrId("doctor_silent_advice"));
      break;
  }
}

void tellDesktop(Words& words, const MachineFacts& machine, const ProgramFacts& program) {
  words.section(qtTrId("doctor_desktop"));
  const auto variable = [](const char* name) {
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? QStringLiteral("—") : value;
  };
  words.line(qtTrId("doctor_session"),
             variable("XDG_CURRENT_DESKTOP") + QStringLiteral(", ") + variable("XDG_SESSION_TYPE"));
  QStringList displays;
  for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY"})
    if (!qEnvironmentVariableIsEmpty(name)) displays += QString::fromLatin1(name);
  words.found(qtTrId("doctor_display"), displays.join(u' '), qtTrId("doctor_display_advice"));
  if (!machine.sessionServices) return words.silent(qtTrId("doctor_bus"), qtTrId("doctor_bus_advice"));
  const QStringList& services = *machine.sessionServices;
  const bool needsPortal = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
  words.found(qtTrId("doctor_portal"), machine.portals.join(u' '),
              needsPortal ? qtTrId("doctor_portal_advice") : QString());
  const bool notifies = services.contains(QStringLiteral("org.freedesktop.Notifications"));
  words.found(qtTrId("doctor_notifications"), notifies ? qtTrId("doctor_yes") : QString(),
              qtTrId("doctor_notifications_advice"));
  const Tray offered = services.contains(QStringLiteral("org.kde.StatusNotifierWatcher"))
                           ? Tray::statusNotifier
                       : machine.displays && machine.displays->hasX11Tray ? Tray::x11
                                                                          : Tray::none;
  const Tray tray = program.tray.value_or(offered);
  words.line(qtTrId("doctor_tray"), trayWords(tray),
             tray == Tray::none ? qtTrId("doctor_tray_advice") : QString());
  if (const auto& shortcut = program.shortcut) {
    const bool isRefused = shortcut->kind == ShortcutGrant::Kind::refused;
    words.line(qtTrId("doctor_shortcut"), shortcutWords(*shortcut, qtTrId("⌘⇧C")),
               isRefused ? qtTrId("doctor_shortcut_advice") : QString());
  }
}

/// Why the windowing system was chosen.
QString coverReason(const CoverFacts& cover) {
  if (!cover.limitation.empty()) return {};
  const bool isWayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
  if (cover.system == "Wayland") return QStringLiteral(" (layer shell)");
  if (cover.system == "X11" && isWayland) return u' ' + qtTrId("doctor_cover_through_x11");
  return {};
}

void tellScreens(Words& words, const MachineFacts& machine, const ProgramFacts& program) {
  words.section(qtTrId("doctor_screens"));
  if (const auto& cover = program.cover ? program.cover : machine.cover) {
    const std::string& limitation = cover->limitation;
    words.line(qtTrId("doctor_cover"), coverWords(*cover, true) + coverReason(*cover),
               limitation.empty()                     ? QString()
               : limitation == "error_no_compositing" ? qtTrId("doctor_compositing_advice")
                                                      : qtTrId("doctor_cover_advice"));
    for (const Screen& screen : cover->screens)
      words.line(text(screen.name), QStringLiteral("%1x%2 @ %3")
                                        .arg(screen.frame.width)
                                        .arg(screen.frame.height)
                                        .arg(screen.scale, 0, 'g', 3));
  } else {
    words.silent(qtTrId("doctor_cover"), qtTrId("doctor_cover_advice"));
  }
  if (machine.displays && machine.displays->protocols)
    words.line(qtTrId("doctor_protocols"), joined(*machine.displays->protocols, QStringLiteral(", ")));
}

void tellCameras(Words& words, const MachineFacts& machine, const ProgramFacts& program) {
  words.section(qtTrId("doctor_cameras"));
  const auto advice = [](CameraFailure::Kind kind) { return qtTrId(adviceKey(kind)); };
  if (!machine.cameras) {
    words.silent(QStringLiteral("PipeWire"), qtTrId("doctor_pipewire_advice"));
  } else {
    words.line(QStringLiteral("PipeWire"), text(machine.cameras->version));
    for (const auto& camera : machine.cameras->cameras)
      words.line(presentable(text(camera.name)), joined(camera.formats, QStringLiteral("; ")));
    if (machine.cameras->cameras.empty())
      words.found(qtTrId("doctor_cameras"), {}, advice(CameraFailure::Kind::noCamera));
  }
  if (!program.camera.empty()) words.line(qtTrId("doctor_camera_used"), text(program.camera));
  if (machine.local && !machine.local->mayReadCameras)
    words.line(qtTrId("doctor_access"), qtTrId("refusé"), advice(CameraFailure::Kind::cameraDenied));
}

void tellWitnesses(Words& words, const MachineFacts& machine) {
  words.section(qtTrId("doctor_witnesses"));
  QStringList known =
      machine.sessionServices.value_or(QStringList()) + machine.systemServices.value_or(QStringList());
  if (const auto& displays = machine.displays) {
    if (displays->hasDpms) known += QStringLiteral("DPMS");
    for (const std::string& protocol : displays->protocols.value_or(std::vector<std::string>()))
      known += text(protocol).section(u' ', 0, 0);  // without its version
  }
  const auto present = [&](std::initializer_list<const char*> names) {
    QStringList found;
    for (const char* name : names)
      if (known.contains(QLatin1String(name))) found += QLatin1String(name);
    return found.join(u' ');
  };
  words.found(qtTrId("doctor_lock"),
              present({"org.freedesktop.login1", "org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver",
                       "org.xfce.ScreenSaver", "org.mate.ScreenSaver"}),
              qtTrId("doctor_lock_advice"));
  words.found(qtTrId("doctor_sleep"), present({"org.freedesktop.login1"}), qtTrId("doctor_sleep_advice"));
  words.found(qtTrId("doctor_dark"),
              present({"org.gnome.Mutter.DisplayConfig", "zwlr_output_power_manager_v1",
                       "org_kde_kwin_dpms_manager", "DPMS"}),
              {});
  const QString power = present({"org.freedesktop.UPower"});
  const bool hasBattery = machine.local && !machine.local->batteries.empty();
  words.found(qtTrId("doctor_power"), power.isEmpty() && !hasBattery ? qtTrId("doctor_mains") : power,
              qtTrId("doctor_power_advice"));
  if (!hasBattery) return;
  for (const std::string& battery : machine.local->batteries)
    words.line(qtTrId("doctor_battery"), text(battery));
}

void tellFiles(Words& words, const MachineFacts& machine) {
  if (!machine.local) return;
  words.section(qtTrId("doctor_files"));
  using Settings = LocalFacts::Settings;
  const Settings settings = machine.local->settings;
  words.line(qtTrId("doctor_settings"),
             settings == Settings::healthy   ? qtTrId("doctor_healthy")
             : settings == Settings::none    ? qtTrId("doctor_settings_none")
             : settings == Settings::damaged ? qtTrId("doctor_settings_damaged")
                                             : qtTrId("doctor_settings_unreadable"),
             settings == Settings::damaged      ? qtTrId("doctor_settings_damaged_advice")
             : settings == Settings::unreadable ? qtTrId("doctor_settings_unreadable_advice")
                                                : QString());
  const bool isWhole = machine.local->modelFault.empty();
  words.line(qtTrId("doctor_models"), isWhole ? qtTrId("doctor_healthy") : text(machine.local->modelFault),
             isWhole ? QString() : qtTrId(adviceKey(CameraFailure::Kind::modelMissing)));
}

void tellEvents(Words& words, const ProgramFacts& program) {
  if (program.events.empty()) return;
  words.section(qtTrId("doctor_events"));
  for (const EventLog::Event& event : program.events)
    words.line(QStringLiteral("+") + clockTime(event.sinceStartMs), text(event.words));
}

}  // namespace

Secrets Secrets::ofThisProcess() {
  Secrets secrets{.home = qEnvironmentVariable("HOME"), .names = {}};
  while (secrets.home.endsWith(u'/')) secrets.home.chop(1);
  utsname machine{};
  const QString host = uname(&machine) == 0 ? QString::fromLocal8Bit(machine.nodename) : QString();
  secrets.names = QStringList{qEnvironmentVariable("USER"), qEnvironmentVariable("LOGNAME"),
                              QFileInfo(secrets.home).fileName(), host};
  secrets.names.removeAll(QString());
  secrets.names.removeDuplicates();
  std::ranges::sort(secrets.names, std::greater(), &QString::size);
  return secrets;
}

QString masked(const QString& words, const Secrets& secrets) {
  constexpr qsizetype longest = 2000;
  QString shown = presentable(words, longest);
  if (!secrets.home.isEmpty()) shown.replace(secrets.home, QStringLiteral("~"));
  for (const QString& name : secrets.names)
    shown.replace(
        QRegularExpression(QStringLiteral("(?<!\\w)%1(?!\\w)").arg(QRegularExpression::escape(name)),
                           QRegularExpression::UseUnicodePropertiesOption),
        QStringLiteral("***"));
  // Eight letters and digits or more, with four digits among them: the number of one device, unless it is a
  // size in pixels.
  static const QRegularExpression serial(QStringLiteral(
      "(?<![0-9A-Za-z])(?![0-9]+x[0-9]+(?![0-9A-Za-z]))(?=(?:[A-Za-z]*[0-9]){4})[0-9A-Za-z]{8,}"));
  return shown.replace(serial, QStringLiteral("***"));
}

Registration examineMachine(const std::shared_ptr<MainLoop>& mainLoop, Screens screens,
                            std::function<void(const MachineFacts&)> told) {
  struct Examination {
    std::function<void(const MachineFacts&)> told;
    MachineFacts facts{};
    int open = 0;
    Registration deadline{};

    void end() {
      deadline.reset();
      if (const auto tell = std::exchange(told, nullptr)) tell(facts);
    }
  };
  const auto owned = std::make_shared<Examination>(Examination{std::move(told)});
  const std::weak_ptr weak(owned);
  // Each on a thread of its own: what is stuck stays behind.
  const auto ask = [&](auto question, auto MachineFacts::*field) {
    ++owned->open;
    std::thread([loop = std::weak_ptr(mainLoop), weak, question, field] {
      auto answer = question();
      const auto live = loop.lock();
      if (!live) return;
      live->post([weak, field, answer = std::move(answer)] {
        const auto examination = weak.lock();
        if (!examination) return;
        examination->facts.*field = answer;
        if (--examination->open == 0) examination->end();
      });
    }).detach();
  };
  ask(askThisMachine, &MachineFacts::local);
  ask(surveyDisplays, &MachineFacts::displays);
  ask([] { return surveyCameras(serviceLimit); }, &MachineFacts::cameras);
  ask([] { return askForServices(sd_bus_open_user); }, &MachineFacts::sessionServices);
  ask([] { return askForServices(sd_bus_open_system); }, &MachineFacts::systemServices);
  ask(askPortal, &MachineFacts::portals);
  if (screens == Screens::unknown) ask(askForCover, &MachineFacts::cover);
  owned->deadline = mainLoop->after(longestMs, [weak] {
    if (const auto examination = weak.lock()) examination->end();
  });
  return Registration([owned] {});
}

Report makeReport(const MachineFacts& machine, const ProgramFacts& program, const Secrets& secrets) {
  Words words(secrets);
  tellProgram(words, machine, program);
  tellDesktop(words, machine, program);
  tellScreens(words, machine, program);
  tellCameras(words, machine, program);
  tellWitnesses(words, machine);
  tellFiles(words, machine);
  tellEvents(words, program);
  return words.take();
}

Report examineWithout(ProgramFacts::Running running) {
  const auto mainLoop = std::make_shared<QtMainLoop>();
  ProgramFacts program;
  program.running = running;
  Report report;
  const auto examination = examineMachine(mainLoop, Screens::unknown, [&](const MachineFacts& machine) {
    report = makeReport(machine, program, Secrets::ofThisProcess());
    QCoreApplication::quit();
  });
  QCoreApplication::exec();
  return report;
}

}  // namespace sentrel
