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
  BusDouble server{desktop, TestBus::session, u"org.freedesktop.Notifications"_s};
};

TEST_F(CommandsTest, EachIsCarriedOutAndWhatWeakensIsTold) {
  const QString paused = u"Protection en pause"_s;
  const QString guests = u"Des invités peuvent regarder"_s;
  const QString off = u"Protection désactivée"_s;
  const struct {
    std::vector<std::string> command;
    int status;
    const char* state;
    QString told;      // by a notification
    std::string said;  // its beginning on standard output, or what the error holds
  } steps[] = {
      {{"on"}, 0, "nominal", {}, ""},
      {{"resume"}, 0, "nominal", {}, ""},
      {{"guest"}, 0, "nominal", guests, ""},
      {{"status"}, 0, "nominal", {}, "Protection active\n1 invité\n"},
      {{"guest", "2", "30m"}, 0, "nominal", guests, ""},
      {{"status"}, 0, "nominal", {}, "Protection active\n2 invités\n"},
      {{"alone"}, 0, "nominal", {}, ""},
      {{"status"}, 0, "nominal", {}, "Protection active\n"},
      {{"pause", "90s"}, 0, "autoPaused", paused, ""},
      {{"pause", "tomorrow"}, 0, "autoPaused", paused, ""},
      {{"status"}, 0, "autoPaused", {}, "En pause\nReprend à "},
      {{"resume"}, 0, "nominal", {}, ""},
      {{"off"}, 0, "inactive", off, ""},
      {{"off"}, 0, "inactive", {}, ""},
      {{"pause", "15m"}, 1, "inactive", {}, "désactivée"},
      {{"guest", "2"}, 1, "inactive", {}, "désactivée"},
      {{"resume"}, 1, "inactive", {}, "désactivée"},
      {{"alone"}, 1, "inactive", {}, "désactivée"},
      {{"toggle"}, 0, "nominal", {}, ""},
      {{"toggle"}, 0, "inactive", off, ""},
      {{"on"}, 0, "nominal", {}, ""},
      {{"preferences"}, 1, "nominal", {}, "écran"},
      {{"statistics"}, 1, "nominal", {}, "écran"},
      {{"cover"}, 1, "nominal", {}, "aucun écran ne peut être couvert"},
  };
  std::vector<QString> expected;
  for (const auto& step : steps) {
    SCOPED_TRACE(testing::PrintToString(step.command));
    const Said said = say(step.command);
    EXPECT_EQ(said.status, step.status);
    EXPECT_THAT(said.status == 0 ? said.out : said.err, testing::HasSubstr(step.said));
    EXPECT_EQ(said.out.empty(), step.status != 0 || step.said.empty()) << said.out;
    EXPECT_EQ(said.err.empty(), step.status == 0) << said.err;
    EXPECT_TRUE(becomes(step.state));
    if (!step.told.isEmpty()) expected.push_back(step.told);
    EXPECT_TRUE(eventually([&] { return told().size() >= expected.size(); }));
    EXPECT_EQ(told(), expected);
  }
  EXPECT_EQ(say({"quit"}).status, 0);
  expected.push_back(off);  // nobody else will tell
  EXPECT_TRUE(eventually([&] { return told() == expected; }));
  expectGoodEnd();
  EXPECT_EQ(say({"quit"}).status, 3);
}

TEST_F(CommandsTest, TheDoctorAnswersForAProgramThatDoesNotAndOnABareMachine) {
  process.signal(SIGSTOP);
  // On a busy machine an answer may come later than a page waits for it.
  Said silent;
  EXPECT_TRUE(waitUntil([&] {
    silent = say({"doctor"});
    return silent.out.find("Virtual camera : YUY2 640x480@30") != std::string::npos;
  })) << silent.out;
  process.signal(SIGCONT);
  EXPECT_EQ(silent.status, 0);
  for (const char* part : {"! Programme : pas de réponse\n    → ", "org.freedesktop.login1",
                           "Modèles de détection : en bon état"})
    EXPECT_THAT(silent.out, testing::HasSubstr(part));
  EXPECT_THAT(silent.out, testing::Not(testing::HasSubstr(settingsFolder().string())));
  EXPECT_THAT(say({"doctor"}, {}).out, testing::HasSubstr("! PipeWire : pas de réponse\n    → "));
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
  EXPECT_FALSE(eventually([&] { return !told().empty(); }, seconds(1)));
}

TEST_F(CommandsTest, StatusFollowsInOneStableForm) {
  EXPECT_EQ(say({"status", "--json"}).out,
            R"({"active":true,"alerts":0,"covered":false,"guests":0,"guestsEnd":null,"ignoredFaces":0,)"
            R"("pauseEnd":null,"screenShared":false,"state":"nominal","status":"Protection active"})"
            "\n");

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
  EXPECT_TRUE(waitUntil([&] { return words.output() == "Protection active\n"; })) << words.output();
  EXPECT_EQ(say({"pause", "1h"}).status, 0);
  const QString end = line(u"autoPaused"_s)[u"pauseEnd"].toString();
  EXPECT_TRUE(end.endsWith(u'Z')) << end.toStdString();
  EXPECT_EQ(QDateTime::fromString(end, Qt::ISODate).toMSecsSinceEpoch() / 1000,
            property(u"PauseEnd"_s).toLongLong() / 1000);
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
  const auto atOnce = [this](const std::vector<std::vector<std::string>>& commands) {
    std::vector<std::future<Said>> said;
    for (const auto& words : commands)
      said.push_back(std::async(std::launch::async, [this, words] { return say(words); }));
    std::vector<int> statuses;
    for (auto& each : said) statuses.push_back(each.get().status);
    return statuses;
  };
  EXPECT_THAT(atOnce({{"off"}, {"on"}, {"toggle"}, {"status"}}), testing::Each(0));
  // While the program ends each is either carried out, or learns that there is none.
  EXPECT_THAT(atOnce({{"quit"}, {"status"}, {"pause", "1h"}, {"off"}, {"quit"}}),
              testing::Each(testing::AnyOf(0, 1, 3)));
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

/// The members, with their arguments, that a description of the object tells of `interfaces`.
std::set<std::string> membersOf(const QString& xml, const std::set<QString>& interfaces) {
  std::set<std::string> members;
  QXmlStreamReader reader(xml);
  QString interface;
  QString member;
  while (!reader.atEnd()) {
    reader.readNext();
    const QString kind = reader.name().toString();
    if (reader.isStartElement() && kind != u"annotation") {
      const auto told = [&](auto attribute) { return reader.attributes().value(attribute).toString(); };
      if (kind == u"interface") interface = told("name"_L1);
      if (kind != u"arg") member = interface;
      member += u' ' + kind + u' ' + told("name"_L1) + told("type"_L1) + told("access"_L1);
      if (told("direction"_L1) == u"out") member += u" out"_s;
    } else if (reader.isEndElement() && kind != u"arg" && interfaces.contains(interface)) {
      members.insert(member.toStdString());
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
