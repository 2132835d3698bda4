#!/bin/sh
# The router's C library is musl: what a program takes from the C library must be there, too.
# musl_symbols.sh MUSL_LIBC FILE [ALLOWED...]
#
# The checked forms that glibc's headers put in place of printf, memcpy and so on are held against their plain names. ALLOWED
# are functions that another C++ library than the router's chose for itself.
set -eu
export LC_ALL=C
libc=$1
file=$2
shift 2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

nm -D --defined-only "$libc" | awk '{ print $NF }' | sort -u >"$scratch/musl"
nm -D --undefined-only "$file" | awk '$NF ~ /@GLIBC_/ { print $NF }' |
    sed -e 's/@.*//' -e 's/^__\(.*\)_chk$/\1/' | sort -u >"$scratch/used"
test -s "$scratch/used"
for name in "$@"; do
    printf '%s\n' "$name"
done | sort -u | comm -23 "$scratch/used" - | comm -23 - "$scratch/musl" >"$scratch/missing"
if [ -s "$scratch/missing" ]; then
    echo "$file uses what musl does not have:"
    cat "$scratch/missing"
    exit 1
fi
