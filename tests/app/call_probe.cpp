// SPDX-License-Identifier: Apache-2.0
//
// Loaded into the program by the test: tries from within, on a thread that was there before main, what the
// program must not be able to do, once its filter is there.
#include <linux/io_uring.h>
#include <sys/prctl.h>
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
  std::fputs("probe: done\n", stderr);
}

[[gnu::constructor]] void begin() {
  std::thread(probe).detach();
}

}  // namespace
