// What libc++ wants of Visual C++'s run-time and the free headers at hand leave out. It is enough to compile with;
// nothing here is ever run.
#pragma once

#include <intrin.h>
#define _InterlockedCompareExchange128 krInterlockedCompareExchange128 // a second definition of the compiler's own

#include <stddef.h>
#include <stdlib.h>
#ifndef MB_CUR_MAX
#define MB_CUR_MAX 1
#endif

struct FILE_ID_INFO {
  unsigned long long VolumeSerialNumber;
  unsigned char FileId[16];
};

struct timespec {
  long long tv_sec;
  long tv_nsec;
};

template <class T> constexpr bool isnan(T x) { return __builtin_isnan(x); }
template <class T> constexpr bool isinf(T x) { return __builtin_isinf(x); }
template <class T> constexpr bool isfinite(T x) { return __builtin_isfinite(x); }
template <class T> constexpr bool isnormal(T x) { return __builtin_isnormal(x); }
template <class T> constexpr bool signbit(T x) { return __builtin_signbit(x); }

extern "C" {
int _islower_l(int, _locale_t);
int _isupper_l(int, _locale_t);
float _strtof_l(const char *, char **, _locale_t);
double _strtod_l(const char *, char **, _locale_t);
}
