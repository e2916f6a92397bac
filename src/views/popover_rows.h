// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QTimer>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "service/privacy_filter_service.h"
#include "support/main_loop.h"
#include "support/registration.h"
#include "views/controls/labels.h"
#include "views/controls/layout.h"

// The rows of the popover. Main thread.

namespace sentrel {

/// One row of the popover: a symbol and a label over the full width, perhaps with words or a chevron at its
/// end.
class MenuBarButton final : public DrawnButton {
 public:
  enum class Unfolding { none, folded, unfolded };

  /// `label` is shown as it is. Without a symbol the row is a choice below another one, and fades in.
  MenuBarButton(const QString& symbol, const QString& label);

  /// Shown at the right, and read as the row's description.
  void setEnd(const QString& words);
  void setUnfolding(Unfolding unfolding);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  [[nodiscard]] QRectF row() const;
  [[nodiscard]] bool isChoice() const { return icon.isEmpty(); }

  const QString icon;
  QString end_;
  Unfolding unfolding_ = Unfolding::none;
  AnimatedValue presence_;
};

/// Where the time `endMs` of the program's clock stands on the clock on the wall: "14:35".
[[nodiscard]] QString timeOfDay(std::int64_t endMs, std::int64_t nowMs);

/// "14 min", and hours where there are some: "1 h 05". One minute at least.
[[nodiscard]] QString timeSpan(std::int64_t minutes);

/// What the person can allow for a while: a pause, guests, and a face that is nobody. A row unfolds its
/// choices in place, or ends what it began. Nothing is shown while protection is off.
class RelaxationRows final : public QWidget {
 public:
  RelaxationRows(std::shared_ptr<PrivacyFilterService> service, std::shared_ptr<const Clock> clock,
                 QWidget* parent);

  /// Folds the choices that are unfolded. False where none are.
  bool fold();

 private:
  struct Choice {
    QString words;
    std::function<void()> chosen;
  };
  struct Fold {
    MenuBarButton* row;
    QWidget* choices;
  };

  Fold makeFold(const QString& symbol, const QString& label, const std::vector<Choice>& choices);
  Fold makePause();
  Fold makeGuests();
  QWidget* makeNobody();
  void unfold(const Fold* fold);
  void refresh();
  void showNobody(bool isAlert);
  void showTimes();
  void keepFocus();

  const std::shared_ptr<PrivacyFilterService> service_;
  const std::shared_ptr<const Clock> clock_;
  PushButton* nobody_ = nullptr;
  TextLabel* whyNot_ = nullptr;  // nobody_ cannot be pressed
  bool isTooFar_ = false;        // as pressing it has shown, in this alert
  QWidget* nobodyBox_;
  const Fold pause_;
  MenuBarButton* resume_;
  const Fold guests_;
  MenuBarButton* alone_;
  const Fold* unfolded_ = nullptr;
  QTimer ticks_;  // while a time is shown
  std::array<Registration, 6> registrations_;
};

}  // namespace sentrel
