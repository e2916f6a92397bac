// SPDX-License-Identifier: Apache-2.0
#include "settings/settings_repository.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <utility>

#include "platform/platform.h"

namespace sentrel {

namespace {

// What is stored stands for `field` only where it is of the field's kind; false and 0 are values like others.

template <class T>
void read(const DefaultsValue& stored, T& field) {
  if (const T* typed = std::get_if<T>(&stored)) field = *typed;
}

void read(const DefaultsValue& stored, std::optional<std::string>& field) {
  if (const auto* text = std::get_if<std::string>(&stored)) field = *text;
}

/// A whole number is a float, too.
void read(const DefaultsValue& stored, float& field) {
  if (const auto* whole = std::get_if<std::int64_t>(&stored)) field = static_cast<float>(*whole);
  const auto* number = std::get_if<float>(&stored);
  if (number != nullptr && std::isfinite(*number)) field = *number;
}

/// The bits of a signed number.
void read(const DefaultsValue& stored, std::uint64_t& field) {
  if (const auto* bits = std::get_if<std::int64_t>(&stored)) field = std::bit_cast<std::uint64_t>(*bits);
}

template <class T>
std::optional<DefaultsValue> toStore(const T& field) {
  return field;
}
std::optional<DefaultsValue> toStore(std::uint64_t field) {
  return std::bit_cast<std::int64_t>(field);
}
std::optional<DefaultsValue> toStore(const std::optional<std::string>& field) {
  return field ? std::optional<DefaultsValue>(*field) : std::nullopt;
}

}  // namespace

SettingsRepository::SettingsRepository(std::shared_ptr<UserDefaults> userDefaults,
                                       std::shared_ptr<LoginItem> loginItem)
    : defaults(std::move(userDefaults)), loginItem_(std::move(loginItem)) {
  load();
}

const std::shared_ptr<SettingsRepository>& SettingsRepository::shared() {
  static const auto instance =
      std::make_shared<SettingsRepository>(Platform::current().userDefaults, Platform::current().loginItem);
  return instance;
}

void SettingsRepository::load() {
  FilterSettings loaded = freshSettings();
  forEachSetting([&](const auto& setting) {
    if (setting.stored == Stored::never) return;
    const auto stored = defaults->value(setting.storedAs);
    const bool isNone = setting.stored == Stored::unlessZero && stored == DefaultsValue(std::int64_t{0});
    if (stored && !isNone) read(*stored, loaded.*setting.field);
  });
  loaded.launchAtLogin = loginItem_->isEnabled();
  settings = loaded;

  ProtectionOptions chosen;
  forEachOption([&]<class T>(const Option<T>& option) {
    const auto stored = defaults->value(option.storedAs);
    if (!stored) return;
    if constexpr (std::is_same_v<T, bool>) {
      read(*stored, chosen.*option.field);
    } else {
      const auto* number = std::get_if<std::int64_t>(&*stored);
      if (number != nullptr && *number >= option.least && *number <= option.most)
        chosen.*option.field = static_cast<T>(*number);
    }
  });
  options = chosen;
}

void SettingsRepository::save(const FilterSettings& next) {
  // Copies: the caller may hand in the published record itself, and an observer may publish another one.
  const FilterSettings record = next;
  const bool launchedAtLogin = settings.get().launchAtLogin;
  settings = record;
  forEachSetting([&](const auto& setting) {
    if (setting.stored == Stored::never) return;
    if (auto value = toStore(record.*setting.field)) {
      defaults->set(setting.storedAs, std::move(*value));
    } else {
      defaults->remove(setting.storedAs);
    }
  });
  if (record.launchAtLogin != launchedAtLogin) setLaunchAtLogin(record.launchAtLogin);
}

void SettingsRepository::save(const ProtectionOptions& next) {
  const ProtectionOptions record = next;
  options = record;
  forEachOption([&]<class T>(const Option<T>& option) {
    if constexpr (std::is_same_v<T, bool>) {
      defaults->set(option.storedAs, record.*option.field);
    } else {
      defaults->set(option.storedAs, static_cast<std::int64_t>(record.*option.field));
    }
  });
}

void SettingsRepository::setLaunchAtLogin(bool enabled) {
  const auto failure = loginItem_->setEnabled(enabled);
  if (!failure) return;
  std::printf("SMAppService error: %s\n", failure->c_str());
  std::fflush(stdout);
}

}  // namespace sentrel
