// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_screen_sharing.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace sentrel {

namespace {

constexpr std::int64_t answerMs = 5'000;
constexpr std::int64_t holdMs = 1'000;

/// More than any desktop has; the names of a longer list are not believed.
constexpr std::size_t mostOwners = 64;

constexpr auto busName = "org.freedesktop.DBus";

BusMember busMethod(const char* name) {
  return {"/org/freedesktop/DBus", busName, name};
}

/// What the owner of a name is.
enum class Part {
  none,
  onlooker,  ///< gets pictures of the screen for the desktop's own use
  painter,   ///< makes them, for others and for itself
};

/// The portal itself is no painter: every program that it lets have a picture speaks to PipeWire under the
/// portal's number, and could then offer pictures of its own.
Part partOf(const QString& name) {
  if (name == QLatin1String("org.gnome.Mutter.ScreenCast") || name == QLatin1String("org.kde.KWin") ||
      name.startsWith(QLatin1String("org.freedesktop.impl.portal.desktop."))) {
    return Part::painter;
  }
  // Previews of windows, in the task bar.
  return name == QLatin1String("org.kde.plasmashell") ? Part::onlooker : Part::none;
}

}  // namespace

/// Follows the pictures, and asks about those of which it does not know.
class DesktopScreenSharing::Watch {
 public:
  Watch(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Bus> bus,
        const std::shared_ptr<ScreenReads>& reads, std::shared_ptr<Published<bool>> isShared)
      : mainLoop_(std::move(mainLoop)),
        bus_(std::move(bus)),
        isShared_(std::move(isShared)),
        observing_(reads->observe()) {
    connection_ = bus_->follow([this](bool) {
      question_.reset();
      answers_.clear();
      update();
    });
    following_ = reads->screenReads().subscribe([this](const std::vector<ScreenRead>& current) {
      reads_ = current;
      update();
    });
  }
  ~Watch() { isShared_->assignIfChanged(false); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

 private:
  struct Question {
    std::vector<ScreenRead> about;
    std::size_t unanswered = 0;
    std::set<pid_t> painters;
    std::set<pid_t> onlookers;
    Registration deadline;
  };

  /// Publishes at its end, when it may be gone.
  void update() {
    std::erase_if(answers_,
                  [this](const auto& answer) { return !std::ranges::binary_search(reads_, answer.first); });
    ask();
    const bool isRead = std::ranges::any_of(answers_, [](const auto& answer) { return answer.second; });
    if (isRead) {
      hold_.reset();
      isShared_->assignIfChanged(true);
    } else if (isShared_->get() && !hold_) {
      hold_ = mainLoop_->after(holdMs, [this] {
        hold_.reset();
        isShared_->assignIfChanged(false);
      });
    }
  }

  /// One question at a time, about all that are new.
  void ask() {
    if (question_ || !bus_->isConnected()) return;
    std::vector<ScreenRead> about;
    std::ranges::copy_if(reads_, std::back_inserter(about),
                         [this](const ScreenRead& read) { return !answers_.contains(read); });
    if (about.empty()) return;
    question_ = std::make_shared<Question>();
    question_->about = std::move(about);
    question_->deadline = mainLoop_->after(answerMs, [this] { answer({}, {}); });
    call("ListNames", "",
         [this](const BusMessage& reply) { askOwners(reply.only<QStringList>().value_or(QStringList())); });
  }

  void askOwners(QStringList names) {
    names.removeIf([](const QString& name) { return partOf(name) == Part::none; });
    if (names.size() > static_cast<qsizetype>(mostOwners)) names.clear();
    question_->unanswered = static_cast<std::size_t>(names.size());
    if (names.empty()) {
      answer({}, {});
      return;
    }
    for (const QString& name : names) {
      call("GetConnectionUnixProcessID", name.toStdString(),
           [this, isPainter = partOf(name) == Part::painter](const BusMessage& reply) {
             const auto pid = reply.only<uint>();
             if (pid)
               (isPainter ? question_->painters : question_->onlookers).insert(static_cast<pid_t>(*pid));
             if (--question_->unanswered == 0) answer(question_->painters, question_->onlookers);
           });
    }
  }

  void answer(const std::set<pid_t>& painters, const std::set<pid_t>& onlookers) {
    const auto question = std::exchange(question_, nullptr);
    for (const ScreenRead& read : question->about) {
      answers_[read] = painters.contains(read.maker) && !painters.contains(read.reader) &&
                       !onlookers.contains(read.reader);
    }
    update();
  }

  /// Asks the bus itself. An answer that is late for its question is nobody's.
  void call(const char* method, const std::string& argument, BusHandler handler) {
    const auto answered = [question = std::weak_ptr(question_),
                           handler = std::move(handler)](const BusMessage& reply) {
      if (!question.expired()) handler(reply);
    };
    const BusReply reply{.handler = answered, .timeoutMs = answerMs};
    if (argument.empty()) {
      bus_->call(busName, busMethod(method), reply, "");
    } else {
      bus_->call(busName, busMethod(method), reply, "s", argument.c_str());
    }
  }

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Bus> bus_;
  const std::shared_ptr<Published<bool>> isShared_;
  const Registration observing_;
  std::vector<ScreenRead> reads_;
  std::map<ScreenRead, bool> answers_;  // whether the pair shares the screen
  std::shared_ptr<Question> question_;  // the one under way
  Registration hold_;
  Registration connection_;
  Registration following_;
};

DesktopScreenSharing::DesktopScreenSharing(std::shared_ptr<MainLoop> mainLoop,
                                           std::shared_ptr<Bus> sessionBus,
                                           std::shared_ptr<ScreenReads> reads)
    : mainLoop_(std::move(mainLoop)), bus_(std::move(sessionBus)), reads_(std::move(reads)) {}

Registration DesktopScreenSharing::observe() {
  auto watch = watch_.lock();
  if (!watch) {
    watch = std::make_shared<Watch>(mainLoop_, bus_, reads_, isShared_);
    watch_ = watch;
  }
  return Registration([watch]() mutable { watch.reset(); });
}

}  // namespace sentrel
