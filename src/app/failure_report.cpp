// SPDX-License-Identifier: Apache-2.0
#include "app/failure_report.h"

#include <QString>
#include <cstdio>

#include "look/texts.h"

namespace sentrel {

namespace {

QString textOf(std::string_view key) {
  return text(QString::fromUtf8(key));
}

void print(const QString& words, const std::string& detail) {
  const QByteArray line = words.toUtf8();
  if (detail.empty()) {
    std::fprintf(stderr, "sentrel: %s\n", line.constData());
  } else {
    std::fprintf(stderr, "sentrel: %s (%s)\n", line.constData(), detail.c_str());
  }
}

}  // namespace

void reportFailure(std::string_view key, const std::string& detail) {
  print(textOf(key), detail);
}

void reportFailure(const CameraFailure& failure) {
  print(textOf(textKey(failure.kind)) + QStringLiteral(" — ") + textOf(adviceKey(failure.kind)),
        failure.detail);
}

}  // namespace sentrel
