#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: hardening.sh LIBRARY - checks that the library has the protections that its build asks for.
set -eu
library=$1
found=$(readelf -WldnV "$library" && readelf -W --dyn-syms "$library")

expect() {
    printf '%s\n' "$found" | grep -qE "$2" || {
        echo "no $1"
        exit 1
    }
}
expect "relocations that are read-only after loading" 'GNU_RELRO'
expect "binding of all symbols when loaded" 'FLAGS.*NOW'
expect "stack that cannot be executed" 'GNU_STACK .* RW  *0x'
expect "mark that keeps it loaded, and its trace file open" 'FLAGS_1.*NODELETE'
expect "guards on the stack" 'UND __stack_chk_fail'
expect "checked printing" 'UND __v?[fs]n?printf_chk'
case $(readelf -h "$library" | sed -n 's/ *Machine: *//p') in
    *X86-64) expect "mark for shadow stacks" 'SHSTK' ;;
esac
