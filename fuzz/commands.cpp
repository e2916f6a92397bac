// SPDX-License-Identifier: Apache-2.0
//
// The command line, an argument a line, where no program runs.
#include <array>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/doctor.h"
#include "fuzz_input.h"

namespace sentrel {

// No argument leads into what the machine is examined for; in its place stands nothing.
Report examineWithout(ProgramFacts::Running /*running*/) {
  return {};
}
QString asText(const Report& /*report*/) {
  return {};
}

}  // namespace sentrel

namespace {

constexpr std::size_t mostArguments = 8;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  for (const char* variable : {"HOME", "XDG_STATE_HOME"}) setenv(variable, "/nowhere", 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words(1);
  for (const char c : std::string(reinterpret_cast<const char*>(data), size)) {
    if (c == '\0') continue;
    if (c != '\n') {
      words.back() += c;
    } else if (words.size() < mostArguments) {
      words.emplace_back();
    }
  }
  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word.c_str());
  const auto status = sentrel::answerCommandLine(arguments);
  const bool starts = words.size() == 1 && words.front() == "--service";
  sentrel::fuzz::require(status.has_value() != starts && status.value_or(0) >= 0 && status.value_or(0) <= 3);
  return 0;
}
