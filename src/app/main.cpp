// SPDX-License-Identifier: Apache-2.0
#include <QCoreApplication>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "app/build_options.h"
#include "app/sentrel_mac_app.h"
#include "linux/hardening/process_hardening.h"

namespace sentrel {

namespace {

constexpr int usageError = 2;

struct Command {
  std::string_view name;
  const char* description;  ///< key of its text
  int (*run)();             ///< gives the exit status; null starts the program
};

int help();
int version();

constexpr std::array commands{
    Command{"--help", QT_TRID_NOOP("command_help"), help},
    Command{"--version", QT_TRID_NOOP("command_version"), version},
    Command{"--service", QT_TRID_NOOP("command_service"), nullptr},
};

/// A disk that is full or an output that is closed must not look like an answer.
int print(const QString& words) {
  const QByteArray bytes = words.toUtf8();
  std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return EXIT_SUCCESS;
  std::fprintf(stderr, "sentrel: %s\n", std::strerror(errno));
  return EXIT_FAILURE;
}

/// Qt finds texts for an application object only. What that has to say of the locale is no answer.
class Texts {
 private:
  QtMessageHandler former_ =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  int count_ = 1;
  std::array<char, 8> name_{"sentrel"};
  std::array<char*, 2> arguments_{name_.data(), nullptr};
  QCoreApplication application_{count_, arguments_.data()};
};

int help() {
  const Texts texts;
  QString words =
      qtTrId("command_usage") + QStringLiteral("\n\n") + qtTrId("command_none") + QStringLiteral("\n\n");
  std::size_t width = 0;
  for (const Command& command : commands) width = std::max(width, command.name.size());
  for (const Command& command : commands) {
    words += QStringLiteral("  ") +
             QString::fromLatin1(command.name).leftJustified(static_cast<qsizetype>(width) + 2) +
             qtTrId(command.description) + u'\n';
  }
  return print(words + u'\n' + qtTrId("command_manual") + u'\n');
}

int version() {
  return print(QStringLiteral("sentrel " SENTREL_VERSION "\n"));
}

/// Without what would command the terminal instead of being read.
QString readable(const char* argument) {
  QString words = QString::fromLocal8Bit(argument);
  for (QChar& character : words) {
    const auto category = character.category();
    if (category == QChar::Other_Control || category == QChar::Other_Format) character = u'?';
  }
  return words;
}

const Command* find(std::string_view name) {
  const auto* found = std::ranges::find(commands, name, &Command::name);
  return found == commands.end() ? nullptr : found;
}

/// Answers a start that only asks for words, and gives its exit status: 0, 1 where they could not be printed,
/// 2 for an argument that nobody knows. Nothing where the program is to run: without arguments, and with the
/// one by which the session bus starts it. `arguments` are those behind the program's name. Needs neither a
/// display nor a bus. Main thread.
std::optional<int> answerCommandLine(std::span<const char* const> arguments) {
  if (arguments.empty()) return std::nullopt;
  const auto unknown =
      std::ranges::find_if(arguments, [](const char* argument) { return find(argument) == nullptr; });
  if (unknown == arguments.end()) {
    const Command& first = *find(arguments.front());
    return first.run == nullptr ? std::nullopt : std::optional(first.run());
  }
  const Texts texts;
  const QString words = qtTrId("command_unknown").arg(readable(*unknown));
  std::fprintf(stderr, "sentrel: %s\n", words.toUtf8().constData());
  return usageError;
}

}  // namespace

}  // namespace sentrel

int main(int argc, char** argv) {
  // First of all: who only asks for words has no use for what follows.
  const std::span given(argv, static_cast<std::size_t>(argc));
  if (const auto status = sentrel::answerCommandLine(given.subspan(given.empty() ? 0 : 1))) return *status;
  // Before anything else could open, start or copy something.
  if (!sentrel::installSystemCallFilter())
    std::fputs("sentrel: the kernel cannot be told to refuse network sockets\n", stderr);
  if (!sentrel::keepMemoryOutOfCoreDumps())
    std::fputs("sentrel: memory cannot be left out of core dumps\n", stderr);
  // Static, so that it outlives the shared instances, which are made later and need the Qt application to
  // end.
  static sentrel::SentrelMacApp app(argv, given.size() > 1 ? sentrel::Launch::bus : sentrel::Launch::person);
  return app.run();
}
