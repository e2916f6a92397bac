// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QString>
#include <functional>
#include <string>
#include <vector>

#include "stage/bus_doubles.h"

namespace sentrel::test {

/// What a screen reader is told of the programs on a private desktop, over the bus of assistive technology.
class AccessibleTree {
 public:
  struct Node {
    std::string name;
    std::string role;
    std::string description;
    bool focusable = false;
  };

  /// Starts that bus and says that somebody listens; programs that start later speak on it.
  AccessibleTree(HeadlessDesktop& desktop, const BusClient& sessionBus);
  ~AccessibleTree();
  AccessibleTree(const AccessibleTree&) = delete;
  AccessibleTree& operator=(const AccessibleTree&) = delete;

  /// Everything that is on the screen just now.
  [[nodiscard]] std::vector<Node> nodes() const;

 private:
  struct Place {
    QString service;
    QString path;
  };
  [[nodiscard]] QDBusMessage ask(const Place& place, const QString& member) const;
  [[nodiscard]] QString property(const Place& place, const QString& name) const;
  void visit(const Place& place, std::vector<Node>& nodes) const;

  ChildProcess launcher_;
  QDBusConnection bus_;
};

}  // namespace sentrel::test
