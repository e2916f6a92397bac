// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "service/privacy_filter_service.h"

namespace sentrel {

/// What comes from outside our own windows: commands of other programs, and answers to our notifications.
/// Whatever weakens protection is refused while the screen is locked, and told to the person: a notification
/// says that it was a command, and `news()` lets the popover say it until it was seen. Main thread.
class RemoteControl {
 public:
  enum class Answer {
    done,
    locked,      ///< refused: the screen is locked
    off,         ///< refused: protection is switched off
    paused,      ///< refused: no guests while the camera rests
    misused,     ///< refused: a duration or a number out of range
    impossible,  ///< refused: no screen of this desktop can be covered
  };
  /// Tells what a command has done, until that ends.
  static constexpr const char* notification = "sentrel.off";

  enum class Origin { command, notification };

  /// `quit` ends the program in a later turn.
  RemoteControl(std::shared_ptr<PrivacyFilterService> service, Platform platform, std::function<void()> quit);

  Answer switchOn();
  Answer switchOff();
  Answer toggle();
  /// 1..Relaxations::longestMs.
  Answer pause(std::int64_t durationMs);
  Answer resume();
  /// 1..OnlookerRules::mostGuests in all, until the next lock where there is no duration.
  Answer welcome(std::int64_t guests, std::optional<std::int64_t> durationMs);
  Answer sendGuestsAway();
  /// Covers every screen, or uncovers them; it weakens nothing.
  Answer cover();
  [[nodiscard]] const Published<bool>& isCovered() const { return service_->screenCover().isCovered(); }
  Answer quit();

  /// Where the last weakening came from that the person has not seen yet.
  [[nodiscard]] const Published<std::optional<Origin>>& news() const { return news_; }
  void seen() { news_.assignIfChanged(std::nullopt); }

 private:
  /// Why what weakens protection is refused at this moment, or `done`.
  [[nodiscard]] Answer mayWeaken() const;
  Answer weakened(bool done, const char* title);
  /// What was told under this title has ended.
  void ended(std::string_view title);
  void answered(const std::string& notification, const std::string& action);

  const std::shared_ptr<PrivacyFilterService> service_;
  const Platform platform_;
  const std::function<void()> quit_;
  Published<std::optional<Origin>> news_;
  std::string_view told_;  // the key of the title under which something is told; empty: nothing is
  std::vector<Registration> observed_;
};

}  // namespace sentrel
