// The external FIPS module as the library sees it: a table of entries, reached through state::fipsModule. The
// library never attaches a module; every caller tests the pointer first. docs/fips_module.md tells the people
// who write a module what each entry is expected to do.
//
// Entries return an int, 0 for success unless noted. All lengths, counts and flags travel in 64 bits, a
// length that was an int sign-extended; what is narrower has its width in its type. Big numbers are unsigned
// big-endian bytes with their length, null and 0 when absent. A pointer to a length gives the buffer's capacity
// and receives the bytes written.
#pragma once

#include <cstddef>
#include <cstdint>

namespace krOpenSSL {

/// Where the module keeps its handle of a key: one cell for each RSA, DSA and DH object, zero at start.
struct KeyHandleCell {
  void *handle;
};
static_assert(sizeof(KeyHandleCell) == 8);

struct FipsModule {
  using Entry = void (*)();
  using Bytes = const unsigned char *;
  using Buffer = unsigned char *;
  using Length = std::int64_t;
  using Capacity = std::int64_t *;
  using Context = void *;   ///< kFipsModuleContextBytes
  using Generator = void *; ///< kFipsGeneratorStateBytes
  using Area = void *;      ///< a state of the caller's, of the size passed beside it
  using Cell = KeyHandleCell *;

  using RsaStep = int (*)(Cell cell, Bytes in, Length length, Length padding, Buffer out, Capacity written);

  Entry reserved0[3];
  int (*GetState)(); ///< 3 is the error state
  Entry reserved4[3];
  int (*RngInstantiate)(Context context, Generator state, Length stateBytes, Bytes seed, Length length, Length one);
  int (*RngReseed)(Generator state, Bytes data, Length length);
  int (*RngGenerate)(Generator state, Buffer out, Length length);
  int (*RngUninstantiate)(Generator state);
  int (*ShaInit)(Context context, Area area, Length areaBytes, Length digestBytes);
  int (*ShaUpdate)(Area area, Bytes data, Length length);
  int (*ShaFinal)(Area area, Buffer out);
  int (*ShaFree)(Area area);
  Entry reserved15[1];
  int (*HmacInit)(Context context, Area area, Length areaBytes, Length digestBytes);
  int (*HmacSetKey)(Area area, Bytes key, Length length);
  int (*HmacUpdate)(Area area, Bytes data, Length length);
  int (*HmacFinal)(Area area, Buffer out);
  int (*HmacFree)(Area area);
  Entry reserved21[1];
  int (*TdesSetKey)(Context context, Area schedule, Length scheduleBytes, Bytes key);
  int (*TdesFree)(Area schedule);
  Entry reserved24[1];
  int (*TdesCbc)(Area first, Area second, Area third, Bytes in, Buffer out, Length length, Bytes iv, Buffer ivOut,
                 Length encrypt);
  int (*AesSetEncryptKey)(Context context, Area area, Length areaBytes, Bytes key, Length keyBits);
  int (*AesSetDecryptKey)(Context context, Area area, Length areaBytes, Bytes key, Length keyBits);
  int (*AesEcb)(Area area, Bytes in, Buffer out, Length length, Length encrypt);
  int (*AesCbc)(Area area, Bytes in, Buffer out, Length length, Bytes iv, Buffer ivOut, Length encrypt);
  Entry reserved30[1];
  int (*AesFree)(Area area);
  Entry reserved32[9];
  int (*AesKeyWrap)(Area area, Buffer out, Bytes in, Length inLength, Bytes iv);
  int (*AesKeyUnwrap)(Area area, Buffer out, Length outLength, Bytes in, Bytes iv);
  int (*DhCreate)(Context context, Cell cell, Length cellBytes, Generator generator, Bytes g, Length gLength, Bytes p,
                  Length pLength); ///< p null: the module makes a prime of pLength bytes
  int (*DhGetPrime)(Cell cell, Buffer out, Length length);
  int (*DhGenerateKey)(Cell cell, Buffer publicOut, Capacity publicLength, Length capacity, Bytes privateKey,
                       Length privateLength);
  int (*DhComputeKey)(Cell cell, Buffer secretOut, Capacity secretLength, Length capacity, Bytes peer,
                      Length peerLength);
  int (*DhFree)(Cell cell);
  int (*RsaLoadPublicKey)(Context context, Cell cell, Length cellBytes, Generator generator, Bytes n, Length nLength,
                          Bytes e, Length eLength);
  int (*RsaLoadPrivateKey)(Context context, Cell cell, Length cellBytes, Generator generator, Bytes n, Length nLength,
                           Bytes e, Length eLength, Bytes p, Length pLength, Bytes q, Length qLength, Bytes d,
                           Length dLength, Bytes dmp1, Length dmp1Length, Bytes dmq1, Length dmq1Length, Bytes iqmp,
                           Length iqmpLength);
  int (*RsaGenerateKey)(Context context, Cell cell, Length cellBytes, Generator generator, Length bits,
                        std::uint32_t exponent);
  int (*RsaGenerateKeyDone)(Cell cell);
  int (*RsaExportKey)(Cell cell, Buffer n, Capacity nLength, Buffer e, Capacity eLength, Buffer p, Capacity pLength,
                      Buffer q, Capacity qLength, Buffer d, Capacity dLength, Buffer dmp1, Capacity dmp1Length,
                      Buffer dmq1, Capacity dmq1Length, Buffer iqmp, Capacity iqmpLength);
  Entry reserved53[2];
  RsaStep RsaPublicEncrypt;
  RsaStep RsaPrivateDecrypt;
  RsaStep RsaPrivateEncrypt;
  RsaStep RsaPublicDecrypt;
  int (*RsaFree)(Cell cell);
  int (*DsaLoadKey)(Context context, Cell cell, Length cellBytes, Generator generator, Bytes p, Length pLength, Bytes q,
                    Length qLength, Bytes g, Length gLength, Bytes publicKey, Length publicLength, Bytes privateKey,
                    Length privateLength);
  /// @param h  as many bytes as the prime, a big-endian number filled up from the left
  int (*DsaGenerateParameters)(Context context, Cell cell, Length cellBytes, Generator generator, Length bits,
                               Bytes seed, Length seedLength, void *null, std::int32_t *counter, Buffer h);
  int (*DsaGenerateKey)(Cell cell);
  int (*DsaExportKey)(Cell cell, Buffer p, Capacity pLength, Buffer q, Capacity qLength, Buffer g, Capacity gLength,
                      Buffer publicKey, Capacity publicLength, Buffer privateKey, Capacity privateLength);
  int (*DsaSign)(Cell cell, Bytes digest, Length length, Buffer der, Capacity derLength, void *null, Length zero);
  int (*DsaVerify)(Cell cell, Bytes digest, Length length, Bytes der, Length derLength);
  int (*DsaFree)(Cell cell);
};

/// The number of an entry.
#define KR_FIPS_ENTRY(name) (offsetof(FipsModule, name) / sizeof(FipsModule::Entry))
static_assert(KR_FIPS_ENTRY(GetState) == 3);
static_assert(KR_FIPS_ENTRY(RngInstantiate) == 7 && KR_FIPS_ENTRY(RngReseed) == 8);
static_assert(KR_FIPS_ENTRY(RngGenerate) == 9 && KR_FIPS_ENTRY(RngUninstantiate) == 10);
static_assert(KR_FIPS_ENTRY(ShaInit) == 11 && KR_FIPS_ENTRY(ShaUpdate) == 12);
static_assert(KR_FIPS_ENTRY(ShaFinal) == 13 && KR_FIPS_ENTRY(ShaFree) == 14);
static_assert(KR_FIPS_ENTRY(HmacInit) == 16 && KR_FIPS_ENTRY(HmacSetKey) == 17 && KR_FIPS_ENTRY(HmacUpdate) == 18);
static_assert(KR_FIPS_ENTRY(HmacFinal) == 19 && KR_FIPS_ENTRY(HmacFree) == 20);
static_assert(KR_FIPS_ENTRY(TdesSetKey) == 22 && KR_FIPS_ENTRY(TdesFree) == 23 && KR_FIPS_ENTRY(TdesCbc) == 25);
static_assert(KR_FIPS_ENTRY(AesSetEncryptKey) == 26 && KR_FIPS_ENTRY(AesSetDecryptKey) == 27);
static_assert(KR_FIPS_ENTRY(AesEcb) == 28 && KR_FIPS_ENTRY(AesCbc) == 29 && KR_FIPS_ENTRY(AesFree) == 31);
static_assert(KR_FIPS_ENTRY(AesKeyWrap) == 41 && KR_FIPS_ENTRY(AesKeyUnwrap) == 42);
static_assert(KR_FIPS_ENTRY(DhCreate) == 43 && KR_FIPS_ENTRY(DhGetPrime) == 44 && KR_FIPS_ENTRY(DhGenerateKey) == 45);
static_assert(KR_FIPS_ENTRY(DhComputeKey) == 46 && KR_FIPS_ENTRY(DhFree) == 47);
static_assert(KR_FIPS_ENTRY(RsaLoadPublicKey) == 48 && KR_FIPS_ENTRY(RsaLoadPrivateKey) == 49);
static_assert(KR_FIPS_ENTRY(RsaGenerateKey) == 50 && KR_FIPS_ENTRY(RsaGenerateKeyDone) == 51);
static_assert(KR_FIPS_ENTRY(RsaExportKey) == 52);
static_assert(KR_FIPS_ENTRY(RsaPublicEncrypt) == 55 && KR_FIPS_ENTRY(RsaPrivateDecrypt) == 56);
static_assert(KR_FIPS_ENTRY(RsaPrivateEncrypt) == 57 && KR_FIPS_ENTRY(RsaPublicDecrypt) == 58);
static_assert(KR_FIPS_ENTRY(RsaFree) == 59);
static_assert(KR_FIPS_ENTRY(DsaLoadKey) == 60 && KR_FIPS_ENTRY(DsaGenerateParameters) == 61);
static_assert(KR_FIPS_ENTRY(DsaGenerateKey) == 62 && KR_FIPS_ENTRY(DsaExportKey) == 63);
static_assert(KR_FIPS_ENTRY(DsaSign) == 64 && KR_FIPS_ENTRY(DsaVerify) == 65 && KR_FIPS_ENTRY(DsaFree) == 66);
static_assert(sizeof(FipsModule) == 67 * sizeof(FipsModule::Entry));
#undef KR_FIPS_ENTRY

inline constexpr std::size_t kFipsModuleContextBytes = 64;
inline constexpr std::size_t kFipsGeneratorStateBytes = 208;

/// The module's own memory: zero at start and never touched by the library.
extern unsigned char fipsModuleContext[kFipsModuleContextBytes];
extern unsigned char fipsGeneratorState[kFipsGeneratorStateBytes];

} // namespace krOpenSSL
