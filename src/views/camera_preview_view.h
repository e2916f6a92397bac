// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointF>
#include <QRectF>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <optional>

#include "detection/av_capture_manager.h"
#include "service/privacy_filter_service.h"
#include "support/frame.h"
#include "support/main_loop.h"
#include "support/registration.h"
#include "support/serial_queue.h"
#include "views/controls/animation.h"
#include "views/live_overlay.h"

namespace sentrel {

/// The part of a camera's picture that a view of another shape shows: it fills the view, with the person's
/// face in its middle as far as the picture reaches, and the picture's middle where no face is. It rests
/// while the face moves little, and glides after one that goes farther. Main thread.
class PreviewCut {
 public:
  explicit PreviewCut(QWidget& view)
      : x_(view, glideMs, QEasingCurve::InOutCubic, 0.5), y_(view, glideMs, QEasingCurve::InOutCubic, 0.5) {}

  /// What was found in a frame.
  void follow(const LiveFrame& frame);
  /// No frames come: the next face is looked at at once.
  void clear() { faceMs_.reset(); }
  /// In a picture of `size`, in its pixels from the top left, for a view of the shape of `view`.
  [[nodiscard]] QRectF of(QSizeF size, QSizeF view) const;

 private:
  static constexpr int glideMs = 500;

  void lookAt(QPointF place);

  // As shares of the picture.
  QPointF place_{0.5, 0.5};
  AnimatedValue x_;
  AnimatedValue y_;
  std::optional<std::int64_t> faceMs_;  // when a face was there last
};

/// The live picture of the camera while it is seen and the camera runs, black otherwise. The picture fills
/// the view and is cut, and is letterboxed only while faces are drawn over it; that of a front camera is
/// mirrored. It neither starts nor stops the camera. Main thread.
class CameraPreviewView : public QWidget {
 public:
  /// The service outlives the view.
  CameraPreviewView(std::shared_ptr<AVCaptureManager> camera, PrivacyFilterService& service,
                    std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<const Clock> clock);
  ~CameraPreviewView() override;

  /// While the session is locked or away, or the window minimised, nobody looks, though the view is shown.
  void setResting(bool resting);
  /// Draws what protection sees over the picture while it is seen.
  void showFindings(bool shown);

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
  PrivacyFilterService& service_;
  const std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<Inbox> inbox_;
  FrameRef frame_;
  PreviewCut cut_;
  LiveOverlay findings_;
  bool showsFindings_ = false;
  bool resting_ = false;
  bool tapped_ = false;
  Registration runningRegistration_;
  Registration interruptedRegistration_;
  Registration findingsRegistration_;
};

}  // namespace sentrel
