// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QBoxLayout>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

#include "detection/calibration_session.h"
#include "support/registration.h"
#include "views/controls/buttons.h"
#include "views/controls/labels.h"
#include "views/eye_logo.h"

namespace sentrel {

/// Leads a person through a calibration: says what to do, counts down, shows the measured distance to accept,
/// adjust or measure again. When it goes, so does what runs. Main thread.
class CalibrationView : public QWidget {
 public:
  /// Takes a session of its own, which is idle. `done` is called after a distance was accepted.
  CalibrationView(std::shared_ptr<CalibrationSession> newSession, std::function<void()> done);
  ~CalibrationView() override;

  /// What the Escape key means: cancels while something runs; false where there is nothing to cancel.
  bool cancelRunning();
  /// The button that is pressed by the Enter key; none while something runs.
  [[nodiscard]] QWidget* defaultButton() const { return primary_; }

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  using Phase = CalibrationSession::Phase;

  void show(const Phase& phase);
  void abandon();
  void build();
  void buildCounting(QVBoxLayout& column);
  void buildMeasuring(QVBoxLayout& column);
  void buildDone(QVBoxLayout& column);
  void buildFailed(QVBoxLayout& column);
  PushButton* addButton(QBoxLayout& line, PushButton::Kind kind, const QString& words, int width,
                        std::function<void()> action);
  void adjust(std::int64_t by);
  void showDistance();
  [[nodiscard]] std::int64_t distance() const;
  [[nodiscard]] bool isMeasuring() const;

  const std::shared_ptr<CalibrationSession> session;
  const std::function<void()> onDone;
  std::int64_t adjustedDistance = 0;  // 0 means not adjusted
  Phase shown_ = Phase::idle();
  QVBoxLayout* column_;
  EyeLogo* logo_;
  QWidget* content_ = nullptr;  // what the phase shows; all that follows is in it
  PushButton* primary_ = nullptr;
  TextLabel* count_ = nullptr;
  TextLabel* value_ = nullptr;
  QAbstractButton* minus_ = nullptr;
  QAbstractButton* plus_ = nullptr;
  Registration phaseRegistration_;
};

/// Opens a calibration as a sheet over `window`, with a toolbar button of `leaveWords` that leaves it. The
/// sheet is the window's; `closed` is called when it has gone, however it went. Main thread.
void openCalibrationSheet(QWidget& window, std::shared_ptr<CalibrationSession> session,
                          const QString& leaveWords, std::function<void()> closed);

}  // namespace sentrel
