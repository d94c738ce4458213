// krholder's command line.
#include "Daemon.h"

#include "Failure.h"
#include "Server.h"

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string_view>

namespace krHolder {

namespace {

constexpr std::string_view kUsage = "usage: krholder CONFIG        serves the keys of a TOML file\n"
                                    "       krholder check CONFIG  says what is wrong with it\n";
constexpr int kWrongCommandLine = 2;
constexpr int kUnusable = 78; // EX_CONFIG: starting it again does not help

int run(const std::vector<std::string> &words, BackEnds backEnds) {
  if (words.size() == 2 && words[0] == "check") {
    Metrics unused;
    const Service service(readConfig(words[1], backEnds), unused);
    std::cout << words[1] << ": good\n";
    return EXIT_SUCCESS;
  }
  if (words.size() != 1 || words[0] == "--help") {
    (words.size() == 1 ? std::cout : std::cerr) << kUsage;
    return words.size() == 1 ? EXIT_SUCCESS : kWrongCommandLine;
  }
  Server(words[0], std::move(backEnds)).run();
  return EXIT_SUCCESS;
}

} // namespace

int run(int argc, char **argv, BackEnds own) {
  try {
    BackEnds all{fileBackEnd(), tokenBackEnd()};
    std::ranges::move(own, std::back_inserter(all));
    return run({argv + 1, argv + argc}, std::move(all));
  } catch (const Unusable &reason) {
    std::cerr << "krholder: " << reason.what() << '\n';
    return kUnusable;
  } catch (const std::exception &failure) {
    std::cerr << "krholder: " << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}

} // namespace krHolder
