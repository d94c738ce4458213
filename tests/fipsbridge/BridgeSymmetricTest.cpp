// Ciphers and digests through the FIPS module: the same results as OpenSSL's own, whatever the chunks.
#include "support/Bridge.h"

#include "fipsbridge/qvCiphers.h"
#include "fipsbridge/qvDigests.h"
#include "support/Sweep.h"
#include "support/Vectors.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/err.h>

#include <algorithm>
#include <numeric>
#include <span>

namespace {

using namespace krTest;
using CipherContext = krOpenSSL::Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using krOpenSSL::EVPMDCtxPtr;

constexpr std::array kCiphers{44, 419, 423, 427, 418, 422, 426};
constexpr std::array kDigests{64, 675, 672, 673, 674}; // and with the methods of the first three: 116, 802, 803

constexpr std::array<std::size_t, 4> kChunks{1, 7, 16, 500};

const Bytes kData = [] {
  Bytes data(403);
  std::iota(data.begin(), data.end(), static_cast<unsigned char>(1));
  return data;
}();

// Goes on in a copy of the context half-way through. Empty on failure.
Bytes crypt(int nid, bool encrypt, const Bytes &in, std::size_t chunk, bool inCopies = true) {
  CipherContext context(EVP_CIPHER_CTX_new());
  bool good = context && EVP_CipherInit_ex(context.get(), EVP_get_cipherbynid(nid), nullptr, kData.data(),
                                           kData.data() + 64, encrypt ? 1 : 0) == 1;
  Bytes out(in.size() + 64);
  unsigned char *end = out.data();
  int written = 0;
  for (std::size_t at = 0; good && at < in.size(); at += chunk) {
    good = EVP_CipherUpdate(context.get(), end, &written, in.data() + at,
                            static_cast<int>(std::min(chunk, in.size() - at))) == 1;
    end += written;
    if (inCopies && at <= in.size() / 2) {
      CipherContext copy(EVP_CIPHER_CTX_new());
      good = good && copy && EVP_CIPHER_CTX_copy(copy.get(), context.get()) == 1;
      context.swap(copy);
    }
  }
  good = good && EVP_CipherFinal_ex(context.get(), end, &written) == 1;
  out.resize(good ? static_cast<std::size_t>(end + written - out.data()) : 0);
  return out;
}

Bytes digest(int nid, std::size_t chunk) {
  EVPMDCtxPtr context(EVP_MD_CTX_new());
  bool good = context && EVP_DigestInit_ex(context.get(), EVP_get_digestbynid(nid), nullptr) == 1;
  for (std::size_t at = 0; good && at < kData.size(); at += chunk) {
    good = EVP_DigestUpdate(context.get(), kData.data() + at, std::min(chunk, kData.size() - at)) == 1;
    EVPMDCtxPtr copy(EVP_MD_CTX_new());
    good = good && copy && EVP_MD_CTX_copy_ex(copy.get(), context.get()) == 1;
    context.swap(copy);
  }
  Bytes out(64);
  unsigned length = 0;
  good = good && EVP_DigestFinal_ex(context.get(), out.data(), &length) == 1;
  out.resize(good ? length : 0);
  return out;
}

// Everything, with what is encrypted decrypted again.
std::vector<Bytes> allResults() {
  std::vector<Bytes> results;
  for (const std::size_t chunk : kChunks) {
    for (const int cipher : kCiphers) {
      const Bytes encrypted = crypt(cipher, true, kData, chunk);
      results.push_back(encrypted);
      results.push_back(crypt(cipher, false, encrypted, chunk));
    }
    for (const int nid : kDigests) {
      results.push_back(digest(nid, chunk));
    }
  }
  return results;
}

} // namespace

TEST(BridgeSymmetric, GivesWhatOpenSSLGives) {
  const std::vector<Bytes> expected = allResults();
  EXPECT_EQ(std::count(expected.begin(), expected.end(), Bytes()), 0);
  EXPECT_EQ(std::count(expected.begin(), expected.end(), kData), kChunks.size() * kCiphers.size());
  const Bridge bridge;
  EXPECT_EQ(allResults(), expected);
}

TEST(BridgeSymmetric, SucceedsOrFailsWholeWhenAllocationsFail) {
  const Bytes hash = digest(672, 200);
  const Bytes text = crypt(427, true, kData, 200);
  const Bridge bridge;
  sweep([&] {
    const Bytes hashed = digest(672, 200);
    const Bytes encrypted = crypt(427, true, kData, 200);
    EXPECT_TRUE(hashed.empty() || hashed == hash);
    EXPECT_TRUE(encrypted.empty() || encrypted == text);
  });
}

// The methods have the measures of OpenSSL's own, but for the IV of the ECB ciphers.
TEST(BridgeSymmetric, SelectorsGiveOneMethodForEachAlgorithm) {
  const Bridge bridge;
  const int *nids = nullptr;
  ASSERT_EQ(qv_ciphers(bridge.engine, nullptr, &nids, 0), 7);
  EXPECT_TRUE(std::ranges::equal(kCiphers, std::span(nids, 7)));
  for (const int nid : kCiphers) {
    const EVP_CIPHER *own = EVP_get_cipherbynid(nid);
    const EVP_CIPHER *cipher = ENGINE_get_cipher(bridge.engine, nid);
    EXPECT_EQ(EVP_CIPHER_iv_length(cipher), EVP_CIPHER_block_size(own));
    EXPECT_EQ(EVP_CIPHER_flags(cipher), EVP_CIPHER_mode(own) == EVP_CIPH_ECB_MODE ? 0x101U : 0x2U);
  }
  ASSERT_EQ(qv_digests(bridge.engine, nullptr, &nids, 0), 8);
  for (const int nid : kDigests) {
    EXPECT_EQ(*nids++, nid);
    const EVP_MD *own = EVP_get_digestbynid(nid);
    const EVP_MD *method = ENGINE_get_digest(bridge.engine, nid);
    EXPECT_EQ(EVP_MD_type(method), nid);
    EXPECT_EQ(EVP_MD_pkey_type(method), EVP_MD_pkey_type(own));
    EXPECT_EQ(EVP_MD_block_size(method), EVP_MD_block_size(own));
    EXPECT_EQ(EVP_MD_flags(method), 0x8U);
  }
  for (const auto &[nid, own] : {std::pair(116, 64), {802, 675}, {803, 672}}) {
    EXPECT_EQ(*nids++, nid);
    EXPECT_EQ(ENGINE_get_digest(bridge.engine, nid), ENGINE_get_digest(bridge.engine, own));
  }
  const EVP_CIPHER *cipher = EVP_enc_null();
  const EVP_MD *method = EVP_md_null();
  EXPECT_EQ(qv_ciphers(bridge.engine, &cipher, nullptr, 420), 0);
  EXPECT_EQ(cipher, nullptr);
  EXPECT_EQ(qv_digests(bridge.engine, &method, nullptr, 4), 0);
  EXPECT_EQ(method, nullptr);
}

TEST(BridgeSymmetric, EachEntryIsCalledAndFailsTheOperation) {
  const Bridge bridge;
  for (const auto &[nid, entries] :
       {std::pair(44, "TdesSetKey TdesSetKey TdesSetKey TdesCbc TdesCbc TdesFree TdesFree TdesFree"),
        {419, "AesSetEncryptKey AesCbc AesCbc AesFree"},
        {418, "AesSetEncryptKey AesEcb AesEcb AesFree"}}) {
    EXPECT_FALSE(crypt(nid, true, Bytes(16), 16, false).empty());
    EXPECT_EQ(referenceModule::calls(), entries);
    for (const auto *entry : {"TdesCbc", "AesCbc", "AesEcb"}) {
      referenceModule::failing = entry;
      EXPECT_EQ(crypt(nid, true, kData, 16).empty(), std::string_view(entries).find(entry) != std::string_view::npos);
    }
    referenceModule::failing.clear();
    referenceModule::calls();
  }
  for (const auto *entry : {"ShaInit", "ShaUpdate", "ShaFinal"}) {
    referenceModule::failing = entry;
    EXPECT_EQ(digest(64, 16), Bytes()) << entry;
  }
  referenceModule::calls();
  EXPECT_EQ(EVP_Digest(kData.data(), 5, Bytes(64).data(), nullptr, EVP_sha384(), nullptr), 0);
  EXPECT_EQ(referenceModule::calls(), "ShaInit ShaUpdate ShaFinal ShaFree");
  EXPECT_EQ(crypt(419, false, Bytes(), 1), Bytes()); // nothing in: the padding is missing
  EXPECT_EQ(referenceModule::calls(), "AesSetDecryptKey AesFree");
  ERR_clear_error();
}

namespace {

// The callbacks of each cipher and digest, called as OpenSSL would. What each returned comes back.
std::vector<int> callEach(ENGINE *engine, EVP_CIPHER_CTX *cipherContext, EVP_MD_CTX *digestContext) {
  Bytes out(64);
  std::vector<int> results;
  for (const int nid : {44, 427, 426}) {
    const EVP_CIPHER *cipher = ENGINE_get_cipher(engine, nid);
    results.push_back(EVP_CIPHER_meth_get_init(cipher)(cipherContext, kData.data(), kData.data(), 1));
    results.push_back(EVP_CIPHER_meth_get_do_cipher(cipher)(cipherContext, out.data(), kData.data(), 16));
    results.push_back(EVP_CIPHER_meth_get_cleanup(cipher)(cipherContext));
  }
  const EVP_MD *method = ENGINE_get_digest(engine, 674);
  results.push_back(EVP_MD_meth_get_init(method)(digestContext));
  results.push_back(EVP_MD_meth_get_update(method)(digestContext, kData.data(), 16));
  results.push_back(EVP_MD_meth_get_final(method)(digestContext, out.data()));
  results.push_back(EVP_MD_meth_get_cleanup(method)(digestContext));
  return results;
}

} // namespace

TEST(BridgeSymmetric, ContextsThatCannotServeAreToldAbout) {
  Bridge bridge;
  // Without data; OpenSSL 3 has no IV without a cipher.
  const krOpenSSL::Handle<EVP_CIPHER, EVP_CIPHER_meth_free> empty(EVP_CIPHER_meth_new(NID_undef, 16, 0));
  const CipherContext bare(EVP_CIPHER_CTX_new());
  EVP_CipherInit_ex(bare.get(), empty.get(), nullptr, nullptr, nullptr, 0);
  const EVPMDCtxPtr raw(EVP_MD_CTX_new());
  EVP_MD_CTX_set_flags(raw.get(), EVP_MD_CTX_FLAG_NO_INIT);
  bridge.trace.clear();
  EXPECT_EQ(callEach(bridge.engine, bare.get(), raw.get()), std::vector<int>(13, 0));
  EXPECT_EQ(referenceModule::calls(), "");
  EXPECT_EQ(bridge.trace.lines(), tagged(readText("bridge_messages.txt")));
}

TEST(BridgeSymmetric, WithoutAModuleNothingWorksAndNothingIsSaid) {
  Bridge bridge(false);
  const CipherContext context(EVP_CIPHER_CTX_new());
  const EVPMDCtxPtr digestContext(EVP_MD_CTX_new());
  EXPECT_EQ(callEach(bridge.engine, context.get(), digestContext.get()), std::vector<int>(13, 0));
  EXPECT_EQ(digest(672, 16), Bytes());
  std::array<long, 3> held{};
  for (long &blocks : held) {
    EXPECT_EQ(crypt(427, true, kData, 16), Bytes());
    EXPECT_EQ(crypt(44, true, kData, 16), Bytes());
    blocks = allocations::outstanding();
  }
  EXPECT_EQ(held[1], held[2]);
  ERR_clear_error();
  EXPECT_EQ(bridge.trace.lines(), Lines());
}
