// The external FIPS module as the library sees it: a table of entries, reached through state::fipsModule. The
// library never attaches a module; every caller tests the pointer first.
//
// Entries return an int, 0 for success unless noted. All lengths, counts and flags travel in 64 bits, a
// length that was an int sign-extended. Big numbers are unsigned big-endian bytes with their length. A pointer
// to a length gives the buffer's capacity and receives the bytes written.
#pragma once

#include <cstddef>
#include <cstdint>

namespace krOpenSSL {

struct FipsModule {
  using Entry = void (*)();
  using Bytes = const unsigned char *;
  using Buffer = unsigned char *;
  using Length = std::int64_t;
  using Capacity = std::int64_t *;
  using Context = void *; ///< kFipsModuleContextBytes
  using Area = void *;    ///< a state of the caller's, of the size passed beside it

  Entry reserved0[3];
  int (*GetState)(); ///< 3 is the error state
  Entry reserved4[12];
  int (*HmacInit)(Context context, Area area, Length areaBytes, Length digestBytes);
  int (*HmacSetKey)(Area area, Bytes key, Length length);
  int (*HmacUpdate)(Area area, Bytes data, Length length);
  int (*HmacFinal)(Area area, Buffer out);
  int (*HmacFree)(Area area);
  Entry reserved21[5];
  int (*AesSetEncryptKey)(Context context, Area area, Length areaBytes, Bytes key, Length keyBits);
  int (*AesSetDecryptKey)(Context context, Area area, Length areaBytes, Bytes key, Length keyBits);
  Entry reserved28[3];
  int (*AesFree)(Area area);
  Entry reserved32[9];
  int (*AesKeyWrap)(Area area, Buffer out, Bytes in, Length inLength, Bytes iv);
  int (*AesKeyUnwrap)(Area area, Buffer out, Length outLength, Bytes in, Bytes iv);
  Entry reserved43[24];
};

/// The number of an entry.
#define KR_FIPS_ENTRY(name) (offsetof(FipsModule, name) / sizeof(FipsModule::Entry))
static_assert(KR_FIPS_ENTRY(GetState) == 3);
static_assert(KR_FIPS_ENTRY(HmacInit) == 16 && KR_FIPS_ENTRY(HmacFree) == 20);
static_assert(KR_FIPS_ENTRY(AesSetEncryptKey) == 26 && KR_FIPS_ENTRY(AesSetDecryptKey) == 27);
static_assert(KR_FIPS_ENTRY(AesFree) == 31);
static_assert(KR_FIPS_ENTRY(AesKeyWrap) == 41 && KR_FIPS_ENTRY(AesKeyUnwrap) == 42);
static_assert(sizeof(FipsModule) == 67 * sizeof(FipsModule::Entry));
#undef KR_FIPS_ENTRY

inline constexpr std::size_t kFipsModuleContextBytes = 64;

/// The module's own memory: zero at start and never touched by the library.
extern unsigned char fipsModuleContext[kFipsModuleContextBytes];

} // namespace krOpenSSL
