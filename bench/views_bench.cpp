// SPDX-License-Identifier: Apache-2.0
//
// views-bench: how long windows take to their first frame, and what they and the moving eye cost, on the
// display of the session. Prints medians.
#include <malloc.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "figures.h"
#include "stage/child_process.h"
#include "views/popover.h"
#include "views/views_fixture.h"

namespace sentrel::test {
namespace {

using bench::cpuSeconds;

constexpr int rounds = 15;

/// Notes when a window was painted; once the turn of the event loop is over, its picture was handed over.
class FirstFrame final : public QObject {
 public:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (watched->isWidgetType() && event->type() == QEvent::Paint) seen_ = true;
    return false;
  }
  void await() {
    while (!seen_) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }

 private:
  bool seen_ = false;
};

double pssMiB() {
  return ProcessUsage::of(getpid()).proportionalMib;
}

void wait(int ms) {
  QEventLoop loop;
  QTimer::singleShot(ms, &loop, &QEventLoop::quit);
  loop.exec();
}

void measure(const char* name, const std::function<std::unique_ptr<QWidget>()>& make) {
  std::vector<double> milliseconds;
  for (int i = 0; i < rounds; ++i) {
    QElapsedTimer timer;
    timer.start();
    FirstFrame frame;
    qApp->installEventFilter(&frame);
    const auto window = make();
    window->show();
    frame.await();
    milliseconds.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
    wait(100);
  }
  std::printf("%-12s first frame: first time %.0f ms, median %.0f ms\n", name, milliseconds.front(),
              bench::median(milliseconds));
}

void cost(const char* what, QWidget& window) {
  window.show();
  wait(1000);
  const double before = cpuSeconds();
  wait(5000);
  std::printf("%-40s %.1f %% CPU\n", what, (cpuSeconds() - before) / 5 * 100);
}

/// The preview at 15 frames a second, without and with what protection sees drawn over it.
void costOfLiveView() {
  ViewsFixture fixture;
  fixture.start();
  PreferencesView preferences(fixture.preferencesParts());
  auto frame = std::make_shared<Frame>();
  frame->resize(640, 480);
  std::fill_n(frame->data(), 640 * 480 * 4, std::uint8_t{90});
  constexpr int frameMs = 66;
  double x = 0.3;
  QTimer camera;
  FaceDetections faces;
  QObject::connect(&camera, &QTimer::timeout, [&] {
    x = x > 0.5 ? 0.3 : x + 0.01;
    fixture.machine.detector->next = faces;
    for (std::size_t i = 0; i < faces.rectangles.size(); ++i)
      fixture.machine.detector->next->rectangles[i].boundingBox.x += x - 0.3;
    if (fixture.machine.session->previewTap) fixture.machine.session->previewTap(frame);
    fixture.machine.session->request->onFrame(frame);
    fixture.machine.loop->advance(frameMs);
    fixture.machine.settle();
  });
  camera.start(frameMs);
  const auto measureFaces = [&](const char* what, int count) {
    faces = {};
    for (int i = 0; i < count; ++i)
      faces.rectangles.push(faceOf(i == 0 ? 0.2 : 0.05, 0.1 + i % 8 * 0.1, 0.3));
    if (count > 0) faces.landmarks.push(faces.rectangles[0]);
    cost(what, preferences);
  };
  measureFaces("preview at 15 fps, two faces", 2);
  for (auto* widget : preferences.findChildren<QAbstractButton*>())
    if (widget->accessibleName() == QStringLiteral("Montrer ce que Sentrel voit")) widget->click();
  measureFaces("the same with the live view", 2);
  measureFaces("with 16 faces", 16);
}

int run() {
  costOfLiveView();
  ViewsFixture fixture;
  wait(200);
  const double bare = pssMiB();
  measure("popover", [&] {
    return std::make_unique<PopoverWindow>(fixture.popoverParts(), PopoverWindow::Ground::translucent);
  });
  measure("preferences", [&] { return std::make_unique<PreferencesView>(fixture.preferencesParts()); });
  measure("first run", [&] { return std::make_unique<OnboardingView>(fixture.onboardingParts()); });
  wait(500);
  std::printf("PSS added by all windows once closed: %.1f MiB", pssMiB() - bare);
  malloc_trim(0);
  std::printf(", %.1f MiB of them not given back by the allocator\n", pssMiB() - bare);
  {
    PreferencesView preferences(fixture.preferencesParts());
    cost("preferences, still", preferences);
    preferences.close();
    PopoverWindow popover(fixture.popoverParts(), PopoverWindow::Ground::translucent);
    popover.setAttribute(Qt::WA_DeleteOnClose, false);
    cost("popover, still", popover);
    fixture.start();
    fixture.see(fixture.alone, 500);
    cost("popover, the eye blinks and pulses", popover);
    popover.hide();
    wait(500);
    const double before = cpuSeconds();
    wait(3000);
    std::printf("%-40s %.1f %% CPU\n", "all hidden", (cpuSeconds() - before) / 3 * 100);
  }
  return 0;
}

}  // namespace
}  // namespace sentrel::test

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  QApplication::setStyle(QStringLiteral("fusion"));
  QApplication::setQuitOnLastWindowClosed(false);
  return sentrel::test::run();
}
