/* SPDX-License-Identifier: MIT */
/* For families that format text on behalf of their callers. */
#ifndef VEKLIB_VEKSTRFUNCS_INTERNAL_H
#define VEKLIB_VEKSTRFUNCS_INTERNAL_H

#include <stdarg.h>

#include "veklib/vekmacros.h"

/** vek_strdup_vprintf() on behalf of the code at `return_address`. */
VEK_PRINTF(1, 0)
char *vek_strdup_vprintf_with_return(const char *format, va_list args, void *return_address);

#endif
