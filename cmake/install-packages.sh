#!/bin/sh
# Installs the Debian packages of a group in packages.txt that are missing: install-packages.sh build|test|bench|ci
# Where neither root nor sudo is at hand, it names them and fails.
set -u
group=${1:?usage: install-packages.sh build|test|bench|ci}
list=$(dirname "$0")/packages.txt

if ! command -v dpkg-query >/dev/null; then
    echo "This is no Debian system: see that it has the equivalents of:" $(awk -v g="$group" '$1 == g {print $2}' "$list")
    exit 0
fi
missing=
for package in $(awk -v g="$group" '$1 == g {print $2}' "$list"); do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" = 0 ]; then
    as_root=
elif command -v sudo >/dev/null; then
    as_root=sudo
else
    echo "Missing packages:$missing"
    echo "Install them as root: apt-get install$missing"
    exit 1
fi
echo "Installing:$missing"
log=$(mktemp)
if { $as_root apt-get update && $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing; } >"$log" 2>&1; then
    rm -f "$log"
else
    tail -5 "$log"
    echo "Could not install:$missing (whole output: $log)"
    exit 1
fi
