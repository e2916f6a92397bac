// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QTimer>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "detection/av_capture_manager.h"
#include "detection/calibration_session.h"
#include "detection/camera_control.h"
#include "platform/desktop_services.h"
#include "service/privacy_filter_service.h"
#include "settings/protection_options.h"
#include "settings/settings_repository.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"
#include "views/camera_preview_view.h"
#include "views/controls/labels.h"
#include "views/controls/layout.h"
#include "views/controls/pickers.h"
#include "views/controls/value_slider.h"
#include "views/controls/windows.h"
#include "views/desktop_words.h"

namespace sentrel {

class Card;
class PrefRow;

/// The preferences window: every setting in seven sections, saved with each change. The controls edit drafts,
/// which are replaced when something else saves. Main thread.
class PreferencesView : public FixedWindow {
 public:
  struct Parts {
    std::shared_ptr<SettingsRepository> settingsRepo;
    std::shared_ptr<AVCaptureManager> camera;
    std::shared_ptr<PrivacyFilterService> service;
    std::shared_ptr<const Clock> clock;
    std::shared_ptr<LoginItem> loginItem;
    std::shared_ptr<KeyMonitor> keyMonitor;
    std::shared_ptr<AlertJournal> journal;
    std::shared_ptr<const Published<std::optional<CameraFailure>>> failure;  ///< why the camera gives nothing
    std::shared_ptr<Notifications> notifications;
    std::shared_ptr<OverlayBackend> overlayBackend;
    std::function<Tray()> tray;  ///< that has the program's icon at this moment
    std::shared_ptr<MainLoop> mainLoop;
    std::function<std::shared_ptr<CalibrationSession>()> newCalibration;
  };

  explicit PreferencesView(Parts parts);

  /// In pixels from the top of the page.
  void scrollTo(int y) { page_->scrollTo(y); }
  /// The whole page, however little of it the window shows.
  [[nodiscard]] QWidget* page() const { return page_->widget(); }
  /// Nothing where it is open already.
  void openCalibration();

 protected:
  void changeEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void buildCamera(QBoxLayout& column);
  void buildDetection(Card& card);
  void buildBehaviour(Card& card);
  void buildReactions(Card& card);
  void buildExceptions(Card& card);
  void buildMatrix(Card& card);
  void buildAdvanced(Card& card);

  // Each adds a row whose control shows and edits a field of a draft.
  PrefRow* addSwitch(Card& card, const QString& label, const QString& hint, bool FilterSettings::*field);
  template <class Number>
  PrefRow* addSlider(Card& card, const QString& label, const QString& hint, ValueSlider::Range range,
                     std::function<QString(double)> words, Number FilterSettings::*field);
  void addChoices(Card& card, const QString& label, const QString& hint,
                  const std::vector<SegmentedPicker::Choice>& choices, std::int64_t FilterSettings::*field);
  template <class Value>
  void addMenu(Card& card, const QString& label, const QString& hint,
               const std::vector<std::pair<QString, Value>>& choices, Value ProtectionOptions::*field);
  void addAlertAfter(Card& card);
  PrefRow* addOption(Card& card, const QString& label, const QString& hint, bool ProtectionOptions::*field);
  void addHideOthers(Card& card);
  void addDesktop(Card& card);
  void addCoverShortcut(Card& card);
  void addJournal(Card& card);
  void addLaunchAtLogin(Card& card);
  void addCalibration(Card& card);

  /// A face that is ignored, or a row that is not shown.
  struct IgnoredRow {
    QWidget* row;
    TextLabel* since;
    PushButton* forget;
    IgnoredPlace place;
  };
  QWidget* makeIgnored(IgnoredRow& face, bool isFirst);
  void paintPlace(QPainter& painter, const QRectF& whole, const IgnoredPlace& place) const;
  void showIgnored();
  void showIgnoredTimes();
  void showCameraWords();

  /// Lists the cameras anew.
  void discoverCameras();
  void chooseCamera(int index);
  void showDraft();

  const Parts parts_;
  FilterSettings draft;
  ProtectionOptions options_;
  bool showCalibration = false;
  std::vector<CameraDevice> availableCameras;
  bool showing_ = false;                           // the controls follow the draft, not the person
  std::vector<std::function<void()>> refreshers_;  // each shows a field of the draft in its control
  ScrollPage* page_;
  TextLabel* cameraWords_ = nullptr;
  CameraPreviewView* preview_ = nullptr;
  MenuPicker* cameraPicker_ = nullptr;
  std::array<IgnoredRow, OnlookerFilter::mostIgnored> ignoredRows_{};
  TextLabel* noneIgnored_ = nullptr;
  QTimer ignoredTicks_;
  Registration settingsRegistration_;
  Registration optionsRegistration_;
  Registration ignoredRegistration_;
  Registration listedRegistration_;
  Registration devicesRegistration_;
  Registration keysRegistration_;
  Registration coverKeysRegistration_;
  Registration hidingRegistration_;
  std::array<Registration, 3> desktopRegistrations_;
  Registration stateRegistration_;
  Registration failureRegistration_;
  Registration conditionRegistration_;
};

}  // namespace sentrel
