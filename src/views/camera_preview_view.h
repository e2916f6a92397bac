// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>
#include <memory>

#include "detection/av_capture_manager.h"
#include "service/privacy_filter_service.h"
#include "support/frame.h"
#include "support/main_loop.h"
#include "support/registration.h"
#include "support/serial_queue.h"
#include "views/live_overlay.h"

namespace sentrel {

/// The live picture of the camera while it is seen and the camera runs, black otherwise. The picture fills
/// the view and is cut, never letterboxed; that of a front camera is mirrored. It neither starts nor stops
/// the camera. Main thread.
class CameraPreviewView : public QWidget {
 public:
  CameraPreviewView(std::shared_ptr<AVCaptureManager> camera, std::shared_ptr<MainLoop> mainLoop,
                    std::shared_ptr<const Clock> clock);
  ~CameraPreviewView() override;

  /// While the session is locked or away, or the window minimised, nobody looks, though the view is shown.
  void setResting(bool resting);
  /// Draws what protection sees over the picture while it is seen; null draws nothing. The service outlives
  /// the view.
  void showFindings(PrivacyFilterService* service);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void showEvent(QShowEvent* /*event*/) override { updateTap(); }
  void hideEvent(QHideEvent* /*event*/) override { updateTap(); }

 private:
  /// Where the camera queue puts frames.
  struct Inbox;

  /// Asks the camera for frames while somebody can look, and for none otherwise.
  void updateTap();
  void updateFindings();
  void takeFrame();
  void goBlack();

  const std::shared_ptr<AVCaptureManager> camera_;
  const std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<Inbox> inbox_;
  FrameRef frame_;
  LiveOverlay findings_;
  PrivacyFilterService* findingService_ = nullptr;
  bool resting_ = false;
  bool tapped_ = false;
  Registration runningRegistration_;
  Registration interruptedRegistration_;
  Registration findingsRegistration_;
};

}  // namespace sentrel
