// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVariantMap>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "linux/desktop/bus.h"

namespace sentrel {

/// The shortcut through the desktop portal's GlobalShortcuts (version 1): one portal session a process, bound
/// when first wanted; the desktop asks the person. Main thread.
class PortalShortcut {
 public:
  struct Followers {
    std::function<void(bool bound)> bound;
    std::function<void()> pressed;
  };

  /// `description` is shown to the person beside the keys.
  PortalShortcut(std::shared_ptr<Bus> sessionBus, std::string description, Followers followers);

  /// Binds the shortcut, unless it is bound or the person declined.
  void bind();

 private:
  enum class Stage { idle, binding, bound, declined };
  using Answer = std::function<void(const QVariantMap& results)>;

  void appeared();
  void gone();
  void createSession();
  void sessionCreated(const QVariantMap& results);
  void bindShortcut();
  [[nodiscard]] std::string expectAnswer(Answer answer);
  void listenForResponse(const std::string& path);
  [[nodiscard]] BusReply requested();
  void failed();

  const std::string description_;
  const Followers followers_;
  Stage stage_ = Stage::idle;
  bool wanted_ = false;
  int requests_ = 0;
  std::string session_;
  std::string requestPath_;  // of the request under way
  Answer answer_;            // to it
  Registration response_;
  std::vector<Registration> listening_;
  BusService portal_;  // last: its handlers use the others
};

}  // namespace sentrel
