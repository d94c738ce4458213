// Error texts, the version and the seed.
#include <krOpenSSL/krInformation.h>

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include <array>

namespace {

std::string textOf(unsigned long code) {
  std::array<char, 4096> text{};
  ERR_error_string_n(code, text.data(), text.size());
  return text.data();
}

} // namespace

TEST(ErrStr, GivesTheTextOfACodeOrOfTheNextError) {
  ERR_put_error(ERR_LIB_RSA, 0, ERR_R_MALLOC_FAILURE, __FILE__, __LINE__);
  ERR_put_error(ERR_LIB_DSA, 0, ERR_R_MALLOC_FAILURE, __FILE__, __LINE__);
  const unsigned long unknown = ERR_PACK(ERR_LIB_USER + 9, 7, 700);
  EXPECT_EQ(krOpenSSL::errStr(unknown), textOf(unknown));
  for (const int library : {ERR_LIB_RSA, ERR_LIB_DSA}) {
    EXPECT_EQ(krOpenSSL::errStr(0), textOf(ERR_PACK(library, 0, ERR_R_MALLOC_FAILURE)));
  }
  EXPECT_EQ(krOpenSSL::errStr(0), textOf(0)); // "error:00000000:lib(0):func(0):reason(0)", in 3 without the function
}

TEST(ErrStr, CutsALongTextAfter511Characters) {
  const int library = ERR_get_next_error_library();
  const std::string reason(600, 'r');
  std::array<ERR_STRING_DATA, 2> strings{{{ERR_PACK(library, 0, 1), reason.c_str()}, {0, nullptr}}};
  ERR_load_strings(library, strings.data());
  const std::string whole = textOf(strings[0].error);
  ASSERT_GT(whole.size(), reason.size());
  EXPECT_EQ(krOpenSSL::errStr(strings[0].error), whole.substr(0, 511));
  ERR_unload_strings(library, strings.data());
}

TEST(Version, IsThatOfTheOpenSSLInUse) { EXPECT_STREQ(krGet_OpenSSL_Version(), OpenSSL_version(OPENSSL_VERSION)); }

TEST(PlatformSeed, FillsTheBufferAndNoMore) {
  std::array<std::string, 2> seeds{std::string(1001, '\0'), std::string(1001, '\0')};
  for (std::string &seed : seeds) {
    auto *buffer = reinterpret_cast<unsigned char *>(seed.data());
    EXPECT_EQ(krPlatformGetSeed(buffer, 0), 1);
    EXPECT_EQ(seed, std::string(1001, '\0'));
    EXPECT_EQ(krPlatformGetSeed(buffer, 1000), 1);
    EXPECT_EQ(seed.back(), '\0');
    EXPECT_NE(seed.substr(980), std::string(21, '\0'));
  }
  EXPECT_NE(seeds[0], seeds[1]);
  EXPECT_EQ(krPlatformGetSeed(nullptr, 8), 0);
}
