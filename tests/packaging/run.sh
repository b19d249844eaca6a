#!/bin/sh
# Uses the packages of a folder in a fresh Debian root, which is gone afterwards: run.sh FOLDER SOURCE
# The root is of this machine's own release, from the same places. Needs root or user namespaces.
set -eu
folder=$1 source=$2
# The one warning left out is about Debian's list of wishes for packages.
lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$folder"/*.changes

. /etc/os-release
suite=${VERSION_CODENAME:?this is no released Debian}
sources=$(grep -lsE "(^|[[:space:]])$suite([[:space:]]|\$)" /etc/apt/sources.list /etc/apt/sources.list.d/*.sources \
    /etc/apt/sources.list.d/*.list) || [ -n "$sources" ] || { echo "apt has no source for $suite"; exit 1; }
packages=$(ls "$folder"/*.deb | grep -v -e -dbgsym_)
mmdebstrap --quiet --variant=minbase --format=null --dpkgopt=force-unsafe-io \
    --customize-hook='mkdir -p "$1/root/packages" "$1/root/stranger"' \
    --customize-hook="copy-in $(echo $packages) /root/packages" \
    --customize-hook="copy-in $source/tests/package/CMakeLists.txt $source/tests/package/with_deep.cpp /root/stranger" \
    --customize-hook="copy-in $source/tests/packaging/in_root.sh $source/tests/packaging/type.zsh /root" \
    --customize-hook='copy-in /etc/resolv.conf /etc/hosts /etc' \
    --customize-hook='chroot "$1" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 sh /root/in_root.sh' \
    "$suite" /dev/null $sources
