// Functions whose frames have to lie where the caller's are not.
#pragma once

#ifdef _MSC_VER
#define KR_NOINLINE __declspec(noinline)
#else
#define KR_NOINLINE [[gnu::noinline]]
#endif
