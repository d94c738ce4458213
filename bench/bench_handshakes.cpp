// Handshakes with delegated keys against those with a plain software key, on one thread and on two.
#include "Bench.h"
#include "Scene.h"

#include <memory>

namespace {

void add(const bench::Suite &suite) {
  const auto scene = std::make_shared<const bench::Scene>(suite);
  const auto make = [scene] { return [scene] { return scene->play(); }; };
  const std::string name = "handshake/" + std::string(suite.name);
  bench::add(name, make)->Threads(1);
  bench::add(name, make)->Threads(2)->UseRealTime();
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
