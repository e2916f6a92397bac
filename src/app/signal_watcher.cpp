// SPDX-License-Identifier: Apache-2.0
#include "app/signal_watcher.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace sentrel {

SignalWatcher::SignalWatcher() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

void SignalWatcher::watch(std::function<void()> onSignal) {
  if (descriptor_ < 0) return;
  notifier_ = std::make_unique<QSocketNotifier>(descriptor_, QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                   [descriptor = descriptor_, call = std::move(onSignal)] {
                     signalfd_siginfo info{};
                     while (read(descriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) call();
                   });
}

SignalWatcher::~SignalWatcher() {
  notifier_.reset();
  if (descriptor_ >= 0) close(descriptor_);
}

}  // namespace sentrel
