/* SPDX-License-Identifier: MIT */
#include "debug.h"

VekDebugDomain *debug_parse;
VekDebugDomain *debug_report;

static const char *const parse_flags[] = {"lines", "faults", NULL};
static const char *const report_flags[] = {"summary", "ranking", NULL};

static void print_with_prefix(const char *text, void *prefix)
{
    fprintf(stderr, "%s%s", (const char *)prefix, text);
}

int debug_start(const char *config_file, int own_function)
{
    static char prefix[] = "logdigest (debug): ";
    if (vek_debug_initialize(config_file, NULL) != 0) {
        return -1;
    }
    if (vek_debug_add_domain("parse", parse_flags) != 0 ||
        vek_debug_add_domain("report", report_flags) != 0) {
        vek_debug_finalize();
        return -1;
    }
    debug_parse = vek_debug_get_domain("parse");
    debug_report = vek_debug_get_domain("report");
    if (own_function) {
        vek_debug_set_print_function(debug_report, print_with_prefix, prefix);
    }
    return 0;
}

void debug_stop(void)
{
    vek_debug_finalize();
    debug_parse = NULL;
    debug_report = NULL;
}
