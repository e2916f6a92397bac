// SPDX-License-Identifier: Apache-2.0
//
// Loaded into the program by its tests: tries from within, on a thread that was there before main, what the
// program must not be able to do, once its filter is there. Memory that was let go is not given back early,
// so that nobody relies on it.
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

void tell(const char* what, long number, long result) {
  std::fprintf(stderr, "probe: %s %ld %s\n", what, number, result >= 0 ? "allowed" : std::strerror(errno));
}

void probe() {
  while (prctl(PR_GET_SECCOMP) != 2) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  for (const int family : {AF_UNIX, AF_INET, AF_INET6, AF_NETLINK, AF_PACKET, AF_VSOCK})
    tell("socket", family, socket(family, SOCK_DGRAM, 0));
  // With arguments that do nothing where they are allowed.
  for (const long call :
       {SYS_io_uring_setup, SYS_execve, SYS_execveat, SYS_process_vm_readv, SYS_process_vm_writev,
        SYS_pidfd_getfd, SYS_bpf, SYS_userfaultfd, SYS_perf_event_open, SYS_keyctl, SYS_add_key,
        SYS_request_key, SYS_init_module, SYS_finit_module, SYS_delete_module})
    tell("call", call, syscall(call, -1, 0, 0, 0, 0, 0));
  tell("call", SYS_ptrace, syscall(SYS_ptrace, PTRACE_CONT, 0, 0, 0));
  std::fputs("probe: done\n", stderr);
}

[[gnu::constructor]] void begin() {
  std::thread(probe).detach();
}

}  // namespace

int malloc_trim(size_t /*pad*/) {
  return 0;
}
