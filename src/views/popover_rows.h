// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QTimer>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "service/privacy_filter_service.h"
#include "support/main_loop.h"
#include "views/controls/layout.h"

// The rows of the popover. Main thread.

namespace sentrel {

/// One row of the popover: a symbol and a label over the full width, perhaps with words at its end.
class MenuBarButton : public DrawnButton {
 public:
  enum class Unfolding { none, folded, unfolded };

  /// `label` is shown as it is. Without a symbol the row is a choice below another one.
  MenuBarButton(const QString& symbol, const QString& label);

  /// Shown at the right, in figures of one width.
  void setEnd(const QString& words);
  void setUnfolding(Unfolding unfolding) { unfolding_ = unfolding; }

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  [[nodiscard]] QRectF row() const;
  [[nodiscard]] bool isChoice() const { return icon.isEmpty(); }

  const QString icon;
  QString end_;
  Unfolding unfolding_ = Unfolding::none;
};

/// Where the time `endMs` of the program's clock stands on the clock on the wall: "14:35".
[[nodiscard]] QString timeOfDay(std::int64_t endMs, std::int64_t nowMs);

/// What the person can allow for a while: a pause, guests, and a face that is nobody. Each row unfolds its
/// choices in place, or ends what it began. Nothing while protection is off.
class RelaxationRows final : public QWidget {
 public:
  RelaxationRows(std::shared_ptr<PrivacyFilterService> service, std::shared_ptr<const Clock> clock);

 protected:
  void keyPressEvent(QKeyEvent* event) override;

 private:
  enum class Row { none, pause, guests };
  struct Choice {
    QString words;
    std::function<void()> chosen;
  };

  void build();
  void buildPause(std::vector<QWidget*>& rows);
  void buildGuests(std::vector<QWidget*>& rows);
  void addUnfolding(std::vector<QWidget*>& rows, Row row, MenuBarButton* button,
                    const std::vector<Choice>& choices);
  void unfold(Row row);
  [[nodiscard]] QString timeLeft(std::int64_t endMs) const;

  const std::shared_ptr<PrivacyFilterService> service_;
  const std::shared_ptr<const Clock> clock_;
  QWidget* content_ = nullptr;
  Row unfolded_ = Row::none;
  QTimer minute_;  // while a time is shown
  std::array<Registration, 5> registrations_;
};

}  // namespace sentrel
