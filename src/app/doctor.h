// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/event_log.h"
#include "linux/camera/camera_survey.h"
#include "linux/display/display_survey.h"
#include "platform/desktop_services.h"
#include "support/main_loop.h"
#include "views/desktop_words.h"
#include "views/report_page.h"

// What there is to say when something does not work: asked of the machine and of the program that runs, and
// put into words. Main thread.

namespace sentrel {

/// The files that the program needs, and what it runs on.
struct LocalFacts {
  std::string system;     ///< distribution and kernel
  std::string processor;  ///< its name, or its kind
  std::string features;   ///< those that the detection can use
  unsigned cores = 0;
  enum class Settings { none, healthy, damaged, unreadable } settings = Settings::none;
  std::string modelFault;  ///< as the loader tells it; empty where they are as they should be
  bool mayReadCameras = true;
  std::vector<std::string> batteries;  ///< "57 %, Discharging", as the kernel tells it
};

/// What the machine says. None is what did not answer.
struct MachineFacts {
  std::optional<LocalFacts> local;
  std::optional<QStringList> sessionServices;  ///< names on the session bus, or startable there
  std::optional<QStringList> systemServices;
  QStringList portals;  ///< interfaces of the desktop's portal, in short
  std::optional<CameraSurvey> cameras;
  std::optional<DisplaySurvey> displays;
  std::optional<CoverFacts> cover;  ///< what the program would cover, were it to start
};

/// What only the program that runs knows.
struct ProgramFacts {
  enum class Running { yes, no, silent } running = Running::no;
  std::int64_t runningMs = 0;
  QString status;  ///< in words for the person
  std::optional<CameraFailure> failure;
  std::optional<CoverFacts> cover;  ///< of its back end
  std::string camera;               ///< the one in use, for people; empty without one
  std::optional<Tray> tray;
  std::optional<ShortcutGrant> shortcut;
  std::vector<EventLog::Event> events;
};

/// What names the person, or this very machine: where a report shows it, it is masked.
struct Secrets {
  QString home;
  QStringList names;  ///< of the person and of the machine, the longest first

  [[nodiscard]] static Secrets ofThisProcess();
};

/// Whether a back end of this process knows the screens.
enum class Screens { known, unknown };

/// Asks everything at once, and tells in a later turn what has answered, after 2 s at the latest, unless the
/// registration has ended by then. What is stuck then is left behind.
[[nodiscard]] Registration examineMachine(const std::shared_ptr<MainLoop>& mainLoop, Screens screens,
                                          std::function<void(const MachineFacts&)> told);

/// In the person's language. Free of serial numbers, and of what `secrets` names.
[[nodiscard]] Report makeReport(const MachineFacts& machine, const ProgramFacts& program,
                                const Secrets& secrets);

/// `words` as a report shows them.
[[nodiscard]] QString masked(const QString& words, const Secrets& secrets);

/// The report of a machine on which the program does not run, or does not answer. Runs the event loop
/// meanwhile.
[[nodiscard]] Report examineWithout(ProgramFacts::Running running);

}  // namespace sentrel
