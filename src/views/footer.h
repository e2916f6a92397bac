// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QUrl>
#include <functional>

class QWidget;

namespace sentrel {

/// The link at the foot of a page; there is none without an address.
struct Footer {
  QUrl projectsPage;
  std::function<void(const QUrl&)> openLink;

  /// The line with the link, or none.
  [[nodiscard]] QWidget* build(QWidget* parent) const;
};

}  // namespace sentrel
