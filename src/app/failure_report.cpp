// SPDX-License-Identifier: Apache-2.0
#include "app/failure_report.h"

#include <QString>
#include <cstdio>

namespace sentrel {

namespace {

void print(const QString& words, const std::string& detail) {
  const QByteArray line = words.toUtf8();
  if (detail.empty()) {
    std::fprintf(stderr, "sentrel: %s\n", line.constData());
  } else {
    std::fprintf(stderr, "sentrel: %s (%s)\n", line.constData(), detail.c_str());
  }
}

}  // namespace

void reportFailure(const char* key, const std::string& detail) {
  print(qtTrId(key), detail);
}

void reportFailure(const CameraFailure& failure) {
  print(qtTrId(textKey(failure.kind)) + QStringLiteral(" — ") + qtTrId(adviceKey(failure.kind)),
        failure.detail);
}

}  // namespace sentrel
