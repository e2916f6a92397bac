// SPDX-License-Identifier: Apache-2.0
#include "views/footer.h"

#include "views/controls/link_button.h"

namespace sentrel {

QWidget* Footer::build(QWidget* parent) const {
  if (projectsPage.isEmpty()) return nullptr;
  auto* link = new LinkButton(qtTrId("Sentrel · Nos autres projets"), parent);
  QObject::connect(link, &LinkButton::clicked, link, [open = openLink, page = projectsPage] { open(page); });
  return link;
}

}  // namespace sentrel
