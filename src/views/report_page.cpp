// SPDX-License-Identifier: Apache-2.0
#include "views/report_page.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QPointer>

#include "views/controls/buttons.h"
#include "views/controls/labels.h"
#include "views/popover_pages.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int side = 16;

QString problemWords(const Report& report) {
  int problems = 0;
  for (const ReportSection& section : report)
    for (const ReportLine& line : section.lines) problems += line.advice.isEmpty() ? 0 : 1;
  return problems == 0   ? qtTrId("report_no_problem")
         : problems == 1 ? qtTrId("report_one_problem")
                         : qtTrId("report_problems").arg(problems);
}

/// A label over what it says, and below a problem what to do about it.
class ReportRow final : public QWidget {
 public:
  explicit ReportRow(const ReportLine& line) {
    const bool isProblem = !line.advice.isEmpty();
    auto* column = columnIn(this, {}, 1,
                            {new TextLabel(TextRole::caption, line.label, &AppColors::textSecondary),
                             new TextLabel(TextRole::subheadline, line.value,
                                           isProblem ? &AppColors::warning : &AppColors::text)});
    if (isProblem)
      column->addWidget(new TextLabel(TextRole::subheadline, QStringLiteral("→ ") + line.advice));
  }
};

}  // namespace

QString asText(const Report& report) {
  QString text = problemWords(report) + u'\n';
  for (const ReportSection& section : report) {
    text += u'\n' + section.title + u'\n';
    for (const ReportLine& line : section.lines) {
      text += line.advice.isEmpty() ? u"  " : u"! ";
      text += qtTrId("report_line").arg(line.label, line.value) + u'\n';
      if (!line.advice.isEmpty()) text += QStringLiteral("    → ") + line.advice + u'\n';
    }
  }
  return text;
}

ReportPage::ReportPage(const AskForReport& ask, const std::function<void()>& dismissed) {
  auto* waiting = new QWidget;
  columnIn(waiting, {side, 14, side, 16}, 0,
           {new TextLabel(TextRole::headline, qtTrId("report_title")),
            4,
            new TextLabel(TextRole::subheadline, qtTrId("report_asking"), &AppColors::textSecondary),
            {stretch, 1}});
  page_->setPage(waiting);
  // No title in the toolbar: with large text it would not stand beside the button.
  columnIn(this, {}, 0, {pageToolbar(*this, {}, dismissed), divider(), {page_, 1}});
  ask([self = QPointer(this)](const Report& report) {
    if (self) self->show(report);
  });
}

void ReportPage::show(const Report& report) {
  auto* copy = new PushButton(PushButton::Kind::secondary, qtTrId("Copier"));
  copy->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  connect(copy, &PushButton::clicked, this, [copy, words = asText(report)] {
    QGuiApplication::clipboard()->setText(words);
    copy->setText(qtTrId("Copié"));
  });
  auto* content = new QWidget;
  auto* column = columnIn(
      content, {side, 14, side, 16}, 0,
      {new TextLabel(TextRole::headline, qtTrId("report_title")), 4,
       new TextLabel(TextRole::subheadline, problemWords(report), &AppColors::textSecondary), 10, copy});
  for (const ReportSection& section : report) {
    addItems(*column, {16, divider(), 14, new TextLabel(TextRole::subheadlineStrong, section.title)});
    for (const ReportLine& line : section.lines) addItems(*column, {8, new ReportRow(line)});
  }
  column->addStretch(1);
  page_->setPage(content);
}

}  // namespace sentrel
