// SPDX-License-Identifier: Apache-2.0
//
// What scripts and keys ask of the program, as commands and on the bus.
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QXmlStreamReader>
#include <future>
#include <set>

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

const auto ownInterface = u"expert.mardeck.sentrel1"_s;

/// Without a display, which no command needs.
class CommandsTest : public ProgramDesk {
 protected:
  CommandsTest() : ProgramDesk({.systemBus = true, .pipeWire = true}) {
    server.answer(u"GetServerInformation"_s, [](const QDBusMessage&) -> QVariantList {
      return {u"double"_s, u"test"_s, u"1"_s, u"1.2"_s};
    });
    server.answer(u"Notify"_s, [id = 0U](const QDBusMessage&) mutable -> QVariantList { return {++id}; });
    start();
    EXPECT_TRUE(eventually([&] { return state() == "nominal"; }));
  }
  /// What was told the person so far.
  [[nodiscard]] std::vector<QString> told() const {
    std::vector<QString> titles;
    for (const QDBusMessage& call : server.calls(u"Notify"_s))
      titles.push_back(call.arguments().value(3).toString());
    return titles;
  }
  [[nodiscard]] qint64 number(const QString& name) const { return property(name).toLongLong(); }
  /// How many minutes lie before the time of a property.
  [[nodiscard]] double minutesUntil(const QString& name) const {
    return static_cast<double>(number(name) - QDateTime::currentMSecsSinceEpoch()) / 60'000;
  }
  using ProgramRun::number;

  BusDouble server{desktop, TestBus::session, u"org.freedesktop.Notifications"_s};
};

TEST_F(CommandsTest, EachIsCarriedOutAndWhatWeakensIsTold) {
  const struct {
    std::vector<std::string> command;
    int status;
    const char* state;
    QString told;     // by a notification
    std::string err;  // part of it
  } steps[] = {
      {{"on"}, 0, "nominal", u""_s, ""},
      {{"resume"}, 0, "nominal", u""_s, ""},
      {{"guest"}, 0, "nominal", u"Des invités peuvent regarder"_s, ""},
      {{"pause", "90s"}, 0, "autoPaused", u"Protection en pause"_s, ""},
      {{"pause", "tomorrow"}, 0, "autoPaused", u"Protection en pause"_s, ""},
      {{"resume"}, 0, "nominal", u""_s, ""},
      {{"off"}, 0, "inactive", u"Protection désactivée"_s, ""},
      {{"off"}, 0, "inactive", u""_s, ""},
      {{"pause", "15m"}, 1, "inactive", u""_s, "désactivée"},
      {{"guest", "2"}, 1, "inactive", u""_s, "désactivée"},
      {{"resume"}, 1, "inactive", u""_s, "désactivée"},
      {{"alone"}, 1, "inactive", u""_s, "désactivée"},
      {{"toggle"}, 0, "nominal", u""_s, ""},
      {{"toggle"}, 0, "inactive", u"Protection désactivée"_s, ""},
      {{"on"}, 0, "nominal", u""_s, ""},
      {{"preferences"}, 1, "nominal", u""_s, "écran"},
      {{"statistics"}, 1, "nominal", u""_s, "écran"},
      {{"cover"}, 1, "nominal", u""_s, "aucun écran ne peut être couvert"},
  };
  std::vector<QString> expected;
  for (const auto& step : steps) {
    SCOPED_TRACE(testing::PrintToString(step.command));
    const Said said = say(step.command);
    EXPECT_EQ(said.status, step.status);
    EXPECT_EQ(said.out, "");
    EXPECT_THAT(said.err, testing::HasSubstr(step.err));
    EXPECT_EQ(said.err.empty(), step.status == 0) << said.err;
    EXPECT_TRUE(becomes(step.state));
    if (!step.told.isEmpty()) expected.push_back(step.told);
    EXPECT_TRUE(eventually([&] { return told().size() >= expected.size(); }));
    EXPECT_EQ(told(), expected);
  }

  const auto weaken = [&](const std::vector<std::string>& command, const QString& title) {
    EXPECT_EQ(say(command).status, 0) << command[0];
    expected.push_back(title);
    EXPECT_TRUE(eventually([&] { return told() == expected; }));
  };
  weaken({"pause", "15m"}, u"Protection en pause"_s);
  EXPECT_NEAR(minutesUntil(u"PauseEnd"_s), 15, 1);
  weaken({"pause", "1h"}, u"Protection en pause"_s);  // during a pause
  EXPECT_NEAR(minutesUntil(u"PauseEnd"_s), 60, 1);
  EXPECT_TRUE(waitUntil([&] { return !camera.isOpen(); }));
  EXPECT_THAT(say({"status"}).out, testing::StartsWith("En pause\nReprend à "));
  EXPECT_EQ(say({"resume"}).status, 0);
  EXPECT_EQ(number(u"PauseEnd"_s), 0);
  EXPECT_TRUE(becomes("nominal"));

  weaken({"guest", "2", "30m"}, u"Des invités peuvent regarder"_s);
  EXPECT_EQ(number(u"Guests"_s), 2);
  EXPECT_EQ(say({"status"}).out, "Protection active\n2 invités\n");
  EXPECT_NEAR(minutesUntil(u"GuestsEnd"_s), 30, 1);
  weaken({"guest", "1"}, u"Des invités peuvent regarder"_s);
  EXPECT_EQ(number(u"Guests"_s), 1);
  EXPECT_EQ(number(u"GuestsEnd"_s), 0) << "until the next lock";
  EXPECT_EQ(say({"alone"}).status, 0);
  EXPECT_EQ(number(u"Guests"_s), 0);

  weaken({"quit"}, u"Protection désactivée"_s);  // nobody else will tell
  expectGoodEnd();
  EXPECT_EQ(say({"quit"}).status, 3);
}

TEST_F(CommandsTest, TheDoctorAsksTheProgramAndTheMachineWhereItDoesNotAnswer) {
  const auto answer = [this] {
    const Said said = say({"doctor"});
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.err, "");
    return said.out;
  };
  const std::string running = answer();
  for (const char* part :
       {"Programme : en marche depuis 0:0", "Protection : Protection active",
        "Virtual camera : YUY2 640x480@30", "Utilisée : Virtual camera", "org.freedesktop.login1",
        ": sentrel.state: nominal", "Modèles de détection : en bon état"})
    EXPECT_THAT(running, testing::HasSubstr(part));
  EXPECT_THAT(running, testing::Not(testing::HasSubstr(settingsFolder().string())));

  process.signal(SIGSTOP);
  EXPECT_THAT(answer(), testing::HasSubstr("! Programme : pas de réponse\n    → "));
  process.signal(SIGCONT);
  terminate();
  const std::string without = answer();
  EXPECT_THAT(without, testing::HasSubstr("  Programme : ne tourne pas\n"));
  EXPECT_THAT(without, testing::HasSubstr("Virtual camera : "));
  EXPECT_THAT(say({"doctor"}, {}).out, testing::HasSubstr("! PipeWire : pas de réponse\n    → ")) << "bare";
}

TEST_F(CommandsTest, WhatWeakensIsRefusedWhileLocked) {
  session.setLockedHint(true);
  ASSERT_TRUE(becomes("autoPaused"));
  const std::vector<std::string> refused[] = {{"off"},   {"toggle"}, {"pause", "1h"},
                                              {"guest"}, {"quit"},   {"cover"}};
  for (const auto& command : refused) {
    const Said said = say(command);
    EXPECT_EQ(said.status, 1) << command[0];
    EXPECT_THAT(said.err, testing::HasSubstr("verrouillée"));
  }
  for (const char* action : {"toggle", "cover", "quit"})
    EXPECT_THROW(perform(action), std::runtime_error) << action;
  for (const char* command : {"on", "resume", "alone", "status"})
    EXPECT_EQ(say({command}).status, 0) << command;
  session.setLockedHint(false);
  EXPECT_TRUE(becomes("nominal"));
  EXPECT_EQ(number(u"PauseEnd"_s), 0);
  EXPECT_FALSE(eventually([&] { return !told().empty(); }, seconds(1)));
}

TEST_F(CommandsTest, APauseGoesOnAfterTheProgramWasStartedAgain) {
  EXPECT_EQ(say({"pause", "1h"}).status, 0);
  terminate();
  start();
  EXPECT_TRUE(becomes("autoPaused"));
  EXPECT_NEAR(minutesUntil(u"PauseEnd"_s), 60, 2);
  EXPECT_FALSE(camera.isOpen());
  EXPECT_EQ(say({"resume"}).status, 0);
  EXPECT_TRUE(becomes("nominal"));
}

TEST_F(CommandsTest, StatusFollowsInOneStableForm) {
  const QJsonObject first =
      QJsonDocument::fromJson(QByteArray::fromStdString(say({"status", "--json"}).out)).object();
  EXPECT_EQ(first, (QJsonObject{{u"state"_s, u"nominal"_s},
                                {u"status"_s, u"Protection active"_s},
                                {u"active"_s, true},
                                {u"alerts"_s, 0},
                                {u"pauseEnd"_s, QJsonValue()},
                                {u"guests"_s, 0},
                                {u"guestsEnd"_s, QJsonValue()},
                                {u"ignoredFaces"_s, 0},
                                {u"screenShared"_s, false},
                                {u"covered"_s, false}}));

  ChildProcess watch = desktop.spawn(SENTREL_PROGRAM, {"status", "--json", "--watch"});
  ChildProcess words = desktop.spawn(SENTREL_PROGRAM, {"status", "--watch"});
  /// The last line, once its state is this one.
  const auto line = [&](const QString& state) {
    QJsonObject last;
    EXPECT_TRUE(waitUntil([&] {
      const auto lines = QByteArray::fromStdString(watch.output()).trimmed().split('\n');
      last = QJsonDocument::fromJson(lines.last()).object();
      return last[u"state"].toString() == state;
    })) << watch.output();
    return last;
  };
  line(u"nominal"_s);
  EXPECT_EQ(say({"pause", "1h"}).status, 0);
  const QString end = line(u"autoPaused"_s)[u"pauseEnd"].toString();
  EXPECT_TRUE(end.endsWith(u'Z')) << end.toStdString();
  EXPECT_EQ(QDateTime::fromString(end, Qt::ISODate).toMSecsSinceEpoch() / 1000, number(u"PauseEnd"_s) / 1000);
  EXPECT_EQ(say({"off"}).status, 0);
  line(u"inactive"_s);
  terminate();
  EXPECT_EQ(watch.waitForExit(seconds(10)), 3) << watch.output();
  // Nothing between two states was told: a pause and its end come and go together.
  for (const QByteArray& each : QByteArray::fromStdString(watch.output()).split('\n')) {
    const QJsonObject told = QJsonDocument::fromJson(each).object();
    EXPECT_TRUE(told.isEmpty() || told[u"pauseEnd"].isNull() || told[u"state"] == u"autoPaused"_s)
        << each.toStdString();
  }
  EXPECT_EQ(words.waitForExit(seconds(10)), 3);
  EXPECT_THAT(words.output(), testing::AllOf(testing::StartsWith("Protection active\nEn pause\nReprend à "),
                                             testing::EndsWith("Sentrel ne tourne pas.\n")));
}

TEST_F(CommandsTest, SeveralAtOnceAreAllAnswered) {
  std::vector<std::future<Said>> said;
  for (const char* command : {"off", "on", "toggle", "status"})
    said.push_back(std::async(std::launch::async, [this, command] { return say({command}); }));
  for (auto& each : said) EXPECT_EQ(each.get().status, 0);
  EXPECT_EQ(say({"on"}).status, 0);
  EXPECT_TRUE(becomes("nominal"));

  // While the program ends each is either carried out, or learns that there is none.
  said.clear();
  for (const char* command : {"quit", "status", "pause", "off", "quit"}) {
    std::vector<std::string> words{command};
    if (words[0] == "pause") words.emplace_back("1h");
    said.push_back(std::async(std::launch::async, [this, words] { return say(words); }));
  }
  for (auto& each : said) {
    const Said answer = each.get();
    EXPECT_THAT(answer.status, testing::AnyOf(0, 1, 3)) << answer.err;
  }
  expectGoodEnd();
}

TEST_F(CommandsTest, AProgramOrABusThatHangsIsWaitedForFiveSeconds) {
  const auto expectGivenUp = [&](const std::vector<std::string>& command) {
    const auto begin = std::chrono::steady_clock::now();
    const Said said = say(command);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, seconds(4));
    EXPECT_EQ(said.status, 1);
    EXPECT_EQ(said.err, "sentrel: Sentrel ne répond pas.\n");
  };
  process.signal(SIGSTOP);
  expectGivenUp({"off"});
  expectGivenUp({"status", "--watch"});
  process.signal(SIGCONT);
  desktop.sessionBus().signal(SIGSTOP);
  expectGivenUp({"pause", "1h"});
  desktop.sessionBus().signal(SIGCONT);
}

/// The members that a description of the object tells of `interfaces`.
std::set<std::string> membersOf(const QString& xml, const std::set<QString>& interfaces) {
  std::set<std::string> members;
  QXmlStreamReader reader(xml);
  QString interface;
  QString member;
  const auto attribute = [&](const char* name) {
    return reader.attributes().value(QLatin1String(name)).toString();
  };
  while (!reader.atEnd()) {
    reader.readNext();
    const auto kind = reader.name();
    if (reader.isStartElement() && kind == u"interface") {
      interface = attribute("name");
    } else if (reader.isStartElement() && (kind == u"method" || kind == u"signal" || kind == u"property")) {
      member = interface + u' ' + kind.toString() + u' ' + attribute("name") + attribute("type") +
               attribute("access");
    } else if (reader.isStartElement() && kind == u"arg") {
      member += u' ' + (attribute("direction") == u"out"_s ? u"-> "_s : u""_s) + attribute("name") + u':' +
                attribute("type");
    } else if (reader.isEndElement() && !member.isEmpty() && kind != u"arg" && kind != u"annotation") {
      if (interfaces.contains(interface)) members.insert(member.toStdString());
      member.clear();
    }
  }
  EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
  return members;
}

TEST_F(CommandsTest, TheObjectIsAsItsInstalledDescriptionSays) {
  const QString described = QString::fromStdString(contentOf(SENTREL_INTERFACE));
  const QString offered =
      bus->call(programName, programPath, u"org.freedesktop.DBus.Introspectable"_s, u"Introspect"_s)
          .arguments()
          .constFirst()
          .toString();
  const std::set<QString> ours{ownInterface, u"org.freedesktop.Application"_s};
  const auto members = membersOf(described, ours);
  EXPECT_GT(members.size(), 15U);
  EXPECT_EQ(members, membersOf(offered, ours));
  // The bus's own interface is the library's: all that we tell of it is there.
  const auto ofBus = [](const QString& xml) {
    return membersOf(xml, {u"org.freedesktop.DBus.Properties"_s});
  };
  EXPECT_TRUE(std::ranges::includes(ofBus(offered), ofBus(described))) << offered.toStdString();
}

}  // namespace
}  // namespace sentrel::test
