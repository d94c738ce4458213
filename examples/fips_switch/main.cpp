// Into FIPS mode and back: a key that OpenSSL never sees signs in both, and the log tells what wolfEngine did.
// Where FIPS mode cannot be switched on, it says at which step wolfEngine failed.
#include "Diagnosis.h"

#include <krOpenSSL/krDelegate.hpp>
#include <krOpenSSL/krOpenSSL.h>

#include <openssl/err.h>

#include <array>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

using namespace krOpenSSL;

namespace {

constexpr std::string_view kUsage = "usage: fips_switch [LOG_FILE]\n\n"
                                    "Signs with a delegated key in ordinary mode, in FIPS mode and back again, and "
                                    "prints the end of the\n"
                                    "library's log. LOG_FILE says where that is, if not in the usual place.\n";

// What stands for a token or a key service here: a key that only the callback below touches, and that with
// OpenSSL's own method.
EVPPKeyPtr keyStore;
int signedByStore = 0;

int signInKeyStore(int length, const unsigned char *from, unsigned char *to, RSA * /*publicHalf*/, int padding) {
  ++signedByStore;
  return RSA_meth_get_priv_enc(RSA_PKCS1_OpenSSL())(length, from, to, krOpenSSL::keyObject::rsaOf(keyStore.get()),
                                                    padding);
}

EVPPKeyPtr makeKey() {
  EVP_PKEY *key = nullptr;
  const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
  EVP_PKEY_keygen_init(context.get());
  EVP_PKEY_keygen(context.get(), &key);
  return EVPPKeyPtr(key);
}

const char *rsaEngine() {
  ENGINE *engine = ENGINE_get_default_RSA();
  const char *id = engine != nullptr ? ENGINE_get_id(engine) : "OpenSSL";
  ENGINE_finish(engine);
  return id;
}

bool signAndVerify() {
  static const std::string message = "signed in every mode";
  const auto *data = reinterpret_cast<const unsigned char *>(message.data());
  const EVPPKeyPtr key = publicHalf(keyStore.get()); // bound to the engine that serves RSA now
  std::vector<unsigned char> signature(static_cast<std::size_t>(EVP_PKEY_size(key.get())));
  std::size_t length = signature.size();
  const EVPMDCtxPtr signing(EVP_MD_CTX_new());
  const EVPMDCtxPtr verifying(EVP_MD_CTX_new());
  return EVP_DigestSignInit(signing.get(), nullptr, EVP_sha256(), nullptr, key.get()) > 0 &&
         EVP_DigestSign(signing.get(), signature.data(), &length, data, message.size()) > 0 &&
         EVP_DigestVerifyInit(verifying.get(), nullptr, EVP_sha256(), nullptr, key.get()) > 0 &&
         EVP_DigestVerify(verifying.get(), signature.data(), length, data, message.size()) == 1;
}

// The library's trace goes to standard output, so this goes to standard error.
bool report() {
  const int before = signedByStore;
  const bool good = signAndVerify();
  std::cerr << (krFipsMode() != 0 ? "FIPS mode:     " : "ordinary mode: ") << "RSA is served by " << rsaEngine()
            << "; the delegated key's signature was made by "
            << (signedByStore > before ? "the key store" : "someone else") << " and is " << (good ? "good" : "BAD")
            << '\n';
  ERR_print_errors_cb([](const char *text, std::size_t, void *) { return (std::cerr << text) ? 1 : 0; }, nullptr);
  return good && signedByStore > before;
}

std::string defaultLogFile() {
  std::string folder = "/var/lib";
  for (const char *variable : {"ProgramData", "KR_PROGRAM_DATA"}) { // of Windows, of Linux
    const char *value = std::getenv(variable);                      // NOLINT(concurrency-mt-unsafe): one thread
    folder = value != nullptr ? value : folder;
  }
  return folder + "/Corvane/Logging/krOpenSSL.log";
}

void printTail(const std::string &path) {
  constexpr std::size_t kLines = 10;
  std::ifstream log(path);
  std::deque<std::string> tail;
  for (std::string line; std::getline(log, line);) {
    tail.push_back(line);
    if (tail.size() > kLines) {
      tail.pop_front();
    }
  }
  std::cerr << (tail.empty() ? "nothing in the log " : "the end of the log ") << path << '\n';
  for (const std::string &line : tail) {
    std::cerr << "  " << line << '\n';
  }
}

bool run() {
  const Library library;
  keyStore = makeKey();
  krEngineSetRSAPrivateKeyOpCallback(signInKeyStore, 1);
  if (!report()) {
    return false;
  }
  krFipsUseOpenSSLFIPS(1);
  if (krFipsModeOn() != kFipsOk) {
    std::cerr << "FIPS mode cannot be switched on\n" << fips_switch::diagnoseWolfEngine();
    return false;
  }
  if (krSetWolfEngineLogLevel(1) == 0) {
    std::cerr << "wolfEngine does not take every command for its logging, so it is switched off again\n";
    krSetWolfEngineLogLevel(-1);
  }
  const bool signedInFips = report();
  krFipsModeOff();
  return report() && signedInFips;
}

} // namespace

int main(int argc, char **argv) {
  try {
    const std::string logFile = argc > 1 ? argv[1] : defaultLogFile();
    if (argc > 2 || logFile.starts_with('-')) {
      const bool wanted = logFile == "--help" || logFile == "-h";
      (wanted ? std::cout : std::cerr) << kUsage;
      return wanted ? EXIT_SUCCESS : 2;
    }
    const bool good = run();
    printTail(logFile);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception &failure) {
    std::cerr << "fips_switch: " << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
