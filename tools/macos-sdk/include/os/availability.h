// Stand-in for Apple's os/availability.h: API_AVAILABLE and API_DEPRECATED as the
// declarations below use them.
//
// Clang enforces availability attributes only when it compiles for an Apple target,
// which needs Apple's C library; the type check compiles for the host. So the
// availability attributes are kept for the record, and each deprecation is spelled out
// against the deployment target the check stands for (TAVLIN_MACOS_DEPLOYMENT, e.g.
// 130300 for macOS 13.3, set by typecheck.sh from the CMake setting): a declaration
// deprecated at or before that target carries `deprecated`, and the check's -Werror
// fails a call to it, as the Mac build's -Werror does.
#pragma once

#ifndef TAVLIN_MACOS_DEPLOYMENT
#error "TAVLIN_MACOS_DEPLOYMENT (e.g. 130300) names the deployment target to check against"
#endif

#define __API_AVAILABLE_PLATFORM_macos(x) macos, introduced = x
#define API_AVAILABLE(p) __attribute__((availability(__API_AVAILABLE_PLATFORM_##p)))

// API_DEPRECATED(message, macos(introduced, deprecated)), one macro per version used.
#if TAVLIN_MACOS_DEPLOYMENT >= 140000
#define TAVLIN_DEPRECATED_MACOS_14_0(message) __attribute__((deprecated(message)))
#else
#define TAVLIN_DEPRECATED_MACOS_14_0(message)
#endif
