// SPDX-License-Identifier: Apache-2.0
#include "views/preferences_view.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <algorithm>
#include <cmath>
#include <utility>

#include "views/calibration_view.h"
#include "views/controls/buttons.h"
#include "views/controls/labels.h"
#include "views/controls/painting.h"
#include "views/journal_cards.h"
#include "views/popover.h"
#include "views/popover_rows.h"
#include "views/theme.h"

namespace sentrel {

// What the page is made of.

/// A label above a smaller hint, with a control beside them; below them where little width is left for words.
/// A click anywhere in the row turns its switch. The hint becomes the control's description for assistive
/// technology; that of its focus proxy, where it is made of several.
class PrefRow final : public QWidget {
 public:
  /// Takes the control; `label` may be empty.
  PrefRow(const QString& label, const QString& hint, QWidget* rowControl)
      : row_(lineIn(this, {side, above, side, above}, besideGap)),
        hint_(new TextLabel(TextRole::subheadline, {}, &AppColors::textSecondary)),
        control(rowControl) {
    auto* words = columnIn(nullptr, {}, 2, {stretch});
    if (!label.isEmpty()) words->addWidget(new TextLabel(TextRole::bodyLabel, label));
    addItems(*words, {hint_, stretch});
    addItems(*row_, {{words, 1}, {control, 0, Qt::AlignVCenter}});
    setHint(hint);
    connect(&Theme::shared(), &Theme::changed, this, [this] { arrange(); });
  }

  void setHint(const QString& hint) {
    hint_->setWords(hint);
    QWidget* const used = control->focusProxy();
    (used != nullptr ? used : control)->setAccessibleDescription(hint);
  }

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }

 protected:
  void mousePressEvent(QMouseEvent* event) override { pressed_ = event->button() == Qt::LeftButton; }

  void mouseReleaseEvent(QMouseEvent* event) override {
    auto* toggle = dynamic_cast<ToggleSwitch*>(control);
    if (pressed_ && toggle != nullptr && rect().contains(event->position().toPoint())) toggle->click();
    pressed_ = false;
  }

  void resizeEvent(QResizeEvent* event) override {
    arrange();
    QWidget::resizeEvent(event);
  }

 private:
  static constexpr int side = 15;  // with the card's edge 16
  static constexpr int above = 14;
  static constexpr int besideGap = 20;
  static constexpr int leastForWords = 180;

  /// Puts the control beside the words or below them.
  void arrange() {
    const int available = width() - 2 * side - besideGap - control->sizeHint().width();
    const bool beside = available >= leastForWords * Theme::shared().textScale();
    row_->setDirection(beside ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    row_->setSpacing(beside ? besideGap : besideGap / 2);
    row_->setAlignment(control, beside ? Qt::AlignVCenter : Qt::AlignLeft);
  }

  QBoxLayout* row_;
  TextLabel* hint_;
  QWidget* control;
  bool pressed_ = false;
};

/// A rounded surface that holds rows, with hairlines between them.
class Card final : public QWidget {
 public:
  PrefRow* addRow(const QString& label, const QString& hint, QWidget* control) {
    auto* row = new PrefRow(label, hint, control);
    add(row);
    return row;
  }
  void add(QWidget* row) {
    if (rows_->count() > 0) rows_->addLayout(insetDivider(16, 0));
    rows_->addWidget(row);
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    paintBox(painter, QRectF(rect()), 12, colors().surface, colors().border);
  }

 private:
  QBoxLayout* rows_ = columnIn(this, {1, 1, 1, 1});
};

namespace {

/// A symbol followed by the title of a section.
class SectionHeader final : public QWidget {
 public:
  SectionHeader(const QString& icon, const QString& title) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    auto* words = new TextLabel(TextRole::headline, title);
    words->setAlignment(Qt::AlignVCenter);
    lineIn(this, {4, 0, 0, 0}, 8, {symbolView(icon, 18, &AppColors::primary), {words, 1}});
  }

  [[nodiscard]] QSize sizeHint() const override { return {0, Theme::shared().grown(24)}; }
};

constexpr int ignoredTickMs = 15'000;

constexpr QSize windowSize(560, 440);
constexpr double addedForText = 0.25;  // of the size, at 200 %
constexpr int sides = 24;
constexpr int ends = 20;
constexpr int betweenSections = 20;
constexpr int headerToCard = 8;
constexpr int previewHeight = 160;
constexpr int livePreviewHeight = 288;  // of a wide picture as wide as the page

/// A section below the one before.
Card& addSection(QBoxLayout& column, const QString& icon, const QString& title) {
  auto* card = new Card;
  addItems(column,
           {betweenSections, divider(), betweenSections, new SectionHeader(icon, title), headerToCard, card});
  return *card;
}

/// Locked, asleep or switched away: the window may still be there, but nobody looks at it.
bool isAway(const FilterState& state) {
  return state.is(FilterState::Kind::autoPaused) && state.reason().kind == PauseReason::Kind::screenOff;
}

QString asWhole(double number) {
  return QString::number(std::llround(number));
}

}  // namespace

PreferencesView::PreferencesView(Parts parts)
    : FixedWindow(qtTrId("Préférences Sentrel"), windowSize, addedForText),
      parts_(std::move(parts)),
      page_(new ScrollPage) {
  // It is declared before what it comes from.
  draft = parts_.settingsRepo->settings;  // NOLINT(cppcoreguidelines-prefer-member-initializer)
  draft.launchAtLogin = parts_.loginItem->isEnabled();
  options_ = parts_.settingsRepo->options;  // NOLINT(cppcoreguidelines-prefer-member-initializer)

  auto* content = new QWidget;
  auto* column = columnIn(content, {sides, ends, sides, ends});
  buildCamera(*column);
  buildDetection(addSection(*column, QStringLiteral("eye.fill"), qtTrId("Détection")));
  buildBehaviour(addSection(*column, QStringLiteral("slider.horizontal.3"), qtTrId("Comportement")));
  buildReactions(
      addSection(*column, QStringLiteral("bell.and.waves.left.and.right.fill"), qtTrId("Réactions")));
  buildExceptions(addSection(*column, QStringLiteral("minus.shield.fill"), qtTrId("Exceptions")));
  buildMatrix(
      addSection(*column, QStringLiteral("dot.squareshape.split.2x2"), qtTrId("Matrice de confidentialité")));
  buildAdvanced(addSection(*column, QStringLiteral("wrench.and.screwdriver"), qtTrId("Avancé")));
  column->addStretch(1);
  page_->setPage(content);
  columnIn(this, {}, 0, {page_});

  listedRegistration_ = parts_.camera->session()->observeDevices();
  discoverCameras();
  showDraft();
  devicesRegistration_ = parts_.camera->session()->devicesChanged.connect([this] { discoverCameras(); });
  // Saved here, by a calibration or by another window.
  settingsRegistration_ = parts_.settingsRepo->settings.onChange([this](const FilterSettings& settings) {
    draft = settings;
    showDraft();
  });
  optionsRegistration_ = parts_.settingsRepo->options.onChange([this](const ProtectionOptions& options) {
    options_ = options;
    showDraft();
  });
  connect(&ignoredTicks_, &QTimer::timeout, this, [this] { showIgnoredTimes(); });
  ignoredRegistration_ = parts_.service->relaxations().filter.ignored().subscribe(
      [this](const auto& /*places*/) { showIgnored(); });
  stateRegistration_ = parts_.service->fsmState().subscribe(
      [this](const FilterState& state) { preview_->setResting(isMinimized() || isAway(state)); });
  failureRegistration_ = parts_.failure->onChange([this](const auto&) { showCameraWords(); });
  conditionRegistration_ =
      parts_.service->cameraCondition().subscribe([this](const auto&) { showCameraWords(); });
}

// The sections.

void PreferencesView::buildCamera(QBoxLayout& column) {
  const QString label = qtTrId("Montrer ce que Sentrel voit");
  auto* live = new ToggleSwitch(label);
  connect(live, &ToggleSwitch::toggled, this, [this](bool on) {
    preview_->showFindings(on);
    preview_->setFixedHeight(on ? livePreviewHeight : previewHeight);
  });
  auto* shown = new Card;
  shown->addRow(label, qtTrId("Les visages et les délais, tant que la protection est active"), live);
  cameraWords_ = new TextLabel(TextRole::caption);
  cameraWords_->setContentsMargins(4, 0, 4, 8);
  preview_ = new CameraPreviewView(parts_.camera, *parts_.service, parts_.mainLoop, parts_.clock);
  preview_->setFixedHeight(previewHeight);
  cameraPicker_ = new MenuPicker(qtTrId("Caméra"));
  connect(cameraPicker_, &MenuPicker::currentIndexChanged, this, &PreferencesView::chooseCamera);
  auto* card = new Card;
  card->addRow({}, qtTrId("Sélectionnez la caméra utilisée pour la détection"), cameraPicker_);
  addItems(column, {new SectionHeader(QStringLiteral("camera.fill"), qtTrId("Caméra")), headerToCard, shown,
                    10, cameraWords_, preview_, 10, card});
}

void PreferencesView::showCameraWords() {
  const auto [words, color] = cameraWords(*parts_.failure, parts_.service->cameraCondition());
  cameraWords_->setWords(words);
  cameraWords_->setColor(color);
  cameraWords_->setVisible(!words.isEmpty());
}

void PreferencesView::buildDetection(Card& card) {
  addSlider(card, qtTrId("Force du filtre"), qtTrId("Opacité de l'overlay de confidentialité"), {1, 5, 1},
            asWhole, &FilterSettings::filterStrength);
  addSlider(card, qtTrId("Sensibilité"), qtTrId("Réactivité aux mouvements de tête"), {1, 5, 1}, asWhole,
            &FilterSettings::sensitivity);
  addChoices(card, qtTrId("Délai d'inattention"),
             qtTrId("Temps avant de considérer que vous ne regardez plus"),
             {{QStringLiteral("0,5 s"), 500, 50},
              {QStringLiteral("1 s"), 1000, 50},
              {QStringLiteral("1,5 s"), 1500, 50},
              {QStringLiteral("2 s"), 2000, 50},
              {QStringLiteral("3 s"), 3000, 50}},
             &FilterSettings::inattentionDelayMs);
  addSwitch(card, qtTrId("Mode lunettes"), qtTrId("Réduit les faux positifs si vous portez des lunettes"),
            &FilterSettings::glassesCompat);
}

void PreferencesView::buildBehaviour(Card& card) {
  addLaunchAtLogin(card);
  PrefRow* shortcut =
      addSwitch(card, qtTrId("Raccourci global ⌘⇧C"), {}, &FilterSettings::globalShortcutEnabled);
  const auto tellShortcut = [this, shortcut] {
    shortcut->setHint(parts_.keyMonitor->canObserve(Shortcut::toggle)
                          ? qtTrId("Activer / désactiver le filtre sans ouvrir le menu")
                          : qtTrId("shortcut_unavailable_hint"));
  };
  keysRegistration_ = parts_.keyMonitor->grantChanged.connect(tellShortcut);
  tellShortcut();
  addCoverShortcut(card);
  addSwitch(card, qtTrId("Couvrir tous les écrans"), qtTrId("Étend l'overlay à chaque moniteur connecté"),
            &FilterSettings::coverAllScreens);
  addSwitch(card, qtTrId("Vibration lors d'une alerte"),
            qtTrId("Retour haptique quand un regard indiscret est détecté"), &FilterSettings::hapticOnAlert);
  addDesktop(card);
}

void PreferencesView::buildReactions(Card& card) {
  addMenu<Reaction>(card, qtTrId("Quand quelqu'un regarde"), qtTrId("Ce qui se passe lors d'une alerte"),
                    {{qtTrId("Assombrir et prévenir"), Reaction::darkenAndNotify},
                     {qtTrId("Prévenir seulement"), Reaction::notifyOnly},
                     {qtTrId("Assombrir seulement"), Reaction::darkenOnly}},
                    &ProtectionOptions::reaction);
  addMenu<WhenShared>(card, qtTrId("Pendant un partage d'écran"),
                      qtTrId("Les programmes X11 qui capturent l'écran eux-mêmes ne peuvent pas être "
                             "remarqués"),
                      {{qtTrId("Masquer les bandes"), WhenShared::hideStripes},
                       {qtTrId("Ne rien changer"), WhenShared::changeNothing},
                       {qtTrId("Mettre en pause"), WhenShared::pause}},
                      &ProtectionOptions::whenShared);
  addMenu<std::int64_t>(
      card, qtTrId("Surveiller jusqu'à"), qtTrId("Un visage plus éloigné n'alerte pas"),
      {{qtTrId("Sans limite"), 0}, {qtTrId("3,5 m"), 350}, {qtTrId("2,5 m"), 250}, {qtTrId("1,5 m"), 150}},
      &ProtectionOptions::watchUpToCm);
  addAlertAfter(card);
  addOption(card, qtTrId("Seulement si l'on regarde l'écran"),
            qtTrId("Un visage tourné de 45° ou plus n'alerte pas"), &ProtectionOptions::onlyFacing);
  addHideOthers(card);
  addJournal(card);
}

void PreferencesView::buildExceptions(Card& card) {
  noneIgnored_ =
      new TextLabel(TextRole::subheadline, qtTrId("Aucun visage ignoré"), &AppColors::textSecondary);
  noneIgnored_->setContentsMargins(15, 14, 15, 14);
  auto* rows = new QWidget;
  auto* column = columnIn(rows, {}, 0, {noneIgnored_});
  for (IgnoredRow& face : ignoredRows_) column->addWidget(makeIgnored(face, &face == ignoredRows_.data()));
  card.add(rows);
}

void PreferencesView::buildMatrix(Card& card) {
  addSwitch(card, qtTrId("Activer la matrice"),
            qtTrId("Affiche un motif de bandes qui rend l'écran illisible de côté"),
            &FilterSettings::privacyMatrixEnabled);
  PrefRow* coefficient = addSlider(
      card, qtTrId("Coefficient de distance"),
      qtTrId("Amplifie la distance estimée pour une protection plus large"), {0.5, 4, 0.5},
      [](double number) { return QStringLiteral("×%1").arg(number, 0, 'f', 1); },
      &FilterSettings::privacyMatrixCoefficient);
  PrefRow* opacity = addSlider(
      card, qtTrId("Opacité des bandes"),
      qtTrId("Plus élevée = moins lisible de côté mais plus visible de face"), {0.3, 1, 0.05, 100},
      [](double number) { return QStringLiteral("%1%").arg(std::llround(number * 100)); },
      &FilterSettings::matrixStripeAlpha);
  refreshers_.emplace_back([this, coefficient, opacity] {
    // They stay in their places, so that the page does not jump.
    coefficient->setEnabled(draft.privacyMatrixEnabled);
    opacity->setEnabled(draft.privacyMatrixEnabled);
  });
}

void PreferencesView::buildAdvanced(Card& card) {
  addChoices(card, qtTrId("Fréquence de capture"),
             qtTrId("Fréquence d'analyse de la caméra — réduire pour économiser la batterie"),
             {{QStringLiteral("5 fps"), 5, 60},
              {QStringLiteral("10 fps"), 10, 60},
              {QStringLiteral("15 fps"), 15, 60}},
             &FilterSettings::captureFps);
  addChoices(card, qtTrId("Pause batterie"),
             qtTrId("Désactive automatiquement le filtre en dessous de ce seuil"),
             {{qtTrId("Désactivé"), 0, 84},
              {QStringLiteral("5 %"), 5, 48},
              {QStringLiteral("10 %"), 10, 48},
              {QStringLiteral("15 %"), 15, 48}},
             &FilterSettings::batteryThresholdPercent);
  addCalibration(card);
}

// Rows.

PrefRow* PreferencesView::addSwitch(Card& card, const QString& label, const QString& hint,
                                    bool FilterSettings::*field) {
  auto* toggle = new ToggleSwitch(label);
  connect(toggle, &ToggleSwitch::toggled, this, [this, field](bool on) {
    if (showing_) return;
    draft.*field = on;
    parts_.settingsRepo->save(draft);
  });
  refreshers_.emplace_back([this, toggle, field] { toggle->setChecked(draft.*field); });
  return card.addRow(label, hint, toggle);
}

template <class Number>
PrefRow* PreferencesView::addSlider(Card& card, const QString& label, const QString& hint,
                                    ValueSlider::Range range, std::function<QString(double)> words,
                                    Number FilterSettings::*field) {
  auto* slider = new ValueSlider(label, range, std::move(words));
  slider->onNumber = [this, field](double number) {
    draft.*field = static_cast<Number>(number);  // whole where the steps are
    parts_.settingsRepo->save(draft);
  };
  refreshers_.emplace_back([this, slider, field] { slider->setNumber(static_cast<double>(draft.*field)); });
  return card.addRow(label, hint, slider);
}

void PreferencesView::addChoices(Card& card, const QString& label, const QString& hint,
                                 const std::vector<SegmentedPicker::Choice>& choices,
                                 std::int64_t FilterSettings::*field) {
  auto* picker = new SegmentedPicker(label, choices);
  picker->onValue = [this, field](std::int64_t value) {
    draft.*field = value;
    parts_.settingsRepo->save(draft);
  };
  refreshers_.emplace_back([this, picker, field] { picker->setValue(draft.*field); });
  card.addRow(label, hint, picker);
}

template <class Value>
void PreferencesView::addMenu(Card& card, const QString& label, const QString& hint,
                              const std::vector<std::pair<QString, Value>>& choices,
                              Value ProtectionOptions::*field) {
  auto* picker = new MenuPicker(label);
  for (const auto& [words, value] : choices) picker->addItem(words, static_cast<qlonglong>(value));
  connect(picker, &MenuPicker::currentIndexChanged, this, [this, picker, field](int index) {
    if (showing_ || index < 0) return;
    options_.*field = static_cast<Value>(picker->itemData(index).toLongLong());
    parts_.settingsRepo->save(options_);
  });
  refreshers_.emplace_back([this, picker, field] {
    picker->setCurrentIndex(picker->findData(static_cast<qlonglong>(options_.*field)));
  });
  card.addRow(label, hint, picker);
}

void PreferencesView::addAlertAfter(Card& card) {
  const QString label = qtTrId("Alerter après");
  auto* picker = new SegmentedPicker(label, {{QStringLiteral("0,5 s"), 500, 50},
                                             {QStringLiteral("1 s"), 1000, 50},
                                             {QStringLiteral("2 s"), 2000, 50}});
  picker->onValue = [this](std::int64_t value) {
    options_.alertAfterMs = value;
    parts_.settingsRepo->save(options_);
  };
  refreshers_.emplace_back([this, picker] { picker->setValue(options_.alertAfterMs); });
  card.addRow(label, qtTrId("Temps pendant lequel quelqu'un doit être là"), picker);
}

PrefRow* PreferencesView::addOption(Card& card, const QString& label, const QString& hint,
                                    bool ProtectionOptions::*field) {
  auto* toggle = new ToggleSwitch(label);
  connect(toggle, &ToggleSwitch::toggled, this, [this, field](bool on) {
    if (showing_) return;
    options_.*field = on;
    parts_.settingsRepo->save(options_);
  });
  refreshers_.emplace_back([this, toggle, field] { toggle->setChecked(options_.*field); });
  return card.addRow(label, hint, toggle);
}

/// It stays as it was chosen where the desktop cannot do it: the person may use another one, too.
void PreferencesView::addHideOthers(Card& card) {
  PrefRow* row = addOption(card, qtTrId("Masquer les autres notifications pendant une alerte"), {},
                           &ProtectionOptions::hideOtherNotifications);
  const auto tell = [row](bool can) {
    row->setEnabled(can);
    row->setHint(can ? qtTrId("Leur contenu n'apparaît pas tant que quelqu'un regarde")
                     : qtTrId("Ce bureau ne permet pas de masquer celles des autres programmes"));
  };
  hidingRegistration_ = parts_.notifications->canHideOthers().subscribe(tell);
}

/// A portal tells whether the keys can be observed only once they are wanted.
void PreferencesView::addCoverShortcut(Card& card) {
  const QString label = qtTrId("Raccourci global ⌘⇧V");
  auto* toggle = new ToggleSwitch(label);
  auto* row = card.addRow(label, {}, toggle);
  const auto isWanted = [this] { return parts_.settingsRepo->options.get().coverShortcutEnabled; };
  const auto tell = [this, row, isWanted] {
    const bool inVain = isWanted() && !parts_.keyMonitor->canObserve(Shortcut::cover);
    row->setHint(inVain ? qtTrId("shortcut_unavailable_hint") : qtTrId("shortcut_cover_hint"));
  };
  connect(toggle, &ToggleSwitch::toggled, this, [this, tell](bool on) {
    if (showing_) return;
    ProtectionOptions next = parts_.settingsRepo->options;
    next.coverShortcutEnabled = on;
    parts_.settingsRepo->save(next);
    tell();
  });
  refreshers_.emplace_back([toggle, isWanted] { toggle->setChecked(isWanted()); });
  coverKeysRegistration_ = parts_.keyMonitor->grantChanged.connect(tell);
  tell();
}

/// Its end erases what was kept, and is asked about first.
void PreferencesView::addJournal(Card& card) {
  const QString label = qtTrId("Journal des alertes");
  auto* toggle = new ToggleSwitch(label, ToggleSwitch::Click::asks);
  connect(toggle, &ToggleSwitch::clicked, this, [this] {
    if (options_.journal == JournalWish::kept) {
      askToEndJournal(*this, parts_.settingsRepo, parts_.journal)->setCornerRadius(0);
    } else {
      options_.journal = JournalWish::kept;
      parts_.settingsRepo->save(options_);
    }
  });
  refreshers_.emplace_back([this, toggle] { toggle->setChecked(options_.journal == JournalWish::kept); });
  card.addRow(label, qtTrId("journal_hint"), toggle);
}

/// What this desktop lets the program do; nothing here can be changed.
void PreferencesView::addDesktop(Card& card) {
  const auto line = [] { return new TextLabel(TextRole::subheadline, {}, &AppColors::textSecondary); };
  auto* cover = line();
  auto* shortcut = line();
  auto* icon = line();
  auto* row = new QWidget;
  columnIn(row, {15, 14, 15, 14}, 2,
           {new TextLabel(TextRole::bodyLabel, qtTrId("Ce bureau")), cover, shortcut, icon});
  card.add(row);
  const auto tell = [this, cover, shortcut, icon] {
    const auto grant = parts_.keyMonitor->grant(Shortcut::toggle);
    cover->setWords(coverWords(CoverFacts::of(*parts_.overlayBackend), draft.coverAllScreens));
    shortcut->setWords(qtTrId("Raccourci : %1").arg(shortcutWords(grant, qtTrId("⌘⇧C"))));
    icon->setWords(qtTrId("Icône : %1").arg(trayWords(parts_.tray())));
  };
  refreshers_.emplace_back(tell);
  desktopRegistrations_ = {parts_.overlayBackend->screensChanged.connect(tell),
                           parts_.overlayBackend->limitationChanged.connect(tell),
                           parts_.keyMonitor->grantChanged.connect(tell)};
}

/// Its switch shows what the desktop says, also when registering has failed; its words say that it has.
void PreferencesView::addLaunchAtLogin(Card& card) {
  const QString label = qtTrId("Lancer au démarrage");
  const QString hint = qtTrId("Sentrel se lance automatiquement à l'ouverture de session");
  auto* toggle = new ToggleSwitch(label);
  auto* row = card.addRow(label, hint, toggle);
  connect(toggle, &ToggleSwitch::toggled, this, [this, row, hint](bool on) {
    if (showing_) return;
    parts_.settingsRepo->setLaunchAtLogin(on);
    draft.launchAtLogin = parts_.loginItem->isEnabled();
    row->setHint(draft.launchAtLogin == on ? hint : qtTrId("error_login_item"));
    // Published, not saved: the login item itself is where this is kept.
    parts_.settingsRepo->settings = draft;
  });
  refreshers_.emplace_back([this, toggle] { toggle->setChecked(draft.launchAtLogin); });
}

void PreferencesView::addCalibration(Card& card) {
  auto* distance = new TextLabel(TextRole::subheadline, {}, &AppColors::textSecondary);
  auto* calibrate = new PushButton(PushButton::Kind::secondary, qtTrId("Calibrer…"));
  connect(calibrate, &PushButton::clicked, this, &PreferencesView::openCalibration);
  auto* measured = new QWidget;
  lineIn(measured, {}, 14, {distance, calibrate});
  measured->setFocusProxy(calibrate);
  auto* row = card.addRow(qtTrId("Distance de calibration"), {}, measured);
  refreshers_.emplace_back([this, row, distance] {
    distance->setWords(draft.isCalibrated ? QStringLiteral("%1 cm").arg(draft.calibrationDistanceCm)
                                          : qtTrId("Non calibré"));
    row->setHint(draft.isCalibrated
                     ? qtTrId("Distance mesurée lors de la calibration")
                     : qtTrId("Non calibré — les alertes utilisent la distance par défaut (60 cm)"));
  });
}

// The faces that are ignored.

QWidget* PreferencesView::makeIgnored(IgnoredRow& face, bool isFirst) {
  constexpr int framePixels = 48;
  face.since = new TextLabel(TextRole::bodyLabel);
  face.since->setAlignment(Qt::AlignVCenter);
  face.forget = new PushButton(PushButton::Kind::plain, qtTrId("Oublier"));
  connect(face.forget, &PushButton::clicked, this,
          [this, &face] { parts_.service->relaxations().filter.forget(face.place); });
  auto* where = new Canvas(
      [this, &face](QPainter& painter, const QRectF& whole) { paintPlace(painter, whole, face.place); },
      framePixels);
  face.row = new QWidget;
  auto* column = columnIn(face.row);
  if (!isFirst) column->addLayout(insetDivider(16, 0));
  column->addLayout(lineIn(nullptr, {15, 6, 5, 6}, 14, {where, {face.since, 1}, face.forget}));
  return face.row;
}

/// A frame with a dot where the face is, as the person sees it in the preview; nothing of the picture itself.
void PreferencesView::paintPlace(QPainter& painter, const QRectF& whole, const IgnoredPlace& place) const {
  constexpr double leastDot = 6;
  const QSizeF frame(whole.width(), whole.width() * 3 / 4);
  const QRectF box(QPointF(whole.left(), whole.center().y() - frame.height() / 2), frame);
  paintBox(painter, box, 4, colors().surfaceAlt, colors().controlBorder);
  const auto device = parts_.camera->session()->currentDevice();
  const bool isMirrored = device && device->position == CameraPosition::front;
  const double across = isMirrored ? 1 - place.x : place.x;
  const double size = std::max(leastDot, place.width * box.width());
  const QRectF dot(box.left() + across * box.width() - size / 2,
                   box.bottom() - place.y * box.height() - size / 2, size, size);
  painter.setClipRect(box.adjusted(1, 1, -1, -1));
  paintBox(painter, dot, size / 2, colors().primary);
}

void PreferencesView::showIgnored() {
  const auto& places = parts_.service->relaxations().filter.ignored().get();
  noneIgnored_->setVisible(places.empty());
  for (std::size_t i = 0; i < ignoredRows_.size(); ++i) {
    ignoredRows_[i].row->setVisible(i < places.size());
    if (i >= places.size()) continue;
    ignoredRows_[i].place = places[i];
    ignoredRows_[i].row->update();
  }
  showIgnoredTimes();
  places.empty() ? ignoredTicks_.stop() : ignoredTicks_.start(ignoredTickMs);
}

void PreferencesView::showIgnoredTimes() {
  for (const IgnoredRow& face : ignoredRows_) {
    face.since->setWords(
        qtTrId("depuis %1").arg(timeSpan((parts_.clock->nowMs() - face.place.sinceMs) / 60'000)));
    face.forget->setAccessibleDescription(face.since->text());
  }
}

// The draft.

void PreferencesView::showDraft() {
  showing_ = true;
  for (const auto& refresh : refreshers_) refresh();
  const auto chosen = draft.selectedCameraID;
  const int index = chosen ? cameraPicker_->findData(QString::fromStdString(*chosen)) : 0;
  cameraPicker_->setCurrentIndex(std::max(0, index));
  showing_ = false;
}

void PreferencesView::discoverCameras() {
  availableCameras = parts_.camera->session()->devices();
  showing_ = true;
  cameraPicker_->clear();
  cameraPicker_->addItem(qtTrId("Par défaut (frontale)"));
  for (const CameraDevice& camera : availableCameras) {
    const std::string& name = camera.localizedName.empty() ? camera.uniqueID : camera.localizedName;
    cameraPicker_->addItem(QString::fromStdString(name), QString::fromStdString(camera.uniqueID));
  }
  // The person's camera stays chosen while it is unplugged.
  const auto& chosen = draft.selectedCameraID;
  if (chosen &&
      std::ranges::find(availableCameras, *chosen, &CameraDevice::uniqueID) == availableCameras.end()) {
    cameraPicker_->addItem(QString::fromStdString(*chosen), QString::fromStdString(*chosen));
  }
  showing_ = false;
  showDraft();
}

void PreferencesView::chooseCamera(int index) {
  if (showing_) return;
  const QString id = cameraPicker_->itemData(index).toString();
  std::optional<std::string> chosen;
  if (!id.isEmpty()) chosen = id.toStdString();
  if (chosen == draft.selectedCameraID) return;
  draft.selectedCameraID = chosen;
  parts_.settingsRepo->save(draft);
  parts_.camera->switchCamera(chosen);
}

void PreferencesView::openCalibration() {
  if (std::exchange(showCalibration, true)) return;
  openCalibrationSheet(*this, parts_.newCalibration(), qtTrId("Fermer"), [this] { showCalibration = false; });
}

// The window.

void PreferencesView::changeEvent(QEvent* event) {
  // A minimised window shows no picture, so it takes none.
  if (event->type() == QEvent::WindowStateChange && preview_ != nullptr) {
    preview_->setResting(isMinimized() || isAway(parts_.service->fsmState()));
  }
  FixedWindow::changeEvent(event);
}

void PreferencesView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) {
    close();
  } else {
    FixedWindow::keyPressEvent(event);
  }
}

}  // namespace sentrel
