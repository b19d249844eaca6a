#!/bin/sh
# Builds the Debian packages into a folder: build.sh FOLDER. Nothing of when that is goes into them.
set -eu
source=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$1"
folder=$(cd "$1" && pwd)

# Between releases the commit's time tells which package is newer.
version=$(sed -n 's/^project(sorvel VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
if commit=$(git -C "$source" log -1 --format=%h 2>/dev/null); then
    time=$(git -C "$source" log -1 --format=%ct)
    git -C "$source" describe --exact-match --match "v$version" >/dev/null 2>&1 ||
        version="$version~git$(date -u -d "@$time" +%Y%m%d.%H%M%S).$commit"
else
    time=${SOURCE_DATE_EPOCH:-$(stat -c %Y "$source/CHANGELOG.md")}
fi

rm -rf "$folder/sorvel" "$folder"/*.deb "$folder"/*.changes "$folder"/*.buildinfo
mkdir "$folder/sorvel"
# debhelper wants the sources beside its own files, which have no place at their top.
tar -C "$source" --exclude='./build' --exclude='./build-*' --exclude=.git --exclude=node_modules -c . | tar -C "$folder/sorvel" -x
cd "$folder/sorvel"
mv packaging/debian .
packages=$(awk '$1 == "build" {print $2}' cmake/packages.txt | paste -sd ,)
sed -i "s/@BUILD_PACKAGES@/$packages/" debian/control
cat >debian/changelog <<END
sorvel ($version-1) unstable; urgency=medium

  * See CHANGELOG.md.

 -- $(sed -n 's/^Maintainer: //p' debian/control)  $(LC_ALL=C date -u -R -d "@$time")
END
if ! dpkg-buildpackage -b -us -uc -j"$(nproc)" >"$folder/log" 2>&1; then
    tail -40 "$folder/log"
    echo "The packages could not be built (whole output: $folder/log)"
    exit 1
fi
rm -rf "$folder/sorvel"
ls -l "$folder"/*.deb
