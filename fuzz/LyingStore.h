// A key store that answers as the input has it: with any bytes, numbers and lengths, with nothing, by throwing, and
// with errors left behind. It stands behind a provider's record, the callbacks and DelegatedKey.
#pragma once

#include "Fuzz.h"

#include "accessors/ErrorQueueScope.h"
#include "state/State.h"

#include <krOpenSSL/krDelegate.hpp>
#include <krOpenSSL/krFips.h>

#include <openssl/err.h>

#include <climits>
#include <stdexcept>

namespace krFuzz::store {

enum class Way { provider, delegate, callback };

constexpr int kCapacity = 16378; ///< that a provider is told

inline Input *input = nullptr; ///< what it takes its answers from
inline int asked = 0;
inline bool raised = false;    ///< it left an error behind
inline bool answered = false;  ///< it neither threw nor refused, the last time
inline std::int64_t claim = 0; ///< the length that it said then
inline Bytes digest;           ///< that it was to sign last
inline Bytes signature;        ///< its last answer, empty when no key of that size can have made it
inline bool isProper = false;  ///< that answer is encoded as it should be, and of numbers above 0

inline void startOver(Input &from) {
  input = &from;
  asked = 0;
  raised = answered = isProper = false;
  signature.clear();
}

inline void raise(int reason) { ERR_put_error(ERR_LIB_USER, 0, reason, __FILE__, __LINE__); }

/// @return whether it answers at all
inline bool listen(const unsigned char *data, int length) {
  ++asked;
  digest.assign(data, data + std::max(length, 0));
  signature.clear();
  isProper = false;
  if (oneIn(*input, 8)) {
    raised = true;
    raise(2);
  }
  const int kind = input->ConsumeIntegralInRange(0, 15);
  answered = kind != 1 && kind != 2;
  if (kind == 1) {
    throw std::runtime_error("a store's");
  }
  return answered;
}

inline BIGNUM *takeNumber() {
  BIGNUM *number = numberOf(takeBytes(*input, 70));
  BN_lshift(number, number, input->PickValueInArray({0, 0, 0, 1, input->ConsumeIntegralInRange(0, 70000)}));
  BN_set_negative(number, oneIn(*input, 8) ? 1 : 0);
  return number;
}

/// A signature of any two numbers, one in a while of none: that is encoded as an empty sequence.
template <auto New, auto Set> auto takeSignature() {
  auto *made = New();
  if (!oneIn(*input, 16)) {
    Set(made, takeNumber(), takeNumber());
  }
  return made;
}

/// What may come of these bytes with a key whose signatures have at most @p size.
inline void expectDer(const Bytes &der, int size) {
  const krOpenSSL::ErrorQueueScope errors;
  const unsigned char *cursor = der.data();
  const auto length = static_cast<long>(der.size());
  const krOpenSSL::ECDSASigPtr decoded(length > 0 ? d2i_ECDSA_SIG(nullptr, &cursor, length) : nullptr);
  const auto isAboveZero = [](const BIGNUM *number) { return BN_is_zero(number) == 0 && BN_is_negative(number) == 0; };
  signature = decoded == nullptr && der == Bytes{0x30, 0} ? der : encoded<i2d_ECDSA_SIG>(decoded.get());
  isProper = decoded != nullptr && signature == der && isAboveZero(ECDSA_SIG_get0_r(decoded.get())) &&
             isAboveZero(ECDSA_SIG_get0_s(decoded.get()));
  signature.resize(signature.size() > static_cast<std::size_t>(size) ? 0 : signature.size());
}

/// Fills the room and claims any length.
inline std::int64_t lie(unsigned char *out, int room, const Bytes &bytes) {
  std::fill_n(out, room, kUntouched);
  const auto written = std::min<std::int64_t>(room, static_cast<std::int64_t>(bytes.size()));
  std::copy_n(bytes.begin(), written, out);
  return input->PickValueInArray<std::int64_t>({written, written, room, room + 1LL, written - 1, 0, -1, INT_MIN,
                                                INT_MAX, 2'000'000'000, input->ConsumeIntegral<std::int32_t>()});
}

/// RSA, in either direction, into as many bytes as the key has.
inline std::int64_t answerRsa(unsigned char *out, int size) {
  claim = lie(out, size, takeBytes(*input, 300));
  if (claim > 0 && claim <= size) {
    signature.assign(out, out + claim);
    isProper = true;
  }
  return claim;
}

/// DSA and ECDSA, encoded.
inline std::int64_t answerDer(unsigned char *out, int room, int size) {
  DSA_SIG *any = oneIn(*input, 4) ? nullptr : takeSignature<DSA_SIG_new, DSA_SIG_set0>();
  const Bytes bytes = encodingOf<i2d_DSA_SIG, DSA_SIG_free>(any);
  claim = lie(out, room, any != nullptr ? bytes : takeBytes(*input, 100));
  expectDer(claim > 0 && claim <= room ? Bytes(out, out + claim) : Bytes(), size);
  return claim;
}

inline std::int64_t answer(int type, int size, unsigned char *out, int room) {
  return type == NID_md5_sha1 ? answerRsa(out, std::min(size, room)) : answerDer(out, room, size);
}

// As an ift_provider's callback.
inline bool provide(void * /*arg*/, int type, int size, const unsigned char *data, int length, unsigned char *out,
                    int capacity, std::int32_t *outLength) {
  require(*outLength == 0 && capacity == kCapacity, "a provider is told the capacity");
  const bool answers = listen(data, length);
  *outLength = answers ? static_cast<std::int32_t>(answer(type, size, out, capacity)) : 0;
  return answers;
}
inline ift_provider record{nullptr, provide, nullptr};

/// As the signer of a DelegatedKey with this key's public half.
inline krOpenSSL::DelegatedKey delegated(const krOpenSSL::Library &library, EVP_PKEY *key) {
  const int keyType = EVP_PKEY_base_id(key); // and what a provider is told for it
  const int type = keyType == EVP_PKEY_RSA   ? NID_md5_sha1
                   : keyType == EVP_PKEY_DSA ? NID_dsa
                                             : NID_ecdsa_with_Recommended;
  const int size = EVP_PKEY_size(key);
  return {library, key, [=](const krOpenSSL::SignRequest &request, std::span<unsigned char> out) {
            const bool answers = listen(request.digest.data(), static_cast<int>(request.digest.size()));
            return static_cast<std::size_t>(answers ? answer(type, size, out.data(), static_cast<int>(out.size())) : 0);
          }};
}

// As the callbacks.

inline int operateRsa(int length, const unsigned char *from, unsigned char *to, RSA *rsa, int /*padding*/) {
  return listen(from, length) ? static_cast<int>(answerRsa(to, RSA_size(rsa))) : -1;
}

inline DSA_SIG *signDsa(const unsigned char *data, int length, DSA *dsa) {
  DSA_SIG *made = listen(data, length) ? takeSignature<DSA_SIG_new, DSA_SIG_set0>() : nullptr;
  expectDer(encoded<i2d_DSA_SIG>(made), DSA_size(dsa));
  return made;
}

inline ECDSA_SIG *signEcdsa(const unsigned char *data, int length, const BIGNUM * /*kinv*/, const BIGNUM * /*r*/,
                            EC_KEY *key) {
  ECDSA_SIG *made = listen(data, length) ? takeSignature<ECDSA_SIG_new, ECDSA_SIG_set0>() : nullptr;
  expectDer(encoded<i2d_ECDSA_SIG>(made), ECDSA_size(key));
  return made;
}

inline void registerCallbacks() {
  krEngineSetRSAPrivateKeyOpCallback(operateRsa, 1);
  krEngineSetRSAPrivateKeyOpCallback(operateRsa, 0);
  krEngineSetDSAPrivateKeyOpCallback(signDsa);
  krEngineSetECDSAPrivateKeyOpCallback(signEcdsa);
}

// Keys of FIPS mode's engines, which they keep in ordinary mode.

/// What @p make makes while wolfEngine serves, or rather its stand-in. Its EVP_PKEY methods stay with the keys, too.
template <class Make> auto withWolfEngine(Make make) {
  ::setenv("KR_COMMON_PROGRAM_FILES", KR_FUZZ_MODULES, 1);
  krFipsUseOpenSSLFIPS(1);
  require(krFipsModeOn() == krOpenSSL::kFipsOk, "wolfEngine's stand-in is there");
  const krOpenSSL::Handle<ENGINE, ENGINE_finish> wolfEngine(ENGINE_get_default_RSA());
  auto keys = make();
  for (const auto &key : keys) {
    require(EVP_PKEY_set1_engine(key.get(), wolfEngine.get()) == 1, "keys are wolfEngine's in FIPS mode");
  }
  krFipsModeOff();
  return keys;
}

/// What @p make makes while the bridge serves, without a module.
template <class Make> auto withBridge(Make make) {
  krFipsUseOpenSSLFIPS(0);
  krOpenSSL::state::fipsMode = 1;
  require(krOpenSSLEngineLoad() == 1, "the bridge is there");
  auto keys = make();
  krFipsModeOff();
  return keys;
}

} // namespace krFuzz::store
