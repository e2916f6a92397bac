// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

// What the desktop does for a program of its session. Main thread, all of it; nothing here waits for anybody.

/// The text of a key in the person's language.
using LocalizedText = std::function<std::string(const char* key)>;

/// The key of a text, as it is: lupdate, which looks for the texts of the program, finds it here.
constexpr const char* textId(const char* key) {
  return key;
}

/// What the person asked of the desktop's looks; what it does not tell is absent or not so.
struct Appearance {
  std::optional<bool> dark;  ///< the colour scheme
  bool highContrast = false;
  bool reducedMotion = false;       ///< less movement
  std::optional<double> textScale;  ///< size of text, 1 is the usual one
  bool operator==(const Appearance&) const = default;
};

/// What the person can answer to a notification.
struct NotificationAction {
  std::string identifier;
  std::string label;
};

/// A notification, shown at once.
struct NotificationContent {
  std::string title;
  std::string body;
  bool silent = false;  ///< without the default sound
  /// None or two; offered where the server knows of actions.
  std::vector<NotificationAction> actions{};
};

/// The notification centre. What the desktop does not answer is lost without a word.
class Notifications {
 public:
  virtual ~Notifications() = default;

  /// Asks for leave to show notifications: a yes lasts as long as the process, after a no the next request
  /// asks again. `answer` comes exactly once, within 2 s, in a later turn.
  virtual void requestAuthorization(std::function<void(bool granted)> answer) = 0;

  /// Shows the notification; one of the same identifier that is still shown is replaced.
  virtual void add(const std::string& identifier, const NotificationContent& content) = 0;

  /// Takes the notification away, also one whose showing is still under way.
  virtual void remove(const std::string& identifier) = 0;

  /// Whether a notification would be seen now: a server is there, answers, and was not told to be quiet.
  [[nodiscard]] virtual const Published<bool>& isHeard() const = 0;

  /// Whether the server can hide what other programs show: false until it has said so, and again once it
  /// has hidden ours as well.
  [[nodiscard]] virtual const Published<bool>& canHideOthers() const = 0;
  /// Has the server hide the notifications of others that come until the registration, or this process,
  /// ends. To be called after what is to be seen was added; nothing where it cannot be, is held already, or
  /// the person has told the server to be quiet.
  [[nodiscard]] virtual Registration hideOthers() = 0;

  /// The person chose the notification of this identifier.
  Signal<std::string> chosen;
  /// The person chose one of its actions, which was offered: the notification's identifier and the action's.
  Signal<std::string, std::string> answered;
};

/// Feedback to be felt; nothing where there is no such thing.
class Haptics {
 public:
  virtual ~Haptics() = default;
  /// The generic pattern, now.
  virtual void perform() = 0;
};

/// The first power source of the machine; what it does not tell, or tells as nonsense, is absent.
struct PowerSourceDescription {
  std::optional<int> currentCapacity;  ///< percent, 0..100, rounded down
  std::optional<bool> isCharging;      ///< true also when it is full or waits for its charge on the mains
  bool operator==(const PowerSourceDescription&) const = default;
};

/// The battery.
class PowerSource {
 public:
  virtual ~PowerSource() = default;

  /// Keeps `first()` up to date until the registration ends; it begins with nothing known. Several may be
  /// held.
  [[nodiscard]] virtual Registration observe() = 0;

  /// The newest that is known, or none: no battery, nobody who tells, or no observer.
  [[nodiscard]] virtual std::optional<PowerSourceDescription> first() const = 0;
};

/// Whether somebody else may see the screen: a program reads a picture of it that the desktop gives.
class ScreenSharing {
 public:
  virtual ~ScreenSharing() = default;
  /// Keeps `isShared()` up to date until the registration ends; then it is false.
  [[nodiscard]] virtual Registration observe() = 0;
  [[nodiscard]] virtual const Published<bool>& isShared() const = 0;
};

/// A global shortcut: Super+Shift and a key.
enum class Shortcut {
  toggle,  ///< the key that carries C: protection on and off
  cover,   ///< the key that carries V: every screen covered and uncovered
};

/// What the desktop says to a shortcut.
struct ShortcutGrant {
  enum class Kind {
    unknown,   ///< nobody has asked for it yet, or it was not answered
    observed,  ///< nobody has to be asked
    granted,
    refused,  ///< by the desktop or the person, or there is no way to hear of it
  };
  Kind kind = Kind::unknown;
  /// Of `granted`: "⌘⇧C" or "⌘⇧V" where the desktop gave those keys, else others in its words; never empty.
  std::string keys{};
  bool operator==(const ShortcutGrant&) const = default;
};

/// The global shortcuts. While one is observed, the program that has the focus does not get its keys, where
/// the desktop can see to that.
class KeyMonitor {
 public:
  virtual ~KeyMonitor() = default;

  /// What is known now. It may take a moment after the start or after the shortcut was first observed, and a
  /// decision of the person, until anything is.
  [[nodiscard]] virtual ShortcutGrant grant(Shortcut shortcut) const = 0;
  /// Whether the shortcut can be observed on this desktop.
  [[nodiscard]] bool canObserve(Shortcut shortcut) const {
    const auto kind = grant(shortcut).kind;
    return kind == ShortcutGrant::Kind::observed || kind == ShortcutGrant::Kind::granted;
  }
  Signal<> grantChanged;

  /// Calls `pressed` for each press until the registration ends, except while the screen is locked and, of
  /// the toggle, while a window of ours has the focus. Each shortcut has one observer: a new one replaces the
  /// former, whose registration then ends nothing.
  [[nodiscard]] virtual Registration observe(Shortcut shortcut, std::function<void()> pressed) = 0;
  /// The person does not want the shortcut: a desktop that asks the person may do so again when it is next
  /// observed, and not before.
  virtual void forget(Shortcut shortcut) = 0;
};

/// Whether the program starts when the person logs in.
class LoginItem {
 public:
  virtual ~LoginItem() = default;
  [[nodiscard]] virtual bool isEnabled() const = 0;
  /// Gives the failure's description, or none.
  [[nodiscard]] virtual std::optional<std::string> setEnabled(bool enabled) = 0;
};

/// One stored value; its kind is kept.
using DefaultsValue = std::variant<bool, std::int64_t, float, std::string>;

/// The person's key-value store. Reads and writes memory at once; what lies behind it is written elsewhere.
/// Main thread.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  [[nodiscard]] virtual std::optional<DefaultsValue> value(std::string_view key) const = 0;
  virtual void set(std::string_view key, DefaultsValue value) = 0;
  virtual void remove(std::string_view key) = 0;
};

}  // namespace sentrel
