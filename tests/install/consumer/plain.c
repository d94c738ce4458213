/* An outside program in C. */
#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krInformation.h>
#include <krOpenSSL/krLifecycle.h>

#include <openssl/ssl.h>

static bool refuse(void *arg, int type, int keySize, const unsigned char *data, int dataLength, unsigned char *out,
                   int capacity, int32_t *outLength) {
  (void)arg, (void)type, (void)keySize, (void)data, (void)dataLength, (void)out, (void)capacity, (void)outLength;
  return false;
}

int main(void) {
  unsigned char seed[32];
  ift_provider provider = {NULL, refuse, NULL};
  SSL_CTX *context;
  int good = krOSSLSetup() == 0 && krFipsMode() == 0 && krPlatformGetSeed(seed, sizeof seed) == 1;
  context = SSL_CTX_new(TLS_server_method());
  good = good && SSL_CTX_set_ex_data(context, kropenssl_get_ssl_ctx_idx(), &provider) == 1;
  SSL_CTX_free(context);
  krOSSLCleanup();
  return good ? 0 : 1;
}
