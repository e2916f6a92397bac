// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/screen_saver_watch.h"

#include <utility>

#include "linux/desktop/bus_values.h"

namespace sentrel {

ScreenSaverWatch::ScreenSaverWatch(BusConnection& sessionBus, QString name, QStringList paths,
                                   WitnessReports::Witness witness, WitnessReports reports)
    : name_(std::move(name)),
      paths_(std::move(paths)),
      witness_(witness),
      reports_(std::move(reports)),
      locker_(sessionBus, name_,
              {.appeared = [this] { appeared(); },
               .gone = [this] { reports_.lost(witness_); },
               .absent = [this] { reports_.silent(witness_); }}) {}

void ScreenSaverWatch::appeared() {
  listening_ =
      locker_.listen({QString(), name_, QStringLiteral("ActiveChanged")}, [this](const QDBusMessage& signal) {
        if (const auto active = onlyArgument<bool>(signal)) reports_.changed(witness_, *active);
      });
  ask(0);
}

void ScreenSaverWatch::ask(qsizetype path) {
  if (path == paths_.size()) {
    reports_.silent(witness_);
    return;
  }
  locker_.call({paths_.at(path), name_, QStringLiteral("GetActive")}, {},
               [this, path](const QDBusMessage& reply) {
                 if (const auto active = onlyArgument<bool>(reply)) {
                   reports_.found(witness_, *active);
                 } else {
                   ask(path + 1);
                 }
               });
}

}  // namespace sentrel
