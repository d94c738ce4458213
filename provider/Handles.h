// OpenSSL 3's objects, freed with their owners.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <memory>

namespace krProvider {

template <auto free> struct Free {
  template <class T> void operator()(T *object) const noexcept { free(object); }
};

using BioPtr = std::unique_ptr<BIO, Free<BIO_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using KeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, Free<EVP_PKEY_CTX_free>>;
using DigestPtr = std::unique_ptr<EVP_MD, Free<EVP_MD_free>>;
using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, Free<EVP_MD_CTX_free>>;
using LibraryPtr = std::unique_ptr<OSSL_LIB_CTX, Free<OSSL_LIB_CTX_free>>;

} // namespace krProvider
