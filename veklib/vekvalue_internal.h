/* SPDX-License-Identifier: MIT */
/* What values and dictionaries share. */
#ifndef VEKLIB_VEKVALUE_INTERNAL_H
#define VEKLIB_VEKVALUE_INTERNAL_H

#include "veklib/vekvalue.h"

/** The name of a type, "VEK_VALUE_INT"; "[unknown VekValueType]" for a number that is none. */
const char *value_type_to_string(VekValueType type);

#endif
