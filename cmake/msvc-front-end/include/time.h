#pragma once
#include_next <time.h>

// Missing in Wine's.
struct timespec {
    time_t tv_sec;
    long tv_nsec;
};
