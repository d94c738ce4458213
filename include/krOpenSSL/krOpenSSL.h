/// @file
/// krOpenSSL: everything the library exports.
#pragma once

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krInformation.h>
#include <krOpenSSL/krLifecycle.h>
#include <krOpenSSL/kroAESWrap.h>
#include <krOpenSSL/kroCiphers.h>
#include <krOpenSSL/kroFipsRngSha1.h>
#include <krOpenSSL/kroHMAC.h>
#include <krOpenSSL/kroHash.h>
