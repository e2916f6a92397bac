// SPDX-License-Identifier: Apache-2.0
#include "views/about_view.h"

#include <QFocusEvent>
#include <QPainter>
#include <QVBoxLayout>
#include <array>
#include <utility>

#include "look/app_icon.h"
#include "views/controls/divider.h"
#include "views/controls/text_label.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int side = 16;
constexpr int textSide = 20;
constexpr int iconPixels = 64;
constexpr QMargins aroundClose(10, 5, 0, 0);

class Icon final : public QWidget {
 public:
  explicit Icon(QWidget* parent) : QWidget(parent) { setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed); }
  [[nodiscard]] QSize sizeHint() const override {
    const int size = Theme::shared().iconSize(iconPixels);
    return {size, size};
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    paintAppIcon(painter, QRectF(rect()));
  }
};

/// A title over a paragraph.
class AboutSection final : public QWidget {
 public:
  AboutSection(const QString& title, const QString& text, QWidget* parent) : QWidget(parent) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(1);
    auto* head = new TextLabel(TextRole::subheadlineStrong);
    head->setWords(title);
    auto* body = new TextLabel(TextRole::subheadline, &AppColors::textSecondary);
    body->setWords(text);
    column->addWidget(head);
    column->addWidget(body);
  }
};

}  // namespace

AboutView::AboutView(const QString& version, const Footer& footer, std::function<void()> dismissed,
                     QWidget* parent)
    : ToolbarPage(qtTrId("Fermer"), aroundClose, parent), dismiss(std::move(dismissed)) {
  connect(leaveButton(), &PushButton::clicked, this, [this] { dismiss(); });
  auto* page = new QWidget;
  auto* column = new QVBoxLayout(page);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  column->addSpacing(26);
  column->addWidget(new Icon(page), 0, Qt::AlignHCenter);
  column->addSpacing(5);
  column->addWidget(centredLabel(TextRole::title2, QStringLiteral("Sentrel")));
  column->addWidget(centredLabel(TextRole::caption, qtTrId("about_version") + QLatin1Char(' ') + version,
                                 &AppColors::textSecondary));
  column->addSpacing(12);
  column->addLayout(insetDivider(side, side));
  column->addSpacing(12);
  auto* sections = new QVBoxLayout;
  sections->setContentsMargins(textSide, 0, textSide, 0);
  sections->setSpacing(14);
  sections->addWidget(
      new AboutSection(qtTrId("about_developer_title"), qtTrId("about_developer_body"), page));
  sections->addWidget(new AboutSection(qtTrId("about_project_title"), qtTrId("about_project_body"), page));
  sections->addWidget(new AboutSection(qtTrId("about_privacy_title"), qtTrId("about_privacy_body"), page));
  column->addLayout(sections);
  column->addStretch(1);
  if (QWidget* link = footer.build(page)) {
    column->addSpacing(12);
    column->addLayout(insetDivider(side, side));
    column->addSpacing(8);
    column->addWidget(link, 0, Qt::AlignHCenter);
    column->addSpacing(11);
  } else {
    column->addSpacing(16);
  }
  setPage(page);
}

void AboutView::focusInEvent(QFocusEvent* event) {
  QWidget::focusInEvent(event);
  leaveButton()->setFocus(event->reason());
}

}  // namespace sentrel
