// SPDX-License-Identifier: Apache-2.0
//
// sentrel-soak MINUTES FOLDER [SEED] [PROGRAM]: the program, the one of this build unless another is named,
// with a random life on a private desktop. Fails when the program breaks one of its promises or leaves
// something behind. Leaves a log in the folder.
#include <QCoreApplication>
#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>

#include "soak.h"

namespace {

std::atomic<bool> interrupted = false;

template <class Number>
bool read(std::string_view text, Number& number) {
  const auto end = text.data() + text.size();
  return std::from_chars(text.data(), end, number).ptr == end;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace sentrel::test;  // NOLINT(google-build-using-namespace): a program of one function
  int minutes = 0;
  unsigned seed = std::random_device()() % 1'000'000;
  if (argc < 3 || argc > 5 || !read(argv[1], minutes) || minutes < 1 || (argc > 3 && !read(argv[3], seed))) {
    std::fputs("usage: sentrel-soak MINUTES FOLDER [SEED] [PROGRAM]\n", stderr);
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, [](int) { interrupted = true; });
  try {
    HeadlessDesktop desktop({.systemBus = true,
                             .pipeWire = true,
                             .x11 = true,
                             .width = SoakLife::screenWidth * SoakLife::mostScreens,
                             .height = SoakLife::screenHeight});
    desktop.exportToProcess();
    const QCoreApplication application(argc, argv);
    const auto folder = std::filesystem::absolute(argv[2]);
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return Soak(desktop, {.length = std::chrono::minutes(minutes),
                          .seed = seed,
                          .folder = folder,
                          .program = argc > 4 ? argv[4] : SENTREL_PROGRAM,
                          .interrupted = interrupted})
        .run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-soak: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
