// Handshakes with delegated keys against those with a plain software key, on one thread and on two.
#include "Bench.h"
#include "Scene.h"

#include <memory>

namespace {

void add(const bench::Suite &suite) {
  const auto scene = std::make_shared<const bench::Scene>(suite);
  bench::add("handshake/" + std::string(suite.name), [scene] { return [scene] { return scene->play(); }; })
      ->ThreadRange(1, 2)
      ->UseRealTime();
}

void registerAll() {
  static const bench::Callbacks callbacks; // seen by keys that name no connection
  for (const bench::Suite &suite : bench::kSuites) {
    add(suite);
  }
}

} // namespace

int main(int argc, char **argv) {
  bench::ownKey(bench::Kind::rsa); // before set-up
  return bench::run(argc, argv, registerAll);
}
