// The bridge's digests as one table, their selector, and the callbacks that hand the work to the module.
#include "fipsbridge/qvDigests.h"

#include "accessors/ErrorQueueScope.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "fipsbridge/EngineMethods.h"
#include "state/FipsState.h"

#include <algorithm>

using namespace krOpenSSL;

namespace {

constexpr int kShaAreaBytes = 216;

/// The module, when there is one and the context may be worked on.
const FipsModule *moduleFor(const EVP_MD_CTX *ctx, const char *callback) noexcept {
  const FipsModule *module = attachedModule();
  if (module == nullptr) {
    return nullptr;
  }
  if (const int flags = krEVP_MD_CTX_test_flags(ctx); flags != 0) {
    krTraceLog(kTraceTag, "%s: EVP_MD_CTX_test_flags returned: %d", callback, flags);
    return nullptr;
  }
  return module;
}

/// @p work runs the module's entry over the context's area, which is missing when OpenSSL had no memory for it.
template <class Work> int overArea(EVP_MD_CTX *ctx, const char *callback, Work work) noexcept {
  const FipsModule *module = moduleFor(ctx, callback);
  void *area = module != nullptr ? krEVP_MD_CTX_md_data(ctx) : nullptr;
  return area != nullptr && work(*module, area) == 0 ? 1 : 0;
}

int qv_sha_init(EVP_MD_CTX *ctx) noexcept {
  const ErrorQueueScope errors;
  return overArea(ctx, __func__, [ctx](const FipsModule &module, void *area) {
    return module.ShaInit(fipsModuleContext, area, kShaAreaBytes, krEVP_MD_size(ctx));
  });
}

int qv_sha_update(EVP_MD_CTX *ctx, const void *data, std::size_t count) noexcept {
  const ErrorQueueScope errors;
  return overArea(ctx, __func__, [=](const FipsModule &module, void *area) {
    return module.ShaUpdate(area, static_cast<const unsigned char *>(data), static_cast<FipsModule::Length>(count));
  });
}

int qv_sha_final(EVP_MD_CTX *ctx, unsigned char *out) noexcept {
  const ErrorQueueScope errors;
  return overArea(ctx, __func__, [out](const FipsModule &module, void *area) { return module.ShaFinal(area, out); });
}

int qv_sha_term(EVP_MD_CTX *ctx) noexcept {
  return overArea(ctx, __func__, [](const FipsModule &module, void *area) {
    module.ShaFree(area);
    return 0;
  });
}

struct DigestRow {
  int nid;
  int signatureNid;
  int resultBytes;
  int blockBytes;
};

constexpr std::array<DigestRow, kDigestCount> kDigests{{
    {NID_sha1, NID_sha1WithRSAEncryption, 20, 64},
    {NID_sha224, NID_sha224WithRSAEncryption, 28, 64},
    {NID_sha256, NID_sha256WithRSAEncryption, 32, 64},
    {NID_sha384, NID_sha384WithRSAEncryption, 48, 128},
    {NID_sha512, NID_sha512WithRSAEncryption, 64, 128},
}};

// The digests of DSA signatures follow in the order of the digests that they share.
constexpr std::array kDigestNids{NID_sha1,   NID_sha224, NID_sha256,          NID_sha384,
                                 NID_sha512, NID_dsa,    NID_dsa_with_SHA224, NID_dsa_with_SHA256};

EVP_MD *buildDigest(const DigestRow &row) noexcept {
  Handle<EVP_MD, EVP_MD_meth_free> digest(EVP_MD_meth_new(row.nid, row.signatureNid));
  const bool whole = digest && EVP_MD_meth_set_result_size(digest.get(), row.resultBytes) != 0 &&
                     EVP_MD_meth_set_flags(digest.get(), EVP_MD_FLAG_DIGALGID_ABSENT) != 0 &&
                     EVP_MD_meth_set_init(digest.get(), qv_sha_init) != 0 &&
                     EVP_MD_meth_set_update(digest.get(), qv_sha_update) != 0 &&
                     EVP_MD_meth_set_final(digest.get(), qv_sha_final) != 0 &&
                     EVP_MD_meth_set_cleanup(digest.get(), qv_sha_term) != 0 &&
                     EVP_MD_meth_set_input_blocksize(digest.get(), row.blockBytes) != 0 &&
                     EVP_MD_meth_set_app_datasize(digest.get(), kShaAreaBytes) != 0;
  return whole ? digest.release() : nullptr;
}

} // namespace

int qv_digests(ENGINE *engine, const EVP_MD **digest, const int **nids, int nid) noexcept {
  if (digest == nullptr) {
    *nids = kDigestNids.data();
    return static_cast<int>(kDigestNids.size());
  }
  *digest = nullptr;
  const auto *found = std::find(kDigestNids.begin(), kDigestNids.end(), nid);
  if (found == kDigestNids.end()) {
    return 0;
  }
  if (EngineMethods *methods = methodsOf(engine); methods != nullptr) {
    const auto index = static_cast<std::size_t>(found - kDigestNids.begin()) % kDigests.size();
    *digest = methods->digests.at(index).get([index] { return buildDigest(kDigests.at(index)); });
  }
  return 1; // also without a digest: then ENGINE_get_digest adds no error to OpenSSL's queue
}
