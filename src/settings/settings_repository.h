// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/desktop_services.h"
#include "settings/filter_settings.h"
#include "settings/protection_options.h"
#include "support/published.h"

namespace sentrel {

/// The one owner of the live settings: loads them key by key from the person's store when it is created and
/// writes them back on `save`. Main thread.
class SettingsRepository {
 public:
  /// Loads at once.
  SettingsRepository(std::shared_ptr<UserDefaults> userDefaults, std::shared_ptr<LoginItem> loginItem);

  /// The process's repository, over the installed platform.
  static const std::shared_ptr<SettingsRepository>& shared();

  /// The current record. Assigning it publishes without storing; `save` does both.
  Published<FilterSettings> settings;
  /// Likewise. A stored value that is none of an option's counts as missing.
  Published<ProtectionOptions> options;

  /// Reads every stored key again and publishes each record once. A missing key, or a value of another kind,
  /// gives the key's fallback; nothing is clamped.
  void load();

  /// Publishes `next`, stores every field, and moves the login item when `launchAtLogin` changed.
  void save(const FilterSettings& next);
  /// Publishes `next` and stores every option.
  void save(const ProtectionOptions& next);

  /// Makes the program start at login, or not. A failure is one line on standard output; `settings` is left
  /// as it is, and the next `load` tells the truth.
  void setLaunchAtLogin(bool enabled);

 private:
  std::shared_ptr<UserDefaults> defaults;
  std::shared_ptr<LoginItem> loginItem_;
};

}  // namespace sentrel
