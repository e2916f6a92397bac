// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/desktop/bus_connection.h"
#include "linux/desktop/logind_session.h"
#include "linux/desktop/mutter_displays.h"
#include "linux/desktop/screen_saver_watch.h"

namespace sentrel {

/// Everybody on the buses who knows something about the presence of the person. Lives on the bus thread.
struct SessionWitnesses {
  SessionWitnesses(BusConnection& sessionBus, BusConnection& systemBus, const WitnessReports& reports)
      : logind(systemBus, reports),
        freedesktop(sessionBus, QStringLiteral("org.freedesktop.ScreenSaver"),
                    {QStringLiteral("/org/freedesktop/ScreenSaver"), QStringLiteral("/ScreenSaver")},
                    WitnessReports::Witness::freedesktopScreenSaver, reports),
        gnome(sessionBus, QStringLiteral("org.gnome.ScreenSaver"), {QStringLiteral("/org/gnome/ScreenSaver")},
              WitnessReports::Witness::gnomeScreenSaver, reports),
        mutter(sessionBus, reports) {}

  LogindSession logind;
  ScreenSaverWatch freedesktop;
  ScreenSaverWatch gnome;
  MutterDisplays mutter;
};

}  // namespace sentrel
