// SPDX-License-Identifier: Apache-2.0
#include "views/about_view.h"

#include <QPainter>

#include "look/icons.h"
#include "views/controls/layout.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int side = 16;
constexpr int textSide = 20;

class Icon final : public QWidget {
 public:
  Icon() { setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed); }
  [[nodiscard]] QSize sizeHint() const override { return QSize(1, 1) * Theme::shared().iconSize(64); }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    paintAppIcon(painter, QRectF(rect()));
  }
};

/// A title over a paragraph.
class AboutSection final : public QWidget {
 public:
  AboutSection(const QString& title, const QString& text) {
    auto* column = boxIn<QVBoxLayout>(this, {}, 1);
    column->addWidget(new TextLabel(TextRole::subheadlineStrong, title));
    column->addWidget(new TextLabel(TextRole::subheadline, text, &AppColors::textSecondary));
  }
};

}  // namespace

AboutView::AboutView(const QString& version, QWidget* footer, const std::function<void()>& dismissed)
    : ToolbarPage(qtTrId("Fermer"), {10, 5, 0, 0}) {
  connect(leaveButton(), &PushButton::clicked, this, dismissed);
  setFocusProxy(leaveButton());
  auto* page = new QWidget;
  auto* column = boxIn<QVBoxLayout>(page);
  column->addSpacing(26);
  column->addWidget(new Icon, 0, Qt::AlignHCenter);
  column->addSpacing(5);
  column->addWidget(centredLabel(TextRole::title2, QStringLiteral("Sentrel")));
  column->addWidget(centredLabel(TextRole::caption, qtTrId("about_version") + QLatin1Char(' ') + version,
                                 &AppColors::textSecondary));
  column->addSpacing(12);
  column->addLayout(insetDivider(side, side));
  column->addSpacing(12);
  auto* sections = boxIn<QVBoxLayout>(nullptr, {textSide, 0, textSide, 0}, 14);
  sections->addWidget(new AboutSection(qtTrId("about_developer_title"), qtTrId("about_developer_body")));
  sections->addWidget(new AboutSection(qtTrId("about_project_title"), qtTrId("about_project_body")));
  sections->addWidget(new AboutSection(qtTrId("about_privacy_title"), qtTrId("about_privacy_body")));
  column->addLayout(sections);
  column->addStretch(1);
  if (footer != nullptr) {
    column->addSpacing(12);
    column->addLayout(insetDivider(side, side));
    column->addSpacing(8);
    column->addWidget(footer, 0, Qt::AlignHCenter);
    column->addSpacing(11);
  } else {
    column->addSpacing(16);
  }
  setPage(page);
}

}  // namespace sentrel
