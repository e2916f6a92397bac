// SPDX-License-Identifier: Apache-2.0
#include <QDBusVariant>
#include <stdexcept>

#include "session_trial.h"

namespace sentrel::test {

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

class ShowsDemo final : public SessionTrial {
 public:
  using SessionTrial::SessionTrial;

 private:
  void play() override {
    prepare();
    tellWhatTheCameraMisses();
    tellWhoHasTheCamera();
    showWhatItSees();
    hideOthersAndKeepTheAlert();
    showTheJournal();
    showTheProof();
    showTheDoctor();
    end();
    askTheDoctorAlone();
    writeTimeline();
    tellSuccess();
  }

  void prepare() {
    showDocument();
    const auto nothing = [](const QDBusMessage&) -> QVariantList { return {}; };
    panel_.answer(QStringLiteral("RegisterStatusNotifierItem"), nothing);
    panel_.answer(QStringLiteral("Introspect"), [](const QDBusMessage&) -> QVariantList {
      return {QStringLiteral(R"(<node><interface name="org.kde.StatusNotifierWatcher">
          <property name="IsStatusNotifierHostRegistered" type="b" access="read"/></interface></node>)")};
    });
    panel_.answer(QStringLiteral("Get"), [](const QDBusMessage&) -> QVariantList {
      return {QVariant::fromValue(QDBusVariant(true))};  // it shows what is registered
    });
    describe(server_, {QStringLiteral("actions"), QStringLiteral("body"), QStringLiteral("inhibitions")});
    for (const char* answered : {"Notify", "Inhibit"})
      server_.answer(QLatin1String(answered),
                     [this](const QDBusMessage&) -> QVariantList { return {++numbers_}; });
    server_.answer(QStringLiteral("UnInhibit"), nothing);
    begin();
    const QString registered = QStringLiteral("RegisterStatusNotifierItem");
    follows("the panel has its icon", [&] { return !panel_.calls(registered).empty(); });
    icon_ = panel_.calls(registered).back().arguments().constFirst().toString();
    takePicture("01-protected");
  }

  void tellWhatTheCameraMisses() {
    const QString seeing = iconProperty("IconPixmap");
    happens("a hand covers the camera", [this] { see(PortraitScene::faceless([](int, int) { return 4; })); });
    followsWords("Caméra couverte ou volet fermé", "02-covered");
    follows("the eye of the icon is struck", [&] { return iconProperty("IconPixmap") != seeing; });
    takePopover("03-covered-for-long");
    happens("the hand goes", [this] { see(Seen::alone); });
    followsNoWords();
    follows("the eye of the icon is open", [&] { return iconProperty("IconPixmap") == seeing; });

    happens("the light goes out but for a small lamp", [this] {
      see(PortraitScene::faceless(
          [](int x, int y) { return x > 520 && x < 560 && y > 60 && y < 100 ? 160 : 6; }));
    });
    followsWords("Trop sombre pour bien voir", "04-dark");
    happens("the person has gone", [this] {
      see(PortraitScene::faceless([](int x, int y) { return 90 + x / 16 + (y > 300 ? 30 : 0); }));
    });
    followsWords("Vous n'êtes pas dans le champ", "05-nobody");
    happens("the person sits before a bright window", [this] { see(portrait_.backlit()); });
    followsWords("Contre-jour", "06-backlight");
    happens("the camera gives the same picture again and again", [this] { see(portrait_.frame({}), true); });
    followsWords("Image figée", "07-frozen");
    happens("the camera gives pictures again", [this] { see(Seen::alone); });
    followsNoWords();
  }

  void tellWhoHasTheCamera() {
    happens("the camera gives no more pictures", [this] { camera_.setPlaying(false); });
    followsWords("Aucune image depuis 12 s", "08-no-picture");
    ChildProcess other;
    happens("another program takes it", [&] {
      other = desktop_.spawn("gst-launch-1.0", {"-q", "pipewiresrc", "target-object=demo_camera", "!",
                                                "video/x-raw", "!", "fakesink"});
    });
    followsWords("Caméra utilisée par gst-launch-1.0", "09-used");
    happens("the other program ends, and the camera gives pictures", [&] {
      other.terminate();
      camera_.setPlaying(true);
    });
    followsState("nominal");
    followsNoWords();
  }

  void showWhatItSees() {
    constexpr int notifyOnly = 1;  // the onlooker's box is to be seen, not what hides it
    startWith({{QStringLiteral("reaction"), notifyOnly}});
    command({"preferences"});
    pause(pictureDelay_);
    press({"space"});
    takePicture("10-live-view");
    happens("somebody looks on", [this] { see(Seen::watched); });
    followsState("alert");
    takePicture("11-live-onlooker");
    happens("the onlooker leaves", [this] { see(Seen::alone); });
    followsState("nominal");
    happens("the person looks away", [this] { see(Seen::away); });
    takePicture("12-live-away");  // while the time runs
    followsState("inattention");
    see(Seen::alone);
    followsState("nominal");
    press({"Escape"});
    judgeLiveView();
  }

  /// The onlooker's face has a red box.
  void judgeLiveView() {
    const auto reds = [this](const char* name) {
      const QImage place = picture(name).copy(QRect(1050, 500, 80, 80));
      int count = 0;
      for (int y = 0; y < place.height(); ++y) {
        for (int x = 0; x < place.width(); ++x) {
          const QRgb pixel = place.pixel(x, y);
          count += qRed(pixel) > qGreen(pixel) + 90 && qRed(pixel) > qBlue(pixel) + 70 ? 1 : 0;
        }
      }
      return count;
    };
    note("red in the live view: " + std::to_string(reds("10-live-view")) + ", with an onlooker " +
         std::to_string(reds("11-live-onlooker")));
    if (reds("11-live-onlooker") < reds("10-live-view") + 100)
      throw std::runtime_error("no red box is round the onlooker's face");
  }

  void hideOthersAndKeepTheAlert() {
    startWith({{QStringLiteral("alert_journal"), 2}, {QStringLiteral("hide_other_notifications"), true}});
    const auto told = [this](const char* member) { return server_.calls(QLatin1String(member)).size(); };
    const std::size_t hidden = told("Inhibit");
    const std::size_t shown = told("UnInhibit");
    happens("somebody looks on", [this] { see(Seen::watched); });
    followsState("alert");
    follows("others notify nothing", [&] { return told("Inhibit") == hidden + 1; });
    happens("the onlooker leaves", [this] { see(Seen::alone); });
    followsState("nominal");
    follows("others notify again", [&] { return told("UnInhibit") == shown + 1; });
  }

  void showTheJournal() {
    const std::string kept = command({"journal", "--since", "1h"});
    expect(kept, "2 visages");
    write("journal.txt", kept + command({"journal", "--csv"}));
    command({"statistics"});
    takePicture("13-journal");
    press({"Tab", "Tab", "Tab", "space"});
    takePicture("14-export");
    press({"Return"});
    follows("the table is written", [this] { return fs::exists(desktop_.home() / "alertes-sentrel.csv"); });
    takePicture("15-exported");
    closePopover();
  }

  void showTheProof() {
    const std::string proof = command({"privacy"});
    expect(proof, "✓ Une connexion au réseau est refusée");
    expect(proof, "✓ La caméra est ouverte depuis");
    write("privacy.txt", proof);
    openAbout();
    press({"Tab", "space"});
    takePicture("16-privacy");
    press({"Tab", "Tab", "space"});
    takePicture("17-privacy-unfolded");
    closePopover();
  }

  void showTheDoctor() {
    const std::string words = command({"doctor"});
    for (const char* part : {"Programme : en marche depuis 0:0", "Utilisée : Caméra de démonstration",
                             "Barre qui prend l'icône : StatusNotifier", "sentrel.state: nominal"})
      expect(words, part);
    write("doctor.txt", words);
    openAbout();
    press({"Tab", "Tab", "space"});
    pause(seconds(3));  // it asks for two at most
    takePicture("18-doctor");
    closePopover();
  }

  void askTheDoctorAlone() {
    const std::string words = command({"doctor"});
    expect(words, "Programme : ne tourne pas");
    expect(words, "Caméra de démonstration : ");
    write("doctor-alone.txt", words);
  }

  void openAbout() {
    watcher_.activateAction(QStringLiteral("about"));
    pause(pictureDelay_);
  }

  /// In the tooltip, and in the popover.
  void followsWords(const char* words, const std::string& pictureName) {
    follows(std::string("the icon says: ") + words,
            [&] { return iconProperty("ToolTip").contains(QString::fromUtf8(words)); });
    takePopover(pictureName);
  }
  void followsNoWords() {
    follows("the icon says no more than the state", [this] {
      return iconProperty("ToolTip").contains(QStringLiteral("Sentrel\nProtection active\""));
    });
  }

  /// As text.
  [[nodiscard]] QString iconProperty(const char* name) {
    ChildProcess asked =
        desktop_.spawn("dbus-send", {"--session", "--print-reply", "--dest=" + icon_.toStdString(),
                                     "/StatusNotifierItem", "org.freedesktop.DBus.Properties.Get",
                                     "string:org.kde.StatusNotifierItem", std::string("string:") + name});
    waitFor("the icon answers", [&] { return !asked.isRunning(); });
    const QString answer = QString::fromStdString(asked.output());
    return answer.mid(answer.indexOf(u'\n'));  // the first line numbers the answer
  }

  static void expect(const std::string& words, const char* part) {
    if (words.find(part) == std::string::npos)
      throw std::runtime_error("this is not told: " + std::string(part) + "; but:\n" + words);
  }
  void write(const char* name, const std::string& words) const { std::ofstream(folder_ / name) << words; }

  BusDouble panel_{desktop_, TestBus::session, QStringLiteral("org.kde.StatusNotifierWatcher")};
  BusDouble server_{desktop_, TestBus::session, QStringLiteral("org.freedesktop.Notifications")};
  QString icon_;      // its bus name
  uint numbers_ = 0;  // of notifications and of inhibitions
};

}  // namespace

std::unique_ptr<ProgramTrial> showsDemo(HeadlessDesktop& desktop, const std::filesystem::path& folder,
                                        const std::string& program) {
  return std::make_unique<ShowsDemo>(desktop, folder, program);
}

}  // namespace sentrel::test
