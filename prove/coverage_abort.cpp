/* SPDX-License-Identifier: MIT */
/* Writes the counters of the object that it is linked into when abort() ends the process. The
 * compiler's own code writes them only at a regular exit. */
#include <csignal>

extern "C" void __gcov_dump();

namespace {

struct sigaction previous;

/** Leaves the signal to the handler before: the next object's, and at last the system's. */
void dump_and_raise(int signal)
{
    __gcov_dump();
    sigaction(signal, &previous, nullptr);
    raise(signal);
}

[[gnu::constructor]] void catch_abort()
{
    struct sigaction action = {};
    action.sa_handler = dump_and_raise;
    action.sa_flags = SA_NODEFER;
    sigaction(SIGABRT, &action, &previous);
}

} // namespace
