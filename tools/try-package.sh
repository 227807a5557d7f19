#!/bin/sh
# Installs the Debian packages in a clean root and uses them there as a newcomer would: the command programs a
# switch, and an example builds against the development package by CMake and by pkg-config. Takes some minutes, the
# network and root's rights; `make package` comes first.
#
#   tools/try-package.sh [FOLDER_OF_PACKAGES [ROOT]]
#
# ROOT, a new folder if left out, is removed in the end unless it was named. MIRROR is where Debian comes from, and
# SUITE which one.
set -eu
cd "$(dirname "$0")/.."
packages=${1:-build/release/packages}
suite=${SUITE:-bookworm}
mirror=${MIRROR:-http://deb.debian.org/debian}
if [ "$(id -u)" -ne 0 ]; then
    echo "A clean root takes root's rights: sudo $0 $*" >&2
    exit 1
fi
command -v debootstrap >/dev/null || {
    echo "There is no debootstrap; apt-get install debootstrap" >&2
    exit 1
}
ls "$packages"/*.deb >/dev/null

if [ -n "${2:-}" ]; then
    root=$2
else
    root=$(mktemp -d)
    trap 'rm -rf "$root"' EXIT
fi
log=$root.log
step() {
    title=$1
    shift
    echo "$title"
    "$@" >"$log" 2>&1 || { tail -n 30 "$log" >&2; echo "$title failed; the whole output is in $log" >&2; exit 1; }
}
# A mount of /proc that is seen by that command alone.
inside() {
    unshare -m sh -c 'mount -t proc proc "$0/proc" && exec chroot "$0" "$@"' "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"
}

if [ ! -x "$root/usr/bin/apt-get" ]; then
    step "Making a $suite in $root" debootstrap --variant=minbase "$suite" "$root" "$mirror"
fi
rm -rf "$root/packages"
mkdir "$root/packages"
cp "$packages"/*.deb "$root/packages"

step 'Fetching the lists of packages' inside apt-get update
step 'Installing the library and nerio' inside sh -c \
    'apt-get install -y --no-install-recommends /packages/libnerioswitchtable0_*.deb /packages/nerio-tools_*.deb'
inside sh -c 'command -v g++ cmake || true' | sed 's/^/already there: /'
inside nerio --version
inside nerio run

step 'Installing the development package and what builds with it' inside sh -c \
    'apt-get install -y --no-install-recommends /packages/libnerioswitchtable-dev_*.deb g++ cmake make pkg-config'
examples=/usr/share/doc/libnerioswitchtable-dev/examples
for example in hello_table route_agent; do
    step "Building $example with find_package" inside sh -c \
        "rm -rf /tmp/build && cmake -S $examples/$example -B /tmp/build && cmake --build /tmp/build"
    inside /tmp/build/$example
done
step 'Building hello_table with pkg-config' inside sh -c "g++ -std=c++20 $examples/hello_table/main.cpp \
    -o /tmp/hello_table \$(pkg-config --cflags --libs nerioswitchtable neriochip)"
inside /tmp/hello_table

step 'Removing all three' inside apt-get remove -y nerio-tools libnerioswitchtable-dev libnerioswitchtable0
left=$(inside sh -c 'ls -d /usr/bin/nerio /usr/include/nerio /usr/lib/libNerio* 2>/dev/null' || true)
[ -z "$left" ] || { echo "left behind: $left" >&2; exit 1; }
echo 'The packages work in a clean root.'
