// SPDX-License-Identifier: Apache-2.0
#include "views/privacy_view.h"

#include <QClipboard>
#include <QDateTime>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPointer>
#include <algorithm>
#include <utility>

#include "look/icons.h"
#include "look/texts.h"
#include "views/controls/labels.h"
#include "views/controls/painting.h"
#include "views/popover_pages.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int side = 16;
constexpr int checkPixels = 20;
constexpr int chevronPixels = 12;
constexpr int gap = 10;
constexpr int monoPixels = 12;

// The words.

QString textOf(const std::string& words) {
  return QString::fromStdString(words);
}

QString answered(const PrivacyFacts::Attempt& attempt) {
  return textOf(attempt.call) + QStringLiteral(" = ") + textOf(attempt.answer);
}

ProofLine filterLine(const PrivacyFacts& facts) {
  const bool holds = facts.filterMode == 2;
  return {holds,
          holds ? qtTrId("Le noyau filtre les appels de ce programme")
                : qtTrId("Ce noyau ne filtre pas les appels de ce programme"),
          QString::number(facts.filterMode),
          QStringLiteral("/proc/self/status Seccomp: %1").arg(facts.filterMode),
          {}};
}

ProofLine networkLine(const PrivacyFacts& facts) {
  const bool holds =
      !facts.sockets.empty() && std::ranges::all_of(facts.sockets, &PrivacyFacts::Attempt::isRefused);
  QStringList asked;
  for (const auto& socket : facts.sockets) asked += answered(socket);
  const auto worst = std::ranges::find(facts.sockets, false, &PrivacyFacts::Attempt::isRefused);
  const auto& told = worst == facts.sockets.end() && holds ? facts.sockets.begin() : worst;
  return {holds,
          holds ? qtTrId("Une connexion au réseau est refusée")
                : qtTrId("Une connexion au réseau n'est pas refusée"),
          told == facts.sockets.end() ? QString() : textOf(told->answer),
          asked.join(u'\n'),
          {}};
}

ProofLine programLine(const PrivacyFacts& facts) {
  return {facts.program.isRefused,
          facts.program.isRefused ? qtTrId("Lancer un autre programme est refusé")
                                  : qtTrId("Lancer un autre programme n'est pas refusé"),
          textOf(facts.program.answer),
          answered(facts.program),
          {}};
}

ProofLine coreDumpLine(const PrivacyFacts& facts) {
  // Only the bit for the headers of loaded files, of those for each kind of memory.
  const bool holds = !facts.isDumpable || textOf(facts.coreDumps).toUInt(nullptr, 16) == 0x10;
  const QString shown = QStringLiteral("0x%1").arg(textOf(facts.coreDumps).toUInt(nullptr, 16), 0, 16);
  return {holds,
          holds ? qtTrId("Un plantage n'écrit rien de la mémoire")
                : qtTrId("Un plantage pourrait écrire la mémoire"),
          facts.coreDumps.empty() ? QStringLiteral("-") : shown,
          QStringLiteral("/proc/self/coredump_filter: %1\nprctl(PR_GET_DUMPABLE) = %2")
              .arg(textOf(facts.coreDumps))
              .arg(facts.isDumpable ? 1 : 0),
          {}};
}

ProofLine openFilesLine(const PrivacyFacts& facts) {
  const bool holds = std::ranges::all_of(facts.openForWriting, &PrivacyFacts::OpenFile::isKnown);
  QStringList asked{QStringLiteral("/proc/self/fd")};
  for (const auto& file : facts.openForWriting)
    asked += QStringLiteral("%1 → %2").arg(file.descriptor).arg(textOf(file.path));
  return {holds,
          !holds                         ? qtTrId("Un fichier inattendu est ouvert en écriture")
          : facts.openForWriting.empty() ? qtTrId("Aucun fichier n'est ouvert en écriture")
                                         : qtTrId("Ouverts en écriture : ses messages ou ses fichiers"),
          QString::number(facts.openForWriting.size()),
          asked.join(u'\n'),
          {}};
}

ProofLine cameraLine(const PrivacyFacts& facts) {
  if (!facts.cameraOpenMs)
    return {true, qtTrId("La caméra est fermée"), QStringLiteral("-"), QStringLiteral("PipeWire: 0"), {}};
  const QDateTime since = QDateTime::currentDateTime().addMSecs(-*facts.cameraOpenMs);
  return {true,
          qtTrId("La caméra est ouverte depuis"),
          since.toString(QStringLiteral("HH:mm:ss")),
          QStringLiteral("PipeWire: 1"),
          {}};
}

ProofLine framesLine(const PrivacyFacts& facts) {
  // The last one that is shown goes a moment after the camera.
  const bool holds = facts.cameraOpenMs || facts.framesInMemory == 0;
  return {holds,
          holds ? qtTrId("Images de la caméra en mémoire") : qtTrId("Images de la caméra restées en mémoire"),
          QString::number(facts.framesInMemory),
          qtTrId("Comptées là où elles sont réservées et rendues"),
          {}};
}

ProofLine fileLine(const PrivacyFacts::KeptFile& file) {
  const QFileInfo info(textOf(file.path));
  const QString changed =
      QDateTime::fromMSecsSinceEpoch(file.changedMs).toString(QStringLiteral("yyyy-MM-dd HH:mm"));
  const bool isWhole = file.bytes <= static_cast<std::int64_t>(file.content.size());
  return {
      file.isPrivate,
      (file.isPrivate ? qtTrId("Gardé, pour vous seul : %1") : qtTrId("Gardé, et lisible par d'autres : %1"))
          .arg(info.fileName()),
      textLocale().formattedDataSize(file.bytes, 1, QLocale::DataSizeTraditionalFormat),
      textOf(file.path) + u'\n' + changed,
      textOf(file.content) + (isWhole ? QString() : QStringLiteral("…"))};
}

}  // namespace

std::vector<ProofLine> proofLines(const PrivacyFacts& facts) {
  std::vector<ProofLine> lines{filterLine(facts),   networkLine(facts),   programLine(facts),
                               coreDumpLine(facts), openFilesLine(facts), cameraLine(facts),
                               framesLine(facts)};
  for (const auto& file : facts.keptFiles) lines.push_back(fileLine(file));
  return lines;
}

std::vector<OutsideCheck> outsideChecks(const PrivacyFacts& facts) {
  const QString process = QString::number(facts.process);
  return {{QStringLiteral("ss -tuwp | grep pid=%1,").arg(process), qtTrId("n'affiche rien : aucun réseau")},
          {QStringLiteral("ls -l /proc/%1/fd").arg(process), qtTrId("montre tout ce qui est ouvert")},
          {QStringLiteral("grep Seccomp: /proc/%1/status").arg(process), qtTrId("affiche 2 : un filtre")}};
}

ProofReport proofReport(const PrivacyFacts& facts) {
  const auto lines = proofLines(facts);
  ProofReport report{std::ranges::all_of(lines, &ProofLine::holds), {}};
  for (const ProofLine& line : lines) {
    report.words += (line.holds ? QStringLiteral("✓ ") : QStringLiteral("✗ ")) + line.claim +
                    QStringLiteral("\u00A0: ") + line.value + u'\n';
    for (const QString& asked : line.asked.split(u'\n'))
      report.words += QStringLiteral("    ") + asked + u'\n';
  }
  report.words += qtTrId("Depuis un terminal :") + u'\n';
  for (const auto& [command, expected] : outsideChecks(facts))
    report.words += QStringLiteral("    ") + command + QStringLiteral("   # ") + expected + u'\n';
  return report;
}

// The page.

namespace {

QFont mono() {
  return monoFont(qRound(monoPixels * Theme::shared().textScale()));
}

/// What machines have said: broken between words, and anywhere where one is too long, as paths are.
class MonoText final : public QWidget {
 public:
  explicit MonoText(const QString& words) : words_(words) {
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setAccessibleRole(*this, QAccessible::StaticText);
    setAccessibleName(words);
  }

  [[nodiscard]] int heightForWidth(int width) const override {
    return QFontMetrics(mono()).boundingRect(QRect(0, 0, width, 1 << 20), wrapping(width), words_).height();
  }
  [[nodiscard]] QSize sizeHint() const override { return {100, heightForWidth(std::max(100, width()))}; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setFont(mono());
    painter.setPen(colors().textSecondary);
    painter.drawText(rect(), wrapping(width()), words_);
  }

 private:
  [[nodiscard]] int wrapping(int width) const {
    const QFontMetrics metrics(mono());
    const QStringList words = QString(words_).replace(u'\n', u' ').split(u' ');
    const bool fits = std::ranges::all_of(
        words, [&](const QString& word) { return metrics.horizontalAdvance(word) <= width; });
    return fits ? Qt::TextWordWrap : Qt::TextWrapAnywhere;
  }

  const QString words_;
};

/// A claim with its check and its value, which unfolds what was asked.
class ProofButton final : public DrawnButton {
 public:
  explicit ProofButton(const ProofLine& line)
      : DrawnButton(TextRole::body, line.claim), holds_(line.holds), value_(line.value) {
    setCheckable(true);
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setAccessibleName((holds_ ? qtTrId("Vérifié") : qtTrId("Échec")) + QStringLiteral("\u00A0: ") +
                      line.claim + QStringLiteral(", ") + value_);
    connect(this, &QAbstractButton::toggled, this, [this] { tellFolding(); });
    tellFolding();
  }

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }
  [[nodiscard]] int heightForWidth(int width) const override {
    const int words = QFontMetrics(font())
                          .boundingRect(QRect(0, 0, wordsWidth(width), 1 << 20), Qt::TextWordWrap, text())
                          .height();
    return std::max(words, Theme::shared().iconSize(checkPixels)) + 2 * 8;
  }
  [[nodiscard]] QSize sizeHint() const override { return {200, heightForWidth(std::max(200, width()))}; }
  [[nodiscard]] QSize minimumSizeHint() const override { return {0, 0}; }
  [[nodiscard]] Outline focusOutline() const override {
    return {.rect = QRectF(rect()).adjusted(4, 0, -4, 0), .radius = 6, .gap = -2};
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const AppColors& c = colors();
    const Theme& theme = Theme::shared();
    QPainter painter(this);
    paintGround(painter, QRectF(rect()).adjusted(4, 0, -4, 0), 6, 0.06, 0.12);
    const int check = theme.iconSize(checkPixels);
    paintSymbol(painter,
                holds_ ? QStringLiteral("checkmark.circle.fill") : QStringLiteral("xmark.circle.fill"),
                squareIn(QRectF(side, 0, check, height()), check), holds_ ? c.success : c.error);
    const int chevron = theme.iconSize(chevronPixels);
    painter.save();
    painter.translate(width() - side - chevron / 2.0, height() / 2.0);
    if (!isChecked()) painter.rotate(-90);
    paintSymbol(painter, QStringLiteral("chevron.down"),
                QRectF(-chevron / 2.0, -chevron / 2.0, chevron, chevron), c.textSecondary);
    painter.restore();
    const QRect words(side + check + gap, 0, wordsWidth(width()), height());
    painter.setFont(font());
    painter.setPen(holds_ ? c.text : c.error);
    painter.drawText(words, Qt::AlignVCenter | Qt::TextWordWrap, text());
    paintWords(painter, QRectF(words.right() + gap, 0, valueWidth() + 1, height()), value_, mono(),
               holds_ ? c.textSecondary : c.error, Qt::AlignVCenter | Qt::AlignRight);
  }

 private:
  [[nodiscard]] int valueWidth() const { return QFontMetrics(mono()).horizontalAdvance(value_) + 1; }
  [[nodiscard]] int wordsWidth(int width) const {
    const Theme& theme = Theme::shared();
    return std::max(60, width - 2 * side - theme.iconSize(checkPixels) - theme.iconSize(chevronPixels) -
                            3 * gap - valueWidth());
  }
  void tellFolding() { setAccessibleDescription(isChecked() ? qtTrId("Déplié") : qtTrId("Replié")); }

  const bool holds_;
  const QString value_;
};

QWidget* proofRow(const ProofLine& line) {
  auto* row = new QWidget;
  auto* button = new ProofButton(line);
  auto* answers = new QWidget;
  auto* lines = columnIn(answers, {side + Theme::shared().iconSize(checkPixels) + gap, 0, side, 10}, 8,
                         {new MonoText(line.asked)});
  if (!line.shown.isEmpty()) lines->addWidget(new MonoText(line.shown));
  answers->hide();
  columnIn(row, {}, 0, {button, answers});
  QObject::connect(button, &QAbstractButton::toggled, answers, &QWidget::setVisible);
  return row;
}

}  // namespace

PrivacyView::PrivacyView(const std::shared_ptr<PrivacyProof>& proof, const std::function<void()>& dismissed) {
  auto* page = new QWidget;
  // No title in the toolbar: with large text it would not stand beside the button.
  auto* head =
      columnIn(nullptr, {side, 0, side, 0}, 4,
               {new TextLabel(TextRole::headline, qtTrId("Vérifier par vous-même")),
                new TextLabel(TextRole::subheadline, qtTrId("privacy_intro"), &AppColors::textSecondary)});
  column_ = columnIn(page, {0, 12, 0, 12}, 0, {head, 8});
  auto* scroll = new ScrollPage;
  scroll->setPage(page);
  columnIn(this, {}, 0, {pageToolbar(*this, {}, dismissed), divider(), {scroll, 1}});
  proof->ask([self = QPointer(this)](const PrivacyFacts& facts) {
    if (self) self->show(facts);
  });
}

void PrivacyView::show(const PrivacyFacts& facts) {
  for (const ProofLine& line : proofLines(facts)) column_->addWidget(proofRow(line));
  auto* outside = columnIn(nullptr, {side, 0, side, 0}, 4,
                           {new TextLabel(TextRole::subheadlineStrong, qtTrId("Depuis un terminal :"))});
  for (const auto& [command, expected] : outsideChecks(facts))
    addItems(*outside, {4, new MonoText(command),
                        new TextLabel(TextRole::caption, expected, &AppColors::textSecondary)});
  auto* copy = new PushButton(PushButton::Kind::secondary, qtTrId("Copier"));
  connect(copy, &PushButton::clicked, this,
          [words = proofReport(facts).words] { QGuiApplication::clipboard()->setText(words); });
  addItems(*column_, {10,
                      insetDivider(side, side),
                      12,
                      outside,
                      14,
                      lineIn(nullptr, {side, 0, side, 0}, 0, {copy, {stretch, 1}}),
                      {stretch, 1}});
}

}  // namespace sentrel
