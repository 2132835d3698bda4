#!/bin/sh
# What the library shows is what the headers declare, no more and no less.
# exports.sh LIBRARY HEADER_DIRECTORY
set -eu
export LC_ALL=C
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

nm -D --defined-only "$1" | awk '{ print $NF }' | sort >"$scratch/shown"
cat "$2"/*.h | sed -n 's/^[a-z][a-zA-Z_ \*]*[ *]\([a-zA-Z_][a-zA-Z_]*\)(.*);.*$/\1/p' | grep -v '^static_assert$' | sort >"$scratch/declared"
test -s "$scratch/declared"
diff "$scratch/declared" "$scratch/shown"
