#!/bin/sh
# Builds dist/: build.sh BUILD_FOLDER, which is where sorvel.wasm is compiled. `make web` calls it.
set -eu
cd "$(dirname "$0")"
build=$1
export NODE_PATH=/usr/share/nodejs # where Debian's emscripten looks for its own parts
unset EM_CACHE

cmake -S .. -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE='-O2 -DNDEBUG' -DSORVEL_SDK=OFF -DSORVEL_TESTS=OFF -DSORVEL_WERROR=ON \
    -DCMAKE_TOOLCHAIN_FILE=/usr/share/emscripten/cmake/Modules/Platform/Emscripten.cmake >"$build.log" || { cat "$build.log"; exit 1; }
cmake --build "$build" -j "${JOBS:-$(nproc)}" --target sorvel_wasm

rm -rf dist
mkdir dist
cp "$build/web/sorvel.wasm" dist/
esbuild="esbuild --bundle --log-level=warning --target=es2021 --charset=utf8"
$esbuild src/worklet.ts --format=iife --minify --outfile=dist/sorvel-worklet.js
$esbuild src/sorvel.ts --format=esm --external:node:* --outfile=dist/sorvel.js
tsc -p . # checks all types, and writes those of the package
rm -rf dist/types/page
cp ../LICENSE .
$esbuild page/page.ts --format=esm --target=es2022 --minify --external:node:* --loader:.wasm=binary \
    --loader:.js=dataurl --outfile="$build/page.js"
$esbuild page/page.css --minify --outfile="$build/page.css"
node page/assemble.mjs page/index.html "$build/page.css" "$build/page.js" dist/sorvel.html
