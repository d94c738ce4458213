// Diffie-Hellman, carried out by the FIPS module.
#include "fipsbridge/krFIPSDH.h"

#include "accessors/ErrorQueueScope.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "fipsbridge/BigNumbers.h"
#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/KeyCells.h"

using namespace krOpenSSL;

namespace {

constexpr KeyCells<DH> kCells{qvFipsDhIndex, [](DH *dh, int index) noexcept { return DH_get_ex_data(dh, index); },
                              DH_set_ex_data, &FipsModule::DhFree};

/// A random private key that is one bit shorter than the prime; null on failure.
BIGNUMPtr makePrivateKey(const BIGNUM *p) noexcept {
  BIGNUMPtr key(BN_new());
  if (key && BN_rand(key.get(), BN_num_bits(p) - 1, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 0) {
    key.reset();
  }
  return key;
}

// A negative generator is none: as a word it would be a number that nobody asked for.
BIGNUMPtr generatorNumber(int generator) noexcept {
  BIGNUMPtr g(generator > 0 ? BN_new() : nullptr);
  if (g && BN_set_word(g.get(), static_cast<BN_ULONG>(generator)) == 0) {
    g.reset();
  }
  return g;
}

/// Has the module take over group and private key, and make the public key.
BIGNUMPtr generatePublicKey(const FipsModule &module, KeyHandleCell *cell, FipsModule::Length primeBytes,
                            const BIGNUM *privateKey) noexcept {
  ExportedNumber exported;
  ReturnedNumber made;
  if (privateKey == nullptr || exported.take(privateKey) != 0 || !made.allocate(primeBytes) ||
      module.DhGenerateKey(cell, made.buffer(), made.length(), primeBytes, exported.bytes(), exported.length()) != 0) {
    return nullptr;
  }
  return made.number();
}

} // namespace

int qvFipsDhGenerateParameters(DH *dh, int prime_len, int generator, BN_GENCB * /*cb*/) noexcept {
  const ErrorQueueScope errors;
  const FipsModule::Length primeBytes = bytesFor(prime_len);
  const FipsModule *module = moduleForKeys();
  KeyHandleCell *cell = cellOf(kCells, dh);
  if (module == nullptr || cell == nullptr) {
    return 0;
  }
  BIGNUMPtr g = generatorNumber(generator);
  ExportedNumber gBytes;
  if (!g || gBytes.take(g.get()) != 0) {
    return 0;
  }
  module->DhFree(cell);
  if (makeKey(module->DhCreate, cell, gBytes.bytes(), gBytes.length(), nullptr, primeBytes) != 0) {
    return 0;
  }
  ReturnedNumber prime;
  if (!prime.allocate(primeBytes) || module->DhGetPrime(cell, prime.buffer(), primeBytes) != 0) {
    return 0;
  }
  BIGNUMPtr p = prime.number();
  if (handOver([dh](BIGNUM *newP, BIGNUM *newG) { return krDH_set0_pqg(dh, newP, nullptr, newG); }, p, g) == 0) {
    krTraceLog(kTraceTag, "%s: DH_set0_pqg failed to set value(s)", __func__);
    return 0;
  }
  return 1;
}

int qvFipsDhGenerateKey(DH *dh) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = moduleForKeys();
  KeyHandleCell *cell = cellOf(kCells, dh);
  if (module == nullptr || cell == nullptr) {
    return 0;
  }
  const BIGNUM *p = nullptr;
  const BIGNUM *g = nullptr;
  krDH_get0_pqg(dh, &p, nullptr, &g);
  ExportedNumber gBytes;
  ExportedNumber pBytes;
  if (p == nullptr || g == nullptr || exportNumbers({{gBytes, g}, {pBytes, p}}) != 0) {
    return 0;
  }
  module->DhFree(cell);
  if (makeKey(module->DhCreate, cell, gBytes.bytes(), gBytes.length(), pBytes.bytes(), pBytes.length()) != 0) {
    return 0;
  }
  const BIGNUM *privateKey = nullptr;
  krDH_get0_key(dh, nullptr, &privateKey);
  BIGNUMPtr madeHere = privateKey == nullptr ? makePrivateKey(p) : nullptr;
  BIGNUMPtr publicKey = generatePublicKey(*module, cell, pBytes.length(), madeHere ? madeHere.get() : privateKey);
  if (!publicKey) {
    return 0;
  }
  if (krDH_set0_key(dh, publicKey.get(), madeHere.get()) == 0) {
    krTraceLog(kTraceTag, "%s: DH_set0_key failed to set key(s)", __func__);
    return 0;
  }
  static_cast<void>(publicKey.release());
  static_cast<void>(madeHere.release());
  return 1;
}

int qvFipsDhComputeKey(unsigned char *key, const BIGNUM *pub_key, DH *dh) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = moduleForKeys();
  if (module == nullptr || dh == nullptr) {
    return 0;
  }
  KeyHandleCell *cell = cellOf(kCells, dh);
  ExportedNumber peer;
  if (cell == nullptr || pub_key == nullptr || peer.take(pub_key) != 0) {
    return -1;
  }
  const BIGNUM *p = nullptr;
  krDH_get0_pqg(dh, &p, nullptr, nullptr);
  if (p == nullptr) {
    return -1;
  }
  const int capacity = BN_num_bytes(p);
  FipsModule::Length written = 0;
  const int result = module->DhComputeKey(cell, key, &written, capacity, peer.bytes(), peer.length());
  return result == 0 ? reportedLength(written, capacity) : -1;
}

int qvFipsDhInit(DH *dh) noexcept {
  const ErrorQueueScope errors;
  return initCell(kCells, dh);
}

int qvFipsDhFinish(DH *dh) noexcept { return finishCell(kCells, dh); }

DH_METHOD *qvFipsDhMethod() noexcept {
  DHMethodPtr method(DH_meth_new("qvlib FIPS DH method", 0));
  const bool whole = method && DH_meth_set_generate_key(method.get(), qvFipsDhGenerateKey) != 0 &&
                     DH_meth_set_compute_key(method.get(), qvFipsDhComputeKey) != 0 &&
                     DH_meth_set_init(method.get(), qvFipsDhInit) != 0 &&
                     DH_meth_set_finish(method.get(), qvFipsDhFinish) != 0 &&
                     DH_meth_set_generate_params(method.get(), qvFipsDhGenerateParameters) != 0;
  return whole ? method.release() : nullptr;
}
