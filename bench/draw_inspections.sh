#!/bin/sh
# Draws the pictures of docs/inspect.md anew: bench/draw_inspections.sh BUILD, in which sorvel and hearing are built;
# `make pictures` does both.
set -eu
build=$(cd "$1" && pwd) docs=$(cd "$(dirname "$0")/../docs" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
while read -r name point; do
    "$build/bench/hearing/hearing" --point "$point" --trials 1 --rate 48000 --save "$name.wav" >log || { cat log; exit 1; }
    # Its status tells whether a text was heard.
    "$build/tools/sorvel" inspect "$name.wav" --prefix acme -o "$docs/inspect_$name.png" >log || [ $? = 1 ] || exit 1
    echo "inspect_$name.png  $(grep '^result' log)"
done <<'END'
clean white:20
noisy white:-10
moving speed:1.5
walking gait-1.4:10
echoing room-1.2:-6
whistling whistle:20
faint white:-15
END
