#!/bin/sh
# In a fresh root with the packages in /root/packages: installs them, uses all that they hold, and removes them.
set -eu
export DEBIAN_FRONTEND=noninteractive
step() { echo "-- $1"; }
fail() { echo "FAILED: $1"; exit 1; }
same() { [ "$1" = "$2" ] || fail "expected '$2', got '$1'"; } # GOT EXPECTED
quietly() { "$@" >/tmp/log 2>&1 || { cat /tmp/log; fail "$*"; }; }
# All that is there, but for what apt, dpkg and man keep about packages.
snapshot() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /run -o -path /tmp -o -path /root \
        -o -path /var/cache -o -path /var/log -o -path /var/lib/dpkg -o -path /var/lib/apt \) -prune -o -print | sort
}
cd /root
cp -r packages/. .

step 'the command, with what it depends on alone'
quietly apt-get install -y --no-install-recommends ./sorvel_*.deb
sorvel --version | grep -q '^sorvel [0-9.]*$' || fail 'version'
sorvel send acme_1234 -o hello.wav
same "$(sorvel listen hello.wav --prefix acme)" acme_1234
same "$(sorvel send acme_1234 -o - | sorvel listen - --receiver deep)" acme_1234
sorvel devices 2>said && fail 'a device where none is'
grep -q 'no sound input' said || fail "devices: $(cat said)"
sorvel inspect hello.wav -o hello.png 2>said && fail 'a picture without cairo'
grep -q 'install libcairo2' said || fail "inspect: $(cat said)"
quietly apt-get purge -y sorvel

step 'what users of the packages have'
needed=$(for package in ./*.deb; do dpkg-deb -f "$package" Pre-Depends Depends Recommends; done |
    sed 's/^[A-Za-z-]*: //' | tr ',' '\n' | sed 's/^ *//' | grep -v sorvel | sort -u | paste -sd ,)
quietly apt-get satisfy -y --no-install-recommends "$needed"
quietly apt-get install -y --no-install-recommends cmake make man-db bash-completion zsh fish
snapshot >before

step 'all packages'
quietly dpkg -i ./*.deb
sorvel inspect hello.wav -o hello.png >/dev/null
[ "$(head -c 4 hello.png | tail -c 3)" = PNG ] || fail 'the picture is none'

step 'man pages'
for page in $(dpkg -L sorvel | grep /man1/); do
    name=$(basename "$page" .1.gz)
    MANWIDTH=80 man --warnings "$name" >page 2>said
    [ ! -s said ] || fail "$name: $(cat said)"
    grep -q '^EXIT STATUS' page || fail "$name has no exit status"
done
same "$(dpkg -L sorvel | grep -c /man1/.)" $(($(sorvel --help | sed -n '/^Subcommands:/,/^$/p' | grep -c '^  ') + 1))

step 'completions'
bash -c '. /usr/share/bash-completion/bash_completion
    _completion_loader sorvel
    complete -p sorvel' | grep -q -e '-F _sorvel sorvel' || fail 'bash does not load them'
same "$(fish -c 'complete -C "sorvel listen --rece"' | cut -f 1)" --receiver
same "$(zsh -f type.zsh 'sorvel ins')" 'sorvel inspect '
same "$(zsh -f type.zsh 'sorvel listen --rece')" 'sorvel listen --receiver='

step 'a program in C, by pkg-config'
examples=/usr/share/doc/libsorvel-dev/examples
cc -o shared $examples/stream.c $(pkg-config --cflags --libs sorvel)
./shared
ldd shared | grep -q libsorvel.so.1 || fail 'not linked with the shared library'
cc -static -o static $examples/stream.c $(pkg-config --static --cflags --libs sorvel)
./static

step "a stranger's project, by CMake"
quietly cmake -S stranger -B build -DEXAMPLES=$examples
quietly cmake --build build
for program in in_c stream_sorvel stream_sorvel_static in_cpp with_sdk with_deep; do
    quietly "build/$program"
done

step 'removal'
quietly dpkg --purge sorvel libsorvel-dev libsorvel1
snapshot >after
diff before after || fail 'removal leaves files behind, or takes some along'
echo 'The packages are good.'
