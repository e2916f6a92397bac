// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

#include "settings/stats_repository.h"
#include "support/registration.h"
#include "views/controls/sheet.h"
#include "views/footer.h"

namespace sentrel {

/// The lifetime counters, with their reset behind a question. Main thread.
class StatsView : public QWidget {
 public:
  /// `dismissed` is called when the person goes back.
  StatsView(std::shared_ptr<StatsRepository> repository, const Footer& footer,
            std::function<void()> dismissed, QWidget* parent = nullptr);

  /// Whether the question is asked just now.
  [[nodiscard]] bool showResetConfirm() const { return confirm_ != nullptr; }
  void askForReset();

 protected:
  void focusInEvent(QFocusEvent* event) override;

 private:
  QWidget* buildToolbar();

  const std::shared_ptr<StatsRepository> statsRepo;
  const std::function<void()> dismiss;
  QWidget* back_ = nullptr;
  QPointer<Sheet> confirm_;
  Registration statsRegistration_;
};

/// Whole minutes and, from an hour on, hours: "47m", "2h 5m". Days are not used.
[[nodiscard]] QString formatTime(std::int64_t seconds);

}  // namespace sentrel
