// SPDX-License-Identifier: Apache-2.0
#include "views/camera_preview_view.h"

#include <QImage>
#include <QPainterPath>
#include <utility>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr double radius = 10;

}  // namespace

struct CameraPreviewView::Inbox {
  Latest<FrameRef> newest;
  CameraPreviewView* view = nullptr;  // main thread; null once it has gone
};

CameraPreviewView::CameraPreviewView(std::shared_ptr<AVCaptureManager> camera,
                                     std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<const Clock> clock)
    : camera_(std::move(camera)),
      mainLoop_(std::move(mainLoop)),
      inbox_(std::make_shared<Inbox>()),
      findings_(std::move(clock)) {
  inbox_->view = this;
  setFocusPolicy(Qt::NoFocus);
  runningRegistration_ = camera_->isRunning().onChange([this](bool running) {
    if (!running) goBlack();
  });
  interruptedRegistration_ = camera_->session()->wasInterrupted.connect([this] { goBlack(); });
}

CameraPreviewView::~CameraPreviewView() {
  inbox_->view = nullptr;
  if (tapped_) camera_->session()->setPreviewTap({});
}

void CameraPreviewView::setResting(bool resting) {
  resting_ = resting;
  updateTap();
}

void CameraPreviewView::showFindings(PrivacyFilterService* service) {
  findingService_ = service;
  updateFindings();
}

/// They are asked for only while the picture is seen.
void CameraPreviewView::updateFindings() {
  findingsRegistration_.reset();
  findings_.clear();
  setAccessibleDescription({});
  update();
  if (!tapped_ || findingService_ == nullptr) return;
  findingsRegistration_ = findingService_->liveView().watch([this](const LiveFrame& frame) {
    findings_.show(frame);
    const QString words = findings_.words();
    if (words != accessibleDescription()) setAccessibleDescription(words);
  });
}

void CameraPreviewView::updateTap() {
  const bool wanted = isVisible() && !resting_;
  if (wanted == std::exchange(tapped_, wanted)) return;
  updateFindings();
  if (!wanted) {
    camera_->session()->setPreviewTap({});
    goBlack();
    return;
  }
  camera_->session()->setPreviewTap([inbox = inbox_, loop = mainLoop_](const FrameRef& frame) {
    if (!inbox->newest.put(frame)) return;  // the one before was not even seen
    loop->post([inbox] {
      if (inbox->view != nullptr) inbox->view->takeFrame();
    });
  });
}

void CameraPreviewView::takeFrame() {
  auto frame = inbox_->newest.take();
  if (!frame || !tapped_ || !camera_->isRunning()) return;
  frame_ = *std::move(frame);
  update();
}

void CameraPreviewView::goBlack() {
  inbox_->newest.take();
  if (!frame_) return;
  frame_.reset();
  findings_.clear();
  update();
}

void CameraPreviewView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
  const QRectF box(rect());
  QPainterPath shape;
  shape.addRoundedRect(box, radius, radius);
  painter.fillPath(shape, Qt::black);
  if (frame_ && !frame_->empty()) {
    // The frame's own memory: nothing is copied.
    const QImage picture(frame_->data(), frame_->width(), frame_->height(), frame_->stride(),
                         QImage::Format_RGB32);
    // Faces are anywhere in the picture, so that all of it is shown with them.
    const QSizeF shown = QSizeF(picture.size())
                             .scaled(box.size(), findingService_ == nullptr ? Qt::KeepAspectRatioByExpanding
                                                                            : Qt::KeepAspectRatio);
    const auto device = camera_->session()->currentDevice();
    QTransform place;
    if (device && device->position == CameraPosition::front) place = QTransform(-1, 0, 0, 1, box.width(), 0);
    const double scale = shown.width() / picture.width();
    place =
        QTransform::fromScale(scale, scale) *
        QTransform::fromTranslate((box.width() - shown.width()) / 2, (box.height() - shown.height()) / 2) *
        place;
    QPainterPath all;
    all.addRect(place.mapRect(QRectF(picture.rect())));
    QBrush brush(picture);
    brush.setTransform(place);
    painter.setPen(Qt::NoPen);
    painter.setBrush(brush);
    painter.drawPath(shape.intersected(all));
    painter.setClipPath(shape);
    findings_.paint(painter, box, QTransform::fromScale(picture.width(), picture.height()) * place);
    painter.setClipping(false);
  }
  paintBox(painter, box, radius, {}, withAlpha(colors().textSecondary, 0.2));
}

}  // namespace sentrel
