#!/bin/sh
# Installs a build into a new folder and builds and runs a stranger's project against it: run.sh BUILD SOURCE CC CXX FLAGS
set -eu
build=$1 source=$2 cc=$3 cxx=$4 flags=$5
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cmake --install "$build" --prefix "$folder/installed" >"$folder/log" || { cat "$folder/log"; exit 1; }
cmake -S "$source/tests/package" -B "$folder/build" -DCMAKE_PREFIX_PATH="$folder/installed" -DEXAMPLES="$source/examples" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_C_FLAGS="$flags"
cmake --build "$folder/build"
for program in in_c stream_sorvel stream_sorvel_static in_cpp with_sdk with_deep; do
    [ ! -e "$folder/build/$program" ] || "$folder/build/$program"
done

# A program in C by pkg-config: shared, and with everything static where that is possible (not under sanitizers).
pc=$(dirname "$(find "$folder/installed" -name sorvel.pc)")
export PKG_CONFIG_PATH="$pc"
"$cc" $flags -o "$folder/shared" "$source/examples/stream.c" $(pkg-config --cflags --libs sorvel)
LD_LIBRARY_PATH=$(dirname "$pc") "$folder/shared"
if [ -z "$flags" ]; then
    "$cc" -static -o "$folder/static" "$source/examples/stream.c" $(pkg-config --static --cflags --libs sorvel)
    "$folder/static"
fi
