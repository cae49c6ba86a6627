#pragma once

/// printf into fresh heap memory; the caller frees it. Null when there is no memory.

#include "switch_platform.h"

SWITCH_BEGIN_EXTERN_C

SWITCH_DECLARE_NONSTD(char*) switch_mprintf(const char* fmt, ...) PRINTF_FUNCTION(1, 2);
SWITCH_DECLARE(char*) switch_vmprintf(const char* fmt, va_list ap) PRINTF_FUNCTION(1, 0);

SWITCH_END_EXTERN_C
