/// @file
/// How the library's names become visible outside it.
#pragma once

#include <krOpenSSL/krOpenSSLVersion.h>

#if defined(_WIN32)
#if defined(KR_BUILDING_LIBRARY)
#define KR_API __declspec(dllexport)
#elif defined(KR_STATIC_LIBRARY)
#define KR_API
#else
#define KR_API __declspec(dllimport)
#endif
#define KR_LOCAL
#else
#define KR_API __attribute__((visibility("default")))  ///< exported, or imported by callers
#define KR_LOCAL __attribute__((visibility("hidden"))) ///< kept inside, in a class that is exported
#endif
