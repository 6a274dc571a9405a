/* SPDX-License-Identifier: MIT */
/** @file veklib.h
 *  Includes all public headers of veklib. An application that uses only a few families can include
 *  just their headers.
 */
#ifndef VEKLIB_VEKLIB_H
#define VEKLIB_VEKLIB_H

#include <veklib/vekcallbacks.h>
#include <veklib/vekdebug.h>
#include <veklib/vekdiag.h>
#include <veklib/vekdict.h>
#include <veklib/vekerror.h>
#include <veklib/vekhash.h>
#include <veklib/vekintdict.h>
#include <veklib/vekmacros.h>
#include <veklib/vekmemory.h>
#include <veklib/vekname.h>
#include <veklib/veknamedict.h>
#include <veklib/vekslist.h>
#include <veklib/vekstack.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrbuilder.h>
#include <veklib/vekstrdict.h>
#include <veklib/vekstrfuncs.h>
#include <veklib/vekthread.h>
#include <veklib/vekvalue.h>

#endif
