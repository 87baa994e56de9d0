// Declaration-only stand-in for macOS's <sys/sysctl.h>: sysctlbyname, through which the
// adapter reads the product version ("kern.osproductversion"). Linux's C library has
// no such header.
#pragma once
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

int sysctlbyname(const char* name, void* oldp, size_t* oldlenp, void* newp, size_t newlen);

#ifdef __cplusplus
}
#endif
