// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusMessage>
#include <QObject>
#include <functional>
#include <utility>

namespace sentrel {

/// The receiving end of one subscription: the bus library delivers to slots only.
class BusListener final : public QObject {
  Q_OBJECT

 public:
  BusListener(std::function<void(const QDBusMessage&)> handler, QObject* parent)
      : QObject(parent), handler_(std::move(handler)) {}

 public Q_SLOTS:
  void received(const QDBusMessage& message) {
    // Copied, because a handler may end its own subscription.
    if (const auto handler = handler_) handler(message);
  }

 public:
  void end() {
    handler_ = nullptr;
    deleteLater();
  }

 private:
  std::function<void(const QDBusMessage&)> handler_;
};

}  // namespace sentrel
