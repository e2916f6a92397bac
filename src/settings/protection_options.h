// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace sentrel {

/// What an alert does besides the picture of the onlooker.
enum class Reaction {
  darkenAndNotify,
  notifyOnly,  ///< the screens stay as they are
  darkenOnly,  ///< no notification
};

/// What happens while somebody else sees the screen, because it is shared or recorded.
enum class WhenShared {
  hideStripes,  ///< no stripes, and an alert only notifies
  changeNothing,
  pause,
};

/// Whether a journal of alerts is kept.
enum class JournalWish {
  unasked,  ///< offered in the statistics until the person has answered
  refused,
  kept,
};

/// What the person asked for beyond FilterSettings: a plain value. Each begins as if nobody had asked. A new
/// option is a field here and a row of forEachOption().
struct ProtectionOptions {
  Reaction reaction = Reaction::darkenAndNotify;
  std::int64_t watchUpToCm = 0;     ///< faces farther away do not count; 0 is no limit
  std::int64_t alertAfterMs = 500;  ///< how long an onlooker must be there
  bool onlyFacing = false;          ///< faces that are turned away do not count
  WhenShared whenShared = WhenShared::hideStripes;
  bool coverShortcutEnabled = false;    ///< Super+Shift+V covers every screen
  bool hideOtherNotifications = false;  ///< those of other programs, during an alert
  JournalWish journal = JournalWish::unasked;

  bool operator==(const ProtectionOptions&) const = default;
};

/// What there is to know of one field of ProtectionOptions.
template <class T>
struct Option {
  constexpr Option(std::string_view text, T ProtectionOptions::*itsField, std::int64_t itsLeast = 0,
                   std::int64_t itsMost = 1)
      : storedAs(text), field(itsField), least(itsLeast), most(itsMost) {}

  std::string_view storedAs;  ///< the key's text, on which stored preferences depend
  T ProtectionOptions::*field;
  std::int64_t least;  ///< a stored number beyond these is no value
  std::int64_t most;
};

/// Calls `visit(option)` with the Option of every field, in the order of the fields.
template <class Visitor>
constexpr void forEachOption(Visitor&& visit) {
  using O = ProtectionOptions;
  visit(Option("reaction", &O::reaction, 0, 2));
  visit(Option("watch_up_to_cm", &O::watchUpToCm, 0, 1000));
  visit(Option("alert_after_ms", &O::alertAfterMs, 500, 5000));
  visit(Option("only_facing", &O::onlyFacing));
  visit(Option("when_shared", &O::whenShared, 0, 2));
  visit(Option("cover_shortcut_enabled", &O::coverShortcutEnabled));
  visit(Option("hide_other_notifications", &O::hideOtherNotifications));
  visit(Option("alert_journal", &O::journal, 0, 2));
}

}  // namespace sentrel
