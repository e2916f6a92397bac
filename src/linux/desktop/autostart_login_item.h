// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <optional>
#include <string>

#include "platform/desktop_services.h"

namespace sentrel {

/// The person's autostart entry, as desktops read it (freedesktop Desktop Application Autostart). Main
/// thread.
class AutostartLoginItem final : public LoginItem {
 public:
  /// For this process: the person's configuration folder, and the installed command, else the running binary.
  /// Needs the Qt application.
  AutostartLoginItem();
  /// `configFolder` is the folder that holds `autostart`; `program` is the command without arguments.
  AutostartLoginItem(const QString& configFolder, QString program);

  /// The entry's file, whether or not it is there.
  [[nodiscard]] const QString& path() const { return path_; }
  [[nodiscard]] bool isEnabled() const override;
  [[nodiscard]] std::optional<std::string> setEnabled(bool enabled) override;

 private:
  QString folder_;
  QString path_;
  QString program_;
};

}  // namespace sentrel
