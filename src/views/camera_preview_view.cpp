// SPDX-License-Identifier: Apache-2.0
#include "views/camera_preview_view.h"

#include <QImage>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <utility>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr double radius = 10;

// Of the picture's width and height. A person who works moves less than this.
constexpr double calm = 0.1;
// A face that is lost for less has turned away, or was overlooked.
constexpr std::int64_t lostMs = 3000;

}  // namespace

void PreviewCut::follow(const LiveFrame& frame) {
  const auto face = std::ranges::find(frame.faces, FaceRole::person, &LiveFrame::Face::role);
  if (face != frame.faces.end()) {
    const auto& box = face->box;
    const QPointF middle(box.x + box.width / 2, 1 - (box.y + box.height / 2));
    const QPointF way = middle - place_;
    if (!faceMs_ || std::abs(way.x()) > calm || std::abs(way.y()) > calm) lookAt(middle);
    faceMs_ = frame.timestampMs;
  } else if (faceMs_ && frame.timestampMs - *faceMs_ > lostMs) {
    faceMs_.reset();
    lookAt({0.5, 0.5});
  }
}

void PreviewCut::lookAt(QPointF place) {
  place_ = place;
  x_.glideTo(place.x());
  y_.glideTo(place.y());
}

QRectF PreviewCut::of(QSizeF size, QSizeF view) const {
  const QSizeF part = view.scaled(size, Qt::KeepAspectRatio);
  const auto begin = [](double middle, double whole, double shown) {
    return std::clamp(middle * whole - shown / 2, 0.0, std::max(0.0, whole - shown));
  };
  return {
      QPointF(begin(x_.value(), size.width(), part.width()), begin(y_.value(), size.height(), part.height())),
      part};
}

struct CameraPreviewView::Inbox {
  Latest<FrameRef> newest;
  CameraPreviewView* view = nullptr;  // main thread; null once it has gone
};

CameraPreviewView::CameraPreviewView(std::shared_ptr<AVCaptureManager> camera, PrivacyFilterService& service,
                                     std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<const Clock> clock)
    : camera_(std::move(camera)),
      service_(service),
      mainLoop_(std::move(mainLoop)),
      inbox_(std::make_shared<Inbox>()),
      cut_(*this),
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

void CameraPreviewView::showFindings(bool shown) {
  showsFindings_ = shown;
  updateFindings();
}

/// They are asked for only while the picture is seen.
void CameraPreviewView::updateFindings() {
  findingsRegistration_.reset();
  findings_.clear();
  setAccessibleDescription({});
  update();
  if (!tapped_) return;
  findingsRegistration_ = service_.liveView().watch([this](const LiveFrame& frame) {
    cut_.follow(frame);
    if (!showsFindings_) return;
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
  cut_.clear();
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
    const QRectF part = showsFindings_ ? QRectF(picture.rect()) : cut_.of(picture.size(), box.size());
    const double scale = std::min(box.width() / part.width(), box.height() / part.height());
    const auto device = camera_->session()->currentDevice();
    const bool mirrored = device && device->position == CameraPosition::front;
    const QTransform place = QTransform::fromTranslate(-part.center().x(), -part.center().y()) *
                             QTransform::fromScale(mirrored ? -scale : scale, scale) *
                             QTransform::fromTranslate(box.center().x(), box.center().y());
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
