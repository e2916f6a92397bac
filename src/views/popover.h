// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QRect>
#include <QUrl>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "detection/camera_condition.h"
#include "detection/camera_control.h"
#include "platform/alert_journal.h"
#include "platform/overlay_surface.h"
#include "platform/privacy_proof.h"
#include "service/privacy_filter_service.h"
#include "service/remote_control.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"
#include "views/controls/labels.h"
#include "views/controls/layout.h"
#include "views/controls/windows.h"
#include "views/eye_logo.h"
#include "views/report_page.h"

namespace sentrel {

class RelaxationRows;

/// What protection is doing, in words and in the colour of those words.
struct StatusWords {
  QString words;
  QColor AppColors::*color;
};
[[nodiscard]] StatusWords statusWords(const FilterState& state);

/// What keeps the camera from giving frames, in words; empty while nothing does.
[[nodiscard]] QString failureWords(const std::optional<CameraFailure>& failure);

/// The same, or what keeps it from seeing well, which says more; in the warning colour where nobody is
/// watched though frames come. Another program's name is shortened, and has nothing in it that cannot be
/// seen.
[[nodiscard]] StatusWords cameraWords(const std::optional<CameraFailure>& failure,
                                      const std::optional<CameraCondition>& condition);

/// What weakens protection for a while and until when, in words: the first of a pause, a shared screen, and
/// guests; empty while nothing does.
[[nodiscard]] QString relaxationWords(const Relaxations& relaxations, std::int64_t nowMs);

/// What keeps screens from being covered, in words; empty while nothing does.
[[nodiscard]] QString limitationWords(const OverlayBackend& backend);

/// How many faces are nobody, and what a command or a notification has weakened, in words; empty where there
/// is nothing to say.
[[nodiscard]] QString ignoredWords(std::size_t places);
[[nodiscard]] QString originWords(std::optional<RemoteControl::Origin> origin);

/// The program's home: what protection is doing, its switch, and what else there is to open. Statistics and
/// About take its place and give it back. Made anew each time the popover opens. Main thread.
class MenuBarPopoverView : public QWidget {
 public:
  struct Parts {
    std::shared_ptr<PrivacyFilterService> service;
    std::shared_ptr<const Clock> clock;
    std::shared_ptr<RemoteControl> remote = nullptr;  ///< null where no commands come from outside
    std::shared_ptr<const Published<std::optional<CameraFailure>>> failure;  ///< why the camera gives nothing
    std::shared_ptr<StatsRepository> statsRepo;
    std::shared_ptr<SettingsRepository> settingsRepo;
    std::shared_ptr<AlertJournal> journal;
    std::shared_ptr<PrivacyProof> proof;
    std::shared_ptr<OverlayBackend> overlayBackend;
    QString notice;     ///< what a person must be told once, or empty
    QString version;    ///< of the program
    QUrl projectsPage;  ///< empty where the program was built without one
    std::function<void()> openPreferences;
    std::function<void()> quit;
    AskForReport askForReport;
    /// Opens an address; calls back where nothing on this desktop does.
    std::function<void(const QUrl&, std::function<void()> failed)> openLink;
  };
  enum class Page { home, stats, about, privacy, report };

  MenuBarPopoverView(Parts parts, QWidget* parent);

  void showPage(Page page);
  [[nodiscard]] Page page() const;
  /// True while a question waits for its answer, so that the popover must stay.
  [[nodiscard]] bool asks() const;
  /// Another page, or other words, want another size.
  std::function<void()> onSizeChanged;

  /// To be called before it is hidden: what it shows of commands has been seen.
  void closes();

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  QWidget* buildHome();
  QLayout* buildHeader();
  QWidget* buildFooter();
  void showWords();
  /// Where nothing opens it, its address is shown to be copied.
  void openProjectsPage();

  const Parts parts_;
  bool showStats = false;
  bool showAbout = false;
  bool showPrivacy_ = false;
  bool showReport_ = false;
  QBoxLayout* stack_;
  ScrollPage* home_;
  QWidget* page_ = nullptr;  // over home, or none
  QPointer<Sheet> address_;  // that the person may copy
  EyeLogo* logo_ = nullptr;
  TextLabel* status_ = nullptr;
  TextLabel* cause_ = nullptr;
  DrawnButton* ignored_ = nullptr;
  TextLabel* news_ = nullptr;
  ToggleSwitch* switch_ = nullptr;
  RelaxationRows* relaxations_ = nullptr;
  std::vector<Registration> registrations_;
};

/// Where the popover stands: right-aligned with what it belongs to, 8 pixels away from it and at least 8
/// inside the work area, below where there is space and above otherwise.
[[nodiscard]] QRect placePopover(const QRect& anchor, const QRect& workArea, QSize size);

/// The frameless window around the popover's content. It closes on Escape and when another window gets the
/// focus, except while it asks something; then it deletes itself. Main thread.
class PopoverWindow : public QWidget {
 public:
  /// Without translucency the window is a plain rectangle without a shadow.
  enum class Ground { translucent, opaque };

  PopoverWindow(MenuBarPopoverView::Parts parts, Ground ground);

  /// Opens beside `anchor`, in screen coordinates; where the desktop places windows itself it decides.
  void openAt(const QRect& anchor);
  [[nodiscard]] MenuBarPopoverView& content() const { return *content_; }
  std::function<void()> onClosed;

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void place();
  void appear();
  [[nodiscard]] QPoint contentPlace() const;

  const int margin_;  // around the content, for its shadow; 0 where there is none
  MenuBarPopoverView* content_;
  AnimatedValue presence_{*this, 120, QEasingCurve::OutCubic, 1};  // less than 1 while it opens
  QRect anchor_;
};

}  // namespace sentrel
