#pragma once
#include_next <stdlib.h>

// Missing in Wine's.
#define MB_CUR_MAX ___mb_cur_max_func()
#ifdef __cplusplus
extern "C" {
#endif
double __cdecl _strtod_l(const char* text, char** end, _locale_t locale);
float __cdecl _strtof_l(const char* text, char** end, _locale_t locale);
#ifdef __cplusplus
}
#endif
