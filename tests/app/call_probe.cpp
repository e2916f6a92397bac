// SPDX-License-Identifier: Apache-2.0
//
// Loaded into the program by the test: tries from within, on a thread that was there before main, what the
// program must not be able to do, once its filter is there.
#include <linux/io_uring.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

void tell(const char* what, long result) {
  std::fprintf(stderr, "probe: %s %s\n", what, result >= 0 ? "allowed" : std::strerror(errno));
  if (result > 2) close(static_cast<int>(result));
}

void probe() {
  while (prctl(PR_GET_SECCOMP) != 2) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  tell("local", socket(AF_UNIX, SOCK_STREAM, 0));
  tell("inet", socket(AF_INET, SOCK_STREAM, 0));
  tell("inet6", socket(AF_INET6, SOCK_DGRAM, 0));
  tell("netlink", socket(AF_NETLINK, SOCK_RAW, 0));
  tell("packet", socket(AF_PACKET, SOCK_RAW, 0));
  tell("vsock", socket(AF_VSOCK, SOCK_STREAM, 0));
  io_uring_params parameters{};
  tell("ring", syscall(SYS_io_uring_setup, 1, &parameters));
  std::array<char*, 1> none{nullptr};
  tell("program", execve("/bin/true", none.data(), none.data()));
  // With arguments that do nothing where they are allowed.
  const auto call = [](const char* name, long number, long first) {
    tell(name, syscall(number, first, 0, 0, 0, 0, 0));
  };
  call("ptrace", SYS_ptrace, PTRACE_CONT);
  call("process_vm_readv", SYS_process_vm_readv, getpid());
  call("process_vm_writev", SYS_process_vm_writev, getpid());
  call("pidfd_getfd", SYS_pidfd_getfd, -1);
  call("bpf", SYS_bpf, -1);
  call("userfaultfd", SYS_userfaultfd, -1);
  call("perf_event_open", SYS_perf_event_open, 0);
  call("keyctl", SYS_keyctl, -1);
  call("add_key", SYS_add_key, 0);
  call("request_key", SYS_request_key, 0);
  call("init_module", SYS_init_module, 0);
  call("finit_module", SYS_finit_module, -1);
  call("delete_module", SYS_delete_module, 0);
  std::fputs("probe: done\n", stderr);
}

[[gnu::constructor]] void begin() {
  std::thread(probe).detach();
}

}  // namespace
