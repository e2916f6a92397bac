// SPDX-License-Identifier: Apache-2.0
#include "views/journal_cards.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <utility>
#include <vector>

#include "look/texts.h"
#include "views/controls/layout.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int between = 8;

/// The ground of the offer.
class Tile final : public QWidget {
 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    paintBox(painter, QRectF(rect()), 12, colors().surfaceAlt,
             Theme::shared().highContrast() ? colors().border : QColor());
  }
};

QString alertWords(std::int64_t alerts) {
  return alerts == 0   ? qtTrId("Aucune alerte")
         : alerts == 1 ? qtTrId("1 alerte")
                       : qtTrId("%1 alertes").arg(alerts);
}

QString withAlerts(const QString& when, std::int64_t alerts) {
  return when + QStringLiteral("\u00A0: ") + alertWords(alerts).toLower();
}

void setWish(SettingsRepository& settingsRepo, JournalWish wish) {
  ProtectionOptions options = settingsRepo.options;
  options.journal = wish;
  settingsRepo.save(options);
}

}  // namespace

std::array<std::int64_t, chartedDays> alertsByDay(std::span<const AlertRecord> records,
                                                  const QDateTime& now) {
  std::array<std::int64_t, chartedDays> counts{};
  for (const AlertRecord& record : records) {
    const qint64 ago = QDateTime::fromMSecsSinceEpoch(record.beganMs).date().daysTo(now.date());
    if (ago >= 0 && ago < std::ssize(counts)) ++counts[counts.size() - 1 - static_cast<std::size_t>(ago)];
  }
  return counts;
}

std::array<std::int64_t, 24> alertsByHour(std::span<const AlertRecord> records) {
  std::array<std::int64_t, 24> counts{};
  for (const AlertRecord& record : records)
    ++counts[static_cast<std::size_t>(QDateTime::fromMSecsSinceEpoch(record.beganMs).time().hour())];
  return counts;
}

Sheet* askToEndJournal(QWidget& window, const std::shared_ptr<SettingsRepository>& settingsRepo,
                       const std::shared_ptr<AlertJournal>& journal) {
  return openDialog(window, {.symbol = QStringLiteral("exclamationmark.triangle.fill"),
                             .color = &AppColors::warningGraphic,
                             .words = qtTrId("Arrêter le journal des alertes et effacer ce qu'il contient ?"),
                             .cancel = qtTrId("stats_reset_cancel"),
                             .confirm = qtTrId("Arrêter et effacer"),
                             .kind = PushButton::Kind::destructive,
                             .confirmed = [settingsRepo, journal] {
                               setWish(*settingsRepo, JournalWish::refused);
                               journal->erase();
                             }});
}

JournalCards::JournalCards(QWidget& page, std::shared_ptr<SettingsRepository> settingsRepo,
                           std::shared_ptr<AlertJournal> journal)
    : page_(page),
      settingsRepo_(std::move(settingsRepo)),
      journal_(std::move(journal)),
      offer_(buildOffer()),
      days_(new BarChart(qtTrId("14 derniers jours"), chartedDays, 12)),
      hours_(new BarChart(qtTrId("Heures de la journée"), 24, 6)),
      told_(new TextLabel(TextRole::caption)),
      trouble_(new TextLabel(TextRole::caption, {}, &AppColors::warning)),
      charts_(buildCharts()) {
  columnIn(this, {}, 0, {offer_, charts_});
  troubleRegistration_ = journal_->trouble.subscribe([this](const std::string& key) {
    trouble_->setWords(key.empty() ? QString() : qtTrId(key.c_str()));
    trouble_->setVisible(!key.empty());
  });
  optionsRegistration_ = settingsRepo_->options.subscribe([this](const ProtectionOptions& options) {
    offer_->setVisible(options.journal == JournalWish::unasked);
    charts_->setVisible(options.journal == JournalWish::kept);
    if (options.journal == JournalWish::kept) refresh();
  });
}

QWidget* JournalCards::buildOffer() {
  auto* keep = new PushButton(PushButton::Kind::secondary, qtTrId("Tenir un journal"));
  auto* refuse = new PushButton(PushButton::Kind::plain, qtTrId("Non merci"));
  connect(keep, &PushButton::clicked, this, [this] { setWish(*settingsRepo_, JournalWish::kept); });
  connect(refuse, &PushButton::clicked, this, [this] { setWish(*settingsRepo_, JournalWish::refused); });
  auto* tile = new Tile;
  auto* buttons = lineIn(nullptr, {}, between, {keep, refuse, {stretch, 1}});
  columnIn(
      tile, {14, 12, 14, 12}, 4,
      {new TextLabel(TextRole::subheadlineStrong, qtTrId("Journal des alertes")),
       new TextLabel(TextRole::subheadline, qtTrId("journal_offer"), &AppColors::textSecondary), 4, buttons});
  auto* offer = new QWidget;
  columnIn(offer, {0, between, 0, 0}, 0, {tile});
  const auto arrange = [tile, keep, refuse, buttons] {
    const int wanted = keep->sizeHint().width() + between + refuse->sizeHint().width();
    const int space = Theme::shared().grown(320, 120) - 2 * 16 - 2 * 14;
    buttons->setDirection(wanted <= space ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    tile->updateGeometry();
  };
  connect(&Theme::shared(), &Theme::changed, tile, arrange);
  arrange();
  return offer;
}

QWidget* JournalCards::buildCharts() {
  auto* save = new PushButton(PushButton::Kind::secondary, qtTrId("Exporter…"));
  auto* erase = new PushButton(PushButton::Kind::plain, qtTrId("Effacer"));
  connect(save, &PushButton::clicked, this, &JournalCards::chooseFile);
  connect(erase, &PushButton::clicked, this, &JournalCards::askToErase);
  told_->hide();
  auto* charts = new QWidget;
  columnIn(charts, {0, between, 0, 0}, between,
           {days_, hours_, lineIn(nullptr, {}, between, {save, erase, {stretch, 1}}), told_, trouble_});
  return charts;
}

void JournalCards::refresh() {
  journal_->read([self = QPointer(this)](const std::vector<AlertRecord>& records) {
    if (self) self->show(records);
  });
}

void JournalCards::show(std::span<const AlertRecord> records) {
  const QLocale& locale = textLocale();
  const QDateTime now = QDateTime::currentDateTime();
  const auto byDay = alertsByDay(records, now);
  std::vector<BarChart::Bar> days;
  std::int64_t inDays = 0;
  for (std::size_t i = 0; i < byDay.size(); ++i) {
    const QDate date = now.date().addDays(static_cast<qint64>(i) - std::ssize(byDay) + 1);
    const bool isToday = i + 1 == byDay.size();
    inDays += byDay[i];
    days.push_back({.value = byDay[i],
                    .words = withAlerts(locale.toString(date, QStringLiteral("ddd d")), byDay[i]),
                    .label = isToday ? qtTrId("aujourd'hui") : locale.toString(date, QStringLiteral("d MMM")),
                    .stands = isToday});
  }
  days_->setBars(std::move(days), alertWords(inDays));
  const auto byHour = alertsByHour(records);
  std::vector<BarChart::Bar> hours;
  for (std::size_t i = 0; i < byHour.size(); ++i) {
    const QString begin = qtTrId("%1 h").arg(i);
    hours.push_back({.value = byHour[i],
                     .words = withAlerts(qtTrId("de %1 h à %2 h").arg(i).arg(i + 1), byHour[i]),
                     .label = begin});
  }
  hours_->setBars(std::move(hours), alertWords(std::ssize(records)));
}

bool JournalCards::asks() const {
  return question_ != nullptr || fileDialog_ != nullptr;
}

void JournalCards::askToErase() {
  if (asks()) return;
  question_ =
      openDialog(page_, {.symbol = QStringLiteral("exclamationmark.triangle.fill"),
                         .color = &AppColors::warningGraphic,
                         .words = qtTrId("Effacer le journal des alertes ? Cette action est définitive."),
                         .cancel = qtTrId("stats_reset_cancel"),
                         .confirm = qtTrId("Effacer"),
                         .kind = PushButton::Kind::destructive,
                         .confirmed = [this] {
                           journal_->erase();
                           refresh();
                         }});
  question_->onClosed = [this] { question_.clear(); };
}

/// Our own dialog, since the desktop's would come from a portal of another process or from a plug-in.
void JournalCards::chooseFile() {
  if (asks()) return;
  fileDialog_ = new QFileDialog(&page_, qtTrId("Exporter le journal des alertes"), QDir::homePath(),
                                QStringLiteral("CSV (*.csv)"));
  fileDialog_->setAttribute(Qt::WA_DeleteOnClose);
  fileDialog_->setOption(QFileDialog::DontUseNativeDialog);
  fileDialog_->setAcceptMode(QFileDialog::AcceptSave);
  // Without what Qt names in English alone.
  fileDialog_->setViewMode(QFileDialog::List);
  fileDialog_->setSidebarUrls({QUrl::fromLocalFile(QDir::homePath())});
  fileDialog_->setDefaultSuffix(QStringLiteral("csv"));
  fileDialog_->setLabelText(QFileDialog::Accept, qtTrId("Exporter"));
  fileDialog_->setLabelText(QFileDialog::Reject, qtTrId("stats_reset_cancel"));
  fileDialog_->setLabelText(QFileDialog::LookIn, qtTrId("Dossier :"));
  fileDialog_->setLabelText(QFileDialog::FileName, qtTrId("Nom du fichier :"));
  fileDialog_->setLabelText(QFileDialog::FileType, qtTrId("Type :"));
  fileDialog_->selectFile(qtTrId("alertes-sentrel.csv"));
  connect(fileDialog_, &QFileDialog::fileSelected, this, [this](const QString& file) {
    journal_->exportTo(QFile::encodeName(file).toStdString(), [self = QPointer(this), file](bool isDone) {
      if (!self) return;
      const QString name = QFileInfo(file).fileName();
      self->told_->setWords(
          (isDone ? qtTrId("Exporté : %1") : qtTrId("%1 n'a pas pu être écrit.")).arg(name));
      self->told_->setColor(isDone ? &AppColors::textSecondary : &AppColors::warning);
      self->told_->show();
    });
  });
  fileDialog_->open();
}

}  // namespace sentrel
