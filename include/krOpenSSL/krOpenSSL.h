// krOpenSSL: everything the library exports.
#pragma once

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krInformation.h>
#include <krOpenSSL/krLifecycle.h>
#include <krOpenSSL/kroFipsRngSha1.h>
