// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVBoxLayout>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

#include "detection/calibration_session.h"
#include "support/registration.h"
#include "views/controls/push_button.h"
#include "views/controls/round_button.h"
#include "views/controls/text_label.h"
#include "views/eye_logo.h"

namespace sentrel {

/// Leads a person through a calibration: says what to do, counts down, shows the measured distance to accept,
/// adjust or measure again. When it goes, so does what runs. Main thread.
class CalibrationView : public QWidget {
 public:
  struct Parts {
    std::shared_ptr<CalibrationSession> session;  ///< its own, idle
  };

  /// `done` is called after a distance was accepted.
  CalibrationView(Parts parts, std::function<void()> done, QWidget* parent = nullptr);
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
  void buildPhase(const Phase& phase);
  void buildDone(QVBoxLayout& column);
  void buildButtons(const Phase& phase);
  PushButton* addButton(PushButton::Kind kind, const QString& words, int width, std::function<void()> action);
  void adjust(std::int64_t by);
  void showDistance();
  [[nodiscard]] std::int64_t distance() const;
  [[nodiscard]] bool isMeasuring() const;

  const Parts parts_;
  const std::function<void()> onDone;
  std::int64_t adjustedDistance = 0;  // 0 means not adjusted
  Phase shown_ = Phase::idle();
  EyeLogo* logo_;
  QWidget* area_;  // where the phase's content goes
  QWidget* content_ = nullptr;
  QWidget* bar_;
  QWidget* buttons_ = nullptr;
  PushButton* primary_ = nullptr;  // pressed by the Enter key
  TextLabel* count_ = nullptr;
  TextLabel* value_ = nullptr;
  RoundButton* minus_ = nullptr;
  RoundButton* plus_ = nullptr;
  Registration phaseRegistration_;
};

}  // namespace sentrel
