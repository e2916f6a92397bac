// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/alert_journal.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"
#include "support/registration.h"
#include "views/controls/layout.h"
#include "views/controls/windows.h"
#include "views/journal_cards.h"

// What takes the place of the popover's home. Each takes a link to show at its foot, or none. Main thread.

namespace sentrel {

/// The head of a page: its title between the button back and as much space. That button gets the focus of
/// `page`.
[[nodiscard]] QWidget* pageToolbar(QWidget& page, const QString& title,
                                   const std::function<void()>& dismissed);

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

/// The lifetime counters, with their reset behind a question, and the journal of alerts.
class StatsView : public QWidget {
 public:
  struct Parts {
    std::shared_ptr<StatsRepository> statsRepo;
    std::shared_ptr<SettingsRepository> settingsRepo;
    std::shared_ptr<AlertJournal> journal;
  };

  /// `dismissed` is called when the person goes back.
  StatsView(Parts parts, QWidget* footer, const std::function<void()>& dismissed);

  /// Whether the question of the reset is asked just now.
  [[nodiscard]] bool showResetConfirm() const { return confirm_ != nullptr; }
  /// Whether any question is.
  [[nodiscard]] bool asks() const { return showResetConfirm() || journal_->asks(); }
  void askForReset();

 private:
  const Parts parts_;
  JournalCards* journal_;
  QPointer<Sheet> confirm_;
  Registration statsRegistration_;
};

/// What the program is, who makes it and what becomes of pictures.
class AboutView : public ToolbarPage {
 public:
  /// What is called when the person closes it, wants to see what it claims tried, and wants to know what is
  /// missing.
  struct Leaves {
    std::function<void()> dismissed, verify, diagnose;
  };
  AboutView(const QString& version, QWidget* footer, const Leaves& leaves);
};

/// Whole minutes and, from an hour on, hours: "47m", "2h 5m". Days are not used.
[[nodiscard]] QString formatTime(std::int64_t seconds);

}  // namespace sentrel
