// SPDX-License-Identifier: Apache-2.0
//
// write-scene-stills FOLDER: writes the portrait scene as PNG stills, so that a person can look at the
// material of the tests and of the demonstration: the user at every 10 degrees of warp, alone and with a
// second face.
#include <QDir>
#include <QString>
#include <cstdio>

#include "stage/portrait_scene.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: write-scene-stills FOLDER\n", stderr);
    return 2;
  }
  const QDir folder(QString::fromLocal8Bit(argv[1]));
  if (!folder.mkpath(QStringLiteral("."))) {
    std::fputs("write-scene-stills: cannot make the folder\n", stderr);
    return 1;
  }
  const sentrel::test::PortraitScene scene;
  for (int yaw = -70; yaw <= 70; yaw += 10) {
    for (const bool second : {false, true}) {
      sentrel::test::SceneState state;
      state.yawDegrees = yaw;
      if (second) state.secondFace.emplace();
      const QString name = QStringLiteral("yaw%1%2.png").arg(yaw).arg(second ? "_second" : "");
      if (!scene.frame(state).save(folder.filePath(name))) return 1;
    }
  }
  return 0;
}
