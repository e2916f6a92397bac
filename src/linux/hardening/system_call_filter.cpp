// SPDX-License-Identifier: Apache-2.0
#include "linux/hardening/system_call_filter.h"

#include <seccomp.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <type_traits>

namespace sentrel {

namespace {

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
                        refuse(SCMP_SYS(io_uring_setup)) && refuse(SCMP_SYS(execve)) &&
                        refuse(SCMP_SYS(execveat));
  return complete && seccomp_load(filter.get()) == 0;
}

}  // namespace sentrel
