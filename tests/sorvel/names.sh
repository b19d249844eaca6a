#!/bin/sh
# Both libraries show the functions of a list and nothing else, the shared one all of one version:
# names.sh LIST SHARED STATIC
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
sort "$1" >"$folder/functions"
{ echo SORVEL_1 && sed 's/$/@@SORVEL_1/' "$1"; } | sort >"$folder/versioned" # with the version itself
nm -D --defined-only "$2" | awk '{print $3}' | sort >"$folder/shared"
nm -g --defined-only "$3" | awk 'NF == 3 {print $3}' | sort >"$folder/static"
[ -s "$folder/functions" ]
diff "$folder/versioned" "$folder/shared"
diff "$folder/functions" "$folder/static"
