// krref: makes, shows and checks references to keys that a key holder has.
#include "SystemOpenSSL.h"
#include "TestSignature.h"
#include "reference/ReferenceFile.h"

#include <krOpenSSL/krHandles.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>
#include <vector>

using namespace krHolder;

namespace {

constexpr std::string_view kUsage =
    "usage: krref make [--socket PATH] NAME FILE   writes a reference to the holder's key NAME\n"
    "       krref show FILE                        what stands in a reference\n"
    "       krref check [--socket PATH] FILE       asks the holder, compares the key, has it sign; and says whether "
    "the\n"
    "                                              system's OpenSSL, in this environment, takes the reference\n\n"
    "The socket is --socket's, else the reference's, else KRHOLDER_SOCKET's, else /run/krholder/socket.\n"
    "A reference that is made with --socket names it. The answer is 0; 1 for what is not good; 2 for a wrong command "
    "line.\n";
constexpr int kWrongCommandLine = 2;

using Words = std::vector<std::string>;

ClientOptions optionsFor(const std::string &socket) {
  const char *const fromEnvironment = std::getenv("KRHOLDER_SOCKET"); // NOLINT(concurrency-mt-unsafe): one thread
  ClientOptions options;
  if (!socket.empty()) {
    options.socket = socket;
  } else if (fromEnvironment != nullptr) {
    options.socket = fromEnvironment;
  }
  return options;
}

std::string textOf(const Answer &answer) { return {answer.data.begin(), answer.data.end()}; }

int make(const std::string &socket, const Words &words) {
  Client holder(optionsFor(socket));
  const Answer answer = holder.ask({Operation::publicKey, 0, 0, {}, words[0], {}});
  if (answer.status != Status::ok) {
    throw std::runtime_error("the holder refuses: " + textOf(answer));
  }
  writeReferenceFile(words[1], {words[0], answer.data, socket});
  return EXIT_SUCCESS;
}

int show(const std::string & /*socket*/, const Words &words) {
  const Reference reference = readReferenceFile(words[0]);
  std::cout << "name: " << (reference.name.empty() ? "(by its public key)" : reference.name) << '\n'
            << "socket: " << (reference.socket.empty() ? "(as the program is set up)" : reference.socket) << '\n'
            << std::flush;
  const unsigned char *der = reference.publicKey.data();
  const krOpenSSL::EVPPKeyPtr key(d2i_PUBKEY(nullptr, &der, static_cast<long>(reference.publicKey.size())));
  const krOpenSSL::BIOPtr out(BIO_new_fp(stdout, BIO_NOCLOSE));
  const bool shown = key && out && EVP_PKEY_print_public(out.get(), key.get(), 0, nullptr) == 1;
  return shown ? EXIT_SUCCESS : EXIT_FAILURE;
}

int check(const std::string &socket, const Words &words) {
  const Reference reference = readReferenceFile(words[0]);
  Client holder(optionsFor(socket.empty() ? reference.socket : socket));
  const std::string what = testSignature(holder, reference);
  std::cout << words[0] << ": good: " << holder.options().socket << " signed " << what << '\n';
  if (const std::string complaint = complaintOfOpenSSL(words[0]); !complaint.empty()) {
    std::cout << words[0] << ": but programs of the system's OpenSSL do not take it here (" << complaint
              << "): does the configuration that they read, OPENSSL_CONF's or the system's, load krprovider.so?\n";
  }
  return EXIT_SUCCESS;
}

struct Verb {
  std::string_view name;
  std::size_t words;
  int (*run)(const std::string &socket, const Words &words);
};
constexpr std::array kVerbs{Verb{"make", 2, make}, Verb{"show", 1, show}, Verb{"check", 1, check}};

int run(Words words) {
  const bool wanted = words.size() == 1 && words[0] == "--help";
  const std::string name = words.empty() ? "" : words[0];
  words.erase(words.begin(), words.begin() + (words.empty() ? 0 : 1));
  std::string socket;
  if (words.size() > 2 && words[0] == "--socket" && name != "show") {
    socket = words[1];
    words.erase(words.begin(), words.begin() + 2);
  }
  for (const Verb &verb : kVerbs) {
    if (verb.name == name && verb.words == words.size()) {
      return verb.run(socket, words);
    }
  }
  (wanted ? std::cout : std::cerr) << kUsage;
  return wanted ? EXIT_SUCCESS : kWrongCommandLine;
}

} // namespace

int main(int argc, char **argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const std::exception &failure) {
    std::cerr << "krref: " << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
