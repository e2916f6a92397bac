// SPDX-License-Identifier: Apache-2.0
#include "app/status_item.h"

#include <QCursor>
#include <QGuiApplication>
#include <string_view>
#include <utility>

#include "linux/display/x11_connection.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int lookMs = 2000;

xcb_connection_t* x11Connection() {
  const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return x11 != nullptr ? x11->connection() : nullptr;
}

xcb_atom_t atomOf(xcb_connection_t* connection, std::string_view name) {
  const auto reply = adopt(xcb_intern_atom_reply(
      connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()),
      nullptr));
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

/// Whether an X11 tray of the older kind is there. Asking Qt would make it decide for good.
bool hasX11Tray() {
  xcb_connection_t* connection = x11Connection();
  if (connection == nullptr) return false;
  const auto owner = adopt(xcb_get_selection_owner_reply(
      connection, xcb_get_selection_owner(connection, atomOf(connection, "_NET_SYSTEM_TRAY_S0")), nullptr));
  return owner && owner->owner != XCB_NONE;
}

/// Panels do not tell their colour: GNOME's is dark, others are light or dark as windows are.
QColor labelColor() {
  if (qEnvironmentVariable("XDG_CURRENT_DESKTOP").contains(QLatin1String("GNOME"))) return Qt::white;
  return StatusBarIcon::labelOn(colors().window);
}

}  // namespace

StatusItem::StatusItem(QMenu& menu, Activated activated, const std::shared_ptr<Bus>& sessionBus)
    : BusService(sessionBus, "org.kde.StatusNotifierWatcher"), menu_(menu), activated_(std::move(activated)) {
  QObject::connect(&Theme::shared(), &Theme::changed, &look_, [this] { update(); });
  look_.setSingleShot(true);
  QObject::connect(&look_, &QTimer::timeout, &look_, [this] { lookForX11Tray(); });
  look_.start(lookMs);
  if (xcb_connection_t* connection = x11Connection()) manager_ = atomOf(connection, "MANAGER");
  qApp->installNativeEventFilter(this);
  connection_ = sessionBus->follow([this](bool connected) {
    if (connected) busReturned();
  });
}

void StatusItem::busReturned() {
  if (!icon_) return;
  icon_.reset();
  look_.start(lookMs);
}

StatusItem::~StatusItem() {
  qApp->removeNativeEventFilter(this);
}

void StatusItem::lookForX11Tray() {
  if (!icon_ && hasX11Tray()) create();
}

/// A new X11 tray announces itself by a MANAGER message to all clients.
bool StatusItem::nativeEventFilter(const QByteArray& type, void* message, qintptr* /*result*/) {
  if (icon_ || type != "xcb_generic_event_t") return false;
  const auto* event = static_cast<const xcb_client_message_event_t*>(message);
  if ((event->response_type & 0x7FU) == XCB_CLIENT_MESSAGE && event->type == manager_) look_.start(lookMs);
  return false;
}

/// The icon of a lost bus stays until the bus is back: taking it from a bus that is just breaking would end
/// the process.
void StatusItem::gone() {
  if (bus().isConnected()) icon_.reset();
}

void StatusItem::appeared() {
  look_.stop();
  if (!icon_) create();
}

void StatusItem::create() {
  icon_ = std::make_unique<QSystemTrayIcon>();
  icon_->setContextMenu(&menu_);
  QObject::connect(icon_.get(), &QSystemTrayIcon::activated, icon_.get(),
                   [this](QSystemTrayIcon::ActivationReason reason) {
                     if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                       activated_(anchor());
                   });
  update();
  icon_->show();
}

void StatusItem::update() {
  if (!icon_) return;
  icon_->setIcon(StatusBarIcon::make(state_, labelColor()));
  icon_->setToolTip(toolTip_);
}

void StatusItem::setState(StatusBarIcon::IconState state) {
  if (std::exchange(state_, state) != state) update();
}

void StatusItem::setToolTip(const QString& words) {
  if (std::exchange(toolTip_, words) == words || !icon_) return;
  icon_->setToolTip(words);
}

QRect StatusItem::anchor() const {
  const QRect place = icon_ ? icon_->geometry() : QRect();
  return place.isEmpty() ? QRect(QCursor::pos(), QSize(1, 1)) : place;
}

}  // namespace sentrel
