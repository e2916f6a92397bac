// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/camera_portal.h"

#include <utility>

namespace sentrel {

namespace {

constexpr auto interface = "org.freedesktop.portal.Camera";

}  // namespace

CameraPortal::CameraPortal(std::shared_ptr<DesktopPortal> portal)
    : portal_(std::move(portal)), following_(portal_->follow([this](bool ready) {
        request_.reset();
        if (ready && opened_) askForCameras();
      })) {}

void CameraPortal::open(std::function<void(BusDescriptor)> opened) {
  opened_ = std::move(opened);
  if (portal_->isReady()) askForCameras();
}

void CameraPortal::askForCameras() {
  if (isRefused_ || request_) return;
  const auto present = [this](const BusMessage& reply) {
    request_.reset();
    if (reply.only<bool>() == true) askPerson();
  };
  request_ = portal_->ask({DesktopPortal::path, "org.freedesktop.DBus.Properties", "Get"}, present, "ss",
                          interface, "IsCameraPresent");
}

void CameraPortal::askPerson() {
  const auto answered = [this](const std::optional<QVariantMap>& results) {
    request_.reset();
    isRefused_ = !results;
    if (results) openRemote();
  };
  const std::string token = portal_->newToken();
  request_ = portal_->request(token, answered, {DesktopPortal::path, interface, "AccessCamera"}, "a{sv}", 1,
                              "handle_token", "s", token.c_str());
}

void CameraPortal::openRemote() {
  const auto answered = [this](const BusMessage& reply) {
    request_.reset();
    const auto remote = reply.only<BusDescriptor>();
    if (remote && *remote && opened_) std::exchange(opened_, nullptr)(*remote);
  };
  constexpr int noOptions = 0;
  request_ =
      portal_->ask({DesktopPortal::path, interface, "OpenPipeWireRemote"}, answered, "a{sv}", noOptions);
}

}  // namespace sentrel
