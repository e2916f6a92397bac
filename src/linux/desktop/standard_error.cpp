// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/standard_error.h"

#include <cstdio>

namespace sentrel {

void printError(const QString& words, const std::string& detail) {
  QByteArray line = words.toUtf8();
  if (!detail.empty()) line += " (" + QByteArray::fromStdString(detail) + ')';
  std::fprintf(stderr, "sentrel: %s\n", line.constData());
}

}  // namespace sentrel
