#pragma once
#include_next <math.h>

#ifdef __cplusplus
// Wine has macros for these; Microsoft's header has functions in C++.
#undef fpclassify
#undef isfinite
#undef isinf
#undef isnan
#undef isnormal
#undef signbit
extern "C++" {
template <typename Number>
int fpclassify(Number number) noexcept;
template <typename Number>
bool isfinite(Number number) noexcept;
template <typename Number>
bool isinf(Number number) noexcept;
template <typename Number>
bool isnan(Number number) noexcept;
template <typename Number>
bool isnormal(Number number) noexcept;
template <typename Number>
bool signbit(Number number) noexcept;
}
#endif
