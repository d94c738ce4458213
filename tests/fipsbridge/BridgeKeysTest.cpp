// RSA, DSA and DH through the FIPS module, against objects with OpenSSL's own methods.
#include "fipsbridge/krFIPSDH.h"
#include "fipsbridge/krFIPSDSA.h"
#include "fipsbridge/krFIPSRSA.h"
#include "support/Bridge.h"
#include "support/Keys.h"
#include "support/Sweep.h"

#include <openssl/dh.h>
#include <openssl/err.h>

#include <stdexcept>

TEST(BridgeKeys, Placeholder) {}
