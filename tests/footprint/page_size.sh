#!/bin/sh
# Every segment that is loaded is aligned to pages of this size: no hole as large as another kernel's pages is in the file.
# page_size.sh PROGRAM BYTES
set -eu
export LC_ALL=C
wanted=$(printf '0x%x' "$2")
loaded=$(readelf -l -W "$1" | awk '$1 == "LOAD" { print $NF }')
[ -n "$loaded" ]
for alignment in $loaded; do
    if [ "$alignment" != "$wanted" ]; then
        echo "a segment is aligned to $alignment bytes, not to $wanted"
        exit 1
    fi
done
