// SPDX-License-Identifier: Apache-2.0
//
// What a report shows of facts that somebody else has named, and what it does not show.
#include "app/doctor.h"

#include <gmock/gmock.h>

#include <QCoreApplication>

namespace sentrel::test {
namespace {

const Secrets secrets{.home = "/home/lea", .names = {"desk-of-lea", "lea"}};

TEST(Masked, WhoItIsAndWhichDeviceItIsAreNotShown) {
  const std::pair<QString, QString> cases[] = {
      {"/home/lea/.config/sentrel is not readable", "~/.config/sentrel is not readable"},
      {"/run/media/lea/disk", "/run/media/***/disk"},
      {"the cleaner desk-of-lea, lea", "the cleaner ***, ***"},
      {"HD Pro Webcam C920", "HD Pro Webcam C920"},
      {"usb-046d_Webcam_8A2B3C4F1D-video-index0", "usb-046d_Webcam_***-video-index0"},
      {"1920x1080 @ 1.5, 16x16-8192x8192", "1920x1080 @ 1.5, 16x16-8192x8192"},
      {"Linux 6.1.0-18-amd64, AMD Ryzen 7 PRO 4750U", "Linux 6.1.0-18-amd64, AMD Ryzen 7 PRO 4750U"},
      {"a\nb\x1b[2Jc", "a b [2Jc"},
  };
  for (const auto& [words, shown] : cases)
    EXPECT_EQ(masked(words, secrets).toStdString(), shown.toStdString());
  EXPECT_EQ(masked(QString(10'000, u'k'), secrets).size(), 2000);
}

/// The values below a label, and what there is to do about them.
std::vector<std::pair<QString, QString>> saidOf(const Report& report, const QString& label) {
  std::vector<std::pair<QString, QString>> said;
  for (const ReportSection& section : report)
    for (const ReportLine& line : section.lines)
      if (line.label == label) said.emplace_back(line.value, line.advice);
  return said;
}

struct DoctorTest : testing::Test {
  DoctorTest() {
    machine.local.emplace();
    machine.sessionServices = QStringList{"org.freedesktop.Notifications", "org.kde.StatusNotifierWatcher"};
    machine.systemServices = QStringList{"org.freedesktop.login1", "org.freedesktop.UPower"};
    machine.cameras = CameraSurvey{.version = "1.2.3", .cameras = {{"Cam", {"YUY2 640x480@30"}}}};
    machine.displays.emplace();
    program.cover = CoverFacts{
        .system = "X11", .screens = {{1, "DP-1", {0, 0, 1280, 720}, true, 1.5006}}, .limitation = {}};
  }
  [[nodiscard]] Report report() const { return makeReport(machine, program, secrets); }

  int count = 1;
  QCoreApplication application{count, &program_invocation_name};
  MachineFacts machine;
  ProgramFacts program;
};

TEST_F(DoctorTest, AHealthyMachineHasNoProblemButItsDisplay) {
  qputenv("DISPLAY", ":9");
  EXPECT_THAT(asText(report()).toStdString(), testing::StartsWith("Aucun problème trouvé\n"));
  EXPECT_EQ(saidOf(report(), "DP-1").at(0).first, "1280x720 @ 1.5");
  qunsetenv("DISPLAY");
  qunsetenv("WAYLAND_DISPLAY");
  EXPECT_THAT(asText(report()).toStdString(), testing::StartsWith("1 problème trouvé\n"));
}

TEST_F(DoctorTest, EachProblemComesWithWhatToDo) {
  qputenv("DISPLAY", ":9");
  using Settings = LocalFacts::Settings;
  const std::pair<std::function<void()>, QString> cases[] = {
      {[&] { machine.sessionServices.reset(); }, "Bus de session"},
      {[&] { machine.sessionServices = QStringList(); }, "Notifications"},
      {[&] { machine.sessionServices = QStringList(); }, "Barre qui prend l'icône"},
      {[&] { program.tray = Tray::none; }, "Barre qui prend l'icône"},
      {[&] { program.shortcut = {ShortcutGrant::Kind::refused}; }, "Raccourci"},
      {[&] { program.cover->limitation = "error_no_overlay"; }, "Couverture"},
      {[&] { program.cover->limitation = "error_no_compositing"; }, "Couverture"},
      {[&] { program.cover.reset(); }, "Couverture"},
      {[&] { program.running = ProgramFacts::Running::silent; }, "Programme"},
      {[&] { machine.cameras.reset(); }, "PipeWire"},
      {[&] { machine.cameras->cameras.clear(); }, "Caméras"},
      {[&] { machine.local->mayReadCameras = false; }, "Accès aux caméras"},
      {[&] { machine.systemServices.reset(); }, "Témoins du verrou"},
      {[&] { machine.systemServices.reset(); }, "Témoins de la veille"},
      {[&] { machine.local->settings = Settings::damaged; }, "Réglages"},
      {[&] { machine.local->settings = Settings::unreadable; }, "Réglages"},
      {[&] { machine.local->modelFault = "missing"; }, "Modèles de détection"},
      {[&] { machine.local.reset(); }, "Système"},
  };
  for (const auto& [fault, label] : cases) {
    const MachineFacts wholeMachine = machine;
    const ProgramFacts wholeProgram = program;
    fault();
    const auto said = saidOf(report(), label);
    ASSERT_EQ(said.size(), 1U) << label.toStdString();
    EXPECT_NE(said[0].second, "") << label.toStdString();
    machine = wholeMachine;
    program = wholeProgram;
  }
  machine.systemServices = QStringList{"org.freedesktop.login1"};
  EXPECT_EQ(saidOf(report(), "Témoins de l'énergie").at(0).second, "") << "there is no battery";
  machine.local->batteries = {"57 %, Discharging"};
  EXPECT_NE(saidOf(report(), "Témoins de l'énergie").at(0).second, "");
}

TEST_F(DoctorTest, ACameraMayBearTheNameOfThePersonOrANumber) {
  machine.cameras->cameras = {{"Phone of lea, 8A2B3C4F1D", {}}};
  program.camera = machine.cameras->cameras[0].name;
  const std::string words = asText(report()).toStdString();
  EXPECT_THAT(words, testing::HasSubstr("  Phone of ***, *** : "));
  EXPECT_THAT(words, testing::Not(testing::HasSubstr("lea")));
}

TEST_F(DoctorTest, WhoeverTellsOfDarkScreensIsNamed) {
  for (const char* protocol : {"zwlr_output_power_manager_v1", "org_kde_kwin_dpms_manager"}) {
    machine.displays->protocols = std::vector{std::string(protocol) + " 1", std::string("wl_shm 1")};
    EXPECT_EQ(saidOf(report(), "Témoins des écrans éteints").at(0).first.toStdString(), protocol);
  }
}

TEST_F(DoctorTest, NamesOfOthersStayOnTheirLine) {
  const std::string name = "\x1b]0;title\a\n" + std::string(10'000, 'x');
  machine.cameras->cameras = {{name, std::vector<std::string>(5'000, name)}};
  machine.displays->protocols = std::vector<std::string>(256, name);
  machine.portals = QStringList(100, QString::fromStdString(name));
  program.events = {{61'000, "sentrel.camera: seeing: " + name}};
  const QString words = asText(report());
  EXPECT_LT(words.size(), 20'000);
  for (const QChar character : words)
    EXPECT_TRUE(character == u'\n' || character.category() != QChar::Other_Control);
  EXPECT_TRUE(words.contains("+0:01:01"));
}

}  // namespace
}  // namespace sentrel::test
