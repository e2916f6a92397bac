// SPDX-License-Identifier: Apache-2.0
#include <span>

#include "app/command_line.h"
#include "app/event_log.h"
#include "app/sentrel_mac_app.h"
#include "linux/desktop/standard_error.h"
#include "linux/hardening/process_hardening.h"

int main(int argc, char** argv) {
  // First of all: who only asks for words has no use for what follows.
  const std::span given(argv, static_cast<std::size_t>(argc));
  if (const auto status = sentrel::answerCommandLine(given.subspan(given.empty() ? 0 : 1))) return *status;
  sentrel::obeyLoggingRules();
  // Before anything else could open, start or copy something.
  const bool isFiltered = sentrel::installSystemCallFilter();
  const bool isKeptOut = sentrel::keepMemoryOutOfCoreDumps();
  // Static, so that it outlives the shared instances, which are made later.
  static sentrel::SentrelMacApp app(argv, given.size() > 1 ? sentrel::Launch::bus : sentrel::Launch::person);
  if (!isFiltered) sentrel::printError(qtTrId("error_no_call_filter"));
  if (!isKeptOut) sentrel::printError(qtTrId("error_core_dumps"));
  return app.run();
}
