// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "stage/child_process.h"

namespace sentrel::test {

/// A private desktop without a screen: real services in folders of their own, out of reach of the session
/// that runs the test. What is not chosen is absent, also for programs that would find it elsewhere.
///
/// Works as root and as a user. Every service is ready for use when its start returns; one that does not
/// become ready throws std::runtime_error with what it printed. All of them end with the object or with the
/// thread that made it. Not thread-safe.
class HeadlessDesktop {
 public:
  struct Options {
    bool sessionBus = true;     ///< nothing is activatable on it, unless chosen below
    bool activation = false;    ///< what is installed for sessions can be started through the session bus
    bool systemBus = false;     ///< in the place of the system bus, where a test may own any name
    bool pipeWire = false;      ///< with its session manager; no real device is ever listed
    bool x11 = false;           ///< X server with RandR and Composite, 24 bits deep
    bool windowManager = true;  ///< only with `x11`
    bool compositor = true;     ///< only with `x11`
    bool sway = false;  ///< Wayland compositor with a layer shell; in windows of `x11` where that is chosen
    int width = 1920;   ///< pixels
    int height = 1080;  ///< pixels
  };

  explicit HeadlessDesktop(const Options& options);
  ~HeadlessDesktop();
  HeadlessDesktop(const HeadlessDesktop&) = delete;
  HeadlessDesktop& operator=(const HeadlessDesktop&) = delete;

  /// What a program needs to live on this desktop.
  [[nodiscard]] const Environment& environment() const { return environment_; }
  /// For everything that is started from now on.
  void setVariable(const std::string& name, const std::string& value) { environment_[name] = value; }
  /// Puts this process on the desktop, for tests that link the code they test. Call before other threads read
  /// the environment; the former one comes back with the end of the desktop.
  void exportToProcess();

  /// Starts a program on the desktop; what it prints goes to a log that `ChildProcess::output()` reads.
  [[nodiscard]] ChildProcess spawn(const std::string& program,
                                   const std::vector<std::string>& arguments = {});
  /// Runs a program to its end and gives what it printed; throws when it fails or takes longer.
  std::string run(const std::string& program, const std::vector<std::string>& arguments = {},
                  std::chrono::milliseconds timeout = std::chrono::seconds(30));

  [[nodiscard]] std::filesystem::path home() const { return root_.path / "home"; }
  [[nodiscard]] std::filesystem::path configFolder() const { return home() / ".config"; }
  [[nodiscard]] std::filesystem::path runtimeFolder() const { return root_.path / "run"; }
  /// Services described here are started on demand by a session bus that is started afterwards.
  [[nodiscard]] std::filesystem::path serviceFolder() const { return root_.path / "services"; }

  // Single services. Starting one that runs and stopping one that does not are no-ops.
  /// A new one at the same address, with nobody on it.
  void replaceSessionBus();
  void startSystemBus();
  void stopSystemBus() { systemBus_.terminate(); }
  /// The daemons, to be signalled by a test.
  [[nodiscard]] const ChildProcess& sessionBus() const { return sessionBus_; }
  [[nodiscard]] const ChildProcess& systemBus() const { return systemBus_; }
  void startPipeWire();
  void stopPipeWire() {
    sessionManager_.terminate();
    pipeWire_.terminate();
  }
  void killPipeWire();  ///< as a crash
  void startX();  ///< with its window manager and compositor as chosen; the display may get a new number
  void killX();   ///< as a crash; takes window manager and compositor with it
  [[nodiscard]] bool hasWindowManager() const;  ///< only with `x11`
  [[nodiscard]] bool hasCompositor() const;     ///< only with `x11`
  void startPicom();
  void stopPicom() { compositor_.terminate(); }
  /// With these lines in its configuration, after all others.
  void startSway(const std::string& lines = {});
  void killSway() { sway_.kill(); }  ///< as a crash
  [[nodiscard]] pid_t swayPid() const { return sway_.pid(); }
  /// Pulls out one of sway's outputs; only where they are windows of X.
  void removeOutput(const std::string& name);

  /// Waits until a node of this name is listed.
  void waitForNode(const std::string& nodeName);
  [[nodiscard]] bool hasNode(const std::string& nodeName);

  /// Saves the whole screen as it is composed at this moment, as PNG: of Wayland where it is there, else of
  /// X.
  void screenshot(const std::filesystem::path& path);
  /// As `screenshot`, without waiting for its end; `path` is absolute.
  [[nodiscard]] ChildProcess beginScreenshot(const std::filesystem::path& path);

 private:
  class XProbe;

  /// Removes itself.
  struct Folder {
    ~Folder();
    std::filesystem::path path;
  };

  ChildProcess startBus(const std::string& name, const std::string& services = {});
  void prepareFolders();
  void prepareEnvironment();

  Options options_;
  Folder root_;
  Environment environment_;
  std::optional<Environment> replaced_;
  int spawned_ = 0;
  // In the order of their start: the later ones need the earlier ones and end first.
  ChildProcess sessionBus_;
  ChildProcess systemBus_;
  ChildProcess pipeWire_;
  ChildProcess sessionManager_;
  ChildProcess xServer_;
  std::unique_ptr<XProbe> probe_;
  ChildProcess windowManager_;
  ChildProcess compositor_;
  ChildProcess sway_;
};

}  // namespace sentrel::test
