// SPDX-License-Identifier: Apache-2.0
#include "app/window_memory.h"

#include <malloc.h>

#include <QApplication>
#include <QPixmapCache>
#include <QTimer>
#include <QWidget>
#include <algorithm>

namespace sentrel {

namespace {

constexpr int restMs = 1000;  // the next window may follow at once

void giveBack() {
  if (std::ranges::any_of(QApplication::topLevelWidgets(), &QWidget::isVisible)) return;
  QPixmapCache::clear();
  ::malloc_trim(0);
}

}  // namespace

void giveMemoryBackAfter(const QWidget& window) {
  QObject::connect(&window, &QObject::destroyed, qApp, [] { QTimer::singleShot(restMs, qApp, giveBack); });
}

}  // namespace sentrel
