#pragma once

/// What every other header of the switch API rests on: standard headers, linkage and visibility of the exported names,
/// the compiler's format check, and the assertion that stays on in every build type.

#include <assert.h>
#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/types.h>
#include <time.h>

#ifdef __cplusplus
#define SWITCH_BEGIN_EXTERN_C extern "C" {
#define SWITCH_END_EXTERN_C }
#else
#define SWITCH_BEGIN_EXTERN_C
#define SWITCH_END_EXTERN_C
#endif

// Default visibility also where a module is built with -fvisibility=hidden: the loader must find its table.
#define SWITCH_DECLARE(type) __attribute__((visibility("default"))) type
#define SWITCH_DECLARE_NONSTD(type) __attribute__((visibility("default"))) type
#define SWITCH_DECLARE_DATA __attribute__((visibility("default")))
#define SWITCH_MOD_DECLARE(type) __attribute__((visibility("default"))) type
#define SWITCH_MOD_DECLARE_NONSTD(type) __attribute__((visibility("default"))) type
#define SWITCH_MOD_DECLARE_DATA __attribute__((visibility("default")))
#define SWITCH_THREAD_FUNC

/// Position of the format text and of the first value, both counted from 1.
#define PRINTF_FUNCTION(fmtstr, vars) __attribute__((format(printf, fmtstr, vars)))

#define __SWITCH_FUNC__ (const char*)__func__

#ifdef NDEBUG
#error "the switch and its modules are built with assertions on"
#endif

/// The argument goes through a macro first, so that NULL prints in its expanded form.
#define switch_assert(expr) assert(expr)
