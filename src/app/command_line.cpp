// SPDX-License-Identifier: Apache-2.0
#include "app/command_line.h"

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "app/build_options.h"
#include "app/doctor.h"
#include "app/program_interface.h"
#include "linux/desktop/bus.h"
#include "linux/desktop/journal_file.h"
#include "linux/desktop/qt_main_loop.h"
#include "linux/desktop/standard_error.h"
#include "service/relaxations.h"

namespace sentrel {

namespace {

namespace program = program_interface;

using Arguments = std::span<const char* const>;

constexpr std::int64_t answerTimeoutMs = 5'000;
constexpr std::int64_t reportTimeoutMs = 4'000;

// Words.

/// A disk that is full or an output that is closed must not look like an answer.
ExitStatus print(const QString& words) {
  const QByteArray bytes = words.toUtf8();
  std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return ExitStatus::done;
  printError(QString::fromLocal8Bit(std::strerror(errno)));
  return ExitStatus::refused;
}

/// What is opened next would take the place of an output that is closed, and get the words.
void keepClosedOutputsClosed() {
  int held = 0;
  while (held >= 0 && held <= STDERR_FILENO) held = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (held >= 0) close(held);
}

ExitStatus fail(ExitStatus status, const QString& words) {
  printError(words);
  return status;
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

ExitStatus unknown(const char* argument) {
  return fail(ExitStatus::misused, qtTrId("command_unknown").arg(readable(argument)));
}

// The instance that runs.

/// Asks the program one question as soon as it is found on the session bus, and ends the event loop with the
/// exit status. Never starts the program. After 5 s without an answer it gives up.
class Client final : private BusService {
 public:
  using Question = std::function<void(Client& client)>;

  /// Whether the person is told why there is no answer.
  enum class Failure { told, silent };

  /// Runs the event loop meanwhile.
  static ExitStatus ask(Question question, Failure failure = Failure::told,
                        std::int64_t timeoutMs = answerTimeoutMs) {
    const auto mainLoop = std::make_shared<QtMainLoop>();
    const auto bus = std::make_shared<Bus>(mainLoop, BusKind::session);
    Client client(*mainLoop, bus, std::move(question), failure, timeoutMs);
    return static_cast<ExitStatus>(QCoreApplication::exec());
  }

  /// The answer to a method without a result is the end.
  template <class... Values>
  void command(const char* interface, const char* method, const char* types, Values... values) {
    call({program::path, interface, method},
         {[this](const BusMessage& reply) { answered(reply); }, BusReply::noTimeout}, types, values...);
  }
  /// Gives the answer to a method without arguments; `reader` ends it.
  void request(const char* method, std::function<void(const BusMessage& answer)> reader) {
    const auto read = [this, reader = std::move(reader)](const BusMessage& reply) {
      reply.isError ? answered(reply) : reader(reply);
    };
    call({program::path, program::name, method}, {read, BusReply::noTimeout}, "");
  }
  /// Gives all properties of the program now, and again whenever some have changed, until end().
  void follow(std::function<void(const QVariantMap& properties)> follower) {
    follower_ = std::move(follower);
    following_ = followProperties(program::path, program::name, [this](const QVariantMap& told, bool) {
      if (told.isEmpty()) return end(ExitStatus::refused, textId("command_no_answer"));
      deadline_.reset();
      properties_.insert(told);
      if (!ended_) follower_(properties_);
    });
  }
  /// `key` is that of a text to be told; what happens afterwards is of no interest.
  void end(ExitStatus status, const char* key = nullptr) {
    if (std::exchange(ended_, true)) return;
    if (key != nullptr && failure_ == Failure::told) fail(status, qtTrId(key));
    QCoreApplication::exit(static_cast<int>(status));
  }

 private:
  Client(MainLoop& mainLoop, const std::shared_ptr<Bus>& bus, Question question, Failure failure,
         std::int64_t timeoutMs)
      : BusService(bus, program::busName),
        question_(std::move(question)),
        failure_(failure),
        connection_(bus->follow([this](bool connected) {
          if (!connected) absent();
        })),
        deadline_(
            mainLoop.after(timeoutMs, [this] { end(ExitStatus::refused, textId("command_no_answer")); })) {}

  void appeared() override { question_(*this); }
  void gone() override { absent(); }
  void absent() override { end(ExitStatus::notRunning, textId("command_not_running")); }

  void answered(const BusMessage& reply) {
    if (!reply.isError) return end(ExitStatus::done);
    // The bus answers for a program that has ended, or is no longer there to be asked.
    constexpr std::array ended{"org.freedesktop.DBus.Error.NoReply",
                               "org.freedesktop.DBus.Error.ServiceUnknown",
                               "org.freedesktop.DBus.Error.NameHasNoOwner"};
    if (std::ranges::find(ended, reply.error) != ended.end()) return absent();
    if (reply.error == program::misusedError)
      return end(ExitStatus::misused, textId("command_refused_misused"));
    end(ExitStatus::refused, reply.error == program::lockedError       ? textId("command_refused_locked")
                             : reply.error == program::offError        ? textId("command_refused_off")
                             : reply.error == program::pausedError     ? textId("command_refused_paused")
                             : reply.error == program::impossibleError ? textId("command_refused_cover")
                             : reply.error == program::noDisplayError  ? textId("command_refused_display")
                                                                       : textId("command_no_answer"));
  }

  const Question question_;
  const Failure failure_;
  bool ended_ = false;
  Registration connection_;
  Registration deadline_;
  std::function<void(const QVariantMap& properties)> follower_;
  QVariantMap properties_;
  Registration following_;
};

// The commands.

struct Command {
  std::string_view name;
  const char* arguments;    ///< as they are written; never translated
  const char* description;  ///< key of its text
  /// Null starts the program. Gets as many arguments as there are words in `arguments`, at most.
  ExitStatus (*run)(const Command& command, Arguments arguments);
  const char* asked = "";  ///< the method or the action that it stands for
};

ExitStatus method(const Command& command, Arguments /*arguments*/) {
  return Client::ask([&](Client& client) { client.command(program::name, command.asked, ""); });
}

/// Opens a window. The terminal may pass on the leave to come to the front.
ExitStatus window(const Command& command, Arguments /*arguments*/) {
  return Client::ask([&](Client& client) {
    const QByteArray token = qgetenv("XDG_ACTIVATION_TOKEN");
    constexpr int noParameters = 0;
    client.command(program::application, "ActivateAction", "sava{sv}", command.asked, noParameters,
                   token.isEmpty() ? 0 : 1, program::tokenEntry, "s", token.constData());
  });
}

/// "90s", "15m" and "1h", up to 24 hours, and "tomorrow", which is eight in the morning.
std::optional<std::int64_t> durationMs(std::string_view words) {
  if (words == "tomorrow") {
    const QDateTime now = QDateTime::currentDateTime();
    const QDateTime morning(now.date().addDays(1), QTime(8, 0));
    return std::clamp<std::int64_t>(now.msecsTo(morning), 1, Relaxations::longestMs);
  }
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(words.data(), words.data() + words.size(), number);
  const std::string_view unit(end, words.data() + words.size());
  const std::int64_t unitMs = unit == "s" ? 1'000 : unit == "m" ? 60'000 : unit == "h" ? 3'600'000 : 0;
  if (error != std::errc() || unitMs == 0 || number < 1 || number > Relaxations::longestMs / unitMs)
    return std::nullopt;
  return number * unitMs;
}

ExitStatus pause(const Command& command, Arguments arguments) {
  const auto duration = arguments.empty() ? std::nullopt : durationMs(arguments.front());
  if (!duration) return fail(ExitStatus::misused, qtTrId("command_duration"));
  return Client::ask([&](Client& client) { client.command(program::name, command.asked, "x", *duration); });
}

ExitStatus guest(const Command& command, Arguments arguments) {
  std::int64_t guests = 1;
  std::int64_t duration = 0;  // until the next lock
  const auto isNumber = [](std::string_view word) {
    return !word.empty() && std::ranges::all_of(word, [](char c) { return c >= '0' && c <= '9'; });
  };
  if (!arguments.empty() && isNumber(arguments.front())) {
    const std::string_view number = arguments.front();
    guests = number.size() == 1 ? number.front() - '0' : 0;
    if (guests < 1 || guests > OnlookerRules::mostGuests)
      return fail(ExitStatus::misused, qtTrId("command_guests"));
    arguments = arguments.subspan(1);
  }
  if (arguments.size() > 1) return unknown(arguments.back());
  if (!arguments.empty()) {
    const auto given = durationMs(arguments.front());
    if (!given) return fail(ExitStatus::misused, qtTrId("command_duration"));
    duration = *given;
  }
  return Client::ask(
      [&](Client& client) { client.command(program::name, command.asked, "xx", guests, duration); });
}

/// The stable form for scripts. A time is one of UTC, and null where nothing ends.
QString asJson(const QVariantMap& properties) {
  const auto value = [&](const char* name) {
    return QJsonValue::fromVariant(properties.value(QString::fromLatin1(name)));
  };
  const auto time = [&](const char* name) {
    const qlonglong ms = properties.value(QString::fromLatin1(name)).toLongLong();
    return ms > 0 ? QJsonValue(QDateTime::fromMSecsSinceEpoch(ms).toUTC().toString(Qt::ISODate))
                  : QJsonValue();
  };
  const QJsonObject status{
      {QStringLiteral("state"), value("State")},
      {QStringLiteral("status"), value("Status")},
      {QStringLiteral("active"), value("IsActive")},
      {QStringLiteral("alerts"), value("AlertCount")},
      {QStringLiteral("pauseEnd"), time("PauseEnd")},
      {QStringLiteral("guests"), value("Guests")},
      {QStringLiteral("guestsEnd"), time("GuestsEnd")},
      {QStringLiteral("ignoredFaces"), value("IgnoredFaces")},
      {QStringLiteral("screenShared"), value("IsScreenShared")},
      {QStringLiteral("covered"), value("IsCovered")},
  };
  return QString::fromUtf8(QJsonDocument(status).toJson(QJsonDocument::Compact));
}

ExitStatus status(const Command& /*command*/, Arguments arguments) {
  bool json = false;
  bool watches = false;
  for (const char* argument : arguments) {
    if (argument == std::string_view("--json")) {
      json = true;
    } else if (argument == std::string_view("--watch")) {
      watches = true;
    } else {
      return unknown(argument);
    }
  }
  return Client::ask([json, watches](Client& client) {
    client.follow([&client, json, watches, shown = QString()](const QVariantMap& properties) mutable {
      const QString words = json ? asJson(properties) : properties.value(QStringLiteral("Status")).toString();
      const ExitStatus printed = words == shown ? ExitStatus::done : print(words + u'\n');
      shown = words;
      if (!watches || printed != ExitStatus::done) client.end(printed);
    });
  });
}

/// What the program that runs says of itself; a claim that does not hold is a failure.
ExitStatus privacy(const Command& command, Arguments /*arguments*/) {
  return Client::ask([&](Client& client) {
    client.request(command.asked, [&client](const BusMessage& answer) {
      if (answer.signature != "bs") return client.end(ExitStatus::refused, textId("command_no_answer"));
      const ExitStatus printed = print(answer.arguments.at(1).toString());
      client.end(answer.arguments.at(0).toBool() ? printed : ExitStatus::refused);
    });
  });
}

/// A number of minutes, hours, days or weeks, of which none is longer than the journal reaches.
std::optional<std::int64_t> spanMs(std::string_view words) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(words.data(), words.data() + words.size(), number);
  const std::string_view unit(end, words.data() + words.size());
  constexpr std::int64_t hourMs = 3'600'000;
  const std::int64_t unitMs = unit == "m"   ? hourMs / 60
                              : unit == "h" ? hourMs
                              : unit == "d" ? hourMs * 24
                              : unit == "w" ? hourMs * 24 * 7
                                            : 0;
  if (error != std::errc() || unitMs == 0 || number < 1) return std::nullopt;
  return std::min(number, JournalFile::keptMs / unitMs + 1) * unitMs;
}

QString endWords(AlertEnd end) {
  // In the order of the ends.
  constexpr std::array words{QT_TRID_NOOP("journal_end_gone"),     QT_TRID_NOOP("journal_end_nobody"),
                             QT_TRID_NOOP("journal_end_welcomed"), QT_TRID_NOOP("journal_end_paused"),
                             QT_TRID_NOOP("journal_end_away"),     QT_TRID_NOOP("journal_end_low_battery"),
                             QT_TRID_NOOP("journal_end_blind"),    QT_TRID_NOOP("journal_end_off")};
  return qtTrId(words[static_cast<std::size_t>(end)]);
}

/// A line for the person.
QString asWords(const AlertRecord& record) {
  QStringList done;
  if (record.darkened) done += qtTrId("assombri");
  if (record.notified) done += qtTrId("notifié");
  const QDateTime began = QDateTime::fromMSecsSinceEpoch(record.beganMs);
  QStringList words{began.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")),
                    QStringLiteral("%1 s").arg(record.lengthMs / 1000, 5),
                    record.faces == 1 ? qtTrId("1 visage") : qtTrId("%1 visages").arg(record.faces),
                    QStringLiteral("%1 %").arg(record.widestFace * 100, 4, 'f', 1),
                    done.join(QStringLiteral(", ")),
                    endWords(record.end),
                    QString::fromStdString(record.camera)};
  words.removeAll(QString());
  return words.join(QStringLiteral("  ")) + u'\n';
}

/// Reads the file itself: no program has to run for it.
ExitStatus journal(const Command& /*command*/, Arguments arguments) {
  bool isTable = false;
  std::int64_t spannedMs = JournalFile::keptMs;
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    if (*argument == std::string_view("--csv")) {
      isTable = true;
    } else if (*argument == std::string_view("--since")) {
      ++argument;
      const auto span = argument == arguments.end() ? std::nullopt : spanMs(*argument);
      if (!span) return fail(ExitStatus::misused, qtTrId("command_since"));
      spannedMs = *span;
    } else {
      return unknown(*argument);
    }
  }
  auto [records, isDamaged, isNewer, error] = JournalFile::read(JournalFile::personalPath());
  if (isNewer) return fail(ExitStatus::refused, qtTrId("journal_newer"));
  if (!error.empty())
    return fail(ExitStatus::refused, qtTrId("command_journal_unreadable") +
                                         QStringLiteral(" (%1)").arg(QString::fromStdString(error)));
  const std::int64_t oldestMs = QDateTime::currentMSecsSinceEpoch() - spannedMs;
  std::erase_if(records, [oldestMs](const AlertRecord& record) { return record.beganMs < oldestMs; });
  if (isDamaged) fail(ExitStatus::done, qtTrId("journal_damaged"));
  if (isTable) return print(QString::fromUtf8(asTable(records)));
  QString words;
  for (const AlertRecord& record : records) words += asWords(record);
  return print(words.isEmpty() ? qtTrId("Aucune alerte") + u'\n' : words);
}

/// The program that runs answers for itself; where none does, the machine is asked.
ExitStatus doctor(const Command& command, Arguments /*arguments*/) {
  QString words;
  const auto read = [&words](Client& client, const BusMessage& answer) {
    words = answer.only<QString>().value_or(QString());
    client.end(ExitStatus::done);
  };
  const ExitStatus asked = Client::ask(
      [&](Client& client) {
        client.request(command.asked, [&](const BusMessage& answer) { read(client, answer); });
      },
      Client::Failure::silent, reportTimeoutMs);
  if (asked == ExitStatus::done && !words.isEmpty()) return print(words);
  using Running = ProgramFacts::Running;
  return print(asText(examineWithout(asked == ExitStatus::notRunning ? Running::no : Running::silent)));
}

ExitStatus version(const Command& /*command*/, Arguments /*arguments*/) {
  return print(QStringLiteral("sentrel " SENTREL_VERSION "\n"));
}

ExitStatus help(const Command& command, Arguments arguments);

constexpr std::array commands{
    Command{"status", "[--json] [--watch]", QT_TRID_NOOP("command_status"), status},
    Command{"on", "", QT_TRID_NOOP("command_on"), method, "SwitchOn"},
    Command{"off", "", QT_TRID_NOOP("command_off"), method, "SwitchOff"},
    Command{"toggle", "", QT_TRID_NOOP("command_toggle"), method, "Toggle"},
    Command{"pause", "15m|1h|tomorrow", QT_TRID_NOOP("command_pause"), pause, "Pause"},
    Command{"resume", "", QT_TRID_NOOP("command_resume"), method, "Resume"},
    Command{"guest", "[1-3] [30m|1h]", QT_TRID_NOOP("command_guest"), guest, "Welcome"},
    Command{"alone", "", QT_TRID_NOOP("command_alone"), method, "SendGuestsAway"},
    Command{"cover", "", QT_TRID_NOOP("command_cover"), method, "Cover"},
    Command{"preferences", "", QT_TRID_NOOP("command_preferences"), window, "preferences"},
    Command{"statistics", "", QT_TRID_NOOP("command_statistics"), window, "statistics"},
    Command{"privacy", "", QT_TRID_NOOP("command_privacy"), privacy, "Privacy"},
    Command{"journal", "[--since 7d] [--csv]", QT_TRID_NOOP("command_journal"), journal},
    Command{"doctor", "", QT_TRID_NOOP("command_doctor"), doctor, "Report"},
    Command{"quit", "", QT_TRID_NOOP("command_quit"), method, "Quit"},
    Command{"--help", "", QT_TRID_NOOP("command_help"), help},
    Command{"--version", "", QT_TRID_NOOP("command_version"), version},
    Command{"--service", "", QT_TRID_NOOP("command_service"), nullptr},
};

ExitStatus help(const Command& /*command*/, Arguments /*arguments*/) {
  const auto call = [](const Command& command) {
    return (QString::fromLatin1(command.name) + u' ' + QString::fromLatin1(command.arguments)).trimmed();
  };
  qsizetype width = 0;
  for (const Command& command : commands) width = std::max(width, call(command).size());
  QString words =
      qtTrId("command_usage") + QStringLiteral("\n\n") + qtTrId("command_none") + QStringLiteral("\n\n");
  for (const Command& command : commands)
    words +=
        QStringLiteral("  ") + call(command).leftJustified(width + 2) + qtTrId(command.description) + u'\n';
  return print(words + u'\n' + qtTrId("command_manual") + u'\n');
}

}  // namespace

std::optional<int> answerCommandLine(Arguments arguments) {
  if (arguments.empty()) return std::nullopt;
  const auto* command = std::ranges::find(commands, std::string_view(arguments.front()), &Command::name);
  const bool isKnown = command != commands.end();
  if (isKnown && command->run == nullptr && arguments.size() == 1) return std::nullopt;
  keepClosedOutputsClosed();
  // Qt finds texts for an application object only. What that has to say of the locale is no answer.
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  int count = 1;
  std::array<char, 8> name{"sentrel"};
  std::array<char*, 2> given{name.data(), nullptr};
  const QCoreApplication application(count, given.data());
  const Arguments rest = arguments.subspan(1);
  const auto most =
      isKnown ? QString::fromLatin1(command->arguments).split(u' ', Qt::SkipEmptyParts).size() : 0;
  if (!isKnown) return static_cast<int>(unknown(arguments.front()));
  if (std::ssize(rest) > most) return static_cast<int>(unknown(rest[static_cast<std::size_t>(most)]));
  return static_cast<int>(command->run(*command, rest));
}

}  // namespace sentrel
