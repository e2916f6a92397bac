// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusVariant>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "stage/bus_doubles.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {

inline std::string contentOf(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

const auto programName = QStringLiteral("expert.mardeck.sentrel");

/// A desktop on which the program is started, asked and ended.
class ProgramRun : public testing::Test {
 protected:
  explicit ProgramRun(const HeadlessDesktop::Options& options) : desktop(options) {
    std::filesystem::create_directories(settingsFolder());
    std::ofstream(settingsFolder() / "defaults.json")
        << "{\n  \"filter_strength\": 5,\n  \"has_completed_onboarding\": true\n}\n";
  }

  [[nodiscard]] std::filesystem::path settingsFolder() const { return desktop.configFolder() / "sentrel"; }
  [[nodiscard]] std::string settings() const { return contentOf(settingsFolder() / "defaults.json"); }
  /// The whole number under a key; -1 where there is none.
  [[nodiscard]] long number(const std::string& key) const {
    const std::string text = settings();
    const auto at = text.find("\"" + key + "\": ");
    return at == std::string::npos ? -1 : std::atol(text.c_str() + at + key.size() + 4);
  }

  [[nodiscard]] ChildProcess spawn(const Environment& environment) {
    return ChildProcess({.program = SENTREL_PROGRAM,
                         .arguments = {},
                         .environment = environment,
                         .log = desktop.runtimeFolder() / ("program." + std::to_string(spawned_++))});
  }
  [[nodiscard]] ChildProcess spawn() { return spawn(desktop.environment()); }

  static void perform(const BusClient& bus, const char* action) {
    bus.call(programName, QStringLiteral("/expert/mardeck/sentrel"),
             QStringLiteral("org.freedesktop.Application"), QStringLiteral("ActivateAction"),
             {QString::fromLatin1(action), QVariantList(), QVariantMap()});
  }
  /// One of the program's own on the bus.
  [[nodiscard]] static QVariant property(const BusClient& bus, const char* name) {
    const QDBusMessage reply =
        bus.call(programName, QStringLiteral("/expert/mardeck/sentrel"),
                 QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                 {QStringLiteral("expert.mardeck.sentrel1"), QString::fromLatin1(name)});
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
  }
  [[nodiscard]] static std::string state(const BusClient& bus) {
    return property(bus, "State").toString().toStdString();
  }
  /// The process that owns the program's name.
  [[nodiscard]] static pid_t owner(BusClient& bus) {
    const QDBusReply<uint> reply = bus.handle().interface()->servicePid(programName);
    return reply.isValid() ? static_cast<pid_t>(reply.value()) : 0;
  }

  int argumentCount = 1;
  char name_[5] = "test";
  char* arguments[2] = {name_, nullptr};
  QCoreApplication application{argumentCount, arguments};
  HeadlessDesktop desktop;

 private:
  int spawned_ = 0;
};

}  // namespace sentrel::test
