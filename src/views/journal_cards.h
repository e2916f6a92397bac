// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QPointer>
#include <QWidget>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "platform/alert_journal.h"
#include "settings/settings_repository.h"
#include "support/registration.h"
#include "views/bar_chart.h"
#include "views/controls/labels.h"
#include "views/controls/windows.h"

class QFileDialog;

// The journal of alerts in the windows. Main thread.

namespace sentrel {

inline constexpr std::size_t chartedDays = 14;

/// How many alerts began on each of the last days, the last of which is that of `now`.
[[nodiscard]] std::array<std::int64_t, chartedDays> alertsByDay(std::span<const AlertRecord> records,
                                                                const QDateTime& now);
/// How many began in each hour of the day, on whichever day.
[[nodiscard]] std::array<std::int64_t, 24> alertsByHour(std::span<const AlertRecord> records);

/// Asks over `window` whether the journal is to end, and what it holds to be erased; then does it.
Sheet* askToEndJournal(QWidget& window, const std::shared_ptr<SettingsRepository>& settingsRepo,
                       const std::shared_ptr<AlertJournal>& journal);

/// The part of the statistics that shows the journal: an offer until the person has answered it, nothing when
/// they said no, and else what it holds, with what can be done with it.
class JournalCards final : public QWidget {
 public:
  /// Questions are asked over `page`.
  JournalCards(QWidget& page, std::shared_ptr<SettingsRepository> settingsRepo,
               std::shared_ptr<AlertJournal> journal);

  /// Reads the journal anew.
  void refresh();
  /// Whether a question or the choice of a file waits for the person.
  [[nodiscard]] bool asks() const;

 private:
  QWidget* buildOffer();
  QWidget* buildCharts();
  void show(std::span<const AlertRecord> records);
  void chooseFile();
  void askToErase();

  QWidget& page_;
  const std::shared_ptr<SettingsRepository> settingsRepo_;
  const std::shared_ptr<AlertJournal> journal_;
  QWidget* offer_;
  BarChart* days_;
  BarChart* hours_;
  TextLabel* told_;  // what became of an export
  TextLabel* trouble_;
  QWidget* charts_;
  QPointer<Sheet> question_;
  QPointer<QFileDialog> fileDialog_;
  Registration optionsRegistration_;
  Registration troubleRegistration_;
};

}  // namespace sentrel
