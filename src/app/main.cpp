// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <span>

#include "app/command_line.h"
#include "app/event_log.h"
#include "app/sentrel_mac_app.h"
#include "linux/hardening/process_hardening.h"

int main(int argc, char** argv) {
  // First of all: who only asks for words has no use for what follows.
  const std::span given(argv, static_cast<std::size_t>(argc));
  if (const auto status = sentrel::answerCommandLine(given.subspan(given.empty() ? 0 : 1))) return *status;
  sentrel::obeyLoggingRules();
  // Before anything else could open, start or copy something.
  if (!sentrel::installSystemCallFilter())
    std::fputs("sentrel: the kernel cannot be told to refuse network sockets\n", stderr);
  if (!sentrel::keepMemoryOutOfCoreDumps())
    std::fputs("sentrel: memory cannot be left out of core dumps\n", stderr);
  // Static, so that it outlives the shared instances, which are made later and need the Qt application to
  // end.
  static sentrel::SentrelMacApp app(argv, given.size() > 1 ? sentrel::Launch::bus : sentrel::Launch::person);
  return app.run();
}
