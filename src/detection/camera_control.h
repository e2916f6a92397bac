// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "detection/av_capture_manager.h"
#include "platform/capture_session.h"
#include "platform/desktop_services.h"
#include "platform/session_events.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// What keeps the camera from giving frames, for the person.
struct CameraFailure {
  enum class Kind {
    noCamera,
    cameraDenied,
    cameraBusy,
    modelMissing,
    noPipeWire,
    analysisFailed,
    noConsent  ///< the person said no, or not yet
  };
  Kind kind = Kind::noCamera;
  std::string detail;  ///< for a log line: the key of a text, or what another program said; may be empty
  bool operator==(const CameraFailure&) const = default;
};

/// The key of the text that tells a person of `kind`.
const char* textKey(CameraFailure::Kind kind);

/// The key of what the person can do about `kind`.
const char* adviceKey(CameraFailure::Kind kind);

CameraFailure describe(const StartError& error);

/// Owns the decision whether the camera is open, and alone opens and closes it. It knows who wishes the
/// camera open, the reasons to keep it closed (rests), and what the camera answered last. The rules:
///
///  - The camera is open while there is a wish and no rest.
///  - A camera that does not open is tried again every 5 s, and at once when something that was missing may
///    have appeared. One whose use was denied is tried again only then.
///  - While protection wishes it, the camera counts as seeing only while analysed frames come. When none
///    come, though the capture session reports no interruption, session and detector are restarted.
///
/// While there is a wish, the session's events are observed, so that the camera closes when the person goes
/// away. Main thread, to be owned by a shared pointer.
class CameraControl : public std::enable_shared_from_this<CameraControl> {
 public:
  enum class Wish { protection, calibration };

  /// A reason to keep the camera closed. Of several, the first is reported.
  enum class Rest {
    quitting,
    noConsent,       ///< the person said no; the next wish asks again
    away,            ///< locked, asleep, another session, or the displays are off
    sessionUnknown,  ///< it is not known yet whether the session is locked
    userPaused,      ///< for a time; ends with `away` too
    screenShared,    ///< the person wants no alerts while others see the screen
    lowBattery,      ///< ends with `away` too
  };

  struct Status {
    enum class Kind {
      closed,   ///< no wish
      resting,  ///< wished, but closed because of `rest`
      opening,  ///< for the first time since it was closed
      seeing,   ///< open; frames are analysed, or it is too early for one
      blind,    ///< wished, but no frames are analysed; `failure()` says why
    };
    Kind kind = Kind::closed;
    Rest rest = Rest::quitting;  ///< of `resting`
    bool operator==(const Status&) const = default;
  };

  /// Without an analysed frame for this long the camera is blind. Below the 2.5 s within which the person
  /// must learn of it.
  static constexpr std::int64_t frameTimeoutMs = 2300;
  static constexpr std::int64_t retryMs = 5000;
  static constexpr int mostFailedFrames = 10;

  struct Dependencies {
    std::shared_ptr<MainLoop> mainLoop;
    std::shared_ptr<Clock> clock;
    std::shared_ptr<CameraFeedProviding> camera;
    std::shared_ptr<CaptureSession> captureSession;
    std::shared_ptr<SessionEvents> sessionEvents;
  };

  explicit CameraControl(Dependencies dependencies);
  /// The process's control, over the shared instances.
  static const std::shared_ptr<CameraControl>& shared();

  /// Wishes the camera open until the registration ends. Several may be held.
  [[nodiscard]] Registration wish(Wish wish);
  void setRest(Rest rest, bool holds);
  /// The reason to keep the camera closed at this moment, or none.
  [[nodiscard]] std::optional<Rest> rest() const;

  /// Whether the camera may be used, so that nobody has to be asked.
  [[nodiscard]] bool isPermitted() const;
  /// Whether any camera is listed.
  [[nodiscard]] bool hasCamera() const { return !uses_.captureSession->devices().empty(); }
  /// As `CaptureSession::otherUser`.
  [[nodiscard]] std::string otherUser() const { return uses_.captureSession->otherUser(); }

  /// An analysed frame, by the time at which it was accepted.
  void frameAnalysed(std::int64_t timestampMs);
  /// A frame on which the detection failed.
  void analysisFailed();
  /// Something that was missing may have appeared.
  void retryNow();

  [[nodiscard]] const Published<Status>& status() const { return status_; }
  /// Why the camera is blind or not permitted; none while all is well.
  [[nodiscard]] const Published<std::optional<CameraFailure>>& failure() const { return failure_; }

 private:
  enum class Camera {
    closed,
    opening,
    open,
    failed,   ///< to be tried again
    closing,  ///< to be opened again once it is closed
  };

  void update();
  void publish();
  void open();
  void opened(const std::optional<StartError>& error);
  void close();
  void reopen();
  void lose(CameraFailure failure);
  void beginToSee(std::int64_t sinceMs);
  void watch();
  void retryLater();
  void retryDue();
  void observeSession();
  void sessionChanged(SessionEvent event);
  void endWish(Wish wish);
  [[nodiscard]] Status derivedStatus() const;

  const Dependencies uses_;
  std::multiset<Wish> wishes_;
  std::set<Rest> rests_;
  Camera camera_ = Camera::closed;
  int attempt_ = 0;                     // to open it; the answer to an earlier one comes too late
  std::optional<CameraFailure> cause_;  // why nothing is seen; kept while it is tried again
  std::int64_t sinceMs_ = 0;  // the newest analysed frame or the opening; while blind, its beginning
  int failedFrames_ = 0;      // in a row
  bool news_ = false;         // something appeared while it was opening

  Published<Status> status_;
  Published<std::optional<CameraFailure>> failure_;
  Registration timer_;  // of the watch while something is seen, of the retry otherwise
  Registration sessionRegistration_;
  Registration interrupted_;
  Registration interruptionEnded_;
  Registration devicesChanged_;
  Registration devices_;  // observed while the camera is to be open
};

}  // namespace sentrel
