// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

namespace sentrel {

/// A symbol followed by the title of a section. Main thread.
class SectionHeader : public QWidget {
 public:
  SectionHeader(const QString& icon, const QString& title, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString icon;
};

}  // namespace sentrel
