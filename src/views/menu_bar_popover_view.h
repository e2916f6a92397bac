// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QUrl>
#include <QVBoxLayout>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

#include "detection/camera_control.h"
#include "service/privacy_filter_service.h"
#include "settings/stats_repository.h"
#include "support/published.h"
#include "support/registration.h"
#include "views/controls/scroll_page.h"
#include "views/controls/sheet.h"
#include "views/controls/text_label.h"
#include "views/controls/toggle_switch.h"
#include "views/eye_logo.h"

namespace sentrel {

/// The program's home: what protection is doing, its switch, and what else there is to open. Statistics and
/// About take its place and give it back. Made anew each time the popover opens. Main thread.
class MenuBarPopoverView : public QWidget {
 public:
  struct Parts {
    std::shared_ptr<PrivacyFilterService> service;
    std::shared_ptr<const Published<std::optional<CameraFailure>>> failure;  ///< why the camera gives nothing
    std::shared_ptr<StatsRepository> statsRepo;
    QString notice;     ///< what else a person must know, or empty
    QString version;    ///< of the program
    QUrl projectsPage;  ///< empty where the program was built without one
    std::function<void()> openPreferences;
    std::function<void()> quit;
    /// Opens an address; calls back where nothing on this desktop does.
    std::function<void(const QUrl&, std::function<void()> failed)> openLink;
  };
  enum class Page { home, stats, about };

  explicit MenuBarPopoverView(Parts parts, QWidget* parent = nullptr);

  void showPage(Page page);
  [[nodiscard]] Page page() const;
  /// True while a question waits for its answer, so that the popover must stay.
  [[nodiscard]] bool asks() const;
  /// Another page, or other words, want another size.
  std::function<void()> onSizeChanged;

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  QWidget* buildHome();
  QLayout* buildHeader();
  void addRow(QVBoxLayout& column, const QString& icon, const QString& label, std::function<void()> action);
  void showState(const FilterState& state);
  void showFailure();
  void openLink(const QUrl& address);
  void showAddress(const QString& address);

  Parts parts_;
  bool showStats = false;
  bool showAbout = false;
  QVBoxLayout* stack_;
  ScrollPage* home_;
  QWidget* page_ = nullptr;  // over home, or none
  QPointer<Sheet> address_;  // that the person may copy
  EyeLogo* logo_ = nullptr;
  TextLabel* status_ = nullptr;
  TextLabel* cause_ = nullptr;
  ToggleSwitch* switch_ = nullptr;
  Registration stateRegistration_;
  Registration activeRegistration_;
  Registration startingRegistration_;
  Registration failureRegistration_;
};

}  // namespace sentrel
