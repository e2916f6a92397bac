// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/desktop/bus.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// The desktop portal of this session. It hears first of all who we are: portals since 2025 keep what they
/// grant by the program's name, and take that only as the first call of a connection. So whoever speaks to
/// the portal does it through the process's one object of this class. Main thread.
class DesktopPortal final : private BusService {
 public:
  static constexpr auto path = "/org/freedesktop/portal/desktop";

  explicit DesktopPortal(std::shared_ptr<Bus> sessionBus);

  /// Tells when the portal may be spoken to (true) and when it has gone (false); that it may, at once.
  [[nodiscard]] Registration follow(const std::function<void(bool ready)>& follower);
  [[nodiscard]] bool isReady() const { return ready_; }
  /// Has it started where it does not run.
  void want();
  /// Calls `then` with true when the portal may be spoken to, which is started for that, and with false where
  /// there is none.
  void whenReady(std::function<void(bool ready)> then);

  // As those of BusService, once it is ready.
  using BusService::call;
  using BusService::listen;
  /// As `call`; the reply is nobody's once the registration has ended.
  template <class... Values>
  [[nodiscard]] Registration ask(const BusMember& method, BusHandler handler, const char* types,
                                 Values... values) {
    const auto kept = std::make_shared<const BusHandler>(std::move(handler));
    const auto replied = [weak = std::weak_ptr(kept)](const BusMessage& reply) {
      if (const auto asked = weak.lock()) (*asked)(reply);
    };
    call(method, {replied}, types, values...);
    return Registration([kept] {});
  }

  /// What the person or the desktop grants; none where it is refused.
  using Answer = std::function<void(const std::optional<QVariantMap>& results)>;

  /// To be given with a request among its options, as "handle_token".
  [[nodiscard]] std::string newToken() { return "sentrel" + std::to_string(++requests_); }
  /// Calls a method that is answered later, when the person has decided. `answer` is called once, unless the
  /// registration ends or the portal goes before.
  template <class... Values>
  [[nodiscard]] Registration request(const std::string& token, Answer answer, const BusMember& method,
                                     const char* types, Values... values) {
    const auto question = expect(token, std::move(answer));
    const auto called = [weak = std::weak_ptr(question)](const BusMessage& reply) {
      const auto asked = weak.lock();
      if (asked && reply.objectPath().empty()) asked->take(std::nullopt);
    };
    call(method, {called, BusReply::noTimeout}, types, values...);
    return Registration([question] {});
  }

 private:
  struct Question {
    Answer answer;
    Registration response;
    void take(const std::optional<QVariantMap>& results);
  };

  void appeared() override;
  void gone() override;
  void absent() override;
  void tellWaiting(bool ready);
  [[nodiscard]] std::shared_ptr<Question> expect(const std::string& token, Answer answer) const;

  bool wanted_ = false;
  bool ready_ = false;
  int requests_ = 0;
  Signal<bool> changed_;
  std::vector<std::function<void(bool ready)>> waiting_;
};

}  // namespace sentrel
