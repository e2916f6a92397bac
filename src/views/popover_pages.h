// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

#include "settings/stats_repository.h"
#include "support/registration.h"
#include "views/controls/layout.h"
#include "views/controls/windows.h"

// What takes the place of the popover's home. Each takes a link to show at its foot, or none. Main thread.

namespace sentrel {

/// A tile with a number and its label; one of a group may be emphasised. A long number is drawn smaller, down
/// to 16 pixels, and then cut.
class StatCard : public QWidget {
 public:
  enum class Highlight { no, yes };

  StatCard(const QString& symbol, const QString& label, Highlight highlight);

  void setValue(const QString& words);
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString symbol_;
  const QString label;
  const bool highlight;
  QString value;
};

/// The lifetime counters, with their reset behind a question.
class StatsView : public QWidget {
 public:
  /// `dismissed` is called when the person goes back.
  StatsView(std::shared_ptr<StatsRepository> repository, QWidget* footer,
            const std::function<void()>& dismissed);

  /// Whether the question is asked just now.
  [[nodiscard]] bool showResetConfirm() const { return confirm_ != nullptr; }
  void askForReset();

 private:
  QWidget* buildToolbar(const std::function<void()>& dismiss);

  const std::shared_ptr<StatsRepository> statsRepo;
  QPointer<Sheet> confirm_;
  Registration statsRegistration_;
};

/// What the program is, who makes it and what becomes of pictures.
class AboutView : public ToolbarPage {
 public:
  /// `dismissed` is called when the person closes it.
  AboutView(const QString& version, QWidget* footer, const std::function<void()>& dismissed);
};

/// Whole minutes and, from an hour on, hours: "47m", "2h 5m". Days are not used.
[[nodiscard]] QString formatTime(std::int64_t seconds);

}  // namespace sentrel
