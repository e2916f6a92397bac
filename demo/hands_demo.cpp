// SPDX-License-Identifier: Apache-2.0
#include <QDBusVariant>
#include <QDrag>
#include <QDropEvent>
#include <QInputMethodEvent>
#include <QMimeData>
#include <QPainter>
#include <QRasterWindow>
#include <cmath>
#include <stdexcept>

#include "session_trial.h"
#include "stage/shared_screen.h"

namespace sentrel::test {

namespace {

const auto notificationService = QStringLiteral("org.freedesktop.Notifications");
const auto notificationPath = QStringLiteral("/org/freedesktop/Notifications");

/// A window that the person works in below the cover: it takes what is typed, gives a word to be dragged, and
/// takes what is dropped.
class WorkWindow final : public QRasterWindow {
 public:
  explicit WorkWindow(const QRect& place) {
    setFlags(Qt::FramelessWindowHint);
    setGeometry(place);
    show();
  }
  [[nodiscard]] const QString& typed() const { return typed_; }
  [[nodiscard]] int drops() const { return drops_; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter(this).fillRect(QRect(QPoint(), size()), Qt::white);
  }
  void keyPressEvent(QKeyEvent* event) override { typed_ += event->text(); }
  void mouseMoveEvent(QMouseEvent* event) override {
    if (event->buttons() == Qt::NoButton) return;
    auto* const drag = new QDrag(this);
    auto* const word = new QMimeData;
    word->setText(QStringLiteral("word"));
    drag->setMimeData(word);
    drag->exec(Qt::CopyAction);
  }
  bool event(QEvent* event) override {
    if (event->type() == QEvent::InputMethodQuery) {
      static_cast<QInputMethodQueryEvent*>(event)->setValue(Qt::ImEnabled, true);
      return true;
    }
    if (event->type() == QEvent::InputMethod)
      typed_ += static_cast<QInputMethodEvent*>(event)->commitString();
    if (event->type() == QEvent::DragEnter || event->type() == QEvent::DragMove)
      static_cast<QDropEvent*>(event)->acceptProposedAction();
    if (event->type() == QEvent::Drop) {
      auto* const drop = static_cast<QDropEvent*>(event);
      if (drop->mimeData()->text() == QStringLiteral("word")) ++drops_;
      drop->acceptProposedAction();
    }
    return QRasterWindow::event(event);
  }

 private:
  QString typed_;
  int drops_ = 0;
};

class HandsDemo final : public SessionTrial {
 public:
  using SessionTrial::SessionTrial;

 private:
  void play() override {
    prepare();
    pauseForAWhile();
    pauseByPointer();
    welcomeByKeys();
    welcomeAGuest();
    callItNobody();
    callItNobodyByPointer();
    shareTheScreen();
    reactAsChosen();
    letPassersByPass();
    letWhoLooksElsewhere();
    workBelowTheCover();
    cover();
    end();
    writeTimeline();
    judge();
    tellSuccess();
  }

  void prepare() {
    showDocument();
    describe(server_, {QStringLiteral("actions"), QStringLiteral("body")});
    server_.answer(QStringLiteral("Notify"), [this](const QDBusMessage& call) -> QVariantList {
      note("notification: " + call.arguments().value(3).toString().toStdString());
      return {++shown_};
    });
    begin();
    takePicture("01-protected");
  }

  void pauseForAWhile() {
    command({"pause", "15m"});
    followsState("autoPaused");
    followsCamera(false);
    takePicture("02-paused");
    takePopover("03-paused-window");
    command({"resume"});
    followsState("nominal");
    followsCamera(true);
  }

  void pauseByPointer() {
    openPopover();
    takePicture("10-rows");
    click("the row of the pause", rowAt(0));
    takePicture("11-pause-choices");
    click("15 minutes", rowAt(0) + QPoint(0, (rowHeight + choiceHeight) / 2));
    followsState("autoPaused");
    followsCamera(false);
    takePicture("12-paused-by-pointer");
    click("the row that resumes", rowAt(0));
    followsState("nominal");
    closePopover();
  }

  void welcomeByKeys() {
    openPopover();
    press({"Down", "Down", "Down", "Down", "Down", "space", "Down", "space"});
    followsProperty("Guests", 1);
    takePicture("13-guest-by-keys");
    press({"Escape"});
    openPopover();
    press({"Down", "Down", "Down", "Down", "Down", "Down", "space"});
    followsProperty("Guests", 0);
    closePopover();
  }

  void welcomeAGuest() {
    command({"guest", "1", "30m"});
    see(Seen::watched);
    staysIn("nominal", std::chrono::seconds(4));
    takePopover("04-guest-window");
    command({"alone"});
    followsState("alert");
    takePicture("05-alert");
  }

  void callItNobody() {
    answer("Ce n'est personne");
    followsProperty("IgnoredFaces", 1);
    followsState("nominal");
    staysIn("nominal", std::chrono::seconds(15));
    takePopover("06-nobody-window");
    happens("the screen is locked", [this] { session_.setLockedHint(true); });
    followsState("autoPaused");
    followsProperty("IgnoredFaces", 0);
    happens("the screen is unlocked", [this] { session_.setLockedHint(false); });
    followsState("alert");
    answer("Pause 15 min");
    followsState("autoPaused");
    takePopover("07-answered-window");
    see(Seen::alone);
    command({"resume"});
    followsState("nominal");
  }

  void callItNobodyByPointer() {
    see(Seen::watched);
    followsState("alert");
    openPopover();
    takePicture("14-alert-window");
    click("the button", rowAt(0));
    followsProperty("IgnoredFaces", 1);
    takePicture("15-nobody-by-pointer");
    click("the words that tell so", ignoredLink);
    followsProperty("IgnoredFaces", 0);
    click("the button", rowAt(0));
    followsProperty("IgnoredFaces", 1);
    closePopover();
    followsState("nominal");
    staysIn("nominal", std::chrono::seconds(4));
    happens("what was taken for a poster moves", [this] { see(Seen::watchedFromElsewhere); });
    followsState("alert");
    followsProperty("IgnoredFaces", 0);
    takePicture("24-poster-moved");
    see(Seen::alone);
    followsState("nominal");
  }

  void shareTheScreen() {
    std::optional<SharedScreen> sharing;
    happens("the screen is shared", [&] { sharing.emplace(desktop_); });
    followsProperty("IsScreenShared", 1);
    takePicture("16-shared");
    takePopover("17-shared-window");
    see(Seen::watched);
    followsState("alert");
    takePicture("18-shared-alert");
    see(Seen::alone);
    followsState("nominal");
    happens("nobody else sees the screen any more", [&] { sharing.reset(); });
    followsProperty("IsScreenShared", 0);
    takePicture("19-not-shared");
  }

  void reactAsChosen() {
    constexpr int notifyOnly = 1;
    constexpr int darkenOnly = 2;
    startWith({{QStringLiteral("reaction"), notifyOnly}});
    uint before = shown_;
    see(Seen::watched);
    followsState("alert");
    follows("a notification", [&] { return shown_ != before; });
    takePicture("20-notifies-only");
    startWith({{QStringLiteral("reaction"), darkenOnly}});
    before = shown_;
    see(Seen::watched);
    followsState("alert");
    takePicture("21-darkens-only");
    if (shown_ != before) throw std::runtime_error("an alert that only darkens has notified");
  }

  void letPassersByPass() {
    startWith({{QStringLiteral("watch_up_to_cm"), 150}});
    happens("somebody looks on from two metres", [this] { see(Seen::watchedFromAfar); });
    staysIn("nominal", std::chrono::seconds(4));
    takePicture("22-too-far");
    happens("somebody looks on from near", [this] { see(Seen::watched); });
    followsState("alert");
    startWith({{QStringLiteral("alert_after_ms"), 2000}});
    happens("somebody passes by", [this] { see(Seen::watched); });
    staysIn("nominal", std::chrono::milliseconds(1500));
    see(Seen::alone);
    staysIn("nominal", std::chrono::seconds(2));
    happens("somebody stays", [this] { see(Seen::watched); });
    followsState("alert");
    startWith({});
    happens("somebody looks on from two metres", [this] { see(Seen::watchedFromAfar); });
    followsState("alert");
    startWith({});
  }

  void letWhoLooksElsewhere() {
    happens("somebody is beside the person and looks elsewhere", [this] { see(Seen::turnedAway); });
    followsState("alert");
    startWith({{QStringLiteral("only_facing"), true}});
    happens("somebody is beside the person and looks elsewhere", [this] { see(Seen::turnedAway); });
    staysIn("nominal", std::chrono::seconds(10));
    takePicture("23-looks-elsewhere");
    happens("that person looks at the screen", [this] { see(Seen::watched); });
    followsState("alert");
    startWith({});
  }

  /// In every state, with the mouse, the keys and an input method: one that composes letters.
  void workBelowTheCover() {
    WorkWindow from(QRect(300, 300, 300, 300));
    WorkWindow to(QRect(1000, 300, 300, 300));
    waitFor("the windows are shown", [&] { return from.isExposed() && to.isExposed(); });
    desktop_.run("setxkbmap", {"-layout", "us", "-variant", "intl"});  // has dead keys
    int drops = 0;
    QString typed;
    for (const auto& [seen, state] : {std::pair(Seen::alone, "nominal"), std::pair(Seen::away, "inattention"),
                                      std::pair(Seen::watched, "alert")}) {
      happens(std::string("the person works in ") + state, [this, seen = seen] { see(seen); });
      followsState(state);
      desktop_.run("xdotool", {"mousemove", "1100", "400", "click", "1"});
      follows("the window has the focus", [&] { return to.isActive(); });
      typed += u'x';
      desktop_.run("xdotool", {"key", "x"});
      follows("what is typed arrives", [&] { return to.typed() == typed; });
      typed += u'\u00E9';
      desktop_.run("xdotool", {"key", "dead_acute", "e"});
      follows("what is composed arrives", [&] { return to.typed() == typed; });
      std::vector<std::string> drag{"mousemove", "400", "400", "mousedown", "1", "sleep", "0.1"};
      for (int x = 420; x <= 1100; x += 40)
        drag.insert(drag.end(), {"mousemove", std::to_string(x), "420", "sleep", "0.02"});
      drag.insert(drag.end(), {"sleep", "0.2", "mouseup", "1"});
      const ChildProcess hand = desktop_.spawn("xdotool", drag);
      ++drops;
      follows("what is dragged arrives", [&] { return to.drops() == drops; });
      if (!isIn(state)) throw std::runtime_error(std::string(state) + " did not last");
    }
    takePicture("25-work-below");
    see(Seen::alone);
    followsState("nominal");
  }

  void cover() {
    command({"off"});
    followsState("inactive");
    command({"cover"});
    followsProperty("IsCovered", 1);
    takePicture("08-covered");
    click("Découvrir", coverButton);
    followsProperty("IsCovered", 0);
    takePicture("09-uncovered");
    command({"cover"});
    followsProperty("IsCovered", 1);
    command({"cover"});
    followsProperty("IsCovered", 0);
  }

  void judge() const {
    const double bare = brightness("00-uncovered");
    for (const char* name : {"02-paused", "09-uncovered", "16-shared", "18-shared-alert"}) {
      if (std::abs(brightness(name) - bare) > 1) throw std::runtime_error(std::string(name) + " is covered");
    }
    const double protectedOnes = brightness("01-protected");
    if (protectedOnes >= bare - 1) throw std::runtime_error("no stripes are seen");
    for (const char* name : {"19-not-shared", "22-too-far"}) {
      if (std::abs(brightness(name) - protectedOnes) > 1)
        throw std::runtime_error(std::string(name) + " is not as always");
    }
    for (const char* name : {"05-alert", "21-darkens-only"}) {
      if (brightness(name) >= 0.7 * bare)
        throw std::runtime_error(std::string("no alert is seen in ") + name);
    }
    if (brightness("20-notifies-only") < 0.9 * protectedOnes) throw std::runtime_error("it does darken");
    if (brightness("08-covered") >= 0.4 * bare) throw std::runtime_error("the cover is not seen");
  }

  /// The middle of a row of what is allowed for a while, on the screen.
  [[nodiscard]] static QPoint rowAt(int row) { return firstRow + QPoint(0, row * rowHeight); }

  static constexpr QPoint ignoredLink{695, 273};
  static constexpr QPoint firstRow{760, 450};
  static constexpr int rowHeight = 36;
  static constexpr int choiceHeight = 32;
  static constexpr QPoint coverButton{960, 588};

  /// Of the last notification, by what its button says.
  void answer(const char* button) {
    follows("the notification can be answered",
            [&] { return shown_ != answered_ && !actionOf(button).isEmpty(); });
    pause(pictureDelay_);  // no person is faster than the program learns the notification's number
    happens(std::string("the person answers: ") + button, [&] {
      server_.emitSignal(notificationPath, notificationService, QStringLiteral("ActionInvoked"),
                         {shown_, actionOf(button)});
    });
    answered_ = shown_;
  }
  [[nodiscard]] QString actionOf(const char* button) const {
    const auto calls = server_.calls(QStringLiteral("Notify"));
    if (calls.empty()) return {};
    const QStringList actions = calls.back().arguments().value(5).toStringList();
    const auto at = actions.indexOf(QString::fromUtf8(button));
    return at > 0 ? actions[at - 1] : QString();
  }

  void followsProperty(const char* name, qlonglong value) {
    follows(std::string(name) + " is " + std::to_string(value), [&] {
      const QDBusMessage reply = session_.sessionBus().call(
          QStringLiteral("expert.mardeck.sentrel"), QStringLiteral("/expert/mardeck/sentrel"),
          QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
          {QStringLiteral("expert.mardeck.sentrel1"), QString::fromLatin1(name)});
      return reply.arguments().constFirst().value<QDBusVariant>().variant().toLongLong() == value;
    });
  }

  void staysIn(const std::string& state, std::chrono::milliseconds length) {
    if (runUntil([&] { return !isIn(state); }, length)) throw std::runtime_error(state + " did not last");
    note("protection stays in " + state);
  }

  BusDouble server_{desktop_, TestBus::session, notificationService};
  uint shown_ = 0;  // the id of the last notification
  uint answered_ = 0;
};

}  // namespace

std::unique_ptr<ProgramTrial> handsDemo(HeadlessDesktop& desktop, const std::filesystem::path& folder,
                                        const std::string& program) {
  return std::make_unique<HandsDemo>(desktop, folder, program);
}

}  // namespace sentrel::test
