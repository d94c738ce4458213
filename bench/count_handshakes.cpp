// Handshakes to count instructions of: without arguments it lists the suites, with a suite and a number it makes that
// many handshakes, each in a call of bench::Scene::play.
#include "Scene.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace {

bool play(const bench::Suite &suite, int count) {
  const bench::Callbacks callbacks;
  const bench::Scene scene(suite);
  bool done = true;
  for (int i = 0; i < count && done; ++i) {
    done = scene.play();
  }
  return done;
}

int run(int argc, char **argv) {
  if (argc < 3) {
    std::ranges::for_each(bench::kSuites, [](const bench::Suite &suite) { std::cout << suite.name << '\n'; });
    return 0;
  }
  const auto *const suite = std::ranges::find(bench::kSuites, std::string_view(argv[1]), &bench::Suite::name);
  bench::ownKey(bench::Kind::rsa); // before set-up
  if (suite == bench::kSuites.end()) {
    return 1;
  }
  const krOpenSSL::Library library;
  return play(*suite, std::atoi(argv[2])) ? 0 : 1; // NOLINT(cert-err34-c): 0 when it is no number
}

} // namespace

int main(int argc, char **argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception &failure) {
    std::cerr << "count_handshakes: " << failure.what() << '\n';
    return 1;
  }
}
