// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "platform/capture_session.h"
#include "platform/privacy_proof.h"
#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel {

/// Where the program keeps files. An empty path is none.
struct KeptPlaces {
  std::vector<std::filesystem::path> folders;  ///< all of whose files are its own
  std::vector<std::filesystem::path> files;
};

/// Asks the kernel and the disk, about this process and as this process: sockets are opened and a program
/// (/bin/true) is started where nothing refuses that, and closed and waited for again. Says nothing of the
/// camera. Any thread.
[[nodiscard]] PrivacyFacts examineProcess(const KeptPlaces& places);

/// Asks on a queue, where waiting for the disk holds up nobody.
class SelfExamination final : public PrivacyProof {
 public:
  struct Parts {
    std::shared_ptr<MainLoop> mainLoop;
    std::shared_ptr<SerialQueue> queue;
    std::shared_ptr<CaptureSession> captureSession;
    KeptPlaces places;
  };

  explicit SelfExamination(Parts parts) : parts_(std::move(parts)) {}
  void ask(std::function<void(const PrivacyFacts& facts)> told) override;

 private:
  const Parts parts_;
};

}  // namespace sentrel
