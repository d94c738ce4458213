// The version of the OpenSSL in use.
#include <krOpenSSL/krInformation.h>

#include <openssl/crypto.h>

const char *krGet_OpenSSL_Version() { return OpenSSL_version(OPENSSL_VERSION); }
