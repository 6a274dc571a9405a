/* SPDX-License-Identifier: MIT */
/* Formatting on behalf of a caller. */
#ifndef VEKLIB_VEKSTRFUNCS_INTERNAL_H
#define VEKLIB_VEKSTRFUNCS_INTERNAL_H

#include <stdarg.h>

#include "veklib/vekmacros.h"

/** vek_strdup_vprintf() on behalf of the code at `return_address`: same result, same failures. */
VEK_PRINTF(1, 0)
char *vek_strdup_vprintf_with_return(const char *format, va_list args, void *return_address);

#endif
