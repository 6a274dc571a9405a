/* SPDX-License-Identifier: MIT */
/* What the library's other families share with vekdiag: the reading of numbers from the
 * environment. */
#ifndef VEKLIB_VEKDIAG_INTERNAL_H
#define VEKLIB_VEKDIAG_INTERNAL_H

#include <optional>

/** Reads an environment variable as a decimal number: leading blanks and a sign are accepted, what
 *  follows the digits is ignored, no digits give 0. Numbers beyond the range of int give the
 *  nearest limit, on platforms with a wider long as well. Leaves errno alone.
 *  Fails: variable not set -> no value.
 */
std::optional<int> vek_environment_number(const char *name);

#endif
