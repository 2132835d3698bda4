#!/bin/sh
# The daemon holds nothing that it does not use: no streams, no locales, no exceptions, nothing of the C++ library.
# link_map.sh PROGRAM MAP
set -eu
export LC_ALL=C
bad=0

complain() {
    echo "$1"
    bad=1
}

[ -s "$2" ] || complain "there is no map: $2"
if grep -n -E 'lib(stdc\+\+|supc\+\+|c\+\+)\.(a|so)\(?' "$2" | grep -v '^[0-9]*:LOAD '; then
    complain "the map names parts of the C++ library"
fi
if nm -C --undefined-only "$1" | grep -E 'std::|__cxa_(throw|begin_catch)|__gxx_personality|operator (new|delete)'; then
    complain "the program needs the C++ library"
fi
if nm -C "$1" | grep -E 'std::(ios_base|locale|basic_(o|i)stream|__cxx11)'; then
    complain "streams, locales or strings are in the program"
fi
if readelf -S -W "$1" | grep -F .gcc_except_table; then
    complain "tables of exceptions are in the program"
fi
if readelf -d "$1" | grep -F NEEDED | grep -v -E '\[(libdvplatform\.so|libc\.so\.6|ld-linux[^]]*)\]'; then
    complain "the program loads more than the platform and the C library"
fi
exit $bad
