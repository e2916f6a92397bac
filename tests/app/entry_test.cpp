// SPDX-License-Identifier: Apache-2.0
//
// How the program begins and ends: once, wherever it is started, and whole whenever it is killed.
#include <QDateTime>

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

/// Without a display and without a camera: quick to start.
struct Entry : ProgramRun {
  Entry() : ProgramRun({}) {}
};

TEST_F(Entry, OfTwoStartsAtOnceOneStays) {
  for (int i = 0; i < 10; ++i) {
    SCOPED_TRACE(i);
    ChildProcess both[] = {spawn(), spawn()};
    ASSERT_TRUE(waitUntil([&] { return !both[0].isRunning() || !both[1].isRunning(); }));
    ChildProcess& other = both[0].isRunning() ? both[1] : both[0];
    ChildProcess& first = both[0].isRunning() ? both[0] : both[1];
    EXPECT_EQ(other.waitForExit(seconds(1)), 0);
    EXPECT_NE(other.output().find("Sentrel tourne déjà\n"), std::string::npos) << other.output();
    ASSERT_TRUE(first.isRunning()) << first.output();
    EXPECT_EQ(owner(), first.pid());
    terminate(first);
  }
}

TEST_F(Entry, ItCanBeKilledAtAnyStageOfItsStart) {
  for (int i = 0; i < 15; ++i) {
    ChildProcess process = spawn();
    std::this_thread::sleep_for(milliseconds(40) * i);
    process.kill();
    ASSERT_TRUE(waitUntil([&] { return !bus->hasName(programName); }));
    ASSERT_EQ(number("filter_strength"), 5) << "after kill " << i << ": " << settings();
  }
  ChildProcess process = spawn();
  ASSERT_TRUE(owns(process)) << process.output();
  terminate(process);
  EXPECT_NE(settings().find("\"has_completed_onboarding\": true"), std::string::npos);
  for (const auto& file : fs::directory_iterator(settingsFolder()))
    EXPECT_EQ(file.path().filename(), "defaults.json");
}

/// What the person has asked for by SENTREL_LOG alone, and with priorities where the journal reads them.
TEST_F(Entry, EventsAreLoggedByTheirRulesAndToTheJournal) {
  const struct {
    const char* setting;
    bool state, bus, priority;
  } cases[] = {
      {"A=b", false, false, false},
      {"SENTREL_LOG=sentrel.*=true;sentrel.bus=false", true, false, false},
      {"SENTREL_LOG=sentrel.*=true", true, true, true},
  };
  for (const auto& [setting, state, connected, priority] : cases) {
    SCOPED_TRACE(setting);
    const std::string stream = priority ? "export JOURNAL_STREAM=$(stat -Lc %d:%i /proc/self/fd/2); " : "";
    ChildProcess process =
        desktop.spawn("sh", {"-c", stream + "exec env '" + setting + "' " SENTREL_PROGRAM});
    ASSERT_TRUE(owns(process));
    ASSERT_TRUE(becomes("inactive"));
    terminate(process);
    const std::string words = process.output();
    EXPECT_EQ(words.find("sentrel.state: inactive") != std::string::npos, state) << words;
    EXPECT_EQ(words.find("sentrel.bus: session bus connected") != std::string::npos, connected) << words;
    EXPECT_EQ(words.find("<6>sentrel.state: ") != std::string::npos, priority) << words;
  }
}

TEST_F(Entry, AStartWhileTheFirstOneEndsTakesItsPlace) {
  ChildProcess process = spawn();
  for (const int delayMs : {0, 20, 60, 150}) {
    ASSERT_TRUE(owns(process)) << process.output();
    process.signal(SIGTERM);
    std::this_thread::sleep_for(milliseconds(delayMs));
    ChildProcess next = spawn();
    EXPECT_EQ(process.waitForExit(seconds(10)), 0) << process.output();
    EXPECT_TRUE(owns(next)) << delayMs << ": " << next.output();
    process = std::move(next);
  }
}

TEST_F(Entry, AnInstanceThatHangsHoldsUpNoOther) {
  ChildProcess first = spawn();
  ASSERT_TRUE(owns(first));
  first.signal(SIGSTOP);
  ChildProcess second = spawn();
  EXPECT_EQ(second.waitForExit(seconds(20)), 0);
  first.signal(SIGCONT);
  EXPECT_EQ(owner(), first.pid());
}

TEST_F(Entry, ItDoesWithoutWhatOthersTakeForGranted) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"no home", {"-u", "HOME", "-u", "XDG_CONFIG_HOME"}},
      {"a home that cannot be written", {"HOME=/proc/1", "XDG_CONFIG_HOME=/proc/1/config"}},
      {"an X display that is not there", {"DISPLAY=:4711"}},
      {"a Wayland display that is not there", {"WAYLAND_DISPLAY=wayland-4711"}},
      {"no session bus", {"-u", "DBUS_SESSION_BUS_ADDRESS", "-u", "XDG_RUNTIME_DIR"}},
      {"a session bus on the network", {"DBUS_SESSION_BUS_ADDRESS=tcp:host=127.0.0.1,port=9"}},
  };
  for (const auto& [what, environment] : cases) {
    SCOPED_TRACE(what);
    ChildProcess process = spawn(environment);
    EXPECT_TRUE(waitUntil([&] {
      return owner() == process.pid() || process.output().find("Aucun bus de session") != std::string::npos;
    })) << process.output();
    std::this_thread::sleep_for(milliseconds(200));
    ASSERT_TRUE(process.isRunning()) << process.output();
    terminate(process);
    EXPECT_TRUE(waitUntil([&] { return !bus->hasName(programName); }));
  }
}

TEST_F(Entry, ArgumentsAreAnsweredInWords) {
  Environment session = desktop.environment();
  session["DISPLAY"] = ":4711";  // a display that is not there is not asked
  Environment nothing = desktop.environment();
  std::erase_if(nothing, [](const auto& entry) { return !entry.first.ends_with("SAN_OPTIONS"); });
  Environment english = session;
  english["LANG"] = "C.UTF-8";
  english["LANGUAGE"] = "de:en:fr";
  const struct {
    std::vector<std::string> arguments;
    const Environment& environment;
    const char* redirection;
    int status;
    std::string out;  // part of it; nothing at all where it is empty
    std::string err;
  } cases[] = {
      {{"--help"}, session, "", 0, "Utilisation\u00A0: sentrel [COMMANDE]\n", ""},
      {{"--help"}, english, "", 0, "\n  --version                     print the version", ""},
      {{"--help"}, nothing, "", 0, "\n  --help                        affiche cette aide", ""},
      {{"--version"}, session, "", 0, "sentrel " SENTREL_VERSION "\n", ""},
      {{"--nonsense"}, session, "", 2, "", "sentrel: argument inconnu\u00A0: «\u00A0--nonsense\u00A0»"},
      {{"--service", "--nonsense"}, english, "", 2, "", "“--nonsense”"},
      {{"--help", "nonsense"}, english, "", 2, "", "“nonsense”"},
      {{"-platform", "xcb"}, english, "", 2, "", "“-platform”"},
      {{"\x1b]0;%2\a\xff"}, english, "", 2, "", "“?]0;%2?\uFFFD”"},
      {{"pause"}, english, "", 2, "", "a duration is asked for"},
      {{"pause", "15m", "more"}, english, "", 2, "", "“more”"},
      {{"guest", "0"}, english, "", 2, "", "1, 2 or 3"},
      {{"guest", "4", "1h"}, english, "", 2, "", "1, 2 or 3"},
      {{"guest", "2", "x"}, english, "", 2, "", "a duration is asked for"},
      {{"guest", "1h", "2"}, english, "", 2, "", "“2”"},
      {{"status", "--yaml"}, english, "", 2, "", "“--yaml”"},
      {{"off", "now"}, english, "", 2, "", "“now”"},
      {{"journal", "--since"}, english, "", 2, "", "a span of time"},
      {{"journal", "--since", "7s"}, english, "", 2, "", "a span of time"},
      {{"journal", "7d"}, english, "", 2, "", "“7d”"},
      {{"journal"}, nothing, "", 0, "Aucune alerte\n", ""},
      {{"status"}, session, "", 3, "", "sentrel: Sentrel ne tourne pas.\n"},
      {{"privacy"}, session, "", 3, "", "ne tourne pas"},
      {{"pause", "24h"}, session, "", 3, "", "ne tourne pas"},
      {{"guest"}, nothing, "", 3, "", "ne tourne pas"},
      {{"--help"}, session, ">/dev/full", 1, "", "sentrel: No space left on device\n"},
      {{"--version"}, session, ">&-", 1, "", "sentrel: Bad file descriptor\n"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(testing::PrintToString(given.arguments) + given.redirection);
    const Said said = say(given.arguments, given.environment, given.redirection);
    ASSERT_EQ(said.status, given.status) << said.err;
    const auto expectPart = [](const std::string& text, const std::string& part) {
      EXPECT_NE(text.find(part), std::string::npos) << text;
      EXPECT_EQ(text.empty(), part.empty()) << text;
    };
    expectPart(said.out, given.out);
    expectPart(said.err, given.err);
  }
  for (const char* duration : {"0", "0m", "-5m", "+5m", "5", "m", "", "1.5h", "15 m", "15min", "25h", "1441m",
                               "99999h", "99999999999999999999h", "abc", "Tomorrow"})
    EXPECT_EQ(say({"pause", duration}).status, 2) << duration;
}

TEST_F(Entry, TheJournalIsReadWithoutTheProgram) {
  Environment environment = desktop.environment();
  const fs::path state = desktop.runtimeFolder() / "state";
  environment["XDG_STATE_HOME"] = state.string();
  const auto line = [](int hoursAgo, const char* camera) {
    const QDateTime began = QDateTime::currentDateTimeUtc().addSecs(-hoursAgo * 3600);
    return R"({"began":")" + began.toString(Qt::ISODateWithMs).toStdString() + R"(","camera":")" + camera +
           R"(","darkened":true,"end":"gone","faces":2,"length_ms":7900,"notified":true,"widest_face":0.083})"
           "\n";
  };
  const auto write = [&](const std::string& text) {
    fs::create_directories(state / "sentrel");
    std::ofstream(state / "sentrel" / "alerts.jsonl") << text;
  };
  const std::string head = "{\"sentrel\":\"alerts\",\"version\":1}\n";
  write(head + line(50, "=old") + line(1, "new"));
  EXPECT_THAT(
      say({"journal"}, environment).out,
      testing::MatchesRegex("20[^\n]* 7 s  2 visages   8.3 %  assombri, notifié  plus personne  =old\n"
                            "20[^\n]*  new\n"));
  EXPECT_THAT(say({"journal", "--since", "2d"}, environment).out,
              testing::AllOf(testing::HasSubstr("  new\n"), testing::Not(testing::HasSubstr("old"))));
  EXPECT_THAT(say({"journal", "--csv", "--since", "3d"}, environment).out,
              testing::MatchesRegex("began,length_s,[^\r]*\r\n20[^\r]*,7.9,2,8.3,\"'=old\",yes,yes,gone\r\n"
                                    "20[^\r]*,\"new\",yes,yes,gone\r\n"));
  EXPECT_EQ(say({"journal", "--since", "99999999999999999w"}, environment).status, 0);

  write(head + "{" + line(1, "new") + line(1, "newer"));
  const Said damaged = say({"journal"}, environment);
  EXPECT_EQ(damaged.status, 0);
  EXPECT_THAT(damaged.out, testing::EndsWith("  newer\n"));
  EXPECT_THAT(damaged.err, testing::HasSubstr("endommagé"));
  write("{\"sentrel\":\"alerts\",\"version\":7}\n");
  const Said newer = say({"journal"}, environment);
  EXPECT_EQ(newer.status, 1);
  EXPECT_THAT(newer.err, testing::HasSubstr("version plus récente"));
}

}  // namespace
}  // namespace sentrel::test
