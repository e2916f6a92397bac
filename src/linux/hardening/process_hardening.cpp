// SPDX-License-Identifier: Apache-2.0
#include "linux/hardening/process_hardening.h"

#include <fcntl.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <type_traits>

namespace sentrel {

namespace {

/// What no part of the program asks for, whatever its arguments. The user unit (share/systemd.service.in)
/// refuses more, and tests/app/preloaded.cpp tries each.
constexpr std::array refusedCalls{
    // Sockets and programs by other ways.
    SCMP_SYS(io_uring_setup), SCMP_SYS(execve), SCMP_SYS(execveat),
    // Other processes' memory and descriptors.
    SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev), SCMP_SYS(pidfd_getfd),
#ifndef __SANITIZE_ADDRESS__  // the search for leaks stops the process with it
    SCMP_SYS(ptrace),
#endif
    // Parts of the kernel that faults of programs are turned into faults of the kernel with.
    SCMP_SYS(bpf), SCMP_SYS(userfaultfd), SCMP_SYS(perf_event_open), SCMP_SYS(keyctl), SCMP_SYS(add_key),
    SCMP_SYS(request_key), SCMP_SYS(init_module), SCMP_SYS(finit_module), SCMP_SYS(delete_module)};

struct Release {
  void operator()(void* filter) const { seccomp_release(filter); }
};

}  // namespace

bool installSystemCallFilter() {
  const std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, Release> filter(seccomp_init(SCMP_ACT_ALLOW));
  if (!filter) return false;
  const auto refuse = [&](int call) {
    return seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 0) == 0;
  };
  // The display, the buses and PipeWire are local; a device manager's netlink socket is not asked for.
  const bool complete = seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1) == 0 &&
                        seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(socket), 1,
                                         SCMP_A0(SCMP_CMP_NE, AF_UNIX)) == 0 &&
                        std::ranges::all_of(refusedCalls, refuse);
  return complete && seccomp_load(filter.get()) == 0;
}

bool keepMemoryOutOfCoreDumps() {
  // A bit for each kind of memory; the only one left lets a debugger identify the loaded files.
  constexpr std::string_view headersOfFiles = "0x10";
  const int setting = open("/proc/self/coredump_filter", O_WRONLY | O_CLOEXEC);
  if (setting >= 0) {
    const bool written = write(setting, headersOfFiles.data(), headersOfFiles.size()) ==
                         static_cast<ssize_t>(headersOfFiles.size());
    close(setting);
    if (written) return true;
  }
  return prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0;
}

}  // namespace sentrel
