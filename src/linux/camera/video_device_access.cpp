// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/video_device_access.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <system_error>

namespace sentrel {

bool mayReadVideoDevices(const std::filesystem::path& folder) {
  bool found = false;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with("video") || name.size() < 6 || name[5] < '0' || name[5] > '9') continue;
    if (faccessat(AT_FDCWD, entry->path().c_str(), R_OK, AT_EACCESS) == 0) return true;
    found = true;
  }
  return !found;
}

}  // namespace sentrel
