/* SPDX-License-Identifier: MIT */
/* For families that make strings on behalf of their callers. */
#ifndef VEKLIB_VEKSTR_INTERNAL_H
#define VEKLIB_VEKSTR_INTERNAL_H

#include "veklib/vekcompiler_internal.h"
#include "veklib/vekstr.h"

/** vek_str_create() on behalf of the code at `return_address`. */
VEK_HIDDEN VekStr *vek_str_create_with_return(const char *cstr, void *return_address);

#endif
