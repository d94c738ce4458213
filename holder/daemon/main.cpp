// krholder: keeps private keys for programs that have references to them.
#include "Failure.h"
#include "Server.h"

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <vector>

namespace {

constexpr std::string_view kUsage = "usage: krholder CONFIG        serves the keys of a TOML file\n"
                                    "       krholder check CONFIG  says what is wrong with it\n";
constexpr int kWrongCommandLine = 2;
constexpr int kUnusable = 78; // EX_CONFIG: starting it again does not help

int run(const std::vector<std::string> &words) {
  if (words.size() == 2 && words[0] == "check") {
    krHolder::Metrics unused;
    const krHolder::Service service(krHolder::readConfig(words[1]), unused);
    std::cout << words[1] << ": good\n";
    return EXIT_SUCCESS;
  }
  if (words.size() != 1 || words[0] == "--help") {
    (words.size() == 1 ? std::cout : std::cerr) << kUsage;
    return words.size() == 1 ? EXIT_SUCCESS : kWrongCommandLine;
  }
  krHolder::Server(words[0]).run();
  return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const krHolder::Unusable &reason) {
    std::cerr << "krholder: " << reason.what() << '\n';
    return kUnusable;
  } catch (const std::exception &failure) {
    std::cerr << "krholder: " << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
