// Seals, opens, digests and verifies files with krCrypto.hpp. A file to seal or to open has to fit in memory.
#include "Files.h"
#include "System.h"

#include <krOpenSSL/krCrypto.hpp>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

using namespace krOpenSSL;
using namespace krseal;

namespace {

constexpr std::string_view kUsage =
    "usage: krseal key KEYS                   makes new keys for seal and open\n"
    "       krseal seal KEYS IN OUT [NAME]    NAME has to be the same for open\n"
    "       krseal open KEYS IN OUT [NAME]\n"
    "       krseal digest ALGORITHM FILE      MD5, SHA-1, SHA-224, SHA-256, SHA-384 or SHA-512\n"
    "       krseal mac KEY FILE               HMAC-SHA-256; KEY is a file of hexadecimal digits\n"
    "       krseal verify KEY FILE MAC        MAC is hexadecimal\n\n"
    "OUT and KEYS must not be there yet. One that is ended in the middle leaves a part of OUT.\n"
    "The answer is 0; 1 for what is not good or fails; 2 for a wrong command line.\n";

constexpr int kWrongCommandLine = 2;

using Arguments = std::vector<std::string>;

struct Algorithm {
  std::string_view name;
  std::string (*digestOf)(const Path &file);
};
template <HashClass T> constexpr Algorithm algorithm() {
  return {kName<T>,
          [](const Path &file) { return about(file, [&] { return hex(digestFile<T>(file, shownProgress())); }); }};
}
constexpr std::array kAlgorithms{algorithm<kroMD5>(),    algorithm<kroSHA1>(),   algorithm<kroSHA224>(),
                                 algorithm<kroSHA256>(), algorithm<kroSHA384>(), algorithm<kroSHA512>()};

using Keys = SealKeys<256>;

Keys readKeys(const Path &file) {
  const SecretBytes bytes = readKey(file);
  if (bytes.size() != Keys::kBytes) {
    fail(file, "does not hold keys for seal and open");
  }
  return Keys(SecretArray<Keys::kBytes>(bytes));
}

ByteView associated(const Arguments &arguments) { return arguments.size() > 3 ? ByteView(arguments[3]) : ByteView(); }

int makeKeys(const Arguments &arguments) {
  const Keys keys = Keys::random();
  SecretBytes text = secretHex(keys.bytes());
  text.push_back('\n');
  writeFile(arguments[0], text, Access::owner);
  return EXIT_SUCCESS;
}

int sealFile(const Arguments &arguments) {
  const Keys keys = readKeys(arguments[0]);
  writeFile(arguments[2], seal(keys, readFile(arguments[1]), associated(arguments)));
  return EXIT_SUCCESS;
}

int openFile(const Arguments &arguments) {
  const Keys keys = readKeys(arguments[0]);
  const auto text = open(keys, readFile(arguments[1]), associated(arguments));
  if (!text) {
    std::cerr << "krseal: " << arguments[1] << " is not what was sealed with these keys and this name\n";
    return EXIT_FAILURE;
  }
  writeFile(arguments[2], *text, Access::owner);
  return EXIT_SUCCESS;
}

int digestOfFile(const Arguments &arguments) {
  const auto *const found = std::ranges::find(kAlgorithms, std::string_view(arguments[0]), &Algorithm::name);
  if (found == kAlgorithms.end()) {
    std::cerr << "krseal: no algorithm is called " << arguments[0] << '\n';
    return kWrongCommandLine;
  }
  std::cout << found->digestOf(arguments[1]) << '\n';
  return EXIT_SUCCESS;
}

SecretBytes readMacKey(const Path &file) {
  SecretBytes key = readKey(file);
  if (key.empty()) {
    fail(file, "holds no key");
  }
  return key;
}

void feed(Mac<kroSHA256> &mac, const Path &file) {
  readPieces(file, [&](auto piece) { mac.update(piece); });
}

int macOfFile(const Arguments &arguments) {
  Mac<kroSHA256> mac(readMacKey(arguments[0]));
  feed(mac, arguments[1]);
  std::cout << hex(mac.final()) << '\n';
  return EXIT_SUCCESS;
}

int verifyFile(const Arguments &arguments) {
  Mac<kroSHA256> mac(readMacKey(arguments[0]));
  feed(mac, arguments[1]);
  const bool good = mac.verify(about("MAC", [&] { return unhex(arguments[2]); }));
  std::cout << (good ? "good" : "NOT GOOD") << '\n';
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct Verb {
  std::string_view name;
  std::size_t fewest, most; // arguments
  int (*run)(const Arguments &arguments);
};
constexpr std::array kVerbs{Verb{"key", 1, 1, makeKeys},  Verb{"seal", 3, 4, sealFile},
                            Verb{"open", 3, 4, openFile}, Verb{"digest", 2, 2, digestOfFile},
                            Verb{"mac", 2, 2, macOfFile}, Verb{"verify", 3, 3, verifyFile}};

int run(const std::string &name, const Arguments &arguments) {
  for (const Verb &verb : kVerbs) {
    if (verb.name == name && verb.fewest <= arguments.size() && arguments.size() <= verb.most) {
      return verb.run(arguments);
    }
  }
  const bool wanted = name == "--help" || name == "-h";
  (wanted ? std::cout : std::cerr) << kUsage;
  return wanted ? EXIT_SUCCESS : kWrongCommandLine;
}

} // namespace

int main(int argc, char **argv) {
  try {
    silenceTrace();
    const Arguments words(argv + 1, argv + argc);
    const int status = words.empty() ? run("", {}) : run(words.front(), Arguments(words.begin() + 1, words.end()));
    if (!std::cout.flush()) {
      throw std::runtime_error("standard output takes nothing"); // an answer that nobody saw is none
    }
    return status;
  } catch (const std::exception &failure) {
    std::cerr << "krseal: " << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
