// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/autostart_login_item.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>
#include <utility>

#include "linux/desktop/private_files.h"

namespace sentrel {

namespace {

constexpr auto fileName = "expert.mardeck.sentrel.desktop";
constexpr auto command = "sentrel";

QString installedCommand() {
  const bool installed = !QStandardPaths::findExecutable(QString::fromLatin1(command)).isEmpty();
  return installed ? QString::fromLatin1(command) : QCoreApplication::applicationFilePath();
}

/// One argument of an Exec line: quoted, then escaped once more as any value of a desktop entry is.
QByteArray execArgument(const QString& argument) {
  QByteArray quoted = "\"";
  for (const char c : argument.toUtf8()) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += "\\\\";
    if (c == '\\') quoted += '\\';
    if (c == '%') quoted += '%';
    quoted += c;
  }
  return quoted + '"';
}

std::string failure(const QString& path, const QString& reason) {
  return (path + QStringLiteral(": ") + reason).toStdString();
}

}  // namespace

AutostartLoginItem::AutostartLoginItem()
    : AutostartLoginItem(nameOf(personalConfigFolder()), installedCommand()) {}

AutostartLoginItem::AutostartLoginItem(const QString& configFolder, QString program)
    : folder_(configFolder + QStringLiteral("/autostart")),
      path_(folder_ + QLatin1Char('/') + QString::fromLatin1(fileName)),
      program_(std::move(program)) {}

bool AutostartLoginItem::isEnabled() const {
  const QFileInfo file(path_);
  if (!file.isFile() || !file.isReadable()) return false;
  const QSettings settings(path_, QSettings::IniFormat);
  const auto entry = [&](const char* key) {
    return settings.value(QStringLiteral("Desktop Entry/") + QLatin1String(key)).toString();
  };
  return entry("Hidden") != QLatin1String("true") &&
         entry("X-GNOME-Autostart-enabled") != QLatin1String("false");
}

std::optional<std::string> AutostartLoginItem::setEnabled(bool enabled) {
  if (!enabled) {
    QFile file(path_);
    if (file.exists() && !file.remove()) return failure(path_, file.errorString());
    return std::nullopt;
  }
  if (!QDir().mkpath(folder_)) return failure(folder_, QStringLiteral("the folder cannot be made"));
  QSaveFile file(path_);
  if (!file.open(QIODevice::WriteOnly)) return failure(path_, file.errorString());
  file.write(
      "[Desktop Entry]\nType=Application\nName=Sentrel\nIcon=expert.mardeck.sentrel\nTerminal=false\n");
  file.write("Exec=" + execArgument(program_) + "\n");
  if (!file.commit()) return failure(path_, file.errorString());
  return std::nullopt;
}

}  // namespace sentrel
