// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/locker_programs.h"

#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QFile>
#include <QList>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace sentrel {

namespace {

namespace fs = std::filesystem;

/// The last one is what covers the screen for a service that always runs.
constexpr std::array<std::string_view, 7> names{"swaylock", "gtklock",     "hyprlock",        "waylock",
                                                "i3lock",   "xsecurelock", "xscreensaver-gfx"};
constexpr auto moreFolders = ":/usr/libexec/xscreensaver:/usr/lib/xscreensaver";

constexpr std::int64_t lookIntervalMs = 200;
constexpr int looks = 15;  // a busy machine takes its time to start a program

/// Nobody but the user that a process is of may read its environment.
bool isOnOurDisplay(const fs::path& process) {
  QFile file(QString::fromStdString((process / "environ").string()));
  if (!file.open(QFile::ReadOnly)) return false;
  const QList<QByteArray> environment = file.readAll().split('\0');
  const auto isOurs = [&](const QByteArray& name) {
    const QByteArray value = qgetenv(name.constData());
    return value.isEmpty() || environment.contains(name + '=' + value);
  };
  // Not everybody on a Wayland display is told of its X server.
  return isOurs("XDG_RUNTIME_DIR") &&
         isOurs(qgetenv("WAYLAND_DISPLAY").isEmpty() ? "DISPLAY" : "WAYLAND_DISPLAY");
}

}  // namespace

/// One that runs, until it ends.
class LockerPrograms::Process {
 public:
  Process(pid_t process, const std::function<void()>& ended)
      : descriptor_(static_cast<int>(syscall(SYS_pidfd_open, process, 0))) {
    if (descriptor_ < 0) return;
    end_ = std::make_unique<QSocketNotifier>(descriptor_, QSocketNotifier::Read);
    QObject::connect(end_.get(), &QSocketNotifier::activated, end_.get(), [this, ended] {
      end_->setEnabled(false);
      ended();
    });
  }
  ~Process() {
    end_.reset();
    if (descriptor_ >= 0) close(descriptor_);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  [[nodiscard]] bool isRunning() const { return descriptor_ >= 0; }

 private:
  const int descriptor_;
  std::unique_ptr<QSocketNotifier> end_;
};

LockerPrograms::LockerPrograms(std::shared_ptr<MainLoop> mainLoop, Observer observer)
    : mainLoop_(std::move(mainLoop)),
      observer_(std::move(observer)),
      files_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      used_(files_, QSocketNotifier::Read) {
  QObject::connect(&used_, &QSocketNotifier::activated, &used_, [this] { filesWereUsed(); });
  watchFiles();
  nextLook_ = mainLoop_->after(0, [this] { look(0); });
}

LockerPrograms::~LockerPrograms() {
  used_.setEnabled(false);
  if (files_ >= 0) close(files_);
}

void LockerPrograms::watchFiles() {
  for (const QByteArray& folder : (qgetenv("PATH") + moreFolders).split(':')) {
    if (!folder.startsWith('/')) continue;
    for (const std::string_view name : names)
      inotify_add_watch(files_, (folder.toStdString() + '/').append(name).c_str(), IN_OPEN);
  }
}

void LockerPrograms::filesWereUsed() {
  std::array<char, 4096> buffer{};
  bool isReplaced = false;
  for (ssize_t size = 0; (size = read(files_, buffer.data(), buffer.size())) > 0;) {
    for (ssize_t at = 0; at < size;) {
      inotify_event event{};
      std::memcpy(&event, buffer.data() + at, sizeof event);
      isReplaced = isReplaced || (event.mask & IN_IGNORED) != 0;
      at += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
  if (isReplaced) watchFiles();
  look(looks);
}

void LockerPrograms::look(int more) {
  running_.clear();
  std::error_code error;
  for (const auto& process : fs::directory_iterator("/proc", error)) {
    const std::string number = process.path().filename().string();
    if (std::isdigit(static_cast<unsigned char>(number.front())) == 0) continue;
    const std::string program = fs::read_symlink(process.path() / "exe", error).filename().string();
    if (std::ranges::find(names, program) == names.end() || !isOnOurDisplay(process.path())) continue;
    auto found = std::make_unique<Process>(std::stoi(number),
                                           [this] { nextLook_ = mainLoop_->after(0, [this] { look(0); }); });
    if (found->isRunning()) running_.push_back(std::move(found));
  }
  const bool runs = !running_.empty();
  if (!runs && more > 0) nextLook_ = mainLoop_->after(lookIntervalMs, [this, more] { look(more - 1); });
  const auto before = std::exchange(told_, runs);
  if (before != runs) observer_(runs, !before);
}

}  // namespace sentrel
