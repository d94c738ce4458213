// DSA, carried out by the FIPS module.
#include "fipsbridge/krFIPSDSA.h"

#include "accessors/CallOut.h"
#include "accessors/ErrorQueueScope.h"
#include "accessors/KeySize.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "fipsbridge/BigNumbers.h"
#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/KeyCells.h"

using namespace krOpenSSL;

namespace {

constexpr KeyCells<DSA> kCells{qvFipsDsaIndex, [](DSA *dsa, int index) noexcept { return DSA_get_ex_data(dsa, index); },
                               DSA_set_ex_data, &FipsModule::DsaFree};

// Room for a private key below a q of 160 bits.
constexpr int kPrivateKeyBytes = 20;

struct ExportedKey {
  ExportedNumber p, q, g, publicKey, privateKey;
};

int exportKey(const DSA *dsa, ExportedKey &key) noexcept {
  const BIGNUM *first = nullptr;
  const BIGNUM *second = nullptr;
  const BIGNUM *third = nullptr;
  krDSA_get0_pqg(dsa, &first, &second, &third);
  if (const int code = exportNumbers({{key.p, first}, {key.q, second}, {key.g, third}}); code != 0) {
    return code;
  }
  krDSA_get0_key(dsa, &first, &second);
  return exportNumbers({{key.publicKey, first}, {key.privateKey, second}});
}

int loadNumbers(const FipsModule &module, KeyHandleCell *cell, const ExportedKey &key) noexcept {
  const auto &[p, q, g, publicKey, privateKey] = key;
  return makeKey(module.DsaLoadKey, cell, p.bytes(), p.length(), q.bytes(), q.length(), g.bytes(), g.length(),
                 publicKey.bytes(), publicKey.length(), privateKey.bytes(), privateKey.length());
}

void freeEncoding(unsigned char *encoding) noexcept { OPENSSL_free(encoding); }

bool isWithoutGroup(const DSA *dsa) noexcept {
  const BIGNUM *p = nullptr;
  const BIGNUM *q = nullptr;
  const BIGNUM *g = nullptr;
  krDSA_get0_pqg(dsa, &p, &q, &g);
  return p == nullptr || q == nullptr || g == nullptr;
}

/// Gives the value to the object's own number when it has one; @p fresh is left for the setter when it has none.
void replaceValue(const BIGNUM *own, BIGNUMPtr &fresh) noexcept {
  if (own != nullptr) {
    BN_swap(const_cast<BIGNUM *>(own), fresh.get());
    fresh.reset();
  }
}

/// The new numbers are both made before the object sees the first, so that its pair always belongs together.
int takeKeyPair(DSA *dsa, const ReturnedNumber &publicBytes, const ReturnedNumber &privateBytes) noexcept {
  const BIGNUM *ownPublic = nullptr;
  const BIGNUM *ownPrivate = nullptr;
  krDSA_get0_key(dsa, &ownPublic, &ownPrivate);
  BIGNUMPtr publicKey = publicBytes.number(ownPublic);
  BIGNUMPtr privateKey = privateBytes.number(ownPrivate);
  int taken = 0;
  if (publicKey && privateKey) {
    replaceValue(ownPublic, publicKey);
    replaceValue(ownPrivate, privateKey);
    taken = krDSA_set0_key(dsa, publicKey.get(), privateKey.get());
  }
  if (taken == 0) {
    krTraceLog(kTraceTag, "%s: DSA_set0_key returned: %d", "qvFipsDsaGenerateKey", taken);
    return 0;
  }
  static_cast<void>(publicKey.release());
  static_cast<void>(privateKey.release());
  return 1;
}

int takeGroup(DSA *dsa, const std::array<ReturnedNumber, 3> &group) noexcept {
  BIGNUMPtr p = group[0].number();
  BIGNUMPtr q = group[1].number();
  BIGNUMPtr g = group[2].number();
  const int taken = handOver([dsa](auto... numbers) { return krDSA_set0_pqg(dsa, numbers...); }, p, q, g);
  if (taken == 0) {
    krTraceLog(kTraceTag, "%s: DSA_set0_pqg returned: %d", "qvFipsDsaGenerateParameters", taken);
  }
  return taken;
}

} // namespace

int qvFipsDsaLoadKey(DSA *dsa) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  KeyHandleCell *cell = cellOf(kCells, dsa);
  if (module == nullptr || cell == nullptr) {
    return kNothingToLoad;
  }
  ExportedKey key;
  if (const int code = exportKey(dsa, key); code != 0) {
    return code;
  }
  module->DsaFree(cell);
  return loadNumbers(*module, cell, key);
}

DSA_SIG *qvFipsDsaSign(const unsigned char *dgst, int dlen, DSA *dsa) noexcept {
  const int size = sizeOf(dsa);
  if (const auto callback = state::dsaSign.load(std::memory_order_acquire); callback != nullptr) {
    return withinSize(DSASigPtr(callOut<DSA_SIG *>(nullptr, callback, dgst, dlen, dsa)), size);
  }
  const ErrorQueueScope errors;
  const FipsModule *module = moduleForKeys();
  WipedBytes signature;
  if (module == nullptr || qvFipsDsaLoadKey(dsa) != 0 || !signature.allocate(size)) {
    return nullptr;
  }
  FipsModule::Length written = signature.size();
  if (module->DsaSign(cellOf(kCells, dsa), dgst, dlen, signature.data(), &written, nullptr, 0) != 0 || written < 0 ||
      written > signature.size()) {
    return nullptr;
  }
  const unsigned char *cursor = signature.data();
  // Numbers without their leading zeros are longer once OpenSSL encodes them.
  return withinSize(DSASigPtr(d2i_DSA_SIG(nullptr, &cursor, static_cast<long>(written))), size);
}

int qvFipsDsaVerify(const unsigned char *dgst, int dlen, DSA_SIG *sig, DSA *dsa) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = moduleForKeys();
  if (module == nullptr || qvFipsDsaLoadKey(dsa) != 0) {
    return 0;
  }
  unsigned char *encoding = nullptr;
  const int length = isWhole(sig) ? i2d_DSA_SIG(sig, &encoding) : 0;
  const Handle<unsigned char, freeEncoding> owner(encoding);
  const bool valid = length > 0 && module->DsaVerify(cellOf(kCells, dsa), dgst, dlen, encoding, length) == 0;
  return valid ? 1 : 0;
}

int qvFipsDsaInit(DSA *dsa) noexcept {
  const ErrorQueueScope errors;
  if (initCell(kCells, dsa) == 0) {
    return 0;
  }
  if (const FipsModule *module = attachedModule(); module != nullptr) {
    loadNumbers(*module, cellOf(kCells, dsa), {}); // an empty key, for the key generation to fill
  }
  return 1;
}

int qvFipsDsaFinish(DSA *dsa) noexcept { return finishCell(kCells, dsa); }

int qvFipsDsaGenerateKey(DSA *dsa) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = moduleForKeys();
  if (module == nullptr || dsa == nullptr || isWithoutGroup(dsa)) {
    return 0;
  }
  KeyHandleCell *cell = cellOf(kCells, dsa);
  if (cell == nullptr || qvFipsDsaLoadKey(dsa) != 0 || module->DsaGenerateKey(cell) != 0) {
    return 0;
  }
  ReturnedNumber publicKey;
  ReturnedNumber privateKey;
  if (!publicKey.allocate(BN_num_bytes(DSA_get0_p(dsa))) || !privateKey.allocate(kPrivateKeyBytes) ||
      module->DsaExportKey(cell, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, publicKey.buffer(),
                           publicKey.length(), privateKey.buffer(), privateKey.length()) != 0) {
    return 0;
  }
  return takeKeyPair(dsa, publicKey, privateKey);
}

int qvFipsDsaGenerateParameters(DSA *dsa, int bits, const unsigned char *seed, int seed_len, int *counter_ret,
                                unsigned long *h_ret, BN_GENCB * /*cb*/) noexcept {
  const ErrorQueueScope errors;
  const FipsModule::Length primeBytes = bytesFor(bits);
  const FipsModule *module = moduleForKeys();
  KeyHandleCell *cell = cellOf(kCells, dsa);
  ReturnedNumber h;
  if (module == nullptr || cell == nullptr || !h.allocate(primeBytes)) {
    return 0;
  }
  std::int32_t counter = 0;
  module->DsaFree(cell);
  if (makeKey(module->DsaGenerateParameters, cell, bits, seed, seed_len, nullptr, &counter, h.buffer()) != 0) {
    return 0;
  }
  std::array<ReturnedNumber, 3> group;
  auto &[p, q, g] = group;
  if (!allocateAll(group, primeBytes) ||
      module->DsaExportKey(cell, p.buffer(), p.length(), q.buffer(), q.length(), g.buffer(), g.length(), nullptr,
                           nullptr, nullptr, nullptr) != 0 ||
      takeGroup(dsa, group) == 0) {
    return 0;
  }
  const BIGNUMPtr hNumber = h.number();
  if (!hNumber) {
    return 0;
  }
  if (h_ret != nullptr) {
    *h_ret = static_cast<std::uint32_t>(BN_get_word(hNumber.get())); // 32 bits wherever a long is wider
  }
  if (counter_ret != nullptr) {
    *counter_ret = counter;
  }
  return 1;
}

DSA_METHOD *qvFipsDsaMethod() noexcept {
  DSAMethodPtr method(DSA_meth_new("qvlib FIPS DSA method", 0));
  const bool whole = method && DSA_meth_set_sign(method.get(), qvFipsDsaSign) != 0 &&
                     DSA_meth_set_verify(method.get(), qvFipsDsaVerify) != 0 &&
                     DSA_meth_set_init(method.get(), qvFipsDsaInit) != 0 &&
                     DSA_meth_set_finish(method.get(), qvFipsDsaFinish) != 0 &&
                     DSA_meth_set_paramgen(method.get(), qvFipsDsaGenerateParameters) != 0 &&
                     DSA_meth_set_keygen(method.get(), qvFipsDsaGenerateKey) != 0;
  return whole ? method.release() : nullptr;
}
