// The bridge's ciphers and digests over the tests' reference module, beside OpenSSL's own: any sequence of EVP calls on
// a pair of contexts, while entries of the module fail and the module comes and goes.
#include "Fuzz.h"

#include "state/State.h"
#include "support/ReferenceModule.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;
namespace reference = krTest::referenceModule;

constexpr std::size_t kMost = 100;

ENGINE *bridge = nullptr;

/// Listed and initialised, but OpenSSL's default for nothing.
void makeBridge() {
  testing::FLAGS_gtest_break_on_failure = true; // what the reference module expects
  state::fipsMode = 1;
  krOpenSSLEngineLoad();
  bridge = ENGINE_by_id("qvlibFIPS");
  krOpenSSLEngineUnload();
  require(ENGINE_init(bridge) == 1, "the bridge works");
}

/// In a while an entry of the module fails from here on, or the module is gone, or all is well again.
void disturb(Input &input) {
  const int kind = input.ConsumeIntegralInRange(0, 31);
  if (kind == 1) {
    reference::failing =
        input.PickValueInArray<const char *>({"ShaInit", "ShaUpdate", "ShaFinal", "TdesCbc", "AesCbc", "AesEcb", ""});
  } else if (kind == 2 || kind == 3) {
    state::fipsModule = kind == 2 ? nullptr : &reference::table;
  }
}

/// A context of the bridge's and one of OpenSSL's own, to which the same is done, until one of them cannot go on.
template <class Context, auto New, auto Copy> class Pair {
public:
  bool goesOn() const { return goesOn_; }

  template <class Call> void both(Call call) {
    Bytes out(kMost + 64, kUntouched);
    Bytes ownOut = out;
    const int result = call(bridged_.get(), out.data(), bridge);
    const int ownResult = call(own_.get(), ownOut.data(), static_cast<ENGINE *>(nullptr));
    const bool isWhole = reference::failing.empty() && state::fipsModule != nullptr;
    require(isWhole ? result == ownResult && out == ownOut : result <= ownResult, "the bridge does what OpenSSL does");
    ERR_clear_error();
    goesOn_ = goesOn_ && result == 1 && ownResult == 1;
  }

  void goOnInCopies() {
    Context bridged(New());
    Context own(New());
    goesOn_ = Copy(bridged.get(), bridged_.get()) == 1;
    require(goesOn_ == (Copy(own.get(), own_.get()) == 1), "a context is copied when OpenSSL's is");
    bridged_.swap(bridged);
    own_.swap(own);
  }

private:
  Context bridged_{New()};
  Context own_{New()};
  bool goesOn_ = true;
};

void playCipher(Input &input) {
  const EVP_CIPHER *cipher = EVP_get_cipherbynid(input.PickValueInArray({44, 419, 423, 427, 418, 422, 426}));
  Pair<Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>, EVP_CIPHER_CTX_new, EVP_CIPHER_CTX_copy> pair;
  Bytes key = takeExactly(input, 48);
  int encrypts = input.ConsumeBool() ? 1 : 0;
  const auto start = [&](bool isRekeyed) { // or a new message under the same key
    const unsigned char *iv = isRekeyed || input.ConsumeBool() ? key.data() + 32 : nullptr;
    pair.both([&](EVP_CIPHER_CTX *context, unsigned char *, ENGINE *engine) {
      EVP_CIPHER_CTX_set_padding(context, 1); // which OpenSSL itself forgets with the key, but not for an engine
      return EVP_CipherInit_ex(context, isRekeyed ? cipher : nullptr, isRekeyed ? engine : nullptr,
                               isRekeyed ? key.data() : nullptr, iv, encrypts);
    });
  };
  start(true);
  takeSteps(input, [&] {
    disturb(input);
    const int call = pair.goesOn() ? input.ConsumeIntegralInRange(0, 5) : -1;
    const Bytes in = takeBytes(input, kMost);
    const bool flag = input.ConsumeBool();
    int written = 0;
    if (call == 0) {
      pair.goOnInCopies();
    } else if (call == 1) {
      key[0] ^= 1U;
      encrypts ^= flag ? 1 : 0;
      start(true);
    } else if (call == 2) {
      start(false);
    } else if (call == 3) {
      pair.both([&](EVP_CIPHER_CTX *context, unsigned char *out, ENGINE *) {
        EVP_CIPHER_CTX_set_padding(context, flag ? 1 : 0);
        return EVP_CipherFinal_ex(context, out, &written);
      });
    } else if (call > 3) {
      pair.both([&](EVP_CIPHER_CTX *context, unsigned char *out, ENGINE *) {
        return EVP_CipherUpdate(context, out, &written, in.data(), static_cast<int>(in.size()));
      });
    }
  });
}

void playDigest(Input &input) {
  const EVP_MD *digest = EVP_get_digestbynid(input.PickValueInArray({64, 675, 672, 673, 674}));
  Pair<EVPMDCtxPtr, EVP_MD_CTX_new, EVP_MD_CTX_copy_ex> pair;
  const auto start = [&](EVP_MD_CTX *context, unsigned char * /*out*/, ENGINE *engine) {
    return EVP_DigestInit_ex(context, digest, engine);
  };
  pair.both(start);
  takeSteps(input, [&] {
    disturb(input);
    const int call = pair.goesOn() ? input.ConsumeIntegralInRange(0, 5) : -1;
    const Bytes in = takeBytes(input, kMost);
    if (call == 0) {
      pair.goOnInCopies();
    } else if (call == 1 || call == 2) {
      if (call == 2) {
        pair.both([](EVP_MD_CTX *context, unsigned char *out, ENGINE *) {
          return EVP_DigestFinal_ex(context, out, nullptr);
        });
      }
      pair.both(start);
    } else if (call > 2) {
      pair.both([&](EVP_MD_CTX *context, unsigned char *, ENGINE *) {
        return EVP_DigestUpdate(context, in.data(), in.size());
      });
    }
  });
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  bridge != nullptr ? void() : makeBridge();
  Input input(data, size);
  state::fipsModule = &reference::table;
  reference::failing.clear();
  (input.ConsumeBool() ? playCipher : playDigest)(input);
  state::fipsModule = &reference::table;
  reference::calls();
  return 0;
}
