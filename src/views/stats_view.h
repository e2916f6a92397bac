// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

#include "settings/stats_repository.h"
#include "support/registration.h"
#include "views/controls/windows.h"

namespace sentrel {

/// A tile with a number and its label; one of a group may be emphasised. A long number is drawn smaller, down
/// to 16 pixels, and then cut. Main thread.
class StatCard : public QWidget {
 public:
  enum class Highlight { no, yes };

  StatCard(const QString& symbol, const QString& label, Highlight highlight);

  void setValue(const QString& words);
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString symbol_;
  const QString label;
  const bool highlight;
  QString value;
};

/// The lifetime counters, with their reset behind a question. Main thread.
class StatsView : public QWidget {
 public:
  /// Takes a link to show at its foot, or none. `dismissed` is called when the person goes back.
  StatsView(std::shared_ptr<StatsRepository> repository, QWidget* footer, std::function<void()> dismissed);

  /// Whether the question is asked just now.
  [[nodiscard]] bool showResetConfirm() const { return confirm_ != nullptr; }
  void askForReset();

 private:
  QWidget* buildToolbar(const std::function<void()>& dismiss);

  const std::shared_ptr<StatsRepository> statsRepo;
  QPointer<Sheet> confirm_;
  Registration statsRegistration_;
};

/// Whole minutes and, from an hour on, hours: "47m", "2h 5m". Days are not used.
[[nodiscard]] QString formatTime(std::int64_t seconds);

}  // namespace sentrel
