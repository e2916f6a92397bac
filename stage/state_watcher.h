// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QVariantMap>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace sentrel::test {

/// Follows the program's state as any other program could: through its property on the session bus.
class StateWatcher final : public QObject {
  Q_OBJECT

 public:
  struct Entry {
    std::chrono::steady_clock::time_point at;  ///< when the change arrived here
    std::string state;                         ///< its name on the bus
  };

  /// Listens on the session bus of the environment from now on. Throws std::runtime_error without one.
  explicit StateWatcher(std::function<void(const Entry&)> onChange);

  /// Every change so far. A program that has not begun to protect is not a change.
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  /// Asks the program to quit, as a desktop would.
  void quitProgram() { activateAction(QStringLiteral("quit")); }
  /// Asks it for one of its actions.
  void activateAction(const QString& name);

 private Q_SLOTS:  // NOLINT(readability-redundant-access-specifiers)
  void propertiesChanged(const QString& interface, const QVariantMap& changed,
                         const QStringList& invalidated);

 private:
  void askForState();
  void note(const QString& state);

  std::function<void(const Entry&)> onChange_;
  QDBusConnection bus_;
  QDBusServiceWatcher owner_;
  std::vector<Entry> entries_;
};

}  // namespace sentrel::test
