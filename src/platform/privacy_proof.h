// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sentrel {

/// What kernel, disk and camera answered when the program asked them about itself: a plain value.
struct PrivacyFacts {
  /// A call that was really made.
  struct Attempt {
    std::string call;
    std::string answer;  ///< the name of the error, or that it was done
    bool isRefused = false;
  };
  /// A file on a disk that this process could write to.
  struct OpenFile {
    int descriptor = 0;
    std::string path;
    bool isKnown = false;  ///< where messages go, or one of the kept files
  };
  struct KeptFile {
    std::string path;
    std::int64_t bytes = 0;
    std::int64_t changedMs = 0;  ///< since 1970
    bool isPrivate = false;      ///< nobody else may read it
    std::string content;         ///< its beginning
  };

  int process = 0;
  int filterMode = 0;  ///< of its system calls: 2 is a filter; 0 is none, or a kernel that knows of none
  std::vector<Attempt> sockets;
  Attempt program;
  std::string coreDumps;  ///< the filter as the kernel tells it; empty where there is none
  bool isDumpable = true;
  std::vector<OpenFile> openForWriting;
  std::vector<KeptFile> keptFiles;
  std::optional<std::int64_t> cameraOpenMs;  ///< how long the camera has been open; none while it is closed
  std::int64_t framesInMemory = 0;
};

/// Tries what the program says it cannot do, and looks at what it keeps. Main thread.
class PrivacyProof {
 public:
  virtual ~PrivacyProof() = default;
  /// Asks everything anew, and tells in a later turn.
  virtual void ask(std::function<void(const PrivacyFacts& facts)> told) = 0;
};

}  // namespace sentrel
