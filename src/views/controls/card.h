// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVBoxLayout>
#include <QWidget>

namespace sentrel {

/// A rounded surface that holds rows, with hairlines between them. Main thread.
class Card : public QWidget {
 public:
  explicit Card(QWidget* parent = nullptr);

  void addRow(QWidget* row);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QVBoxLayout* rows_;
};

}  // namespace sentrel
