#!/bin/sh
# Installs a build, moves the installed tree away, and uses it from there as its users do: the command runs,
# and examples, copied out of the project, build and run: by find_package, and the first one by pkg-config.
#
#   install_tree.sh BUILD_FOLDER EXAMPLES_FOLDER COMMAND...     CMAKE, CXX and CXXFLAGS are in the environment
set -eu
build=$1 examples=$2
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
cp -R "$examples" "$folder/source"

for command; do
    step "$folder/installed/bin/$command" --help
done

for example in hello_table route_agent; do
    step "$CMAKE" -S "$folder/source/$example" -B "$folder/$example" -DCMAKE_PREFIX_PATH="$folder/installed"
    step "$CMAKE" --build "$folder/$example"
done
check_example "$folder/hello_table/hello_table" find_package
step "$folder/route_agent/route_agent"

PKG_CONFIG_PATH=$(dirname "$(find "$folder/installed" -name nerioswitchtable.pc)")
export PKG_CONFIG_PATH
modules='nerioswitchtable neriochip'
step "$CXX" -std=c++20 $CXXFLAGS "$folder/source/hello_table/main.cpp" -o "$folder/hello" \
    $(pkg-config --cflags --libs $modules) -Wl,-rpath,"$(pkg-config --variable=libdir nerioswitchtable)"
check_example "$folder/hello" pkg-config
