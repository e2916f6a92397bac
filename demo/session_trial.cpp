// SPDX-License-Identifier: Apache-2.0
#include "session_trial.h"

#include <QFile>
#include <QJsonDocument>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace sentrel::test {

void SessionTrial::begin() {
  see(Seen::alone);
  began_ = SteadyClock::now();
  happens("the program starts", [this] { start(); });
  followsState("nominal");
}

void SessionTrial::end() {
  happens("the program is asked to quit", [this] { quit(); });
  followsCamera(false);
}

void SessionTrial::writeTimeline() const {
  std::ofstream out(folder_ / "timeline.txt");
  for (const std::string& line : timeline_) out << line << '\n';
}

void SessionTrial::tellSuccess() const {
  std::printf("Everything followed as it should. Pictures and timeline.txt are in %s\n", folder_.c_str());
}

std::string SessionTrial::command(const std::vector<std::string>& words) {
  std::string line = "sentrel";
  for (const std::string& word : words) line += ' ' + word;
  std::string printed;
  happens(line, [&] {
    ChildProcess asked = desktop_.spawn(binary_, words);
    waitFor("it ends", [&] { return !asked.isRunning(); });
    printed = asked.output();
    if (asked.waitForExit(std::chrono::milliseconds(0)) != 0)
      throw std::runtime_error(line + " has failed: " + printed);
  });
  return printed;
}

void SessionTrial::startWith(const QJsonObject& options) {
  QString words;
  for (const QString& key : options.keys())
    words += QStringLiteral(" %1=%2").arg(key).arg(options.value(key).toVariant().toString());
  happens("the program starts anew" + words.toStdString(), [&] {
    quit();
    see(Seen::alone);
    QFile file(QString::fromStdString((desktop_.configFolder() / "sentrel" / "defaults.json").string()));
    if (!file.open(QIODevice::ReadOnly)) throw std::runtime_error("no settings are kept");
    QJsonObject kept = QJsonDocument::fromJson(file.readAll()).object();
    file.close();
    for (const QString& key : chosen_) kept.remove(key);
    chosen_ = options.keys();
    for (const QString& key : chosen_) kept[key] = options.value(key);
    if (!file.open(QIODevice::WriteOnly)) throw std::runtime_error("the settings cannot be written");
    file.write(QJsonDocument(kept).toJson());
    file.close();
    start();
  });
  followsState("nominal");
}

void SessionTrial::openPopover() {
  desktop_.run("xdotool", {"mousemove", "900", "200"});
  ChildProcess opener = desktop_.spawn(binary_);
  waitFor("the window opens", [&] { return !opener.isRunning(); });
  pause(pictureDelay_);
}

void SessionTrial::closePopover() {
  press({"Escape"});
  pause(pictureDelay_);
}

void SessionTrial::takePopover(const std::string& name) {
  openPopover();
  takePicture(name);
  closePopover();
}

void SessionTrial::press(const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    desktop_.run("xdotool", {"key", key});
    pause(std::chrono::milliseconds(200));
  }
}

void SessionTrial::click(const std::string& what, QPoint at) {
  happens("a click on " + what, [&] {
    desktop_.run("xdotool", {"mousemove", std::to_string(at.x()), std::to_string(at.y()), "click", "1"});
  });
}

void SessionTrial::describe(BusDouble& notificationServer, const QStringList& capabilities) {
  notificationServer.answer(QStringLiteral("GetCapabilities"),
                            [capabilities](const QDBusMessage&) { return QVariantList{capabilities}; });
  notificationServer.answer(QStringLiteral("GetServerInformation"), [](const QDBusMessage&) {
    const QString one = QStringLiteral("1");
    return QVariantList{QStringLiteral("demo"), QStringLiteral("demo"), one, QStringLiteral("1.2")};
  });
  notificationServer.answer(QStringLiteral("CloseNotification"),
                            [](const QDBusMessage&) { return QVariantList(); });
}

}  // namespace sentrel::test
