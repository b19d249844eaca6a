#!/bin/sh
# Compares libsorvel's binary interface with the one stored here, and fails on any difference:
# compare.sh LIBRARY [--store], with a library that a preset built.
# What only adds may be stored anew. What changes or removes breaks programs that are linked already.
set -eu
stored=$(dirname "$0")/libsorvel.abi
header=$(dirname "$0")/../sorvel.h
# Types that only the library sees are no part of it; nor are folders, lines and what it is linked with.
dump() {
    abidw --header-file "$header" --drop-private-types --exported-interfaces-only --no-corpus-path \
        --no-comp-dir-path --no-show-locs --no-elf-needed --no-architecture --type-id-style hash --out-file "$2" "$1"
}
if [ "${2:-}" = --store ]; then
    dump "$1" "$stored"
    exit
fi
now=$(mktemp)
trap 'rm -f "$now"' EXIT
dump "$1" "$now"
abidiff "$stored" "$now" || { echo "libsorvel's binary interface is not what $stored says"; exit 1; }
