/* SPDX-License-Identifier: MIT */
/* An application that defines entry points of the allocator itself: the library uses its
 * definitions, too, and the originals can still be called. */
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>

#include "support/support.h"

#include <cstdlib>

using namespace vektest;

static int mallocs, callocs, frees, installations, traces;

void *vek_malloc_with_return(size_t size, void *return_address)
{
    ++mallocs;
    return __vek_default_malloc_with_return(size, return_address);
}

void *vek_calloc(size_t count, size_t size)
{
    ++callocs;
    return __vek_default_calloc(count, size);
}

void vek_free(void *block)
{
    ++frees;
    __vek_default_free(block);
}

void vek_set_memory_vtable(const VekMemoryVtable *table)
{
    ++installations;
    if (table != nullptr) {
        __vek_default_free(__vek_default_malloc(1)); // allocating here must not block
    }
    __vek_default_set_memory_vtable(table);
}

void vek_memory_enable_trace(void) { ++traces; }

CHILD_TEST(Override, ServesTheLibrary)
{
    char *const text = vek_strdup("text");
    EXPECT_STREQ(text, "text");
    vek_free(text);
    vek_hash_destroy(vek_hash_new());
    EXPECT_EQ(mallocs, 1);
    EXPECT_EQ(callocs, 2);
    EXPECT_EQ(frees, 3);
}

CHILD_TEST(Override, FirstUseInstallsOnceThroughThePublicNames)
{
    setenv("VEK_MALLOC_TRACE", "1", 1);
    vek_free(vek_malloc(8));
    vek_free(vek_malloc(8));
    EXPECT_EQ(installations, 1);
    EXPECT_EQ(traces, 1);
}

CHILD_TEST(Override, InstallationThatComesFirstIsTheFirstUse)
{
    setenv("VEK_MALLOC_TRACE", "1", 1);
    VekMemoryVtable table = {};
    table.malloc = [](size_t, void *) -> void * { return ++mallocs, nullptr; };
    __vek_default_set_memory_vtable(&table);
    EXPECT_EQ(installations, 0);
    EXPECT_EQ(traces, 1);
    EXPECT_EQ(vek_malloc(1), nullptr);
    EXPECT_EQ(mallocs, 1);
    vek_set_memory_vtable(nullptr);
    EXPECT_EQ(installations, 1);
    vek_free(vek_malloc(1));
}
