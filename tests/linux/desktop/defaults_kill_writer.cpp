// SPDX-License-Identifier: Apache-2.0
//
// Writes settings without end and tells each step, until somebody kills it: a number before it sets it, and
// the negative number once it is in the file.
// defaults_kill_writer <file> <descriptor to tell on>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "linux/desktop/defaults_file.h"
#include "support/manual_main_loop.h"

int main(int argumentCount, char** arguments) {
  using namespace sentrel;
  if (argumentCount != 3) return 2;
  const int pipe = std::atoi(arguments[2]);  // NOLINT(cert-err34-c): the test's own
  const auto tell = [pipe](std::int64_t step) {
    if (::write(pipe, &step, sizeof step) != sizeof step) std::_Exit(3);
  };
  const auto loop = std::make_shared<test::ManualMainLoop>();
  DefaultsFile file(arguments[1], loop, std::make_shared<SerialQueue>("com.mardeck.sentrel.store"));
  const auto stored = file.value("first");
  std::int64_t number = stored ? std::get<std::int64_t>(*stored) : 0;
  for (;;) {
    ++number;
    tell(number);
    file.set("first", number);
    file.set("middle", std::string(static_cast<std::size_t>(number * 977 % 100'000), 'x'));
    file.set("last", number);
    loop->runPosted();
    if (!file.flush(std::chrono::seconds(30))) return 4;
    tell(-number);
  }
}
