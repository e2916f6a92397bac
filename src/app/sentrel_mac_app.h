// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QApplication>
#include <QSocketNotifier>
#include <memory>
#include <string>

#include "app/app_delegate.h"
#include "app/program_bus.h"
#include "linux/desktop/camera_portal.h"
#include "linux/desktop/defaults_file.h"
#include "linux/desktop/desktop_appearance.h"
#include "linux/desktop/desktop_portal.h"
#include "linux/desktop/qt_main_loop.h"

namespace sentrel {

/// The program: a background accessory whose windows open when they are asked for. Installs the platform and
/// the delegate and runs the event loop until somebody ends it. Main thread.
class SentrelMacApp {
 public:
  SentrelMacApp(char** argv, Launch launch);
  ~SentrelMacApp();

  /// The process's exit code.
  int run();

 private:
  void watchSignals();
  void begin(InstanceRole role);
  void installPlatform();
  void end();
  void quit();

  const Launch launch_;
  bool quitAsked_ = false;
  const int signals_;      // a descriptor; the signals are held back before Qt starts a thread
  int argumentCount_ = 1;  // the program's name: the application keeps a reference
  char** const arguments_;
  /// Never destroyed: at the process's end Qt's own static data, made later than this, goes first, and the
  /// destructor would still use it, for icons and for assistive technology.
  QApplication& application_ = *new QApplication(argumentCount_, arguments_);
  std::unique_ptr<QSocketNotifier> signalNotifier_;
  std::unique_ptr<QObject> paintFilter_;
  std::shared_ptr<QtMainLoop> mainLoop_;
  std::shared_ptr<Bus> sessionBus_;
  ProgramBus bus_;
  std::shared_ptr<DefaultsFile> defaults_;
  std::shared_ptr<CameraConsent> consent_;
  std::shared_ptr<DesktopPortal> portal_;
  std::shared_ptr<CameraPortal> cameraPortal_;
  Registration damaged_;
  std::string untold_;  // the key of what the person is to be told once
  std::unique_ptr<DesktopAppearance> appearance_;
  Registration looks_;
  std::unique_ptr<AppDelegate> appDelegate;
};

}  // namespace sentrel
