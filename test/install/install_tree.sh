#!/bin/sh
# Installs a build, moves the installed tree away, and uses it from there as its users do: the command runs,
# and the example, copied out of the project, builds and runs by find_package and by pkg-config.
#
#   install_tree.sh BUILD_FOLDER EXAMPLE_FOLDER COMMAND...     CMAKE, CXX and CXXFLAGS are in the environment
set -eu
build=$1 example=$2
shift 2
expected='register egress/port[5]/vlan_cfg holds 0x4'

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
unset DESTDIR LD_LIBRARY_PATH

fail() {
    echo "$1" >&2
    exit 1
}
# Runs a step with its output kept back until it fails.
step() {
    "$@" >"$folder/log" 2>&1 || { cat "$folder/log" >&2; fail "failed: $*"; }
}
check_example() {
    output=$("$1") || fail "the example built by $2 exits with $?"
    echo "$output" | grep -Fxq "$expected" || fail "the example built by $2 says \"$output\", not \"$expected\""
    echo "built by $2: $output"
}

step "$CMAKE" --install "$build" --prefix "$folder/before"
mv "$folder/before" "$folder/installed"
cp -R "$example" "$folder/source"

for command; do
    step "$folder/installed/bin/$command" --help
done

step "$CMAKE" -S "$folder/source" -B "$folder/build" -DCMAKE_PREFIX_PATH="$folder/installed"
step "$CMAKE" --build "$folder/build"
check_example "$folder/build/hello_table" find_package

PKG_CONFIG_PATH=$(dirname "$(find "$folder/installed" -name nerioswitchtable.pc)")
export PKG_CONFIG_PATH
modules='nerioswitchtable neriochip'
step "$CXX" -std=c++20 $CXXFLAGS "$folder/source/main.cpp" -o "$folder/hello_table" \
    $(pkg-config --cflags --libs $modules) -Wl,-rpath,"$(pkg-config --variable=libdir nerioswitchtable)"
check_example "$folder/hello_table" pkg-config
