// SPDX-License-Identifier: Apache-2.0
#include "vision/model_folder.h"

#include <system_error>

#include "model_constants.h"

namespace sentrel::vision {

std::filesystem::path modelFolder() {
  namespace fs = std::filesystem;
  fs::path inData = fs::path(installedDataFolder) / "sentrel" / "models";
  if (inData.is_absolute()) return inData;
  std::error_code error;
  const fs::path binary = fs::read_symlink("/proc/self/exe", error);
  // An installed program is one folder below its prefix, a built one up to three below its build folder.
  fs::path root = binary.parent_path();
  for (int level = 0; level < 4 && root.has_relative_path(); ++level, root = root.parent_path()) {
    if (fs::is_directory(root / inData, error)) return root / inData;
  }
  return binary.parent_path().parent_path() / inData;
}

}  // namespace sentrel::vision
