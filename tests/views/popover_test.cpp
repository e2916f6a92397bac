// SPDX-License-Identifier: Apache-2.0
#include <QAccessible>
#include <QClipboard>
#include <QFileDialog>
#include <QLocale>

#include "views/popover_pages.h"
#include "views/popover_rows.h"
#include "views/privacy_view.h"
#include "views/window_test.h"

namespace sentrel::test {
namespace {

struct PopoverTest : WindowTest {
  PopoverTest() { openPopover(); }

  [[nodiscard]] MenuBarPopoverView& content() const {
    return dynamic_cast<PopoverWindow&>(*window).content();
  }
  [[nodiscard]] Relaxations& relaxations() const { return service->relaxations(); }
  [[nodiscard]] ToggleSwitch* protection() const { return named<ToggleSwitch>("Protection"); }
  void expectSwitch(bool on, bool waiting, const char* words) {
    EXPECT_EQ(protection()->isChecked(), on) << words;
    EXPECT_EQ(protection()->waiting(), waiting) << words;
    EXPECT_TRUE(shows(words)) << words;
  }
};

TEST_F(PopoverTest, TheSwitchFollowsTheServiceAndNotTheClick) {
  const char* const none = "Caméra introuvable";
  machine.session->cameras.clear();
  machine.session->seen = false;
  click(protection());
  machine.advance(7000);
  expectSwitch(false, true, none);
  openPopover();  // later, it shows the same
  expectSwitch(false, true, none);
  click(protection());
  machine.advance(7000);
  EXPECT_FALSE(shows(none)) << "a second click gives up";
  machine.session->plug(true);
  click(protection());
  expectSwitch(false, true, "Protection désactivée");
  machine.settle();
  expectSwitch(true, false, "Protection active");
  see(watched, 1500);
  expectSwitch(true, false, "Regard indiscret détecté");
  tell(SessionEvent::screenIsLocked);
  expectSwitch(true, false, "En pause");
  click(protection());
  expectSwitch(false, false, "Protection désactivée");
}

TEST(CameraWords, SayTheConditionRatherThanTheFailureAndHoldAnyName) {
  using Condition = CameraCondition::Kind;
  const CameraFailure busy{CameraFailure::Kind::cameraBusy, {}};
  const QString smiles = QStringLiteral("\U0001F600").repeated(2500);
  const std::pair<CameraCondition, QString> cases[] = {
      {{.kind = Condition::noPicture, .seconds = 120}, "Aucune image depuis 2 min"},
      {{.kind = Condition::usedBy, .user = " a\n\x1b[2J\tb "}, "Caméra utilisée par a [2J b"},
      {{.kind = Condition::usedBy, .user = "\u202E\u200B\xff\x01"}, "Caméra utilisée par un autre programme"},
      {{.kind = Condition::usedBy, .user = std::string(10'000, 'x')},
       "Caméra utilisée par " + QString(39, u'x') + u'…'},
      {{.kind = Condition::usedBy, .user = "x" + smiles.toStdString()},
       "Caméra utilisée par x" + smiles.left(38) + u'…'},
  };
  for (const auto& [condition, words] : cases) {
    EXPECT_EQ(cameraWords(busy, condition).words, words);
    EXPECT_EQ(cameraWords(busy, condition).color, &AppColors::textSecondary);
  }
  EXPECT_EQ(cameraWords(busy, {}).words, "Caméra occupée");
  EXPECT_EQ(cameraWords({}, {}).words, "");
  EXPECT_EQ(cameraWords({}, CameraCondition{.isSerious = true}).color, &AppColors::warning);
}

TEST_F(PopoverTest, TheSecondLineSaysTheGreatestTroubleAndWhatCannotBeCoveredIsNotGreen) {
  const QString uncovered = "Ce bureau ne permet pas de couvrir l'écran. Les alertes restent actives.";
  const QString away = "Vous n'êtes pas dans le champ";
  const auto isGreen = [this] {
    const QImage shown = window->grab().toImage();
    for (int y = 0; y < shown.height(); ++y)
      for (int x = 0; x < shown.width(); ++x)
        if (shown.pixelColor(x, y) == colors().success) return true;
    return false;
  };
  const auto limit = [this](const char* words) {
    backend->cannot = words;
    backend->limitationChanged.emit();
  };
  start();
  see(FaceDetections{}, 8500);
  expectSwitch(true, false, "Protection active");
  EXPECT_TRUE(shows(away));
  limit("error_no_overlay");
  EXPECT_TRUE(shows(uncovered) && !isGreen());
  machine.session->user = "meeting";
  machine.session->interrupt(CaptureError::Kind::busy);
  machine.settle();
  EXPECT_TRUE(shows("Caméra occupée")) << "at once";
  machine.advance(4000);
  expectSwitch(true, false, "Caméra indisponible");
  EXPECT_TRUE(shows("Caméra utilisée par meeting"));
  machine.session->cause.reset();
  machine.session->interruptionEnded.emit();
  see(alone, 2000);
  limit("");
  EXPECT_TRUE(isGreen() && !shows(uncovered) && !shows(away));
}

TEST_F(PopoverTest, AChoiceDoesWhatItSaysAndItsRowEndsIt) {
  start();
  const struct {
    QString row, choice, ends, left, leftLater;  // at last after ten minutes
  } cases[] = {
      {"Mettre en pause", "15 minutes", "Reprendre", "15 min", "5 min"},
      {"Mettre en pause", "1 heure", "Reprendre", "1 h 00", "50 min"},
      {"Je ne suis pas seul", "30 minutes", "Je suis seul", "30 min", "20 min"},
      {"Je ne suis pas seul", "1 heure", "Je suis seul", "1 h 00", "50 min"},
      {"Je ne suis pas seul", "Jusqu'au verrouillage", "Je suis seul", "", ""},
  };
  for (const auto& [row, choice, ends, left, leftLater] : cases) {
    SCOPED_TRACE(choice.toStdString());
    press(row);
    press(choice);
    EXPECT_EQ(named(choice), nullptr) << "folded";
    ASSERT_NE(named(ends), nullptr);
    EXPECT_EQ(named(ends)->accessibleDescription(), left);
    const auto pauseEnd = relaxations().pauseEndMs().get();
    EXPECT_EQ(protection()->accessibleDescription(), pauseEnd ? "En pause" : "Protection active");
    EXPECT_TRUE(shows(pauseEnd ? QStringLiteral("Reprend à %1, ou au déverrouillage")
                                     .arg(timeOfDay(*pauseEnd, machine.loop->nowMs()))
                               : QStringLiteral("1 invité")));
    see(alone, 10 * 60'000);
    openPopover();
    EXPECT_EQ(named(ends)->accessibleDescription(), leftLater);
    press(ends);
    EXPECT_EQ(named(ends), nullptr);
    EXPECT_EQ(relaxationWords(relaxations(), 0), "");
  }
  for (const char* words : {"1 invité", "2 invités", "3 invités"}) {
    press("Je ne suis pas seul");
    press("30 minutes");
    EXPECT_TRUE(shows(words));
  }
  EXPECT_EQ(named("Je ne suis pas seul"), nullptr);
  press("Mettre en pause");
  press("Jusqu'à demain 8 h");
  const std::int64_t left = *relaxations().pauseEndMs().get() - machine.loop->nowMs();
  EXPECT_TRUE(left == Relaxations::longestMs || timeOfDay(left, 0) == "8:00") << left;
  EXPECT_EQ(named("Je suis seul"), nullptr) << "a pause sends them away";
}

TEST_F(PopoverTest, WhatIsAllowedForAWhileIsOfferedOnlyWhileProtectionIsOn) {
  const auto expectRows = [this](bool choices, bool nobody) {
    QCoreApplication::processEvents();
    EXPECT_EQ(named("Mettre en pause") != nullptr, choices);
    EXPECT_EQ(named("Je ne suis pas seul") != nullptr, choices);
    EXPECT_EQ(named("Ce n'est personne") != nullptr, nobody);
  };
  expectRows(false, false);
  const int bare = content().height();
  start();
  expectRows(true, false);
  press("Mettre en pause");
  see(watched, 1500);
  expectRows(false, true);
  EXPECT_EQ(named("15 minutes"), nullptr);
  press("Ce n'est personne");
  EXPECT_FALSE(named("Ce n'est personne")->isEnabled()) << "once is enough";
  EXPECT_TRUE(shows("Il alerte encore, et sera ignoré s'il reste immobile 10 s d'ici 30 s"));
  EXPECT_NE(named("1 visage ignoré"), nullptr);
  see(watched, 14'000);
  expectRows(true, false);
  press("1 visage ignoré");
  EXPECT_EQ(named("1 visage ignoré"), nullptr);
  EXPECT_TRUE(relaxations().filter.ignored().get().empty());
  see(alone, 5000);
  see(detectionsOf({faceOf(0.2), faceOf(0.04, 0.6)}, {faceOf(0.2)}), 1500);
  press("Ce n'est personne");
  EXPECT_TRUE(shows("Trop loin pour savoir s'il est immobile"));
  EXPECT_FALSE(named("Ce n'est personne")->isEnabled());
  see(alone, 5000);
  stop();
  expectRows(false, false);
  EXPECT_TRUE(QTest::qWaitFor([&] { return content().height() == bare; }));
}

TEST_F(PopoverTest, ArrowsReachTheChoicesAndEscapeFoldsThem) {
  start();
  press("Mettre en pause");
  named("Mettre en pause")->setFocus();
  key(Qt::Key_Down);
  EXPECT_EQ(window->focusWidget(), named("15 minutes"));
  key(Qt::Key_Escape);
  EXPECT_EQ(named("1 heure"), nullptr);
  EXPECT_EQ(window->focusWidget(), named("Mettre en pause"));
  key(Qt::Key_Space);
  key(Qt::Key_Down);
  key(Qt::Key_Return);
  EXPECT_EQ(window->focusWidget(), named("Reprendre")) << "where the row was";
  key(Qt::Key_Escape);
  EXPECT_TRUE(!window || !window->isVisible()) << "nothing left to fold";
}

TEST_F(PopoverTest, TheFirstThingThatWeakensProtectionIsSaid) {
  start();
  desktop.sharing->shared = true;
  machine.settle();
  relaxations().addGuest(std::nullopt);
  EXPECT_TRUE(shows("Écran partagé : bandes masquées"));
  // Chosen in the preferences, which may be open beside it.
  for (const auto& [wanted, words] : {std::pair{WhenShared::changeNothing, "1 invité"},
                                      {WhenShared::hideStripes, "Écran partagé : bandes masquées"},
                                      {WhenShared::pause, "Écran partagé : en pause"}}) {
    changeOptions([&](ProtectionOptions& next) { next.whenShared = wanted; });
    EXPECT_TRUE(shows(words)) << words;
  }
  relaxations().pause(60'000);
  EXPECT_TRUE(relaxationWords(relaxations(), 0).startsWith("Reprend à "));
}

TEST_F(PopoverTest, WhatACommandDidIsSaidUntilItWasSeen) {
  start();
  const QString words = QStringLiteral("par une commande");
  content().showPage(Page::stats);
  remote->welcome(1, std::nullopt);
  window->close();
  openPopover();
  EXPECT_TRUE(shows(words)) << "another page does not show it";
  EXPECT_TRUE(shows("1 invité"));
  window->close();
  openPopover();
  EXPECT_FALSE(shows(words));
  desktop.notifications->answered.emit("sentrel.alert", "pause");
  EXPECT_TRUE(shows("par la notification")) << "while it is open, too";
  remote->switchOff();
  EXPECT_TRUE(shows(words));
}

TEST_F(PopoverTest, CountersAreResetAfterAQuestionThatGoesWithItsPage) {
  stats->incrementAlerts();
  content().showPage(Page::stats);
  press("Remettre à zéro…");
  // The focus stays within the question, and begins where nothing is lost.
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(window->focusWidget(), named(i % 2 == 0 ? "Annuler" : "Remettre à zéro"));
    key(Qt::Key_Tab);
  }
  key(Qt::Key_Escape);
  EXPECT_FALSE(content().asks());
  press("Remettre à zéro…");
  const QPointer<QWidget> question = named("Remettre à zéro")->parentWidget();
  content().showPage(Page::about);  // as other programs can ask for it
  EXPECT_FALSE(content().asks());
  EXPECT_EQ(window->focusWidget(), named("Fermer"));
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_FALSE(question) << "nobody can answer it any more";
  EXPECT_EQ(stats->stats.get().alertCount, 1);
  content().showPage(Page::stats);
  press("Remettre à zéro…");
  press("Remettre à zéro");
  EXPECT_EQ(stats->stats.get(), FilterStats{});
}

TEST_F(PopoverTest, AboutLeadsToAReportAndALinkThatAreCopied) {
  const auto copied = [] { return QGuiApplication::clipboard()->text(); };
  content().showPage(Page::about);
  press("Diagnostic…");
  EXPECT_EQ(named("Copier"), nullptr) << "the answers are on their way";
  reportAsked(report);
  QCoreApplication::processEvents();
  EXPECT_TRUE(shows("→ Branchez-la"));
  press("Copier");
  EXPECT_EQ(copied(),
            "1 problème trouvé\n\nMachine\n  Écran : 1280x720\n! Caméra : aucune\n    → Branchez-la\n");
  EXPECT_NE(named("Copié"), nullptr);
  press("Retour");
  ASSERT_EQ(content().page(), Page::about);
  reportAsked(report);  // nobody waits any more

  press("Nos autres projets");
  linkFailed();
  EXPECT_TRUE(shows("https://example.org"));
  press("Copier l'adresse");
  EXPECT_EQ(copied(), "https://example.org");
  linkFailed();
  content().showPage(Page::stats);
  EXPECT_FALSE(content().asks());
  close();
  linkFailed();  // too late
}

/// The statistics of somebody who was asked about the journal.
struct JournalCardsTest : PopoverTest {
  void openStatistics(JournalWish wish) {
    changeOptions([&](ProtectionOptions& next) { next.journal = wish; });
    openPopover();
    content().showPage(Page::stats);
    QCoreApplication::processEvents();
  }
  [[nodiscard]] JournalWish wish() const { return settings->options.get().journal; }
  void keep(int today, int yesterday) const {
    const QDateTime noon(QDate::currentDate(), QTime(12, 0));
    for (int i = 0; i < today + yesterday; ++i)
      desktop.journal->add({.beganMs = noon.addDays(i < today ? 0 : -1).toMSecsSinceEpoch()});
  }
  /// The words of the bar of the day that is so many days ago.
  [[nodiscard]] static QString day(int ago, const char* alerts) {
    return QLocale(QLocale::French).toString(QDate::currentDate().addDays(-ago), QStringLiteral("ddd d")) +
           QStringLiteral("\u00A0: ") + QString::fromUtf8(alerts);
  }
};

TEST_F(JournalCardsTest, AJournalIsOfferedUntilThePersonHasAnswered) {
  for (const auto& [answer, chosen] :
       {std::pair{"Non merci", JournalWish::refused}, {"Tenir un journal", JournalWish::kept}}) {
    openStatistics(JournalWish::unasked);
    press(answer);
    EXPECT_EQ(wish(), chosen);
    openStatistics(chosen);
    EXPECT_EQ(named(answer), nullptr);
    EXPECT_EQ(named("Exporter…") != nullptr, chosen == JournalWish::kept);
  }
}

TEST_F(JournalCardsTest, BarsAreReadByKeyAndByAssistiveTechnology) {
  keep(3, 1);
  openStatistics(JournalWish::kept);
  auto* days = named<QWidget>("14 derniers jours\u00A0: 4 alertes");
  ASSERT_NE(days, nullptr);
  const QAccessibleInterface* list = QAccessible::queryAccessibleInterface(days);
  EXPECT_EQ(list->role(), QAccessible::List);
  ASSERT_EQ(list->childCount(), 14);
  EXPECT_EQ(list->child(13)->role(), QAccessible::ListItem);
  for (const auto& [ago, alerts] : {std::pair{0, "3 alertes"}, {1, "1 alerte"}, {13, "aucune alerte"}})
    EXPECT_EQ(list->child(13 - ago)->text(QAccessible::Name), day(ago, alerts));
  EXPECT_NE(named<QWidget>("de 12 h à 13 h\u00A0: 4 alertes"), nullptr);

  named("Retour")->setFocus();
  key(Qt::Key_Tab);
  EXPECT_EQ(window->focusWidget()->accessibleName(), day(13, "aucune alerte"));
  const std::pair<Qt::Key, int> steps[] = {{Qt::Key_Left, 13}, {Qt::Key_End, 0},   {Qt::Key_Right, 0},
                                           {Qt::Key_Left, 1},  {Qt::Key_Home, 13}, {Qt::Key_Right, 12}};
  for (const auto& [pressed, ago] : steps) {
    key(pressed);
    EXPECT_TRUE(window->focusWidget()->accessibleName().startsWith(day(ago, ""))) << ago;
  }
  key(Qt::Key_Tab);
  EXPECT_TRUE(window->focusWidget()->accessibleName().startsWith("de 0 h à 1 h")) << "one stop for a chart";
  key(Qt::Key_Backtab);
  EXPECT_TRUE(window->focusWidget()->accessibleName().startsWith(day(12, ""))) << "where it was";
}

TEST_F(JournalCardsTest, WhatIsKeptGoesOnlyAfterAQuestion) {
  const auto records = [this] { return desktop.journal->records.size(); };
  keep(2, 0);
  openStatistics(JournalWish::kept);
  press("Effacer");
  EXPECT_TRUE(content().asks());
  key(Qt::Key_Escape);
  EXPECT_EQ(records(), 2U);
  press("Effacer");
  key(Qt::Key_Tab);
  key(Qt::Key_Space);
  EXPECT_EQ(records(), 0U);
  EXPECT_NE(named<QWidget>("14 derniers jours\u00A0: Aucune alerte"), nullptr);
  EXPECT_EQ(wish(), JournalWish::kept) << "it goes on";
  keep(1, 0);
  press("Remettre à zéro…");
  press("Remettre à zéro");
  EXPECT_EQ(records(), 0U);

  keep(1, 0);
  open<PreferencesView>(preferencesParts());
  auto* toggle = named<ToggleSwitch>("Journal des alertes");
  EXPECT_TRUE(toggle->isChecked());
  click(toggle);
  press("Annuler");
  EXPECT_TRUE(toggle->isChecked());
  EXPECT_EQ(records(), 1U);
  click(toggle);
  press("Arrêter et effacer");
  EXPECT_FALSE(toggle->isChecked());
  EXPECT_EQ(records(), 0U);
  EXPECT_EQ(wish(), JournalWish::refused);
  click(toggle);
  EXPECT_TRUE(toggle->isChecked()) << "nothing to ask about";
  EXPECT_EQ(wish(), JournalWish::kept);
}

TEST_F(JournalCardsTest, AnExportSaysHowItEnded) {
  keep(1, 0);
  openStatistics(JournalWish::kept);
  for (const bool canExport : {true, false}) {
    desktop.journal->canExport = canExport;
    press("Exporter…");
    EXPECT_TRUE(content().asks()) << "the popover stays";
    auto* dialog = content().findChild<QFileDialog*>();
    ASSERT_NE(dialog, nullptr);
    static_cast<QDialog*>(dialog)->accept();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_THAT(desktop.journal->exportedTo, testing::EndsWith("/alertes-sentrel.csv"));
    EXPECT_TRUE(shows(canExport ? "Exporté\u00A0: alertes-sentrel.csv"
                                : "alertes-sentrel.csv n'a pas pu être écrit."));
    EXPECT_FALSE(content().asks());
  }
  desktop.journal->trouble = "journal_damaged";
  EXPECT_TRUE(shows("Journal endommagé\u00A0: les lignes lisibles ont été gardées."));
}

TEST(AlertCounts, AreOfDaysAndHoursOfTheWall) {
  const QDateTime now(QDate(2026, 11, 22), QTime(0, 30));
  const auto began = [](int day, int hour, int minute) {
    return AlertRecord{.beganMs = QDateTime(QDate(2026, 11, day), QTime(hour, minute)).toMSecsSinceEpoch()};
  };
  const std::vector records{began(22, 0, 10), began(21, 23, 59), began(21, 0, 0), began(9, 0, 0),
                            began(8, 23, 59), began(23, 8, 0)};  // too long ago, and of tomorrow
  EXPECT_THAT(alertsByDay(records, now), testing::ElementsAre(1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 1));
  const auto hours = alertsByHour(records);
  EXPECT_EQ(hours[0], 3);
  EXPECT_EQ(hours[23], 2);
  EXPECT_EQ(hours[8], 1);
}

TEST_F(PopoverTest, TheClaimsAreTriedWhenThePageOpens) {
  desktop.proof->facts.cameraOpenMs.reset();  // since when is told by the clock
  desktop.proof->facts.framesInMemory = 0;
  content().showPage(Page::about);
  EXPECT_EQ(desktop.proof->asked, 0);
  press("Vérifier par vous-même…");
  EXPECT_EQ(content().page(), Page::privacy);
  EXPECT_EQ(desktop.proof->asked, 1);
  const QString claim = "Une connexion au réseau est refusée";
  const QString answer = "socket(AF_INET, SOCK_STREAM) = EPERM\nsocket(AF_INET6, SOCK_STREAM) = EPERM";
  EXPECT_EQ(named<QWidget>(answer), nullptr);
  press(claim);
  EXPECT_NE(named<QWidget>(answer), nullptr);
  EXPECT_EQ(named<QWidget>("Vérifié\u00A0: " + claim + ", EPERM")->accessibleDescription(), "Déplié");
  press("Gardé, pour vous seul\u00A0: defaults.json");
  EXPECT_NE(named<QWidget>("{\n    \"filter_strength\": 3\n}\n…"), nullptr) << "its beginning";
  press("Copier");
  const QString copied = QGuiApplication::clipboard()->text();
  EXPECT_EQ(copied, proofReport(desktop.proof->facts).words);
  EXPECT_TRUE(copied.contains("/home/someone/.config/sentrel/defaults.json"));
  EXPECT_FALSE(copied.contains("filter_strength")) << "no content";
  key(Qt::Key_Escape);
  EXPECT_EQ(content().page(), Page::about);
}

TEST_F(PopoverTest, AClaimThatDoesNotHoldIsRedAndNoOther) {
  const PrivacyFacts good = desktop.proof->facts;
  EXPECT_TRUE(proofReport(good).holds);
  const std::pair<QString, void (*)(PrivacyFacts&)> cases[] = {
      {"Ce noyau ne filtre pas les appels de ce programme", [](auto& f) { f.filterMode = 0; }},
      {"Une connexion au réseau n'est pas refusée", [](auto& f) { f.sockets[1].isRefused = false; }},
      {"Une connexion au réseau n'est pas refusée", [](auto& f) { f.sockets.clear(); }},
      {"Lancer un autre programme n'est pas refusé", [](auto& f) { f.program.isRefused = false; }},
      {"Un plantage pourrait écrire la mémoire", [](auto& f) { f.coreDumps = "00000033"; }},
      {"Un plantage pourrait écrire la mémoire", [](auto& f) { f.coreDumps.clear(); }},
      {"Un fichier inattendu est ouvert en écriture", [](auto& f) { f.openForWriting[0].isKnown = false; }},
      {"Images de la caméra restées en mémoire", [](auto& f) { f.cameraOpenMs.reset(); }},
      {"Gardé, et lisible par d'autres\u00A0: defaults.json",
       [](auto& f) { f.keptFiles[0].isPrivate = false; }},
  };
  for (const auto& [claim, spoil] : cases) {
    PrivacyFacts facts = good;
    spoil(facts);
    std::vector<QString> wrong;
    for (const ProofLine& line : proofLines(facts))
      if (!line.holds) wrong.push_back(line.claim);
    EXPECT_EQ(wrong, std::vector{claim});
    EXPECT_FALSE(proofReport(facts).holds);
    EXPECT_TRUE(proofReport(facts).words.contains("✗ " + claim));
  }
  PrivacyFacts undumpable = good;
  undumpable.coreDumps.clear();
  undumpable.isDumpable = false;
  EXPECT_TRUE(proofReport(undumpable).holds) << "the other way to keep memory out";
}

TEST(FormatTime, DropsSecondsAndKnowsNoDays) {
  EXPECT_EQ(formatTime(3599), "59m");
  EXPECT_EQ(formatTime(90000), "25h 0m");
}

TEST(PlacePopover, StaysByItsIconAndInsideTheWorkArea) {
  const std::pair<QRect, QPoint> cases[] = {
      {{1700, 0, 24, 30}, {1404, 38}},      // a panel at the top
      {{1900, 0, 20, 30}, {1592, 38}},      // at its end
      {{1700, 1056, 24, 24}, {1404, 768}},  // a panel at the bottom
      {{10, 0, 24, 30}, {8, 38}},           // at the left
  };
  for (const auto& [anchor, corner] : cases)
    EXPECT_EQ(placePopover(anchor, {0, 30, 1920, 1050}, {320, 280}), QRect(corner, QSize(320, 280)));
}

}  // namespace
}  // namespace sentrel::test
