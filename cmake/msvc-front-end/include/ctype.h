#pragma once
#include_next <ctype.h>

#include <corecrt.h>

// Missing in Wine's.
#ifdef __cplusplus
extern "C" {
#endif
int __cdecl _islower_l(int character, _locale_t locale);
int __cdecl _isupper_l(int character, _locale_t locale);
#ifdef __cplusplus
}
#endif
