#!/bin/sh
# Compares the dynamic symbols that a library defines with a checked-in list.
set -eu
library=$1
expected=$2
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | sed 's/@.*//' | grep -v '^TAVO_1$' | LC_ALL=C sort)
if ! printf '%s\n' "$actual" | diff -u "$expected" -; then
    echo "exported symbols of $library differ from $expected" >&2
    exit 1
fi
