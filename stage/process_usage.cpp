// SPDX-License-Identifier: Apache-2.0
#include "stage/process_usage.h"

#include <filesystem>
#include <fstream>

namespace sentrel::test {

ProcessUsage ProcessUsage::of(pid_t pid) {
  namespace fs = std::filesystem;
  const fs::path process = fs::path("/proc") / std::to_string(pid);
  ProcessUsage usage;
  std::error_code error;
  for (const auto& task : fs::directory_iterator(process / "task", error)) {
    ++usage.threads;
    // The scheduler's own count; the ticks of "stat" miss what is shorter than a tick.
    double nanoseconds = 0;
    std::ifstream(task.path() / "schedstat") >> nanoseconds;
    usage.cpuSeconds += nanoseconds / 1e9;
    std::ifstream status(task.path() / "status");
    for (std::string name; status >> name; status.ignore(256, '\n')) {
      std::int64_t switches = 0;
      if (name == "voluntary_ctxt_switches:" && status >> switches) usage.wakeUps += switches;
    }
  }
  for (const auto& entry : fs::directory_iterator(process / "fd", error)) {
    const std::string kind = fs::read_symlink(entry.path(), error).string();
    ++usage.descriptors[kind.substr(0, kind.find_first_of("0123456789"))];
  }
  std::ifstream memory(process / "smaps_rollup");
  memory.ignore(256, '\n');
  for (std::string name; memory >> name; memory.ignore(256, '\n')) {
    double kib = 0;
    if (name == "Pss:" && memory >> kib) usage.proportionalMib = kib / 1024;
    if ((name == "Pss_Anon:" || name == "Pss_Shmem:") && memory >> kib) usage.ownMib += kib / 1024;
  }
  return usage;
}

int ProcessUsage::descriptorCount() const {
  int count = 0;
  for (const auto& [kind, number] : descriptors) count += number;
  return count;
}

}  // namespace sentrel::test
