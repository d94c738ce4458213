// RSA, carried out by the FIPS module.
#include "fipsbridge/krFIPSRSA.h"

#include "accessors/CallOut.h"
#include "accessors/ErrorQueueScope.h"
#include "accessors/KeySize.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "fipsbridge/BigNumbers.h"
#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/KeyCells.h"

#include <algorithm>
#include <limits>

using namespace krOpenSSL;

namespace {

constexpr KeyCells<RSA> kCells{qvFipsRsaIndex, [](RSA *rsa, int index) noexcept { return RSA_get_ex_data(rsa, index); },
                               RSA_set_ex_data, &FipsModule::RsaFree};

// As OpenSSL 1.1.1 numbers it; in 3 it is gone.
constexpr int kSslv23Padding = 2;

/// The module's code of a padding; -1 for one that it does not know.
constexpr int paddingCode(int padding) noexcept {
  switch (padding) {
  case RSA_NO_PADDING:
    return 0;
  case RSA_PKCS1_PADDING:
    return 1;
  case kSslv23Padding:
    return 2;
  case RSA_PKCS1_OAEP_PADDING:
    return 3;
  default:
    return -1;
  }
}

struct ExportedKey {
  ExportedNumber n, e, d, p, q, dmp1, dmq1, iqmp;
};

int exportKey(const RSA *rsa, ExportedKey &key) noexcept {
  const BIGNUM *first = nullptr;
  const BIGNUM *second = nullptr;
  const BIGNUM *third = nullptr;
  krRSA_get0_key(rsa, &first, &second, &third);
  if (const int code = exportNumbers({{key.n, first}, {key.e, second}, {key.d, third}}); code != 0) {
    return code;
  }
  krRSA_get0_factors(rsa, &first, &second);
  if (const int code = exportNumbers({{key.p, first}, {key.q, second}}); code != 0) {
    return code;
  }
  krRSA_get0_crt_params(rsa, &first, &second, &third);
  return exportNumbers({{key.dmp1, first}, {key.dmq1, second}, {key.iqmp, third}});
}

int operate(FipsModule::RsaStep FipsModule::*entry, int flen, const unsigned char *from, unsigned char *to, RSA *rsa,
            int padding) noexcept {
  const ErrorQueueScope errors;
  const int code = paddingCode(padding);
  const FipsModule *module = moduleForKeys();
  if (code == -1 || module == nullptr || qvFipsRsaLoadKey(rsa) != 0) {
    return -1;
  }
  FipsModule::Length written = 0;
  if ((module->*entry)(cellOf(kCells, rsa), from, flen, code, to, &written) != 0) {
    return -1;
  }
  return reportedLength(written, sizeOf(rsa));
}

/// The numbers of a generated key, each with room for the modulus.
using ReturnedKey = std::array<ReturnedNumber, 8>;

bool exportGenerated(const FipsModule &module, KeyHandleCell *cell, ReturnedKey &key) noexcept {
  auto &[n, e, p, q, d, dmp1, dmq1, iqmp] = key;
  return module.RsaExportKey(cell, n.buffer(), n.length(), e.buffer(), e.length(), p.buffer(), p.length(), q.buffer(),
                             q.length(), d.buffer(), d.length(), dmp1.buffer(), dmp1.length(), dmq1.buffer(),
                             dmq1.length(), iqmp.buffer(), iqmp.length()) == 0;
}

bool accepted(int taken, const char *format) noexcept {
  if (taken == 0) {
    krTraceLog(kTraceTag, format, "qvFipsRsaGenerateKey", taken);
  }
  return taken != 0;
}

bool takeGenerated(RSA *rsa, const ReturnedKey &key) noexcept {
  std::array<BIGNUMPtr, 8> numbers;
  std::transform(key.begin(), key.end(), numbers.begin(), [](const ReturnedNumber &from) { return from.number(); });
  auto &[n, e, p, q, d, dmp1, dmq1, iqmp] = numbers;
  return accepted(handOver([rsa](auto... taken) { return krRSA_set0_key(rsa, taken...); }, n, e, d),
                  "%s: RSA_set0_key returned: %d") &&
         accepted(handOver([rsa](auto... taken) { return krRSA_set0_factors(rsa, taken...); }, p, q),
                  "%s: RSA_set0_factors returned: %d") &&
         accepted(handOver([rsa](auto... taken) { return krRSA_set0_crt_params(rsa, taken...); }, dmp1, dmq1, iqmp),
                  "%s: RSA_set0_crt_params returned: %d");
}

} // namespace

int qvFipsRsaLoadKey(RSA *rsa) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  KeyHandleCell *cell = cellOf(kCells, rsa);
  if (module == nullptr || cell == nullptr) {
    return kNothingToLoad;
  }
  ExportedKey key;
  if (const int code = exportKey(rsa, key); code != 0) {
    return code;
  }
  const auto &[n, e, d, p, q, dmp1, dmq1, iqmp] = key;
  module->RsaFree(cell);
  if (p.bytes() == nullptr) {
    return makeKey(module->RsaLoadPublicKey, cell, n.bytes(), n.length(), e.bytes(), e.length());
  }
  return makeKey(module->RsaLoadPrivateKey, cell, n.bytes(), n.length(), e.bytes(), e.length(), p.bytes(), p.length(),
                 q.bytes(), q.length(), d.bytes(), d.length(), dmp1.bytes(), dmp1.length(), dmq1.bytes(), dmq1.length(),
                 iqmp.bytes(), iqmp.length());
}

int qvFipsRsaPublicEncrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  return operate(&FipsModule::RsaPublicEncrypt, flen, from, to, rsa, padding);
}

int qvFipsRsaPublicDecrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  return operate(&FipsModule::RsaPublicDecrypt, flen, from, to, rsa, padding);
}

int qvFipsRsaPrivateEncrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  if (const auto callback = state::rsaPrivateEncrypt.load(std::memory_order_acquire); callback != nullptr) {
    const int size = sizeOf(rsa);
    return withinSize(callOutWith(rsa, from, -1, callback, flen, from, to, rsa, padding), size);
  }
  return operate(&FipsModule::RsaPrivateEncrypt, flen, from, to, rsa, padding);
}

int qvFipsRsaPrivateDecrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  if (const auto callback = state::rsaPrivateDecrypt.load(std::memory_order_acquire); callback != nullptr) {
    const int size = sizeOf(rsa);
    return withinSize(callOutWith(rsa, from, -1, callback, flen, from, to, rsa, padding), size);
  }
  return operate(&FipsModule::RsaPrivateDecrypt, flen, from, to, rsa, padding);
}

int qvFipsRsaInit(RSA *rsa) noexcept {
  const ErrorQueueScope errors;
  return initCell(kCells, rsa);
}

int qvFipsRsaFinish(RSA *rsa) noexcept { return finishCell(kCells, rsa); }

int qvFipsRsaGenerateKey(RSA *rsa, int bits, BIGNUM *e, BN_GENCB * /*cb*/) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = moduleForKeys();
  KeyHandleCell *cell = cellOf(kCells, rsa);
  if (module == nullptr || cell == nullptr || e == nullptr) {
    return 0;
  }
  // The module takes 32 bits. Its largest number is refused: BN_get_word answers it, cut, for what has no word.
  const auto exponent = static_cast<std::uint32_t>(BN_get_word(e));
  if (exponent == std::numeric_limits<std::uint32_t>::max()) {
    return 0;
  }
  module->RsaFree(cell);
  if (makeKey(module->RsaGenerateKey, cell, bits, exponent) != 0) {
    return 0;
  }
  ReturnedKey key;
  if (!allocateAll(key, bytesFor(bits)) || !exportGenerated(*module, cell, key) || !takeGenerated(rsa, key)) {
    return 0;
  }
  module->RsaGenerateKeyDone(cell);
  return 1;
}

RSA_METHOD *qvFipsRsaMethod() noexcept {
  RSAMethodPtr method(RSA_meth_new("qvlib FIPS RSA method", 0));
  const bool whole = method && RSA_meth_set_pub_enc(method.get(), qvFipsRsaPublicEncrypt) != 0 &&
                     RSA_meth_set_pub_dec(method.get(), qvFipsRsaPublicDecrypt) != 0 &&
                     RSA_meth_set_priv_enc(method.get(), qvFipsRsaPrivateEncrypt) != 0 &&
                     RSA_meth_set_priv_dec(method.get(), qvFipsRsaPrivateDecrypt) != 0 &&
                     RSA_meth_set_init(method.get(), qvFipsRsaInit) != 0 &&
                     RSA_meth_set_finish(method.get(), qvFipsRsaFinish) != 0 &&
                     RSA_meth_set_keygen(method.get(), qvFipsRsaGenerateKey) != 0;
  return whole ? method.release() : nullptr;
}
