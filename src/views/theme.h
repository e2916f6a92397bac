// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFont>
#include <QObject>
#include <optional>

#include "look/fonts.h"
#include "look/palette.h"
#include "platform/desktop_services.h"

namespace sentrel {

/// How the windows look just now: the desktop's wishes about colours, motion and the size of text. Every
/// control reads it when it paints and when it says how large it wants to be; both are asked for anew before
/// `changed`. Main thread.
class Theme final : public QObject {
  Q_OBJECT

 public:
  struct Look {
    AppColors::Scheme scheme = AppColors::Scheme::light;
    AppColors::Contrast contrast = AppColors::Contrast::normal;
    bool reducedMotion = false;
    double textScale = 1;  ///< 1 to 2
    bool operator==(const Look&) const = default;
  };

  /// The look of the process's windows.
  static Theme& shared();

  [[nodiscard]] const Look& look() const { return look_; }
  /// The look that follows from what the person asked of the desktop, from now on. Where the desktop tells
  /// nothing of colours, the application's palette does, also as it changes. On X11 the size of text is in
  /// the scale of the whole display.
  void follow(const Appearance& appearance);
  /// A text scale out of range is clamped.
  void setLook(Look look);

  [[nodiscard]] const AppColors& colors() const { return AppColors::of(look_.scheme, look_.contrast); }
  [[nodiscard]] bool dark() const { return look_.scheme == AppColors::Scheme::dark; }
  [[nodiscard]] bool highContrast() const { return look_.contrast == AppColors::Contrast::high; }
  [[nodiscard]] double textScale() const { return look_.textScale; }

  [[nodiscard]] QFont font(TextRole role) const { return roleFont(role, look_.textScale); }
  /// Sizes of icons and pictures grow half as far as text: with text twice as large they are 1.5 times as
  /// large.
  [[nodiscard]] int iconSize(int pixels) const { return qRound(pixels * (1 + (look_.textScale - 1) / 2)); }
  /// The height of a control of `pixels` in which a line of text of `line` pixels grows.
  [[nodiscard]] int grown(int pixels, int line = 20) const {
    return qRound(pixels + line * (look_.textScale - 1));
  }
  /// `milliseconds`, or 0 where the person wants no motion.
  [[nodiscard]] int duration(int milliseconds) const { return look_.reducedMotion ? 0 : milliseconds; }

 Q_SIGNALS:
  void changed();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  Theme() = default;
  void adopt(const Appearance& appearance);

  Look look_;
  std::optional<Appearance> followed_;
};

/// Keeps the widget in the font of `role` as the theme changes.
void useFont(QWidget& widget, TextRole role);

/// `Theme::shared().colors()`.
[[nodiscard]] const AppColors& colors();

}  // namespace sentrel
