// An outside program that calls nothing of OpenSSL's itself.
#include <krOpenSSL/kroHash.h>

int main() {
  unsigned char digest[32] = {};
  kroSHA256()(digest, digest, 0);
  return digest[0] == 0xe3 ? 0 : 1; // FIPS 180-4: of nothing
}
